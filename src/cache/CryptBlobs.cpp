#include "cache/CryptBlobs.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cstring>
#include <limits>

#include "module/Failure.h"

namespace {

void WriteInteger(CDerWriter& writer, ULONGLONG number, std::size_t length) {
    const std::size_t end = writer.Size();
    writer.Integer(number, length);
    writer.Close(DerTag::kInteger, end);
}

// With a bit more than the number needs, for the sign.
std::size_t LengthOf(ULONGLONG magnitude) noexcept {
    return static_cast<std::size_t>(std::bit_width(magnitude)) / 8 + 1;
}

// 0 for a number of more bytes than `room`.
ULONGLONG NumberFrom(CDerBytes content, std::size_t room) noexcept {
    ULONGLONG number = 0;
    if (content.size() > room) return number;
    for (const BYTE byte : content) number = number << 8 | byte;
    return number;
}

struct StringTag {
    NameValueType type;
    DerTag tag;
};
constexpr StringTag kStringTags[] = {
    {NameValueType::kOctets, DerTag::kOctetString},        {NameValueType::kNumeric, DerTag::kNumericString},
    {NameValueType::kPrintable, DerTag::kPrintableString}, {NameValueType::kTeletex, DerTag::kTeletexString},
    {NameValueType::kVideotex, DerTag::kVideotexString},   {NameValueType::kIA5, DerTag::kIA5String},
    {NameValueType::kGraphic, DerTag::kGraphicString},     {NameValueType::kVisible, DerTag::kVisibleString},
    {NameValueType::kGeneral, DerTag::kGeneralString},     {NameValueType::kBmp, DerTag::kBmpString},
    {NameValueType::kUtf8, DerTag::kUtf8String},
};

WCHAR UnitAt(CDerBytes content, std::size_t i) noexcept {
    return static_cast<WCHAR>(content[2 * i] << 8 | content[2 * i + 1]);
}

wstr FromUtf8Content(CDerBytes content) {
    const int size = static_cast<int>(content.size());
    const auto* bytes = reinterpret_cast<const char*>(content.data());
    wstr text(content.size(), 0);  // no byte makes more than one unit
    const int length = size ? MultiByteToWideChar(CP_UTF8, 0, bytes, size, text.data(), size) : 0;
    text.resize(static_cast<std::size_t>(length));
    return text;
}

// How scanf takes a number: blanks and a plus in front, anything behind; one that is too large is infinite.
bool ScanDouble(std::string_view text, double& out) noexcept {
    const std::size_t begin = text.find_first_not_of(" \t\n\v\f\r");
    if (begin == std::string_view::npos) return false;
    text.remove_prefix(begin);
    if (text.starts_with('+')) {
        text.remove_prefix(1);
        if (text.starts_with('-')) return false;
    }
    const char* const end = text.data() + text.size();
    const std::errc error = std::from_chars(text.data(), end, out).ec;
    if (error != std::errc::result_out_of_range) return error == std::errc();
    // Too small is written with a negative exponent, by whoever writes so many digits.
    const double magnitude = text.find_first_of("-", 1) != text.npos ? 0.0 : std::numeric_limits<double>::infinity();
    out = text.starts_with('-') ? -magnitude : magnitude;
    return true;
}

// Between a GUID and its bytes in network order; the same both ways.
void SwapGuid(const BYTE* from, BYTE* to) noexcept {
    static constexpr std::array<std::size_t, sizeof(GUID)> kPlaces = {3, 2, 1,  0,  5,  4,  7,  6,
                                                                      8, 9, 10, 11, 12, 13, 14, 15};
    for (std::size_t i = 0; i < sizeof(GUID); ++i) to[i] = from[kPlaces[i]];
}

}  // namespace

void COVAnyBlob::Write(CDerWriter& writer, CDerBytes bytes) {
    const std::size_t end = writer.Size();
    writer.Bytes(bytes);
    writer.Close(DerTag::kOctetString, end);
}

bool COVAnyBlob::Read(CDerBytes element, CDerBytes& out) noexcept {
    const std::optional<CDerBytes> content = ReadContent(element, DerTag::kOctetString);
    if (content) out = *content;
    return content.has_value();
}

