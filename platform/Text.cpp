#include "win/text.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include <bit>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <limits>
#include <string>

#include "Upcase.h"
#include "Utf8.h"

namespace {

constexpr UINT kAnsi = 1252;

// Code page 1252 is Latin-1 but for these. The five bytes that it leaves open stay control characters.
constexpr char16_t kAnsiFrom80[32] = {0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                      0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
                                      0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                      0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

constexpr int kNoByte = -1;

int AnsiByte(char32_t point) noexcept {
    if (point < 0x80 || (point >= 0xA0 && point < 0x100)) return static_cast<int>(point);
    for (int i = 0; i < 32; ++i) {
        if (kAnsiFrom80[i] == point) return 0x80 + i;
    }
    return kNoByte;
}

// Takes the output piece by piece, and no piece in part. Without room it only counts.
template <class Unit>
class COutput {
  public:
    COutput(Unit* out, int room) noexcept : m_out(out), m_room(static_cast<std::size_t>(room)) {}

    // False when the piece does not fit; what stands before it stays.
    bool Put(const Unit* piece, std::size_t size) noexcept {
        if (m_room != 0) {
            if (size > m_room - m_used) return false;
            for (std::size_t i = 0; i < size; ++i) m_out[m_used + i] = piece[i];
        }
        m_used += size;
        return m_used <= INT_MAX;
    }
    int Used() const noexcept { return static_cast<int>(m_used); }

  private:
    Unit* m_out;
    std::size_t m_room;
    std::size_t m_used = 0;
};

int Failed(DWORD error) noexcept {
    SetLastError(error);
    return 0;
}

// What both directions ask of their arguments; 0 or the error. Sets the code page that is meant.
DWORD Check(UINT& codePage, DWORD flags, DWORD strictFlag, const void* text, int length, const void* out,
            int room) noexcept {
    if (!text || length == 0 || room < 0 || (room != 0 && !out) || text == out) return ERROR_INVALID_PARAMETER;
    if (codePage == CP_ACP || codePage == CP_THREAD_ACP) codePage = kAnsi;
    if (codePage != kAnsi && codePage != CP_UTF8) return ERROR_INVALID_PARAMETER;
    return (flags & ~strictFlag) != 0 ? ERROR_INVALID_FLAGS : ERROR_SUCCESS;
}

// The end of counted text, or of text with its NUL, which is part of it then.
template <class Unit>
const Unit* EndOf(const Unit* text, int length) noexcept {
    return text + (length < 0 ? std::char_traits<Unit>::length(text) + 1 : static_cast<std::size_t>(length));
}

int Base36(WCHAR unit) noexcept {
    if (unit >= u'0' && unit <= u'9') return unit - u'0';
    if (unit >= u'A' && unit <= u'Z') return unit - u'A' + 10;
    if (unit >= u'a' && unit <= u'z') return unit - u'a' + 10;
    return 36;
}

bool IsBlank(WCHAR unit) noexcept {
    return unit == u' ' || (unit >= u'\t' && unit <= u'\r');
}

template <class Number>
Number ReadNumber(const WCHAR* text, WCHAR** end, int base) noexcept {
    if (end) *end = const_cast<WCHAR*>(text);
    if (base < 0 || base == 1 || base > 36) {
        errno = EINVAL;
        return 0;
    }
    const WCHAR* at = text;
    while (IsBlank(*at)) ++at;
    const bool negative = *at == u'-';
    if (negative || *at == u'+') ++at;
    const bool hexPrefix = at[0] == u'0' && (at[1] == u'x' || at[1] == u'X');
    if ((base == 0 || base == 16) && hexPrefix) {
        at += 2;  // with no digit behind it there is no number at all, not even the 0
        base = 16;
    } else if (base == 0) {
        base = *at == u'0' ? 8 : 10;
    }
    const auto unsignedBase = static_cast<Number>(base);
    constexpr Number kMost = std::numeric_limits<Number>::max();
    const WCHAR* const digits = at;
    Number number = 0;
    bool overflow = false;
    for (int digit = Base36(*at); digit < base; digit = Base36(*++at)) {
        Number grown;
        overflow = __builtin_mul_overflow(number, unsignedBase, &grown) || overflow;
        overflow = __builtin_add_overflow(grown, static_cast<Number>(digit), &number) || overflow;
    }
    if (at == digits) return 0;
    if (end) *end = const_cast<WCHAR*>(at);
    if (overflow) {
        errno = ERANGE;
        number = kMost;  // negated like any other number
    }
    return negative ? static_cast<Number>(Number{0} - number) : number;
}

}  // namespace

int WINAPI MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR text, int length, LPWSTR out, int room) {
    if (const DWORD error = Check(codePage, flags, MB_ERR_INVALID_CHARS, text, length, out, room)) return Failed(error);
    const char* at = text;
    const char* const end = EndOf(text, length);
    COutput<WCHAR> output(out, room);
    while (at != end) {
        char32_t point;
        if (codePage == CP_UTF8) {
            point = NextUtf8(at, end);
            if (point == kBadText) {
                if (flags & MB_ERR_INVALID_CHARS) return Failed(ERROR_NO_UNICODE_TRANSLATION);
                point = kReplacement;
            }
        } else {
            const auto byte = static_cast<unsigned char>(*at++);
            point = byte >= 0x80 && byte < 0xA0 ? kAnsiFrom80[byte - 0x80] : char16_t{byte};
        }
        WCHAR units[2];
        if (!output.Put(units, PutUtf16(point, units))) return Failed(ERROR_INSUFFICIENT_BUFFER);
    }
    return output.Used();
}

