// UTF-8 and 16-bit text, inside the layer: paths of this system, and the code page 65001.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// What stands for text that cannot be read.
inline constexpr char32_t kReplacement = 0xFFFD;
// What the two readers below give for it; no code point.
inline constexpr char32_t kBadText = 0xFFFFFFFF;

// Reads one code point and moves `at` behind it; at < end. Of a damaged sequence the part that began well is taken, at
// least one byte, and the result is kBadText. Overlong forms, surrogates and numbers above 10FFFF are damage.
char32_t NextUtf8(const char*& at, const char* end) noexcept;

// Reads one code point and moves `at` behind it; at < end. A lone surrogate gives kBadText.
inline char32_t NextUtf16(const char16_t*& at, const char16_t* end) noexcept {
    const char32_t first = *at++;
    if (first < 0xD800 || first > 0xDFFF) return first;
    if (first > 0xDBFF || at == end || *at < 0xDC00 || *at > 0xDFFF) return kBadText;
    return 0x10000 + ((first - 0xD800) << 10) + (static_cast<char32_t>(*at++) - 0xDC00);
}

// Write one code point, at most 4 bytes or 2 units; give how many.
std::size_t PutUtf8(char32_t point, char* out) noexcept;
std::size_t PutUtf16(char32_t point, char16_t* out) noexcept;

// Whole texts. What cannot be read becomes U+FFFD.
std::string ToUtf8(std::u16string_view text);
std::u16string FromUtf8(std::string_view text);
