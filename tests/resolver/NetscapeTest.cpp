// The Netscape Navigator path: the registry keys that lead to prefs.js, the
// preference lines read from it, and the proxy it yields, down to a PAC
// script on a server on 127.0.0.1 and up through the COM interface.
#include <gtest/gtest.h>

#include <winsock2.h>
#include <windows.h>
#include <objbase.h>

#include <memory>
#include <string>
#include <vector>

#include "LoopbackHttpServer.h"
#include "PacFixtures.h"
#include "TestSupport.h"
#include "pac/ComOwners.h"
#include "resolver/NetscapePrefs.h"
#include "resolver/Routvane.h"

namespace {

const char kNavigatorKey[] = "Software\\Netscape\\Netscape Navigator";
const char kVersion[] = "4.8 (en)";
const char kMainKey[] = "Software\\Netscape\\Netscape Navigator\\4.8 (en)\\Main";
const char kBiffKey[] = "Software\\Netscape\\Netscape Navigator\\biff";
const char kDocumentClass[] = "RoutvaneTest.NetscapeDocument";

bool KeyExists(HKEY root, const char *key) {
    HKEY k = nullptr;
    if (RegOpenKeyExA(root, key, 0, KEY_READ, &k) != ERROR_SUCCESS) return false;
    RegCloseKey(k);
    return true;
}

std::string Pref(const std::string &name, const std::string &value) {
    return "user_pref(\"" + name + "\", " + value + ");\n";
}
std::string Quoted(const std::string &text) { return "\"" + text + "\""; }

struct Entry {
    uint32_t kind;
    std::string host;
    uint32_t port;
    bool operator==(const Entry &o) const {
        return kind == o.kind && host == o.host && port == o.port;
    }
};
std::ostream &operator<<(std::ostream &out, const Entry &e) {
    return out << e.kind << ":" << e.host << ":" << e.port;
}
Entry Proxy(const std::string &host, uint32_t port) { return Entry{PROXY_ENTRY_PROXY, host, port}; }
std::vector<Entry> Entries(const Routvane &resolver) {
    std::vector<Entry> out;
    for (const ProxyEntry &e : resolver.proxies()) out.push_back(Entry{e.kind, e.host, e.port});
    return out;
}

// A Navigator installed in a folder of its own: the program folder beside
// the users' profiles, the registry keys naming both, and the user alice.
class NetscapeTest : public ::testing::Test {
protected:
    void SetUp() override {
        hadMachineKey_ = KeyExists(HKEY_LOCAL_MACHINE, "Software\\Netscape");
        hadUserKey_ = KeyExists(HKEY_CURRENT_USER, "Software\\Netscape");
        hadClass_ = KeyExists(HKEY_CLASSES_ROOT, kDocumentClass);
        temp_ = std::make_unique<TempDir>();
        navigator_ = std::make_unique<TempDir>();
        traceDir_ = std::make_unique<TempDir>();
        startTrace();
        env_.emplace_back("TEMP", temp_->path());
        env_.emplace_back("TMP", temp_->path());
        program_ = navigator_->file("Program");
        CreateDirectoryA(program_.c_str(), nullptr);
        CreateDirectoryA(navigator_->file("Users").c_str(), nullptr);
        CreateDirectoryA(navigator_->file("Users\\alice").c_str(), nullptr);
        prefs_ = navigator_->file("Users\\alice\\prefs.js");
        registry_.push_back(ScopedRegistryValue::Dword("WPADConnectTimeout", 1));
        registry_.push_back(ScopedRegistryValue::String("CurrentVersion", kVersion,
                                                        HKEY_LOCAL_MACHINE, kNavigatorKey));
        registry_.push_back(ScopedRegistryValue::String("Install Directory", program_,
                                                        HKEY_LOCAL_MACHINE, kMainKey));
        registry_.push_back(
            ScopedRegistryValue::String("CurrentUser", "alice", HKEY_CURRENT_USER, kBiffKey));
    }

    void TearDown() override {
        EXPECT_EQ(DirectoryEntries(temp_->path()), std::vector<std::string>());
        // Last set, first restored: a value set twice gets its first state.
        while (!registry_.empty()) registry_.pop_back();
        if (!hadMachineKey_) DeleteRegistryTree(HKEY_LOCAL_MACHINE, "Software\\Netscape");
        if (!hadUserKey_) DeleteRegistryTree(HKEY_CURRENT_USER, "Software\\Netscape");
        if (!hadClass_) DeleteRegistryTree(HKEY_CLASSES_ROOT, kDocumentClass);
        env_.clear();
        trace_.reset();
    }

