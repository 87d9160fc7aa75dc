#include "svinfo/Items.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <utility>

#include "store/PolicyValue.h"
#include "svinfo/Failure.h"
#include "svinfo/Text.h"

namespace {

std::string TextOf(const OV_SERVER_VALUE& value) {
    const LPCWSTR text = OvServerValueText(value);
    return text ? ToUtf8(text) : std::string();
}

std::string LineOf(const OV_SERVER_VALUE& value) {
    switch (value.type) {
        case OV_TYPE_STRING:
            return TextOf(value);
        case OV_TYPE_DWORD:
            return std::to_string(static_cast<DWORD>(value.data));
        default:
            return "0x" + MaskDigits(value.data);
    }
}

json JsonOf(const OV_SERVER_VALUE& value) {
    switch (value.type) {
        case OV_TYPE_STRING:
            return TextOf(value);
        case OV_TYPE_DWORD:
            return static_cast<DWORD>(value.data);
        default:
            return MaskDigits(value.data);
    }
}

std::vector<OV_SERVER_VALUE> ElementsOf(const OV_SERVER_VALUE& value) {
    const DWORD count = value.items ? static_cast<DWORD>(value.data) : 0;
    return {value.items, value.items + count};
}

}  // namespace

CItem::CItem(CItem&& other) noexcept
    : m_name(std::move(other.m_name)), m_result(other.m_result), m_value(std::exchange(other.m_value, {})) {}

CItem& CItem::operator=(CItem&& other) noexcept {
    std::swap(m_name, other.m_name);
    std::swap(m_result, other.m_result);
    std::swap(m_value, other.m_value);
    return *this;
}

CItem::~CItem() {
    OvFreeServerValue(m_value);
}

void CItem::Take(const OV_SERVER_INFO_EX& record) noexcept {
    m_result = record.hr;
    // A record that failed may name a type, but owns nothing.
    if (SUCCEEDED(record.hr)) m_value = record.value;
}

void CItem::Copy(const OV_SERVER_VALUE& value, HRESULT result) {
    CPolicyItem item;
    item.value.Assign(value);
    OvFreeServerValue(std::exchange(m_value, {}));
    m_result = FAILED(result) ? result : CopyValueOut(item, m_value);
    if (SUCCEEDED(m_result)) {
        m_result = result;
    } else {
        m_value = {};  // a type that does not cross the interfaces has no value to show
    }
}

ItemState CItem::State() const noexcept {
    if (m_result == HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND)) return ItemState::Absent;
    if (FAILED(m_result)) return ItemState::Error;
    return m_result == S_OK ? ItemState::Managed : ItemState::Local;
}

const char* CItem::TypeName() const noexcept {
    switch (m_value.type) {
        case OV_TYPE_STRING:
            return "string";
        case OV_TYPE_DWORD:
            return "dword";
        case OV_TYPE_QWORD:
            return "qword";
        case OV_TYPE_ARRAY:
            return "array";
        default:
            return "null";
    }
}

std::vector<std::string> CItem::Lines() const {
    std::vector<std::string> lines;
    if (m_value.type == OV_TYPE_ARRAY) {
        for (const OV_SERVER_VALUE& element : ElementsOf(m_value)) lines.push_back(LineOf(element));
    } else if (m_value.type != OV_TYPE_NONE) {
        lines.push_back(LineOf(m_value));
    }
    return lines;
}

json CItem::Json() const {
    if (m_value.type == OV_TYPE_NONE) return nullptr;
    if (m_value.type != OV_TYPE_ARRAY) return JsonOf(m_value);
    json elements = json::array();
    for (const OV_SERVER_VALUE& element : ElementsOf(m_value)) elements.push_back(JsonOf(element));
    return elements;
}

const char* StateName(ItemState state) noexcept {
    switch (state) {
        case ItemState::Managed:
            return "managed";
        case ItemState::Local:
            return "local";
        case ItemState::Absent:
            return "absent";
        case ItemState::Error:
            break;
    }
    return "error";
}

Tone ToneOf(ItemState state) noexcept {
    switch (state) {
        case ItemState::Managed:
            return Tone::Good;
        case ItemState::Local:
            return Tone::Plain;
        case ItemState::Absent:
            return Tone::Notice;
        case ItemState::Error:
            break;
    }
    return Tone::Bad;
}

std::vector<CItem> AskItems(IOVServerInfo& info, const std::vector<wstr>& names, HRESULT request) {
    std::vector<CItem> items;
    items.reserve(names.size());
    for (const wstr& name : names) items.emplace_back(name);
    std::vector<OV_SERVER_INFO_EX> records(names.size());
    for (std::size_t i = 0; i < names.size(); ++i) {
        records[i].name = names[i].c_str();
        records[i].hr = request;
    }
    const HRESULT hr = info.GetInfo(static_cast<DWORD>(records.size()), records.data());
    if (FAILED(hr)) throw CCommandFailure(ExitCode::Failed, FailureOf("ask the component", hr).Line());
    for (std::size_t i = 0; i < names.size(); ++i) items[i].Take(records[i]);
    return items;
}

wstr ItemNameArgument(const std::string& argument) {
    wstr name = WideArgument(argument, "NAME");
    if (name.find(W('\\')) == wstr::npos) std::replace(name.begin(), name.end(), W('/'), W('\\'));
    return name;
}

json ItemJson(const CItem& item) {
    char hr[16];
    std::snprintf(hr, sizeof hr, "0x%08X", static_cast<unsigned>(item.Result()));
    return json{{"name", ToUtf8(item.Name())},
                {"type", item.TypeName()},
                {"value", item.Json()},
                {"state", StateName(item.State())},
                {"hr", hr}};
}

std::string MaskDigits(ULONGLONG mask) {
    char digits[20];
    std::snprintf(digits, sizeof digits, "%016llX", mask);
    return digits;
}
