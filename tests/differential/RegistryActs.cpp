#include "differential/RegistryActs.h"

#include <algorithm>
#include <utility>

namespace {

constexpr DWORD kMark = 0xDEADBEEF;
constexpr BYTE kUntouched = 0xEE;
constexpr DWORD kMostItems = 100;  // a bound for enumerations that would not end

// The first ones come often, so that a good part of the questions meets a key that is there.
constexpr std::size_t kCommon = 5;
const wstr kComponents[] = {
    W("Alpha"),
    W("alpha"),
    W("ALPHA"),
    W("Beta"),
    W("Gamma"),
    W("x y"),
    W("f/s"),
    W("."),
    W(".."),
    W("%v%"),
    {0xC9, W('c'), W('o'), W('l'), W('e')},
    {0xE9, W('C'), W('O'), W('L'), W('E')},
    {0x3C2},
    {0x3C3},
    {0x3A3},
    {W('I')},
    {0x131},
    {0xDF},
    {0xFF21},
    {0xFF41},
    {0xD83D, 0xDE00},
    {0xD800},
    {0xFFFF},
    {1},
    wstr(255, W('c')),
    wstr(256, W('c')),
};

const wstr kValueNames[] = {
    W(""),    W("v"), W("V"), W("Value"), W("other"), W("a\\b"),
    W("x y"), {0xE9}, {0xC9}, {0x3C2},    {0xD800},   wstr(300, W('n')),
};

const REGSAM kMasks[] = {
    KEY_ALL_ACCESS,  KEY_ALL_ACCESS,
    KEY_ALL_ACCESS,  KEY_ALL_ACCESS,
    KEY_READ,        KEY_READ,
    KEY_WRITE,       KEY_SET_VALUE,
    KEY_QUERY_VALUE, 0,
    MAXIMUM_ALLOWED, KEY_ENUMERATE_SUB_KEYS,
    READ_CONTROL,    KEY_NOTIFY,
};

const DWORD kTypes[] = {REG_SZ,   REG_SZ,     REG_EXPAND_SZ,        REG_MULTI_SZ, REG_DWORD, REG_QWORD,
                        REG_NONE, REG_BINARY, REG_DWORD_BIG_ENDIAN, 0x12345,      REG_LINK};

// "0 untouched", "0 type 4 ...": what a marked number has become.
std::string Marked(DWORD number) {
    return number == kMark ? "untouched" : std::to_string(number);
}

// A name's length is a marker of its own on entry: the room.
std::string Length(DWORD length, DWORD room) {
    return length == room ? "room" : std::to_string(length);
}

// The first `size` bytes of a buffer that was filled in, or whether it was left alone.
std::string Content(const std::vector<BYTE>& buffer, bool filled, DWORD size) {
    if (filled)
        return Shown(
            std::vector<BYTE>(buffer.begin(), buffer.begin() + std::min<std::ptrdiff_t>(size, std::ssize(buffer))));
    const bool touched = std::any_of(buffer.begin(), buffer.end(), [](BYTE byte) { return byte != kUntouched; });
    return touched ? "touched" : "untouched";
}

std::string Joined(const std::vector<std::string>& items) {
    std::string all;
    for (const std::string& item : items) all += (all.empty() ? "" : ", ") + item;
    return '[' + all + ']';
}

}  // namespace

CRegistryActs::~CRegistryActs() {
    for (const Held& held : m_held) {
        if (held.key) RegCloseKey(held.key);
    }
}

void CRegistryActs::Act() {
    using Step = void (CRegistryActs::*)();
    static constexpr Step kSteps[] = {
        &CRegistryActs::Open,       &CRegistryActs::Open,     &CRegistryActs::Create,      &CRegistryActs::Create,
        &CRegistryActs::Create,     &CRegistryActs::Create,   &CRegistryActs::Set,         &CRegistryActs::Set,
        &CRegistryActs::Set,        &CRegistryActs::Set,      &CRegistryActs::Query,       &CRegistryActs::Query,
        &CRegistryActs::Query,      &CRegistryActs::Query,    &CRegistryActs::DeleteValue, &CRegistryActs::DeleteKey,
        &CRegistryActs::DeleteKey,  &CRegistryActs::EnumKeys, &CRegistryActs::EnumKeys,    &CRegistryActs::EnumValues,
        &CRegistryActs::EnumValues, &CRegistryActs::Info,     &CRegistryActs::OpenUser,    &CRegistryActs::Close,
    };
    (this->*m_choice.Of(kSteps))();
}

