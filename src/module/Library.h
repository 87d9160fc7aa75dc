// Libraries that are loaded by hand, and entry points found by name.
#pragma once

#include <bit>
#include <utility>

#include "Platform.h"

// Null when the module is null or has no such export.
template <class Proc>
Proc FindExport(HMODULE module, LPCSTR name) noexcept {
    return module ? std::bit_cast<Proc>(GetProcAddress(module, name)) : nullptr;
}

// CDLLLoader: a loaded library that frees itself. A failed load leaves none, and the last error.
class CDLLLoader {
  public:
    CDLLLoader() noexcept = default;
    explicit CDLLLoader(LPCWSTR path) noexcept : m_module(LoadLibraryW(path)) {}
    // As data: no code of the file runs.
    static CDLLLoader AsData(LPCWSTR path) noexcept {
        CDLLLoader loader;
        loader.m_module = LoadLibraryExW(path, nullptr, LOAD_LIBRARY_AS_DATAFILE);
        return loader;
    }
    CDLLLoader(CDLLLoader&& other) noexcept : m_module(std::exchange(other.m_module, nullptr)) {}
    CDLLLoader& operator=(CDLLLoader&& other) noexcept {
        std::swap(m_module, other.m_module);
        return *this;
    }
    ~CDLLLoader() {
        if (m_module) FreeLibrary(m_module);
    }

    HMODULE Get() const noexcept { return m_module; }
    explicit operator bool() const noexcept { return m_module != nullptr; }
    template <class Proc>
    Proc Find(LPCSTR name) const noexcept {
        return FindExport<Proc>(m_module, name);
    }

  private:
    HMODULE m_module = nullptr;
};
