// The Netscape Navigator path: the registry keys that lead to prefs.js, the
// preference lines read from it, and the proxy it yields, down to a PAC
// script on a server on 127.0.0.1 (through the interface in the untrusted
// tests, where the library is loaded as a client loads it).
#include "PacFixtures.h"

namespace {

const char kMainKey[] = "Software\\Netscape\\Netscape Navigator\\4.8 (en)\\Main";
const char kBiffKey[] = "Software\\Netscape\\Netscape Navigator\\biff";

std::string Pref(const std::string &name, const std::string &value) {
    return "user_pref(\"" + name + "\", " + value + ");\n";
}
std::string Quoted(const std::string &text) { return "\"" + text + "\""; }
std::string Type(int type) { return Pref("network.proxy.type", std::to_string(type)); }
std::string Host(const std::string &kind, const std::string &host) {
    return Pref("network.proxy." + kind, Quoted(host));
}
std::string Port(const std::string &kind, const std::string &port) {
    return Pref("network.proxy." + kind + "_port", port);
}

class NetscapeTest : public PacTest {
protected:
    // The messages of this path's own functions, entry and exit left out.
    std::vector<std::string> Ours() const {
        std::vector<std::string> texts;
        for (const std::string &line : trace_->lines()) {
            const size_t function = line.rfind("function=");
            if (function != std::string::npos &&
                line.find("Netscape", function) != std::string::npos &&
                line.find("Entered") == std::string::npos &&
                line.find("Exited") == std::string::npos)
                texts.push_back(LineText(line).substr(0, LineText(line).rfind(" (tid=")));
        }
        return texts;
    }

