#include "diagnostics/Format.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <string_view>

namespace OVFormat {

namespace {

constexpr int kMaxPrecision = 340;
constexpr std::size_t kNumberRoom = 700;  // 309 digits, point, kMaxPrecision digits

// Counts everything, keeps what fits.
class CText {
  public:
    CText(WCHAR* out, std::size_t room) noexcept : m_out(out), m_room(room) {}

    void Put(WCHAR unit) noexcept {
        if (m_length < m_room) m_out[m_length] = unit;
        ++m_length;
    }
    void Put(std::string_view text) noexcept {
        for (const char c : text) Put(Widened(c));
    }
    void Repeat(char filler, std::size_t times) noexcept {
        const std::size_t fitting = m_length < m_room ? std::min(times, m_room - m_length) : 0;
        std::fill_n(m_out + m_length, fitting, Widened(filler));
        m_length += times;
    }
    int Result() const noexcept { return m_length <= m_room ? static_cast<int>(m_length) : -1; }

    static WCHAR Widened(char c) noexcept { return static_cast<WCHAR>(static_cast<unsigned char>(c)); }
    static WCHAR Widened(WCHAR unit) noexcept { return unit; }

  private:
    WCHAR* m_out;
    std::size_t m_room;
    std::size_t m_length = 0;
};

// Hands out the arguments in order; null when there are no more.
class CArguments {
  public:
    explicit CArguments(std::span<const CArgument> arguments) noexcept : m_left(arguments) {}

    const CArgument* Next() noexcept {
        if (m_left.empty()) return nullptr;
        const CArgument* argument = &m_left.front();
        m_left = m_left.subspan(1);
        return argument;
    }

