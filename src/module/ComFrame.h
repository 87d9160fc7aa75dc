// The small COM frame: reference counts, QueryInterface, class objects and aggregation, each written once.
//
//   class CThing : public CComObjectRootEx<CComMultiThreadModel>, public IThing {
//       static std::span<const InterfaceEntry<CThing>> InterfaceMap() noexcept;   // the first entry is its IUnknown
//       HRESULT FinalConstruct();   void FinalRelease();                          // the two-step creation and end
//   };
//
// CComObject<CThing> is an instance of its own, CComAggObject<CThing> one inside another object; CreateInstance picks.
//
// Counts   every instance, and every reference to a class object beyond the module's own, counts on the module, so that
//          DllCanUnloadNow can answer. The counts are atomic.
#pragma once

#include <atomic>
#include <new>
#include <span>

#include "module/ClientPointer.h"
#include "module/ComModule.h"
#include "module/Failure.h"
#include "module/Lock.h"

template <class T>
struct InterfaceEntry {
    const IID& iid;
    IUnknown* (*cast)(T*) noexcept;
};

// The cast of an InterfaceMap entry.
template <class T, class Interface>
IUnknown* InterfaceOf(T* object) noexcept {
    return static_cast<Interface*>(object);
}

// How often an instance is referred to.
struct CComMultiThreadModel {
    class CCount {
      public:
        LONG Increment() noexcept { return ++m_count; }
        LONG Decrement() noexcept { return --m_count; }
        // Far from zero: what the end of an object hands out and takes back must not end it again.
        void Condemn() noexcept { m_count = -0x3FFFFFFF; }

      private:
        std::atomic<LONG> m_count{0};
    };
};

// What every class has: the object's lock, and a word on its end.
template <class ThreadModel>
class CComObjectRootEx {
  public:
    using CCount = typename ThreadModel::CCount;

    HRESULT InitLock() noexcept { return m_lock.Init(); }
    HRESULT FinalConstruct() { return S_OK; }
    void FinalRelease() {}

    // Asked when the last reference is gone. A class that is in the middle of something on this very thread says true,
    // and calls EndSelf when it is through with it.
    bool PutOffEnd() noexcept { return false; }
    // Ends the instance, the aggregate that holds it included.
    virtual void EndSelf() noexcept = 0;

  protected:
    CComObjectRootEx() noexcept = default;
    ~CComObjectRootEx() = default;

    // The object's one lock, recursive; the first in the module's lock order.
    CCriticalSection m_lock;
};

// Ties a class to its id.
template <class T, const CLSID* id>
class CComCoClass {
  public:
    static const CLSID& ClassId() noexcept { return *id; }
};

template <class T>
HRESULT FindInterface(T* object, REFIID iid, void** out) noexcept {
    if (IsBadReadPtr(&iid, sizeof iid)) return E_UNEXPECTED;
    for (const auto& entry : T::InterfaceMap()) {  // T's own map, or that of a base
        if (iid == entry.iid || iid == IID_IUnknown) {
            IUnknown* found = entry.cast(object);
            found->AddRef();
            *out = found;
            return S_OK;
        }
    }
    return E_NOINTERFACE;
}

// An instance of its own.
template <class T>
class CComObject : public T {
  public:
    CComObject() { CComModule::Lock(); }
    virtual ~CComObject() {
        m_references.Condemn();
        this->FinalRelease();
        CComModule::Unlock();
    }

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override {
        const HRESULT hr = ClearInterface(object);
        return FAILED(hr) ? hr : FindInterface<T>(this, iid, object);
    }
    STDMETHODIMP_(ULONG) AddRef() override { return static_cast<ULONG>(m_references.Increment()); }
    STDMETHODIMP_(ULONG) Release() override {
        const LONG left = m_references.Decrement();
        if (left == 0 && !this->PutOffEnd()) delete this;
        return static_cast<ULONG>(left);
    }

    void EndSelf() noexcept override { delete this; }

