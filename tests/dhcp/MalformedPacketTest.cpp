// The option walk, and whatever arrives on port 68 parsed without a crash
// and without a read outside the datagram or the packet: every datagram sits
// at the very end of a readable page followed by a PAGE_NOACCESS page, and
// so does the packet object whose option area GetStringOption walks.
#include <gtest/gtest.h>

#include <cstring>
#include <new>
#include <random>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "dhcp/dhcp.h"

namespace {

using Bytes = std::vector<unsigned char>;

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

// Parses one datagram placed at a guard and walks its options from a packet
// object placed at another.
class Harness {
public:
    Harness() : input_(DHCP_RECEIVE_SIZE + 16), object_(sizeof(DHCPPacket)) {
        packet_ = new (object_.at(sizeof(DHCPPacket))) DHCPPacket;
    }
    ~Harness() { packet_->~DHCPPacket(); }
    bool ok() const { return input_.ok() && object_.ok(); }
    // The results of SetBuffer and GetStringOption(code).
    std::pair<bool, bool> feed(const Bytes &datagram, uint8_t code, std::string &value) {
        unsigned char *place = input_.at(datagram.size());
        if (!datagram.empty()) std::memcpy(place, datagram.data(), datagram.size());
        const bool parsed = packet_->SetBuffer(place, static_cast<int>(datagram.size()));
        return {parsed, packet_->GetStringOption(code, value)};
    }

private:
    GuardedPages input_, object_;
    DHCPPacket *packet_;
};

// A header, the cookie, then the option bytes given; a size, when given,
// pads with zeros (or cuts) the option area to that many bytes before tail.
Bytes Options(const Bytes &options, size_t size = 0, const Bytes &tail = {}) {
    Bytes b(DHCP_HEADER_SIZE + 4, 0);
    b[0] = 2;
    const unsigned char cookie[] = {0x63, 0x82, 0x53, 0x63};
    std::memcpy(&b[DHCP_HEADER_SIZE], cookie, 4);
    for (unsigned char c : options) b.push_back(c);
    if (size) b.resize(DHCP_HEADER_SIZE + size, 0);
    for (unsigned char c : tail) b.push_back(c);
    return b;
}

const std::string kUrl = "http://wpadhost/wpad.dat";

Bytes WithUrl(Bytes before, const std::string &url = kUrl) {
    before.push_back(252);
    before.push_back(static_cast<unsigned char>(url.size()));
    before.insert(before.end(), url.begin(), url.end());
    before.push_back(255);
    return Options(before);
}

TEST(OptionWalk, Table) {
    struct Case {
        const char *name;
        Bytes datagram;
        uint8_t code;
        bool found;
        std::string value;
        const char *trace;  // a line the walk must write, or null
    };
    Bytes noCookie = Options({252, 1, 'x', 255});
    noCookie[239] = 0x64;
    const Case cases[] = {
        {"first", WithUrl({}), 252, true, kUrl,
         "Found string option for 252:  http://wpadhost/wpad.dat"},
        {"afterOthers", WithUrl({53, 1, 5, 54, 4, 10, 0, 0, 1}), 252, true, kUrl, nullptr},
        {"afterPads", WithUrl({0, 0, 0}), 252, true, kUrl, "Found DHCPOptionPadding...continuing"},
        {"endFirst", Options({255, 252, 3, 'a', 'b', 'c'}), 252, false, "",
         "Found option buffer terminator"},
        {"endBefore", Options({53, 1, 5, 255, 252, 1, 'a'}), 252, false, "",
         "Found option buffer terminator"},
        {"noCookie", noCookie, 252, false, "",
         "DHCPPacket option buffer didn't contain magic option"},
        {"cookieCut", Options({}, 2), 252, false, "", nullptr},
        {"emptyValue", Options({252, 0, 255}), 252, true, "", nullptr},
        {"embeddedZeros", WithUrl({}, std::string("a\0b\0", 4)), 252, true,
         std::string("a\0b\0", 4), nullptr},
        {"longest", WithUrl({}, std::string(255, 'u')), 252, true, std::string(255, 'u'), nullptr},
        {"otherCode", WithUrl({}), 15, false, "", "Found option buffer terminator"},
        {"padsOnly", Options({}, DHCP_OPTIONS_SIZE), 252, false, "", nullptr},
        {"codeIsData", Options({43, 2, 252, 1, 255}), 252, false, "", nullptr},
        {"skipPastEnd", Options({43, 250, 1, 2}), 252, false, "", nullptr},
        // Lengths past the end: the value stops where the packet's storage does.
        {"cutAtEnd", Options({}, DHCP_OPTIONS_SIZE - 10, {252, 200, 'z', 'z', 'z', 'z', 'z', 'z',
                                                          'z', 'z'}),
         252, true, "zzzzzzzz", nullptr},
        {"noneLeft", Options({}, DHCP_OPTIONS_SIZE - 2, {252, 255}), 252, true, "", nullptr},
        {"codeInLastByte", Options({}, DHCP_OPTIONS_SIZE - 1, {252}), 252, false, "", nullptr},
    };
    for (const Case &c : cases) {
        // A fresh object each time: option bytes of an earlier datagram
        // would otherwise stay behind a shorter one.
        Harness h;
        ASSERT_TRUE(h.ok());
        TempDir dir;
        ScopedTrace trace(dir.file("t.log"));
        std::string value = "unchanged";
        const auto r = h.feed(c.datagram, c.code, value);
        EXPECT_TRUE(r.first) << c.name;
        EXPECT_EQ(c.found, r.second) << c.name;
        EXPECT_EQ(c.found ? c.value : "unchanged", value) << c.name;
        EXPECT_TRUE(!c.trace || !trace.linesWith(c.trace).empty()) << c.name << ": " << c.trace;
    }
}

TEST(MalformedPackets, EveryLengthFrom0To2048) {
    Harness h;
    ASSERT_TRUE(h.ok());
    Bytes pattern(2048);
    for (size_t i = 0; i < pattern.size(); ++i) pattern[i] = static_cast<unsigned char>(i * 7);
    // A cookie and a long option 252, so that the walk has work at every length.
    const unsigned char options[] = {0x63, 0x82, 0x53, 0x63, 252, 255};
    std::memcpy(&pattern[236], options, sizeof options);
    for (size_t length = 0; length <= 2048; ++length) {
        std::string value;
        const auto r = h.feed(Bytes(pattern.begin(), pattern.begin() + length), 252, value);
        EXPECT_EQ(length >= DHCP_HEADER_SIZE, r.first) << length;
        EXPECT_LE(value.size(), DHCP_OPTIONS_SIZE - 6) << length;
    }
}

TEST(MalformedPackets, TenThousandRandomAndMutatedDatagrams) {
    Harness h;
    ASSERT_TRUE(h.ok());
    std::mt19937 rng(20240521);
    const Bytes seed = Options({53, 1, 5, 54, 4, 10, 77, 0, 1, 0, 0, 252, 8, 'h', 't', 't', 'p',
                                ':', '/', '/', 'x', 255});
    int parsed = 0, found = 0;
    for (int i = 0; i < 10000; ++i) {
        Bytes d;
        if (i % 2 == 0) {
            d.resize(rng() % 2049);
            for (auto &b : d) b = static_cast<unsigned char>(rng());
            // Half of them with a cookie, so the walk runs on random options.
            if (d.size() >= 240 && (rng() & 1)) std::memcpy(&d[236], &seed[236], 4);
        } else {
            d = seed;
            for (int e = 1 + static_cast<int>(rng() % 8); e > 0; --e) {
                switch (rng() % 4) {
                case 0:  // flip a byte
                    d[rng() % d.size()] = static_cast<unsigned char>(rng());
                    break;
                case 1:  // truncate
                    d.resize(1 + rng() % d.size());
                    break;
                case 2:  // extend with random bytes
                    for (unsigned n = rng() % 600; n > 0 && d.size() < 2048; --n)
                        d.push_back(static_cast<unsigned char>(rng()));
                    break;
                default:  // a wild length byte for option 252
                    if (d.size() > 252) d[252] = static_cast<unsigned char>(rng());
                    break;
                }
            }
        }
        std::string value;
        const auto r = h.feed(d, i % 3 == 0 ? static_cast<uint8_t>(rng()) : 252, value);
        parsed += r.first;
        found += r.second;
        EXPECT_LE(value.size(), 255u);
    }
    // The corpus reaches both outcomes of both calls.
    EXPECT_GT(parsed, 1000);
    EXPECT_LT(parsed, 10000);
    EXPECT_GT(found, 100);
}

}  // namespace
