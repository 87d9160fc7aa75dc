// MD5 by libmd.
#include <md5.h>

#include <algorithm>
#include <array>
#include <mutex>
#include <string_view>

#include "BoolCall.h"
#include "Handles.h"
#include "win/sync.h"
#include "wincrypt.h"

namespace {

class CProvider : public CKernelObject {};

class CHash : public CKernelObject {
  public:
    CHash() { MD5Init(&m_state); }

    DWORD Add(const BYTE* data, std::size_t size) {
        std::lock_guard lock(m_lock);
        if (m_isDone) return static_cast<DWORD>(NTE_BAD_HASH_STATE);
        MD5Update(&m_state, data, size);
        return ERROR_SUCCESS;
    }
    using Digest = std::array<BYTE, MD5_DIGEST_LENGTH>;
    Digest Finish() {
        std::lock_guard lock(m_lock);
        if (!m_isDone) MD5Final(m_digest.data(), &m_state);
        m_isDone = true;
        return m_digest;
    }

  private:
    std::mutex m_lock;
    MD5_CTX m_state;
    bool m_isDone = false;
    Digest m_digest = {};
};

HANDLE ToHandle(ULONG_PTR number) noexcept {
    return reinterpret_cast<HANDLE>(number);
}

template <class Object>
DWORD Open(ULONG_PTR* out) {
    const HANDLE handle = OpenHandle(std::make_shared<Object>());
    *out = reinterpret_cast<ULONG_PTR>(handle);
    return handle ? ERROR_SUCCESS : ERROR_NOT_ENOUGH_MEMORY;
}

template <class Object>
DWORD Close(ULONG_PTR number) {
    if (!ObjectOf<Object>(ToHandle(number))) return ERROR_INVALID_HANDLE;
    return CloseHandle(ToHandle(number)) ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
}

}  // namespace

BOOL WINAPI CryptAcquireContextW(HCRYPTPROV* provider, LPCWSTR container, LPCWSTR name, DWORD type, DWORD flags) {
    return Succeeds([&]() -> DWORD {
        if (!provider) return ERROR_INVALID_PARAMETER;
        *provider = 0;
        if (container || flags != CRYPT_VERIFYCONTEXT) return static_cast<DWORD>(NTE_BAD_FLAGS);
        if (type != PROV_RSA_FULL) return static_cast<DWORD>(NTE_BAD_TYPE);
        if (name && std::u16string_view(name) != MS_DEF_PROV_W) return static_cast<DWORD>(NTE_KEYSET_NOT_DEF);
        return Open<CProvider>(provider);
    });
}

BOOL WINAPI CryptReleaseContext(HCRYPTPROV provider, DWORD flags) {
    return Succeeds([&]() -> DWORD { return flags ? ERROR_INVALID_PARAMETER : Close<CProvider>(provider); });
}

BOOL WINAPI CryptCreateHash(HCRYPTPROV provider, ALG_ID algorithm, HCRYPTKEY key, DWORD flags, HCRYPTHASH* hash) {
    return Succeeds([&]() -> DWORD {
        if (!hash || key || flags) return ERROR_INVALID_PARAMETER;
        *hash = 0;
        if (!ObjectOf<CProvider>(ToHandle(provider))) return ERROR_INVALID_HANDLE;
        if (algorithm != CALG_MD5) return static_cast<DWORD>(NTE_BAD_ALGID);
        return Open<CHash>(hash);
    });
}

BOOL WINAPI CryptHashData(HCRYPTHASH hash, const BYTE* data, DWORD size, DWORD flags) {
    return Succeeds([&]() -> DWORD {
        if (flags || (size && !data)) return ERROR_INVALID_PARAMETER;
        const auto object = ObjectOf<CHash>(ToHandle(hash));
        return object ? object->Add(data, size) : ERROR_INVALID_HANDLE;
    });
}

BOOL WINAPI CryptGetHashParam(HCRYPTHASH hash, DWORD what, BYTE* buffer, DWORD* size, DWORD flags) {
    return Succeeds([&]() -> DWORD {
        if (!size || flags) return ERROR_INVALID_PARAMETER;
        if (what != HP_HASHVAL) return static_cast<DWORD>(NTE_BAD_TYPE);
        const auto object = ObjectOf<CHash>(ToHandle(hash));
        if (!object) return ERROR_INVALID_HANDLE;
        const bool fits = buffer && *size >= MD5_DIGEST_LENGTH;
        *size = MD5_DIGEST_LENGTH;
        if (!buffer) return ERROR_SUCCESS;
        if (!fits) return ERROR_MORE_DATA;
        const CHash::Digest digest = object->Finish();
        std::copy(digest.begin(), digest.end(), buffer);
        return ERROR_SUCCESS;
    });
}

BOOL WINAPI CryptDestroyHash(HCRYPTHASH hash) {
    return Succeeds([&] { return Close<CHash>(hash); });
}
