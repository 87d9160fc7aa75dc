// The output to a trace file: a head in clear text, then the records, their text enciphered.
//
// Made with the first record and kept to the module's end. Whatever goes wrong, with the name, the folder or the disk,
// records are lost and nobody is told. Nothing is buffered: a record is one write, at the end of the file.
#pragma once

#include "diagnostics/TraceOutput.h"
#include "module/FileHandle.h"

namespace OVTraceNS {

class CFileOutput final : public COutput {
  public:
    CFileOutput() noexcept;

    void Write(TraceRecord* record, DWORD size, CTraceScope* scope) noexcept override;

  private:
    void WriteReopened() noexcept;

    CFileHandle m_file;
    WCHAR m_path[MAX_PATH];
};

}  // namespace OVTraceNS
