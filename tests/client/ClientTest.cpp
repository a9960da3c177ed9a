// A client program's view: routvane.exe over the DLL registered with
// regsvr32 (the README's example runs in the package check), and as an
// administrator runs it: its usage errors, its text and JSON lines, its PAC
// tester against a PAC server of this program and on local script files.
// The decisions behind the answers are the library's own tests; here each
// path is run once.
#include <gtest/gtest.h>

#include "LoopbackHttpServer.h"
#include "TestSupport.h"

#include <windows.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

// One run: what it checks, the program and its arguments, the exit code and
// the whole standard output expected. Standard error is expected whole; or,
// after '*', as fragments separated by '|', each of which must appear, or
// with a leading '!' must not.
struct RunRow {
    std::string what, program, arguments;
    DWORD code;
    std::string out, err;
};

void CheckRuns(const std::vector<RunRow> &rows) {
    for (const RunRow &row : rows) {
        const ProgramRun run = RunProgram(row.program, row.arguments);
        EXPECT_EQ(row.code, run.code) << row.what << "\n" << run.err;
        EXPECT_EQ(row.out, run.out) << row.what;
        if (row.err.empty() || row.err[0] != '*') {
            EXPECT_EQ(row.err, run.err) << row.what;
            continue;
        }
        for (size_t at = 1; at <= row.err.size();) {
            const size_t end = std::min(row.err.find('|', at), row.err.size());
            const bool absent = row.err[at] == '!';
            const std::string part = row.err.substr(at + absent, end - at - absent);
            EXPECT_EQ(absent, run.err.find(part) == std::string::npos)
                << row.what << ": " << (absent ? "has " : "lacks ") << part << "\n" << run.err;
            at = end + 1;
        }
    }
}

const std::string kTool = Beside("routvane.exe");

// A text as a JSON string holds it: each backslash and quote escaped.
std::string Json(const std::string &text) {
    std::string out;
    for (const char c : text) out += (c == '\\' || c == '"' ? "\\" : "") + std::string(1, c);
    return out;
}

// The DLL registered for the suite; this user's WinINet settings a fixed
// proxy and a bypass list for each test.
class ClientTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        ASSERT_EQ(0u, RunProgram("regsvr32", "/s \"" + Beside("routvane.dll") + "\"").code);
    }
    static void TearDownTestSuite() { RunProgram("regsvr32", "/u /s \"" + Beside("routvane.dll") + "\""); }
    static constexpr const char *kKey =
        "Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings";
    ScopedRegistryValue enable_ = ScopedRegistryValue::Dword("ProxyEnable", 1, HKEY_CURRENT_USER, kKey);
    ScopedRegistryValue server_ = ScopedRegistryValue::String(
        "ProxyServer", "proxy.corp.example:3128", HKEY_CURRENT_USER, kKey);
    ScopedRegistryValue bypass_ = ScopedRegistryValue::String(
        "ProxyOverride", "<local>;*.intranet.example", HKEY_CURRENT_USER, kKey);
};

TEST_F(ClientTest, ProgramsOverTheRegisteredServer) {
    const std::string proxied = "{\"target\":\"www.example.com:443\",\"status\":0,\"browser\":0,"
                                "\"entries\":[{\"direct\":false,\"host\":\"proxy.corp.example\","
                                "\"port\":3128}],\"autoConfigURL\":\"\"}\r\n";
    CheckRuns({
        {"text", kTool, "www.example.com 443", 0,
         "www.example.com:443  proxy  PROXY proxy.corp.example:3128\r\n"
         "browser: 0 (WinINet settings)\r\n", ""},
        {"JSON: one object, its keys in order", kTool, "--json www.example.com 443", 0, proxied, ""},
        {"JSON with --script: an empty script", kTool, "--json --script intranet", 1,
         "{\"target\":\"intranet:80\",\"status\":1,\"browser\":0,\"entries\":[],"
         "\"autoConfigURL\":\"\",\"script\":\"\"}\r\n", ""},
    });
}

// ----------------------------------------------------- routvane.exe alone