CRegistryActs::Start CRegistryActs::DrawStart() {
    static const Start kPlaces[] = {
        {HKEY_LOCAL_MACHINE, W("SOFTWARE\\D"), false, false, "HKLM"},
        {HKEY_LOCAL_MACHINE, W("SOFTWARE\\D"), false, false, "HKLM"},
        {HKEY_LOCAL_MACHINE, W("software\\d"), false, false, "HKLM"},
        {HKEY_LOCAL_MACHINE, W("SOFTWARE\\Wow6432Node\\D"), false, false, "HKLM"},
        {HKEY_LOCAL_MACHINE, W("SOFTWARE\\Classes\\D"), false, false, "HKLM"},
        {HKEY_LOCAL_MACHINE, W("SYSTEM\\D"), false, false, "HKLM"},
        {HKEY_CLASSES_ROOT, W("D"), false, false, "HKCR"},
        {HKEY_CURRENT_USER, W("Software\\D"), false, false, "HKCU"},
    };
    if (m_choice.OneIn(2)) return m_choice.Of(kPlaces);
    std::string shown;
    const Held& held = DrawHeld(shown);
    return {held.key, {}, held.narrow, true, shown};
}

REGSAM CRegistryActs::DrawView(const Start& start) {
    if (m_choice.Below(3) != 0) return 0;
    // A turned HKEY_CLASSES_ROOT is asked without a view: with one, Wine goes to the system's own.
    if (!start.held && start.key == HKEY_CLASSES_ROOT) return 0;
    const bool narrow = start.held ? start.narrow : start.prefix.starts_with(W("SOFTWARE\\D")) && m_choice.OneIn(2);
    return narrow ? KEY_WOW64_32KEY : KEY_WOW64_64KEY;
}

wstr CRegistryActs::DrawPath() {
    static const wstr kOdd[] = {W(""), W("\\"), W("\\\\"), W("\\Beta"), wstr(257, W('c'))};
    if (m_choice.OneIn(12)) return m_choice.Of(kOdd);
    const auto component = [this]() -> const wstr& {
        return m_choice.OneIn(3) ? m_choice.Of(kComponents) : kComponents[m_choice.Below(kCommon)];
    };
    wstr path = component();
    while (m_choice.OneIn(3)) (path += m_choice.OneIn(8) ? W("\\\\") : W("\\")) += component();
    if (m_choice.OneIn(12)) path += W("\\");
    return path;
}

CRegistryActs::Held& CRegistryActs::DrawHeld(std::string& shown) {
    const std::size_t index = m_choice.Below(m_held.size());
    Held& held = m_held[index];
    shown = '#' + std::to_string(index) + ':' + Hex(held.access);
    return held;
}

// What is asked for is held whether or not it was given: the next questions must be the same.
std::string CRegistryActs::Hold(HKEY key, REGSAM access, bool narrow) {
    const std::size_t index = m_choice.Below(m_held.size());
    Held& held = m_held[index];
    if (held.key) RegCloseKey(held.key);
    held = {key, access, narrow};
    return '#' + std::to_string(index);
}

void CRegistryActs::Open() {
    const Start start = DrawStart();
    const wstr below = DrawPath();
    const wstr path = start.prefix.empty() ? below : start.prefix + W('\\') + below;
    const REGSAM access = m_choice.Of(kMasks) | DrawView(start);
    HKEY key = reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(kMark));
    const LSTATUS error = RegOpenKeyExW(start.key, path.c_str(), m_choice.OneIn(20) ? 1 : 0, access, &key);
    const bool null = !key;
    if (error) key = nullptr;
    const std::string shown = Hold(key, access, start.narrow || (access & KEY_WOW64_32KEY) != 0);
    m_transcript.Write("open " + shown + " = " + start.shown + ' ' + Shown(path) + " access " + Hex(access),
                       std::to_string(error) + (null ? " null" : " key"));
}

void CRegistryActs::Create() {
    const Start start = DrawStart();
    const wstr below = DrawPath();
    const wstr path = start.prefix.empty() ? below : start.prefix + W('\\') + below;
    const REGSAM access = m_choice.Of(kMasks) | DrawView(start);
    HKEY key = reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(kMark));
    DWORD disposition = kMark;
    const LSTATUS error = RegCreateKeyExW(start.key, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, access, nullptr,
                                          &key, m_choice.OneIn(20) ? nullptr : &disposition);
    const bool null = !key;
    if (error) key = nullptr;
    const std::string shown = Hold(key, access, start.narrow || (access & KEY_WOW64_32KEY) != 0);
    m_transcript.Write("create " + shown + " = " + start.shown + ' ' + Shown(path) + " access " + Hex(access),
                       std::to_string(error) + (null ? " null " : " key ") + Marked(disposition));
}

