#include "authpolicy/PolicyList.h"

#include <algorithm>

#include "module/Failure.h"
#include "store/PolicyValue.h"

namespace {

constexpr DWORD kEachBit = 0;
constexpr DWORD kWholeMask = 1;
constexpr int kMaskBits = 16;

void ExpandNumber(DWORD number, CPolicyList& entries) {
    if (number == 0) return;
    const DWORD mask = number & 0xFFFF;
    switch (number >> kMaskBits) {
        case kEachBit:
            for (int bit = 0; bit < kMaskBits; ++bit) {
                if (mask & (1u << bit)) entries.push_back(1ull << bit);
            }
            return;
        case kWholeMask:
            entries.push_back(mask);
            return;
        default:
            throw _com_error(E_UNEXPECTED);
    }
}

}  // namespace

void ExpandPolicyValue(const OV_SERVER_VALUE& value, CPolicyList& entries) {
    if (value.type == OV_TYPE_DWORD) return ExpandNumber(static_cast<DWORD>(value.data), entries);
    const HRESULT hr = Guarded([&]() -> HRESULT {
        if (value.type != OV_TYPE_ARRAY) return E_UNEXPECTED;
        for (DWORD i = 0; value.items && i < static_cast<DWORD>(value.data); ++i) {
            if (value.items[i].type == OV_TYPE_QWORD) entries.push_back(value.items[i].data);
        }
        return S_OK;
    });
    FreeValue(value);
    RaiseIfFailed(hr);
}

void HandOut(const CPolicyList& entries, DWORD* count, ULONGLONG** list) {
    *count = static_cast<DWORD>(entries.size());
    if (entries.empty()) return;
    auto* block = static_cast<ULONGLONG*>(CoTaskMemAlloc(entries.size() * sizeof(ULONGLONG)));
    if (!block) throw _com_error(E_OUTOFMEMORY);
    std::copy(entries.begin(), entries.end(), block);
    *list = block;
}

void HandOutValue(const OV_SERVER_VALUE& value, DWORD* count, ULONGLONG** list) {
    CPolicyList entries;
    ExpandPolicyValue(value, entries);
    HandOut(entries, count, list);
}

LPCWSTR ItemByRole(bool isAdmin, LPCWSTR forAdmins, LPCWSTR forOthers, OVTraceNS::CTraceScope& scope) noexcept {
    if (isAdmin) {
        scope.Print("User is an Administrator.");
        return forAdmins;
    }
    scope.Print("User is not an Administrator.");
    return forOthers;
}
