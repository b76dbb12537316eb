#include "acme/time_stamps.h"

#include <array>

namespace bmccert::acme {
namespace {

// Reads exactly count digits at pos; false past the end or on a non-digit.
bool Digits(std::string_view text, size_t pos, size_t count, unsigned &value) {
    if (pos + count > text.size()) return false;
    value = 0;
    for (size_t i = pos; i < pos + count; ++i) {
        if (text[i] < '0' || text[i] > '9') return false;
        value = value * 10 + static_cast<unsigned>(text[i] - '0');
    }
    return true;
}

bool LeapYear(unsigned year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

unsigned DaysInMonth(unsigned year, unsigned month) {
    static constexpr std::array<unsigned, 12> kDays = {31, 28, 31, 30, 31, 30,
                                                       31, 31, 30, 31, 30, 31};
    return month == 2 && LeapYear(year) ? 29 : kDays[month - 1];
}

struct Civil {
    unsigned year, month, day, hour, minute, second;
};

// Leap seconds are refused with every other out-of-range field: a CA's
// window or expiry never needs one.
std::optional<int64_t> SecondsOf(const Civil &t) {
    if (t.year < 1970 || t.month < 1 || t.month > 12 || t.day < 1 ||
        t.day > DaysInMonth(t.year, t.month) || t.hour > 23 || t.minute > 59 || t.second > 59)
        return std::nullopt;
    return DaysFromCivil(t.year, t.month, t.day) * 86400 + t.hour * 3600 + t.minute * 60 +
           t.second;
}

} // namespace

int64_t DaysFromCivil(int64_t year, unsigned month, unsigned day) {
    year -= month <= 2;
    const int64_t era = (year >= 0 ? year : year - 399) / 400;
    const int64_t yearOfEra = year - era * 400;
    const int64_t dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
    const int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + dayOfEra - 719468;
}

std::optional<int64_t> ParseRfc3339(std::string_view text) {
    Civil t{};
    if (!Digits(text, 0, 4, t.year) || text.size() < 20 || text[4] != '-' ||
        !Digits(text, 5, 2, t.month) || text[7] != '-' || !Digits(text, 8, 2, t.day) ||
        (text[10] != 'T' && text[10] != 't') || !Digits(text, 11, 2, t.hour) ||
        text[13] != ':' || !Digits(text, 14, 2, t.minute) || text[16] != ':' ||
        !Digits(text, 17, 2, t.second))
        return std::nullopt;
    size_t pos = 19;
    if (text[pos] == '.') {
        size_t digits = 0;
        while (++pos < text.size() && text[pos] >= '0' && text[pos] <= '9') ++digits;
        if (digits == 0 || digits > 9) return std::nullopt;
    }
    int64_t offset = 0;
    const std::string_view zone = text.substr(pos);
    if (zone != "Z" && zone != "z") {
        unsigned hours = 0, minutes = 0;
        if (zone.size() != 6 || (zone[0] != '+' && zone[0] != '-') || !Digits(zone, 1, 2, hours) ||
            zone[3] != ':' || !Digits(zone, 4, 2, minutes) || hours > 23 || minutes > 59)
            return std::nullopt;
        offset = (zone[0] == '+' ? 1 : -1) * static_cast<int64_t>(hours * 3600 + minutes * 60);
    }
    const std::optional<int64_t> local = SecondsOf(t);
    if (!local || *local - offset < 0) return std::nullopt;
    return *local - offset;
}

std::optional<int64_t> ParseHttpDate(std::string_view text) {
    static constexpr std::array<std::string_view, 7> kDays = {"Mon", "Tue", "Wed", "Thu",
                                                              "Fri", "Sat", "Sun"};
    static constexpr std::array<std::string_view, 12> kMonths = {
        "Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    Civil t{};
    if (text.size() != 29 || text.substr(3, 2) != ", " || text[7] != ' ' || text[11] != ' ' ||
        text[16] != ' ' || text[19] != ':' || text[22] != ':' || text.substr(25) != " GMT" ||
        !Digits(text, 5, 2, t.day) || !Digits(text, 12, 4, t.year) ||
        !Digits(text, 17, 2, t.hour) || !Digits(text, 20, 2, t.minute) ||
        !Digits(text, 23, 2, t.second))
        return std::nullopt;
    bool knownDay = false;
    for (const std::string_view day : kDays) knownDay = knownDay || text.substr(0, 3) == day;
    for (unsigned m = 0; m < kMonths.size(); ++m)
        if (text.substr(8, 3) == kMonths[m]) t.month = m + 1;
    if (!knownDay || t.month == 0) return std::nullopt;
    return SecondsOf(t);
}

} // namespace bmccert::acme
