// Time stamps as text. The controller is 32-bit and its time_t may be too,
// while certificates run past 2038, so the calendar arithmetic is done here
// in 64 bits instead of through gmtime/timegm.
#include <cctype>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "sim_internal.h"

namespace {

constexpr int64_t kSecondsPerDay = 86400;
constexpr size_t kIsoLength = 20; // YYYY-MM-DDTHH:MM:SSZ

struct CivilTime {
    int64_t year;
    unsigned month; // 1..12
    unsigned day;   // 1..31
    unsigned hour, minute, second;
};

// Days since 1970-01-01 of a proleptic Gregorian date; years are shifted to
// start in March so that the leap day falls at the end of the year.
constexpr int64_t DaysFromCivil(int64_t year, unsigned month, unsigned day) {
    year -= month <= 2 ? 1 : 0;
    const int64_t era = (year >= 0 ? year : year - 399) / 400;
    const auto yearOfEra = static_cast<unsigned>(year - era * 400);
    const unsigned dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
    const unsigned dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + static_cast<int64_t>(dayOfEra) - 719468;
}

constexpr void CivilFromDays(int64_t days, CivilTime &out) {
    days += 719468;
    const int64_t era = (days >= 0 ? days : days - 146096) / 146097;
    const auto dayOfEra = static_cast<unsigned>(days - era * 146097);
    const unsigned yearOfEra =
        (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const unsigned dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const unsigned shiftedMonth = (5 * dayOfYear + 2) / 153;
    out.day = dayOfYear - (153 * shiftedMonth + 2) / 5 + 1;
    out.month = shiftedMonth < 10 ? shiftedMonth + 3 : shiftedMonth - 9;
    out.year = static_cast<int64_t>(yearOfEra) + era * 400 + (out.month <= 2 ? 1 : 0);
}

static_assert(DaysFromCivil(1970, 1, 1) == 0);
static_assert(DaysFromCivil(2000, 3, 1) == 11017);
static_assert(DaysFromCivil(1900, 1, 1) == -25567);

constexpr bool IsLeap(int64_t year) {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

constexpr unsigned DaysInMonth(int64_t year, unsigned month) {
    constexpr unsigned kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && IsLeap(year) ? 29 : kDays[month - 1];
}

// The four-digit years that the text form can hold.
constexpr int64_t kFirstStamp = DaysFromCivil(0, 1, 1) * kSecondsPerDay;
constexpr int64_t kLastStamp = DaysFromCivil(10000, 1, 1) * kSecondsPerDay - 1;

[[nodiscard]] bool Valid(const CivilTime &t) noexcept {
    return t.year >= 0 && t.year <= 9999 && t.month >= 1 && t.month <= 12 && t.day >= 1 &&
           t.day <= DaysInMonth(t.year, t.month) && t.hour <= 23 && t.minute <= 59 &&
           t.second <= 59;
}

[[nodiscard]] int64_t ToStamp(const CivilTime &t) noexcept {
    return DaysFromCivil(t.year, t.month, t.day) * kSecondsPerDay + t.hour * 3600 + t.minute * 60 +
           t.second;
}

// Reads exactly `count` digits from the front of the text.
[[nodiscard]] bool TakeDigits(std::string_view &text, size_t count, unsigned &out) noexcept {
    if (text.size() < count) return false;
    unsigned value = 0;
    for (size_t i = 0; i < count; ++i) {
        if (!std::isdigit(static_cast<unsigned char>(text[i]))) return false;
        value = value * 10 + static_cast<unsigned>(text[i] - '0');
    }
    out = value;
    text.remove_prefix(count);
    return true;
}

[[nodiscard]] bool TakeChar(std::string_view &text, char expected) noexcept {
    if (text.empty() || text.front() != expected) return false;
    text.remove_prefix(1);
    return true;
}

[[nodiscard]] bool TakeClock(std::string_view &text, CivilTime &t) noexcept {
    return TakeDigits(text, 2, t.hour) && TakeChar(text, ':') && TakeDigits(text, 2, t.minute) &&
           TakeChar(text, ':') && TakeDigits(text, 2, t.second);
}

[[nodiscard]] bool TakeMonthName(std::string_view &text, unsigned &month) noexcept {
    constexpr std::string_view kNames[12] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                             "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    for (unsigned i = 0; i < 12; ++i) {
        if (text.starts_with(kNames[i])) {
            text.remove_prefix(kNames[i].size());
            month = i + 1;
            return true;
        }
    }
    return false;
}

// Day of month as the openssl tool prints it: two digits, or one digit
// padded with a space ("Jan  5").
[[nodiscard]] bool TakePaddedDay(std::string_view &text, unsigned &day) noexcept {
    if (TakeChar(text, ' ')) return TakeDigits(text, 1, day);
    return TakeDigits(text, 2, day);
}

[[nodiscard]] std::string_view TrimBlanks(std::string_view text) noexcept {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front())))
        text.remove_prefix(1);
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back())))
        text.remove_suffix(1);
    return text;
}

} // namespace

