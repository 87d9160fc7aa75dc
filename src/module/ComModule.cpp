#include "module/ComModule.h"

#include <atomic>
#include <memory>
#include <new>

#include "diagnostics/TraceScope.h"
#include "module/ComFrame.h"
#include "module/Failure.h"

std::atomic<LONG> CComModule::s_lockCount{0};

HRESULT CComModule::Init(ObjectMapEntry* objects) noexcept {
    const HRESULT hr = m_lock.Init();
    if (SUCCEEDED(hr)) m_objects = objects;
    return hr;
}

void CComModule::Term() noexcept {
    for (ObjectMapEntry* entry = m_objects; entry && entry->classId; ++entry) {
        if (IUnknown* held = entry->classObject) {
            entry->classObject = nullptr;
            held->Release();
        }
    }
    m_objects = nullptr;
}

HRESULT CComModule::GetClassObject(REFCLSID classId, REFIID iid, void** object) noexcept {
    if (const HRESULT hr = ClearInterface(object); FAILED(hr)) return hr;
    if (IsBadReadPtr(&classId, sizeof classId)) return E_UNEXPECTED;
    for (ObjectMapEntry* entry = m_objects; entry && entry->classId; ++entry) {
        if (*entry->classId != classId) continue;
        const HRESULT hr = EnsureClassObject(*entry);
        return FAILED(hr) ? hr : entry->classObject->QueryInterface(iid, object);
    }
    return CLASS_E_CLASSNOTAVAILABLE;
}

HRESULT CComModule::EnsureClassObject(ObjectMapEntry& entry) noexcept {
    std::atomic_ref<IUnknown*> held(entry.classObject);
    if (held.load(std::memory_order_acquire)) return S_OK;
    CLockGuard lock(m_lock);
    if (held.load(std::memory_order_relaxed)) return S_OK;
    auto* made = new (std::nothrow) CComClassFactory(entry.create);
    if (!made) return E_OUTOFMEMORY;
    made->AddRef();
    held.store(made, std::memory_order_release);
    return S_OK;
}

HRESULT CComModule::UpdateRegistry(const CLSID* classId, bool registers) noexcept {
    for (ObjectMapEntry* entry = m_objects; entry && entry->classId; ++entry) {
        if (!entry->updateRegistry || (classId && *classId != *entry->classId)) continue;
        const HRESULT hr = Guarded([&] { return entry->updateRegistry(registers); });
        if (FAILED(hr)) return hr;
    }
    return S_OK;
}

HRESULT CComModule::CanUnloadNow() const noexcept {
    return s_lockCount == 0 ? S_OK : S_FALSE;
}

HRESULT COVComModule::Init(ObjectMapEntry* objects, HINSTANCE instance) noexcept {
    OVTraceNS::CTraceScope scope("COVComModule::Init", 0);
    return AtBoundary(scope, [&]() -> HRESULT {
        RaiseIfFailed(CComModule::Init(objects));
        WCHAR path[MAX_PATH] = {};
        if (GetModuleFileNameW(instance, path, MAX_PATH) == 0) throw _com_error(HRESULT_FROM_WIN32(GetLastError()));
        path[MAX_PATH - 1] = 0;
        m_path = path;
        return S_OK;
    });
}

HRESULT COVComModule::RegisterServer(const CLSID* classId) noexcept {
    OVTraceNS::CTraceScope scope("COVComModule::RegisterServer", 0);
    return AtBoundary(scope, [&] { return UpdateRegistry(classId, true); });
}

HRESULT COVComModule::UnRegisterServer(const CLSID* classId) noexcept {
    OVTraceNS::CTraceScope scope("COVComModule::UnRegisterServer", 0);
    return AtBoundary(scope, [&] { return UpdateRegistry(classId, false); });
}

STDMETHODIMP CComClassFactory::QueryInterface(REFIID iid, void** object) {
    if (const HRESULT hr = ClearInterface(object); FAILED(hr)) return hr;
    if (IsBadReadPtr(&iid, sizeof iid)) return E_UNEXPECTED;
    if (iid != IID_IUnknown && iid != IID_IClassFactory) return E_NOINTERFACE;
    AddRef();
    *object = static_cast<IClassFactory*>(this);
    return S_OK;
}

STDMETHODIMP_(ULONG) CComClassFactory::AddRef() {
    const LONG now = ++m_references;
    if (now == 2) CComModule::Lock();
    return static_cast<ULONG>(now);
}

STDMETHODIMP_(ULONG) CComClassFactory::Release() {
    const LONG left = --m_references;
    if (left == 1) CComModule::Unlock();
    if (left == 0) delete this;
    return static_cast<ULONG>(left);
}

STDMETHODIMP CComClassFactory::CreateInstance(IUnknown* outer, REFIID iid, void** object) {
    if (const HRESULT hr = ClearInterface(object); FAILED(hr)) return hr;
    if (IsBadReadPtr(&iid, sizeof iid)) return E_UNEXPECTED;
    // Only the outer object may hold the aggregate's own IUnknown, and it needs that one first.
    if (outer && iid != IID_IUnknown) return CLASS_E_NOAGGREGATION;
    return Guarded([&] {
        if (outer) CheckInterface(outer, 3);
        return m_create(outer, iid, object);
    });
}

STDMETHODIMP CComClassFactory::LockServer(BOOL lock) {
    if (lock) {
        CComModule::Lock();
    } else {
        CComModule::Unlock();
    }
    return S_OK;
}
