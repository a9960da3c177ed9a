#include <gtest/gtest.h>

#include <regex>
#include <thread>

#include "TestSupport.h"
#include "trace/ZelComponent.h"
#include "trace/ZelTraceManager.h"
#include "trace/tracefunc.h"

namespace {

const std::string kExe = ZelExecutableName();

void Say(const std::string &text) {
    tracefunc tf(__LINE__, "WriterTest", "Say", 0, true);
    tf << text << endtrace;
}

TEST(WriterTest, NoFileSettingWritesNothingWhateverTheLevel) {
    auto level = ScopedRegistryValue::String("DebugLevel-" + kExe, "detailed");
    auto file = ScopedRegistryValue::Absent("Debug-" + kExe);
    ZelTraceReload();
    EXPECT_FALSE(ZelTraceManagerInstance()->refresh());
    EXPECT_FALSE(ZelTraceManagerInstance()->isEnabled(ZEL_ERROR));
    Say("nowhere");
}

TEST(WriterTest, LinesCarryTheExactPrefix) {
    TempDir dir;
    ScopedClock clock;
    FakeClock::localOffsetSeconds = 0;
    FakeClock::Install(clock, UtcTime(2016, 5, 3, 14, 2, 11));
    FakeClock::milliseconds = 123;
    ScopedTrace trace(dir.file("trace.txt"));
    {
        ZelComponent component("Routvane");
        tracefunc tf(1359, "Routvane", "Routvane::readURL");
        tf << "Using WPAD Connect timeout: " << 5000u << " ms" << endtrace;
    }
    const auto lines = trace.lines();
    ASSERT_EQ(lines.size(), 3u);
    const std::string tid = std::to_string(GetCurrentThreadId());
    EXPECT_EQ(lines[0], "2016-05-03 14:02:11.123: \tTrace\tRoutvane\tRoutvane::readURL(Routvane:1359):"
                        "  Entered (tid=" + tid + ";function=Routvane::readURL)");
    EXPECT_EQ(lines[1], "2016-05-03 14:02:11.123: \tDetail\tRoutvane\tUsing WPAD Connect timeout: 5000"
                        " ms (tid=" + tid + ";function=Routvane::readURL)");
    EXPECT_EQ(lines[2], "2016-05-03 14:02:11.123: \tTrace\tRoutvane\tRoutvane::readURL(Routvane:1359):"
                        " Exited (delta = 0ms) (tid=" + tid + ";function=Routvane::readURL)");
    // Text mode: every line ends in a carriage return and a line feed.
    const std::string raw = ReadFileText(trace.path());
    EXPECT_EQ(raw.substr(raw.size() - 2), "\r\n");
}

TEST(WriterTest, TwoThreadsWriteOnlyWholeLines) {
    TempDir dir;
    ScopedTrace trace(dir.file("threads.txt"));
    const int kLines = 400;
    auto writer = [&](const char *who) {
        ZelComponent component(who);
        for (int i = 0; i < kLines; ++i) {
            tracefunc tf(__LINE__, "WriterTest", who, 0, true);
            tf << who << " line " << i << endtrace;
        }
    };
    std::thread a(writer, "alpha"), b(writer, "beta");
    a.join();
    b.join();
    const std::regex line(
        "\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3}: \t(Detail|Trace|Error)\t(alpha|beta)\t"
        "(alpha|beta) line \\d+ \\(tid=\\d+;function=(alpha|beta)\\)");
    const auto lines = trace.lines();
    ASSERT_EQ(lines.size(), 2u * kLines);
    int alpha = 0;
    for (const std::string &l : lines) {
        std::smatch m;
        ASSERT_TRUE(std::regex_match(l, m, line)) << l;
        EXPECT_EQ(m[2], m[3]);
        EXPECT_EQ(m[3], m[4]);
        alpha += m[2] == "alpha";
    }
    EXPECT_EQ(alpha, kLines);
}

TEST(WriterTest, RolledNames) {
    struct tm day = {};
    day.tm_year = 116;
    day.tm_mon = 4;
    day.tm_mday = 3;
    const struct {
        const char *path;
        const char *rolled;
    } rows[] = {
        {"C:\\logs\\trace.txt", "C:\\logs\\trace_2016-05-03.txt"},
        {"C:\\logs.d\\trace", "C:\\logs.d\\trace_2016-05-03"},
        {"trace", "trace_2016-05-03"},
        {"a.b.c", "a.b_2016-05-03.c"},
        {"C:\\x.y\\z.log", "C:\\x.y\\z_2016-05-03.log"},
        {"C:/logs.d/trace", "C:/logs_2016-05-03.d/trace"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(ZelTraceManager::RolledName(row.path, day), row.rolled) << row.path;
}

TEST(WriterTest, FirstLineAfterLocalMidnightRollsTheFile) {
    TempDir dir;
    ScopedClock clock;
    // Local time runs two hours ahead of UTC: the roll follows local days.
    FakeClock::localOffsetSeconds = 2 * 3600;
    FakeClock::Install(clock, UtcTime(2016, 5, 3, 21, 59, 0));
    ScopedTrace trace(dir.file("trace.txt"));
    Say("before midnight");
    FakeClock::now = UtcTime(2016, 5, 3, 21, 59, 59);
    Say("still the 3rd");
    EXPECT_FALSE(FileExists(dir.file("trace_2016-05-03.txt")));
    FakeClock::now = UtcTime(2016, 5, 3, 22, 0, 1);  // 00:00:01 local on the 4th
    Say("after midnight");
    const auto rolled = ReadLines(dir.file("trace_2016-05-03.txt"));
    ASSERT_EQ(rolled.size(), 2u);
    EXPECT_EQ(LineText(rolled[1]).substr(0, 13), "still the 3rd");
    const auto current = trace.lines();
    ASSERT_EQ(current.size(), 1u);
    EXPECT_EQ(LineText(current[0]).substr(0, 14), "after midnight");
    // UTC time stamps, local roll-over date: the line of the 4th is stamped the 3rd.
    EXPECT_EQ(current[0].substr(0, 10), "2016-05-03");
}

TEST(WriterTest, AFailedRenameKeepsAppendingToTheSameFile) {
    TempDir dir;
    ScopedClock clock;
    FakeClock::localOffsetSeconds = 0;
    FakeClock::Install(clock, UtcTime(2020, 1, 1, 23, 0, 0));
    WriteFileText(dir.file("trace_2020-01-01.txt"), "already here\n");
    ScopedTrace trace(dir.file("trace.txt"));
    Say("one");
    FakeClock::now += 2 * 3600;
    Say("two");
    EXPECT_EQ(ReadFileText(dir.file("trace_2020-01-01.txt")), "already here\n");
    const auto lines = trace.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(LineText(lines[1]).substr(0, 3), "two");
}

TEST(WriterTest, TheFileSettingIsReadAgainAfterAMinute) {
    TempDir dir;
    ScopedClock clock;
    FakeClock::Install(clock, UtcTime(2021, 6, 1, 12, 0, 0));
    ScopedTrace trace(dir.file("first.txt"));
    Say("first 1");
    auto second = ScopedRegistryValue::String("Debug-" + kExe, dir.file("second.txt"));
    FakeClock::now += 59;
    Say("first 2");
    FakeClock::now += 1;
    Say("second 1");
    {
        // Deleting the value keeps tracing to the file that is open.
        auto gone = ScopedRegistryValue::Absent("Debug-" + kExe);
        FakeClock::now += 61;
        Say("second 2");
    }
    EXPECT_EQ(ReadLines(dir.file("first.txt")).size(), 2u);
    const auto lines = ReadLines(dir.file("second.txt"));
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(LineText(lines[1]).substr(0, 8), "second 2");
}

struct BadPath {
    const char *name;
    std::string path;
};

class BadTracePathTest : public testing::TestWithParam<BadPath> {};

TEST_P(BadTracePathTest, LeavesTracingOffWithoutFailingTheCaller) {
    TempDir dir;
    CreateDirectoryA(dir.file("folder").c_str(), nullptr);
    std::string path = GetParam().path;
    if (path.rfind("@", 0) == 0) path = dir.file(path.substr(1));
    ScopedTrace trace(path);
    EXPECT_FALSE(ZelTraceManagerInstance()->refresh());
    Say("goes nowhere");
    SUCCEED();
}

INSTANTIATE_TEST_SUITE_P(
    Table, BadTracePathTest,
    testing::Values(BadPath{"directory", "@folder"}, BadPath{"missing_folder", "@no\\such\\t.txt"},
                    BadPath{"overlong", "C:\\" + std::string(600, 'x') + ".txt"},
                    BadPath{"bad_characters", "@t<>|.txt"}),
    [](const testing::TestParamInfo<BadPath> &info) { return std::string(info.param.name); });

TEST(WriterTest, FileValueOfAnotherTypeIsIgnored) {
    TempDir dir;
    const std::string path = dir.file("t.txt");
    auto value = ScopedRegistryValue::Raw("Debug-" + kExe, REG_EXPAND_SZ, path.c_str(),
                                          static_cast<DWORD>(path.size() + 1));
    ZelTraceReload();
    EXPECT_FALSE(ZelTraceManagerInstance()->refresh());
    EXPECT_FALSE(FileExists(path));
}

TEST(WriterTest, ForcedTraceFileHookIsOffByDefaultAndWinsWhenSet) {
    TempDir dir;
    const std::string forced = dir.file("forced.txt");
    // Off by default: no file setting, no forced file, nothing written.
    {
        auto file = ScopedRegistryValue::Absent("Debug-" + kExe);
        ZelTraceReload();
        EXPECT_FALSE(ZelTraceManagerInstance()->refresh());
        ZelForceTraceFile(forced);
        EXPECT_TRUE(ZelTraceManagerInstance()->refresh());
        Say("forced without a file setting");
        ZelForceTraceFile("");
        EXPECT_FALSE(ZelTraceManagerInstance()->refresh());
        Say("after the hook is cleared");
        const auto lines = ReadLines(forced);
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_EQ(LineText(lines[0]).substr(0, 30), "forced without a file setting ");
        // The file is closed again: it can be deleted.
        EXPECT_TRUE(DeleteFileA(forced.c_str()));
    }
    // Over the registry's file setting, which gets no line while forced, and
    // not even after a minute when the setting is read again otherwise.
    ScopedClock clock;
    FakeClock::Install(clock, UtcTime(2016, 5, 3, 10, 0, 0));
    ScopedTrace trace(dir.file("registry.txt"));
    Say("to the registry's file");
    ZelForceTraceFile(forced);
    Say("to the forced file");
    FakeClock::now += 120;
    Say("still to the forced file");
    ZelForceTraceFile("");
    ASSERT_EQ(ReadLines(forced).size(), 2u);
    EXPECT_EQ(LineText(ReadLines(forced)[1]).substr(0, 24), "still to the forced file");
    ASSERT_EQ(trace.lines().size(), 1u);
    EXPECT_EQ(LineText(trace.lines()[0]).substr(0, 22), "to the registry's file");
}

}  // namespace
