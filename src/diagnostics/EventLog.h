// Audit events: the record of one, and the way to the suite's event log component.
//
//   LogEvent event(1, kEventValueSet, GUID{});
//   event << name << old << now << OVLog::InitiatedBy();
//   log.Log(event);
//
// The component is loaded for each event and let go again, without COM. Whoever reports an event goes on whatever
// becomes of it.
#pragma once

#include <span>
#include <vector>

#include "Platform.h"
#include "diagnostics/EventParameters.h"

// The record of one event, on the stack of whoever reports it.
class LogEvent {
  public:
    // Type and category are the id's own. The null GUID stands for the default class.
    LogEvent(DWORD level, DWORD id, const GUID& classId);

    // Each adds an insertion string; the last one adds two, domain and account.
    LogEvent& operator<<(LPCWSTR text);  // null is the empty text
    LogEvent& operator<<(DWORD number);
    LogEvent& operator<<(const OVLog::Parameter& parameter);
    LogEvent& operator<<(const OVLog::InitiatedBy& who);

    DWORD Level() const noexcept { return m_level; }
    DWORD Type() const noexcept { return m_type; }
    DWORD Category() const noexcept { return m_category; }
    DWORD Id() const noexcept { return m_id; }
    const GUID& Class() const noexcept { return m_class; }
    const std::vector<wstr>& Strings() const noexcept { return m_strings; }

  private:
    DWORD m_level;
    DWORD m_type;
    DWORD m_category;
    DWORD m_id;
    GUID m_class;
    std::vector<wstr> m_strings;
};

// Threads  several may log through one object at once: nothing of it changes.
class COVLog {
  public:
    // The name under which events are logged where classes have no names of their own: `source`, else DefaultSource of
    // SOFTWARE\Orvantis\EventLog, else "Orvantis Pro".
    explicit COVLog(LPCWSTR source = nullptr);
    virtual ~COVLog() = default;

    // The component's result, or why it was not reached.
    HRESULT Log(const LogEvent& event) const noexcept;
    // `strings` may hold nulls. A null `classId` becomes that of the default class.
    HRESULT Log(DWORD level, DWORD type, DWORD category, DWORD id, DWORD count, const LPCWSTR* strings, DWORD dataSize,
                const void* data, GUID& classId) const noexcept;

  private:
    wstr ApplicationName(LPCWSTR classText) const;

    wstr m_sApplicationName;
};

// One call of the component. Fails with why it cannot be had.
HRESULT _LogEvent(LPCWSTR application, DWORD level, DWORD type, DWORD category, DWORD id, DWORD count,
                  const LPCWSTR* strings, DWORD dataSize, const void* data) noexcept;
