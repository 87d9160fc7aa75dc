// Where trace records go.
#pragma once

#include "Platform.h"
#include "diagnostics/TraceRecords.h"

namespace OVTraceNS {

class CTraceScope;

// Every call is made with TraceLock held.
class COutput {
  public:
    // `record` and its text are `size` bytes in a buffer that the output may change; both go when the call returns. A
    // record that cannot be written is lost, and nobody is told. `scope` is the scope that writes.
    virtual void Write(TraceRecord* record, DWORD size, CTraceScope* scope) noexcept = 0;
    virtual ~COutput() = default;
};

// Drops every record.
class CNoOutput final : public COutput {
  public:
    void Write(TraceRecord* record, DWORD size, CTraceScope* scope) noexcept override;
};

}  // namespace OVTraceNS
