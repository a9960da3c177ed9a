#include <gtest/gtest.h>

#include "TestSupport.h"
#include "trace/ZelComponent.h"
#include "trace/ZelTraceManager.h"
#include "trace/tracefunc.h"

namespace {

const std::string kExe = ZelExecutableName();

testing::AssertionResult StartsWith(const std::string &text, const std::string &start) {
    if (text.compare(0, start.size(), start) == 0) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "\"" << text << "\" does not start with \"" << start
                                       << "\"";
}

void Traced(const char *name) {
    tracefunc tf(__LINE__, "tracefuncTest", name);
    tf << "detail of " << name << endtrace;
}

struct ThresholdCase {
    const char *level;
    bool scopeLines;
    bool detail;
};

class ThresholdTest : public testing::TestWithParam<ThresholdCase> {};

TEST_P(ThresholdTest, DecidesWhichLinesAppear) {
    TempDir dir;
    ScopedTrace trace(dir.file("t.txt"), GetParam().level);
    Traced("work");
    EXPECT_EQ(trace.linesWith("work(tracefuncTest:").size(), GetParam().scopeLines ? 2u : 0u);
    EXPECT_EQ(trace.linesWith("detail of work").size(), GetParam().detail ? 1u : 0u);
}

INSTANTIATE_TEST_SUITE_P(Table, ThresholdTest,
                         testing::Values(ThresholdCase{"detailed", true, true},
                                         ThresholdCase{"trace", true, false},
                                         ThresholdCase{"error", false, false},
                                         ThresholdCase{"Trace", true, true}));

TEST(tracefuncTest, EntryAndExitLinesTellTheScope) {
    TempDir dir;
    ScopedClock clock;
    FakeClock::Install(clock, UtcTime(2020, 2, 2, 2, 2, 2));
    // The tick counter wraps while the function runs.
    FakeClock::tick = 0xFFFFFFF0u;
    ScopedTrace trace(dir.file("t.txt"));
    {
        tracefunc tf(77, "File", "Fn", 0x123456789ABCull);
        FakeClock::tick = 0x10;
    }
    {
        tracefunc tf(78, "File", "High", 0x100000000ull);
    }
    const auto lines = trace.lines();
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_TRUE(StartsWith(LineText(lines[0]), "Fn[ 0x56789ABC ] (File:77):  Entered (tid="));
    EXPECT_TRUE(
        StartsWith(LineText(lines[1]), "Fn[ 0x56789ABC ] (File:77): Exited (delta = 32ms) (tid="));
    EXPECT_TRUE(StartsWith(LineText(lines[2]), "High[ 0x0 ] (File:78):  Entered"));
    EXPECT_EQ(LineLevel(lines[0]), "Trace");
    // The momentary "tracer" component does not show: the caller's does.
    EXPECT_EQ(LineComponent(lines[0]), "default");
}

TEST(tracefuncTest, UnendedMessageOfAQuietTracerIsWrittenAtExit) {
    TempDir dir;
    ScopedTrace trace(dir.file("t.txt"));
    {
        tracefunc tf(__LINE__, "File", "Quiet", 0, true);
        tf << "begun but never ended";
    }
    const auto lines = trace.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(LineLevel(lines[0]), "Trace");
    EXPECT_EQ(LineText(lines[0]), "begun but never ended");
}

TEST(tracefuncTest, FileOpenedWhileAFunctionRunsGivesOnlyTheExitLine) {
    TempDir dir;
    ScopedClock clock;
    FakeClock::Install(clock, UtcTime(2022, 3, 3, 3, 3, 3));
    auto none = ScopedRegistryValue::Absent("Debug-" + kExe);
    ZelTraceReload();
    {
        tracefunc tf(5, "File", "Late");
        auto now = ScopedRegistryValue::String("Debug-" + kExe, dir.file("late.txt"));
        FakeClock::now += 60;
        tf << "said once the file is open" << endtrace;
    }
    const auto lines = ReadLines(dir.file("late.txt"));
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_TRUE(StartsWith(LineText(lines[0]), "said once the file is open (tid="));
    EXPECT_TRUE(StartsWith(LineText(lines[1]), "Late(File:5): Exited (delta = "));
    ZelTraceReload();
}

TEST(tracefuncTest, InsertionsFormatEachKind) {
    TempDir dir;
    ScopedTrace trace(dir.file("t.txt"));
    {
        tracefunc tf(__LINE__, "File", "Kinds", 0, true);
        tf.level(ZEL_DETAIL) << "[" << -5 << "|" << 4294967295u << "|" << -7L << "|" << 7UL << "|"
                             << ZelHexValue(0xABCDEFu) << "|" << L"caf\u00e9" << "|"
                             << L"bad\xD800" << "|" << std::string("std") << "|"
                             << static_cast<const char *>(nullptr) << "]" << endtrace;
        tf.level(ZEL_ERROR) << "an error" << endtrace;
    }
    // The refused wide text is traced by the conversion itself, and is
    // inserted as nothing.
    EXPECT_EQ(trace.linesWith("...encountered case with chars above UCS-2 range").size(), 1u);
    const auto kinds = trace.linesWith("[-5|");
    ASSERT_EQ(kinds.size(), 1u);
    const std::string text = LineText(kinds[0]);
    EXPECT_EQ(text.substr(0, text.find(" (tid=")),
              "[-5|4294967295|-7|7|ABCDEF|caf\xC3\xA9||std|]");
    const auto error = trace.linesWith("an error");
    ASSERT_EQ(error.size(), 1u);
    EXPECT_EQ(LineLevel(error[0]), "Error");
}

TEST(tracefuncTest, NothingHappensWithoutTheManagers) {
    ZelTraceShutdown();
    {
        ZelComponent component("Routvane");
        tracefunc tf(__LINE__, "File", "NoManagers");
        tf << "dropped" << 1 << endtrace;
    }
    ZelTraceStartup();
    EXPECT_NE(ZelTraceManagerInstance(), nullptr);
}

}  // namespace
