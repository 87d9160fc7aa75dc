#include "store/PolicyKey.h"

#include <algorithm>
#include <memory>
#include <string>

#include "module/Failure.h"

namespace {

// A path in a buffer on the stack; only a long one is allocated.
class CKeyPath {
  public:
    CKeyPath(wstr_view base, wstr_view below) {
        const std::size_t size = base.size() + 1 + below.size() + 1;
        WCHAR* out = m_short;
        if (size > MAX_PATH) {
            m_long = std::make_unique<WCHAR[]>(size);
            out = m_long.get();
        }
        m_text = out;
        out = std::copy(base.begin(), base.end(), out);
        *out++ = W('\\');
        out = std::copy(below.begin(), below.end(), out);
        *out = 0;
    }
    LPCWSTR Text() const noexcept { return m_text; }

  private:
    LPCWSTR m_text;
    std::unique_ptr<WCHAR[]> m_long;
    WCHAR m_short[MAX_PATH];
};

// A number of exactly its type's size; anything else counts as absent.
template <class Number>
HRESULT ReadNumber(HKEY key, LPCWSTR name, DWORD wanted, Number& number) noexcept {
    DWORD type = REG_NONE;
    DWORD size = sizeof number;
    const LONG error = RegQueryValueExW(key, name, nullptr, &type, reinterpret_cast<BYTE*>(&number), &size);
    return error || type != wanted || size != sizeof number ? kNotFound : S_OK;
}

struct TaskMemDeleter {
    void operator()(void* block) const noexcept { CoTaskMemFree(block); }
};

// `size` is what the value was said to take. It is announced in whole characters, so that an odd one cannot be read.
HRESULT ReadText(HKEY key, LPCWSTR name, DWORD size, OV_SERVER_VALUE& value) {
    const std::size_t units = size / sizeof(WCHAR);
    const std::size_t room = (units + 1) * sizeof(WCHAR);
    std::unique_ptr<WCHAR, TaskMemDeleter> text(static_cast<WCHAR*>(CoTaskMemAlloc(room)));
    if (!text) throw _com_error(E_OUTOFMEMORY);
    std::fill_n(text.get(), units + 1, WCHAR{0});
    DWORD type = REG_NONE;
    auto got = static_cast<DWORD>(units * sizeof(WCHAR));
    if (RegQueryValueExW(key, name, nullptr, &type, reinterpret_cast<BYTE*>(text.get()), &got)) return kNotFound;
    if (type != REG_SZ && type != REG_EXPAND_SZ) return kNotFound;
    if (size % sizeof(WCHAR) != 0 || got % sizeof(WCHAR) != 0) return kNotFound;
    if (got != 0 && text.get()[got / sizeof(WCHAR) - 1] != 0) return kNotFound;
    value.type = OV_TYPE_STRING;
    value.data = reinterpret_cast<ULONG_PTR>(text.release());
    return S_OK;
}

}  // namespace

LONG OpenPolicyKey(CRegistryKey& key, HKEY root, LPCWSTR basePath, LPCWSTR& name, bool readOnly) {
    const wstr_view text(name);
    const std::size_t last = text.rfind(W('\\'));
    const bool below = last != wstr_view::npos;
    const auto open = [&](LPCWSTR path) noexcept {
        const LONG error = key.Open(root, path, readOnly ? KEY_READ : kPolicyWriteAccess);
        if (!error || readOnly) return error;
        return key.Create(root, path, nullptr, REG_OPTION_NON_VOLATILE, kPolicyWriteAccess, nullptr, nullptr);
    };
    if (!below) return open(basePath);
    const CKeyPath path(basePath, text.substr(0, last));
    name += last + 1;
    return open(path.Text());
}

HRESULT ReadPlainValue(const CRegistryKey& key, LPCWSTR valueName, LPCWSTR itemName, OV_SERVER_VALUE& value,
                       OVTraceNS::CTraceScope& scope) {
    DWORD type = REG_NONE;
    DWORD size = 0;
    if (RegQueryValueExW(key.Get(), valueName, nullptr, &type, nullptr, &size)) return kNotFound;
    HRESULT hr = kNotFound;
    switch (type) {
        case REG_DWORD: {
            DWORD number = 0;
            hr = ReadNumber(key.Get(), valueName, type, number);
            if (FAILED(hr)) return hr;
            value = {OV_TYPE_DWORD, number, nullptr};
            scope.Print("%ls = '%ld'", itemName, number);
            return hr;
        }
        case REG_SZ:
        case REG_EXPAND_SZ:
            hr = ReadText(key.Get(), valueName, size, value);
            if (SUCCEEDED(hr)) scope.Print("%ls = '%ls'", itemName, OvServerValueText(value));
            return hr;
        case REG_BINARY:
            if (size != sizeof(ULONGLONG)) break;
            [[fallthrough]];
        case REG_QWORD: {
            ULONGLONG number = 0;
            hr = ReadNumber(key.Get(), valueName, type, number);
            if (FAILED(hr)) return hr;
            value = {OV_TYPE_QWORD, number, nullptr};
            scope.Print("%ls = '0x%016I64X'", itemName, number);
            return hr;
        }
        default:
            break;
    }
    scope.Print("Wrong Type for %ls", itemName);
    return HRESULT_FROM_WIN32(ERROR_INVALID_DATA);
}
