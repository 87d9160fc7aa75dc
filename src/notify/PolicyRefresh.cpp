#include "notify/PolicyRefresh.h"

#include <bit>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>

#include "diagnostics/TraceScope.h"
#include "module/ComModule.h"
#include "module/Library.h"

namespace {

// What a signal goes through on its way to an object.
class CRefreshGate {
  public:
    CRefreshGate(void* object, RefreshProc refresh) noexcept
        : m_object(object), m_refreshed(object), m_refresh(refresh) {}

    void Pass() noexcept {
        void* object = nullptr;
        {
            const std::lock_guard lock(m_mutex);
            if (!m_object) return;
            object = m_object;
            ++m_running;
        }
        const CRefreshGate* outer = std::exchange(t_passing, this);
        m_refresh(object);
        t_passing = outer;
        const std::lock_guard lock(m_mutex);
        --m_running;
        m_left.notify_all();
    }

    static bool PassesHere(const void* object) noexcept { return t_passing && t_passing->m_refreshed == object; }

    bool Close() noexcept {
        std::unique_lock lock(m_mutex);
        m_object = nullptr;
        const int own = t_passing == this ? 1 : 0;
        m_left.wait(lock, [&] { return m_running <= own; });
        return own != 0;
    }

  private:
    static thread_local const CRefreshGate* t_passing;  // the gate whose refresh runs on this thread

    std::mutex m_mutex;
    std::condition_variable m_left;
    void* m_object;           // null when the gate is closed
    const void* m_refreshed;  // the same, for good
    RefreshProc m_refresh;
    int m_running = 0;
};

thread_local const CRefreshGate* CRefreshGate::t_passing = nullptr;

// The open gates. A signal that comes late finds its number gone.
class CGates {
  public:
    ULONG_PTR Add(std::shared_ptr<CRefreshGate> gate) {
        const std::lock_guard lock(m_mutex);
        m_open.emplace(++m_last, std::move(gate));
        return m_last;
    }
    std::shared_ptr<CRefreshGate> Find(ULONG_PTR number) noexcept {
        const std::lock_guard lock(m_mutex);
        const auto found = m_open.find(number);
        return found == m_open.end() ? nullptr : found->second;
    }
    std::shared_ptr<CRefreshGate> Remove(ULONG_PTR number) noexcept {
        const std::lock_guard lock(m_mutex);
        const auto found = m_open.find(number);
        if (found == m_open.end()) return nullptr;
        std::shared_ptr<CRefreshGate> gate = std::move(found->second);
        m_open.erase(found);
        return gate;
    }

  private:
    std::mutex m_mutex;
    std::map<ULONG_PTR, std::shared_ptr<CRefreshGate>> m_open;
    ULONG_PTR m_last = 0;
};

CGates& TheGates() noexcept {
    static CGates gates;
    return gates;
}

// What a trace message shows of an address.
template <class Pointer>
DWORD LowPart(Pointer pointer) noexcept {
    return static_cast<DWORD>(std::bit_cast<ULONG_PTR>(pointer));
}

// Keeps the module loaded while a thread of the pool is inside it.
class CModuleLock {
  public:
    CModuleLock() noexcept { CComModule::Lock(); }
    ~CModuleLock() { CComModule::Unlock(); }
    CModuleLock(const CModuleLock&) = delete;
    CModuleLock& operator=(const CModuleLock&) = delete;
};

}  // namespace

gpoPointers::~gpoPointers() {
    if (hLib) FreeLibrary(hLib);
}

bool gpoPointers::LoadLib() noexcept {
    if (hLib) return false;
    OVTraceNS::CTraceScope scope("gpoPointers::LoadLib", 0);
    hLib = LoadLibraryW(W("Userenv.dll"));
    pEnterCPS = FindExport<EnterProc>(hLib, "EnterCriticalPolicySection");
    pLeaveCPS = FindExport<LeaveProc>(hLib, "LeaveCriticalPolicySection");
    pRegister = FindExport<RegisterProc>(hLib, "RegisterGPNotification");
    pUnregister = FindExport<UnregisterProc>(hLib, "UnregisterGPNotification");
    scope.Print("Userenv.dll: hLib=0x%X, pEnterCPS=0x%X, pLeaveCPS=0x%X, pRegister=0x%X, pUnregister=0x%X",
                LowPart(hLib), LowPart(pEnterCPS), LowPart(pLeaveCPS), LowPart(pRegister), LowPart(pUnregister));
    return hLib != nullptr;
}

HANDLE gpoPointers::Register() const {
    OVTraceNS::CTraceScope scope("gpoPointers::Register", 0);
    if (!pRegister) return nullptr;
    HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    if (!event) throw _com_error(HRESULT_FROM_WIN32(GetLastError()));
    if (pRegister(event, TRUE)) return event;
    CloseHandle(event);
    return nullptr;
}

ULONG_PTR OpenRefreshGate(void* object, RefreshProc refresh) {
    return TheGates().Add(std::make_shared<CRefreshGate>(object, refresh));
}

bool CloseRefreshGate(ULONG_PTR gate) noexcept {
    const std::shared_ptr<CRefreshGate> found = TheGates().Remove(gate);
    return found && found->Close();
}

bool IsRefreshedHere(const void* object) noexcept {
    return CRefreshGate::PassesHere(object);
}

void CALLBACK RefreshWaitCallback(PVOID context, BOOLEAN) {
    const CModuleLock inside;
    const std::shared_ptr<CRefreshGate> gate = TheGates().Find(reinterpret_cast<ULONG_PTR>(context));
    if (!gate || FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) return;
    gate->Pass();
    CoUninitialize();
}
