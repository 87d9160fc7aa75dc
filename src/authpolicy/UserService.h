// COVUserService, a component of the suite outside of this module: what is asked of it, and in what form it answers.
#pragma once

#include "Platform.h"
#include "module/ComPtr.h"

inline constexpr CLSID CLSID_UserService = {
    0xD01AC23A, 0xB04B, 0x4BD2, {0xB9, 0xD4, 0xFB, 0xC9, 0xAD, 0x8A, 0x0A, 0x03}};
inline constexpr IID IID_IOVUserNames = {0xC5518800, 0xF530, 0x4C2E, {0xAA, 0x2A, 0x72, 0x34, 0x0E, 0x23, 0x94, 0xD6}};
inline constexpr IID IID_IOVLockPolicy = {0x194939D3, 0xA39E, 0x4413, {0xB8, 0x11, 0x8A, 0xD9, 0xCB, 0xF9, 0xAD, 0x40}};

// How a user's name is written. Other numbers are the service's own, and pass through this module.
inline constexpr DWORD kNameAsItStands = 0;
inline constexpr DWORD kNameSam = 3;  // DOMAIN\account, or account@domain
inline constexpr DWORD kNameSid = 8;

// One form of a translated name.
struct OV_NAME_ENTRY {
    DWORD format;
    HRESULT hr;   // of this form's translation
    LPWSTR name;  // a CoTaskMem block of its own, or null
};
// A block from CoTaskMemAlloc: the count, then as many entries.
struct OV_NAME_RESULT {
    DWORD count;
    DWORD padding;
    OV_NAME_ENTRY entries[1];
};
static_assert(sizeof(OV_NAME_ENTRY) == 16 && offsetof(OV_NAME_RESULT, entries) == 8);

struct IOVUserNames : public IUnknown {
    // Writes the name in each of the requested forms. 1 for a user of this computer, 0 for one of a domain.
    STDMETHOD(TranslateName)
    (LPCWSTR name, DWORD nameFormat, DWORD requestCount, const DWORD* requestedFormats, OV_NAME_RESULT** result) = 0;
};

struct IOVLockPolicy : public IUnknown {
    STDMETHOD(Reserved)() = 0;  // not for this module
    // 0: the computer is locked, and the list is a CoTaskMem block. Anything else: it is not, and both are untouched.
    STDMETHOD(GetLockPolicyList)(DWORD* count, ULONGLONG** list) = 0;
};

// Owns the answer of a translation.
class COVNameResult {
  public:
    COVNameResult() noexcept = default;
    virtual ~COVNameResult();
    COVNameResult(const COVNameResult&) = delete;
    COVNameResult& operator=(const COVNameResult&) = delete;

    OV_NAME_RESULT** operator&() noexcept { return &m_block; }
    // The first entry of that format, if it has a name and did not fail; else null.
    const OV_NAME_ENTRY* Find(DWORD format) const noexcept;

  private:
    OV_NAME_RESULT* m_block = nullptr;
};

// A new instance of the service, started, and one of its interfaces. The failure of whichever step failed.
HRESULT OpenUserService(REFIID iid, void** found) noexcept;
template <class Interface>
HRESULT OpenUserService(REFIID iid, CComPtr<Interface>& found) noexcept {
    return OpenUserService(iid, reinterpret_cast<void**>(&found));
}

// One form of a name. 0 for a user of a domain, 1 for one of this computer. Raises every failure: 0x80004003 where the
// service cannot translate at all.
HRESULT TranslateUserName(LPCWSTR userName, DWORD nameFormat, DWORD wanted, COVNameResult& result);

// No such user is known: there is no usable name.
inline constexpr HRESULT kNoSuchUser = static_cast<HRESULT>(0x80070525u);