TEST(CommandLineTest, UsageErrorsExitWithThreeAndOneLine) {
    const struct {
        const char *arguments;
        const char *message;  // a fragment of the one line on standard error
    } cases[] = {
        {"", "missing HOST"},
        {"\"\"", "missing HOST"},
        {"--frobnicate intranet", "not expected: --frobnicate"},
        {"intranet 65536", "PORT must be a number from 0 to 65535: 65536"},
        {"intranet 80x", "PORT must be a number from 0 to 65535: 80x"},
        {"--options 0x100000000 intranet", "--options: not a number"},
        {"--pac --json intranet", "--pac needs a URL"},
        {"--pac-file --json intranet", "--pac-file needs a path"},
        {"--pac http://127.0.0.1/p.pac --detect intranet", "--pac excludes --detect"},
        {"--pac-file p.pac --pac http://127.0.0.1/p.pac intranet", "excludes --pac-file"},
        {"--pac-file p.pac --detect intranet", "--pac-file excludes --detect"},
        {"--pac http://127.0.0.1/p.pac --options 1 intranet", "--options has no effect with --pac"},
        {"--pac-file p.pac --options 1 intranet", "--options has no effect with --pac"},
        {"--trace intranet", "--trace needs --pac, --pac-file or --detect"},
        {"--lint intranet", "--lint needs --pac, --pac-file or --detect"},
        {"--timeout 0 --pac-file p.pac intranet", "--timeout: not a number of seconds from 1 to 86400: 0"},
        {"--timeout 86401 --detect intranet", "--timeout: not a number of seconds"},
        {"intranet:65536", "not HOST[:PORT]: intranet:65536"},
        {"intranet:", "not HOST[:PORT]: intranet:"},
        {":80", "not HOST[:PORT]: :80"},
        {"--targets no-such-file.txt", "--targets: cannot read no-such-file.txt"},
        {"--targets . intranet", "--targets: . is a directory"},
    };
    for (const auto &c : cases) {
        const ProgramRun run = RunProgram(kTool, c.arguments);
        EXPECT_EQ(3u, run.code) << c.arguments;
        EXPECT_EQ("", run.out) << c.arguments;
        // One line, "routvane: " first, ending in a line feed (with the
        // carriage return of text mode).
        EXPECT_NE(std::string::npos, run.err.find(c.message)) << c.arguments << ": " << run.err;
        EXPECT_EQ(run.err.size() - 1, run.err.find('\n')) << c.arguments << ": " << run.err;
        EXPECT_EQ(0u, run.err.rfind("routvane: ", 0)) << c.arguments << ": " << run.err;
    }
}

TEST(CommandLineTest, DetectWithBothStagesOffAnswersDirect) {
    // Bits 0 and 1: neither the DHCP broadcast nor a wpad look-up. The DHCP
    // outcome is traced in the resolver's component although DHCP never ran.
    {
        auto timeout = ScopedRegistryValue::Absent("DHCPTimeout");
        CheckRuns({{"JSON, the run's trace on standard error; the default time-out", kTool,
                    "--detect --options 3 --json --trace www.example.com 443", 1,
                    "{\"target\":\"www.example.com:443\",\"status\":1,\"browser\":null,"
                    "\"entries\":[],\"autoConfigURL\":\"\"}\r\n",
                    "*Using DHCP timeout: 2 secs|\tRoutvane\tDiscoverProxyUrlViaDHCP returned false"
                    "|!Trying WPAD"}});
    }
    auto timeout = ScopedRegistryValue::Dword("DHCPTimeout", 0xFFFFFFFF);
    CheckRuns({{"text, the options in hex; the time-out traced signed", kTool,
                "--detect --options 0x3 --trace www.example.com", 1,
                "www.example.com:80  direct  none\r\nauto-config URL: none found\r\n",
                "*Using DHCP timeout: -1 secs"}});
}

