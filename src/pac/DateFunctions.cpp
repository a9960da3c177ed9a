// timeRange keeps its long-standing quirks exactly: every argument counts
// as a number (a string as 0), each field of the time is compared on its
// own, and no range wraps past midnight.
//
// weekdayRange and dateRange follow the classic Netscape definitions.
//
// weekdayRange(wd1 [, wd2] [, "GMT"]):
//   wd1, wd2 are "SUN", "MON", "TUE", "WED", "THU", "FRI", "SAT" (upper
//   case, as the definition writes them). One day: true on that day. Two:
//   true from wd1 through wd2, both included; wd1 after wd2 wraps round the
//   end of the week ("FRI", "MON" is Friday to Monday). "GMT" in any case,
//   as the last argument (second or third), takes the day in UTC instead of
//   local time. An unknown day name, or a third argument other than "GMT",
//   answers false.
//
// dateRange, with an optional "GMT" (any case) after the last value:
//    1. dateRange(day)                              day 1 to 31
//    2. dateRange(day1, day2)
//    3. dateRange(month)                            "JAN" to "DEC"
//    4. dateRange(month1, month2)
//    5. dateRange(year)                             four digits, 1000 to 9999
//    6. dateRange(year1, year2)
//    7. dateRange(day1, month1, day2, month2)
//    8. dateRange(month1, year1, month2, year2)
//    9. dateRange(day1, month1, year1, day2, month2, year2)
//   10. dateRange(day1, month1, year1, day2, month2, year2, "GMT")
//   11. dateRange(day, month)                       one date every year
//   12. dateRange(day, month, year)                 one date
//   (11 and 12 are the single-date forms of the original PAC documentation,
//   dateRange(24, "DEC") and dateRange(24, "DEC", 1995).)
//   Days and years are numbers, months are strings. Ranges include both
//   ends. Ranges without a year (forms 2, 4, 7) wrap: a start after the end
//   runs round the end of the month or year (dateRange(25, 5),
//   dateRange("DEC", "JAN"), dateRange(24, "DEC", 6, "JAN")). Ranges with a
//   year are absolute and never wrap: a start after the end is never true.
//   Anything else (another pattern of kinds, a day or year out of range, a
//   number with a fraction, an unknown month name, null, a boolean, an
//   object, a last string other than "GMT") answers false.
#include "pac/DateFunctions.h"

#include <cmath>
#include <ctime>
#include <cwctype>
#include <vector>

#include "trace/Clock.h"

