#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "oleauto.h"

namespace {

// In front of each string: its size in bytes, in the last four of the eight that keep the text aligned.
struct Header {
    std::uint32_t unused;
    std::uint32_t bytes;
};

Header* HeaderOf(BSTR text) noexcept {
    return reinterpret_cast<Header*>(text) - 1;
}

std::u16string_view ViewOf(BSTR text) noexcept {
    return {text, SysStringLen(text)};
}

}  // namespace

BSTR WINAPI SysAllocString(LPCWSTR text) {
    return text ? SysAllocStringLen(text, static_cast<UINT>(std::char_traits<WCHAR>::length(text))) : nullptr;
}

BSTR WINAPI SysAllocStringLen(LPCWSTR text, UINT length) {
    const std::size_t bytes = std::size_t{length} * sizeof(WCHAR);
    if (bytes > UINT32_MAX) return nullptr;
    auto* header = static_cast<Header*>(std::malloc(sizeof(Header) + bytes + sizeof(WCHAR)));
    if (!header) return nullptr;
    header->bytes = static_cast<std::uint32_t>(bytes);
    auto* out = reinterpret_cast<BSTR>(header + 1);
    if (text) std::memcpy(out, text, bytes);
    out[length] = 0;
    return out;
}

void WINAPI SysFreeString(BSTR text) {
    if (text) std::free(HeaderOf(text));
}

UINT WINAPI SysStringLen(BSTR text) {
    return text ? HeaderOf(text)->bytes / static_cast<UINT>(sizeof(WCHAR)) : 0;
}

HRESULT WINAPI VarBstrCmp(BSTR a, BSTR b, LCID, ULONG flags) {
    if (flags != 0) return E_INVALIDARG;
    const int order = ViewOf(a).compare(ViewOf(b));
    return order < 0 ? VARCMP_LT : order > 0 ? VARCMP_GT : VARCMP_EQ;
}
