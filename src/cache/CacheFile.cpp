#include "cache/CacheFile.h"

#include <algorithm>
#include <cstring>

#include "cache/CryptBlobs.h"
#include "cache/ValueEncoding.h"
#include "module/Failure.h"
#include "security/CoreKey.h"

namespace {

constexpr LPCWSTR kFileName = W("svinfo.cch");

// The two handles that a digest takes.
class CMd5 {
  public:
    CMd5() {
        Must(CryptAcquireContextW(&m_provider, nullptr, MS_DEF_PROV_W, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT));
        if (!CryptCreateHash(m_provider, CALG_MD5, 0, 0, &m_hash)) {
            const DWORD error = GetLastError();
            CryptReleaseContext(m_provider, 0);
            throw _com_error(HRESULT_FROM_WIN32(error));
        }
    }
    ~CMd5() {
        CryptDestroyHash(m_hash);
        CryptReleaseContext(m_provider, 0);
    }
    CMd5(const CMd5&) = delete;
    CMd5& operator=(const CMd5&) = delete;

    void Add(CDerBytes bytes) {
        if (bytes.size() > MAXDWORD) throw _com_error(HRESULT_FROM_WIN32(ERROR_FILE_TOO_LARGE));
        Must(CryptHashData(m_hash, bytes.data(), static_cast<DWORD>(bytes.size()), 0));
    }
    std::optional<CCacheDigest> Finish() {
        CCacheDigest digest = {};
        DWORD size = sizeof digest;
        Must(CryptGetHashParam(m_hash, HP_HASHVAL, digest.data(), &size, 0));
        return size == sizeof digest ? std::optional(digest) : std::nullopt;
    }

  private:
    static void Must(BOOL done) {
        if (!done) throw _com_error(HRESULT_FROM_WIN32(GetLastError()));
    }

    HCRYPTPROV m_provider = 0;
    HCRYPTHASH m_hash = 0;
};

// Names and texts lie apart from their items, and the writing is faster than the memory that they come from.
constexpr std::size_t kAhead = 8;

void Fetch(const CPolicyItem& item) noexcept {
    constexpr std::size_t kLine = 64;
    const auto* const name = reinterpret_cast<const char*>(item.name.data());
    for (std::size_t at = 0; at < item.name.size() * sizeof(WCHAR); at += kLine) __builtin_prefetch(name + at);
    if (item.value.Type() == OV_TYPE_STRING) __builtin_prefetch(item.value.Text());
}

}  // namespace

wstr CacheFileName() {
    return CacheFileName(OpenCoreKey(KEY_READ));
}

wstr CacheFileName(const CRegistryKey& core) {
    WCHAR folder[MAX_PATH] = {};
    DWORD length = MAX_PATH;
    if (core.QueryString(W("BinDir"), folder, length) != ERROR_SUCCESS) return kFileName;
    wstr path = folder;
    if (!path.ends_with(WCHAR{'\\'})) path += WCHAR{'\\'};
    return path += kFileName;
}

std::optional<CCacheDigest> CacheDigestOf(CDerBytes body) {
    CMd5 md5;
    md5.Add(body);
    return md5.Finish();
}

CCacheFileParts PartsOfCacheFile(CDerBytes file) noexcept {
    CCacheFileParts parts;
    parts.body = file.first(file.size() - sizeof parts.stored);
    std::memcpy(parts.stored.data(), file.data() + parts.body.size(), sizeof parts.stored);
    return parts;
}

bool CCacheReader::Next(CPolicyItem& item) {
    if (m_elements.Left() == 0) return false;
    CDerBytes encoded;
    m_elements.ReadBlob(encoded);
    DecodeItem(encoded, item, m_budget);
    return true;
}

bool IsCachedItem(const CPolicyItem& item, OVTraceNS::CTraceScope& scope) noexcept {
    const LPCWSTR name = item.name.c_str();
    switch (item.value.Type()) {
        case OV_TYPE_STRING:
            scope.Print("%ls = '%ls'", name, item.value.Text());
            return true;
        case OV_TYPE_DWORD:
            scope.Print("%ls = '%ld'", name, item.value.Dword());
            return true;
        case OV_TYPE_QWORD:
            scope.Print("%ls = '0x%016I64X'", name, item.value.Number());
            return true;
        case OV_TYPE_ARRAY:
            scope.Print("%ls (array)", name);
            return true;
        default:
            scope.Print("Wrong Type for %ls", name);
            return false;
    }
}

CDerWriter EncodeCacheBody(const CPolicyMap& items, OVTraceNS::CTraceScope& scope) {
    constexpr std::size_t kBesideTheName = 48;  // of an item that is not unusually long
    std::vector<const CPolicyItem*> cached;
    cached.reserve(items.Size());
    std::size_t room = 16;
    for (std::size_t rank = 0; rank < items.Size(); ++rank) {
        const CPolicyItem& item = items.At(rank);
        if (!IsCachedItem(item, scope)) continue;
        cached.push_back(&item);
        room += item.name.size() * sizeof(WCHAR) + kBesideTheName;
    }
    scope.Print("Count is %d", static_cast<DWORD>(cached.size()));
    CDerWriter writer(room);
    for (std::size_t i = cached.size(); i-- > 0;) {
        if (i >= kAhead) Fetch(*cached[i - kAhead]);
        const std::size_t end = writer.Size();
        EncodeItem(*cached[i], writer);
        writer.Close(DerTag::kOctetString, end);
    }
    writer.Close(DerTag::kSequence, 0);
    return writer;
}
