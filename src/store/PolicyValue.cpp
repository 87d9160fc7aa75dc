#include "store/PolicyValue.h"

#include <bit>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "module/Failure.h"
#include "store/PolicyNames.h"

namespace {

constexpr DWORD kLastType = OV_TYPE_ARRAY;

// The one place where a value's content is allocated and freed.
void* AllocateBlock(std::size_t bytes) {
    void* block = std::malloc(bytes ? bytes : 1);
    if (!block) throw std::bad_alloc();
    return block;
}

template <class To>
To* PointerOf(ULONGLONG data) noexcept {
    return reinterpret_cast<To*>(static_cast<ULONG_PTR>(data));
}

ULONGLONG DataOf(const void* pointer) noexcept {
    return reinterpret_cast<ULONG_PTR>(pointer);
}

// Arrays grow by one element at a time; their block grows in powers of two, which the count alone tells.
std::size_t CapacityFor(DWORD count) noexcept {
    return count == 0 ? 0 : std::bit_ceil(std::size_t{count});
}

bool ValuesEqual(const OV_SERVER_VALUE& a, const OV_SERVER_VALUE& b) noexcept {
    switch (a.type) {
        case OV_TYPE_STRING:
            return b.type == a.type && CompareNames(OvServerValueText(a), OvServerValueText(b)) == 0;
        case OV_TYPE_DWORD:
            return b.type == a.type && static_cast<DWORD>(a.data) == static_cast<DWORD>(b.data);
        case OV_TYPE_QWORD:
            return b.type == a.type && a.data == b.data;
        case OV_TYPE_ARRAY: {
            const DWORD count = static_cast<DWORD>(a.data);
            if (b.type != a.type || count != static_cast<DWORD>(b.data)) return false;
            for (DWORD i = 0; i < count; ++i) {
                if (!ValuesEqual(a.items[i], b.items[i])) return false;
            }
            return true;
        }
        default:
            return true;
    }
}

LPWSTR CopyTextOut(LPCWSTR text) {
    if (!text) return nullptr;
    const std::size_t bytes = (wcslen(text) + 1) * sizeof(WCHAR);
    void* block = CoTaskMemAlloc(bytes);
    if (!block) throw _com_error(E_OUTOFMEMORY);
    return static_cast<LPWSTR>(std::memcpy(block, text, bytes));
}

// Frees a half-built array when a later element cannot be copied.
class CPartialArray {
  public:
    explicit CPartialArray(DWORD count)
        : m_items(static_cast<OV_SERVER_VALUE*>(CoTaskMemAlloc(std::size_t{count} * sizeof(OV_SERVER_VALUE) + 1))) {
        if (!m_items) throw _com_error(E_OUTOFMEMORY);
    }
    ~CPartialArray() {
        if (m_items) FreeValue({OV_TYPE_ARRAY, m_built, m_items});
    }
    CPartialArray(const CPartialArray&) = delete;
    CPartialArray& operator=(const CPartialArray&) = delete;

    OV_SERVER_VALUE& Next() noexcept { return m_items[m_built]; }
    void NextIsBuilt() noexcept { ++m_built; }
    OV_SERVER_VALUE* Detach() noexcept { return std::exchange(m_items, nullptr); }

  private:
    OV_SERVER_VALUE* m_items;
    DWORD m_built = 0;
};

HRESULT CopyOut(const OV_SERVER_VALUE& value, OV_SERVER_VALUE& out) {
    out = {};
    switch (value.type) {
        case OV_TYPE_DWORD:
            out.data = static_cast<DWORD>(value.data);
            break;
        case OV_TYPE_QWORD:
            out.data = value.data;
            break;
        case OV_TYPE_STRING:
            out.data = DataOf(CopyTextOut(OvServerValueText(value)));
            break;
        case OV_TYPE_ARRAY: {
            const DWORD count = static_cast<DWORD>(value.data);
            CPartialArray array(count);
            for (DWORD i = 0; i < count; ++i) {
                CopyOut(value.items[i], array.Next());  // an element that cannot cross stays without content
                array.NextIsBuilt();
            }
            out.data = count;
            out.items = array.Detach();
            break;
        }
        default:
            out.type = value.type;
            return HRESULT_FROM_WIN32(ERROR_NOT_SUPPORTED);
    }
    out.type = value.type;
    return S_OK;
}

}  // namespace

CPolicyValue::CPolicyValue(CPolicyValue&& other) noexcept : m_value(std::exchange(other.m_value, {})) {}

CPolicyValue& CPolicyValue::operator=(const CPolicyValue& other) {
    if (this != &other) {
        CPolicyValue copy(other);  // first: `other` may be one of this value's own elements
        *this = std::move(copy);
    }
    return *this;
}

CPolicyValue& CPolicyValue::operator=(CPolicyValue&& other) noexcept {
    if (this != &other) {
        const OV_SERVER_VALUE taken = std::exchange(other.m_value, {});
        Clear();
        m_value = taken;
    }
    return *this;
}

