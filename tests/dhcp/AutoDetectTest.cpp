// Automatic discovery with both stages switched off: the time-out setting,
// the direct answer and the trace that always shows the DHCP outcome. The
// stages themselves broadcast and look up wpad names, so the lab tests them
// (lab/lab-test.sh: the DHCP stage, and the DNS walk under each host name).
#include <gtest/gtest.h>

#include <string>

#include "TestSupport.h"
#include "util/ComOwners.h"
#include "resolver/Routvane.h"

namespace {

TEST(AutoDetect, BothStagesOffReadTheTimeoutAnswerDirectAndTraceDhcp) {
    struct Case {
        ScopedRegistryValue (*value)();
        const char *expected;
    };
    // Which values count is ReadRegistryDword's, tested with the resolver.
    const Case cases[] = {
        {[] { return ScopedRegistryValue::Absent("DHCPTimeout"); }, "Using DHCP timeout: 2 secs"},
        {[] { return ScopedRegistryValue::Dword("DHCPTimeout", 0xFFFFFFFF); },
         "Using DHCP timeout: -1 secs"},
    };
    for (const Case &c : cases) {
        ScopedRegistryValue value = c.value();
        TempDir dir;
        ScopedTrace trace(dir.file("t.log"));
        ComPtr<Routvane> resolver = ComPtr<Routvane>::Share(new Routvane);
        EXPECT_EQ(1u, resolver->RunAutoDetect(ROUTVANE_SKIP_DHCP | ROUTVANE_SKIP_DNS,
                                              "www.example.com", 8080));
        EXPECT_EQ(1u, trace.linesWith(c.expected).size()) << c.expected;
        EXPECT_EQ(1u, trace.linesWith("www.example.com:8080 (tid=").size());
        // The outcome is traced although DHCP never ran, and nothing else is.
        const auto outcome = trace.linesWith("DiscoverProxyUrlViaDHCP returned false");
        ASSERT_EQ(1u, outcome.size());
        EXPECT_EQ("Routvane", LineComponent(outcome[0]));
        EXPECT_NE(std::string::npos, outcome[0].find("function=Routvane::RunAutoDetect)"));
        EXPECT_EQ(5u, trace.lines().size()) << "entry, target, time-out, outcome, exit";
    }
}

}  // namespace
