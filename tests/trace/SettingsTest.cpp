#include <gtest/gtest.h>

#include <thread>

#include "TestSupport.h"
#include "trace/ZelComponent.h"
#include "trace/ZelTraceManager.h"
#include "trace/tracefunc.h"

namespace {

const std::string kExe = ZelExecutableName();

TEST(SettingsTest, ExecutableNameIsTheBaseNameWithExtension) {
    EXPECT_EQ(kExe, "trace_tests.exe");
}

TEST(SettingsTest, LevelWords) {
    const struct {
        const char *word;
        int level;
    } rows[] = {{"detailed", 0}, {"trace", 1}, {"error", 2},   {"Trace", 0},
                {"ERROR", 0},    {"", 0},      {"trace ", 0}, {"errors", 0}};
    for (const auto &row : rows) EXPECT_EQ(ZelTraceManager::LevelFromWord(row.word), row.level) << row.word;
}

struct FilterCase {
    std::string text;
    uint32_t mode;
    std::set<std::string> names;
};

class FilterTextTest : public testing::TestWithParam<FilterCase> {};

TEST_P(FilterTextTest, Parses) {
    ZelTraceComponentManager manager;
    manager.setFilter(GetParam().text);
    EXPECT_EQ(manager.filterMode(), GetParam().mode);
    EXPECT_EQ(manager.filterNames(), GetParam().names);
}

INSTANTIATE_TEST_SUITE_P(
    Table, FilterTextTest,
    testing::Values(FilterCase{"exclude:tracer,Routvane", 0, {"tracer", "Routvane"}},
                    FilterCase{"exclude:", 0, {}}, FilterCase{"exclude:a:b", 0, {}},
                    FilterCase{"exclude:a:", 0, {"a"}},
                    FilterCase{"  exclude  :  a , , b  ,", 0, {"a", "b"}},
                    FilterCase{"only:Routvane", 1, {"Routvane"}},
                    FilterCase{"include:x", 1, {"x"}}, FilterCase{"Exclude:x", 1, {"x"}},
                    FilterCase{":a", 0, {}}, FilterCase{"   :a", 0, {}}, FilterCase{"", 0, {}},
                    FilterCase{":::,,,", 0, {}}, FilterCase{"only:", 0, {}},
                    FilterCase{"only:,,", 1, {}}, FilterCase{"exclude:a\tb", 0, {"a\tb"}}));

TEST(SettingsTest, FilterDecidesByTheCurrentComponent) {
    TempDir dir;
    ScopedTrace trace(dir.file("t.txt"), "", "only:Routvane");
    {
        tracefunc tf(__LINE__, "f", "outside", 0, true);
        tf << "outside any component" << endtrace;
    }
    {
        ZelComponent component("Routvane");
        tracefunc tf(__LINE__, "f", "inside", 0, true);
        tf << "inside Routvane" << endtrace;
    }
    EXPECT_TRUE(trace.linesWith("outside any component").empty());
    const auto inside = trace.linesWith("inside Routvane");
    ASSERT_EQ(inside.size(), 1u);
    EXPECT_EQ(LineComponent(inside[0]), "Routvane");
}

TEST(SettingsTest, ExcludedComponentsAreBlocked) {
    TempDir dir;
    ScopedTrace trace(dir.file("t.txt"), "", " exclude : tracer , Routvane ");
    {
        ZelComponent component("Routvane");
        tracefunc tf(__LINE__, "f", "blocked");
        tf << "from Routvane" << endtrace;
    }
    {
        ZelComponent component("Other");
        tracefunc tf(__LINE__, "f", "passed");
        tf << "from Other" << endtrace;
    }
    EXPECT_TRUE(trace.linesWith("from Routvane").empty());
    EXPECT_EQ(trace.linesWith("from Other").size(), 1u);
    EXPECT_EQ(trace.linesWith("passed(f:").size(), 2u);  // entry and exit lines
}

TEST(SettingsTest, ComponentStacksArePerThreadAndUnderflowGivesDefault) {
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

struct LevelCase {
    const char *name;
    DWORD type;
    std::string data;
    int threshold;
};

class LevelValueTest : public testing::TestWithParam<LevelCase> {};

TEST_P(LevelValueTest, GivesTheThreshold) {
    const LevelCase &c = GetParam();
    auto value = ScopedRegistryValue::Raw("DebugLevel-" + kExe, c.type, c.data.data(),
                                          static_cast<DWORD>(c.data.size()));
    ZelTraceReload();
    EXPECT_EQ(ZelTraceManagerInstance()->threshold(), c.threshold);
}

INSTANTIATE_TEST_SUITE_P(
    Table, LevelValueTest,
    testing::Values(LevelCase{"trace", REG_SZ, std::string("trace\0", 6), 1},
                    LevelCase{"error", REG_SZ, std::string("error\0", 6), 2},
                    LevelCase{"detailed", REG_SZ, std::string("detailed\0", 9), 0},
                    LevelCase{"expand_sz", REG_EXPAND_SZ, std::string("error\0", 6), 0},
                    LevelCase{"dword", REG_DWORD, std::string("\2\0\0\0", 4), 0},
                    LevelCase{"empty", REG_SZ, std::string("\0", 1), 0},
                    LevelCase{"overlong", REG_SZ, std::string(300, 'e') + '\0', 0},
                    LevelCase{"binary", REG_BINARY, std::string("error", 5), 0}),
    [](const testing::TestParamInfo<LevelCase> &info) { return std::string(info.param.name); });

TEST(SettingsTest, SettingsAreKeyedByTheExecutableName) {
    TempDir dir;
    auto other = ScopedRegistryValue::String("Debug-other.exe", dir.file("other.txt"));
    auto otherLevel = ScopedRegistryValue::String("DebugLevel-other.exe", "error");
    auto mine = ScopedRegistryValue::Absent("Debug-" + kExe);
    ZelTraceReload();
    EXPECT_EQ(ZelTraceManagerInstance()->threshold(), 0);
    EXPECT_FALSE(ZelTraceManagerInstance()->refresh());
    ZelTraceReload();
}

}  // namespace
