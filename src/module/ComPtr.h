// Guards of automation: interface pointers and strings.
#pragma once

#include <utility>

#include "Platform.h"
#include "module/Failure.h"

// A counted pointer.
template <class Interface>
class CComPtr {
  public:
    CComPtr() noexcept = default;
    explicit CComPtr(Interface* other) noexcept : p(other) {
        if (p) p->AddRef();
    }
    CComPtr(CComPtr&& other) noexcept : p(std::exchange(other.p, nullptr)) {}
    CComPtr& operator=(CComPtr&& other) noexcept {
        std::swap(p, other.p);
        return *this;
    }
    ~CComPtr() { Release(); }

    // What the object throws out of it is its own loss.
    void Release() noexcept {
        Interface* const last = std::exchange(p, nullptr);
        if (!last) return;
        Guarded([last]() -> HRESULT {
            last->Release();
            return S_OK;
        });
    }
    // For a call that hands one out. What was held is released first.
    Interface** operator&() noexcept {
        Release();
        return &p;
    }
    Interface* operator->() const noexcept { return p; }
    Interface* Get() const noexcept { return p; }
    explicit operator bool() const noexcept { return p != nullptr; }

  private:
    Interface* p = nullptr;
};

// A string of automation.
class CComBSTR {
  public:
    CComBSTR() noexcept = default;
    // Raises 0x8007000E.
    explicit CComBSTR(LPCWSTR text) : m_str(SysAllocString(text)) {
        if (text && !m_str) throw CAtlException(E_OUTOFMEMORY);
    }
    explicit CComBSTR(wstr_view text) : m_str(SysAllocStringLen(text.data(), static_cast<UINT>(text.size()))) {
        if (!m_str) throw CAtlException(E_OUTOFMEMORY);
    }
    CComBSTR(CComBSTR&& other) noexcept : m_str(std::exchange(other.m_str, nullptr)) {}
    CComBSTR& operator=(CComBSTR&&) = delete;
    ~CComBSTR() { SysFreeString(m_str); }

    // For a call that hands one out. What was held is freed first.
    BSTR* operator&() noexcept {
        SysFreeString(std::exchange(m_str, nullptr));
        return &m_str;
    }
    BSTR Get() const noexcept { return m_str; }
    // Never null: no string is the empty text.
    LPCWSTR Text() const noexcept { return m_str ? m_str : W(""); }
    wstr_view View() const noexcept { return {Text(), SysStringLen(m_str)}; }

  private:
    BSTR m_str = nullptr;
};

// A string in the form of a VARIANT argument. The string stays the guard's.
inline VARIANT VariantOf(const CComBSTR& text) noexcept {
    VARIANT variant = {};
    variant.vt = VT_BSTR;
    variant.bstrVal = text.Get();
    return variant;
}
