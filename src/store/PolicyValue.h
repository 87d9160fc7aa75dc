// CPolicyValue: a typed value that owns its content; CPolicyItem: the value under its name.
//
// Shape    the three fields of OV_SERVER_VALUE, the client's form, so that readers of either take the same type. What
//          differs is the owner: a CPolicyValue holds its memory on the component's heap, never in CoTaskMem blocks.
// Fails    a failed allocation raises std::bad_alloc and leaves the value cleared or as it was.
// Threads  none of its own; a stored value is guarded by the lock of its map.
#pragma once

#include <orvantis/ServerInfo.h>

#include <span>

#include "Platform.h"

class CPolicyValue {
  public:
    CPolicyValue() noexcept = default;
    CPolicyValue(const CPolicyValue& other) { Assign(other.m_value); }
    CPolicyValue(CPolicyValue&& other) noexcept;
    CPolicyValue& operator=(const CPolicyValue& other);
    CPolicyValue& operator=(CPolicyValue&& other) noexcept;
    ~CPolicyValue() { Clear(); }

    // The fields, to read. They stay the value's.
    const OV_SERVER_VALUE& Raw() const noexcept { return m_value; }
    DWORD Type() const noexcept { return m_value.type; }
    DWORD Dword() const noexcept { return static_cast<DWORD>(m_value.data); }
    ULONGLONG Number() const noexcept { return m_value.data; }
    LPCWSTR Text() const noexcept { return OvServerValueText(m_value); }
    std::span<const CPolicyValue> Elements() const noexcept;

    void Clear() noexcept;
    // A deep copy of either form. A type above 11 leaves the value cleared.
    void Assign(const OV_SERVER_VALUE& source);

    // Types 1, 3, 4, 9, 10; the other kinds have a setter of their own.
    void SetNumber(DWORD type, ULONGLONG data) noexcept;
    void SetString(LPCWSTR text);  // null is a string without text
    void SetString(const WCHAR* text, std::size_t length);
    void SetDouble(double number) noexcept;
    void SetFileTime(const FILETIME& time) noexcept;
    void SetGuid(const GUID& id) noexcept;
    void SetBlob(const void* bytes, std::size_t size);

    // Adds an element to an array, and turns a value of type 0 into an array first. False, and nothing done, for every
    // other type.
    bool Append(CPolicyValue element);

  private:
    OV_SERVER_VALUE m_value = {};
};

// Arrays of one are walked as arrays of the other.
static_assert(sizeof(CPolicyValue) == sizeof(OV_SERVER_VALUE));

struct CPolicyItem {
    wstr name;
    CPolicyValue value;
};

// Whether two items hold the same value; names play no part. Strings that differ only in case are equal, the order of
// elements counts, and a type that no source produces equals everything.
bool ItemsEqual(const CPolicyItem& a, const CPolicyItem& b) noexcept;

// A copy in client form, in CoTaskMem blocks that are the caller's. 0, or 0x80070032 for a type that does not cross the
// interfaces: `out` has that type then and nothing to free. Raises 0x8007000E, `out` being of type 0 then.
HRESULT CopyValueOut(const CPolicyItem& item, OV_SERVER_VALUE& out);

// Frees what a value in client form owns; its fields stay as they are.
inline void FreeValue(const OV_SERVER_VALUE& value) noexcept {
    OvFreeServerValue(value);
}