void CRegistryActs::OpenUser() {
    const REGSAM access = m_choice.Of(kMasks);
    HKEY key = nullptr;
    const LSTATUS error = RegOpenCurrentUser(access, &key);
    if (error) key = nullptr;
    const std::string shown = Hold(key, access, false);
    m_transcript.Write("open " + shown + " = user access " + Hex(access), std::to_string(error));
}

void CRegistryActs::Close() {
    std::string shown;
    Held& held = DrawHeld(shown);
    if (m_choice.OneIn(6)) {
        m_transcript.Write("close HKLM", std::to_string(RegCloseKey(HKEY_LOCAL_MACHINE)));
        return;
    }
    const LSTATUS error = RegCloseKey(std::exchange(held.key, nullptr));
    m_transcript.Write("close " + shown, std::to_string(error));
}

// Behind the bytes stands no NUL, which some writers would store with a text that lacks one.
std::vector<BYTE> CRegistryActs::DrawData(DWORD type) {
    static constexpr std::size_t kSizes[] = {0, 1, 2, 3, 4, 4, 5, 8, 8, 9, 16, 100, 5000};
    std::vector<BYTE> data;
    const bool text = type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ;
    if (text && m_choice.Below(3) != 0) {
        const wstr& words = m_choice.Of(kComponents);
        const auto* bytes = reinterpret_cast<const BYTE*>(words.c_str());
        data.assign(bytes, bytes + (words.size() + 1) * sizeof(WCHAR));
        if (type == REG_MULTI_SZ) data.insert(data.end(), sizeof(WCHAR), 0);
    } else {
        data.resize(type == REG_DWORD && !m_choice.OneIn(3) ? 4 : m_choice.Of(kSizes));
        for (BYTE& byte : data) byte = static_cast<BYTE>(m_choice.Below(256));
    }
    return data;
}

void CRegistryActs::Set() {
    std::string shown;
    const Held& held = DrawHeld(shown);
    static const wstr kTooLong(16384, W('n'));
    const wstr& name = m_choice.OneIn(40) ? kTooLong : m_choice.Of(kValueNames);
    const bool nullName = m_choice.OneIn(12);
    const DWORD type = m_choice.Of(kTypes);
    const std::vector<BYTE> data = DrawData(type);
    const bool nullData = m_choice.OneIn(12);
    std::vector<BYTE> guarded = data;
    guarded.insert(guarded.end(), 4, kUntouched);
    const LSTATUS error = RegSetValueExW(held.key, nullName ? nullptr : name.c_str(), 0, type,
                                         nullData ? nullptr : guarded.data(), static_cast<DWORD>(data.size()));
    m_transcript.Write("set " + shown + ' ' + Shown(nullName ? nullptr : name.c_str()) + " type " + Hex(type) + ' ' +
                           (nullData ? "null of " + std::to_string(data.size()) : Shown(data)),
                       std::to_string(error));
}

void CRegistryActs::Query() {
    static constexpr DWORD kRooms[] = {0, 1, 2, 4, 8, 10, 64, 6000};
    std::string shown;
    const Held& held = DrawHeld(shown);
    const wstr& name = m_choice.Of(kValueNames);
    const bool nullName = m_choice.OneIn(12);
    const bool noBuffer = m_choice.OneIn(4);
    const bool noSize = m_choice.OneIn(8);
    const DWORD room = m_choice.Of(kRooms);
    std::vector<BYTE> buffer(room + 8, kUntouched);
    DWORD type = kMark;
    DWORD size = room;
    const LSTATUS error = RegQueryValueExW(held.key, nullName ? nullptr : name.c_str(), nullptr, &type,
                                           noBuffer ? nullptr : buffer.data(), noSize ? nullptr : &size);
    m_transcript.Write("query " + shown + ' ' + Shown(nullName ? nullptr : name.c_str()) + " room " +
                           (noBuffer ? "null" : std::to_string(room)) + (noSize ? " without size" : ""),
                       std::to_string(error) + " type " + Marked(type) + " size " + std::to_string(size) + ' ' +
                           Content(buffer, !error && !noBuffer && !noSize, size));
}

