#include <cstdlib>
#include <cstring>

#include "objbase.h"

namespace {

constexpr int kGuidText = 38;
constexpr char kShape[] = "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}";
static_assert(sizeof kShape == kGuidText + 1);

// The 16 bytes in the order in which their digits are written.
struct GuidBytes {
    BYTE bytes[16];
};

GuidBytes BytesOf(REFGUID id) noexcept {
    GuidBytes out;
    const auto byte = [](std::uint32_t number, int shift) { return static_cast<BYTE>(number >> shift); };
    for (int i = 0; i < 4; ++i) out.bytes[i] = byte(id.Data1, 24 - 8 * i);
    for (int i = 0; i < 2; ++i) out.bytes[4 + i] = byte(id.Data2, 8 - 8 * i);
    for (int i = 0; i < 2; ++i) out.bytes[6 + i] = byte(id.Data3, 8 - 8 * i);
    std::memcpy(out.bytes + 8, id.Data4, 8);
    return out;
}

void SetBytes(GUID& id, const GuidBytes& in) noexcept {
    const BYTE* b = in.bytes;
    id.Data1 = std::uint32_t{b[0]} << 24 | std::uint32_t{b[1]} << 16 | std::uint32_t{b[2]} << 8 | b[3];
    id.Data2 = static_cast<std::uint16_t>(b[4] << 8 | b[5]);
    id.Data3 = static_cast<std::uint16_t>(b[6] << 8 | b[7]);
    std::memcpy(id.Data4, b + 8, 8);
}

int HexDigit(WCHAR unit) noexcept {
    if (unit >= u'0' && unit <= u'9') return unit - u'0';
    if (unit >= u'A' && unit <= u'F') return unit - u'A' + 10;
    if (unit >= u'a' && unit <= u'f') return unit - u'a' + 10;
    return -1;
}

// False at the first unit that does not belong there; the bytes before it are set, those behind it stay.
bool ReadGuidText(LPCOLESTR text, GuidBytes& out) noexcept {
    int digit = 0;
    int high = 0;
    for (int i = 0; i < kGuidText; ++i) {
        if (kShape[i] != 'x') {
            if (text[i] != static_cast<WCHAR>(kShape[i])) return false;
            continue;
        }
        const int value = HexDigit(text[i]);
        if (value < 0) return false;
        if (digit % 2 == 0) {
            high = value;
        } else {
            out.bytes[digit / 2] = static_cast<BYTE>(high << 4 | value);
        }
        ++digit;
    }
    return text[kGuidText] == 0;
}

}  // namespace

LPVOID WINAPI CoTaskMemAlloc(SIZE_T size) {
    return std::malloc(size);
}

LPVOID WINAPI CoTaskMemRealloc(LPVOID block, SIZE_T size) {
    if (block && size == 0) {
        std::free(block);
        return nullptr;
    }
    return std::realloc(block, size);
}

void WINAPI CoTaskMemFree(LPVOID block) {
    std::free(block);
}

HRESULT WINAPI StringFromCLSID(REFCLSID id, LPOLESTR* text) {
    if (!text) return E_INVALIDARG;
    *text = static_cast<LPOLESTR>(CoTaskMemAlloc((kGuidText + 1) * sizeof(WCHAR)));
    if (!*text) return E_OUTOFMEMORY;
    StringFromGUID2(id, *text, kGuidText + 1);
    return S_OK;
}

int WINAPI StringFromGUID2(REFGUID id, LPOLESTR text, int room) {
    if (!text || room < kGuidText + 1) return 0;
    const GuidBytes in = BytesOf(id);
    int digit = 0;
    for (int i = 0; i < kGuidText; ++i) {
        if (kShape[i] == 'x') {
            const BYTE byte = in.bytes[digit / 2];
            text[i] = static_cast<WCHAR>("0123456789ABCDEF"[digit % 2 == 0 ? byte >> 4 : byte & 0xF]);
            ++digit;
        } else {
            text[i] = static_cast<WCHAR>(kShape[i]);
        }
    }
    text[kGuidText] = 0;
    return kGuidText + 1;
}

HRESULT WINAPI CLSIDFromString(LPCOLESTR text, LPCLSID id) {
    if (!id) return E_INVALIDARG;
    if (!text || text[0] != u'{') {
        *id = GUID{};
        return text ? CO_E_CLASSSTRING : S_OK;
    }
    // Of a damaged text the id keeps the bytes that could be read.
    GuidBytes out = BytesOf(*id);
    const bool whole = ReadGuidText(text, out);
    SetBytes(*id, out);
    return whole ? S_OK : CO_E_CLASSSTRING;
}

HRESULT WINAPI OleRun(IUnknown* object) {
    return object ? S_OK : E_INVALIDARG;
}