    ScopedNavigator navigator_{files_};
    const std::string &program_ = navigator_.program, &prefs_ = navigator_.prefs;
    const std::string path_ = program_ + "\\..\\Users\\alice\\prefs.js";
};

TEST_F(NetscapeTest, PrefsFileIsFoundBesideTheProgramFolderThroughEveryKey) {
    // Each value missing, and a wrong-typed one that would lead to the file.
    const struct {
        HKEY root;
        const char *key;
        const char *value;
        DWORD type;  // REG_NONE removes the value
        std::string data;
    } rows[] = {
        {HKEY_LOCAL_MACHINE, kMainKey, "Install Directory", REG_SZ, program_},
        {HKEY_LOCAL_MACHINE, kMainKey, "Install Directory", REG_SZ, program_ + "\\"},
        {HKEY_LOCAL_MACHINE, kNavigatorKey, "CurrentVersion", REG_NONE, ""},
        {HKEY_LOCAL_MACHINE, kMainKey, "Install Directory", REG_NONE, ""},
        {HKEY_LOCAL_MACHINE, kMainKey, "Install Directory", REG_EXPAND_SZ, program_},
        {HKEY_CURRENT_USER, kBiffKey, "CurrentUser", REG_NONE, ""},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(std::string(row.value) + " " + std::to_string(row.type) + " " + row.data);
        StartTrace();
        const auto change =
            row.type == REG_NONE
                ? ScopedRegistryValue::Absent(row.value, row.root, row.key)
                : ScopedRegistryValue::Raw(row.value, row.type, row.data.c_str(),
                                           row.data.size() + 1, row.root, row.key);
        const bool found = row.type == REG_SZ;
        // No prefs.js is there.
        EXPECT_EQ(resolver_.GetProxyFromNetscape(0, "example.org", 80), 2u);
        EXPECT_EQ(Ours(), std::vector<std::string>{
                              found ? "Unable to open Netscape preferences file:  " + path_
                                    : "Unable to find user's Netscape preference file"});
    }
    EXPECT_TRUE(resolver_.proxies().empty());
}

TEST_F(NetscapeTest, ProxyFromThePreferences) {
    server_.serve("/proxy.pac",
                  HttpResponse::Text(
                      Returning("\"PROXY pac1.example:3128; PROXY pac2.example:8080; DIRECT\"")));
    server_.serve("/direct.pac", HttpResponse::Text(Returning("\"\"")));
    const auto autoConfig = [](const std::string &url) {
        return Type(2) + Pref("network.proxy.autoconfig_url", Quoted(url));
    };
    const std::string closed =
        "http://127.0.0.1:" + std::to_string(UnusedLoopbackPort()) + "/x.pac";
    const std::string manual = Host("http", "fallback") + Port("http", "81");
    // The proxy preferences come last, after 10 MiB of other lines.
    std::string large;
    for (int i = 0; large.size() < 10 * 1024 * 1024; ++i)
        large += Pref("browser.history.entry" + std::to_string(i),
                      Quoted("http://site" + std::to_string(i) + ".example/"));
    large += Type(1) + Host("http", "last.example") + Port("http", "3128");
    const std::string unable = "Unable to find proxy in Netscape config file ";
    const std::string t1 = "Proxy type is 1", t2 = "Proxy type is 2", http = "Using HTTP proxy",
                      ssl = "Using SSL proxy", noPort = "Unable to find network.proxy.http_port",
                      none = "Unable to find HTTP or HTTPS proxynetwork.proxy.http";
    const struct {
        const char *name;
        std::string prefs;
        uint32_t status;
        std::vector<Entry> entries;
        std::vector<std::string> messages;  // after the "Using ..." line
    } rows[] = {
        {"empty file", "", 2, {}, {unable}},
        {"type 0", Type(0) + Host("http", "h"), 2, {}, {unable}},
        {"type -1", Type(-1), 2, {}, {"Proxy type is -1"}},
        {"type not a number", Pref("network.proxy.type", "\"1\""), 2, {}, {unable}},
        {"ssl", Type(1) + Host("ssl", "s") + Port("ssl", "443"), 0, {Proxy("s", 443)}, {t1, ssl}},
        {"ssl without port", Type(1) + Host("ssl", "s"), 0, {Proxy("s", 80)},
         {t1, ssl, noPort + "; using default port of 80"}},
        {"ssl preferred", Type(1) + Host("http", "h") + Port("http", "1") + Host("ssl", "s") +
         Port("ssl", "8443"), 0, {Proxy("s", 8443)}, {t1, ssl}},
        {"http", Type(1) + Host("http", "h") + Port("http", "88"), 0, {Proxy("h", 88)}, {t1, http}},
        {"http without port", Type(1) + Host("http", "h"), 0, {Proxy("h", 80)}, {t1, http, noPort}},
        {"empty ssl", Type(1) + Host("ssl", "") + Host("http", "h") + Port("http", "3128"), 0,
         {Proxy("h", 3128)}, {t1, http}},
        {"empty http", Type(1) + Host("http", ""), 2, {}, {t1, none}},
        {"no proxies", Type(1), 2, {}, {t1, none}},
        {"commented type first", "// " + Type(0) + Type(1) + Host("http", "h"), 2, {}, {unable}},
        {"duplicated type", Type(1) + Type(3) + Host("http", "h"), 0, {Proxy("h", 80)},
         {t1, http, noPort}},
        {"truncated inside the host", Type(1) + "user_pref(\"network.proxy.http\", \"cut.exa", 0,
         {Proxy("cut.exa", 80)}, {t1, http, noPort}},
        {"10 MiB", large, 0, {Proxy("last.example", 3128)}, {t1, http}},
        {"no blanks",
         "user_pref(\"network.proxy.type\",1);user_pref(\"network.proxy.http\",\"h\");", 0,
         {Proxy("h", 80)}, {t1, http, noPort}},
        {"blanks and line breaks",
         "user_pref(\"network.proxy.type\",  \n 1);user_pref(\"network.proxy.http\",\t\"h\");", 0,
         {Proxy("h", 80)}, {t1, http, noPort}},
        {"a longer name is another preference", Port("http", "9") + Type(1) + Host("http", "h"), 0,
         {Proxy("h", 9)}, {t1, http}},
        {"no escapes", Type(1) + Host("http", "a\\\"b"), 0, {Proxy("a\\", 80)}, {t1, http, noPort}},
        // Automatic configuration, falling back to the manual proxies.
        {"script answers proxies", autoConfig(server_.url("/proxy.pac")) + manual, 0,
         {Proxy("pac1.example", 3128), Proxy("pac2.example", 8080), kDirect}, {t2}},
        {"script answers nothing", autoConfig(server_.url("/direct.pac")) + manual, 1, {}, {t2}},
        {"script unreachable", autoConfig(closed) + manual, 0, {Proxy("fallback", 81)}, {t2, http}},
        {"script unreachable, nothing manual", autoConfig(closed), 2, {}, {t2, none}},
        {"no script URL", Type(2) + Host("http", "h") + Port("http", "1"), 0, {Proxy("h", 1)},
         {t2, "Unable to find network.proxy.autoconfig_url", http}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        StartTrace();
        WriteFileText(prefs_, row.prefs);
        // Navigator keeps its file open for writing, sharing reads and writes.
        const HANDLE held =
            CreateFileA(prefs_.c_str(), GENERIC_READ | GENERIC_WRITE,
                        FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
        ASSERT_NE(held, INVALID_HANDLE_VALUE);
        Routvane resolver;
        EXPECT_EQ(resolver.GetProxyFromNetscape(0, "www.example.org", 443), row.status);
        CloseHandle(held);
        EXPECT_EQ(Entries(resolver), row.entries);
        std::vector<std::string> expected{"Using Netscape preferences file " + path_};
        expected.insert(expected.end(), row.messages.begin(), row.messages.end());
        EXPECT_EQ(Ours(), expected);
    }
}

}  // namespace
