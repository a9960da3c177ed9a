// The DHCP message: cursor readers, the DHCPINFORM on the wire and the parse
// of replies. The option walk is in MalformedPacketTest.cpp.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "FakeNetwork.h"
#include "TestSupport.h"
#include "dhcp/dhcp.h"

namespace {

using Bytes = std::vector<unsigned char>;

// A reply with the given xid, then the cookie and the option bytes given.
Bytes Reply(uint32_t xid, const Bytes &options = {}, bool cookie = true) {
    Bytes b(DHCP_HEADER_SIZE, 0);
    b[0] = 2;
    b[1] = 1;
    b[2] = 6;
    for (int i = 0; i < 4; ++i) b[4 + i] = static_cast<unsigned char>(xid >> (24 - 8 * i));
    const unsigned char magic[] = {0x63, 0x82, 0x53, 0x63};
    for (int i = 0; cookie && i < 4; ++i) b.push_back(magic[i]);
    for (unsigned char c : options) b.push_back(c);
    return b;
}

TEST(Grab, FailuresChangeNothingAndStrTracesTheShortfall) {
    TempDir dir;
    ScopedTrace trace(dir.file("t.log"));
    const Bytes input = {1, 0, 3, 4, 5};
    const unsigned char *cursor = input.data();
    int remaining = 1;
    uint8_t v8 = 9;
    uint16_t v16 = 9;
    uint32_t v32 = 9;
    EXPECT_FALSE(Grab16(cursor, remaining, v16));
    EXPECT_FALSE(Grab32(cursor, remaining, v32));
    remaining = -3;
    EXPECT_FALSE(Grab8(cursor, remaining, v8));
    EXPECT_TRUE(v8 == 9 && v16 == 9 && v32 == 9 && remaining == -3 && cursor == input.data());
    remaining = 5;
    unsigned char out[4] = {9, 9, 9, 9};
    ASSERT_TRUE(GrabStr(cursor, remaining, 3, out));
    EXPECT_EQ(0, std::memcmp(out, "\x01\x00\x03\x09", 4));
    EXPECT_FALSE(GrabStr(cursor, remaining, 3, out));
    EXPECT_EQ(2, remaining);
    EXPECT_EQ(input.data() + 3, cursor);
    EXPECT_EQ(1u, trace.linesWith("Invalid buffer length:  2 need at least 3").size());
}

TEST(Buffer, EveryFieldAtItsOffsetBigEndianAndBack) {
    DHCPPacket p;
    std::string wire = "previous content";
    ASSERT_TRUE(p.GetBuffer(wire));
    EXPECT_EQ(std::string(548, '\0'), wire);
    Bytes bytes(548);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<unsigned char>(i + 1);
    ASSERT_TRUE(p.SetBuffer(bytes.data(), 548));
    EXPECT_EQ((std::vector<uint32_t>{1, 2, 3, 4, 0x05060708, 0x090A, 0x0B0C, 0x0D0E0F10,
                                     0x11121314, 0x15161718, 0x191A1B1C, 0x1D, 0x2C, 0x2D, 0x6C,
                                     0x6D, 0xEC, 0xED, 0x24}),
              (std::vector<uint32_t>{p.op, p.htype, p.hlen, p.hops, p.xid, p.secs, p.flags,
                                     p.ciaddr, p.yiaddr, p.siaddr, p.giaddr, p.chaddr[0],
                                     p.chaddr[15], p.sname[0], p.sname[63], p.file[0],
                                     p.file[127], p.options[0], p.options[311]}));
    ASSERT_TRUE(p.GetBuffer(wire));
    EXPECT_EQ(bytes, Bytes(wire.begin(), wire.end()));
}

TEST(SetBuffer, HeaderAndCookieOnlyParsesTracesAndFindsNothing) {
    TempDir dir;
    ScopedTrace trace(dir.file("t.log"));
    const Bytes b = Reply(0x01020304);
    ASSERT_EQ(240u, b.size());
    DHCPPacket p;
    ASSERT_TRUE(p.SetBuffer(b.data(), 240));
    EXPECT_EQ(0x01020304u, p.xid);
    std::string value = "unchanged";
    EXPECT_FALSE(p.GetStringOption(252, value));
    EXPECT_EQ("unchanged", value);
    const auto dump = trace.linesWith("Buffer contents:  02 01 06 00 01 02 03 04 00 00");
    ASSERT_EQ(1u, dump.size());
    EXPECT_NE(std::string::npos, LineText(dump[0]).find(" 00 63 82 53 63 (tid="));
    EXPECT_NE(std::string::npos, dump[0].find("function=DHCPPacket::SetBuffer (parse)"));
    // The zero bytes after the cookie are walked as padding to the end.
    EXPECT_EQ(308u, trace.linesWith("Found DHCPOptionPadding...continuing").size());
    EXPECT_TRUE(trace.linesWith("Found option buffer terminator").empty());
}

TEST(SetBuffer, TruncatedHeadersFailInTheRightReaderAndKeepWhatWasRead) {
    TempDir dir;
    ScopedTrace trace(dir.file("t.log"));
    const std::pair<int, std::string> cases[] = {
        {0, "Invalid buffer length:  0"},  {3, "Invalid buffer length:  0"},
        {6, "Invalid buffer length:  2"},  {9, "Invalid buffer length:  1"},
        {27, "Invalid buffer length:  3"}, {30, "Invalid buffer length:  2 need at least 16"},
        {100, "Invalid buffer length:  56 need at least 64"},
        {235, "Invalid buffer length:  127 need at least 128"},
    };
    Bytes b = Reply(0x11223344);
    b[44] = 'S';
    for (const auto &c : cases) {
        const size_t before = trace.linesWith(c.second).size();
        const size_t failed = trace.linesWith("Not enough buffer space...failed").size();
        DHCPPacket p;
        p.file[0] = 'x';
        EXPECT_FALSE(p.SetBuffer(b.data(), c.first)) << c.first;
        EXPECT_EQ(before + 1, trace.linesWith(c.second).size()) << c.first;
        if (c.first < 235) continue;
        EXPECT_EQ(failed + 1, trace.linesWith("Not enough buffer space...failed").size());
        EXPECT_EQ(0x11223344u, p.xid);
        EXPECT_EQ('S', p.sname[0]);
        EXPECT_EQ('x', p.file[0]) << "a failed GrabStr changes nothing";
    }
    EXPECT_TRUE(trace.linesWith("Buffer contents:  (").empty());  // no dump of nothing
}

TEST(SetBuffer, OptionBytesBeyondTheDatagramStayAndLongOnesAreCut) {
    DHCPPacket p;
    const Bytes first = Reply(1, {252, 3, 'a', 'b', 'c', 255});
    ASSERT_TRUE(p.SetBuffer(first.data(), static_cast<int>(first.size())));
    const Bytes second = Reply(2);
    ASSERT_TRUE(p.SetBuffer(second.data(), static_cast<int>(second.size())));
    std::string value;
    ASSERT_TRUE(p.GetStringOption(252, value));
    EXPECT_EQ("abc", value);

    Bytes b = Reply(1, Bytes(400, 0x77), false);
    b[236 + 311] = 0x12;
    ASSERT_TRUE(p.SetBuffer(b.data(), static_cast<int>(b.size())));
    EXPECT_EQ(0x12, p.options[311]);
}

// CreateInformPacket on a machine with one DHCP-configured Ethernet card.
class InformTest : public testing::Test {
protected:
    void SetUp() override {
        net.AddEthernet(7, "192.168.5.20", {0x00, 0x16, 0x3e, 0x01, 0x02, 0x03});
        net.bestRouteInterface = 7;
        FakeClock::Install(clock, 1000000000);
    }
    ScopedClock clock;
    FakeNetwork net;
    TempDir dir;
    ScopedTrace trace{dir.file("t.log")};
};

TEST_F(InformTest, WireFormIsTheInformAskingFor252) {
    DHCPPacket p;
    p.yiaddr = 5;
    ASSERT_TRUE(p.CreateInformPacket(false, "10.1.2.3"));
    EXPECT_EQ(inet_addr("10.1.2.3"), net.lastBestRouteDestination);
    std::srand(1000000000);
    const uint32_t high = static_cast<uint32_t>(std::rand());
    EXPECT_EQ((high << 16) | static_cast<uint32_t>(std::rand()), p.xid);

    std::string wire;
    p.GetBuffer(wire);
    Bytes expected(548, 0);
    const unsigned char head[] = {1, 1, 6, 0};
    std::memcpy(&expected[0], head, 4);
    for (int i = 0; i < 4; ++i) expected[4 + i] = static_cast<unsigned char>(p.xid >> (24 - 8 * i));
    const unsigned char ciaddr[] = {192, 168, 5, 20};
    std::memcpy(&expected[12], ciaddr, 4);
    const unsigned char mac[] = {0x00, 0x16, 0x3e, 0x01, 0x02, 0x03};
    std::memcpy(&expected[28], mac, 6);
    const unsigned char options[] = {0x63, 0x82, 0x53, 0x63, 0x35, 0x01,
                                     0x08, 0x37, 0x01, 0xFC, 0xFF};
    std::memcpy(&expected[236], options, sizeof options);
    EXPECT_EQ(expected, Bytes(wire.begin(), wire.end()));

    const auto dump = trace.linesWith(
        "Buffer contents:  " + DhcpHexDump(expected.data(), expected.size()) + " (tid=");
    ASSERT_EQ(1u, dump.size());
    EXPECT_NE(std::string::npos, dump[0].find("function=DHCPPacket::CreateInformPacket"));
}

TEST_F(InformTest, FailsWhenNoInterfaceUsesDhcpUnlessForced) {
    net.adapters[0].dhcpEnabled = false;
    DHCPPacket p;
    EXPECT_FALSE(p.CreateInformPacket(false, "10.1.2.3"));
    EXPECT_EQ(1u, trace.linesWith("GetNetworkInfo failed...stopping").size());
    EXPECT_TRUE(trace.linesWith("Buffer contents:  ").empty());
    EXPECT_TRUE(p.CreateInformPacket(true, "10.1.2.3"));
}

}  // namespace