namespace {

bool IsMissing(const VARIANT &v) {
    return V_VT(&v) == VT_ERROR && V_ERROR(&v) == DISP_E_PARAMNOTFOUND;
}

std::wstring BstrText(const VARIANT &v) {
    return V_BSTR(&v) ? std::wstring(V_BSTR(&v), SysStringLen(V_BSTR(&v))) : std::wstring();
}

bool IsGmt(const std::wstring &text) {
    if (text.size() != 3) return false;
    return std::towupper(text[0]) == L'G' && std::towupper(text[1]) == L'M' &&
           std::towupper(text[2]) == L'T';
}

bool IsGmtVariant(const VARIANT &v) { return V_VT(&v) == VT_BSTR && IsGmt(BstrText(v)); }

bool Now(bool gmt, struct tm *out) {
    const time_t now = Clock().time(nullptr);
    return gmt ? Clock().gmtime(now, out) : Clock().localtime(now, out);
}

// Inclusive, and running round when the start lies after the end.
bool InWrappingRange(long start, long end, long value) {
    return start <= end ? start <= value && value <= end : value >= start || value <= end;
}

bool InRange(long start, long end, long value) { return start <= value && value <= end; }

int IndexOfName(const std::wstring &text, const wchar_t *const *names, int count) {
    for (int i = 0; i < count; ++i)
        if (text == names[i]) return i;
    return -1;
}

const wchar_t *const kDays[] = {L"SUN", L"MON", L"TUE", L"WED", L"THU", L"FRI", L"SAT"};
const wchar_t *const kMonths[] = {L"JAN", L"FEB", L"MAR", L"APR", L"MAY", L"JUN",
                                  L"JUL", L"AUG", L"SEP", L"OCT", L"NOV", L"DEC"};

// A whole number from a numeric VARIANT; false for anything else.
bool WholeNumber(const VARIANT &v, long *out) {
    switch (V_VT(&v)) {
    case VT_I2: *out = V_I2(&v); return true;
    case VT_I4: *out = V_I4(&v); return true;
    case VT_UI1: *out = V_UI1(&v); return true;
    case VT_R8: {
        const double d = V_R8(&v);
        if (!std::isfinite(d) || d != std::floor(d) || std::fabs(d) > 1e9) return false;
        *out = static_cast<long>(d);
        return true;
    }
    default: return false;
    }
}

struct DateValue {
    char kind;  // 'D' day, 'M' month, 'Y' year
    long value; // day 1..31, month 0..11, year
};

bool Classify(const VARIANT &v, DateValue *out) {
    long n = 0;
    if (WholeNumber(v, &n)) {
        if (n >= 1 && n <= 31) {
            *out = DateValue{'D', n};
            return true;
        }
        if (n >= 1000 && n <= 9999) {
            *out = DateValue{'Y', n};
            return true;
        }
        return false;
    }
    if (V_VT(&v) == VT_BSTR) {
        const int month = IndexOfName(BstrText(v), kMonths, 12);
        if (month < 0) return false;
        *out = DateValue{'M', month};
        return true;
    }
    return false;
}

// The arguments of dateRange: the form their kinds spell ("D", "DMY",
// "MYMY"...), their values, and whether "GMT" ended them.
struct DateArguments {
    std::string form;
    std::vector<DateValue> values;
    bool gmt = false;
};

// False when no argument is given or one is neither a day, a month nor a
// year.
bool ReadDateArguments(const VARIANT (&args)[kRangeArguments], DateArguments *out) {
    int count = 0;
    while (count < kRangeArguments && !IsMissing(args[count])) ++count;
    if (count > 0 && IsGmtVariant(args[count - 1])) {
        out->gmt = true;
        --count;
    }
    if (count == 0) return false;
    out->values.resize(static_cast<size_t>(count));
    for (size_t i = 0; i < out->values.size(); ++i) {
        if (!Classify(args[i], &out->values[i])) return false;
        out->form += out->values[i].kind;
    }
    return true;
}

// Whether the date now falls in the range the arguments describe; a form
// not listed matches nothing.
bool DateMatches(const DateArguments &given, const struct tm &now) {
    const std::vector<DateValue> &v = given.values;
    const std::string &form = given.form;
    const long day = now.tm_mday;
    const long month = now.tm_mon;
    const long year = now.tm_year + 1900L;
    // Keys that order dates within a year, and across years.
    auto dayOfYear = [](long m, long d) { return m * 32 + d; };
    auto monthOfTime = [](long y, long m) { return y * 12 + m; };
    auto dateOfTime = [](long y, long m, long d) { return (y * 12 + m) * 32 + d; };

    if (form == "D") return day == v[0].value;
    if (form == "DD") return InWrappingRange(v[0].value, v[1].value, day);
    if (form == "M") return month == v[0].value;
    if (form == "MM") return InWrappingRange(v[0].value, v[1].value, month);
    if (form == "Y") return year == v[0].value;
    if (form == "YY") return InRange(v[0].value, v[1].value, year);
    if (form == "DM") return day == v[0].value && month == v[1].value;
    if (form == "DMY") return day == v[0].value && month == v[1].value && year == v[2].value;
    if (form == "DMDM")
        return InWrappingRange(dayOfYear(v[1].value, v[0].value),
                               dayOfYear(v[3].value, v[2].value), dayOfYear(month, day));
    if (form == "MYMY")
        return InRange(monthOfTime(v[1].value, v[0].value), monthOfTime(v[3].value, v[2].value),
                       monthOfTime(year, month));
    if (form == "DMYDMY")
        return InRange(dateOfTime(v[2].value, v[1].value, v[0].value),
                       dateOfTime(v[5].value, v[4].value, v[3].value),
                       dateOfTime(year, month, day));
    return false;
}

}  // namespace

bool TimeRangeMatches(const VARIANT (&args)[kRangeArguments]) {
    long values[kRangeArguments] = {};
    int n = 0;
    bool gmt = false;
    for (const VARIANT &arg : args) {
        if (V_VT(&arg) == VT_I2) {
            values[n++] = V_I2(&arg);
        } else if (V_VT(&arg) == VT_I4) {
            values[n++] = V_I4(&arg);
        } else if (V_VT(&arg) == VT_BSTR) {
            if (IsGmt(BstrText(arg))) {
                gmt = true;
                break;
            }
            values[n++] = 0;
        } else {
            break;
        }
    }
    struct tm now = {};
    if (!Now(gmt, &now)) return false;
    switch (n) {
    case 1: return InRange(values[0], values[0] + 1, now.tm_hour);
    case 2: return InRange(values[0], values[1], now.tm_hour);
    case 4:
        return InRange(values[0], values[2], now.tm_hour) &&
               InRange(values[1], values[3], now.tm_min);
    case 6:
        return InRange(values[0], values[3], now.tm_hour) &&
               InRange(values[1], values[4], now.tm_min) &&
               InRange(values[2], values[5], now.tm_sec);
    default: return false;
    }
}

bool WeekdayRangeMatches(const std::wstring &wd1, const std::wstring &wd2,
                         const std::wstring &gmt) {
    std::wstring last = wd2;
    bool useGmt = false;
    if (!gmt.empty()) {
        if (!IsGmt(gmt)) return false;
        useGmt = true;
    } else if (IsGmt(wd2)) {
        useGmt = true;
        last.clear();
    }
    const int first = IndexOfName(wd1, kDays, 7);
    const int end = last.empty() ? first : IndexOfName(last, kDays, 7);
    if (first < 0 || end < 0) return false;
    struct tm now = {};
    if (!Now(useGmt, &now)) return false;
    return InWrappingRange(first, end, now.tm_wday);
}

bool DateRangeMatches(const VARIANT (&args)[kRangeArguments]) {
    DateArguments given;
    if (!ReadDateArguments(args, &given)) return false;
    struct tm now = {};
    if (!Now(given.gmt, &now)) return false;
    return DateMatches(given, now);
}
