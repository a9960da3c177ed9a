// Whatever arrives on port 68 is parsed without a crash and without a read
// outside the datagram or the packet: every datagram sits at the very end of
// a readable page followed by a PAGE_NOACCESS page, and so does the packet
// object whose option area GetStringOption walks.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <new>
#include <random>
#include <string>
#include <vector>

#include "dhcp/dhcp.h"

namespace {

// Two pages: the first readable and writable, the second no access. Data
// placed with at() ends exactly at the boundary.
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
    // Room for length bytes that end at the guard page.
    unsigned char *at(size_t length) { return base_ + usable_ - length; }

private:
    size_t page_ = 0;
    size_t usable_ = 0;
    unsigned char *base_ = nullptr;
    bool ok_ = false;
};

// The guard works: the byte after the data cannot be read.
TEST(MalformedPackets, GuardPageIsNotReadable) {
    GuardedPages pages(4096);
    ASSERT_TRUE(pages.ok());
    MEMORY_BASIC_INFORMATION info;
    ASSERT_NE(0u, VirtualQuery(pages.at(0), &info, sizeof info));
    EXPECT_EQ(static_cast<DWORD>(PAGE_NOACCESS), info.Protect);
    ASSERT_NE(0u, VirtualQuery(pages.at(1), &info, sizeof info));
    EXPECT_EQ(static_cast<DWORD>(PAGE_READWRITE), info.Protect);
}

// Parses one datagram placed at the guard and walks its options from a
// packet object placed at another guard.
class Harness {
public:
    Harness() : input_(DHCP_RECEIVE_SIZE + 16), object_(sizeof(DHCPPacket)) {
        packet_ = new (object_.at(sizeof(DHCPPacket))) DHCPPacket;
    }
    ~Harness() { packet_->~DHCPPacket(); }
    bool ok() const { return input_.ok() && object_.ok(); }

    // The results of SetBuffer and GetStringOption(code).
    std::pair<bool, bool> feed(const std::vector<unsigned char> &datagram, uint8_t code,
                               std::string &value) {
        unsigned char *place = input_.at(datagram.size());
        if (!datagram.empty()) std::memcpy(place, datagram.data(), datagram.size());
        const bool parsed = packet_->SetBuffer(place, static_cast<int>(datagram.size()));
        const bool found = packet_->GetStringOption(code, value);
        return {parsed, found};
    }
    DHCPPacket &packet() { return *packet_; }

private:
    GuardedPages input_;
    GuardedPages object_;
    DHCPPacket *packet_;
};

std::vector<unsigned char> Header(uint32_t xid) {
    std::vector<unsigned char> b(DHCP_HEADER_SIZE, 0);
    b[0] = 2;
    b[4] = static_cast<unsigned char>(xid >> 24);
    b[7] = static_cast<unsigned char>(xid);
    return b;
}

std::vector<unsigned char> Append(std::vector<unsigned char> b,
                                  std::initializer_list<unsigned char> tail) {
    for (unsigned char c : tail) b.push_back(c);
    return b;
}

TEST(MalformedPackets, EveryLengthFrom0To2048) {
    Harness h;
    ASSERT_TRUE(h.ok());
    std::vector<unsigned char> pattern(2048);
    for (size_t i = 0; i < pattern.size(); ++i) pattern[i] = static_cast<unsigned char>(i * 7);
    // A valid cookie and a long option 252 inside, so that the walk has
    // something to do at every length.
    const unsigned char options[] = {0x63, 0x82, 0x53, 0x63, 252, 255};
    std::memcpy(&pattern[236], options, sizeof options);
    for (size_t length = 0; length <= 2048; ++length) {
        std::vector<unsigned char> d(pattern.begin(), pattern.begin() + length);
        std::string value;
        const auto r = h.feed(d, 252, value);
        EXPECT_EQ(length >= DHCP_HEADER_SIZE, r.first) << length;
        if (r.second) {
            EXPECT_LE(value.size(), 255u);
            EXPECT_LE(value.size(), DHCP_OPTIONS_SIZE - 6);
        }
    }
}

