#include "svinfo/RegData.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <optional>

#include "svinfo/Failure.h"
#include "svinfo/Items.h"
#include "svinfo/Suggest.h"
#include "svinfo/Text.h"

namespace {

struct CRegType {
    DWORD type;
    const char* name;
    bool writable;  // can be given on the command line
};

constexpr CRegType kTypes[] = {
    {REG_SZ, "REG_SZ", true},         {REG_EXPAND_SZ, "REG_EXPAND_SZ", true},
    {REG_DWORD, "REG_DWORD", true},   {REG_QWORD, "REG_QWORD", true},
    {REG_BINARY, "REG_BINARY", true}, {REG_MULTI_SZ, "REG_MULTI_SZ", true},
    {REG_NONE, "REG_NONE", false},    {REG_DWORD_BIG_ENDIAN, "REG_DWORD_BIG_ENDIAN", false},
    {REG_LINK, "REG_LINK", false},
};

constexpr wstr_view kListSeparator = W("\\0");

[[noreturn]] void RefuseData(const std::string& argument, const std::string& expected) {
    throw CCommandFailure(ExitCode::Usage, "DATA: found " + Quoted(argument) + ", expected " + expected);
}

ULONGLONG ReadNumber(const std::string& argument, ULONGLONG largest, const std::string& expected) {
    const bool hex = argument.size() > 2 && argument[0] == '0' && (argument[1] == 'x' || argument[1] == 'X');
    const ULONGLONG base = hex ? 16 : 10;
    ULONGLONG number = 0;
    if (argument.empty()) RefuseData(argument, expected);
    for (std::size_t i = hex ? 2 : 0; i < argument.size(); ++i) {
        const int digit = HexDigit(static_cast<WCHAR>(static_cast<unsigned char>(argument[i])));
        if (digit < 0 || static_cast<ULONGLONG>(digit) >= base) RefuseData(argument, expected);
        if (number > (largest - static_cast<ULONGLONG>(digit)) / base) RefuseData(argument, expected);
        number = number * base + static_cast<ULONGLONG>(digit);
    }
    return number;
}

std::vector<BYTE> NumberBytes(ULONGLONG number, std::size_t size) {
    std::vector<BYTE> bytes(size);
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<BYTE>(number >> (8 * i) & 0xFF);
    return bytes;
}

ULONGLONG NumberOf(const std::vector<BYTE>& bytes) noexcept {
    ULONGLONG number = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) number |= static_cast<ULONGLONG>(bytes[i]) << (8 * i);
    return number;
}

std::vector<BYTE> ReadDigits(const std::string& argument) {
    std::vector<BYTE> bytes;
    for (std::size_t i = 0; i < argument.size(); i += 2) {
        const auto digit = [&](std::size_t at) {
            return at < argument.size() ? HexDigit(static_cast<WCHAR>(static_cast<unsigned char>(argument[at]))) : -1;
        };
        if (digit(i) < 0 || digit(i + 1) < 0) RefuseData(argument, "two hexadecimal digits for each byte");
        bytes.push_back(static_cast<BYTE>(digit(i) << 4 | digit(i + 1)));
    }
    return bytes;
}

void AppendText(std::vector<BYTE>& bytes, wstr_view text) {
    for (const WCHAR unit : text) {
        bytes.push_back(static_cast<BYTE>(unit & 0xFF));
        bytes.push_back(static_cast<BYTE>(unit >> 8));
    }
    bytes.insert(bytes.end(), 2, 0);
}

// Each text with its NUL, then one more. An empty text would end the list for every reader.
std::vector<BYTE> ReadList(const std::string& argument) {
    std::vector<BYTE> bytes;
    const wstr list = WideArgument(argument, "DATA");
    wstr_view rest = list;
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find(kListSeparator), rest.size());
        if (end == 0) RefuseData(argument, "no empty text in the list");
        AppendText(bytes, rest.substr(0, end));
        rest.remove_prefix(std::min(end + kListSeparator.size(), rest.size()));
    }
    bytes.insert(bytes.end(), 2, 0);
    return bytes;
}

// Whole characters up to a NUL at the end of the data.
std::optional<wstr> TextOf(const std::vector<BYTE>& data) {
    if (data.empty() || data.size() % 2 != 0) return std::nullopt;
    wstr text(data.size() / 2, 0);
    for (std::size_t i = 0; i < text.size(); ++i) text[i] = static_cast<WCHAR>(data[2 * i] | data[2 * i + 1] << 8);
    if (text.back() != 0) return std::nullopt;
    text.pop_back();
    return text;
}