void COVGUIDBlob::Write(CDerWriter& writer, const GUID& id) {
    BYTE bytes[sizeof id];
    SwapGuid(reinterpret_cast<const BYTE*>(&id), bytes);
    COVAnyBlob::Write(writer, bytes);
}

bool COVGUIDBlob::Read(CDerBytes element, GUID& out) noexcept {
    CDerBytes bytes;
    if (!COVAnyBlob::Read(element, bytes)) return false;
    out = {};
    if (bytes.size() == sizeof out) SwapGuid(bytes.data(), reinterpret_cast<BYTE*>(&out));
    return true;
}

void COVIntBlob::Write(CDerWriter& writer, LONG number) {
    WriteInteger(writer, static_cast<DWORD>(number), LengthOf(static_cast<DWORD>(number < 0 ? ~number : number)));
}

bool COVIntBlob::Read(CDerBytes element, LONG& out) noexcept {
    const std::optional<CDerBytes> content = ReadContent(element, DerTag::kInteger);
    if (!content) return false;
    out = static_cast<LONG>(NumberFrom(*content, sizeof out));
    return true;
}

void COVULongBlob::Write(CDerWriter& writer, ULONGLONG number) {
    WriteInteger(writer, number, LengthOf(number));
}

bool COVULongBlob::Read(CDerBytes element, ULONGLONG& out, std::size_t room) noexcept {
    std::optional<CDerBytes> content = ReadContent(element, DerTag::kInteger);
    if (!content) return false;
    // The byte in front of a set top bit is no part of the number.
    if (!content->empty() && content->front() == 0) content = content->subspan(1);
    out = NumberFrom(*content, room);
    return true;
}

bool ReadNameValue(CDerBytes element, CNameValue& out) noexcept {
    const std::optional<DerElement> read = ReadElement(element);
    if (!read) return false;
    const auto* known = std::find_if(std::begin(kStringTags), std::end(kStringTags),
                                     [&](const StringTag& entry) { return entry.tag == read->tag; });
    if (known == std::end(kStringTags)) return false;
    out = {known->type, read->content};
    return true;
}

void COVWStrBlob::Write(CDerWriter& writer, const WCHAR* text, std::size_t length) {
    const std::size_t end = writer.Size();
    if (text) {
        constexpr WCHAR kNul = 0;
        writer.Units(&kNul, 1);
        writer.Units(text, length);
    }
    writer.Close(DerTag::kBmpString, end);
}

bool COVWStrBlob::Read(CDerBytes element, wstr& out) {
    CNameValue value;
    if (!ReadNameValue(element, value) || value.type == NameValueType::kOctets) return false;
    if (value.type == NameValueType::kBmp) {
        out.resize(value.content.size() / sizeof(WCHAR));  // an odd byte at the end is nobody's
        for (std::size_t i = 0; i < out.size(); ++i) out[i] = UnitAt(value.content, i);
    } else if (value.type == NameValueType::kUtf8) {
        out = FromUtf8Content(value.content);
    } else {
        out.assign(value.content.begin(), value.content.end());
    }
    if (const std::size_t nul = out.find(WCHAR{0}); nul != wstr::npos) out.resize(nul);
    return true;
}

void COVDoubleBlob::Write(CDerWriter& writer, double number) {
    char text[128];
    // "%1.24lg", whatever the locale of the host
    const auto done = std::to_chars(text, text + sizeof text - 1, number, std::chars_format::general, 24);
    *done.ptr = 0;
    const std::size_t end = writer.Size();
    writer.Bytes({reinterpret_cast<const BYTE*>(text), static_cast<std::size_t>(done.ptr - text) + 1});
    writer.Close(DerTag::kIA5String, end);
}

bool COVDoubleBlob::Read(CDerBytes element, double& out) {
    CNameValue value;
    if (!ReadNameValue(element, value)) return false;
    std::string text;
    if (value.type == NameValueType::kBmp) {
        for (std::size_t i = 0; i < value.content.size() / sizeof(WCHAR); ++i) {
            const WCHAR unit = UnitAt(value.content, i);
            text += unit > 0x7F ? '\0' : static_cast<char>(unit);
        }
    } else if (value.type >= NameValueType::kNumeric && value.type <= NameValueType::kVisible) {
        text.assign(value.content.begin(), value.content.end());
    }
    double number = out;
    if (!ScanDouble(text.c_str(), number)) return false;
    out = number;
    return true;
}
