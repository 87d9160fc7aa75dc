// OVPTUtils: texts that the suite's components share.
#include <algorithm>

#include "suite/FailureWords.h"

// The words for a failure code, for LocalFree. 0x8007013D for one that has none; `flags` is 0.
STDAPI OVFormatMessage(DWORD code, DWORD flags, LPWSTR* text) {
    constexpr HRESULT kNoSuchMessage = static_cast<HRESULT>(0x8007013Du);
    if (!text || flags != 0) return E_INVALIDARG;
    *text = nullptr;
    const std::string_view words = [&] {
        const char* const found = FailureWords(static_cast<HRESULT>(code));
        return std::string_view(found ? found : "");
    }();
    if (words.empty()) return kNoSuchMessage;
    auto* const out = static_cast<LPWSTR>(LocalAlloc(LMEM_FIXED, (words.size() + 1) * sizeof(WCHAR)));
    if (!out) return E_OUTOFMEMORY;
    *std::copy(words.begin(), words.end(), out) = 0;  // the words are ASCII
    *text = out;
    return S_OK;
}
