// COVUserService: names of users over the system's accounts, and a computer that an administrator has locked.
//
// Settings, in SOFTWARE\Orvantis\UserService of HKEY_LOCAL_MACHINE, which administrators alone write:
//   LockedMasks     REG_MULTI_SZ, masks in base 16: the computer is locked, and these credentials apply. Not there, or
//                   empty: it is not locked
//   DomainAccounts  REG_MULTI_SZ: accounts that come from a domain, though their names do not tell; those whose names
//                   hold one are of it, and all others are of this computer
#include <algorithm>
#include <vector>

#include "authpolicy/UserService.h"
#include "module/RegistryKey.h"
#include "module/ValueWalk.h"
#include "security/Sid.h"
#include "store/PolicyNames.h"
#include "suite/Component.h"

namespace {

constexpr LPCWSTR kSettings = W("SOFTWARE\\Orvantis\\UserService");
constexpr DWORD kNamePlain = 1;  // the account alone

std::vector<wstr> ReadList(LPCWSTR name) {
    std::vector<wstr> texts;
    CRegistryKey key;
    if (key.Open(HKEY_LOCAL_MACHINE, kSettings, KEY_READ)) return texts;
    DWORD type = REG_NONE, size = 0;
    if (RegQueryValueExW(key.Get(), name, nullptr, &type, nullptr, &size) || type != REG_MULTI_SZ) return texts;
    wstr all(size / sizeof(WCHAR), 0);
    size = static_cast<DWORD>(all.size() * sizeof(WCHAR));
    if (RegQueryValueExW(key.Get(), name, nullptr, &type, reinterpret_cast<BYTE*>(all.data()), &size)) return texts;
    all.resize(size / sizeof(WCHAR));
    for (std::size_t at = 0; at < all.size() && all[at] != 0; at += texts.back().size() + 1) {
        texts.push_back(all.substr(at, all.find(WCHAR{0}, at) - at));
    }
    return texts;
}

// Whom a name means. Raises the system's failure.
CSid SidOf(const wstr& name, DWORD format) {
    if (format == kNameSid) return CStringSid(name.c_str());
    // The system knows which names are its own; a domain's account may share its last part with one of this computer.
    if (format != kNameSam && format != kNamePlain) throw _com_error(E_INVALIDARG);
    alignas(DWORD) BYTE sid[SECURITY_MAX_SID_SIZE];
    WCHAR domain[256];
    DWORD sidSize = sizeof sid, domainSize = 256;
    SID_NAME_USE use;
    if (!LookupAccountNameW(nullptr, name.c_str(), sid, &sidSize, domain, &domainSize, &use)) {
        throw _com_error(HRESULT_FROM_WIN32(GetLastError()));
    }
    CSid found;
    found.Assign(sid);
    return found;
}

// Whether the system names the account with its domain: "CORP\\erika", "erika@corp".
bool HasDomain(const wstr& account) {
    return account.find_first_of(W("\\@")) != wstr::npos;
}

LPWSTR TaskMemText(const wstr& text) {
    const std::size_t bytes = (text.size() + 1) * sizeof(WCHAR);
    auto* out = static_cast<LPWSTR>(CoTaskMemAlloc(bytes));
    if (out) std::copy_n(text.c_str(), text.size() + 1, out);
    return out;
}

void FillEntry(OV_NAME_ENTRY& entry, const CSid& sid) {
    wstr text;
    if (entry.format == kNameSid) {
        text = sid.Text();
    } else if (entry.format == kNamePlain) {
        text = sid.AccountName();
    } else if (entry.format == kNameSam) {
        text = HasDomain(sid.AccountName()) ? sid.AccountName() : sid.Domain() + W('\\') + sid.AccountName();
    } else {
        entry.hr = E_INVALIDARG;
        return;
    }
    entry.name = TaskMemText(text);
    entry.hr = entry.name ? S_OK : E_OUTOFMEMORY;
}

class COVUserService : public CComObjectRootEx<CComMultiThreadModel>,
                       public CComCoClass<COVUserService, &CLSID_UserService>,
                       public IOVUserNames,
                       public IOVLockPolicy {
  public:
    static std::span<const InterfaceEntry<COVUserService>> InterfaceMap() noexcept {
        static constexpr InterfaceEntry<COVUserService> kMap[] = {
            {IID_IOVUserNames, &InterfaceOf<COVUserService, IOVUserNames>},
            {IID_IOVLockPolicy, &InterfaceOf<COVUserService, IOVLockPolicy>},
        };
        return kMap;
    }

    STDMETHODIMP TranslateName(LPCWSTR name, DWORD nameFormat, DWORD requestCount, const DWORD* requestedFormats,
                               OV_NAME_RESULT** result) override {
        if (!name || !result || (requestCount != 0 && !requestedFormats)) return E_INVALIDARG;
        *result = nullptr;
        return Guarded([&]() -> HRESULT {
            const CSid sid = SidOf(name, nameFormat);
            if (sid.AccountName().empty()) return HRESULT_FROM_WIN32(ERROR_NONE_MAPPED);
            const std::size_t size = offsetof(OV_NAME_RESULT, entries) + requestCount * sizeof(OV_NAME_ENTRY);
            auto* block = static_cast<OV_NAME_RESULT*>(CoTaskMemAlloc(size));
            if (!block) return E_OUTOFMEMORY;
            block->count = requestCount;
            block->padding = 0;
            for (DWORD i = 0; i < requestCount; ++i) block->entries[i] = {requestedFormats[i], E_FAIL, nullptr};
            *result = block;
            for (DWORD i = 0; i < requestCount; ++i) FillEntry(block->entries[i], sid);
            return IsOfDomain(sid.AccountName()) ? S_OK : S_FALSE;
        });
    }

    STDMETHODIMP Reserved() override { return E_NOTIMPL; }

    STDMETHODIMP GetLockPolicyList(DWORD* count, ULONGLONG** list) override {
        if (!count || !list) return E_INVALIDARG;
        return Guarded([&]() -> HRESULT {
            const std::vector<wstr> masks = ReadList(W("LockedMasks"));
            if (masks.empty()) return S_FALSE;
            auto* block = static_cast<ULONGLONG*>(CoTaskMemAlloc(masks.size() * sizeof(ULONGLONG)));
            if (!block) return E_OUTOFMEMORY;
            for (std::size_t i = 0; i < masks.size(); ++i) block[i] = wcstoull(masks[i].c_str(), nullptr, 16);
            *count = static_cast<DWORD>(masks.size());
            *list = block;
            return S_OK;
        });
    }

  private:
    static bool IsOfDomain(const wstr& account) {
        if (HasDomain(account)) return true;
        for (const wstr& known : ReadList(W("DomainAccounts"))) {
            if (CompareNames(known.c_str(), account.c_str()) == 0) return true;
        }
        return false;
    }
};

}  // namespace

OV_SUITE_COMPONENT(COVUserService)
