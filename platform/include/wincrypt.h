// Digests, under the names of the platform's cryptographic services.
//
// MD5 alone, for telling damage from health: it is computed by a plain library, whatever the computer's policy says
// about MD5 in matters of security.
#pragma once

#include "win/types.h"

using HCRYPTPROV = ULONG_PTR;
using HCRYPTHASH = ULONG_PTR;
using HCRYPTKEY = ULONG_PTR;
using ALG_ID = UINT;

#define MS_DEF_PROV_W W("Microsoft Base Cryptographic Provider v1.0")
#define PROV_RSA_FULL 1
#define CRYPT_VERIFYCONTEXT 0xF0000000u
#define CALG_MD5 0x8003u
#define HP_HASHVAL 2

#define NTE_BAD_SIGNATURE OV_HR(0x80090006)
#define NTE_BAD_ALGID OV_HR(0x80090008)
#define NTE_BAD_FLAGS OV_HR(0x80090009)
#define NTE_BAD_TYPE OV_HR(0x8009000A)
#define NTE_BAD_HASH_STATE OV_HR(0x8009000C)
#define NTE_KEYSET_NOT_DEF OV_HR(0x80090019)
#define CRYPT_E_ASN1_CORRUPT OV_HR(0x80093103)

// All say why not by the last error. Only what keeps no keys can be had: no container, CRYPT_VERIFYCONTEXT.
OVLAYER_API BOOL WINAPI CryptAcquireContextW(HCRYPTPROV* provider, LPCWSTR container, LPCWSTR name, DWORD type,
                                             DWORD flags);
OVLAYER_API BOOL WINAPI CryptReleaseContext(HCRYPTPROV provider, DWORD flags);
// CALG_MD5, without a key.
OVLAYER_API BOOL WINAPI CryptCreateHash(HCRYPTPROV provider, ALG_ID algorithm, HCRYPTKEY key, DWORD flags,
                                        HCRYPTHASH* hash);
OVLAYER_API BOOL WINAPI CryptHashData(HCRYPTHASH hash, const BYTE* data, DWORD size, DWORD flags);
// HP_HASHVAL ends the hash: no more data goes into it. `size` is the room on entry, 16 on return; ERROR_MORE_DATA (234)
// for less. Without a buffer only the size is told.
OVLAYER_API BOOL WINAPI CryptGetHashParam(HCRYPTHASH hash, DWORD what, BYTE* buffer, DWORD* size, DWORD flags);
OVLAYER_API BOOL WINAPI CryptDestroyHash(HCRYPTHASH hash);
