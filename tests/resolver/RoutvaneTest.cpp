#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <utility>

#include "FakeSettings.h"
#include "PacFixtures.h"
#include "resolver/Routvane.h"

namespace {

class RoutvaneTest : public testing::Test {
protected:
    void SetUp() override {
        wininet_.flags = PROXY_TYPE_PROXY;
        wininet_.proxyServer = "proxyhost:8080";
    }
    FakeWinInet wininet_;
    FakeToken token_;
    ScopedBrowserCommand browser_{kIECommand};
    TempDir dir_;
    ScopedTrace trace_{dir_.file("t.txt")};
};

TEST_F(RoutvaneTest, LocalSystemGoesDirectAtOnceAndChangesNothing) {
    token_.localSystem = true;
    Resolver r;
    EXPECT_EQ(r->RoutvaneBrowser(0, "www.example.com", 80), ROUTVANE_DIRECT);
    EXPECT_EQ(r->GetProxyCount(), 0);
    unsigned code = 99;
    EXPECT_FALSE(r->GetBrowser(&code));
    EXPECT_EQ(code, ROUTVANE_BROWSER_UNKNOWN);
    EXPECT_EQ(wininet_.perConnectionQueries, 0);
    EXPECT_TRUE(trace_.linesWith("GetDefaultBrowser(").empty());
}

TEST_F(RoutvaneTest, TokenFailuresCountAsNotLocalSystem) {
    const struct {
        FakeToken::Failure failure;
        const char *line;
    } rows[] = {
        {FakeToken::ALLOCATE_SID, "AllocateAndInitializeSid failed:  8 "},
        {FakeToken::OPEN_TOKEN, "OpenProcessToken failed:  5 "},
        {FakeToken::FIRST_QUERY, "GetTokenInformation (first call) failed:  6 "},
        {FakeToken::SECOND_QUERY, "GetTokenInformation (second call) failed:  87 "},
    };
    for (const auto &row : rows) {
        token_.failure = row.failure;
        token_.localSystem = true;
        Resolver r;
        EXPECT_EQ(r->RoutvaneBrowser(0, "www.example.com", 80), ROUTVANE_PROXY) << row.line;
        EXPECT_EQ(trace_.linesWith(row.line).size(), 1u) << row.line;
    }
}

// Odd targets and ports are answered too.
TEST_F(RoutvaneTest, ResolvesOnOneObjectKeepEveryEntry) {
    const std::string huge(64 * 1024, 'h');
    const std::pair<const char *, unsigned> targets[] = {{"a.example", 80}, {nullptr, 80}, {"", 80},
        {huge.c_str(), 0xFFFFFFFFu}, {"\xE9\xE8.example", 0}};
    Resolver r;
    for (const auto &t : targets)
        EXPECT_EQ(r->RoutvaneBrowser(0, t.first, t.second), ROUTVANE_PROXY) << "target " << &t - targets;
    EXPECT_EQ(Entries(*r.r), std::vector<Entry>(5, Proxy("proxyhost", 8080)));
    unsigned code = 99;
    EXPECT_TRUE(r->GetBrowser(&code));
    EXPECT_EQ(code, ROUTVANE_BROWSER_IE);
    char url[16];
    memset(url, 'x', sizeof url);
    EXPECT_FALSE(r->GetAutoConfigURL(url, sizeof url));
    EXPECT_STREQ(url, "");
    EXPECT_FALSE(r->GetAutoConfigScript(url, sizeof url));
}

// A buffer with guard bytes on both sides of the part handed out.
struct Guarded {
    std::string bytes = std::string(16 + 64 + 16, '#');
    char *buffer() { return &bytes[16]; }
    bool guardsIntact(int size) const {
        return bytes.find_first_not_of('#') >= 16 &&
               bytes.find_first_not_of('#', 16 + std::max(size, 0)) == std::string::npos;
    }
};

TEST_F(RoutvaneTest, GetProxyKeepsToItsIndexesAndBuffers) {
    Resolver r;
    // Before the list is filled every index is refused, 0 included; a
    // refusal touches nothing. An entry without host and port reads as
    // direct; one with a port only does not. The flag starts as the
    // opposite of what an accepted call writes.
    const struct {
        bool filled;
        int index;
        int size;
        bool accepted;
        const char *host;
        bool direct;
        unsigned port;
    } rows[] = {
        {false, 0, 8, false, nullptr, false, 7},   {false, -1, 8, false, nullptr, false, 7},
        {true, 0, 5, true, "prox", false, 8080},   {true, 0, 10, true, "proxyhost", false, 8080},
        {true, 0, 9, true, "proxyhos", false, 8080}, {true, 0, 1, true, "", false, 8080},
        {true, 0, 0, true, nullptr, false, 8080},  {true, 0, -5, true, nullptr, false, 8080},
        {true, 1, 8, true, "", true, 0},           {true, 2, 8, true, "", false, 81},
        {true, 3, 64, false, nullptr, false, 7},   {true, -1, 64, false, nullptr, false, 7},
        {true, INT_MAX, 64, false, nullptr, false, 7},
        {true, INT_MIN, 64, false, nullptr, false, 7},
    };
    for (const auto &row : rows) {
        if (row.filled && r->GetProxyCount() == 0) {
            for (const char *entry : {"proxyhost:8080", ":0", ":81"}) r->ParseProxy(entry);
            EXPECT_EQ(trace_.linesWith(":81 (tid=").size(), 1u) << "the text parsed is traced";
        }
        Guarded g;
        bool direct = !row.direct;
        unsigned port = 7;
        EXPECT_EQ(r->GetProxy(row.index, &direct, g.buffer(), row.size, &port), row.accepted)
            << row.filled << " " << row.index << "/" << row.size;
        EXPECT_TRUE(g.guardsIntact(row.accepted ? row.size : 0)) << row.index << "/" << row.size;
        if (row.host) {
            EXPECT_STREQ(g.buffer(), row.host);
        }
        EXPECT_EQ(direct, row.accepted ? row.direct : !row.direct) << row.index << "/" << row.size;
        EXPECT_EQ(port, row.port) << row.index << "/" << row.size;
    }
    EXPECT_TRUE(r->GetProxy(0, nullptr, nullptr, 64, nullptr));
}

// The class .html names, else the one .htm names, and that class's open
// command.
TEST(DefaultBrowserTest, FollowsTheAssociationToItsOpenCommand) {
    const char kClass[] = "RoutvaneTestDocument";
    const char kClassValue[] = "Couldn't get class value for .html/.htm files";
    const std::string longCommand = "C:\\" + std::string(600, 'n') + "\\iexplore.exe";
    const std::string longClass(200, 'c');
    const DWORD number = 5;
    struct Value {
        DWORD type;  // REG_NONE: no such key
        const void *data;
        DWORD size;
    };
    const auto text = [](const char *s) {
        return Value{REG_SZ, s, static_cast<DWORD>(strlen(s) + 1)};
    };
    const Value none{REG_NONE, nullptr, 0}, named = text(kClass);
    const struct {
        Value html, htm;
        const char *command;  // null: no command key
        unsigned code;
        const char *line;
    } rows[] = {
        {named, none, "C:\\PROGRA~1\\IEXPLORE.EXE -nohome", 0, ""},
        {named, none, "C:\\Program Files\\Netscape\\NETSCAPE.EXE", 1, ""},
        {named, none, "C:\\other\\browser.exe \"%1\"", 0, "Command is \"C:\\other\\browser.exe \"%1\"\""},
        {named, none, "winebrowser", 0, "Defaulting to IE"},
        {named, none, nullptr, 0, "Couldn't get open command key"},
        {named, none, longCommand.c_str(), 0, "Couldn't get open command value"},
        {none, none, "netscape.exe", 0, "Couldn't get class key for .html/.htm files"},
        {none, named, "netscape.exe", 1, ""},
        {none, {REG_DWORD, &number, sizeof number}, "netscape.exe", 0, kClassValue},
        {none, text(longClass.c_str()), "netscape.exe", 0, kClassValue},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE("row " + std::to_string(&row - rows));
        TempDir dir;
        ScopedTrace trace(dir.file("t.txt"));
        ScopedKeyRemoved html(HKEY_CLASSES_ROOT, ".html"), htm(HKEY_CLASSES_ROOT, ".htm"),
            cls(HKEY_CLASSES_ROOT, kClass);
        std::vector<ScopedRegistryValue> values;
        for (const auto &[key, value] : {std::pair(".html", row.html), std::pair(".htm", row.htm)})
            if (value.type != REG_NONE)
                values.push_back(ScopedRegistryValue::Raw("", value.type, value.data, value.size,
                                                          HKEY_CLASSES_ROOT, key));
        if (row.command)
            values.push_back(ScopedRegistryValue::String(
                "", row.command, HKEY_CLASSES_ROOT, std::string(kClass) + "\\shell\\open\\command"));
        EXPECT_EQ(GetDefaultBrowser(), row.code);
        if (*row.line) {
            EXPECT_EQ(trace.linesWith(row.line).size(), 1u) << row.line;
        }
        EXPECT_EQ(trace.linesWith("Returning " + std::to_string(row.code) + " ").size(), 1u);
    }
}

TEST(RegistryDwordTest, OnlyANonZeroDwordCounts) {
    const DWORD thirty = 30, zero = 0;
    const struct {
        DWORD type;
        const void *data;
        DWORD size;
        uint32_t expected;
    } rows[] = {{REG_DWORD, &thirty, 4, 30}, {REG_DWORD, &zero, 4, 5}, {REG_SZ, "30", 3, 5},
                {REG_BINARY, "\x1e\0\0\0\0\0\0\0", 8, 5}, {REG_QWORD, "\x1e\0\0\0\0\0\0\0", 8, 5}};
    for (const auto &row : rows) {
        auto value = ScopedRegistryValue::Raw("RoutvaneTestDword", row.type, row.data, row.size);
        EXPECT_EQ(ReadRegistryDword("RoutvaneTestDword", 5), row.expected) << row.type;
    }
    auto absent = ScopedRegistryValue::Absent("RoutvaneTestDword");
    EXPECT_EQ(ReadRegistryDword("RoutvaneTestDword", 5), 5u);
}

}  // namespace
