// Times: FILETIME (100 ns since 1601, UTC) and the two textual forms of X.509.
#include <chrono>
#include <cstdio>
#include <limits>

#include "cache/CryptBlobs.h"
#include "module/Failure.h"

namespace {

using namespace std::chrono;
using Ticks = duration<LONGLONG, std::ratio<1, 10'000'000>>;

constexpr sys_days kEpoch = sys_days(year(1601) / January / 1);
constexpr int kFirstShortYear = 1950;
constexpr int kLastShortYear = 2049;

// Digits, two at a time.
class CDigits {
  public:
    explicit CDigits(CDerBytes text) noexcept : m_rest(text) {}

    int Pair() {
        const int tens = Digit();
        return tens * 10 + Digit();
    }
    // Milliseconds, of at least three digits behind a point; 0 without a point.
    int Fraction() {
        if (m_rest.empty() || m_rest.front() != '.') return 0;
        m_rest = m_rest.subspan(1);
        int number = 0;
        for (int i = 0; i < 3; ++i) number = number * 10 + Digit();
        while (!m_rest.empty() && IsDigit(m_rest.front())) m_rest = m_rest.subspan(1);
        return number;
    }
    void End() const {
        if (!m_rest.empty() && !(m_rest.size() == 1 && m_rest.front() == 'Z')) throw _com_error(CRYPT_E_ASN1_CORRUPT);
    }

  private:
    static bool IsDigit(BYTE byte) noexcept { return byte >= '0' && byte <= '9'; }
    int Digit() {
        if (m_rest.empty() || !IsDigit(m_rest.front())) throw _com_error(CRYPT_E_ASN1_CORRUPT);
        const int digit = m_rest.front() - '0';
        m_rest = m_rest.subspan(1);
        return digit;
    }

    CDerBytes m_rest;
};

}  // namespace

void CTimeBlob::Write(CDerWriter& writer, const FILETIME& time) {
    const ULONGLONG ticks = ULONGLONG{time.dwHighDateTime} << 32 | time.dwLowDateTime;
    if (ticks > static_cast<ULONGLONG>(std::numeric_limits<LONGLONG>::max())) throw _com_error(E_INVALIDARG);
    const Ticks sinceEpoch(static_cast<LONGLONG>(ticks));
    const auto days = floor<duration<LONGLONG, std::ratio<86400>>>(sinceEpoch);
    const year_month_day date(kEpoch + duration_cast<std::chrono::days>(days));
    const hh_mm_ss clock(floor<seconds>(sinceEpoch - days));
    const int full = static_cast<int>(date.year());
    if (full > 9999) throw _com_error(E_INVALIDARG);
    const bool isShort = full >= kFirstShortYear && full <= kLastShortYear;
    char text[32];
    const int length =
        std::snprintf(text, sizeof text, isShort ? "%02d%02u%02u%02d%02d%02dZ" : "%04d%02u%02u%02d%02d%02dZ",
                      isShort ? full % 100 : full, static_cast<unsigned>(date.month()),
                      static_cast<unsigned>(date.day()), static_cast<int>(clock.hours().count()),
                      static_cast<int>(clock.minutes().count()), static_cast<int>(clock.seconds().count()));
    const std::size_t end = writer.Size();
    writer.Bytes({reinterpret_cast<const BYTE*>(text), static_cast<std::size_t>(length)});
    writer.Close(isShort ? DerTag::kUtcTime : DerTag::kGeneralizedTime, end);
}

void CTimeBlob::Read(CDerBytes element, FILETIME& out) {
    const std::optional<DerElement> read = ReadElement(element);
    const bool isShort = read && read->tag == DerTag::kUtcTime;
    if (!isShort && !(read && read->tag == DerTag::kGeneralizedTime)) throw _com_error(CRYPT_E_ASN1_CORRUPT);
    CDigits digits(read->content);
    int full = digits.Pair();
    if (isShort) {
        full += full >= kFirstShortYear % 100 ? 1900 : 2000;
    } else {
        full = full * 100 + digits.Pair();
    }
    const int ofYear = digits.Pair();
    const int ofMonth = digits.Pair();
    const int hour = digits.Pair();
    const int minute = digits.Pair();
    const int second = digits.Pair();
    const int thousandths = isShort ? 0 : digits.Fraction();
    digits.End();
    const year_month_day date(year(full), month(static_cast<unsigned>(ofYear)), day(static_cast<unsigned>(ofMonth)));
    // The platform takes the 29th of February in every year, and means the day behind the 28th.
    const bool isDate = date.ok() || (date.month() == February && date.day() == day(29));
    if (!isDate || full < 1601 || hour > 23 || minute > 59 || second > 59) throw _com_error(E_INVALIDARG);
    const Ticks ticks =
        (sys_days(date) - kEpoch) + hours(hour) + minutes(minute) + seconds(second) + milliseconds(thousandths);
    const auto number = static_cast<ULONGLONG>(ticks.count());
    out = {static_cast<DWORD>(number), static_cast<DWORD>(number >> 32)};
}
