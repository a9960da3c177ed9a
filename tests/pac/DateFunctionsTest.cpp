// timeRange, weekdayRange and dateRange over a fixed clock, in local time
// and in GMT, through every argument count and form.
#include <gtest/gtest.h>

#include <string>

#include "PacTestSupport.h"
#include "TestSupport.h"

namespace {

struct Row {
    const char *expression;
    const char *expected;
};

const char kTrue[] = "boolean:true";
const char kFalse[] = "boolean:false";
const char kBadParamCount[] = "error:8002000e";

// Local time runs two hours ahead of UTC, across a year's end: locally
// Monday 2024-01-01 01:30:45, in GMT Sunday 2023-12-31 23:30:45.
class YearEnd : public testing::Test {
protected:
    void SetUp() override {
        FakeClock::Install(platform_, UtcTime(2023, 12, 31, 23, 30, 45));
        FakeClock::localOffsetSeconds = 2 * 3600;
    }
    void TearDown() override { FakeClock::localOffsetSeconds = 0; }
    void Check(const Row *rows, size_t count) {
        for (size_t i = 0; i < count; ++i)
            EXPECT_EQ(rows[i].expected, Eval(rows[i].expression)) << rows[i].expression;
    }
    ScopedPlatform platform_;
};

TEST_F(YearEnd, TimeRange) {
    const Row rows[] = {
        // One hour: h1 to h1 + 1.
        {"timeRange(1)", kTrue},
        {"timeRange(0)", kTrue},
        {"timeRange(2)", kFalse},
        {"timeRange(23)", kFalse},
        {"timeRange(23, 'GMT')", kTrue},
        {"timeRange(22, 'gmt')", kTrue},
        {"timeRange(1, 'Gmt')", kFalse},
        // Two hours, inclusive, never wrapping past midnight.
        {"timeRange(1, 3)", kTrue},
        {"timeRange(2, 3)", kFalse},
        {"timeRange(0, 0)", kFalse},
        {"timeRange(22, 2)", kFalse},
        {"timeRange(20, 23, 'GMT')", kTrue},
        // Four: hours and minutes each on their own.
        {"timeRange(1, 30, 1, 30)", kTrue},
        {"timeRange(0, 31, 5, 59)", kFalse},
        {"timeRange(0, 0, 23, 59)", kTrue},
        {"timeRange(0, 30, 17, 0)", kFalse},
        {"timeRange(23, 30, 23, 30, 'GMT')", kTrue},
        // Six: seconds too.
        {"timeRange(1, 30, 45, 1, 30, 45)", kTrue},
        {"timeRange(1, 30, 46, 1, 30, 59)", kFalse},
        {"timeRange(0, 0, 0, 23, 59, 59)", kTrue},
        {"timeRange(23, 30, 45, 23, 30, 45, 'GMT')", kTrue},
        {"timeRange(1, 30, 45, 1, 30, 45, 'GMT')", kFalse},
        // Three, five and seven counted arguments are never true.
        {"timeRange(0, 0, 23)", kFalse},
        {"timeRange(0, 0, 0, 23, 59)", kFalse},
        {"timeRange(0, 0, 0, 23, 59, 59, 1)", kFalse},
        {"timeRange(0, 0, 23, 'GMT')", kFalse},
        // A string other than "GMT" counts as the number 0.
        {"timeRange(5)", kFalse},
        {"timeRange('5')", kTrue},
        {"timeRange(1, 'x')", kFalse},
        {"timeRange('x', 1)", kTrue},
        // Any other kind ends the walk; first argument must count.
        {"timeRange('GMT')", kFalse},
        {"timeRange(1.5)", kFalse},
        {"timeRange(null)", kFalse},
        {"timeRange(true)", kFalse},
        {"timeRange({})", kFalse},
        {"timeRange(undefined)", kFalse},
        {"timeRange(1, null)", kTrue},
        {"timeRange(1, 3.5)", kTrue},
        {"timeRange(1, 3.5, 'GMT')", kTrue},
        {"timeRange(3000000000)", kFalse},
        {"timeRange()", kBadParamCount},
        {"timeRange(1, 2, 3, 4, 5, 6, 7, 8)", kBadParamCount},
    };
    Check(rows, sizeof rows / sizeof rows[0]);
}

TEST_F(YearEnd, WeekdayRange) {
    const Row rows[] = {
        {"weekdayRange('MON')", kTrue},
        {"weekdayRange('SUN')", kFalse},
        {"weekdayRange('SUN', 'GMT')", kTrue},
        {"weekdayRange('MON', 'GMT')", kFalse},
        {"weekdayRange('SUN', 'gmt')", kTrue},
        {"weekdayRange('SUN', '', 'GMT')", kTrue},
        {"weekdayRange('MON', 'FRI')", kTrue},
        {"weekdayRange('TUE', 'FRI')", kFalse},
        {"weekdayRange('MON', 'MON')", kTrue},
        {"weekdayRange('SUN', 'SAT')", kTrue},
        // Wrapping round the end of the week.
        {"weekdayRange('SAT', 'MON')", kTrue},
        {"weekdayRange('TUE', 'MON')", kTrue},
        {"weekdayRange('FRI', 'SUN')", kFalse},
        {"weekdayRange('FRI', 'SUN', 'GMT')", kTrue},
        {"weekdayRange('TUE', 'SAT', 'GMT')", kFalse},
        // Anything else.
        {"weekdayRange('mon')", kFalse},
        {"weekdayRange('MONDAY')", kFalse},
        {"weekdayRange('')", kFalse},
        {"weekdayRange('MON-FRI')", kFalse},
        {"weekdayRange('MON', 'XYZ')", kFalse},
        {"weekdayRange('MON', 'FRI', 'local')", kFalse},
        {"weekdayRange('GMT')", kFalse},
        {"weekdayRange(1)", kFalse},
        {"weekdayRange('MON', undefined)", kTrue},
        {"weekdayRange(null)", "error:80020005"},
        {"weekdayRange()", kBadParamCount},
        {"weekdayRange('MON', 'TUE', 'GMT', 'x')", kBadParamCount},
    };
    Check(rows, sizeof rows / sizeof rows[0]);
}

TEST_F(YearEnd, DateRange) {
    const Row rows[] = {
        // 1. day
        {"dateRange(1)", kTrue},
        {"dateRange(31)", kFalse},
        {"dateRange(31, 'GMT')", kTrue},
        {"dateRange(1, 'gmt')", kFalse},
        // 2. day1, day2, wrapping round the month's end
        {"dateRange(1, 5)", kTrue},
        {"dateRange(2, 5)", kFalse},
        {"dateRange(25, 5)", kTrue},
        {"dateRange(2, 30)", kFalse},
        {"dateRange(30, 31, 'GMT')", kTrue},
        // 3. month
        {"dateRange('JAN')", kTrue},
        {"dateRange('DEC')", kFalse},
        {"dateRange('DEC', 'GMT')", kTrue},
        // 4. month1, month2, wrapping round the year's end
        {"dateRange('JAN', 'MAR')", kTrue},
        {"dateRange('NOV', 'FEB')", kTrue},
        {"dateRange('FEB', 'NOV')", kFalse},
        {"dateRange('NOV', 'DEC', 'GMT')", kTrue},
        // 5. year
        {"dateRange(2024)", kTrue},
        {"dateRange(2023)", kFalse},
        {"dateRange(2023, 'GMT')", kTrue},
        // 6. year1, year2, never wrapping
        {"dateRange(2020, 2024)", kTrue},
        {"dateRange(2025, 2030)", kFalse},
        {"dateRange(2024, 2020)", kFalse},
        {"dateRange(2020, 2023, 'GMT')", kTrue},
        // 7. day1, month1, day2, month2, wrapping
        {"dateRange(1, 'JAN', 5, 'JAN')", kTrue},
        {"dateRange(2, 'JAN', 5, 'FEB')", kFalse},
        {"dateRange(24, 'DEC', 6, 'JAN')", kTrue},
        {"dateRange(24, 'DEC', 30, 'DEC')", kFalse},
        {"dateRange(24, 'DEC', 31, 'DEC', 'GMT')", kTrue},
        // 8. month1, year1, month2, year2
        {"dateRange('JAN', 2024, 'MAR', 2024)", kTrue},
        {"dateRange('DEC', 2023, 'JAN', 2024)", kTrue},
        {"dateRange('FEB', 2024, 'JAN', 2024)", kFalse},
        {"dateRange('JAN', 2023, 'DEC', 2023)", kFalse},
        {"dateRange('JAN', 2023, 'DEC', 2023, 'GMT')", kTrue},
        // 9. day1, month1, year1, day2, month2, year2
        {"dateRange(1, 'JAN', 2024, 1, 'JAN', 2024)", kTrue},
        {"dateRange(31, 'DEC', 2023, 1, 'JAN', 2024)", kTrue},
        {"dateRange(2, 'JAN', 2024, 31, 'DEC', 2023)", kFalse},
        {"dateRange(1, 'DEC', 2023, 31, 'DEC', 2023)", kFalse},
        // 10. the same with "GMT"
        {"dateRange(1, 'DEC', 2023, 31, 'DEC', 2023, 'GMT')", kTrue},
        {"dateRange(1, 'JAN', 2024, 31, 'DEC', 2024, 'gMt')", kFalse},
        // Anything else.
        {"dateRange(0)", kFalse},
        {"dateRange(32)", kFalse},
        {"dateRange(999)", kFalse},
        {"dateRange(10000)", kFalse},
        {"dateRange(-1)", kFalse},
        {"dateRange(1.5)", kFalse},
        {"dateRange('jan')", kFalse},
        {"dateRange('January')", kFalse},
        {"dateRange('1')", kFalse},
        {"dateRange(null)", kFalse},
        {"dateRange(true)", kFalse},
        {"dateRange({})", kFalse},
        {"dateRange([1])", kFalse},
        {"dateRange(undefined)", kFalse},
        {"dateRange(1, undefined)", kFalse},
        {"dateRange('GMT')", kFalse},
        {"dateRange(1, 'GMT', 'GMT')", kFalse},
        {"dateRange(1, 'JAN')", kFalse},
        {"dateRange('JAN', 1)", kFalse},
        {"dateRange(2024, 'JAN')", kFalse},
        {"dateRange(1, 2, 3)", kFalse},
        {"dateRange(1, 'JAN', 2024)", kFalse},
        {"dateRange(1, 'JAN', 2024, 1)", kFalse},
        {"dateRange(1, 'JAN', 2024, 1, 'JAN')", kFalse},
        {"dateRange(1, 'JAN', 2024, 1, 'JAN', 2024, 'local')", kFalse},
        {"dateRange(1, 'JAN', 1, 'FEB', 'x')", kFalse},
        {"dateRange()", kBadParamCount},
        {"dateRange(1, 2, 3, 4, 5, 6, 7, 8)", kBadParamCount},
    };
    Check(rows, sizeof rows / sizeof rows[0]);
}

// Mid-month, local time equal to UTC: Monday 2024-07-15 12:00:00.
TEST(MidYear, RangeEdges) {
    ScopedPlatform platform;
    FakeClock::Install(platform, UtcTime(2024, 7, 15, 12, 0, 0));
    const Row rows[] = {
        {"dateRange(1, 'JUL', 31, 'JUL')", kTrue},
        {"dateRange(15, 'JUL', 15, 'JUL')", kTrue},
        {"dateRange(16, 'JUL', 14, 'JUL')", kFalse},
        {"dateRange(16, 'JUL', 15, 'JUL')", kTrue},
        {"dateRange(31, 'JAN', 1, 'JUL')", kFalse},
        {"dateRange('JUL', 2024, 'JUL', 2024)", kTrue},
        {"dateRange(16, 14)", kFalse},
        {"dateRange(15, 'JUL', 2024, 15, 'JUL', 2024)", kTrue},
        {"dateRange(16, 'JUN', 2024, 14, 'JUL', 2024)", kFalse},
        {"weekdayRange('MON', 'GMT')", kTrue},
        {"weekdayRange('SAT', 'SUN')", kFalse},
        {"timeRange(12)", kTrue},
        {"timeRange(11)", kTrue},
        {"timeRange(10)", kFalse},
        {"timeRange(12, 0, 0, 12, 0, 0)", kTrue},
    };
    for (const Row &row : rows) EXPECT_EQ(row.expected, Eval(row.expression)) << row.expression;
}

}  // namespace