// The script sees the URL and host routvane.exe was given; each run fetches
// it once, however many targets it has.
TEST(PacTesterTest, AgainstAServerOfItsOwn) {
    const std::string script =
        "function FindProxyForURL(url, host) {\n"
        "  if (url != \"https://www.example.com:8080\" || host != \"www.example.com\")\n"
        "    return \"PROXY wrong.example:1\";\n"
        "  return \"PROXY p.example:3128; DIRECT\";\n"
        "}\n";
    LoopbackHttpServer server;
    server.serve("/proxy.pac", HttpResponse::Text(script));
    const std::string proxy = server.url("/proxy.pac"), missing = server.url("/missing.pac");
    CheckRuns({
        {"JSON: the script's quotes and line ends escaped; --trace on standard error", kTool,
         "--pac " + proxy + " --json --script --trace www.example.com 8080", 0,
         "{\"target\":\"www.example.com:8080\",\"status\":0,\"browser\":null,\"entries\":[{"
         "\"direct\":false,\"host\":\"p.example\",\"port\":3128},{\"direct\":true,\"host\":"
         "\"\",\"port\":0}],\"autoConfigURL\":\"" + proxy + "\",\"script\":\"function "
         "FindProxyForURL(url, host) {\\n  if (url != \\\"https://www.example.com:8080\\\" || "
         "host != \\\"www.example.com\\\")\\n    return \\\"PROXY wrong.example:1\\\";\\n  "
         "return \\\"PROXY p.example:3128; DIRECT\\\";\\n}\\n\"}\r\n",
         "*FindProxyForURL returned:  PROXY p.example:3128; DIRECT|--- BEGIN SCRIPT ---"},
        {"several targets, each evaluated on its own; no --trace, nothing on standard error",
         kTool, "--pac " + proxy + " www.example.com:8080 web 443", 0,
         "www.example.com:8080  proxy  PROXY p.example:3128; DIRECT\r\n"
         "web:443  proxy  PROXY wrong.example:1\r\nauto-config URL: " + proxy + "\r\n", ""},
        // A 404 page is a completed download without a script: the
        // evaluation fails, and the source counts as answered, with no entries.
        {"a 404 page", kTool, "--pac " + missing + " --json --trace www.example.com", 0,
         "{\"target\":\"www.example.com:80\",\"status\":0,\"browser\":null,\"entries\":[],"
         "\"autoConfigURL\":\"" + missing + "\"}\r\n", "*host.ExecuteSSS failed:  "},
        {"no URL at all: nothing tried", kTool, "--pac not-a-url --json www.example.com", 2,
         "{\"target\":\"www.example.com:80\",\"status\":2,\"browser\":null,\"entries\":[],"
         "\"autoConfigURL\":\"\"}\r\n", ""},
    });
    EXPECT_EQ(server.requests(),
              std::vector<std::string>({"/proxy.pac", "/proxy.pac", "/missing.pac"}));
}

// Local scripts: targets from the command line and a targets file, one line
// each, a bad line of the file named by its number while the good ones still
// run, and the highest of the targets' exit codes; scripts that cannot be
// had, or never end, fail with a clear message and never hang.
TEST(ScriptFileTest, TargetsAndBadFiles) {
    TempDir dir;
    const std::string script = dir.file("several.pac"), targets = dir.file("targets.txt");
    WriteFileText(script,
                  "function FindProxyForURL(url, host) {\n"
                  "  if (host == 'intranet') return '';\n"
                  "  if (shExpMatch(url, '*:8080')) return 'PROXY p.example:3128';\n"
                  "  return 'PROXY q.example:80; DIRECT';\n"
                  "}\n");
    WriteFileText(targets,
                  "# the hosts to check\nweb.example.com\r\n\nbad host\n"
                  "  mail.example.com:25   # with a port\nhost:notaport\n");
    const std::string empty = dir.file("empty.pac"), endless = dir.file("endless.pac");
    const std::string missing = dir.file("no-such.pac");
    WriteFileText(empty, "");
    WriteFileText(endless, "function FindProxyForURL(url, host) { while (true) {} }\n");
    const auto unusable = [](const std::string &path, const char *message) {
        return RunRow{message, kTool, "--pac-file \"" + path + "\" intranet", 2,
                      "intranet:80  failed  none\r\nscript file: " + path + "\r\n",
                      "routvane: --pac-file " + path + ": " + message + "\r\n"};
    };
    CheckRuns({
        {"targets from the command line and a file", kTool,
         "--pac-file \"" + script + "\" www.example.com:8080 intranet --targets \"" + targets + "\"",
         2,
         "www.example.com:8080  proxy  PROXY p.example:3128\r\nintranet:80  direct  none\r\n"
         "web.example.com:80  proxy  PROXY q.example:80; DIRECT\r\n"
         "mail.example.com:25  proxy  PROXY q.example:80; DIRECT\r\nscript file: " + script + "\r\n",
         "routvane: " + targets + ":4: not HOST[:PORT]: bad host\r\n"
         "routvane: " + targets + ":6: not HOST[:PORT]: host:notaport\r\n"},
        {"HOST PORT next to HOST:PORT; direct over proxy", kTool,
         "--pac-file \"" + script + "\" --json intranet 8080 www.example.com", 1,
         "{\"target\":\"intranet:8080\",\"status\":1,\"browser\":null,\"entries\":[],"
         "\"autoConfigURL\":\"" + Json(script) + "\"}\r\n"
         "{\"target\":\"www.example.com:80\",\"status\":0,\"browser\":null,\"entries\":[{"
         "\"direct\":false,\"host\":\"q.example\",\"port\":80},{\"direct\":true,\"host\":\"\","
         "\"port\":0}],\"autoConfigURL\":\"" + Json(script) + "\"}\r\n", ""},
        unusable(missing, "no such file"),
        unusable(dir.path(), "a directory, not a script file"),
        unusable(empty, "the file is empty"),
        {"a script that never ends", kTool,
         "--pac-file \"" + endless + "\" --timeout 1 --json intranet", 2, "",
         "routvane: no answer within 1 s (the script or the server did not finish)\r\n"},
    });
}

