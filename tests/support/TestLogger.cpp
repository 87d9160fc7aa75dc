#include "support/TestLogger.h"

#include "diagnostics/EventLogger.h"

namespace {

TestLoggerHook theHook = {};

struct COwnException {
    virtual ~COwnException() = default;
};

class CTestLogger final : public IClassFactory, public IOVEventLogger {
  public:
    STDMETHODIMP QueryInterface(REFIID iid, void** object) override {
        *object = iid == IID_IOVEventLogger  ? static_cast<void*>(static_cast<IOVEventLogger*>(this))
                  : iid == IID_IClassFactory ? static_cast<void*>(static_cast<IClassFactory*>(this))
                                             : nullptr;
        return *object ? S_OK : E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return 1; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP CreateInstance(IUnknown*, REFIID iid, void** object) override { return QueryInterface(iid, object); }
    STDMETHODIMP LockServer(BOOL) override { return S_OK; }
    STDMETHODIMP LogEvent(LPCWSTR application, DWORD level, DWORD type, DWORD category, DWORD id, DWORD count,
                          const LPCWSTR* strings, DWORD dataSize, const void* data) override {
        if (dataSize != 0 || data) return E_INVALIDARG;  // no event of the module's has any
        HKEY key = nullptr;
        if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kTestLoggerThrows, 0, KEY_READ, &key) == ERROR_SUCCESS) {
            RegCloseKey(key);
            throw COwnException();
        }
        return theHook.take ? theHook.take(theHook.context, application, level, type, category, id, count, strings)
                            : S_OK;
    }
};

}  // namespace

STDAPI DllGetClassObject(REFCLSID classId, REFIID iid, LPVOID* object) {
    static CTestLogger logger;
    return classId == CLSID_EventLogger ? logger.QueryInterface(iid, object) : CLASS_E_CLASSNOTAVAILABLE;
}

STDAPI DllCanUnloadNow() {
    return S_FALSE;
}

extern "C" OV_TEST_EXPORT TestLoggerHook* WINAPI OvTestLoggerHook() {
    return &theHook;
}
