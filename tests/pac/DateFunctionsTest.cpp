// timeRange, weekdayRange and dateRange over a fixed clock, in local time
// and in GMT, through every argument count and form.
#include <gtest/gtest.h>

#include <string>

#include "PacTestSupport.h"
#include "TestSupport.h"

namespace {

struct Row {
    const char *expression;
    bool expected;
};

void Check(const Row *rows, size_t count) {
    for (size_t i = 0; i < count; ++i)
        EXPECT_EQ(rows[i].expected ? "boolean:true" : "boolean:false", Eval(rows[i].expression))
            << rows[i].expression;
}

// Local time runs two hours ahead of UTC, across a year's end: locally
// Monday 2024-01-01 01:30:45, in GMT Sunday 2023-12-31 23:30:45.
TEST(YearEnd, EveryArgumentCountAndForm) {
    ScopedClock clock;
    FakeClock::Install(clock, UtcTime(2023, 12, 31, 23, 30, 45));
    FakeClock::localOffsetSeconds = 2 * 3600;
    // "GMT" is found the same way for every form of a function: a few rows
    // each show it.
    const Row rows[] = {
        // One hour: h1 to h1 + 1.
        {"timeRange(1)", true}, {"timeRange(0)", true}, {"timeRange(2)", false},
        {"timeRange(23, 'GMT')", true}, {"timeRange(1, 'Gmt')", false},
        // Two hours, inclusive, never wrapping past midnight.
        {"timeRange(1, 3)", true}, {"timeRange(2, 3)", false}, {"timeRange(22, 2)", false},
        // Four: hours and minutes each on their own.
        {"timeRange(1, 30, 1, 30)", true}, {"timeRange(0, 31, 5, 59)", false},
        {"timeRange(0, 30, 17, 0)", false},
        // Six: seconds too.
        {"timeRange(1, 30, 45, 1, 30, 45)", true}, {"timeRange(1, 30, 46, 1, 30, 59)", false},
        {"timeRange(23, 30, 45, 23, 30, 45, 'GMT')", true},
        // Three, five and seven counted arguments are never true.
        {"timeRange(0, 0, 23)", false}, {"timeRange(0, 0, 0, 23, 59)", false},
        {"timeRange(0, 0, 0, 23, 59, 59, 1)", false}, {"timeRange(0, 0, 23, 'GMT')", false},
        // A string other than "GMT" counts as the number 0.
        {"timeRange('5')", true}, {"timeRange(1, 'x')", false}, {"timeRange('x', 1)", true},
        // Any other kind ends the walk; the first argument must count.
        {"timeRange('GMT')", false}, {"timeRange(1.5)", false}, {"timeRange(1, null)", true},
        {"timeRange(1, 3.5, 'GMT')", true},
        {"weekdayRange('MON')", true}, {"weekdayRange('SUN')", false},
        {"weekdayRange('SUN', 'gmt')", true}, {"weekdayRange('SUN', '', 'GMT')", true},
        {"weekdayRange('MON', 'FRI')", true}, {"weekdayRange('TUE', 'FRI')", false},
        // Wrapping round the end of the week.
        {"weekdayRange('SAT', 'MON')", true}, {"weekdayRange('FRI', 'SUN')", false},
        {"weekdayRange('FRI', 'SUN', 'GMT')", true},
        // Anything else.
        {"weekdayRange('mon')", false}, {"weekdayRange('MONDAY')", false},
        {"weekdayRange('')", false}, {"weekdayRange('MON', 'XYZ')", false},
        {"weekdayRange('MON', 'FRI', 'local')", false}, {"weekdayRange(1)", false},
        {"weekdayRange('MON', undefined)", true},
        // day
        {"dateRange(1)", true}, {"dateRange(31)", false}, {"dateRange(31, 'GMT')", true},
        {"dateRange(1, 'gmt')", false},
        // day1, day2, wrapping round the month's end
        {"dateRange(1, 5)", true}, {"dateRange(2, 5)", false}, {"dateRange(25, 5)", true},
        {"dateRange(2, 30)", false},
        // month; month1, month2, wrapping round the year's end
        {"dateRange('JAN')", true}, {"dateRange('DEC')", false},
        {"dateRange('NOV', 'FEB')", true}, {"dateRange('FEB', 'NOV')", false},
        // year; year1, year2, never wrapping
        {"dateRange(2024)", true}, {"dateRange(2023)", false},
        {"dateRange(2020, 2024)", true}, {"dateRange(2025, 2030)", false},
        {"dateRange(2024, 2020)", false},
        // day1, month1, day2, month2, wrapping
        {"dateRange(1, 'JAN', 5, 'JAN')", true}, {"dateRange(2, 'JAN', 5, 'FEB')", false},
        {"dateRange(24, 'DEC', 6, 'JAN')", true}, {"dateRange(24, 'DEC', 30, 'DEC')", false},
        // month1, year1, month2, year2
        {"dateRange('DEC', 2023, 'JAN', 2024)", true}, {"dateRange('FEB', 2024, 'JAN', 2024)", false},
        {"dateRange('JAN', 2023, 'DEC', 2023)", false},
        // day1, month1, year1, day2, month2, year2
        {"dateRange(1, 'JAN', 2024, 1, 'JAN', 2024)", true},
        {"dateRange(31, 'DEC', 2023, 1, 'JAN', 2024)", true},
        {"dateRange(2, 'JAN', 2024, 31, 'DEC', 2023)", false},
        {"dateRange(1, 'DEC', 2023, 31, 'DEC', 2023)", false},
        {"dateRange(1, 'DEC', 2023, 31, 'DEC', 2023, 'GMT')", true},
        {"dateRange(1, 'JAN', 2024, 31, 'DEC', 2024, 'gMt')", false},
        // dateRange(day, month) and dateRange(day, month, year): one date,
        // on the day only, across the year's end in local time and in GMT.
        {"dateRange(1, 'JAN')", true}, {"dateRange(31, 'DEC')", false},
        {"dateRange(31, 'DEC', 'GMT')", true}, {"dateRange(1, 'JAN', 2024)", true},
        {"dateRange(1, 'JAN', 2023)", false}, {"dateRange(31, 'DEC', 2023)", false},
        {"dateRange(31, 'DEC', 2023, 'GMT')", true},
        {"dateRange(1, 'JAN', 2024, 'local')", false}, {"dateRange(1, 'jan', 2024)", false},
        // Anything else.
        {"dateRange(0)", false}, {"dateRange(32)", false}, {"dateRange(999)", false},
        {"dateRange(10000)", false}, {"dateRange(1.5)", false}, {"dateRange('jan')", false},
        {"dateRange('1')", false}, {"dateRange(null)", false}, {"dateRange(1, undefined)", false},
        {"dateRange('GMT')", false}, {"dateRange(1, 'GMT', 'GMT')", false},
        // Forms outside the ten.
        {"dateRange(2024, 'JAN')", false}, {"dateRange(1, 'JAN', 2024, 1, 'JAN')", false},
        {"dateRange(1, 'JAN', 2024, 1, 'JAN', 2024, 'local')", false},
    };
    Check(rows, sizeof rows / sizeof rows[0]);
    // The type library refuses wrong counts and a null weekday.
    for (const char *call : {"timeRange()", "timeRange(1, 2, 3, 4, 5, 6, 7, 8)", "weekdayRange()",
                             "weekdayRange('MON', 'TUE', 'GMT', 'x')", "dateRange()",
                             "dateRange(1, 2, 3, 4, 5, 6, 7, 8)"})
        EXPECT_EQ("error:8002000e", Eval(call)) << call;
    EXPECT_EQ("error:80020005", Eval("weekdayRange(null)"));
    FakeClock::localOffsetSeconds = 0;
}

// Mid-month, local time equal to UTC: Monday 2024-07-15 12:00:00.
TEST(MidYear, RangeEdges) {
    ScopedClock clock;
    FakeClock::Install(clock, UtcTime(2024, 7, 15, 12, 0, 0));
    const Row rows[] = {
        {"dateRange(15, 'JUL', 15, 'JUL')", true}, {"dateRange(16, 'JUL', 14, 'JUL')", false},
        {"dateRange(16, 'JUL', 15, 'JUL')", true}, {"dateRange(31, 'JAN', 1, 'JUL')", false},
        {"dateRange('JUL', 2024, 'JUL', 2024)", true}, {"dateRange(16, 14)", false},
        {"dateRange(16, 'JUN', 2024, 14, 'JUL', 2024)", false},
        {"weekdayRange('SAT', 'SUN')", false}, {"timeRange(11)", true}, {"timeRange(10)", false},
        {"timeRange(12, 0, 0, 12, 0, 0)", true},
    };
    Check(rows, sizeof rows / sizeof rows[0]);
}

}  // namespace
