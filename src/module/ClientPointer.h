// What a client hands in, believed only as far as memory goes.
//
// A pointer that leads nowhere must not bring the host down. Each operation asks here before it follows one, and raises
// 0x8000FFFF where there is nothing to follow. Null is none of these: what it means stands in each operation. A block
// that was freed and is somebody else's by now looks like any other, and memory that another thread unmaps in the
// middle of a call is the host's own affair.
#pragma once

#include <limits>

#include "Platform.h"
#include "module/Failure.h"

inline void RaiseIfWild(BOOL bad) {
    if (bad) [[unlikely]]
        throw _com_error(E_UNEXPECTED);
}

// What lies behind a pointer to be read.
template <class T>
void CheckReadable(const T* memory, std::size_t count = 1) {
    RaiseIfWild(IsBadReadPtr(memory, count * sizeof(T)));
}

// To be written.
template <class T>
void CheckWritable(T* memory, std::size_t count = 1) {
    RaiseIfWild(IsBadWritePtr(memory, count * sizeof(T)));
}

// A text, with its NUL.
inline bool IsBadText(LPCWSTR text) noexcept {
    return IsBadStringPtrW(text, (std::numeric_limits<UINT_PTR>::max)() / sizeof(WCHAR)) != FALSE;
}
inline void CheckText(LPCWSTR text) {
    RaiseIfWild(IsBadText(text));
}

// An interface with so many operations: its table, and that each of them leads somewhere.
inline void CheckInterface(IUnknown* object, std::size_t operations) {
    CheckReadable(reinterpret_cast<void***>(object));
    void** const table = *reinterpret_cast<void***>(object);
    CheckReadable(table, operations);
    for (std::size_t i = 0; i < operations; ++i) CheckReadable(static_cast<const BYTE*>(table[i]));
}

// Whether there is no name: null or empty.
inline bool IsNoName(LPCWSTR name) {
    if (!name) return true;
    CheckText(name);
    return *name == 0;
}

// Empties the outputs of an operation that gives a list. False when one of them is missing.
inline bool ClearList(DWORD* count, ULONGLONG** list) {
    if (count) CheckWritable(count);
    if (list) CheckWritable(list);
    if (count) *count = 0;
    if (list) *list = nullptr;
    return count && list;
}

// Empties what an interface is asked for in. E_POINTER (0x80004003) for null.
inline HRESULT ClearInterface(void** object) noexcept {
    if (!object) return E_POINTER;
    if (IsBadWritePtr(object, sizeof *object)) return E_UNEXPECTED;
    *object = nullptr;
    return S_OK;
}