// The texts of a list that ends as one should: behind the last text's NUL another one.
std::optional<std::vector<wstr>> ListOf(const std::vector<BYTE>& data) {
    std::optional<wstr> text = TextOf(data);
    if (!text) return std::nullopt;
    std::vector<wstr> list;
    wstr_view rest = *text;
    while (!rest.empty()) {
        const std::size_t end = rest.find(WCHAR(0));
        if (end == wstr_view::npos || end == 0) return std::nullopt;
        list.emplace_back(rest.substr(0, end));
        rest.remove_prefix(end + 1);
    }
    return list;
}

// A value with its data read by its type, as far as it can be.
struct CReadable {
    const char* form;
    std::string text;
    json data;
};

CReadable Readable(const CRegEntry& entry) {
    switch (entry.type) {
        case REG_SZ:
        case REG_EXPAND_SZ:
            if (const std::optional<wstr> text = TextOf(entry.data); text && text->find(WCHAR(0)) == wstr::npos) {
                return {"text", ToUtf8(*text), ToUtf8(*text)};
            }
            break;
        case REG_MULTI_SZ:
            if (const std::optional<std::vector<wstr>> list = ListOf(entry.data)) {
                CReadable readable{"list", {}, json::array()};
                for (const wstr& text : *list) {
                    if (!readable.data.empty()) readable.text += ToUtf8(kListSeparator);
                    readable.text += ToUtf8(text);
                    readable.data.push_back(ToUtf8(text));
                }
                return readable;
            }
            break;
        case REG_DWORD:
            if (entry.data.size() == 4) {
                const ULONGLONG number = NumberOf(entry.data);
                return {"number", std::to_string(number), number};
            }
            break;
        case REG_QWORD:
            if (entry.data.size() == 8) {
                const std::string digits = MaskDigits(NumberOf(entry.data));
                return {"mask", "0x" + digits, digits};
            }
            break;
        default:
            break;
    }
    const std::string digits = HexText(entry.data.data(), entry.data.size());
    return {"bytes", digits, digits};
}

}  // namespace

std::string RegTypeText(DWORD type) {
    for (const CRegType& known : kTypes) {
        if (known.type == type) return known.name;
    }
    char text[16];
    std::snprintf(text, sizeof text, "0x%X", static_cast<unsigned>(type));
    return text;
}

DWORD RegTypeArgument(const std::string& argument) {
    std::string upper = argument;
    for (char& c : upper) c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    std::vector<std::string> names;
    for (const CRegType& known : kTypes) {
        if (!known.writable) continue;
        if (upper == known.name) return known.type;
        names.emplace_back(known.name);
    }
    throw CCommandFailure(ExitCode::Usage, "TYPE: found " + Quoted(argument) +
                                               ", expected REG_SZ, REG_EXPAND_SZ, REG_DWORD, REG_QWORD, REG_BINARY or "
                                               "REG_MULTI_SZ" +
                                               Suggestion(argument, names));
}

std::vector<BYTE> RegDataArgument(DWORD type, const std::string& argument) {
    switch (type) {
        case REG_DWORD:
            return NumberBytes(ReadNumber(argument, 0xFFFFFFFF, "a number from 0 to 4294967295, or 0x0 to 0xFFFFFFFF"),
                               4);
        case REG_QWORD:
            return NumberBytes(
                ReadNumber(argument, ~0ULL, "a number from 0 to 18446744073709551615, or 0x0 to 0xFFFFFFFFFFFFFFFF"),
                8);
        case REG_BINARY:
            return ReadDigits(argument);
        case REG_MULTI_SZ:
            return ReadList(argument);
        default:
            break;
    }
    std::vector<BYTE> bytes;
    AppendText(bytes, WideArgument(argument, "DATA"));
    return bytes;
}

std::string RegDataText(const CRegEntry& entry) {
    return Readable(entry).text;
}

json RegEntryJson(const CRegEntry& entry) {
    const CReadable readable = Readable(entry);
    return json{{"name", ToUtf8(entry.name)},
                {"type", RegTypeText(entry.type)},
                {"form", readable.form},
                {"data", readable.data}};
}