void CRegistryActs::DeleteValue() {
    std::string shown;
    const Held& held = DrawHeld(shown);
    const wstr& name = m_choice.Of(kValueNames);
    const LPCWSTR asked = m_choice.OneIn(10) ? nullptr : name.c_str();
    m_transcript.Write("delete value " + shown + ' ' + Shown(asked), std::to_string(RegDeleteValueW(held.key, asked)));
}

void CRegistryActs::DeleteKey() {
    const Start start = DrawStart();
    const wstr below = DrawPath();
    const wstr path = start.prefix.empty() ? below : start.prefix + W('\\') + below;
    const LPCWSTR asked = m_choice.OneIn(15) ? nullptr : path.c_str();
    const bool ex = m_choice.OneIn(2);
    const REGSAM view = ex ? DrawView(start) : 0;
    const LSTATUS error = ex ? RegDeleteKeyExW(start.key, asked, view, 0) : RegDeleteKeyW(start.key, asked);
    m_transcript.Write("delete key " + start.shown + ' ' + Shown(asked) + (ex ? " view " + Hex(view) : ""),
                       std::to_string(error));
}

void CRegistryActs::EnumKeys() {
    static constexpr DWORD kRooms[] = {0, 1, 2, 6, 256, 300};
    std::string shown;
    const Held& held = DrawHeld(shown);
    const DWORD room = m_choice.Of(kRooms);
    std::vector<std::string> items;
    LSTATUS error = ERROR_SUCCESS;
    for (DWORD index = 0; index < kMostItems; ++index) {
        std::vector<WCHAR> name(room + 1, WCHAR{0xEEEE});
        DWORD length = room;
        error = RegEnumKeyExW(held.key, index, name.data(), &length, nullptr, nullptr, nullptr, nullptr);
        if (error && error != ERROR_MORE_DATA) break;
        items.push_back(error ? std::to_string(error) + ' ' + Length(length, room) : Shown(wstr(name.data(), length)));
    }
    m_transcript.Write("keys of " + shown + " room " + std::to_string(room),
                       std::to_string(error) + ' ' + Joined(items));
}

void CRegistryActs::EnumValues() {
    static constexpr DWORD kRooms[] = {0, 1, 2, 6, 400};
    static constexpr DWORD kSizes[] = {0, 1, 4, 64, 6000};
    std::string shown;
    const Held& held = DrawHeld(shown);
    const DWORD room = m_choice.Of(kRooms);
    const DWORD dataRoom = m_choice.Of(kSizes);
    const bool noBuffer = m_choice.OneIn(4);
    const bool noSize = m_choice.OneIn(6);
    std::vector<std::string> items;
    LSTATUS error = ERROR_SUCCESS;
    for (DWORD index = 0; index < kMostItems; ++index) {
        std::vector<WCHAR> name(room + 1, WCHAR{0xEEEE});
        std::vector<BYTE> data(dataRoom + 8, kUntouched);
        DWORD length = room;
        DWORD type = kMark;
        DWORD size = dataRoom;
        error = RegEnumValueW(held.key, index, name.data(), &length, nullptr, &type, noBuffer ? nullptr : data.data(),
                              noSize ? nullptr : &size);
        if (error && error != ERROR_MORE_DATA) break;
        const bool named = length != room;  // else the name did not fit
        items.push_back(std::to_string(error) + ' ' + (named ? Shown(wstr(name.data(), length)) : "room") + " type " +
                        Marked(type) + " size " + std::to_string(size) + ' ' +
                        Content(data, !error && !noBuffer && !noSize, size));
    }
    std::sort(items.begin(), items.end());
    m_transcript.Write("values of " + shown + " room " + std::to_string(room) + ", data " +
                           (noBuffer ? "null" : std::to_string(dataRoom)) + (noSize ? " without size" : ""),
                       std::to_string(error) + ' ' + Joined(items));
}

void CRegistryActs::Info() {
    std::string shown;
    const Held& held = DrawHeld(shown);
    DWORD keys = kMark;
    DWORD longestKey = kMark;
    DWORD values = kMark;
    DWORD longestName = kMark;
    DWORD longestData = kMark;
    const LSTATUS error = RegQueryInfoKeyW(held.key, nullptr, nullptr, nullptr, &keys, &longestKey, nullptr, &values,
                                           &longestName, &longestData, nullptr, nullptr);
    m_transcript.Write("info " + shown, std::to_string(error) + " keys " + Marked(keys) + " of " + Marked(longestKey) +
                                            ", values " + Marked(values) + " of " + Marked(longestName) + ", data " +
                                            Marked(longestData));
}
