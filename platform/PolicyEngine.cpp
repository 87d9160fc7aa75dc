// The built-in "Userenv.dll": what tells processes of a policy change, and what keeps them from reading half of one.
#include <memory>

#include "BoolCall.h"
#include "Event.h"
#include "Home.h"
#include "PolicyListener.h"
#include "PolicyStamp.h"
#include "userenv.h"

namespace {

class CPolicySection : public CKernelObject {
  public:
    explicit CPolicySection(CFile file) noexcept : m_file(std::move(file)) {}

  private:
    CFile m_file;  // the lock goes with it
};

}  // namespace

BOOL WINAPI RegisterGPNotification(HANDLE event, BOOL machine) {
    return Succeeds([&]() -> DWORD {
        if (!event) return ERROR_INVALID_PARAMETER;
        std::shared_ptr<CEvent> found = ObjectOf<CEvent>(event);
        if (!found) return ERROR_INVALID_HANDLE;
        AddPolicyListener(event, std::move(found), machine != FALSE);
        return ERROR_SUCCESS;
    });
}

BOOL WINAPI UnregisterGPNotification(HANDLE event) {
    return Succeeds([&]() -> DWORD { return RemovePolicyListener(event) ? ERROR_SUCCESS : ERROR_INVALID_HANDLE; });
}

HANDLE WINAPI EnterCriticalPolicySection(BOOL machine) {
    HANDLE section = nullptr;
    Succeeds([&]() -> DWORD {
        CFile file;
        if (const DWORD error = CPolicyFiles(OvRoot(), machine != FALSE).Lock(file)) return error;
        section = OpenHandle(std::make_shared<CPolicySection>(std::move(file)));
        return section ? ERROR_SUCCESS : ERROR_NOT_ENOUGH_MEMORY;
    });
    return section;
}

BOOL WINAPI LeaveCriticalPolicySection(HANDLE section) {
    return Succeeds([&]() -> DWORD {
        if (!ObjectOf<CPolicySection>(section)) return ERROR_INVALID_HANDLE;
        CloseHandle(section);
        return ERROR_SUCCESS;
    });
}

BOOL WINAPI RefreshPolicyEx(BOOL machine, DWORD options) {
    return Succeeds([&]() -> DWORD {
        if ((options & ~static_cast<DWORD>(RP_FORCE)) != 0) return ERROR_INVALID_PARAMETER;
        return CPolicyFiles(OvRoot(), machine != FALSE).RaiseStamp();
    });
}

BOOL WINAPI OvLastPolicySignal(BOOL machine, SYSTEMTIME* time) {
    if (!time) return FALSE;
    bool known = false;
    Succeeds([&]() -> DWORD {
        std::time_t seconds = 0;
        int milliseconds = 0;
        std::tm local = {};
        known =
            CPolicyFiles(OvRoot(), machine != FALSE).StampTime(seconds, milliseconds) && localtime_r(&seconds, &local);
        if (known) {
            *time = {static_cast<WORD>(local.tm_year + 1900), static_cast<WORD>(local.tm_mon + 1),
                     static_cast<WORD>(local.tm_wday),        static_cast<WORD>(local.tm_mday),
                     static_cast<WORD>(local.tm_hour),        static_cast<WORD>(local.tm_min),
                     static_cast<WORD>(local.tm_sec),         static_cast<WORD>(milliseconds)};
        }
        return ERROR_SUCCESS;
    });
    return known;
}
