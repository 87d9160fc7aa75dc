#include "svinfo/CacheView.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <thread>

#include "cache/CryptBlobs.h"
#include "module/Failure.h"
#include "module/FileHandle.h"
#include "security/CoreKey.h"
#include "svinfo/Failure.h"
#include "svinfo/FileIo.h"
#include "svinfo/Text.h"

namespace fs = std::filesystem;

namespace {

// As its writers hold it: a file that is being written is waited for, and one that is being read is read by others too.
std::string ReadShared(const std::string& path) {
    constexpr int kTries = 50;
    constexpr std::chrono::milliseconds kPause(10);
    std::error_code error;
    const fs::path file(std::u8string(path.begin(), path.end()));
    const fs::file_status status = fs::status(file, error);
    if (status.type() == fs::file_type::not_found) {
        throw CCommandFailure(ExitCode::No, EscapeControls(path) + ": there is no such file");
    }
    if (fs::exists(status) && !fs::is_regular_file(status)) {
        throw CCommandFailure(ExitCode::BadInput, EscapeControls(path) + ": found no file, expected one");
    }
    const wstr name = WideArgument(path, "FILE");
    for (int tries = 1;; ++tries) {
        const CFileHandle handle(CreateFileW(name.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                             OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
        DWORD failed = handle ? ERROR_SUCCESS : GetLastError();
        if (failed == ERROR_SHARING_VIOLATION && tries < kTries) {
            std::this_thread::sleep_for(kPause);
            continue;
        }
        DWORD high = 0, read = 0;
        const DWORD size = handle ? GetFileSize(handle.Get(), &high) : 0;
        if (high != 0) failed = ERROR_FILE_TOO_LARGE;
        std::string bytes(failed ? 0 : size, '\0');
        if (!failed && !ReadFile(handle.Get(), bytes.data(), size, &read, nullptr)) failed = GetLastError();
        if (failed) throw FailureOf("read " + EscapeControls(path), HRESULT_FROM_WIN32(failed));
        bytes.resize(read);
        return bytes;
    }
}

bool IsSame(CDerBytes a, CDerBytes b) noexcept {
    return std::equal(a.begin(), a.end(), b.begin(), b.end());
}

std::string WhichText(std::size_t index, const wstr& name) {
    return "element " + std::to_string(index + 1) + ", " + Quoted(name) + ": ";
}

}  // namespace

std::string OwnCachePath() {
    CRegistryKey core;
    const LONG error = core.Open(HKEY_LOCAL_MACHINE, kCoreKey, KEY_READ);
    if (error && error != ERROR_FILE_NOT_FOUND) throw RegistryFailureOf("read " + MachineKeyText(kCoreKey), error);
    return NativePath(CacheFileName(core));
}

CCacheView::CCacheView(const std::string& path)
    : m_path(path.empty() ? OwnCachePath() : path), m_bytes(ReadShared(m_path)) {
    if (!IsLongEnough()) return;
    const CCacheFileParts parts = PartsOfCacheFile({reinterpret_cast<const BYTE*>(m_bytes.data()), m_bytes.size()});
    m_stored = parts.stored;
    const HRESULT hr = Guarded([&]() -> HRESULT {
        m_computed = CacheDigestOf(parts.body).value_or(CCacheDigest());
        return S_OK;
    });
    if (FAILED(hr)) throw FailureOf("compute the digest of " + EscapeControls(m_path), hr);
    if (IsWhole()) Decode();
}

void CCacheView::Decode() {
    m_decoded = Guarded([&]() -> HRESULT {
        CCacheReader reader(Body());
        for (CPolicyItem item; reader.Next(item);) m_items.push_back(std::move(item));
        return S_OK;
    });
}

CDerBytes CCacheView::Body() const noexcept {
    return PartsOfCacheFile({reinterpret_cast<const BYTE*>(m_bytes.data()), m_bytes.size()}).body;
}

std::string CCacheView::Damage() const {
    if (!IsLongEnough()) {
        return EscapeControls(m_path) + ": found " + CountText(Bytes(), "byte", "bytes") + ", expected at least " +
               std::to_string(kSmallestCacheFile) + ": a save was cut off";
    }
    return EscapeControls(m_path) + ": found the digest " + HexText(m_stored.data(), m_stored.size()) + ", expected " +
           HexText(m_computed.data(), m_computed.size()) + ": cut off or damaged";
}

void CCacheView::RequireWhole() const {
    if (!IsWhole()) throw CCommandFailure(ExitCode::BadInput, Damage());
}

std::vector<std::string> CCacheView::Findings() const {
    const std::optional<DerElement> outer = ReadElement(Body());
    if (!outer || outer->tag != DerTag::kSequence || (CAnySequence(Body()).Count() == 0 && !outer->content.empty())) {
        return {"the body is no sequence of elements; the component takes it for an empty store"};
    }
    std::vector<std::string> findings;
    if (outer->whole.size() != Body().size()) {
        findings.push_back(CountText(Body().size() - outer->whole.size(), "byte", "bytes") + " behind the sequence");
    }
    CPolicyMap map;
    for (std::size_t i = 0; i < m_items.size(); ++i) {
        const CPolicyItem& item = m_items[i];
        if (!IsCachedType(item)) {
            findings.push_back(WhichText(i, item.name) + "type " + std::to_string(item.value.Type()) +
                               " has no place in a store");
        }
        if (!map.Insert(item)) findings.push_back(WhichText(i, item.name) + "a name that was there before");
    }
    if (FAILED(m_decoded)) {
        findings.push_back("element " + std::to_string(m_items.size() + 1) +
                           " and what follows: " + ResultText(m_decoded));
    }
    OVTraceNS::CTraceScope scope("cache verify", 0);
    if (findings.empty() && !IsSame(EncodeCacheBody(map, scope).Written(), Body())) {
        findings.push_back("not written as the component writes these items");
    }
    return findings;
}

bool IsCachedType(const CPolicyItem& item) noexcept {
    OVTraceNS::CTraceScope scope("cache verify", 0);
    return IsCachedItem(item, scope);
}
