// Automatic discovery with both stages switched off: the time-out setting
// and the trace that always shows the DHCP outcome. The stages themselves
// broadcast and look up wpad names, so they are tested in the lab only.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "TestSupport.h"
#include "util/ComOwners.h"
#include "resolver/Routvane.h"

namespace {

std::vector<std::string> RunWithBothStagesOff(const char *host, int port) {
    TempDir dir;
    ScopedTrace trace(dir.file("t.log"));
    ComPtr<Routvane> resolver = ComPtr<Routvane>::Share(new Routvane);
    EXPECT_EQ(1u, resolver->RunAutoDetect(ROUTVANE_SKIP_DHCP | ROUTVANE_SKIP_DNS, host, port));
    return trace.lines();
}

size_t Count(const std::vector<std::string> &lines, const std::string &text) {
    size_t n = 0;
    for (const std::string &line : lines) n += LineText(line).find(text) != std::string::npos;
    return n;
}

TEST(AutoDetect, ReadsTheDhcpTimeout) {
    struct Case {
        ScopedRegistryValue (*value)();
        const char *expected;
    };
    const Case cases[] = {
        {[] { return ScopedRegistryValue::Absent("DHCPTimeout"); }, "Using DHCP timeout: 2 secs"},
        {[] { return ScopedRegistryValue::Dword("DHCPTimeout", 0); }, "Using DHCP timeout: 2 secs"},
        {[] { return ScopedRegistryValue::Dword("DHCPTimeout", 7); }, "Using DHCP timeout: 7 secs"},
        {[] { return ScopedRegistryValue::Dword("DHCPTimeout", 0xFFFFFFFF); },
         "Using DHCP timeout: -1 secs"},
        {[] { return ScopedRegistryValue::String("DHCPTimeout", "9"); },
         "Using DHCP timeout: 2 secs"},
    };
    for (const Case &c : cases) {
        ScopedRegistryValue value = c.value();
        EXPECT_EQ(1u, Count(RunWithBothStagesOff("h", 1), c.expected)) << c.expected;
    }
}

TEST(AutoDetect, BothStagesOffAnswersDirectAndStillTracesDhcp) {
    const std::vector<std::string> lines = RunWithBothStagesOff("www.example.com", 8080);
    EXPECT_EQ(1u, Count(lines, "www.example.com:8080"));
    EXPECT_EQ(0u, Count(lines, "Trying WPAD well-known URL"));
    EXPECT_EQ(2u, Count(lines, "Routvane::RunAutoDetect(Routvane:"));  // entry and exit
    size_t outcomes = 0;
    for (const std::string &line : lines) {
        EXPECT_EQ(std::string::npos, line.find("function=DiscoverProxyUrlViaDHCP")) << line;
        EXPECT_EQ(std::string::npos, line.find("function=DHCPPacket")) << line;
        if (LineText(line).find("DiscoverProxyUrlViaDHCP returned false") == std::string::npos)
            continue;
        ++outcomes;
        EXPECT_EQ("Routvane", LineComponent(line));
        EXPECT_NE(std::string::npos, line.find("function=Routvane::RunAutoDetect"));
    }
    EXPECT_EQ(1u, outcomes);
}

}  // namespace
