#include "svinfo/CacheView.h"

#include <algorithm>
#include <filesystem>

#include "cache/CryptBlobs.h"
#include "security/CoreKey.h"
#include "svinfo/Failure.h"
#include "svinfo/FileIo.h"
#include "svinfo/Text.h"

namespace fs = std::filesystem;

namespace {

bool IsSame(CDerBytes a, CDerBytes b) noexcept {
    return std::equal(a.begin(), a.end(), b.begin(), b.end());
}

}  // namespace

std::string OwnCachePath() {
    CRegistryKey core;
    core.Open(HKEY_LOCAL_MACHINE, kCoreKey, KEY_READ);
    return NativePath(CacheFileName(core));
}

CCacheView::CCacheView(const std::string& path) : m_path(path.empty() ? OwnCachePath() : path) {
    std::error_code error;
    const fs::path file(std::u8string(m_path.begin(), m_path.end()));
    if (fs::status(file, error).type() == fs::file_type::not_found) {
        throw CCommandFailure(ExitCode::No, EscapeControls(m_path) + ": there is no such file");
    }
    m_bytes = ReadWholeFile(m_path);
    if (!IsLongEnough()) return;
    const CCacheFileParts parts = PartsOfCacheFile({reinterpret_cast<const BYTE*>(m_bytes.data()), m_bytes.size()});
    try {
        m_stored = parts.stored;
        m_computed = CacheDigestOf(parts.body);
        CCacheReader reader(parts.body);
        for (CPolicyItem item; reader.Next(item);) m_items.push_back(std::move(item));
    } catch (const _com_error& failure) {
        throw FailureOf("read " + EscapeControls(m_path), failure.Error());
    }
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
    OVTraceNS::CTraceScope scope("cache verify", 0);
    CPolicyMap map;
    for (std::size_t i = 0; i < m_items.size(); ++i) {
        const std::string which = "element " + std::to_string(i + 1) + ", " + Quoted(m_items[i].name) + ": ";
        if (!IsCachedItem(m_items[i], scope)) {
            findings.push_back(which + "type " + std::to_string(m_items[i].value.Type()) + " has no place in a store");
        }
        if (!map.Insert(m_items[i])) findings.push_back(which + "a name that was there before");
    }
    if (findings.empty() && !IsSame(EncodeCacheBody(map, scope).Written(), Body())) {
        findings.push_back("not written as the component writes these items");
    }
    return findings;
}