// --lint: every difference the report knows, from what the evaluation did.
// The unknown functions are each called inside try, so that the script
// goes on to the next.
TEST(ScriptFileTest, LintReportsWhatHappened) {
    const char *const missing[] = {"isInNetEx", "dnsResolveEx", "myIpAddressEx",
                                   "isResolvableEx", "sortIpAddressList", "getClientVersion"};
    std::string calls;
    for (const char *name : missing) calls += std::string("  try { ") + name + "('x'); } catch (e) {}\n";
    TempDir dir;
    const std::string script = dir.file("lint.pac");
    WriteFileText(script,
                  "function FindProxyForURL(url, host) {\n"
                  "  alert('checking ' + host);\n"
                  "  if (dnsDomainIs(host, 'example.com')) return 'PROXY never.example:1';\n"
                  "  dnsDomainIs(host, '.example.com');\n"
                  "  if (localHostOrDomainIs('WWW', 'www.example.com')) return 'PROXY never.example:2';\n"
                  "  isInNet('10.1.2.3', '10.0.0.0', '255.0.0.0');\n"
                  "  isInNet('1host.example', 'ten.0.0.0', '255.0.0.0/8');\n" + calls +
                  "  return 'SOCKS s.example:1080; PROXY p.example:3128; HTTPS h.example:443; DIRECT;';\n"
                  "}\n");
    const std::string isInNet = "isInNet(\"1host.example\", \"ten.0.0.0\", \"255.0.0.0/8\"): ";
    std::vector<std::string> notes = {
        "alert: checking www.example.com",
        "dnsDomainIs(\"www.example.com\", \"example.com\"): the domain has no leading dot, so "
        "it never matches here",
        "localHostOrDomainIs(\"WWW\", \"www.example.com\"): compared with the letter case, so "
        "false here",
        isInNet + "a host beginning with a digit is taken as an address without a look-up; this "
                  "one is no address and is used as 255.255.255.255",
        isInNet + "the pattern is no address and is used as 255.255.255.255",
        isInNet + "the mask is no address and is used as 255.255.255.255",
    };
    for (const char *name : missing)
        notes.push_back(std::string(name) +
                        ": not a function of this runtime (the script stops where it calls it)");
    for (const char *entry : {"SOCKS s.example:1080", "HTTPS h.example:443"})
        notes.push_back(std::string("answer entry skipped (only PROXY and DIRECT are read): \"") +
                        entry + "\"");
    const std::string answer = "www.example.com:443  proxy  PROXY p.example:3128; DIRECT\r\n";
    const std::string tail = "script file: " + script + "\r\n";
    std::string text = answer;
    std::string json = "{\"target\":\"www.example.com:443\",\"status\":0,\"browser\":null,"
                       "\"entries\":[{\"direct\":false,\"host\":\"p.example\",\"port\":3128},"
                       "{\"direct\":true,\"host\":\"\",\"port\":0}],\"autoConfigURL\":\"" +
                       Json(script) + "\",\"notes\":[";
    for (const std::string &note : notes) {
        text += "  lint: " + note + "\r\n";
        json += (json.back() == '[' ? "\"" : ",\"") + Json(note) + "\"";
    }
    const std::string file = "--pac-file \"" + script + "\" ";
    CheckRuns({
        {"the report, one line a note", kTool, file + "--lint www.example.com:443", 0, text + tail, ""},
        {"the report in JSON", kTool, file + "--lint --json www.example.com:443", 0, json + "]}\r\n", ""},
        {"without --lint no report, the same answer", kTool, file + "www.example.com:443", 0,
         answer + tail, ""},
    });
}

}  // namespace