TEST(MalformedPackets, CraftedOptionAreas) {
    struct Case {
        const char *name;
        std::vector<unsigned char> datagram;
        bool found;
        size_t valueLength;
    };
    std::vector<unsigned char> pastEnd = Append(Header(1), {0x63, 0x82, 0x53, 0x63});
    pastEnd.resize(DHCP_PACKET_SIZE - 2, 0);
    pastEnd.push_back(252);
    pastEnd.push_back(255);  // 255 bytes claimed, none there
    std::vector<unsigned char> lastByte = Append(Header(1), {0x63, 0x82, 0x53, 0x63});
    lastByte.resize(DHCP_PACKET_SIZE - 1, 0);
    lastByte.push_back(252);  // a code without its length byte
    std::vector<unsigned char> skipPastEnd =
        Append(Header(1), {0x63, 0x82, 0x53, 0x63, 43, 250, 1, 2});  // skips beyond the area
    std::vector<unsigned char> longest = Append(Header(1), {0x63, 0x82, 0x53, 0x63, 252, 255});
    longest.resize(longest.size() + 255, 'w');
    std::vector<unsigned char> zeros =
        Append(Header(1), {0x63, 0x82, 0x53, 0x63, 252, 5, 'a', 0, 0, 'b', 0, 255});
    std::vector<unsigned char> padsOnly = Append(Header(1), {0x63, 0x82, 0x53, 0x63});
    padsOnly.resize(DHCP_PACKET_SIZE, 0);
    std::vector<unsigned char> endFirst =
        Append(Header(1), {0x63, 0x82, 0x53, 0x63, 255, 252, 1, 'x'});
    std::vector<unsigned char> noCookie = Append(Header(1), {252, 1, 'x', 255});
    std::vector<unsigned char> cookieCut = Append(Header(1), {0x63, 0x82});
    const Case cases[] = {
        {"pastEnd", pastEnd, true, 0},   {"lastByte", lastByte, false, 0},
        {"skipPastEnd", skipPastEnd, false, 0}, {"longest", longest, true, 255},
        {"zeros", zeros, true, 5},       {"padsOnly", padsOnly, false, 0},
        {"endFirst", endFirst, false, 0}, {"noCookie", noCookie, false, 0},
        {"cookieCut", cookieCut, false, 0},
    };
    for (const Case &c : cases) {
        // A fresh object each time: option bytes of an earlier datagram
        // would otherwise stay behind a shorter one.
        Harness h;
        ASSERT_TRUE(h.ok());
        std::string value;
        const auto r = h.feed(c.datagram, 252, value);
        EXPECT_TRUE(r.first) << c.name;
        EXPECT_EQ(c.found, r.second) << c.name;
        if (c.found) {
            EXPECT_EQ(c.valueLength, value.size()) << c.name;
        }
    }
}

TEST(MalformedPackets, TenThousandRandomAndMutatedDatagrams) {
    Harness h;
    ASSERT_TRUE(h.ok());
    std::mt19937 rng(20240521);
    std::vector<unsigned char> seed = Append(
        Header(0x1234), {0x63, 0x82, 0x53, 0x63, 53, 1, 5, 54, 4, 10, 77, 0, 1, 0, 0, 252, 8,
                         'h', 't', 't', 'p', ':', '/', '/', 'x', 255});
    int parsed = 0, found = 0;
    for (int i = 0; i < 10000; ++i) {
        std::vector<unsigned char> d;
        if (i % 2 == 0) {
            d.resize(rng() % 2049);
            for (auto &b : d) b = static_cast<unsigned char>(rng());
            // Half of them with a cookie, so the walk runs on random options.
            if (d.size() >= 240 && (rng() & 1)) {
                const unsigned char cookie[] = {0x63, 0x82, 0x53, 0x63};
                std::memcpy(&d[236], cookie, 4);
            }
        } else {
            d = seed;
            const int edits = 1 + static_cast<int>(rng() % 8);
            for (int e = 0; e < edits; ++e) {
                switch (rng() % 4) {
                case 0:  // flip a byte of the option area or header
                    d[rng() % d.size()] = static_cast<unsigned char>(rng());
                    break;
                case 1:  // truncate
                    d.resize(rng() % (d.size() + 1));
                    if (d.empty()) d.push_back(0);
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
        const uint8_t code = (i % 3 == 0) ? static_cast<uint8_t>(rng()) : 252;
        const auto r = h.feed(d, code, value);
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
