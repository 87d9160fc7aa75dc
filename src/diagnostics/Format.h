// The formatter of trace messages and event texts: printf formats with the platform's widths, into wide text.
//
//   WCHAR text[100];
//   OVFormat::Format(text, 100, "%ls = 0x%016I64X", name, mask);
//
// Format       narrow text; its bytes beyond ASCII are widened as they are.
// Integers     d i u o x X, 32 bits with no prefix, l or I32; 64 bits with I64, ll or j; the size of a pointer with
//              I, t or z; h keeps 16 bits. p is a pointer in 16 upper-case digits.
// Text         ls, ws and s take wide text, hs and S narrow text, each byte of which is widened as it is. Null prints
//              (null). lc and c take a wide character, hc and C a narrow one; a character 0 goes into the output.
// Numbers      e f g with an exponent of three digits, at most 340 digits behind the point.
// Others       an unknown letter prints itself and takes no argument; a lone percent sign at the end prints nothing.
// Arguments    collected with their types, so that a conversion is checked against its argument when it is compiled. In
//              formats known at run time only, a conversion without a fitting argument prints nothing.
// Cost         no heap, no locale, no exception.
#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <span>
#include <type_traits>

#include "Platform.h"

namespace OVFormat {

enum class Kind : BYTE {
    kNone,
    kInteger,      // up to 32 bits
    kLongInteger,  // 64 bits
    kDouble,
    kNarrowText,
    kWideText,
    kPointer,
    kNull,  // a literal null: text or pointer, as the conversion has it
};

// kNone for a type that no conversion takes.
template <class T>
consteval Kind KindOf() {
    if constexpr (std::is_integral_v<T> || std::is_enum_v<T>) {
        return sizeof(T) <= 4 ? Kind::kInteger : Kind::kLongInteger;
    } else if constexpr (std::is_floating_point_v<T>) {
        return Kind::kDouble;
    } else if constexpr (std::is_null_pointer_v<T>) {
        return Kind::kNull;
    } else if constexpr (std::is_convertible_v<T, const char*>) {
        return Kind::kNarrowText;
    } else if constexpr (std::is_convertible_v<T, const WCHAR*>) {
        return Kind::kWideText;
    } else if constexpr (std::is_pointer_v<T>) {
        return Kind::kPointer;
    } else {
        return Kind::kNone;
    }
}

// One argument. Texts stay the caller's and must outlive the call.
class CArgument {
  public:
    template <class T>
    CArgument(T value) noexcept : m_kind(KindOf<T>()) {
        static_assert(KindOf<T>() != Kind::kNone, "no conversion takes an argument of this type");
        if constexpr (std::is_integral_v<T> || std::is_enum_v<T>) {
            m_value.integer = static_cast<ULONGLONG>(value);  // signed ones with their sign
        } else if constexpr (std::is_floating_point_v<T>) {
            m_value.number = static_cast<double>(value);
        } else if constexpr (KindOf<T>() == Kind::kNarrowText) {
            m_value.narrow = value;
        } else if constexpr (KindOf<T>() == Kind::kWideText) {
            m_value.wide = value;
        } else {
            m_value.pointer = value;
        }
    }

    Kind Type() const noexcept { return m_kind; }
    ULONGLONG Integer() const noexcept { return m_value.integer; }
    double Number() const noexcept { return m_value.number; }
    const char* Narrow() const noexcept { return m_value.narrow; }
    const WCHAR* Wide() const noexcept { return m_value.wide; }
    const void* Pointer() const noexcept;

  private:
    union Value {
        ULONGLONG integer;
        double number;
        const char* narrow;
        const WCHAR* wide;
        const void* pointer;
    };

    Value m_value;
    Kind m_kind;
};

// What stands behind one percent sign.
struct Conversion {
    enum class Size : BYTE { kNone, kShort, kLong, kInt32, kInt64, kPointer };

    bool left = false;
    bool plus = false;
    bool blank = false;
    bool alternate = false;
    bool zeros = false;
    bool widthGiven = false;
    bool widthArgument = false;
    bool precisionArgument = false;
    Size size = Size::kNone;
    int width = 0;
    int precision = -1;  // -1 when there is none
    char letter = 0;     // 0 at the end of the format