extern "C" int32_t BMC_EnTimeToTimeStamp(const char *pcEnTime, BMC_TimeStamp *pTime) {
    if (pcEnTime == nullptr || pTime == nullptr) return bmcsim::kFailSigned;
    // The tool's lines end with a line feed; the text around it is free.
    std::string_view text = TrimBlanks(pcEnTime);
    CivilTime t{};
    unsigned year = 0;
    bool read = TakeMonthName(text, t.month) && TakeChar(text, ' ') && TakePaddedDay(text, t.day) &&
                TakeChar(text, ' ') && TakeClock(text, t) && TakeChar(text, ' ') &&
                TakeDigits(text, 4, year) && text == " GMT";
    t.year = year;
    if (!read || !Valid(t)) return bmcsim::kFailSigned;
    *pTime = ToStamp(t);
    return 0;
}

extern "C" int32_t BMC_IsoTimeToTimeStamp(const char *pcIsoTime, BMC_TimeStamp *pTime) {
    if (pcIsoTime == nullptr || pTime == nullptr) return bmcsim::kFailSigned;
    std::string_view text(pcIsoTime);
    CivilTime t{};
    unsigned year = 0;
    bool read = text.size() == kIsoLength && TakeDigits(text, 4, year) && TakeChar(text, '-') &&
                TakeDigits(text, 2, t.month) && TakeChar(text, '-') && TakeDigits(text, 2, t.day) &&
                TakeChar(text, 'T') && TakeClock(text, t) && TakeChar(text, 'Z');
    t.year = year;
    if (!read || !Valid(t)) return bmcsim::kFailSigned;
    *pTime = ToStamp(t);
    return 0;
}

// A buffer too small for the whole text gets an empty string: a cut time
// would read as a different, valid-looking one.
extern "C" int32_t BMC_TimeStampToIsoTime(BMC_TimeStamp llTime, uint32_t uiSize, char *pcIsoTime) {
    if (pcIsoTime == nullptr || uiSize == 0) return bmcsim::kFailSigned;
    pcIsoTime[0] = '\0';
    if (uiSize <= kIsoLength || llTime < kFirstStamp || llTime > kLastStamp)
        return bmcsim::kFailSigned;
    int64_t days = llTime / kSecondsPerDay;
    int64_t secondOfDay = llTime % kSecondsPerDay;
    if (secondOfDay < 0) {
        secondOfDay += kSecondsPerDay;
        --days;
    }
    CivilTime t{};
    CivilFromDays(days, t);
    t.hour = static_cast<unsigned>(secondOfDay / 3600);
    t.minute = static_cast<unsigned>(secondOfDay / 60 % 60);
    t.second = static_cast<unsigned>(secondOfDay % 60);
    int n =
        std::snprintf(pcIsoTime, uiSize, "%04lld-%02u-%02uT%02u:%02u:%02uZ",
                      static_cast<long long>(t.year), t.month, t.day, t.hour, t.minute, t.second);
    return n == static_cast<int>(kIsoLength) ? 0 : bmcsim::kFailSigned;
}
