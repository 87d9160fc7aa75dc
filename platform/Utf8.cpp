#include "Utf8.h"

char32_t NextUtf8(const char*& at, const char* end) noexcept {
    const auto first = static_cast<unsigned char>(*at++);
    if (first < 0x80) return first;
    // The second byte of some leads has narrower bounds: they keep overlong forms and surrogates out.
    unsigned char low = 0x80;
    unsigned char high = 0xBF;
    int more = 0;
    char32_t point = 0;
    if (first >= 0xC2 && first <= 0xDF) {
        more = 1;
        point = first & 0x1F;
    } else if (first >= 0xE0 && first <= 0xEF) {
        more = 2;
        point = first & 0x0F;
        if (first == 0xE0) low = 0xA0;
        if (first == 0xED) high = 0x9F;
    } else if (first >= 0xF0 && first <= 0xF4) {
        more = 3;
        point = first & 0x07;
        if (first == 0xF0) low = 0x90;
        if (first == 0xF4) high = 0x8F;
    } else {
        return kBadText;
    }
    for (; more > 0; --more) {
        if (at == end) return kBadText;
        const auto next = static_cast<unsigned char>(*at);
        if (next < low || next > high) return kBadText;
        point = (point << 6) | (next & 0x3F);
        low = 0x80;
        high = 0xBF;
        ++at;
    }
    return point;
}

std::size_t PutUtf8(char32_t point, char* out) noexcept {
    const auto tail = [point](int shift) { return static_cast<char>(0x80 | ((point >> shift) & 0x3F)); };
    if (point < 0x80) {
        out[0] = static_cast<char>(point);
        return 1;
    }
    if (point < 0x800) {
        out[0] = static_cast<char>(0xC0 | (point >> 6));
        out[1] = tail(0);
        return 2;
    }
    if (point < 0x10000) {
        out[0] = static_cast<char>(0xE0 | (point >> 12));
        out[1] = tail(6);
        out[2] = tail(0);
        return 3;
    }
    out[0] = static_cast<char>(0xF0 | (point >> 18));
    out[1] = tail(12);
    out[2] = tail(6);
    out[3] = tail(0);
    return 4;
}

std::size_t PutUtf16(char32_t point, char16_t* out) noexcept {
    if (point < 0x10000) {
        out[0] = static_cast<char16_t>(point);
        return 1;
    }
    out[0] = static_cast<char16_t>(0xD800 + ((point - 0x10000) >> 10));
    out[1] = static_cast<char16_t>(0xDC00 + ((point - 0x10000) & 0x3FF));
    return 2;
}

std::string ToUtf8(std::u16string_view text) {
    std::string out;
    out.reserve(text.size());
    const char16_t* at = text.data();
    const char16_t* end = at + text.size();
    while (at != end) {
        const char32_t point = NextUtf16(at, end);
        char bytes[4];
        out.append(bytes, PutUtf8(point == kBadText ? kReplacement : point, bytes));
    }
    return out;
}

std::u16string FromUtf8(std::string_view text) {
    std::u16string out;
    out.reserve(text.size());
    const char* at = text.data();
    const char* end = at + text.size();
    while (at != end) {
        const char32_t point = NextUtf8(at, end);
        char16_t units[2];
        out.append(units, PutUtf16(point == kBadText ? kReplacement : point, units));
    }
    return out;
}
