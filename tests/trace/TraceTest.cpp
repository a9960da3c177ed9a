// Tracing: the settings read from the registry (file, level, filter), the
// lines and their prefix, tracefunc's scope lines, the daily roll-over and
// the forced file.
#include <gtest/gtest.h>

#include <regex>
#include <thread>

#include "TestSupport.h"
#include "trace/ZelComponent.h"
#include "trace/ZelTraceManager.h"
#include "trace/tracefunc.h"

namespace {

const std::string kExe = ZelExecutableName();

// One line of text in a scope of its own, with entry and exit lines unless
// quiet.
void Say(const std::string &text, bool quiet = true) {
    tracefunc tf(__LINE__, "TraceTest", "Say", 0, quiet);
    tf << text << endtrace;
}

testing::AssertionResult StartsWith(const std::string &text, const std::string &start) {
    if (text.compare(0, start.size(), start) == 0) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "\"" << text << "\" does not start with \"" << start
                                       << "\"";
}

// ---------------------------------------------------------------- settings

// The level value as the registry holds it decides which lines appear: a
// level word of type REG_SZ, exactly as written; anything else is level 0,
// every line.
TEST(Settings, LevelValueDecidesWhichLinesAppear) {
    const struct {
        const char *name;
        DWORD type;
        std::string data;
        bool scopeLines, detail;
    } rows[] = {{"detailed", REG_SZ, std::string("detailed\0", 9), true, true},
                {"trace", REG_SZ, std::string("trace\0", 6), true, false},
                {"error", REG_SZ, std::string("error\0", 6), false, false},
                {"Trace", REG_SZ, std::string("Trace\0", 6), true, true},
                {"trailing blank", REG_SZ, std::string("error \0", 7), true, true},
                {"errors", REG_SZ, std::string("errors\0", 7), true, true},
                {"expand_sz", REG_EXPAND_SZ, std::string("error\0", 6), true, true},
                {"dword", REG_DWORD, std::string("\2\0\0\0", 4), true, true},
                {"empty", REG_SZ, std::string("\0", 1), true, true},
                {"overlong", REG_SZ, std::string(300, 'e') + '\0', true, true}};
    for (const auto &row : rows) {
        TempDir dir;
        ScopedTrace trace(dir.file("t.txt"));
        auto value = ScopedRegistryValue::Raw("DebugLevel-" + kExe, row.type, row.data.data(),
                                              static_cast<DWORD>(row.data.size()));
        ZelTraceReload();
        Say("detail of work", false);
        EXPECT_EQ(trace.linesWith("Say(TraceTest:").size(), row.scopeLines ? 2u : 0u) << row.name;
        EXPECT_EQ(trace.linesWith("detail of work").size(), row.detail ? 1u : 0u) << row.name;
    }
}

TEST(Settings, FilterText) {
    const struct {
        std::string text;
        uint32_t mode;  // 0 exclude, 1 only
        std::set<std::string> names;
    } rows[] = {{"exclude:tracer,Routvane", 0, {"tracer", "Routvane"}},
                {"exclude:", 0, {}},
                {"exclude:a:b", 0, {}},
                {"exclude:a:", 0, {"a"}},
                {"  exclude  :  a , , b  ,", 0, {"a", "b"}},
                {"only:Routvane", 1, {"Routvane"}},
                {"include:x", 1, {"x"}},
                {"Exclude:x", 1, {"x"}},
                {":a", 0, {}},
                {"   :a", 0, {}},
                {"", 0, {}},
                {"only:", 0, {}},
                {"only:,,", 1, {}},
                {"exclude:a\tb", 0, {"a\tb"}}};
    for (const auto &row : rows) {
        ZelTraceComponentManager manager;
        manager.setFilter(row.text);
        EXPECT_EQ(manager.filterMode(), row.mode) << row.text;
        EXPECT_EQ(manager.filterNames(), row.names) << row.text;
    }
}

// The filter judges the component current when the line is written; lines
// outside any component belong to "default".
TEST(Settings, FilterDecidesByTheCurrentComponent) {
    const struct {
        const char *filter;
        bool routvane, other, none;
    } rows[] = {{"only:Routvane", true, false, false},
                {" exclude : tracer , Routvane ", false, true, true}};
    for (const auto &row : rows) {
        TempDir dir;
        ScopedTrace trace(dir.file("t.txt"), "", row.filter);
        for (const char *name : {"Routvane", "Other"}) {
            ZelComponent component(name);
            Say(std::string("from ") + name, false);
        }
        Say("outside any component");
        // The scope lines of the one that passes: tracefunc's own momentary
        // "tracer" component does not count.
        EXPECT_EQ(trace.linesWith("Say(TraceTest:").size(), 2u) << row.filter;
        EXPECT_EQ(trace.linesWith("from Routvane").size(), row.routvane ? 1u : 0u) << row.filter;
        EXPECT_EQ(trace.linesWith("from Other").size(), row.other ? 1u : 0u) << row.filter;
        EXPECT_EQ(trace.linesWith("outside any component").size(), row.none ? 1u : 0u)
            << row.filter;
    }
}

TEST(Settings, ComponentStacksArePerThreadAndUnderflowGivesDefault) {
    ZelTraceComponentManager *manager = ZelComponentManagerInstance();
    ASSERT_NE(manager, nullptr);
    ZelComponent outer("Outer");
    {
        ZelComponent inner("Inner");
        EXPECT_EQ(manager->current().name(), "Inner");
        std::string seen;
        std::thread([&] { seen = manager->current().name(); }).join();
        EXPECT_EQ(seen, "default");
    }
    EXPECT_EQ(manager->current().name(), "Outer");
    std::string afterUnderflow;
    std::thread([&] {
        manager->pop();
        manager->pop();
        afterUnderflow = manager->current().name();
        ZelComponent again("Again");
        afterUnderflow += "," + manager->current().name();
    }).join();
    EXPECT_EQ(afterUnderflow, "default,Again");
}

// The settings are named after the program's file name alone.
TEST(Settings, KeyedByTheExecutableName) {
    EXPECT_EQ(kExe, "trace_tests.exe");
}

// No file setting, or one that names no file that can be opened, or one
// not of type REG_SZ: tracing stays off and the caller goes on.
TEST(Settings, UnusableFileSettingsLeaveTracingOff) {
    TempDir dir;
    CreateDirectoryA(dir.file("folder").c_str(), nullptr);
    const struct {
        const char *name;
        DWORD type;  // REG_NONE: no value
        std::string path;
    } rows[] = {{"absent", REG_NONE, ""},
                {"directory", REG_SZ, dir.file("folder")},
                {"missing folder", REG_SZ, dir.file("no\\such\\t.txt")},
                {"overlong", REG_SZ, "C:\\" + std::string(600, 'x') + ".txt"},
                {"bad characters", REG_SZ, dir.file("t<>|.txt")},
                {"expand_sz", REG_EXPAND_SZ, dir.file("t.txt")}};
    for (const auto &row : rows) {
        auto level = ScopedRegistryValue::String("DebugLevel-" + kExe, "detailed");
        auto file = row.type == REG_NONE
                        ? ScopedRegistryValue::Absent("Debug-" + kExe)
                        : ScopedRegistryValue::Raw("Debug-" + kExe, row.type, row.path.c_str(),
                                                   static_cast<DWORD>(row.path.size() + 1));
        ZelTraceReload();
        EXPECT_FALSE(ZelTraceManagerInstance()->refresh()) << row.name;
        Say("goes nowhere");
    }
    EXPECT_FALSE(FileExists(dir.file("t.txt")));
    ZelTraceReload();
}

// ------------------------------------------------------------------- lines

TEST(Lines, CarryTheExactPrefixAndTellTheScope) {
    TempDir dir;
    ScopedClock clock;
    FakeClock::localOffsetSeconds = 0;
    FakeClock::Install(clock, UtcTime(2016, 5, 3, 14, 2, 11));
    FakeClock::milliseconds = 123;
    // The tick counter wraps while the function runs.
    FakeClock::tick = 0xFFFFFFF0u;
    ScopedTrace trace(dir.file("trace.txt"));
    {
        ZelComponent component("Routvane");
        tracefunc tf(1359, "Routvane", "Routvane::readURL");
        tf << "Using WPAD Connect timeout: " << 5000u << " ms" << endtrace;
        FakeClock::tick = 0x10;
    }
    {
        // An object shows the low 32 bits of its address, zero included.
        tracefunc fn(77, "File", "Fn", 0x123456789ABCull);
        tracefunc high(78, "File", "High", 0x100000000ull);
    }
    const auto lines = trace.lines();
    ASSERT_EQ(lines.size(), 7u);
    const std::string stamp = "2016-05-03 14:02:11.123: \t";
    const std::string tail =
        " (tid=" + std::to_string(GetCurrentThreadId()) + ";function=Routvane::readURL)";
    const std::string scope = "\tRoutvane\tRoutvane::readURL(Routvane:1359):";
    EXPECT_EQ(lines[0], stamp + "Trace" + scope + "  Entered" + tail);
    EXPECT_EQ(lines[1], stamp + "Detail\tRoutvane\tUsing WPAD Connect timeout: 5000 ms" + tail);
    EXPECT_EQ(lines[2], stamp + "Trace" + scope + " Exited (delta = 32ms)" + tail);
    EXPECT_TRUE(StartsWith(LineText(lines[3]), "Fn[ 0x56789ABC ] (File:77):  Entered (tid="));
    EXPECT_TRUE(StartsWith(LineText(lines[4]), "High[ 0x0 ] (File:78):  Entered"));
    EXPECT_TRUE(StartsWith(LineText(lines[6]), "Fn[ 0x56789ABC ] (File:77): Exited (delta = 0ms)"));
    // The momentary "tracer" component does not show: the caller's does.
    EXPECT_EQ(LineComponent(lines[3]), "default");
    // Text mode: every line ends in a carriage return and a line feed.
    const std::string raw = ReadFileText(trace.path());
    EXPECT_EQ(raw.substr(raw.size() - 2), "\r\n");
}

TEST(Lines, TwoThreadsWriteOnlyWholeLines) {
    TempDir dir;
    ScopedTrace trace(dir.file("threads.txt"));
    const int kLines = 400;
    auto writer = [&](const char *who) {
        ZelComponent component(who);
        for (int i = 0; i < kLines; ++i) {
            tracefunc tf(__LINE__, "TraceTest", who, 0, true);
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

TEST(Lines, FileOpenedWhileAFunctionRunsGivesOnlyTheExitLine) {
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

TEST(Lines, InsertionsFormatEachKindAndAnUnendedMessageIsWrittenAtExit) {
    TempDir dir;
    ScopedTrace trace(dir.file("t.txt"));
    {
        tracefunc tf(__LINE__, "File", "Kinds", 0, true);
        // A wide text the conversion refuses is inserted as nothing.
        tf.level(ZEL_DETAIL) << "[" << -5 << "|" << 4294967295u << "|" << -7L << "|" << 7UL << "|"
                             << ZelHexValue(0xABCDEFu) << "|" << L"caf\u00e9" << "|"
                             << L"bad\xD800" << "|" << std::string("std") << "|"
                             << static_cast<const char *>(nullptr) << "]" << endtrace;
        tf.level(ZEL_ERROR) << "an error" << endtrace;
        // A message a quiet tracer began but never ended is written at exit.
        tf.level(ZEL_TRACE) << "begun but never ended";
    }
    const auto kinds = trace.linesWith("[-5|");
    ASSERT_EQ(kinds.size(), 1u);
    const std::string text = LineText(kinds[0]);
    EXPECT_EQ(text.substr(0, text.find(" (tid=")),
              "[-5|4294967295|-7|7|ABCDEF|caf\xC3\xA9||std|]");
    const auto error = trace.linesWith("an error");
    ASSERT_EQ(error.size(), 1u);
    EXPECT_EQ(LineLevel(error[0]), "Error");
    const auto lines = trace.lines();
    EXPECT_EQ(LineText(lines.back()), "begun but never ended");
    EXPECT_EQ(LineLevel(lines.back()), "Trace");
}

TEST(Lines, NothingHappensWithoutTheManagers) {
    ZelTraceShutdown();
    {
        ZelComponent component("Routvane");
        tracefunc tf(__LINE__, "File", "NoManagers");
        tf << "dropped" << 1 << endtrace;
    }
    ZelTraceStartup();
    EXPECT_NE(ZelTraceManagerInstance(), nullptr);
}

// ------------------------------------------------------------- the file

TEST(File, RolledNames) {
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

TEST(File, FirstLineAfterLocalMidnightRollsTheFile) {
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

TEST(File, AFailedRenameKeepsAppendingToTheSameFile) {
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

TEST(File, TheSettingIsReadAgainAfterAMinute) {
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

// The forced file (routvane.exe --trace; the client tests show it without a
// file setting) wins over the registry's, which gets no line while forced,
// not even after a minute when the setting is read again otherwise.
TEST(File, ForcedFileWinsOverTheSetting) {
    TempDir dir;
    const std::string forced = dir.file("forced.txt");
    ScopedClock clock;
    FakeClock::Install(clock, UtcTime(2016, 5, 3, 10, 0, 0));
    ScopedTrace trace(dir.file("registry.txt"));
    Say("to the registry's file");
    ZelForceTraceFile(forced);
    Say("to the forced file");
    FakeClock::now += 120;
    Say("still to the forced file");
    ZelForceTraceFile("");
    Say("to the registry's file again");
    ASSERT_EQ(ReadLines(forced).size(), 2u);
    EXPECT_EQ(LineText(ReadLines(forced)[1]).substr(0, 24), "still to the forced file");
    // The forced file is closed again: it can be deleted.
    EXPECT_TRUE(DeleteFileA(forced.c_str()));
    ASSERT_EQ(trace.lines().size(), 2u);
    EXPECT_EQ(LineText(trace.lines()[1]).substr(0, 28), "to the registry's file again");
}

}  // namespace