int WINAPI WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR text, int length, LPSTR out, int room,
                               LPCSTR defaultChar, LPBOOL usedDefault) {
    if (const DWORD error = Check(codePage, flags, WC_ERR_INVALID_CHARS, text, length, out, room)) return Failed(error);
    const bool utf8 = codePage == CP_UTF8;
    if (utf8 && (defaultChar || usedDefault)) return Failed(ERROR_INVALID_PARAMETER);
    if (!utf8 && flags != 0) return Failed(ERROR_INVALID_FLAGS);
    if (usedDefault) *usedDefault = FALSE;
    const WCHAR* at = text;
    const WCHAR* const end = EndOf(text, length);
    COutput<char> output(out, room);
    while (at != end) {
        char bytes[4];
        std::size_t size = 1;
        if (utf8) {
            char32_t point = NextUtf16(at, end);
            if (point == kBadText) {
                if (flags & WC_ERR_INVALID_CHARS) return Failed(ERROR_NO_UNICODE_TRANSLATION);
                point = kReplacement;
            }
            size = PutUtf8(point, bytes);
        } else {
            const int byte = AnsiByte(*at++);
            if (byte == kNoByte && usedDefault) *usedDefault = TRUE;
            bytes[0] = byte != kNoByte ? static_cast<char>(byte) : defaultChar ? *defaultChar : '?';
        }
        if (!output.Put(bytes, size)) return Failed(ERROR_INSUFFICIENT_BUFFER);
    }
    return output.Used();
}

#if defined(__SSE2__) && !defined(OV_SANITIZED)

// Eight units at a time. A block that is aligned never lies in two pages, so that what is read beyond the end can be
// read.
std::size_t wcslen(const WCHAR* text) noexcept {
    const auto address = reinterpret_cast<std::uintptr_t>(text);
    if (address % sizeof(WCHAR) != 0) return std::char_traits<WCHAR>::length(text);
    const auto* block = reinterpret_cast<const __m128i*>(address & ~std::uintptr_t{15});
    const auto ends = [&] {
        return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi16(_mm_load_si128(block), _mm_setzero_si128())));
    };
    if (const unsigned first = ends() >> (address & 15)) return static_cast<std::size_t>(std::countr_zero(first)) / 2;
    for (;;) {
        ++block;
        if (const unsigned found = ends()) {
            const auto at = reinterpret_cast<std::uintptr_t>(block) + static_cast<unsigned>(std::countr_zero(found));
            return (at - address) / 2;
        }
    }
}

#else

std::size_t wcslen(const WCHAR* text) noexcept {
    return std::char_traits<WCHAR>::length(text);
}

#endif

int _wcsicmp(const WCHAR* a, const WCHAR* b) noexcept {
    const auto lower = [](WCHAR unit) -> int { return unit >= u'A' && unit <= u'Z' ? unit + 32 : unit; };
    for (;; ++a, ++b) {
        const int difference = lower(*a) - lower(*b);
        if (difference != 0 || *a == 0) return difference;
    }
}

DWORD WINAPI CharLowerBuffW(LPWSTR text, DWORD length) {
    for (DWORD i = 0; i < length; ++i) text[i] = OvDowncase(text[i]);
    return length;
}

ULONG wcstoul(const WCHAR* text, WCHAR** end, int base) noexcept {
    return ReadNumber<ULONG>(text, end, base);
}

unsigned long long wcstoull(const WCHAR* text, WCHAR** end, int base) noexcept {
    return ReadNumber<unsigned long long>(text, end, base);
}
