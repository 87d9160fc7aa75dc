#include "StringTable.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "BoolCall.h"
#include "Utf8.h"
#include "win/resource.h"

namespace fs = std::filesystem;

namespace {

constexpr std::uintmax_t kLargestFile = 16u << 20;
constexpr std::size_t kBlockStrings = 16;

// One block as the platform lays it out.
using Block = std::vector<WCHAR>;
using Blocks = std::map<WORD, Block>;
using Strings = std::map<WORD, std::u16string>;

// False for a line that is none.
bool ReadLine(std::string_view line, Strings& strings) {
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (line.empty() || line.front() == '#') return true;
    WORD number = 0;
    const auto [end, error] = std::from_chars(line.data(), line.data() + line.size(), number);
    if (error != std::errc()) return false;
    line.remove_prefix(static_cast<std::size_t>(end - line.data()));
    const std::size_t text = line.find_first_not_of(" \t");
    if (text == 0) return false;
    strings[number] = text == line.npos ? std::u16string() : FromUtf8(line.substr(text)).substr(0, 0xFFFF);
    return true;
}

Blocks BlocksOf(const Strings& strings) {
    Blocks blocks;
    for (const auto& entry : strings) {
        const WORD number = static_cast<WORD>(entry.first / kBlockStrings + 1);
        Block& block = blocks[number];
        if (!block.empty()) continue;
        for (std::size_t i = 0; i < kBlockStrings; ++i) {
            const auto found = strings.find(static_cast<WORD>((number - 1u) * kBlockStrings + i));
            const std::u16string_view text = found == strings.end() ? std::u16string_view() : found->second;
            block.push_back(static_cast<WCHAR>(text.size()));
            block.insert(block.end(), text.begin(), text.end());
        }
    }
    return blocks;
}

DWORD ReadTable(const std::string& path, Blocks& blocks) {
    std::error_code error;
    if (!fs::is_regular_file(path, error)) return ERROR_MOD_NOT_FOUND;
    if (fs::file_size(path, error) > kLargestFile || error) return ERROR_BAD_EXE_FORMAT;
    std::ifstream in(path, std::ios::binary);
    if (!in) return ERROR_MOD_NOT_FOUND;
    std::string text{std::istreambuf_iterator<char>(in), {}};
    std::string_view rest(text);
    if (rest.starts_with("\xEF\xBB\xBF")) rest.remove_prefix(3);
    Strings strings;
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        if (!ReadLine(rest.substr(0, end), strings)) return ERROR_BAD_EXE_FORMAT;
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    blocks = BlocksOf(strings);
    return ERROR_SUCCESS;
}

// The loaded tables. A handle is the address of its table, which nothing else has.
class CStringTables {
  public:
    HMODULE Add(Blocks blocks) {
        auto table = std::make_unique<Blocks>(std::move(blocks));
        const std::lock_guard lock(m_lock);
        m_tables.push_back(std::move(table));
        return reinterpret_cast<HMODULE>(m_tables.back().get());
    }
    bool Remove(HMODULE module) noexcept {
        const std::lock_guard lock(m_lock);
        return std::erase_if(m_tables, [&](const auto& table) { return IsOf(table, module); }) != 0;
    }
    // Good as long as the table is loaded; null for a block that is not there. `known` tells of the table.
    const Block* Find(HMODULE module, WORD number, bool& known) noexcept {
        const std::lock_guard lock(m_lock);
        known = false;
        for (const auto& table : m_tables) {
            if (!IsOf(table, module)) continue;
            known = true;
            const auto found = table->find(number);
            return found == table->end() ? nullptr : &found->second;
        }
        return nullptr;
    }

  private:
    static bool IsOf(const std::unique_ptr<Blocks>& table, HMODULE module) noexcept {
        return reinterpret_cast<HMODULE>(table.get()) == module;
    }

    std::mutex m_lock;
    std::vector<std::unique_ptr<Blocks>> m_tables;
};

CStringTables& Tables() {
    static CStringTables& tables = *new CStringTables;  // modules may be freed when the layer's statics are gone
    return tables;
}

const Block* BlockOf(HRSRC resource) noexcept {
    return reinterpret_cast<const Block*>(resource);
}

}  // namespace

bool FreeStringTable(HMODULE module) noexcept {
    return Tables().Remove(module);
}

DWORD LoadStringTable(const std::string& path, HMODULE& module) {
    Blocks blocks;
    if (const DWORD error = ReadTable(path, blocks)) return error;
    module = Tables().Add(std::move(blocks));
    return ERROR_SUCCESS;
}

HRSRC WINAPI FindResourceW(HMODULE module, LPCWSTR name, LPCWSTR type) {
    const Block* block = nullptr;
    Succeeds([&]() -> DWORD {
        bool known;
        if (reinterpret_cast<ULONG_PTR>(name) > 0xFFFF) return ERROR_RESOURCE_NAME_NOT_FOUND;
        block = Tables().Find(module, static_cast<WORD>(reinterpret_cast<ULONG_PTR>(name)), known);
        if (!known || type != RT_STRING) return block = nullptr, ERROR_RESOURCE_TYPE_NOT_FOUND;
        return block ? ERROR_SUCCESS : ERROR_RESOURCE_NAME_NOT_FOUND;
    });
    return reinterpret_cast<HRSRC>(const_cast<Block*>(block));
}

HGLOBAL WINAPI LoadResource(HMODULE, HRSRC resource) {
    if (resource) return const_cast<WCHAR*>(BlockOf(resource)->data());
    SetLastError(ERROR_RESOURCE_DATA_NOT_FOUND);
    return nullptr;
}

LPVOID WINAPI LockResource(HGLOBAL resource) {
    return resource;
}

DWORD WINAPI SizeofResource(HMODULE, HRSRC resource) {
    return resource ? static_cast<DWORD>(BlockOf(resource)->size() * sizeof(WCHAR)) : 0;
}
