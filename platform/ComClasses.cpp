#include "ComClasses.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "ProcessObject.h"
#include "objbase.h"
#include "win/module.h"
#include "win/registry.h"
#include "win/text.h"

namespace {

constexpr struct {
    LPCOLESTR name;
    const CLSID& id;
    HRESULT (*create)(REFIID iid, void** object) noexcept;
} kClasses[] = {
    {u"Msxml2.DOMDocument", kXmlDocumentClass, CreateXmlDocument},
};

// What this process has registered itself.
class CRegisteredClasses {
  public:
    DWORD Add(REFCLSID id, IUnknown* classObject) {
        const std::lock_guard lock(m_mutex);
        m_classes.push_back({++m_lastCookie, id, classObject});
        classObject->AddRef();
        return m_lastCookie;
    }
    bool Remove(DWORD cookie) {
        IUnknown* removed = nullptr;
        {
            const std::lock_guard lock(m_mutex);
            const auto found = std::find_if(m_classes.begin(), m_classes.end(),
                                            [cookie](const Entry& entry) { return entry.cookie == cookie; });
            if (found == m_classes.end()) return false;
            removed = found->classObject;
            m_classes.erase(found);
        }
        removed->Release();
        return true;
    }
    // With a reference; null when there is none.
    IUnknown* Find(REFCLSID id) {
        const std::lock_guard lock(m_mutex);
        for (const Entry& entry : m_classes) {
            if (entry.id != id) continue;
            entry.classObject->AddRef();
            return entry.classObject;
        }
        return nullptr;
    }

  private:
    struct Entry {
        DWORD cookie;
        CLSID id;
        IUnknown* classObject;
    };
    std::mutex m_mutex;
    std::vector<Entry> m_classes;
    DWORD m_lastCookie = 0;
};

// The modules of registered classes, by path. They stay loaded.
class CClassModules {
  public:
    // Null when it cannot be loaded, or is no server.
    LPFNGETCLASSOBJECT Find(const std::u16string& path) {
        {
            const std::lock_guard lock(m_mutex);
            const auto known = m_modules.find(path);
            if (known != m_modules.end()) return known->second;
        }
        // Not under the lock: what runs when a module is loaded may ask for classes of its own.
        const HMODULE module = LoadLibraryW(path.c_str());
        const FARPROC found = module ? GetProcAddress(module, "DllGetClassObject") : nullptr;
        if (!found) {
            if (module) FreeLibrary(module);
            return nullptr;
        }
        const auto server = reinterpret_cast<LPFNGETCLASSOBJECT>(reinterpret_cast<void*>(found));
        const std::lock_guard lock(m_mutex);
        // Whoever came second gives its reference on the module back.
        if (!m_modules.emplace(path, server).second) FreeLibrary(module);
        return server;
    }

  private:
    std::mutex m_mutex;
    std::map<std::u16string, LPFNGETCLASSOBJECT> m_modules;
};

// The path that the registry has for a class; empty when it has none.
std::u16string ServerPath(REFCLSID id) {
    WCHAR text[39];
    StringFromGUID2(id, text, 39);
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_CLASSES_ROOT, (u"CLSID\\" + std::u16string(text) + u"\\InprocServer32").c_str(), 0, KEY_READ,
                      &key)) {
        return {};
    }
    WCHAR path[512] = {};
    DWORD type = REG_NONE, size = sizeof path - sizeof(WCHAR);
    const LSTATUS error = RegQueryValueExW(key, nullptr, nullptr, &type, reinterpret_cast<BYTE*>(path), &size);
    RegCloseKey(key);
    return error || type != REG_SZ ? std::u16string() : std::u16string(path);
}

HRESULT CreateBy(IUnknown* classObject, IUnknown* outer, REFIID iid, void** object) noexcept {
    void* factory = nullptr;
    HRESULT hr = classObject->QueryInterface(IID_IClassFactory, &factory);
    if (FAILED(hr)) return hr;
    hr = static_cast<IClassFactory*>(factory)->CreateInstance(outer, iid, object);
    static_cast<IClassFactory*>(factory)->Release();
    return hr;
}

HRESULT CreateRegistered(REFCLSID id, IUnknown* outer, REFIID iid, void** object) {
    IUnknown* classObject = CProcessObject<CRegisteredClasses>::Get().Find(id);
    if (!classObject) {
        const std::u16string path = ServerPath(id);
        if (path.empty()) return REGDB_E_CLASSNOTREG;
        const LPFNGETCLASSOBJECT getClassObject = CProcessObject<CClassModules>::Get().Find(path);
        if (!getClassObject) return HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND);
        void* found = nullptr;
        if (const HRESULT hr = getClassObject(id, IID_IUnknown, &found); FAILED(hr)) return hr;
        classObject = static_cast<IUnknown*>(found);
    }
    const HRESULT hr = CreateBy(classObject, outer, iid, object);
    classObject->Release();
    return hr;
}

}  // namespace

HRESULT WINAPI CLSIDFromProgID(LPCOLESTR name, LPCLSID id) {
    if (!name || !id) return E_INVALIDARG;
    *id = CLSID{};
    for (const auto& known : kClasses) {
        if (_wcsicmp(known.name, name) != 0) continue;
        *id = known.id;
        return S_OK;
    }
    return CO_E_CLASSSTRING;
}

HRESULT WINAPI CoCreateInstance(REFCLSID id, IUnknown* outer, DWORD context, REFIID iid, LPVOID* object) {
    if (!object) return E_POINTER;
    *object = nullptr;
    if ((context & CLSCTX_INPROC_SERVER) == 0) return REGDB_E_CLASSNOTREG;
    for (const auto& known : kClasses) {
        if (known.id == id) return outer ? CLASS_E_NOAGGREGATION : known.create(iid, object);
    }
    try {
        return CreateRegistered(id, outer, iid, object);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT WINAPI CoRegisterClassObject(REFCLSID id, IUnknown* classObject, DWORD context, DWORD flags, DWORD* cookie) {
    if (!classObject || !cookie || context != CLSCTX_INPROC_SERVER || flags != REGCLS_MULTIPLEUSE) return E_INVALIDARG;
    try {
        *cookie = CProcessObject<CRegisteredClasses>::Get().Add(id, classObject);
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT WINAPI CoRevokeClassObject(DWORD cookie) {
    CRegisteredClasses* const classes = CProcessObject<CRegisteredClasses>::IfMade();
    return classes && classes->Remove(cookie) ? S_OK : E_INVALIDARG;
}