std::span<const CPolicyValue> CPolicyValue::Elements() const noexcept {
    if (m_value.type != OV_TYPE_ARRAY) return {};
    return {reinterpret_cast<const CPolicyValue*>(m_value.items), static_cast<DWORD>(m_value.data)};
}

void CPolicyValue::Clear() noexcept {
    switch (m_value.type) {
        case OV_TYPE_STRING:
            std::free(PointerOf<void>(m_value.data));
            break;
        case OV_TYPE_BLOB:
            std::free(m_value.items);
            break;
        case OV_TYPE_ARRAY:
            for (const CPolicyValue& element : Elements()) element.~CPolicyValue();
            std::free(m_value.items);
            break;
        default:
            break;
    }
    m_value = {};
}

void CPolicyValue::Assign(const OV_SERVER_VALUE& source) {
    CPolicyValue built;  // first: the source may be a part of this very value
    switch (source.type) {
        case OV_TYPE_STRING:
            built.SetString(OvServerValueText(source));
            break;
        case OV_TYPE_BLOB:
            built.SetBlob(source.items, source.items ? static_cast<std::size_t>(source.data) : 0);
            break;
        case OV_TYPE_ARRAY: {
            built.m_value.type = OV_TYPE_ARRAY;
            const DWORD count = source.items ? static_cast<DWORD>(source.data) : 0;
            for (DWORD i = 0; i < count; ++i) {
                CPolicyValue element;
                element.Assign(source.items[i]);
                built.Append(std::move(element));
            }
            break;
        }
        default:
            if (source.type <= kLastType) built.m_value = source;
            break;
    }
    *this = std::move(built);
}

void CPolicyValue::SetNumber(DWORD type, ULONGLONG data) noexcept {
    Clear();
    m_value.type = type;
    m_value.data = data;
}

void CPolicyValue::SetString(LPCWSTR text) {
    if (text) {
        SetString(text, std::char_traits<WCHAR>::length(text));
    } else {
        Clear();
        m_value.type = OV_TYPE_STRING;
    }
}

void CPolicyValue::SetString(const WCHAR* text, std::size_t length) {
    auto* copy = static_cast<WCHAR*>(AllocateBlock((length + 1) * sizeof(WCHAR)));
    std::memcpy(copy, text, length * sizeof(WCHAR));
    copy[length] = 0;
    Clear();
    m_value.type = OV_TYPE_STRING;
    m_value.data = DataOf(copy);
}

void CPolicyValue::SetDouble(double number) noexcept {
    SetNumber(OV_TYPE_DOUBLE, std::bit_cast<ULONGLONG>(number));
}

void CPolicyValue::SetFileTime(const FILETIME& time) noexcept {
    SetNumber(OV_TYPE_FILETIME, ULONGLONG{time.dwHighDateTime} << 32 | time.dwLowDateTime);
}

void CPolicyValue::SetGuid(const GUID& id) noexcept {
    Clear();
    m_value.type = OV_TYPE_GUID;
    static_assert(sizeof(GUID) == sizeof m_value.data + sizeof m_value.items);
    std::memcpy(&m_value.data, &id, sizeof m_value.data);
    std::memcpy(&m_value.items, reinterpret_cast<const BYTE*>(&id) + sizeof m_value.data, sizeof m_value.items);
}

void CPolicyValue::SetBlob(const void* bytes, std::size_t size) {
    void* copy = AllocateBlock(size);
    if (size) std::memcpy(copy, bytes, size);
    Clear();
    m_value.type = OV_TYPE_BLOB;
    m_value.data = size;
    m_value.items = static_cast<OV_SERVER_VALUE*>(copy);
}

bool CPolicyValue::Append(CPolicyValue element) {
    if (m_value.type != OV_TYPE_NONE && m_value.type != OV_TYPE_ARRAY) return false;
    const DWORD count = m_value.type == OV_TYPE_ARRAY ? static_cast<DWORD>(m_value.data) : 0;
    OV_SERVER_VALUE* items = m_value.items;
    if (count == CapacityFor(count)) {
        // The elements are moved as bytes: they are three plain fields, and nothing points into them.
        items = static_cast<OV_SERVER_VALUE*>(std::realloc(items, CapacityFor(count + 1) * sizeof(OV_SERVER_VALUE)));
        if (!items) throw std::bad_alloc();
    }
    m_value.type = OV_TYPE_ARRAY;
    m_value.items = items;
    items[count] = std::exchange(element.m_value, {});
    m_value.data = count + 1;
    return true;
}

bool ItemsEqual(const CPolicyItem& a, const CPolicyItem& b) noexcept {
    return ValuesEqual(a.value.Raw(), b.value.Raw());
}

HRESULT CopyValueOut(const CPolicyItem& item, OV_SERVER_VALUE& out) {
    return CopyOut(item.value.Raw(), out);
}
