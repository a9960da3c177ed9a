// The DHCP message: cursor readers, the DHCPINFORM on the wire, the parse of
// replies and the option walk.
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

Bytes FromString(const std::string &s) { return Bytes(s.begin(), s.end()); }

// A reply: header with the given xid, then the option bytes given.
Bytes Reply(uint32_t xid, const Bytes &options) {
    Bytes b(DHCP_HEADER_SIZE, 0);
    b[0] = 2;
    b[1] = 1;
    b[2] = 6;
    b[4] = static_cast<unsigned char>(xid >> 24);
    b[5] = static_cast<unsigned char>(xid >> 16);
    b[6] = static_cast<unsigned char>(xid >> 8);
    b[7] = static_cast<unsigned char>(xid);
    for (unsigned char c : options) b.push_back(c);
    return b;
}

Bytes Cookie(const Bytes &rest) {
    Bytes b = {0x63, 0x82, 0x53, 0x63};
    for (unsigned char c : rest) b.push_back(c);
    return b;
}

struct GrabCase {
    int width;  // 8, 16, 32
    Bytes input;
    int remaining;
    bool ok;
    uint32_t value;
};

class GrabTest : public testing::TestWithParam<GrabCase> {};

TEST_P(GrabTest, ReadsBigEndianOrChangesNothing) {
    const GrabCase &c = GetParam();
    const unsigned char *cursor = c.input.data();
    int remaining = c.remaining;
    uint32_t value = 0xA5A5A5A5;
    bool ok = false;
    if (c.width == 8) {
        uint8_t v = 0xA5;
        ok = Grab8(cursor, remaining, v);
        value = ok ? v : (v == 0xA5 ? 0xA5A5A5A5 : 0);
    } else if (c.width == 16) {
        uint16_t v = 0xA5A5;
        ok = Grab16(cursor, remaining, v);
        value = ok ? v : (v == 0xA5A5 ? 0xA5A5A5A5 : 0);
    } else {
        ok = Grab32(cursor, remaining, value);
    }
    EXPECT_EQ(c.ok, ok);
    if (c.ok) {
        EXPECT_EQ(c.value, value);
        EXPECT_EQ(c.input.data() + c.width / 8, cursor);
        EXPECT_EQ(c.remaining - c.width / 8, remaining);
    } else {
        EXPECT_EQ(0xA5A5A5A5u, value) << "value changed on failure";
        EXPECT_EQ(c.input.data(), cursor);
        EXPECT_EQ(c.remaining, remaining);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, GrabTest,
    testing::Values(GrabCase{8, {0xFE}, 1, true, 0xFE}, GrabCase{8, {0xFE}, 0, false, 0},
                    GrabCase{8, {0xFE}, -3, false, 0},
                    GrabCase{16, {0x12, 0x34}, 2, true, 0x1234},
                    GrabCase{16, {0x12, 0x34}, 1, false, 0},
                    GrabCase{32, {0xC0, 0xA8, 0x01, 0x02}, 4, true, 0xC0A80102},
                    GrabCase{32, {0xC0, 0xA8, 0x01, 0x02, 9}, 5, true, 0xC0A80102},
                    GrabCase{32, {0xC0, 0xA8, 0x01}, 3, false, 0}));

TEST(GrabStr, CopiesRawBytesOrTracesTheShortfall) {
    TempDir dir;
    ScopedTrace trace(dir.file("t.log"));
    const Bytes input = {1, 0, 3, 4, 5};
    const unsigned char *cursor = input.data();
    int remaining = 5;
    unsigned char out[8] = {9, 9, 9, 9, 9, 9, 9, 9};
    ASSERT_TRUE(GrabStr(cursor, remaining, 3, out));
    EXPECT_EQ(0, std::memcmp(out, "\x01\x00\x03", 3));
    EXPECT_EQ(9, out[3]);
    EXPECT_EQ(2, remaining);
    EXPECT_EQ(input.data() + 3, cursor);

    EXPECT_FALSE(GrabStr(cursor, remaining, 3, out));
    EXPECT_EQ(2, remaining);
    EXPECT_EQ(input.data() + 3, cursor);
    EXPECT_EQ(1u, trace.linesWith("Invalid buffer length:  2 need at least 3").size());
}

TEST(GetBuffer, FreshPacketIs548Zeros) {
    DHCPPacket p;
    std::string wire = "previous content";
    ASSERT_TRUE(p.GetBuffer(wire));
    EXPECT_EQ(std::string(548, '\0'), wire);
}

TEST(GetBuffer, PutsEveryFieldAtItsOffsetBigEndian) {
    DHCPPacket p;
    p.op = 1;
    p.htype = 2;
    p.hlen = 3;
    p.hops = 4;
    p.xid = 0x05060708;
    p.secs = 0x090A;
    p.flags = 0x0B0C;
    p.ciaddr = 0x0D0E0F10;
    p.yiaddr = 0x11121314;
    p.siaddr = 0x15161718;
    p.giaddr = 0x191A1B1C;
    for (int i = 0; i < 16; ++i) p.chaddr[i] = static_cast<unsigned char>(0x20 + i);
    p.sname[0] = 0x40;
    p.sname[63] = 0x41;
    p.file[0] = 0x50;
    p.file[127] = 0x51;
    p.options[0] = 0x60;
    p.options[311] = 0x61;
    std::string wire;
    ASSERT_TRUE(p.GetBuffer(wire));
    ASSERT_EQ(548u, wire.size());
    const auto at = [&](size_t i) { return static_cast<unsigned char>(wire[i]); };
    for (size_t i = 0; i < 28; ++i) EXPECT_EQ(i + 1, at(i)) << "offset " << i;
    for (size_t i = 0; i < 16; ++i) EXPECT_EQ(0x20 + i, at(28 + i));
    EXPECT_EQ(0x40, at(44));
    EXPECT_EQ(0x41, at(107));
    EXPECT_EQ(0x50, at(108));
    EXPECT_EQ(0x51, at(235));
    EXPECT_EQ(0x60, at(236));
    EXPECT_EQ(0x61, at(547));
}

TEST(SetBuffer, ReadsBackWhatGetBufferWrote) {
    DHCPPacket p;
    p.op = 2;
    p.xid = 0xDEADBEEF;
    p.secs = 7;
    p.flags = 0x8000;
    p.ciaddr = 0x0A4D0002;
    p.giaddr = 0x01020304;
    p.chaddr[5] = 0x6A;
    p.sname[1] = 's';
    p.file[2] = 'f';
    p.options[300] = 0x33;
    std::string wire;
    p.GetBuffer(wire);
    DHCPPacket q;
    ASSERT_TRUE(q.SetBuffer(reinterpret_cast<const unsigned char *>(wire.data()),
                            static_cast<int>(wire.size())));
    std::string again;
    q.GetBuffer(again);
    EXPECT_EQ(wire, again);
    EXPECT_EQ(0xDEADBEEFu, q.xid);
    EXPECT_EQ(0x8000, q.flags);
}

TEST(SetBuffer, TracesTheDatagramInHex) {
    TempDir dir;
    ScopedTrace trace(dir.file("t.log"));
    Bytes b = Reply(0x01020304, Cookie({0xff}));
    DHCPPacket p;
    ASSERT_TRUE(p.SetBuffer(b.data(), static_cast<int>(b.size())));
    const auto lines = trace.linesWith("Buffer contents:  02 01 06 00 01 02 03 04 00 00");
    ASSERT_EQ(1u, lines.size());
    EXPECT_NE(std::string::npos, LineText(lines[0]).find(" 63 82 53 63 ff (tid="));
    EXPECT_NE(std::string::npos, lines[0].find("function=DHCPPacket::SetBuffer (parse)"));
}

TEST(SetBuffer, HeaderAndCookieOnlyParsesAndFindsNothing) {
    TempDir dir;
    ScopedTrace trace(dir.file("t.log"));
    Bytes b = Reply(42, Cookie({}));
    ASSERT_EQ(240u, b.size());
    DHCPPacket p;
    ASSERT_TRUE(p.SetBuffer(b.data(), 240));
    EXPECT_EQ(42u, p.xid);
    std::string value = "unchanged";
    EXPECT_FALSE(p.GetStringOption(252, value));
    EXPECT_EQ("unchanged", value);
    // The zero bytes after the cookie are walked as padding to the end.
    EXPECT_EQ(308u, trace.linesWith("Found DHCPOptionPadding...continuing").size());
    EXPECT_TRUE(trace.linesWith("Found option buffer terminator").empty());
}

TEST(SetBuffer, ShortHeaderFailsInFileAndKeepsWhatWasRead) {
    TempDir dir;
    ScopedTrace trace(dir.file("t.log"));
    Bytes b = Reply(0x11223344, {});
    b.resize(235);
    b[44] = 'S';
    DHCPPacket p;
    p.file[0] = 'x';
    EXPECT_FALSE(p.SetBuffer(b.data(), 235));
    EXPECT_EQ(0x11223344u, p.xid);
    EXPECT_EQ('S', p.sname[0]);
    EXPECT_EQ('x', p.file[0]) << "a failed GrabStr changes nothing";
    EXPECT_EQ(1u, trace.linesWith("Invalid buffer length:  127 need at least 128").size());
    EXPECT_EQ(1u, trace.linesWith("Not enough buffer space...failed").size());
}

TEST(SetBuffer, TruncatedHeadersFailInTheRightReader) {
    TempDir dir;
    ScopedTrace trace(dir.file("t.log"));
    struct Case {
        int length;
        std::string message;
    };
    const Case cases[] = {
        {0, "Invalid buffer length:  0"},     {3, "Invalid buffer length:  0"},
        {6, "Invalid buffer length:  2"},     {9, "Invalid buffer length:  1"},
        {27, "Invalid buffer length:  3"},    {30, "Invalid buffer length:  2 need at least 16"},
        {100, "Invalid buffer length:  56 need at least 64"},
    };
    Bytes b = Reply(1, Cookie({}));
    for (const Case &c : cases) {
        const size_t before = trace.linesWith(c.message).size();
        DHCPPacket p;
        EXPECT_FALSE(p.SetBuffer(b.data(), c.length)) << c.length;
        EXPECT_EQ(before + 1, trace.linesWith(c.message).size()) << c.length;
    }
    // No dump of an empty datagram.
    EXPECT_TRUE(trace.linesWith("Buffer contents:  (").empty());
}

TEST(SetBuffer, ShortReplyLeavesOlderOptionBytesInPlace) {
    DHCPPacket p;
    const Bytes first = Reply(1, Cookie({252, 3, 'a', 'b', 'c', 255}));
    ASSERT_TRUE(p.SetBuffer(first.data(), static_cast<int>(first.size())));
    const Bytes second = Reply(2, Cookie({}));
    ASSERT_TRUE(p.SetBuffer(second.data(), static_cast<int>(second.size())));
    std::string value;
    ASSERT_TRUE(p.GetStringOption(252, value));
    EXPECT_EQ("abc", value);
    EXPECT_EQ(2u, p.xid);
}

TEST(SetBuffer, LongDatagramIsCutAt312OptionBytes) {
    Bytes b = Reply(1, Bytes(400, 0x77));
    b[236 + 311] = 0x12;
    b[236 + 312] = 0x34;
    DHCPPacket p;
    ASSERT_TRUE(p.SetBuffer(b.data(), static_cast<int>(b.size())));
    EXPECT_EQ(0x12, p.options[311]);
    std::string wire;
    p.GetBuffer(wire);
    EXPECT_EQ(548u, wire.size());
}

struct OptionCase {
    const char *name;
    Bytes options;
    uint8_t code;
    bool found;
    std::string value;
    const char *trace;  // a line the walk must write, or null
};

class GetStringOptionTest : public testing::TestWithParam<OptionCase> {};

TEST_P(GetStringOptionTest, WalksTheOptionArea) {
    const OptionCase &c = GetParam();
    TempDir dir;
    ScopedTrace trace(dir.file("t.log"));
    const Bytes b = Reply(1, c.options);
    DHCPPacket p;
    ASSERT_TRUE(p.SetBuffer(b.data(), static_cast<int>(b.size())));
    std::string value = "unchanged";
    EXPECT_EQ(c.found, p.GetStringOption(c.code, value));
    EXPECT_EQ(c.found ? c.value : std::string("unchanged"), value);
    if (c.trace) {
        EXPECT_FALSE(trace.linesWith(c.trace).empty()) << c.trace;
    }
}

const std::string kUrl = "http://wpadhost/wpad.dat";

Bytes WithUrl(Bytes before, const std::string &url = kUrl, Bytes after = {255}) {
    before.push_back(252);
    before.push_back(static_cast<unsigned char>(url.size()));
    for (char c : url) before.push_back(static_cast<unsigned char>(c));
    for (unsigned char c : after) before.push_back(c);
    return Cookie(before);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, GetStringOptionTest,
    testing::Values(
        OptionCase{"first", WithUrl({}), 252, true, kUrl, "Found string option for 252:  http://wpadhost/wpad.dat"},
        OptionCase{"afterOthers", WithUrl({53, 1, 5, 54, 4, 10, 0, 0, 1}), 252, true, kUrl, nullptr},
        OptionCase{"afterPads", WithUrl({0, 0, 0}), 252, true, kUrl,
                   "Found DHCPOptionPadding...continuing"},
        OptionCase{"endFirst", Cookie({255, 252, 3, 'a', 'b', 'c'}), 252, false, "",
                   "Found option buffer terminator"},
        OptionCase{"endBefore", Cookie({53, 1, 5, 255, 252, 3, 'a', 'b', 'c'}), 252, false, "",
                   "Found option buffer terminator"},
        OptionCase{"noCookie", {0x63, 0x82, 0x53, 0x64, 252, 1, 'x', 255}, 252, false, "",
                   "DHCPPacket option buffer didn't contain magic option"},
        OptionCase{"emptyValue", Cookie({252, 0, 255}), 252, true, "", nullptr},
        OptionCase{"embeddedZeros", WithUrl({}, std::string("a\0b\0", 4)), 252, true,
                   std::string("a\0b\0", 4), nullptr},
        OptionCase{"longest", WithUrl({}, std::string(255, 'u')), 252, true,
                   std::string(255, 'u'), nullptr},
        OptionCase{"otherCode", WithUrl({}), 15, false, "", "Found option buffer terminator"},
        OptionCase{"padsOnly", Cookie(Bytes(308, 0)), 252, false, "", nullptr},
        OptionCase{"codeIsData", Cookie({43, 2, 252, 1, 255}), 252, false, "",
                   "Found option buffer terminator"}),
    [](const testing::TestParamInfo<OptionCase> &info) { return std::string(info.param.name); });

TEST(GetStringOption, LengthRunningPastTheAreaIsCutAtItsEnd) {
    // Option 252 starts 10 bytes before the end of the option area and
    // claims 200 bytes: the value stops where the packet's storage does.
    Bytes options = Cookie(Bytes(298, 0));
    options.push_back(252);
    options.push_back(200);
    while (options.size() < DHCP_OPTIONS_SIZE) options.push_back('z');
    const Bytes b = Reply(1, options);
    DHCPPacket p;
    ASSERT_TRUE(p.SetBuffer(b.data(), static_cast<int>(b.size())));
    std::string value;
    ASSERT_TRUE(p.GetStringOption(252, value));
    EXPECT_EQ(std::string(8, 'z'), value);

    // A code in the last byte has no length byte inside the packet.
    p.options[DHCP_OPTIONS_SIZE - 1] = 252;
    p.options[DHCP_OPTIONS_SIZE - 12] = 0;
    p.options[DHCP_OPTIONS_SIZE - 11] = 0;
    for (size_t i = 4; i < DHCP_OPTIONS_SIZE - 1; ++i) p.options[i] = 0;
    EXPECT_FALSE(p.GetStringOption(252, value));
}

// CreateInformPacket on a machine with one DHCP-configured Ethernet card.
class InformTest : public testing::Test {
protected:
    void SetUp() override {
        net.AddEthernet(7, "192.168.5.20", {0x00, 0x16, 0x3e, 0x01, 0x02, 0x03});
        net.bestRouteInterface = 7;
        FakeClock::Install(platform, 1000000000);
    }
    ScopedPlatform platform;
    FakeNetwork net;
};

TEST_F(InformTest, WireFormIsTheInformAskingFor252) {
    TempDir dir;
    ScopedTrace trace(dir.file("t.log"));
    DHCPPacket p;
    ASSERT_TRUE(p.CreateInformPacket(false, "10.1.2.3"));
    EXPECT_EQ(inet_addr("10.1.2.3"), net.lastBestRouteDestination);

    std::srand(1000000000);
    const uint32_t high = static_cast<uint32_t>(std::rand());
    const uint32_t low = static_cast<uint32_t>(std::rand());
    EXPECT_EQ((high << 16) | low, p.xid);

    std::string wire;
    p.GetBuffer(wire);
    ASSERT_EQ(548u, wire.size());
    Bytes expected(548, 0);
    expected[0] = 1;
    expected[1] = 1;
    expected[2] = 6;
    expected[4] = static_cast<unsigned char>(p.xid >> 24);
    expected[5] = static_cast<unsigned char>(p.xid >> 16);
    expected[6] = static_cast<unsigned char>(p.xid >> 8);
    expected[7] = static_cast<unsigned char>(p.xid);
    const unsigned char ciaddr[] = {192, 168, 5, 20};
    std::memcpy(&expected[12], ciaddr, 4);
    const unsigned char mac[] = {0x00, 0x16, 0x3e, 0x01, 0x02, 0x03};
    std::memcpy(&expected[28], mac, 6);
    const unsigned char options[] = {0x63, 0x82, 0x53, 0x63, 0x35, 0x01,
                                     0x08, 0x37, 0x01, 0xFC, 0xFF};
    std::memcpy(&expected[236], options, sizeof options);
    EXPECT_EQ(expected, FromString(wire));
    EXPECT_EQ(0xC0A80514u, p.ciaddr);

    const auto dump = trace.linesWith(
        "Buffer contents:  " + DhcpHexDump(expected.data(), expected.size()) + " (tid=");
    ASSERT_EQ(1u, dump.size());
    EXPECT_NE(std::string::npos, dump[0].find("function=DHCPPacket::CreateInformPacket"));
}

TEST_F(InformTest, KeepsWhateverTheObjectHeldBeyondTheOptions) {
    DHCPPacket p;
    p.sname[0] = 'n';
    p.options[20] = 0x99;
    p.yiaddr = 5;
    ASSERT_TRUE(p.CreateInformPacket(false, "10.1.2.3"));
    EXPECT_EQ('n', p.sname[0]);
    EXPECT_EQ(0x99, p.options[20]);
    EXPECT_EQ(0u, p.yiaddr);
}

TEST_F(InformTest, FailsWhenNoInterfaceUsesDhcp) {
    TempDir dir;
    ScopedTrace trace(dir.file("t.log"));
    net.adapters[0].dhcpEnabled = false;
    DHCPPacket p;
    EXPECT_FALSE(p.CreateInformPacket(false, "10.1.2.3"));
    EXPECT_EQ(1u, trace.linesWith("GetNetworkInfo failed...stopping").size());
    EXPECT_TRUE(trace.linesWith("Buffer contents:  ").empty());
    EXPECT_TRUE(p.CreateInformPacket(true, "10.1.2.3"));
}

}  // namespace
