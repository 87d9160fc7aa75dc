#include "svinfo/RegTree.h"

#include <algorithm>

#include "module/RegistryKey.h"
#include "svinfo/Failure.h"
#include "svinfo/Text.h"

namespace {

bool IsGone(LSTATUS error) noexcept {
    return error == ERROR_FILE_NOT_FOUND || error == ERROR_KEY_DELETED;
}

LSTATUS ReadEntries(HKEY key, std::vector<CRegEntry>& entries) {
    std::vector<WCHAR> name(kMaxValueName + 1);
    std::vector<BYTE> data(256);
    for (DWORD index = 0;;) {
        DWORD length = static_cast<DWORD>(name.size());
        DWORD size = static_cast<DWORD>(data.size());
        DWORD type = REG_NONE;
        const LSTATUS error = RegEnumValueW(key, index, name.data(), &length, nullptr, &type, data.data(), &size);
        if (error == ERROR_NO_MORE_ITEMS) return ERROR_SUCCESS;
        if (error == ERROR_MORE_DATA && size > data.size()) {
            data.resize(size);  // asked again: another process may have changed it meanwhile
            continue;
        }
        if (error) return error;
        entries.push_back({wstr(name.data(), length), false, type, {data.begin(), data.begin() + size}});
        ++index;
    }
}

LSTATUS ReadSubkeys(HKEY key, std::vector<wstr>& subkeys) {
    WCHAR name[256 + 1];
    for (DWORD index = 0;; ++index) {
        DWORD length = static_cast<DWORD>(std::size(name));
        const LSTATUS error = RegEnumKeyExW(key, index, name, &length, nullptr, nullptr, nullptr, nullptr);
        if (error == ERROR_NO_MORE_ITEMS) return ERROR_SUCCESS;
        if (error) return error;
        subkeys.emplace_back(name, length);
    }
}

std::string ReadText(const CRegPath& key) {
    return "read " + EscapeControls(ToUtf8(key.Full()));
}

LSTATUS ReadContent(const CRegPath& path, CRegKeyContent& content) {
    CRegistryKey key;
    if (const LSTATUS error = key.Open(path.root->key, path.below.c_str(), KEY_READ)) return error;
    if (const LSTATUS error = ReadEntries(key.Get(), content.entries)) return error;
    return ReadSubkeys(key.Get(), content.subkeys);
}

}  // namespace

CRegKeyContent ReadRegKey(const CRegPath& key) {
    CRegKeyContent content;
    if (const LSTATUS error = ReadContent(key, content)) throw RegistryFailureOf(ReadText(key), error);
    return content;
}

std::optional<CRegEntry> ReadRegValue(const CRegPath& key, const wstr& name) {
    CRegistryKey open;
    LSTATUS error = open.Open(key.root->key, key.below.c_str(), KEY_QUERY_VALUE);
    if (error) throw RegistryFailureOf(ReadText(key), error);
    CRegEntry entry{name, false, REG_NONE, std::vector<BYTE>(256)};
    for (;;) {
        DWORD size = static_cast<DWORD>(entry.data.size());
        error = RegQueryValueExW(open.Get(), name.c_str(), nullptr, &entry.type, entry.data.data(), &size);
        if (error == ERROR_FILE_NOT_FOUND) return std::nullopt;
        if (error && (error != ERROR_MORE_DATA || size <= entry.data.size())) {
            throw RegistryFailureOf("read " + ValueText(key, name), error);
        }
        entry.data.resize(size);
        if (!error) return entry;
    }
}

bool WalkRegTree(const CRegPath& key, const std::function<RegWalk(CRegBlock&)>& visit) {
    std::vector<CRegPath> waiting{key};
    bool first = true;
    while (!waiting.empty()) {
        CRegBlock block;
        block.key = std::move(waiting.back());
        waiting.pop_back();
        CRegKeyContent content;
        if (const LSTATUS error = ReadContent(block.key, content)) {
            if (!IsGone(error)) throw RegistryFailureOf(ReadText(block.key), error);
            if (first) return false;
            continue;
        }
        first = false;
        block.entries = std::move(content.entries);
        const CRegPath path = block.key;
        if (visit(block) == RegWalk::PassOver) continue;
        // The last one in is the next one out: backwards, so that the order is that of the names.
        for (auto name = content.subkeys.rbegin(); name != content.subkeys.rend(); ++name) {
            waiting.push_back({path.root, path.below.empty() ? *name : path.below + W('\\') + *name});
        }
    }
    return true;
}
