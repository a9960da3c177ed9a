// The DHCP message: its wire form, the DHCPINFORM, the parse of replies and
// the option walk. Whatever arrives on port 68 is parsed without a read or
// a write outside the datagram or the packet: both sit at the very end of a
// readable page followed by a PAGE_NOACCESS page.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "FakeNetwork.h"
#include "TestSupport.h"
#include "dhcp/dhcp.h"

namespace {

using Bytes = std::vector<unsigned char>;

// A reply: the header (op 2, xid 0x11223344), the cookie, then the option
// bytes given; a size, when given, pads with zeros (or cuts) the option
// area to that many bytes before tail.
Bytes Reply(const Bytes &options, size_t size = 0, const Bytes &tail = {}) {
    Bytes b = {2, 0, 0, 0, 0x11, 0x22, 0x33, 0x44};
    b.resize(DHCP_HEADER_SIZE, 0);
    const unsigned char cookie[] = {0x63, 0x82, 0x53, 0x63};
    b.insert(b.end(), cookie, cookie + 4);
    b.insert(b.end(), options.begin(), options.end());
    if (size) b.resize(DHCP_HEADER_SIZE + size, 0);
    b.insert(b.end(), tail.begin(), tail.end());
    return b;
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

// Each reader fails where the datagram ends, traces what was left and
// changes nothing; the fields read before keep their new values.
TEST(SetBuffer, TruncatedHeadersFailInTheRightReaderAndKeepWhatWasRead) {
    TempDir dir;
    ScopedTrace trace(dir.file("t.log"));
    const std::pair<int, std::string> cases[] = {
        {-1, "Invalid buffer length:  -1"}, {0, "Invalid buffer length:  0"},
        {3, "Invalid buffer length:  0"},   {6, "Invalid buffer length:  2"},
        {9, "Invalid buffer length:  1"},
        {100, "Invalid buffer length:  56 need at least 64"},
        {235, "Invalid buffer length:  127 need at least 128"},
    };
    Bytes b = Reply({});
    b[8] = 0x0A;  // secs
    b[44] = 'S';  // sname
    for (const auto &c : cases) {
        const size_t before = trace.linesWith(c.second).size();
        DHCPPacket p;
        p.xid = p.secs = 9;
        p.sname[0] = p.file[0] = 'x';
        EXPECT_FALSE(p.SetBuffer(b.data(), c.first)) << c.first;
        EXPECT_EQ(before + 1, trace.linesWith(c.second).size()) << c.first;
        EXPECT_EQ(c.first >= 8 ? 0x11223344u : 9u, p.xid) << c.first;
        EXPECT_EQ(c.first >= 10 ? 0x0A00 : 9, p.secs) << c.first;
        EXPECT_EQ(c.first >= 108 ? 'S' : 'x', p.sname[0]) << c.first;
        EXPECT_EQ('x', p.file[0]) << c.first;
    }
    EXPECT_EQ(7u, trace.linesWith("Not enough buffer space...failed").size());
    // A dump of every datagram that has bytes, in the parse's name.
    const auto dumps = trace.linesWith("Buffer contents:  ");
    ASSERT_EQ(5u, dumps.size());
    EXPECT_NE(std::string::npos, dumps[0].find(";function=DHCPPacket::SetBuffer (parse))"));
}

// Two pages, the second no access; at(n) gives n bytes ending at the guard.
class GuardedPages {
public:
    explicit GuardedPages(size_t usable) {
        SYSTEM_INFO info;
        GetSystemInfo(&info);
        page_ = info.dwPageSize;
        usable_ = (usable + page_ - 1) / page_ * page_;
        base_ = static_cast<unsigned char *>(
            VirtualAlloc(nullptr, usable_ + page_, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
        DWORD old = 0;
        ok_ = base_ && VirtualProtect(base_ + usable_, page_, PAGE_NOACCESS, &old);
    }
    ~GuardedPages() {
        if (base_) VirtualFree(base_, 0, MEM_RELEASE);
    }
    GuardedPages(const GuardedPages &) = delete;
    GuardedPages &operator=(const GuardedPages &) = delete;
    bool ok() const { return ok_; }
    unsigned char *at(size_t length) { return base_ + usable_ - length; }

private:
    size_t page_ = 0, usable_ = 0;
    unsigned char *base_ = nullptr;
    bool ok_ = false;
};

// Parses datagrams placed at a guard into a packet object placed at another
// and walks the object's options.
class Harness {
public:
    Harness() : input_(DHCP_RECEIVE_SIZE + 16), object_(sizeof(DHCPPacket)) {
        packet_ = new (object_.at(sizeof(DHCPPacket))) DHCPPacket;
    }
    ~Harness() { packet_->~DHCPPacket(); }
    bool ok() const { return input_.ok() && object_.ok(); }
    // The results of SetBuffer and GetStringOption(252).
    std::pair<bool, bool> feed(const Bytes &datagram, std::string &value) {
        unsigned char *place = input_.at(datagram.size());
        if (!datagram.empty()) std::memcpy(place, datagram.data(), datagram.size());
        const bool parsed = packet_->SetBuffer(place, static_cast<int>(datagram.size()));
        return {parsed, packet_->GetStringOption(DHCP_OPTION_AUTO_PROXY, value)};
    }

private:
    GuardedPages input_, object_;
    DHCPPacket *packet_;
};

const std::string kUrl = "http://wpadhost/wpad.dat";

Bytes WithUrl(Bytes before, const std::string &url = kUrl) {
    before.push_back(252);
    before.push_back(static_cast<unsigned char>(url.size()));
    before.insert(before.end(), url.begin(), url.end());
    before.push_back(255);
    return Reply(before);
}

TEST(OptionWalk, Table) {
    struct Case {
        const char *name;
        Bytes datagram;
        bool found;
        std::string value;
        const char *trace;  // a line the parse or the walk must write, or null
    };
    Bytes noCookie = Reply({252, 1, 'x', 255});
    noCookie[239] = 0x64;
    Bytes headerOnly = Reply({});
    headerOnly.resize(DHCP_HEADER_SIZE);
    const Case cases[] = {
        {"first", WithUrl({}), true, kUrl,
         "Found string option for 252:  http://wpadhost/wpad.dat"},
        {"afterOthers", WithUrl({53, 1, 5, 54, 4, 10, 0, 0, 1}), true, kUrl, nullptr},
        {"afterPads", WithUrl({0, 0, 0}), true, kUrl, "Found DHCPOptionPadding...continuing"},
        // The dump holds the datagram and no more.
        {"headerAndCookie", Reply({}), false, "", " 00 63 82 53 63 (tid="},
        {"endFirst", Reply({255, 252, 3, 'a', 'b', 'c'}), false, "",
         "Found option buffer terminator"},
        {"noCookie", noCookie, false, "",
         "DHCPPacket option buffer didn't contain magic option"},
        {"emptyValue", Reply({252, 0, 255}), true, "", nullptr},
        {"embeddedZeros", WithUrl({}, std::string("a\0b\0", 4)), true,
         std::string("a\0b\0", 4), nullptr},
        {"longest", WithUrl({}, std::string(255, 'u')), true, std::string(255, 'u'), nullptr},
        {"codeIsData", Reply({43, 2, 252, 1, 255}), false, "", nullptr},
        // Lengths past the end: the value stops where the packet's storage does.
        {"cutAtEnd", Reply({}, DHCP_OPTIONS_SIZE - 10, {252, 200, 'z', 'z', 'z', 'z', 'z', 'z',
                                                        'z', 'z'}),
         true, "zzzzzzzz", nullptr},
        {"noneLeft", Reply({}, DHCP_OPTIONS_SIZE - 2, {252, 255}), true, "", nullptr},
        {"codeInLastByte", Reply({}, DHCP_OPTIONS_SIZE - 1, {252}), false, "", nullptr},
        {"headerOnly", headerOnly, false, "", nullptr},
        // Longer datagrams are cut: a copy past the option area would write
        // into the guard page.
        {"longerThanThePacket",
         Reply({252, 3, 'a', 'b', 'c', 255}, DHCP_RECEIVE_SIZE - DHCP_HEADER_SIZE), true, "abc",
         nullptr},
    };
    for (const Case &c : cases) {
        // A fresh object each time: option bytes of an earlier datagram
        // would otherwise stay behind a shorter one.
        Harness h;
        ASSERT_TRUE(h.ok());
        TempDir dir;
        ScopedTrace trace(dir.file("t.log"));
        std::string value = "unchanged";
        const auto r = h.feed(c.datagram, value);
        EXPECT_TRUE(r.first) << c.name;
        EXPECT_EQ(c.found, r.second) << c.name;
        EXPECT_EQ(c.found ? c.value : "unchanged", value) << c.name;
        EXPECT_TRUE(!c.trace || !trace.linesWith(c.trace).empty()) << c.name << ": " << c.trace;
    }
}

// Deliberately, as the exchange relies on: option bytes beyond the end of a
// shorter datagram keep what the packet held.
TEST(OptionWalk, OptionBytesBeyondTheDatagramStay) {
    Harness h;
    ASSERT_TRUE(h.ok());
    std::string value;
    h.feed(Reply({252, 3, 'a', 'b', 'c', 255}), value);
    value.clear();
    const auto r = h.feed(Reply({}), value);
    EXPECT_TRUE(r.first && r.second);
    EXPECT_EQ("abc", value);
}

// CreateInformPacket on the fake machine's Ethernet card, DHCP on, then off.
TEST(Inform, WireFormAsksFor252AndNeedsDhcpUnlessForced) {
    ScopedClock clock;
    FakeClock::Install(clock, 1000000000);
    FakeNetwork net;
    TempDir dir;
    ScopedTrace trace(dir.file("t.log"));
    DHCPPacket p;
    p.yiaddr = 5;
    ASSERT_TRUE(p.CreateInformPacket(false, "10.1.2.3"));
    EXPECT_EQ(inet_addr("10.1.2.3"), net.routeDestination);
    std::srand(1000000000);
    const uint32_t high = static_cast<uint32_t>(std::rand());
    EXPECT_EQ((high << 16) | static_cast<uint32_t>(std::rand()), p.xid);
    std::string wire, expected("\1\1\x08\0", 4);
    p.GetBuffer(wire);
    for (int i = 0; i < 4; ++i) expected += static_cast<char>(p.xid >> (24 - 8 * i));
    expected += std::string(4, '\0') + std::string("\xAC\x10\x00\x09", 4) +
                std::string(12, '\0') + std::string("\x00\x16\x3e\x10\x20\x04\x07\x08", 8);
    expected.resize(DHCP_HEADER_SIZE, '\0');
    expected += "\x63\x82\x53\x63\x35\x01\x08\x37\x01\xFC\xFF";
    expected.resize(DHCP_PACKET_SIZE, '\0');
    EXPECT_EQ(expected, wire);
    const auto dump = trace.linesWith("Buffer contents:  " +
        DhcpHexDump(reinterpret_cast<const unsigned char *>(wire.data()), wire.size()) + " (tid=");
    ASSERT_EQ(1u, dump.size());
    EXPECT_NE(std::string::npos, dump[0].find("function=DHCPPacket::CreateInformPacket"));

    net.dhcpEnabled = false;
    DHCPPacket q;
    EXPECT_FALSE(q.CreateInformPacket(false, "10.1.2.3"));
    EXPECT_EQ(1u, trace.linesWith("GetNetworkInfo failed...stopping").size());
    EXPECT_EQ(1u, trace.linesWith("Buffer contents:  ").size()) << "no dump of a refused packet";
    EXPECT_TRUE(q.CreateInformPacket(true, "10.1.2.3"));

    // A name is looked up for the route; one that cannot be is all ones.
    WinsockSession winsock;
    const std::pair<std::string, const char *> names[] = {
        {"localhost", "127.0.0.1"}, {std::string(300, 'b') + ".invalid", "255.255.255.255"}};
    for (const auto &name : names) {
        EXPECT_TRUE(q.CreateInformPacket(true, name.first)) << name.second;
        EXPECT_EQ(inet_addr(name.second), net.routeDestination) << name.second;
    }
}

}  // namespace