    constexpr bool IsBare() const noexcept {
        return !left && !plus && !blank && !alternate && !zeros && !widthGiven && precision < 0 && !precisionArgument &&
               size == Size::kNone;
    }
};

// Reads the conversion at `at`, behind its percent sign; gives where the format goes on.
template <class Unit>
constexpr const Unit* ReadConversion(const Unit* at, Conversion& conversion) noexcept {
    using Size = Conversion::Size;
    constexpr int kMost = 0xFFFF;  // of a width or precision; no buffer is longer
    const auto readNumber = [&at](int& number) {
        for (number = 0; *at >= Unit{'0'} && *at <= Unit{'9'}; ++at) {
            number = number < kMost ? number * 10 + static_cast<int>(*at - Unit{'0'}) : kMost;
        }
    };
    for (;; ++at) {
        if (*at == Unit{'-'}) {
            conversion.left = true;
        } else if (*at == Unit{'+'}) {
            conversion.plus = true;
        } else if (*at == Unit{' '}) {
            conversion.blank = true;
        } else if (*at == Unit{'#'}) {
            conversion.alternate = true;
        } else if (*at == Unit{'0'}) {
            conversion.zeros = true;
        } else {
            break;
        }
    }
    if (*at == Unit{'*'}) {
        conversion.widthGiven = conversion.widthArgument = true;
        ++at;
    } else if (*at >= Unit{'1'} && *at <= Unit{'9'}) {
        conversion.widthGiven = true;
        readNumber(conversion.width);
    }
    if (*at == Unit{'.'}) {
        ++at;
        if (*at == Unit{'*'}) {
            conversion.precisionArgument = true;
            ++at;
        } else {
            readNumber(conversion.precision);
        }
    }
    for (;; ++at) {  // of several prefixes the last one counts
        if (*at == Unit{'h'}) {
            conversion.size = Size::kShort;
        } else if (*at == Unit{'l'}) {
            conversion.size = at[1] == Unit{'l'} ? Size::kInt64 : Size::kLong;
            if (at[1] == Unit{'l'}) ++at;
        } else if (*at == Unit{'w'} || *at == Unit{'L'}) {
            conversion.size = Size::kLong;
        } else if (*at == Unit{'j'}) {
            conversion.size = Size::kInt64;
        } else if (*at == Unit{'t'} || *at == Unit{'z'}) {
            conversion.size = Size::kPointer;
        } else if (*at == Unit{'I'}) {
            const bool is64 = at[1] == Unit{'6'} && at[2] == Unit{'4'};
            const bool is32 = at[1] == Unit{'3'} && at[2] == Unit{'2'};
            conversion.size = is64 ? Size::kInt64 : is32 ? Size::kInt32 : Size::kPointer;
            if (is64 || is32) at += 2;
        } else {
            break;
        }
    }
    if (*at == 0) return at;
    // A unit beyond ASCII is no letter of ours; any other unknown letter does for it.
    conversion.letter = *at > Unit{0} && *at < Unit{0x7F} ? static_cast<char>(*at) : '\x7F';
    return at + 1;
}

// What the conversion takes; kNone for an unknown letter. `bareNarrow` says that %s and %c alone are narrow.
constexpr Kind KindTaken(const Conversion& conversion, bool bareNarrow = false) noexcept {
    using Size = Conversion::Size;
    switch (conversion.letter) {
        case 'd':
        case 'i':
        case 'u':
        case 'o':
        case 'x':
        case 'X':
            if (conversion.size == Size::kPointer) return sizeof(void*) == 8 ? Kind::kLongInteger : Kind::kInteger;
            return conversion.size == Size::kInt64 ? Kind::kLongInteger : Kind::kInteger;
        case 'c':
        case 'C':
            return Kind::kInteger;
        case 's':
            if (conversion.size == Size::kShort || (bareNarrow && conversion.IsBare())) return Kind::kNarrowText;
            return Kind::kWideText;
        case 'S':
            return conversion.size == Size::kLong ? Kind::kWideText : Kind::kNarrowText;
        case 'p':
            return Kind::kPointer;
        case 'e':
        case 'E':
        case 'f':
        case 'g':
        case 'G':
            return Kind::kDouble;
        default:
            return Kind::kNone;
    }
}

constexpr bool Fits(Kind taken, Kind given) noexcept {
    const bool text = given == Kind::kNarrowText || given == Kind::kWideText;
    if (given == Kind::kNull) return taken == Kind::kNarrowText || taken == Kind::kWideText || taken == Kind::kPointer;
    return taken == given || (taken == Kind::kPointer && text);
}

// Why a format does not go with its arguments.
enum class Fault { kNone, kConversionDoesNotFitItsArgument, kUnknownConversion, kTooManyArguments };

constexpr Fault FaultOf(const char* format, std::span<const Kind> given, bool bareNarrow) noexcept {
    std::size_t next = 0;
    const auto fits = [&](Kind taken) { return next < given.size() && Fits(taken, given[next++]); };
    while (*format) {
        if (*format++ != '%') continue;
        if (*format == '%') {
            ++format;
            continue;
        }
        Conversion conversion;
        format = ReadConversion(format, conversion);
        const Kind taken = KindTaken(conversion, bareNarrow);
        if (taken == Kind::kNone) return Fault::kUnknownConversion;
        if ((conversion.widthArgument && !fits(Kind::kInteger)) ||
            (conversion.precisionArgument && !fits(Kind::kInteger)) || !fits(taken)) {
            return Fault::kConversionDoesNotFitItsArgument;
        }
    }
    return next == given.size() ? Fault::kNone : Fault::kTooManyArguments;
}

// The compiler names one of these when it meets a format that does not go with its arguments.
void ConversionDoesNotFitItsArgument();
void FormatHasAnUnknownConversion();
void FormatTakesFewerArguments();

consteval void CheckFormat(const char* format, std::span<const Kind> given, bool bareNarrow) {
    const Fault fault = FaultOf(format, given, bareNarrow);
    if (fault == Fault::kConversionDoesNotFitItsArgument) ConversionDoesNotFitItsArgument();
    if (fault == Fault::kUnknownConversion) FormatHasAnUnknownConversion();
    if (fault == Fault::kTooManyArguments) FormatTakesFewerArguments();
}

// A format that is known at run time only.
struct RuntimeFormat {
    const char* text;
};

// A format that fits the arguments; null is taken as the empty one.
template <bool kBareNarrow, class... Args>
class TCheckedFormat {
  public:
    template <std::convertible_to<const char*> Text>
    consteval TCheckedFormat(const Text& text) : m_text(text) {
        if (!m_text) return;
        constexpr std::array<Kind, sizeof...(Args)> kGiven = {KindOf<Args>()...};
        CheckFormat(m_text, kGiven, kBareNarrow);
    }
    constexpr TCheckedFormat(RuntimeFormat format) noexcept : m_text(format.text) {}

