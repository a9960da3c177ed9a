// Tracing: the settings read from the registry (file, level, filter), the
// lines and their prefix, tracefunc's scope lines, the daily roll-over and
// the forced file.
#include <gmock/gmock.h>
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

// A fresh folder for the trace files and the clock stopped at a fixed UTC
// time, local time the same.
class TraceFile : public testing::Test {
protected:
    TraceFile() {
        FakeClock::localOffsetSeconds = 0;
        FakeClock::Install(clock, UtcTime(2016, 5, 3, 14, 2, 11));
    }
    TempDir dir;
    ScopedClock clock;
};

using testing::StartsWith;

// ---------------------------------------------------------------- settings

// The level value as the registry holds it decides which lines appear: a
// level word of type REG_SZ, exactly as written; anything else is level 0,
// every line. The settings are named after the program's file name alone.
TEST_F(TraceFile, LevelValueDecidesWhichLinesAppear) {
    EXPECT_EQ(kExe, "trace_tests.exe");
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
                {"expand_sz", REG_EXPAND_SZ, std::string("error\0", 6), true, true}};
    for (const auto &row : rows) {
        ScopedTrace trace(dir.file(std::to_string(&row - rows) + ".txt"));
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
                {"exclude:a:b", 0, {}},
                {"exclude:a:", 0, {"a"}},
                {"  exclude  :  a , , b  ,", 0, {"a", "b"}},
                {"only:Routvane", 1, {"Routvane"}},
                {"Exclude:x", 1, {"x"}},
                {"   :a", 0, {}},
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
TEST_F(TraceFile, FilterDecidesByTheCurrentComponent) {
    const struct {
        const char *filter;
        bool routvane, other, none;
    } rows[] = {{"only:Routvane", true, false, false},
                {" exclude : tracer , Routvane ", false, true, true}};
    for (const auto &row : rows) {
        ScopedTrace trace(dir.file(std::to_string(&row - rows) + ".txt"), row.filter);
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

// A pop too many leaves the thread at "default", ready for the next push.
// (That each thread has a stack of its own shows in every line of
// TwoThreadsWriteOnlyWholeLines.)
TEST(Settings, UnderflowGivesDefault) {
    ZelTraceComponentManager *manager = ZelComponentManagerInstance();
    ASSERT_NE(manager, nullptr);
    std::string names;
    std::thread([&] {
        { ZelComponent once("Once"); }
        manager->pop();
        names = manager->current().name();
        ZelComponent again("Again");
        names += "," + manager->current().name();
    }).join();
    EXPECT_EQ(names, "default,Again");
}

// No file setting, or one that names no file that can be opened: tracing
// stays off and the caller goes on.
TEST_F(TraceFile, UnusableFileSettingsLeaveTracingOff) {
    CreateDirectoryA(dir.file("folder").c_str(), nullptr);
    const struct {
        const char *name;
        std::string path;  // empty: no value
    } rows[] = {{"absent", ""},
                {"directory", dir.file("folder")},
                {"overlong", "C:\\" + std::string(600, 'x') + ".txt"}};
    for (const auto &row : rows) {
        auto level = ScopedRegistryValue::String("DebugLevel-" + kExe, "detailed");
        auto file = row.path.empty() ? ScopedRegistryValue::Absent("Debug-" + kExe)
                                     : ScopedRegistryValue::String("Debug-" + kExe, row.path);
        ZelTraceReload();
        EXPECT_FALSE(ZelTraceManagerInstance()->refresh()) << row.name;
        Say("goes nowhere");
    }
    ZelTraceReload();
}

// ------------------------------------------------------------------- lines

TEST_F(TraceFile, CarryTheExactPrefixAndTellTheScope) {
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
    // The momentary "tracer" component does not show: the caller's does.
    EXPECT_THAT(lines[3],
                StartsWith(stamp + "Trace\tdefault\tFn[ 0x56789ABC ] (File:77):  Entered (tid="));
    EXPECT_THAT(LineText(lines[4]), StartsWith("High[ 0x0 ] (File:78):  Entered"));
    EXPECT_THAT(LineText(lines[6]), StartsWith("Fn[ 0x56789ABC ] (File:77): Exited (delta = 0ms)"));
    // Text mode: every line ends in a carriage return and a line feed.
    EXPECT_THAT(ReadFileText(trace.path()), testing::EndsWith("\r\n"));
}

TEST_F(TraceFile, TwoThreadsWriteOnlyWholeLines) {
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
    // Whole lines, each with its own thread's component, text and function.
    const std::regex line("2016-05-03 14:02:11\\.000: \tTrace\t(alpha|beta)\t"
                          "\\1 line \\d+ \\(tid=\\d+;function=\\1\\)");
    const auto lines = trace.lines();
    EXPECT_EQ(lines.size(), 2u * kLines);
    for (const std::string &l : lines) ASSERT_TRUE(std::regex_match(l, line)) << l;
}

TEST_F(TraceFile, InsertionsFormatEachKindAndAnUnendedMessageIsWrittenAtExit) {
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
    struct tm day = {0, 0, 0, 3, 4, 116, 0, 0, 0};  // 3 May 2016
    const struct {
        const char *path;
        const char *rolled;
    } rows[] = {
        {"C:\\logs.d\\trace", "C:\\logs.d\\trace_2016-05-03"},
        {"trace", "trace_2016-05-03"},
        {"a.b.c", "a.b_2016-05-03.c"},
        {"C:/logs.d/trace", "C:/logs_2016-05-03.d/trace"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(ZelTraceManager::RolledName(row.path, day), row.rolled) << row.path;
}

// The roll follows local days (two hours ahead of UTC here); a roll whose
// dated file exists already keeps appending to the same file.
TEST_F(TraceFile, FirstLineAfterLocalMidnightRollsTheFile) {
    FakeClock::localOffsetSeconds = 2 * 3600;
    FakeClock::now = UtcTime(2016, 5, 3, 21, 59, 59);
    WriteFileText(dir.file("trace_2016-05-04.txt"), "already here\n");
    ScopedTrace trace(dir.file("trace.txt"));
    Say("still the 3rd");
    EXPECT_FALSE(FileExists(dir.file("trace_2016-05-03.txt")));
    FakeClock::now += 2;  // 00:00:01 local on the 4th
    Say("after midnight");
    FakeClock::now += 86400;
    Say("on the 5th");
    const auto rolled = ReadLines(dir.file("trace_2016-05-03.txt"));
    ASSERT_EQ(rolled.size(), 1u);
    EXPECT_EQ(LineText(rolled[0]).substr(0, 13), "still the 3rd");
    EXPECT_EQ(ReadFileText(dir.file("trace_2016-05-04.txt")), "already here\n");
    const auto current = trace.lines();
    ASSERT_EQ(current.size(), 2u);
    EXPECT_EQ(LineText(current[0]).substr(0, 14), "after midnight");
    EXPECT_EQ(LineText(current[1]).substr(0, 10), "on the 5th");
    // UTC time stamps, local roll-over date: the line of the 4th is stamped the 3rd.
    EXPECT_EQ(current[0].substr(0, 10), "2016-05-03");
}

// The file setting is read again a minute after it was last read: a file set
// while a function runs gets its later lines, its exit line too (and no
// entry line); deleting the setting keeps the file that is open.
TEST_F(TraceFile, TheSettingIsReadAgainAfterAMinute) {
    ScopedTrace none("");
    auto first = ScopedRegistryValue::String("Debug-" + kExe, dir.file("first.txt"));
    {
        tracefunc tf(5, "File", "Late");
        FakeClock::now += 60;
        tf << "said once the file is open" << endtrace;
    }
    auto second = ScopedRegistryValue::String("Debug-" + kExe, dir.file("second.txt"));
    FakeClock::now += 59;
    Say("first 2");
    FakeClock::now += 1;
    Say("second 1");
    {
        auto gone = ScopedRegistryValue::Absent("Debug-" + kExe);
        FakeClock::now += 61;
        Say("second 2");
    }
    auto lines = ReadLines(dir.file("first.txt"));
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_THAT(LineText(lines[0]), StartsWith("said once the file is open (tid="));
    EXPECT_THAT(LineText(lines[1]), StartsWith("Late(File:5): Exited (delta = "));
    lines = ReadLines(dir.file("second.txt"));
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(LineText(lines[1]).substr(0, 8), "second 2");
}

// The forced file (routvane.exe --trace; the client tests show it without a
// file setting) wins over the registry's, which gets no line while forced,
// not even after a minute when the setting is read again otherwise.
TEST_F(TraceFile, ForcedFileWinsOverTheSetting) {
    const std::string forced = dir.file("forced.txt");
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
