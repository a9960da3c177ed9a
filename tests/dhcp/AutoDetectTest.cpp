// Automatic discovery with both stages switched off: the time-out setting
// and the trace that always shows the DHCP outcome. The stages themselves
// broadcast and look up wpad names, so they are tested in the lab only.
#include <gtest/gtest.h>

#include <string>

#include "TestSupport.h"
#include "resolver/Routvane.h"

namespace {

class AutoDetectTest : public testing::Test {
protected:
    AutoDetectTest() : trace(dir.file("t.log")) { resolver->AddRef(); }
    ~AutoDetectTest() override { resolver->Release(); }
    size_t count(const std::string &text) const { return trace.linesWith(text).size(); }
    TempDir dir;
    ScopedTrace trace;
    Routvane *resolver = new Routvane;
};

struct TimeoutCase {
    const char *name;
    int kind;  // 0 absent, 1 DWORD, 2 string
    DWORD value;
    const char *expected;
};

class DhcpTimeoutTest : public testing::TestWithParam<TimeoutCase> {};

TEST_P(DhcpTimeoutTest, ReadsTheSetting) {
    const TimeoutCase &c = GetParam();
    std::vector<ScopedRegistryValue> values;
    if (c.kind == 0) values.push_back(ScopedRegistryValue::Absent("DHCPTimeout"));
    if (c.kind == 1) values.push_back(ScopedRegistryValue::Dword("DHCPTimeout", c.value));
    if (c.kind == 2) values.push_back(ScopedRegistryValue::String("DHCPTimeout", "9"));
    TempDir dir;
    ScopedTrace trace(dir.file("t.log"));
    Routvane *resolver = new Routvane;
    resolver->AddRef();
    EXPECT_EQ(1u, resolver->RunAutoDetect(ROUTVANE_SKIP_DHCP | ROUTVANE_SKIP_DNS, "h", 1));
    resolver->Release();
    EXPECT_EQ(1u, trace.linesWith(c.expected).size()) << c.expected;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, DhcpTimeoutTest,
    testing::Values(TimeoutCase{"absent", 0, 0, "Using DHCP timeout: 2 secs"},
                    TimeoutCase{"zero", 1, 0, "Using DHCP timeout: 2 secs"},
                    TimeoutCase{"seven", 1, 7, "Using DHCP timeout: 7 secs"},
                    TimeoutCase{"signed", 1, 0xFFFFFFFF, "Using DHCP timeout: -1 secs"},
                    TimeoutCase{"string", 2, 0, "Using DHCP timeout: 2 secs"}),
    [](const testing::TestParamInfo<TimeoutCase> &info) { return std::string(info.param.name); });

TEST_F(AutoDetectTest, BothStagesOffAnswersDirectAndStillTracesDhcp) {
    EXPECT_EQ(1u, resolver->RunAutoDetect(ROUTVANE_SKIP_DHCP | ROUTVANE_SKIP_DNS,
                                          "www.example.com", 8080));
    EXPECT_EQ(1u, count("www.example.com:8080"));
    EXPECT_EQ(1u, count("DiscoverProxyUrlViaDHCP returned false"));
    EXPECT_EQ(0u, count("Trying WPAD well-known URL"));
    for (const std::string &line : trace.lines()) {
        EXPECT_EQ(std::string::npos, line.find("function=DiscoverProxyUrlViaDHCP")) << line;
        EXPECT_EQ(std::string::npos, line.find("function=DHCPPacket")) << line;
    }
    const auto lines = trace.linesWith("DiscoverProxyUrlViaDHCP returned false");
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ("Routvane", LineComponent(lines[0]));
    EXPECT_NE(std::string::npos, lines[0].find("function=Routvane::RunAutoDetect"));
    // One entry line and one exit line.
    EXPECT_EQ(2u, count("Routvane::RunAutoDetect(Routvane:"));
}

}  // namespace