    constexpr const char* Text() const noexcept { return m_text; }

  private:
    const char* m_text;
};

template <class... Args>
using TFormat = TCheckedFormat<false, Args...>;

// Counts like _vsnwprintf: the length of the text if it has at most `room` units, without a NUL if it has exactly
// those; -1 for a longer one, of which the first `room` units are written. Nothing writes a NUL behind it.
int FormatInto(WCHAR* out, std::size_t room, const char* format, std::span<const CArgument> arguments) noexcept;
int FormatInto(WCHAR* out, std::size_t room, const WCHAR* format, std::span<const CArgument> arguments) noexcept;

// The text in `out`, cut where it does not fit, with its NUL; gives its length. `room` counts the NUL and is not 0.
std::size_t FormatCut(WCHAR* out, std::size_t room, const char* format, std::span<const CArgument> arguments) noexcept;
std::size_t FormatCut(WCHAR* out, std::size_t room, const WCHAR* format, std::span<const CArgument> arguments) noexcept;

template <class... Args>
std::size_t Format(WCHAR* out, std::size_t room, TFormat<std::type_identity_t<Args>...> format, Args... args) noexcept {
    const std::array<CArgument, sizeof...(Args)> arguments = {CArgument(args)...};
    return FormatCut(out, room, format.Text() ? format.Text() : "", arguments);
}

}  // namespace OVFormat