  private:
    std::span<const CArgument> m_left;
};

bool IsInteger(const CArgument& argument) noexcept {
    return argument.Type() == Kind::kInteger || argument.Type() == Kind::kLongInteger;
}

bool IsAddress(const CArgument& argument) noexcept {
    return !IsInteger(argument) && argument.Type() != Kind::kDouble;
}

// A width or precision among the arguments.
int NextNumber(CArguments& arguments, int otherwise) noexcept {
    const CArgument* argument = arguments.Next();
    if (!argument || !IsInteger(*argument)) return otherwise;
    return std::clamp(static_cast<int>(static_cast<LONG>(argument->Integer())), -0xFFFF, 0xFFFF);
}

// Sign or prefix, leading zeros, body; padded to the width. Zeros of the padding stand behind the sign.
void PutPadded(CText& text, const Conversion& conversion, std::string_view head, std::size_t zeros,
               std::string_view body) noexcept {
    const auto width = static_cast<std::size_t>(conversion.width);
    const std::size_t length = head.size() + zeros + body.size();
    const std::size_t padding = width > length ? width - length : 0;
    if (!conversion.left && !conversion.zeros) text.Repeat(' ', padding);
    text.Put(head);
    if (!conversion.left && conversion.zeros) text.Repeat('0', padding);
    text.Repeat('0', zeros);
    text.Put(body);
    if (conversion.left) text.Repeat(' ', padding);
}

template <class Unit>
void PutText(CText& text, const Conversion& conversion, const Unit* body, std::size_t length) noexcept {
    const auto width = static_cast<std::size_t>(conversion.width);
    const std::size_t padding = width > length ? width - length : 0;
    if (!conversion.left) text.Repeat(conversion.zeros ? '0' : ' ', padding);
    for (std::size_t i = 0; i < length; ++i) text.Put(CText::Widened(body[i]));
    if (conversion.left) text.Repeat(' ', padding);
}

// The length of a text that the precision may cut, and then need not end in NUL.
template <class Unit>
std::size_t LengthOf(const Unit* text, int precision) noexcept {
    std::size_t length = 0;
    while ((precision < 0 || length < static_cast<std::size_t>(precision)) && text[length] != 0) ++length;
    return length;
}

std::string_view SignOf(const Conversion& conversion, bool negative) noexcept {
    return negative ? "-" : conversion.plus ? "+" : conversion.blank ? " " : "";
}

// The value in the width of the conversion, extended to 64 bits by its sign.
ULONGLONG Extended(ULONGLONG value, const Conversion& conversion) noexcept {
    if (KindTaken(conversion) == Kind::kLongInteger) return value;
    if (conversion.size == Conversion::Size::kShort) {
        return static_cast<ULONGLONG>(static_cast<LONGLONG>(static_cast<SHORT>(value)));
    }
    return static_cast<ULONGLONG>(static_cast<LONGLONG>(static_cast<LONG>(value)));
}

ULONGLONG Truncated(ULONGLONG value, const Conversion& conversion) noexcept {
    if (KindTaken(conversion) == Kind::kLongInteger) return value;
    return conversion.size == Conversion::Size::kShort ? static_cast<USHORT>(value) : static_cast<DWORD>(value);
}

void PutInteger(CText& text, Conversion conversion, ULONGLONG value) noexcept {
    const bool isSigned = conversion.letter == 'd' || conversion.letter == 'i';
    const bool isHex = conversion.letter == 'x' || conversion.letter == 'X';
    const int base = isHex ? 16 : conversion.letter == 'o' ? 8 : 10;
    std::string_view head;
    if (isSigned) {
        value = Extended(value, conversion);
        const bool negative = static_cast<LONGLONG>(value) < 0;
        if (negative) value = 0 - value;
        head = SignOf(conversion, negative);
    } else {
        value = Truncated(value, conversion);
        if (conversion.alternate && isHex && value != 0) head = conversion.letter == 'x' ? "0x" : "0X";
    }
    char digits[24];
    char* end = std::to_chars(digits, digits + sizeof digits, value, base).ptr;
    if (value == 0 && conversion.precision == 0) end = digits;
    if (conversion.letter == 'X') {
        std::transform(digits, end, digits, [](char c) { return c >= 'a' ? static_cast<char>(c - 32) : c; });
    }
    const auto count = static_cast<std::size_t>(end - digits);
    std::size_t zeros = 0;
    if (conversion.precision >= 0) {
        conversion.zeros = false;
        const auto least = static_cast<std::size_t>(conversion.precision);
        zeros = least > count ? least - count : 0;
    }
    if (conversion.letter == 'o' && conversion.alternate && zeros == 0 && (count == 0 || digits[0] != '0')) zeros = 1;
    PutPadded(text, conversion, head, zeros, {digits, count});
}

void PutPointer(CText& text, Conversion conversion, const void* pointer) noexcept {
    conversion.letter = 'X';
    conversion.size = Conversion::Size::kPointer;
    conversion.precision = 2 * sizeof pointer;
    conversion.alternate = false;
    PutInteger(text, conversion, reinterpret_cast<ULONG_PTR>(pointer));
}

// The exponent in three digits, as the older run-time writes it.
char* WidenExponent(char* begin, char* end) noexcept {
    char* exponent = std::find(begin, end, 'e');
    if (end - exponent != 4) return end;
    exponent[4] = exponent[3];
    exponent[3] = exponent[2];
    exponent[2] = '0';
    return end + 1;
}

void PutDouble(CText& text, Conversion conversion, double number) noexcept {
    const char kind = static_cast<char>(conversion.letter | 0x20);
    const int precision = std::min(conversion.precision < 0 ? 6 : conversion.precision, kMaxPrecision);
    const std::string_view head = SignOf(conversion, std::signbit(number));
    if (!std::isfinite(number)) {
        const std::string_view body = std::isinf(number) ? "1.#INF" : std::signbit(number) ? "1.#IND" : "1.#QNAN";
        const std::size_t wanted = kind == 'g' ? 0 : static_cast<std::size_t>(precision) + 2;
        char padded[kNumberRoom];
        const std::size_t length = std::max(body.size(), wanted);
        std::fill_n(padded, length, '0');
        body.copy(padded, body.size());
        return PutPadded(text, conversion, head, 0, {padded, length});
    }
    const auto style = kind == 'e'   ? std::chars_format::scientific
                       : kind == 'f' ? std::chars_format::fixed
                                     : std::chars_format::general;
    char body[kNumberRoom];
    char* end = std::to_chars(body, body + sizeof body - 1, std::fabs(number), style, precision).ptr;
    end = WidenExponent(body, end);
    if (conversion.letter != kind) std::replace(body, end, 'e', 'E');
    PutPadded(text, conversion, head, 0, {body, static_cast<std::size_t>(end - body)});
}

void PutCharacter(CText& text, const Conversion& conversion, ULONGLONG value) noexcept {
    const bool narrow = conversion.size == Conversion::Size::kShort ||
                        (conversion.letter == 'C' && conversion.size == Conversion::Size::kNone);
    const WCHAR unit = narrow ? static_cast<WCHAR>(static_cast<BYTE>(value)) : static_cast<WCHAR>(value);
    PutText(text, conversion, &unit, 1);
}

// What the argument is decides over its text; the conversion says the same, or the format was not checked.
void PutString(CText& text, const Conversion& conversion, const CArgument& argument) noexcept {
    if (!argument.Pointer()) {
        const char* null = "(null)";
        PutText(text, conversion, null, LengthOf(null, conversion.precision));
    } else if (argument.Type() == Kind::kNarrowText) {
        PutText(text, conversion, argument.Narrow(), LengthOf(argument.Narrow(), conversion.precision));
    } else if (argument.Type() == Kind::kWideText) {
        PutText(text, conversion, argument.Wide(), LengthOf(argument.Wide(), conversion.precision));
    }
}

void PutConversion(CText& text, Conversion conversion, CArguments& arguments) noexcept {
    if (conversion.widthArgument) {
        conversion.width = NextNumber(arguments, 0);
        if (conversion.width < 0) {
            conversion.left = true;
            conversion.width = -conversion.width;
        }
    }
    if (conversion.precisionArgument) conversion.precision = NextNumber(arguments, -1);
    const Kind taken = KindTaken(conversion);
    const CArgument* argument = arguments.Next();
    if (!argument) return;
    switch (taken) {
        case Kind::kInteger:
        case Kind::kLongInteger:
            if (!IsInteger(*argument)) return;
            if (conversion.letter == 'c' || conversion.letter == 'C') {
                return PutCharacter(text, conversion, argument->Integer());
            }
            return PutInteger(text, conversion, argument->Integer());
        case Kind::kDouble:
            if (argument->Type() == Kind::kDouble) PutDouble(text, conversion, argument->Number());
            return;
        case Kind::kPointer:
            if (IsAddress(*argument)) PutPointer(text, conversion, argument->Pointer());
            return;
        default:
            if (IsAddress(*argument)) PutString(text, conversion, *argument);
            return;
    }
}

template <class Unit>
int FormatUnits(WCHAR* out, std::size_t room, const Unit* format, std::span<const CArgument> given) noexcept {
    CText text(out, room);
    CArguments arguments(given);
    while (*format) {
        if (*format != Unit{'%'}) {
            text.Put(CText::Widened(*format++));
            continue;
        }
        Conversion conversion;
        const Unit* const next = ReadConversion(format + 1, conversion);
        if (conversion.letter != 0 && KindTaken(conversion) == Kind::kNone) {
            text.Put(CText::Widened(next[-1]));  // also the second of two percent signs
        } else if (conversion.letter != 0) {
            PutConversion(text, conversion, arguments);
        }
        format = next;
    }
    return text.Result();
}

template <class Unit>
std::size_t CutUnits(WCHAR* out, std::size_t room, const Unit* format, std::span<const CArgument> given) noexcept {
    const int length = FormatUnits(out, room - 1, format, given);
    const std::size_t kept = length < 0 ? room - 1 : static_cast<std::size_t>(length);
    out[kept] = 0;
    return kept;
}

}  // namespace

const void* CArgument::Pointer() const noexcept {
    switch (m_kind) {
        case Kind::kNarrowText:
            return m_value.narrow;
        case Kind::kWideText:
            return m_value.wide;
        case Kind::kPointer:
            return m_value.pointer;
        default:
            return nullptr;
    }
}

int FormatInto(WCHAR* out, std::size_t room, const char* format, std::span<const CArgument> arguments) noexcept {
    return FormatUnits(out, room, format, arguments);
}

int FormatInto(WCHAR* out, std::size_t room, const WCHAR* format, std::span<const CArgument> arguments) noexcept {
    return FormatUnits(out, room, format, arguments);
}

std::size_t FormatCut(WCHAR* out, std::size_t room, const char* format, std::span<const CArgument> arguments) noexcept {
    return CutUnits(out, room, format, arguments);
}

std::size_t FormatCut(WCHAR* out, std::size_t room, const WCHAR* format,
                      std::span<const CArgument> arguments) noexcept {
    return CutUnits(out, room, format, arguments);
}

}  // namespace OVFormat