    void startTrace() {
        trace_.reset();
        trace_ = std::make_unique<ScopedTrace>(
            traceDir_->file("trace" + std::to_string(++traces_) + ".log"));
    }

    // The messages of the trace, without line prefix and thread tail, from
    // the functions of this path.
    std::vector<std::string> Messages() const {
        std::vector<std::string> texts;
        for (const std::string &line : trace_->lines()) {
            const bool ours = line.find("function=GetProxyFromNetscape)") != std::string::npos ||
                              line.find("function=GetNetscapePrefsFilename)") != std::string::npos;
            if (!ours || line.find("Entered") != std::string::npos ||
                line.find("Exited") != std::string::npos)
                continue;
            std::string text = LineText(line);
            text.resize(text.rfind(" (tid="));
            texts.push_back(text);
        }
        return texts;
    }

    ComApartment com_;
    LoopbackHttpServer server_;
    bool hadMachineKey_ = false;
    bool hadUserKey_ = false;
    bool hadClass_ = false;
    std::unique_ptr<TempDir> temp_;
    std::unique_ptr<TempDir> navigator_;
    std::unique_ptr<TempDir> traceDir_;
    std::unique_ptr<ScopedTrace> trace_;
    int traces_ = 0;
    std::vector<ScopedEnvironment> env_;
    std::vector<ScopedRegistryValue> registry_;
    std::string program_;
    std::string prefs_;
};

// --- The preferences file ---------------------------------------------

TEST_F(NetscapeTest, PrefsFileLiesBesideTheProgramFolder) {
    const std::string expected = program_ + "\\..\\Users\\alice\\prefs.js";
    for (const std::string &install : {program_, program_ + "\\"}) {
        SCOPED_TRACE(install);
        const auto value =
            ScopedRegistryValue::String("Install Directory", install, HKEY_LOCAL_MACHINE, kMainKey);
        std::string path;
        EXPECT_TRUE(GetNetscapePrefsFilename(path));
        EXPECT_EQ(path, expected);
    }
}

TEST_F(NetscapeTest, PrefsFileIsNotFoundWithoutEveryKey) {
    const struct {
        const char *name;
        HKEY root;
        const char *key;
        const char *value;
        DWORD type;  // 0 removes the value
    } rows[] = {
        {"no version", HKEY_LOCAL_MACHINE, kNavigatorKey, "CurrentVersion", 0},
        {"version not text", HKEY_LOCAL_MACHINE, kNavigatorKey, "CurrentVersion", REG_EXPAND_SZ},
        {"no install folder", HKEY_LOCAL_MACHINE, kMainKey, "Install Directory", 0},
        {"install folder not text", HKEY_LOCAL_MACHINE, kMainKey, "Install Directory", REG_BINARY},
        {"no user", HKEY_CURRENT_USER, kBiffKey, "CurrentUser", 0},
        {"user not text", HKEY_CURRENT_USER, kBiffKey, "CurrentUser", REG_MULTI_SZ},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        startTrace();
        std::vector<ScopedRegistryValue> change;
        if (row.type == 0)
            change.push_back(ScopedRegistryValue::Absent(row.value, row.root, row.key));
        else
            change.push_back(
                ScopedRegistryValue::Raw(row.value, row.type, "x\0", 3, row.root, row.key));
        std::string path = "untouched";
        EXPECT_FALSE(GetNetscapePrefsFilename(path));
        EXPECT_EQ(Messages(),
                  std::vector<std::string>{"Unable to find user's Netscape preference file"});
        Routvane resolver;
        EXPECT_EQ(resolver.GetProxyFromNetscape(0, "example.org", 80), 2u);
        EXPECT_TRUE(resolver.proxies().empty());
    }
}

TEST_F(NetscapeTest, PreferenceLines) {
    const struct {
        const char *name;
        std::string text;
        bool integerFound;
        int integer;
        bool stringFound;
        std::string string;
    } rows[] = {
        {"plain", Pref("p", "8080") + Pref("s", Quoted("host")), true, 8080, true, "host"},
        {"no blank after the comma", "user_pref(\"p\",8080);user_pref(\"s\",\"host\");", true, 8080,
         true, "host"},
        {"blanks and line breaks", "user_pref(\"p\",  \n 7);user_pref(\"s\",\t\"h\");", true, 7,
         true, "h"},
        {"negative", Pref("p", "-3"), true, -3, false, ""},
        {"not a number", Pref("p", "\"8080\"") + Pref("s", "host"), false, 0, false, ""},
        {"absent", Pref("other", "1") + Pref("other_s", Quoted("x")), false, 0, false, ""},
        {"first occurrence wins",
         Pref("p", "1") + Pref("p", "2") + Pref("s", Quoted("a")) + Pref("s", Quoted("b")), true, 1,
         true, "a"},
        {"commented line earlier wins",
         "// " + Pref("p", "0") + Pref("p", "2") + "/* " + Pref("s", Quoted("old")) + "*/" +
             Pref("s", Quoted("new")),
         true, 0, true, "old"},
        {"a longer name is another preference", Pref("p_port", "9") + Pref("s_x", Quoted("y")),
         false, 0, false, ""},
        {"empty text counts as absent", Pref("s", Quoted("")), false, 0, false, ""},
        {"no escapes: the value ends at the next quote", Pref("s", Quoted("a\\\"b")), false, 0,
         true, "a\\"},
        {"truncated inside the string", "user_pref(\"s\", \"unfinished.example", false, 0, true,
         "unfinished.example"},
        {"truncated after the name", "user_pref(\"p\"", false, 0, false, ""},
        {"empty file", "", false, 0, false, ""},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        int integer = 12345;
        std::string text = "untouched";
        EXPECT_EQ(ReadIntegerPreference(row.text, "p", integer), row.integerFound);
        if (row.integerFound) {
            EXPECT_EQ(integer, row.integer);
        }
        EXPECT_EQ(ReadStringPreference(row.text, "s", text), row.stringFound);
        if (row.stringFound) {
            EXPECT_EQ(text, row.string);
        }
    }
}

// --- The proxy from the preferences -------------------------------------

TEST_F(NetscapeTest, ManualAndMissingProxies) {
    const std::string type1 = Pref("network.proxy.type", "1");
    const std::string unable = "Unable to find proxy in Netscape config file ";
    const std::string using_ =
        "Using Netscape preferences file " + program_ + "\\..\\Users\\alice\\prefs.js";
    const struct {
        const char *name;
        std::string prefs;
        uint32_t status;
        std::vector<Entry> entries;
        std::vector<std::string> messages;  // after the "Using ..." line
    } rows[] = {
        {"empty file", "", 2, {}, {unable}},
        {"no type", Pref("network.proxy.http", Quoted("h")), 2, {}, {unable}},
        {"type 0",
         Pref("network.proxy.type", "0") + Pref("network.proxy.http", Quoted("h")),
         2,
         {},
         {unable}},
        {"type 3",
         Pref("network.proxy.type", "3") + Pref("network.proxy.http", Quoted("h")),
         2,
         {},
         {"Proxy type is 3"}},
        {"type -1", Pref("network.proxy.type", "-1"), 2, {}, {"Proxy type is -1"}},
        {"type not a number", Pref("network.proxy.type", "\"1\""), 2, {}, {unable}},
        {"ssl with port",
         type1 + Pref("network.proxy.ssl", Quoted("ssl.example")) +
             Pref("network.proxy.ssl_port", "443"),
         0,
         {Proxy("ssl.example", 443)},
         {"Proxy type is 1", "Using SSL proxy"}},
        {"ssl without port",
         type1 + Pref("network.proxy.ssl", Quoted("ssl.example")),
         0,
         {Proxy("ssl.example", 80)},
         {"Proxy type is 1", "Using SSL proxy",
          "Unable to find network.proxy.http_port; using default port of 80"}},
        {"ssl preferred over http",
         type1 + Pref("network.proxy.http", Quoted("http.example")) +
             Pref("network.proxy.http_port", "8080") +
             Pref("network.proxy.ssl", Quoted("ssl.example")) +
             Pref("network.proxy.ssl_port", "8443"),
         0,
         {Proxy("ssl.example", 8443)},
         {"Proxy type is 1", "Using SSL proxy"}},
        {"http with port",
         type1 + Pref("network.proxy.http", Quoted("http.example")) +
             Pref("network.proxy.http_port", "8080"),
         0,
         {Proxy("http.example", 8080)},
         {"Proxy type is 1", "Using HTTP proxy"}},
        {"http without port",
         type1 + Pref("network.proxy.http", Quoted("http.example")),
         0,
         {Proxy("http.example", 80)},
         {"Proxy type is 1", "Using HTTP proxy", "Unable to find network.proxy.http_port"}},
        {"http port not a number",
         type1 + Pref("network.proxy.http", Quoted("h")) +
             Pref("network.proxy.http_port", "eighty"),
         0,
         {Proxy("h", 80)},
         {"Proxy type is 1", "Using HTTP proxy", "Unable to find network.proxy.http_port"}},
        {"empty ssl falls to http",
         type1 + Pref("network.proxy.ssl", Quoted("")) + Pref("network.proxy.http", Quoted("h")) +
             Pref("network.proxy.http_port", "3128"),
         0,
         {Proxy("h", 3128)},
         {"Proxy type is 1", "Using HTTP proxy"}},
        {"empty http",
         type1 + Pref("network.proxy.http", Quoted("")),
         2,
         {},
         {"Proxy type is 1", "Unable to find HTTP or HTTPS proxynetwork.proxy.http"}},
        {"no proxies",
         type1,
         2,
         {},
         {"Proxy type is 1", "Unable to find HTTP or HTTPS proxynetwork.proxy.http"}},
        {"commented type earlier wins",
         "// " + Pref("network.proxy.type", "0") + type1 + Pref("network.proxy.http", Quoted("h")),
         2,
         {},
         {unable}},
        {"duplicated type: the first counts",
         type1 + Pref("network.proxy.type", "3") + Pref("network.proxy.http", Quoted("h")),
         0,
         {Proxy("h", 80)},
         {"Proxy type is 1", "Using HTTP proxy", "Unable to find network.proxy.http_port"}},
        {"truncated inside the host",
         type1 + "user_pref(\"network.proxy.http\", \"cut.exa",
         0,
         {Proxy("cut.exa", 80)},
         {"Proxy type is 1", "Using HTTP proxy", "Unable to find network.proxy.http_port"}},
        {"type 2 without a script URL",
         Pref("network.proxy.type", "2") + Pref("network.proxy.http", Quoted("h")) +
             Pref("network.proxy.http_port", "1"),
         0,
         {Proxy("h", 1)},
         {"Proxy type is 2", "Unable to find network.proxy.autoconfig_url", "Using HTTP proxy"}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        startTrace();
        WriteFileText(prefs_, row.prefs);
        Routvane resolver;
        EXPECT_EQ(resolver.GetProxyFromNetscape(0, "www.example.org", 80), row.status);
        EXPECT_EQ(Entries(resolver), row.entries);
        std::vector<std::string> expected{using_};
        expected.insert(expected.end(), row.messages.begin(), row.messages.end());
        EXPECT_EQ(Messages(), expected);
    }
}

TEST_F(NetscapeTest, AMissingPrefsFileIsNamed) {
    Routvane resolver;
    EXPECT_EQ(resolver.GetProxyFromNetscape(0, "www.example.org", 80), 2u);
    EXPECT_EQ(Messages(), std::vector<std::string>{"Unable to open Netscape preferences file:  " +
                                                   program_ + "\\..\\Users\\alice\\prefs.js"});
}

TEST_F(NetscapeTest, APrefsFileHeldOpenByNavigatorIsStillRead) {
    WriteFileText(prefs_, Pref("network.proxy.type", "1") + Pref("network.proxy.http", "\"h\""));
    // Navigator keeps its file open for writing, sharing reads and writes.
    HANDLE held =
        CreateFileA(prefs_.c_str(), GENERIC_READ | GENERIC_WRITE,
                    FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(held, INVALID_HANDLE_VALUE);
    Routvane resolver;
    EXPECT_EQ(resolver.GetProxyFromNetscape(0, "www.example.org", 80), 0u);
    CloseHandle(held);
    EXPECT_EQ(Entries(resolver), std::vector<Entry>{Proxy("h", 80)});
}

TEST_F(NetscapeTest, ATenMebibytePrefsFileIsReadWhole) {
    // The proxy preferences come last, after 10 MiB of other lines.
    std::string prefs;
    prefs.reserve(11 * 1024 * 1024);
    for (int i = 0; prefs.size() < 10 * 1024 * 1024; ++i)
        prefs += Pref("browser.history.entry" + std::to_string(i),
                      Quoted("http://site" + std::to_string(i) + ".example/"));
    prefs += Pref("network.proxy.type", "1") + Pref("network.proxy.http", Quoted("last.example")) +
             Pref("network.proxy.http_port", "3128");
    WriteFileText(prefs_, prefs);
    const double start = NowMs();
    Routvane resolver;
    EXPECT_EQ(resolver.GetProxyFromNetscape(0, "www.example.org", 80), 0u);
    EXPECT_EQ(Entries(resolver), std::vector<Entry>{Proxy("last.example", 3128)});
    EXPECT_LT(NowMs() - start, 5000.0);
}

TEST_F(NetscapeTest, AutomaticConfigurationRunsTheScript) {
    const std::string script =
        "function FindProxyForURL(url, host) {\n"
        "    return \"PROXY pac1.example:3128; PROXY pac2.example:8080; DIRECT\";\n"
        "}\n";
    server_.serve("/proxy.pac", HttpResponse::Text(script));
    server_.serve("/direct.pac",
                  HttpResponse::Text("function FindProxyForURL(u, h) { return \"\"; }"));
    const std::string closed =
        "http://127.0.0.1:" + std::to_string(UnusedLoopbackPort()) + "/x.pac";
    const std::string manual = Pref("network.proxy.http", Quoted("fallback.example")) +
                               Pref("network.proxy.http_port", "8000");
    const std::string type2 = Pref("network.proxy.type", "2");
    const struct {
        const char *name;
        std::string prefs;
        uint32_t status;
        std::vector<Entry> entries;
    } rows[] = {
        {"script answers proxies",
         type2 + Pref("network.proxy.autoconfig_url", Quoted(server_.url("/proxy.pac"))) + manual,
         0,
         {Proxy("pac1.example", 3128), Proxy("pac2.example", 8080),
          Entry{PROXY_ENTRY_DIRECT, "", 0}}},
        {"script answers nothing: direct",
         type2 + Pref("network.proxy.autoconfig_url", Quoted(server_.url("/direct.pac"))) + manual,
         1,
         {}},
        {"script unreachable: the manual proxy",
         type2 + Pref("network.proxy.autoconfig_url", Quoted(closed)) + manual,
         0,
         {Proxy("fallback.example", 8000)}},
        {"script URL invalid: the manual proxy",
         type2 + Pref("network.proxy.autoconfig_url", Quoted("proxy.pac")) + manual,
         0,
         {Proxy("fallback.example", 8000)}},
        {"script unreachable, nothing manual",
         type2 + Pref("network.proxy.autoconfig_url", Quoted(closed)),
         2,
         {}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        WriteFileText(prefs_, row.prefs);
        Routvane resolver;
        EXPECT_EQ(resolver.GetProxyFromNetscape(0, "www.example.org", 443), row.status);
        EXPECT_EQ(Entries(resolver), row.entries);
    }
}

// --- From the client's side -------------------------------------------

class NetscapeClientTest : public NetscapeTest {
protected:
    void SetUp() override {
        NetscapeTest::SetUp();
        // The shell opens web pages with Navigator.
        registry_.push_back(
            ScopedRegistryValue::String("", kDocumentClass, HKEY_CLASSES_ROOT, ".html"));
        registry_.push_back(ScopedRegistryValue::String(
            "", "\"C:\\Program Files\\Netscape\\Communicator\\Program\\NETSCAPE.EXE\" -h \"%1\"",
            HKEY_CLASSES_ROOT, std::string(kDocumentClass) + "\\shell\\open\\command"));
    }

    // A resolver made by the library's class object, as a client gets it.
    ComPtr<IRoutvane> Create() {
        ComPtr<IClassFactory> factory;
        EXPECT_EQ(DllGetClassObject(CLSID_Routvane, IID_IClassFactory, factory.outVoid()), S_OK);
        ComPtr<IRoutvane> resolver;
        if (factory) {
            EXPECT_EQ(factory->CreateInstance(nullptr, IID_IRoutvane, resolver.outVoid()), S_OK);
        }
        return resolver;
    }
};

TEST_F(NetscapeClientTest, AutomaticConfigurationFromEndToEnd) {
    const std::string script =
        "function FindProxyForURL(url, host) {\n"
        "    if (shExpMatch(host, \"*.example.org\"))\n"
        "        return \"PROXY first.example:1111; PROXY second.example:2222; DIRECT\";\n"
        "    return \"DIRECT\";\n"
        "}\n";
    server_.serve("/proxy.pac", HttpResponse::Text(script));
    const std::string url = server_.url("/proxy.pac");
    WriteFileText(prefs_, Pref("network.proxy.type", "2") +
                              Pref("network.proxy.autoconfig_url", Quoted(url)));

    ComPtr<IRoutvane> resolver = Create();
    ASSERT_TRUE(resolver);
    EXPECT_EQ(resolver->RoutvaneBrowser(0, "www.example.org", 443), 0u);
    unsigned browser = 99;
    EXPECT_TRUE(resolver->GetBrowser(&browser));
    EXPECT_EQ(browser, ROUTVANE_BROWSER_NETSCAPE);

    ASSERT_EQ(resolver->GetProxyCount(), 3);
    const struct {
        bool direct;
        std::string host;
        unsigned port;
    } expected[] = {{false, "first.example", 1111}, {false, "second.example", 2222}, {true, "", 0}};
    for (int i = 0; i < 3; ++i) {
        SCOPED_TRACE(i);
        bool direct = !expected[i].direct;
        char host[64] = "untouched";
        unsigned port = 99;
        EXPECT_TRUE(resolver->GetProxy(i, &direct, host, sizeof host, &port));
        EXPECT_EQ(direct, expected[i].direct);
        EXPECT_EQ(std::string(host), expected[i].host);
        EXPECT_EQ(port, expected[i].port);
    }

    char buffer[4096] = {};
    EXPECT_TRUE(resolver->GetAutoConfigURL(buffer, sizeof buffer));
    EXPECT_EQ(std::string(buffer), url);
    EXPECT_TRUE(resolver->GetAutoConfigScript(buffer, sizeof buffer));
    EXPECT_EQ(std::string(buffer), script);

    // The script stands whole in the trace file between its markers.
    const std::string traced = ReadFileText(trace_->path());
    const size_t begin = traced.find("--- BEGIN SCRIPT ---");
    const size_t end = traced.find("--- END SCRIPT ---");
    ASSERT_NE(begin, std::string::npos);
    ASSERT_NE(end, std::string::npos);
    const std::string block = traced.substr(begin, end - begin);
    std::string normalised;
    for (char c : block)
        if (c != '\r') normalised += c;
    EXPECT_NE(normalised.find(script), std::string::npos) << block;
}

TEST_F(NetscapeClientTest, ADirectAnswerHandsOverToTheWinInetSettings) {
    server_.serve("/direct.pac",
                  HttpResponse::Text("function FindProxyForURL(u, h) { return \"\"; }"));
    WriteFileText(prefs_,
                  Pref("network.proxy.type", "2") +
                      Pref("network.proxy.autoconfig_url", Quoted(server_.url("/direct.pac"))));
    // The WinINet settings cannot be read: that path's own failure.
    ScopedPlatform platform;
    platform->InternetQueryOptionA = [](HINTERNET, DWORD, void *, DWORD *) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    };
    ComPtr<IRoutvane> resolver = Create();
    ASSERT_TRUE(resolver);
    EXPECT_EQ(resolver->RoutvaneBrowser(0, "www.example.org", 443), 2u);
    unsigned browser = 99;
    EXPECT_TRUE(resolver->GetBrowser(&browser));
    EXPECT_EQ(browser, ROUTVANE_BROWSER_IE);
    EXPECT_EQ(resolver->GetProxyCount(), 0);
    EXPECT_FALSE(trace_->linesWith("Found empty proxy return return").empty());
    EXPECT_FALSE(trace_
                     ->linesWith("InternetQueryOption(INTERNET_OPTION_PER_CONNECTION_OPTION) "
                                 "failed:  87")
                     .empty());
}

}  // namespace
