// The DHCPINFORM exchange on a real wire: lab/lab-test.sh runs this program
// in the lab's client namespace while the programmable responder serves
// port 67 (it broadcasts, so it never runs anywhere else). The replies are
// chosen through responder.mode in the lab folder; responder.log holds every
// request received.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "dhcp/dhcp.h"

namespace {

std::string Env(const char *name) {
    const char *v = std::getenv(name);
    return v ? v : "";
}

// A file of the lab folder as a Windows path (Wine's Z: drive is the root).
std::string LabFile(const std::string &name) {
    std::string path = "Z:" + Env("ROUTVANE_LAB_DIR") + "/" + name;
    for (char &c : path)
        if (c == '/') c = '\\';
    return path;
}

uint32_t RawAddress(const std::string &dotted) { return inet_addr(dotted.c_str()); }

const char kRelated[] = "received a related DHCP packet from ";
const char kUnrelated[] = "received a non-related DHCP packet...waiting again";
const char kTimeout[] = "Timeout while waiting for DHCP response";
const char kNoUrl[] = "it doesn't contain a URL option...waiting again";
const char kDone[] = "it contains a URL option...done";
const char kNotFound[] = "Did not find proxy URL";

class Lab : public testing::Test {
protected:
    Lab() : trace(dir.file("t.log")) {}
    void SetUp() override {
        // Only the lab sets this: anywhere else the broadcast could leave the
        // machine.
        if (Env("ROUTVANE_LAB_DIR").empty()) FAIL() << "run by lab/lab-test.sh only";
    }
    void mode(const std::string &m) {
        std::ofstream(LabFile("responder.mode"), std::ios::trunc) << m << "\n";
    }
    // The requests received so far, each "source-ip:port destination-ip hex".
    std::vector<std::string> received() {
        std::vector<std::string> out;
        for (const std::string &line : ReadLines(LabFile("responder.log")))
            if (line.rfind("rx ", 0) == 0) out.push_back(line.substr(3));
        return out;
    }
    // DiscoverProxyUrlViaDHCP's own lines from line from on, without its scope lines,
    // the thread tail and "Found proxy URL" (the URL itself is checked); a
    // related packet from the lab server reads as kRelated, and a run of
    // unrelated packets counts once.
    std::vector<std::string> exchange(size_t from = 0) const {
        std::vector<std::string> out;
        const std::vector<std::string> lines = trace.lines();
        for (size_t n = from; n < lines.size(); ++n) {
            const std::string &line = lines[n];
            std::string text = LineText(line);
            if (line.find(";function=DiscoverProxyUrlViaDHCP)") == std::string::npos ||
                text.find("):  Entered") != std::string::npos ||
                text.find("): Exited") != std::string::npos ||
                text.rfind("Found proxy URL:  ", 0) == 0)
                continue;
            text = text.substr(0, text.rfind(" (tid="));
            if (text == kRelated + std::to_string(RawAddress(serverIp))) text = kRelated;
            if (text == kUnrelated && !out.empty() && out.back() == kUnrelated) continue;
            out.push_back(text);
        }
        return out;
    }
    TempDir dir;
    ScopedTrace trace;
    const std::string serverIp = Env("ROUTVANE_LAB_SERVER"), clientIp = Env("ROUTVANE_LAB_CLIENT");
};

const std::vector<std::string> kAnswered = {kRelated, kDone};
const std::vector<std::string> kAfterUnrelated = {kUnrelated, kRelated, kDone};

TEST_F(Lab, ExchangeFollowsTheReplies) {
    const struct {
        const char *mode;
        bool found;
        std::vector<std::string> lines;  // the exchange's trace, in order
    } cases[] = {
        {"url", true, kAnswered},
        {"nak", true, kAnswered},  // a DHCPNAK with a URL serves too
        {"otherxid", false, {kUnrelated, kTimeout, kUnrelated, kTimeout, kNotFound}},
        {"otherxid,url", true, kAfterUnrelated},
        {"nourl,url", true, {kRelated, kNoUrl, kRelated, kDone}},
        // A failed parse is judged by the fields it read: the xid relates it.
        {"short", false, {kRelated, kNoUrl, kTimeout, kRelated, kNoUrl, kTimeout, kNotFound}},
        // Deliberately, the reply packet is not cleared between waits: a
        // short related reply is judged with the option bytes of the
        // unrelated one before.
        {"otherxid,short", true, kAfterUnrelated},
        // Unrelated packets for 3 s, then the answer: every wait restarts the
        // full time-out, so the one send outlives two time-outs (one deadline
        // would send again and time out among the unrelated packets).
        {"flood:3,url", true, kAfterUnrelated},
    };
    for (const auto &c : cases) {
        mode(c.mode);
        const size_t before = received().size();
        const size_t linesBefore = trace.lines().size();
        std::string url = "unchanged";
        uint32_t server = 0;
        EXPECT_EQ(c.found, DiscoverProxyUrlViaDHCP(false, serverIp, url, 1, &server)) << c.mode;
        EXPECT_EQ(c.found ? Env("ROUTVANE_LAB_DHCP_URL") : "unchanged", url) << c.mode;
        EXPECT_EQ(c.found ? RawAddress(serverIp) : 0u, server) << c.mode;
        EXPECT_EQ(before + (c.found ? 1 : 2), received().size()) << c.mode << ": requests sent";
        EXPECT_EQ(c.lines, exchange(linesBefore)) << c.mode;
    }
    // What the platform put into each DHCPINFORM on the lab wire (its layout
    // is the unit tests'): the client's address in ciaddr, the lab interface's
    // hardware address in chaddr, sent from port 68 of the client's address
    // to the broadcast address.
    char ciaddr[9];
    std::snprintf(ciaddr, sizeof ciaddr, "%08lx", ntohl(RawAddress(clientIp)));
    const std::string expected = clientIp + ":68 255.255.255.255 " + ciaddr + " " +
                                 Env("ROUTVANE_LAB_CLIENT_MAC") + " " +
                                 std::to_string(2 * DHCP_PACKET_SIZE);
    for (const std::string &rx : received()) {
        const std::string hex = rx.substr(rx.rfind(' ') + 1);
        EXPECT_EQ(expected, rx.substr(0, rx.rfind(' ') + 1) + hex.substr(24, 8) + " " +
                                hex.substr(56, 12) + " " + std::to_string(hex.size()));
    }
}

TEST_F(Lab, PortTakenMakesBindFail) {
    mode("url");
    WinsockSession winsock;
    SocketOwner holder(socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP));
    sockaddr_in local{AF_INET, htons(DHCP_CLIENT_PORT), {}, {}};
    local.sin_addr.s_addr = RawAddress(clientIp);
    ASSERT_EQ(0, bind(holder.get(), reinterpret_cast<sockaddr *>(&local), sizeof local));
    std::string url;
    EXPECT_FALSE(DiscoverProxyUrlViaDHCP(false, serverIp, url, 1));
    EXPECT_EQ(std::vector<std::string>({"bind failed:  10048", kNotFound}), exchange());
}

}  // namespace