    // FinalConstruct may hand out and drop references, so the count is not 0 while it runs.
    HRESULT Construct() {
        HRESULT hr = this->InitLock();
        if (FAILED(hr)) return hr;
        m_references.Increment();
        hr = Guarded([this] { return this->FinalConstruct(); });
        m_references.Decrement();
        return hr;
    }

  private:
    typename T::CCount m_references;
};

template <class T>
class CComAggObject;

// The part of an aggregate that has the interfaces: its IUnknown is the outer object's.
template <class T>
class CComContainedObject : public T {
  public:
    CComContainedObject(IUnknown* outer, CComAggObject<T>& holder) noexcept : m_outer(outer), m_holder(holder) {}

    void EndSelf() noexcept override { delete &m_holder; }

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override { return m_outer->QueryInterface(iid, object); }
    STDMETHODIMP_(ULONG) AddRef() override { return m_outer->AddRef(); }
    STDMETHODIMP_(ULONG) Release() override { return m_outer->Release(); }

  private:
    IUnknown* m_outer;  // not counted: the outer object owns this one
    CComAggObject<T>& m_holder;
};

// An instance inside another object. Its own IUnknown and count serve the outer object alone.
template <class T>
class CComAggObject : public IUnknown {
  public:
    explicit CComAggObject(IUnknown* outer) : m_contained(outer, *this) { CComModule::Lock(); }
    virtual ~CComAggObject() {
        m_references.Condemn();
        m_contained.FinalRelease();
        CComModule::Unlock();
    }

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override {
        if (const HRESULT hr = ClearInterface(object); FAILED(hr)) return hr;
        if (IsBadReadPtr(&iid, sizeof iid)) return E_UNEXPECTED;
        if (iid == IID_IUnknown) {
            AddRef();
            *object = static_cast<IUnknown*>(this);
            return S_OK;
        }
        return FindInterface<T>(&m_contained, iid, object);
    }
    STDMETHODIMP_(ULONG) AddRef() override { return static_cast<ULONG>(m_references.Increment()); }
    STDMETHODIMP_(ULONG) Release() override {
        const LONG left = m_references.Decrement();
        if (left == 0 && !m_contained.PutOffEnd()) delete this;
        return static_cast<ULONG>(left);
    }

    HRESULT Construct() {
        const HRESULT hr = m_contained.InitLock();
        if (FAILED(hr)) return hr;
        return Guarded([this] { return m_contained.FinalConstruct(); });
    }

  private:
    CComContainedObject<T> m_contained;
    typename T::CCount m_references;
};

// Finishes a new instance and asks it for the interface; deletes it if either fails.
template <class Object>
HRESULT FinishInstance(Object* object, REFIID iid, void** out) noexcept {
    if (!object) return E_OUTOFMEMORY;
    HRESULT hr = Guarded([object] { return object->Construct(); });
    if (SUCCEEDED(hr)) hr = object->QueryInterface(iid, out);
    if (FAILED(hr)) delete object;
    return hr;
}

// The creator of an instance of T, inside `outer` if that is given.
template <class T>
HRESULT CreateObject(IUnknown* outer, REFIID iid, void** out) noexcept {
    return Guarded([&]() -> HRESULT {
        if (outer) return FinishInstance(new (std::nothrow) CComAggObject<T>(outer), iid, out);
        return FinishInstance(new (std::nothrow) CComObject<T>, iid, out);
    });
}

// The class object. The module holds it from the first request to its end, and that reference does not keep the module
// loaded; every further one does.
class CComClassFactory final : public IClassFactory {
  public:
    explicit CComClassFactory(InstanceCreator create) noexcept : m_create(create) {}

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;
    STDMETHODIMP CreateInstance(IUnknown* outer, REFIID iid, void** object) override;
    STDMETHODIMP LockServer(BOOL lock) override;

  private:
    InstanceCreator m_create;
    std::atomic<LONG> m_references{0};
};
