// A client program's view: the DLL registered with regsvr32, the resolver
// created by ProgID, and nothing but the public header; and routvane.exe as
// an administrator runs it (its usage errors, its JSON lines, its PAC
// tester against a PAC server of this program and on local script files).
#include <gtest/gtest.h>

#include "LoopbackHttpServer.h"

#include <windows.h>
#include <objbase.h>

#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <routvane.h>

namespace {

std::string BesideThisProgram(const char *name) {
    char path[MAX_PATH];
    const DWORD n = GetModuleFileNameA(nullptr, path, MAX_PATH);
    std::string dir(path, n);
    return dir.substr(0, dir.find_last_of('\\') + 1) + name;
}

DWORD RunProgram(std::string command) {
    STARTUPINFOA si = {};
    si.cb = sizeof si;
    PROCESS_INFORMATION pi = {};
    if (!CreateProcessA(nullptr, &command[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &si,
                        &pi))
        return GetLastError();
    DWORD code = STILL_ACTIVE;
    if (WaitForSingleObject(pi.hProcess, 60000) == WAIT_OBJECT_0) GetExitCodeProcess(pi.hProcess, &code);
    CloseHandle(pi.hThread);
    CloseHandle(pi.hProcess);
    return code;
}

// A program's exit code and what it wrote to standard output and error
// (each to a file of its own).
struct ProgramRun {
    DWORD code = STILL_ACTIVE;
    std::string out;
    std::string err;
};

std::string ReadAll(const std::string &path) {
    std::string text;
    if (FILE *f = fopen(path.c_str(), "rb")) {
        char buffer[4096];
        size_t n;
        while ((n = fread(buffer, 1, sizeof buffer, f)) > 0) text.append(buffer, n);
        fclose(f);
    }
    return text;
}

ProgramRun RunCaptured(std::string command) {
    ProgramRun run;
    char dir[MAX_PATH + 1] = "";
    GetTempPathA(MAX_PATH, dir);
    char outPath[MAX_PATH + 1] = "", errPath[MAX_PATH + 1] = "";
    GetTempFileNameA(dir, "rvo", 0, outPath);
    GetTempFileNameA(dir, "rve", 0, errPath);
    SECURITY_ATTRIBUTES inherit = {sizeof inherit, nullptr, TRUE};
    HANDLE out = CreateFileA(outPath, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherit,
                             CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    HANDLE err = CreateFileA(errPath, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherit,
                             CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    STARTUPINFOA si = {};
    si.cb = sizeof si;
    si.dwFlags = STARTF_USESTDHANDLES;
    si.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    si.hStdOutput = out;
    si.hStdError = err;
    PROCESS_INFORMATION pi = {};
    if (CreateProcessA(nullptr, &command[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &si,
                       &pi)) {
        if (WaitForSingleObject(pi.hProcess, 60000) == WAIT_OBJECT_0)
            GetExitCodeProcess(pi.hProcess, &run.code);
        CloseHandle(pi.hThread);
        CloseHandle(pi.hProcess);
    } else {
        run.code = GetLastError();
    }
    CloseHandle(out);
    CloseHandle(err);
    run.out = ReadAll(outPath);
    run.err = ReadAll(errPath);
    DeleteFileA(outPath);
    DeleteFileA(errPath);
    return run;
}

// A Windows path as a JSON string holds it: each backslash doubled.
std::string JsonPath(const std::string &path) {
    std::string out;
    for (const char c : path) out += c == '\\' ? std::string("\\\\") : std::string(1, c);
    return out;
}

std::string Tool(const std::string &arguments) {
    return "\"" + BesideThisProgram("routvane.exe") + "\" " + arguments;
}

// Standard output as one line: the JSON object without its line end. The
// form is fixed, keys and their order included, so it is compared whole.
std::string OneLine(const std::string &out) {
    std::string line = out;
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
    EXPECT_EQ(line.find('\n'), std::string::npos) << "not one line: " << out;
    return line;
}

// A file in the temporary folder for the length of a test.
class ScratchFile {
public:
    ScratchFile(const std::string &name, const std::string &text) {
        char dir[MAX_PATH + 1] = "";
        GetTempPathA(MAX_PATH, dir);
        path_ = std::string(dir) + name;
        if (FILE *f = fopen(path_.c_str(), "wb")) {
            fwrite(text.data(), 1, text.size(), f);
            fclose(f);
        }
    }
    ~ScratchFile() { DeleteFileA(path_.c_str()); }
    ScratchFile(const ScratchFile &) = delete;
    ScratchFile &operator=(const ScratchFile &) = delete;
    const std::string &path() const { return path_; }

private:
    std::string path_;
};

// The WinINet settings of this user: a fixed proxy and a bypass list.
class ProxySettings {
public:
    ProxySettings() {
        RegCreateKeyExA(HKEY_CURRENT_USER, kKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key_,
                        nullptr);
        Save("ProxyEnable", enable_);
        Save("ProxyServer", server_);
        Save("ProxyOverride", override_);
        const DWORD one = 1;
        RegSetValueExA(key_, "ProxyEnable", 0, REG_DWORD, reinterpret_cast<const BYTE *>(&one), 4);
        Set("ProxyServer", "proxy.corp.example:3128");
        Set("ProxyOverride", "<local>;*.intranet.example");
    }
    ~ProxySettings() {
        Restore("ProxyEnable", enable_);
        Restore("ProxyServer", server_);
        Restore("ProxyOverride", override_);
        RegCloseKey(key_);
    }

private:
    struct Saved {
        bool had = false;
        DWORD type = 0;
        BYTE data[1024];
        DWORD size = sizeof data;
    };
    static constexpr const char *kKey =
        "Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings";
    void Save(const char *name, Saved &s) {
        s.had = RegQueryValueExA(key_, name, nullptr, &s.type, s.data, &s.size) == ERROR_SUCCESS;
    }
    void Set(const char *name, const char *value) {
        RegSetValueExA(key_, name, 0, REG_SZ, reinterpret_cast<const BYTE *>(value),
                       static_cast<DWORD>(strlen(value) + 1));
    }
    void Restore(const char *name, const Saved &s) {
        if (s.had)
            RegSetValueExA(key_, name, 0, s.type, s.data, s.size);
        else
            RegDeleteValueA(key_, name);
    }
    HKEY key_ = nullptr;
    Saved enable_, server_, override_;
};

class ClientTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        ASSERT_EQ(RunProgram("regsvr32 /s \"" + BesideThisProgram("routvane.dll") + "\""), 0u);
    }
    static void TearDownTestSuite() {
        RunProgram("regsvr32 /u /s \"" + BesideThisProgram("routvane.dll") + "\"");
    }
    void SetUp() override { ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))); }
    void TearDown() override { CoUninitialize(); }
    ProxySettings settings_;
};

IRoutvane *Create() {
    CLSID clsid = {};
    EXPECT_EQ(CLSIDFromProgID(ROUTVANE_PROGID, &clsid), S_OK);
    EXPECT_TRUE(IsEqualCLSID(clsid, CLSID_Routvane));
    IRoutvane *resolver = nullptr;
    EXPECT_EQ(CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IRoutvane,
                               reinterpret_cast<void **>(&resolver)),
              S_OK);
    return resolver;
}

TEST_F(ClientTest, ResolvesThroughTheRegisteredServer) {
    const struct {
        const char *target;
        unsigned status;
    } rows[] = {{"www.example.com", ROUTVANE_PROXY},
                {"intranet", ROUTVANE_DIRECT},
                {"app.intranet.example", ROUTVANE_DIRECT}};
    for (const auto &row : rows) {
        IRoutvane *resolver = Create();
        ASSERT_NE(resolver, nullptr);
        EXPECT_EQ(resolver->RoutvaneBrowser(0, row.target, 443), row.status) << row.target;
        if (row.status == ROUTVANE_PROXY) {
            ASSERT_EQ(resolver->GetProxyCount(), 1);
            bool direct = true;
            char host[64];
            unsigned port = 0;
            EXPECT_TRUE(resolver->GetProxy(0, &direct, host, sizeof host, &port));
            EXPECT_FALSE(direct);
            EXPECT_STREQ(host, "proxy.corp.example");
            EXPECT_EQ(port, 3128u);
        } else {
            EXPECT_EQ(resolver->GetProxyCount(), 0);
        }
        unsigned browser = ROUTVANE_BROWSER_UNKNOWN;
        EXPECT_TRUE(resolver->GetBrowser(&browser));
        EXPECT_EQ(browser, ROUTVANE_BROWSER_IE);
        EXPECT_EQ(resolver->Release(), 0u);
    }
    // With every object released the server may be unloaded.
    HMODULE dll = GetModuleHandleA("routvane.dll");
    ASSERT_NE(dll, nullptr);
    auto canUnload = reinterpret_cast<HRESULT(WINAPI *)()>(
        reinterpret_cast<void *>(GetProcAddress(dll, "DllCanUnloadNow")));
    ASSERT_NE(canUnload, nullptr);
    EXPECT_EQ(canUnload(), S_OK);
}

TEST_F(ClientTest, CommandLineClientJsonIsOneObject) {
    const ProgramRun proxied = RunCaptured(Tool("--json www.example.com 443"));
    EXPECT_EQ(proxied.code, 0u) << proxied.err;
    EXPECT_EQ(OneLine(proxied.out),
              "{\"target\":\"www.example.com:443\",\"status\":0,\"browser\":0,\"entries\":[{"
              "\"direct\":false,\"host\":\"proxy.corp.example\",\"port\":3128}],"
              "\"autoConfigURL\":\"\"}");

    const ProgramRun direct = RunCaptured(Tool("--json --script intranet"));
    EXPECT_EQ(direct.code, 1u) << direct.err;
    EXPECT_EQ(OneLine(direct.out), "{\"target\":\"intranet:80\",\"status\":1,\"browser\":0,"
                                   "\"entries\":[],\"autoConfigURL\":\"\",\"script\":\"\"}");
}

TEST_F(ClientTest, ExampleProgramAnswersAsTheCommandLineClient) {
    const std::string example = "\"" + BesideThisProgram("resolve_example.exe") + "\" ";
    const ProgramRun proxied = RunCaptured(example + "www.example.com 443");
    EXPECT_EQ(proxied.code, 0u);
    EXPECT_EQ(OneLine(proxied.out), "PROXY proxy.corp.example:3128");
    EXPECT_EQ(RunCaptured(example + "intranet 80").code, 1u);
    EXPECT_EQ(RunCaptured(Tool("www.example.com 443")).out,
              "www.example.com:443  proxy  PROXY proxy.corp.example:3128\r\nbrowser: 0 (WinINet "
              "settings)\r\n");
}

// ----------------------------------------------------- routvane.exe alone

struct UsageCase {
    const char *arguments;
    const char *message;  // a fragment of the one line on standard error
};

TEST(CommandLineTest, UsageErrorsExitWithThreeAndOneLine) {
    const UsageCase cases[] = {
        {"", "missing HOST"},
        {"--json", "missing HOST"},
        {"--detect --options 3 --json", "missing HOST"},
        {"\"\"", "missing HOST"},
        {"--frobnicate intranet", "not expected: --frobnicate"},
        {"-x intranet", "not expected: -x"},
        {"--pac http://127.0.0.1/p.pac --jsn intranet", "not expected: --jsn"},
        {"intranet 65536", "PORT must be a number from 0 to 65535: 65536"},
        {"intranet 99999999999999999999999", "PORT must be a number from 0 to 65535"},
        {"intranet 80x", "PORT must be a number from 0 to 65535: 80x"},
        {"--detect --options 3 intranet 70000", "PORT must be a number from 0 to 65535: 70000"},
        {"--detect --options ten intranet", "--options: not a number"},
        {"--detect --options 3.5 intranet", "--options: not a number"},
        {"--options 0x100000000 intranet", "--options: not a number"},
        {"--options x intranet", "--options: not a number"},
        {"--detect --options", "--options: 1 required"},
        {"--pac", "--pac: 1 required"},
        {"--pac --json intranet", "--pac needs a URL"},
        {"--pac-file --json intranet", "--pac-file needs a path"},
        {"--pac http://127.0.0.1/p.pac --detect intranet", "--pac excludes --detect"},
        {"--detect --pac http://127.0.0.1/p.pac intranet", "--pac excludes --detect"},
        {"--pac-file p.pac --pac http://127.0.0.1/p.pac intranet", "excludes --pac-file"},
        {"--pac-file p.pac --detect intranet", "--pac-file excludes --detect"},
        {"--pac http://127.0.0.1/p.pac --options 1 intranet", "--options has no effect with --pac"},
        {"--pac-file p.pac --options 1 intranet", "--options has no effect with --pac"},
        {"--trace intranet", "--trace needs --pac, --pac-file or --detect"},
        {"--lint intranet", "--lint needs --pac, --pac-file or --detect"},
        {"--timeout 0 --pac-file p.pac intranet", "--timeout: not a number of seconds from 1 to 86400: 0"},
        {"--timeout ten --pac-file p.pac intranet", "--timeout: not a number of seconds"},
        {"--timeout 86401 --detect intranet", "--timeout: not a number of seconds"},
        {"--timeout --pac-file p.pac intranet", "--timeout"},
        {"intranet:65536", "not HOST[:PORT]: intranet:65536"},
        {"intranet:", "not HOST[:PORT]: intranet:"},
        {":80", "not HOST[:PORT]: :80"},
        {"--targets no-such-file.txt", "--targets: cannot read no-such-file.txt"},
        {"--targets . intranet", "--targets: . is a directory"},
    };
    for (const UsageCase &c : cases) {
        const ProgramRun run = RunCaptured(Tool(c.arguments));
        EXPECT_EQ(run.code, 3u) << c.arguments;
        EXPECT_EQ(run.out, "") << c.arguments;
        EXPECT_NE(run.err.find(c.message), std::string::npos) << c.arguments << ": " << run.err;
        // One line, ending in a line feed (with the carriage return of text mode).
        const std::string::size_type end = run.err.find('\n');
        EXPECT_EQ(end, run.err.size() - 1) << c.arguments << ": " << run.err;
        EXPECT_EQ(run.err.rfind("routvane: ", 0), 0u) << c.arguments << ": " << run.err;
    }
}

TEST(CommandLineTest, DetectWithBothStagesOffAnswersDirect) {
    // Bits 0 and 1: neither the DHCP broadcast nor a wpad look-up.
    const ProgramRun run = RunCaptured(Tool("--detect --options 3 --json --trace www.example.com 443"));
    EXPECT_EQ(run.code, 1u) << run.err;
    EXPECT_EQ(OneLine(run.out), "{\"target\":\"www.example.com:443\",\"status\":1,\"browser\":null,"
                                "\"entries\":[],\"autoConfigURL\":\"\"}");
    // The trace of the run, on standard error.
    EXPECT_NE(run.err.find("Using DHCP timeout: "), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("DiscoverProxyUrlViaDHCP returned false"), std::string::npos) << run.err;
    EXPECT_EQ(run.err.find("Trying WPAD"), std::string::npos) << run.err;

    const ProgramRun text = RunCaptured(Tool("--detect --options 0x3 www.example.com"));
    EXPECT_EQ(text.code, 1u) << text.err;
    EXPECT_EQ(text.out, "www.example.com:80  direct  none\r\nauto-config URL: none found\r\n");
    EXPECT_EQ(text.err, "");
}

class PacTesterTest : public testing::Test {
protected:
    // The script sees the URL and host routvane.exe was given.
    const std::string script_ =
        "function FindProxyForURL(url, host) {\n"
        "  if (url != \"https://www.example.com:8080\" || host != \"www.example.com\")\n"
        "    return \"PROXY wrong.example:1\";\n"
        "  return \"PROXY p.example:3128; DIRECT\";\n"
        "}\n";
    LoopbackHttpServer server_;
};

TEST_F(PacTesterTest, JsonHoldsTheScriptsAnswer) {
    server_.serve("/proxy.pac", HttpResponse::Text(script_));
    const std::string url = server_.url("/proxy.pac");
    const ProgramRun run = RunCaptured(Tool("--pac " + url + " --json --script --trace www.example.com 8080"));
    EXPECT_EQ(run.code, 0u) << run.err;
    // The script's quotes and line ends arrive escaped.
    EXPECT_EQ(OneLine(run.out),
              "{\"target\":\"www.example.com:8080\",\"status\":0,\"browser\":null,\"entries\":[{"
              "\"direct\":false,\"host\":\"p.example\",\"port\":3128},{\"direct\":true,\"host\":"
              "\"\",\"port\":0}],\"autoConfigURL\":\"" + url + "\",\"script\":\"function "
              "FindProxyForURL(url, host) {\\n  if (url != \\\"https://www.example.com:8080\\\" || "
              "host != \\\"www.example.com\\\")\\n    return \\\"PROXY wrong.example:1\\\";\\n  "
              "return \\\"PROXY p.example:3128; DIRECT\\\";\\n}\\n\"}");
    EXPECT_EQ(server_.requests(), std::vector<std::string>({"/proxy.pac"}));
    // --trace: the run's trace lines on standard error, none on standard output.
    EXPECT_NE(run.err.find("FindProxyForURL returned:  PROXY p.example:3128; DIRECT"),
              std::string::npos)
        << run.err;
    EXPECT_NE(run.err.find("--- BEGIN SCRIPT ---"), std::string::npos) << run.err;
}

// Several targets: the script is fetched once, each target evaluated on
// its own (the script sees each target's URL and host).
TEST_F(PacTesterTest, FetchedOnceForSeveralTargets) {
    server_.serve("/proxy.pac", HttpResponse::Text(script_));
    const std::string url = server_.url("/proxy.pac");
    const ProgramRun run = RunCaptured(Tool("--pac " + url + " www.example.com:8080 web 443"));
    EXPECT_EQ(run.code, 0u) << run.err;
    EXPECT_EQ(run.out, "www.example.com:8080  proxy  PROXY p.example:3128; DIRECT\r\n"
                       "web:443  proxy  PROXY wrong.example:1\r\n"
                       "auto-config URL: " + url + "\r\n");
    EXPECT_EQ(server_.requests(), std::vector<std::string>({"/proxy.pac"}));
}

TEST_F(PacTesterTest, TextAndExitCodes) {
    server_.serve("/direct.pac",
                  HttpResponse::Text("function FindProxyForURL(url, host) { return \"\"; }"));
    server_.serve("/proxy.pac", HttpResponse::Text(script_));
    const ProgramRun proxied = RunCaptured(Tool("--pac " + server_.url("/proxy.pac") + " www.example.com 8080"));
    EXPECT_EQ(proxied.code, 0u) << proxied.err;
    EXPECT_EQ(proxied.out, "www.example.com:8080  proxy  PROXY p.example:3128; DIRECT\r\n"
                           "auto-config URL: " + server_.url("/proxy.pac") + "\r\n");
    EXPECT_EQ(proxied.err, "");  // no --trace: nothing on standard error

    // An empty answer: direct.
    const ProgramRun direct = RunCaptured(Tool("--pac " + server_.url("/direct.pac") + " --json intranet"));
    EXPECT_EQ(direct.code, 1u) << direct.err;
    EXPECT_EQ(OneLine(direct.out), "{\"target\":\"intranet:80\",\"status\":1,\"browser\":null,"
                                   "\"entries\":[],\"autoConfigURL\":\"" + server_.url("/direct.pac") +
                                   "\"}");

    // A 404 page is a completed download without a script: the evaluation
    // fails, and the library reports the source as answered, with no entries.
    const ProgramRun missing =
        RunCaptured(Tool("--pac " + server_.url("/missing.pac") + " --json --trace www.example.com"));
    EXPECT_EQ(missing.code, 0u) << missing.err;
    EXPECT_EQ(OneLine(missing.out), "{\"target\":\"www.example.com:80\",\"status\":0,\"browser\":"
                                    "null,\"entries\":[],\"autoConfigURL\":\"" +
                                    server_.url("/missing.pac") + "\"}");
    EXPECT_NE(missing.err.find("host.ExecuteSSS failed:  "), std::string::npos) << missing.err;

    // A refused connection (its URL recorded as tried) and no URL at all
    // (nothing tried): failure, still one object.
    const std::string refused =
        "http://127.0.0.1:" + std::to_string(UnusedLoopbackPort()) + "/proxy.pac";
    for (const auto &[bad, tried] : {std::make_pair(refused, refused),
                                     std::make_pair(std::string("not-a-url"), std::string())}) {
        const ProgramRun failed = RunCaptured(Tool("--pac " + bad + " --json www.example.com"));
        EXPECT_EQ(failed.code, 2u) << bad << ": " << failed.err;
        EXPECT_EQ(OneLine(failed.out), "{\"target\":\"www.example.com:80\",\"status\":2,"
                                       "\"browser\":null,\"entries\":[],\"autoConfigURL\":\"" +
                                       tried + "\"}");
    }
}

// A local script for targets from the command line and a targets file:
// one line each, a bad line of the file named by its number while the good
// ones still run, and the highest of the targets' exit codes.
TEST(ScriptFileTest, SeveralTargets) {
    const ScratchFile script("rv-several.pac",
                             "function FindProxyForURL(url, host) {\n"
                             "  if (host == 'intranet') return '';\n"
                             "  if (shExpMatch(url, '*:8080')) return 'PROXY p.example:3128';\n"
                             "  return 'PROXY q.example:80; DIRECT';\n"
                             "}\n");
    const ScratchFile targets("rv-targets.txt",
                              "# the hosts to check\n"
                              "web.example.com\r\n"
                              "\n"
                              "bad host\n"
                              "  mail.example.com:25   # with a port\n"
                              "host:notaport\n");
    const ProgramRun run = RunCaptured(Tool("--pac-file \"" + script.path() +
                                            "\" www.example.com:8080 intranet --targets \"" +
                                            targets.path() + "\""));
    EXPECT_EQ(run.code, 2u) << run.err;
    EXPECT_EQ(run.out, "www.example.com:8080  proxy  PROXY p.example:3128\r\n"
                       "intranet:80  direct  none\r\n"
                       "web.example.com:80  proxy  PROXY q.example:80; DIRECT\r\n"
                       "mail.example.com:25  proxy  PROXY q.example:80; DIRECT\r\n"
                       "script file: " + script.path() + "\r\n");
    EXPECT_EQ(run.err, "routvane: " + targets.path() + ":4: not HOST[:PORT]: bad host\r\n"
                       "routvane: " + targets.path() + ":6: not HOST[:PORT]: host:notaport\r\n");

    // Today's HOST PORT, next to HOST:PORT; direct over proxy.
    const ProgramRun json =
        RunCaptured(Tool("--pac-file \"" + script.path() + "\" --json intranet 8080 www.example.com"));
    EXPECT_EQ(json.code, 1u) << json.err;
    EXPECT_EQ(json.out.substr(0, json.out.find('\n')),
              "{\"target\":\"intranet:8080\",\"status\":1,\"browser\":null,\"entries\":[],"
              "\"autoConfigURL\":\"" + JsonPath(script.path()) + "\"}\r");
    EXPECT_EQ(json.out.find("{\"target\":\"www.example.com:80\",\"status\":0,"),
              json.out.find('\n') + 1)
        << json.out;
}

// --lint: every difference the report knows, from what the evaluation did.
// The unknown functions are each called inside try, so that the script
// goes on to the next.
TEST(ScriptFileTest, LintReportsWhatHappened) {
    const ScratchFile script(
        "rv-lint.pac",
        "function FindProxyForURL(url, host) {\n"
        "  alert('checking ' + host);\n"
        "  alert(42);\n"
        "  if (dnsDomainIs(host, 'example.com')) return 'PROXY never.example:1';\n"
        "  if (dnsDomainIs(host, '.example.com')) alert('dotted domain matches');\n"
        "  if (localHostOrDomainIs('WWW', 'www.example.com')) return 'PROXY never.example:2';\n"
        "  isInNet('10.1.2.3', '10.0.0.0', '255.0.0.0');\n"
        "  isInNet('1host.example', 'ten.0.0.0', '255.0.0.0/8');\n"
        "  var missing = ['isInNetEx', 'dnsResolveEx', 'myIpAddressEx', 'isResolvableEx',\n"
        "                 'sortIpAddressList', 'getClientVersion'];\n"
        "  try { isInNetEx(host, 'fd00::/8'); } catch (e) {}\n"
        "  try { dnsResolveEx(host); } catch (e) {}\n"
        "  try { myIpAddressEx(); } catch (e) {}\n"
        "  try { isResolvableEx(host); } catch (e) {}\n"
        "  try { sortIpAddressList('10.0.0.1;10.0.0.2'); } catch (e) {}\n"
        "  try { getClientVersion(); } catch (e) {}\n"
        "  return 'SOCKS s.example:1080; PROXY p.example:3128; HTTPS h.example:443; DIRECT;';\n"
        "}\n");
    const ProgramRun run =
        RunCaptured(Tool("--pac-file \"" + script.path() + "\" --lint www.example.com:443"));
    EXPECT_EQ(run.code, 0u) << run.err;
    const char *const notes[] = {
        "alert: checking www.example.com",
        "alert: 42",
        "dnsDomainIs(\"www.example.com\", \"example.com\"): the domain has no leading dot, so "
        "it never matches here",
        "alert: dotted domain matches",
        "localHostOrDomainIs(\"WWW\", \"www.example.com\"): compared with the letter case, so "
        "false here",
        "isInNet(\"1host.example\", \"ten.0.0.0\", \"255.0.0.0/8\"): a host beginning with a "
        "digit is taken as an address without a look-up; this one is no address and is used as "
        "255.255.255.255",
        "isInNet(\"1host.example\", \"ten.0.0.0\", \"255.0.0.0/8\"): the pattern is no address "
        "and is used as 255.255.255.255",
        "isInNet(\"1host.example\", \"ten.0.0.0\", \"255.0.0.0/8\"): the mask is no address "
        "and is used as 255.255.255.255",
        "isInNetEx: not a function of this runtime (the script stops where it calls it)",
        "dnsResolveEx: not a function of this runtime (the script stops where it calls it)",
        "myIpAddressEx: not a function of this runtime (the script stops where it calls it)",
        "isResolvableEx: not a function of this runtime (the script stops where it calls it)",
        "sortIpAddressList: not a function of this runtime (the script stops where it calls it)",
        "getClientVersion: not a function of this runtime (the script stops where it calls it)",
        "answer entry skipped (only PROXY and DIRECT are read): \"SOCKS s.example:1080\"",
        "answer entry skipped (only PROXY and DIRECT are read): \"HTTPS h.example:443\"",
    };
    std::string expected = "www.example.com:443  proxy  PROXY p.example:3128; DIRECT\r\n";
    std::string json = "{\"target\":\"www.example.com:443\",\"status\":0,\"browser\":null,"
                       "\"entries\":[{\"direct\":false,\"host\":\"p.example\",\"port\":3128},"
                       "{\"direct\":true,\"host\":\"\",\"port\":0}],\"autoConfigURL\":\"" +
                       JsonPath(script.path()) + "\",\"notes\":[";
    for (const char *note : notes) {
        expected += std::string("  lint: ") + note + "\r\n";
        std::string quoted;
        for (const char *c = note; *c; ++c) quoted += *c == '"' ? std::string("\\\"") : std::string(1, *c);
        json += (json.back() == '[' ? "\"" : ",\"") + quoted + "\"";
    }
    expected += "script file: " + script.path() + "\r\n";
    EXPECT_EQ(run.out, expected);
    const ProgramRun jsonRun =
        RunCaptured(Tool("--pac-file \"" + script.path() + "\" --lint --json www.example.com:443"));
    EXPECT_EQ(jsonRun.code, 0u) << jsonRun.err;
    EXPECT_EQ(OneLine(jsonRun.out), json + "]}");
    // Without --lint the same run has no report, and the same answer.
    const ProgramRun plain = RunCaptured(Tool("--pac-file \"" + script.path() + "\" www.example.com:443"));
    EXPECT_EQ(plain.out, "www.example.com:443  proxy  PROXY p.example:3128; DIRECT\r\n"
                         "script file: " + script.path() + "\r\n");
}

// A script that cannot be had, or never ends: a clear message and exit
// code 2, never a hang.
TEST(ScriptFileTest, BadScriptFiles) {
    const ScratchFile empty("rv-empty.pac", "");
    const ScratchFile endless("rv-endless.pac",
                              "function FindProxyForURL(url, host) { while (true) {} }\n");
    char temp[MAX_PATH + 1] = "";
    GetTempPathA(MAX_PATH, temp);
    std::string folder(temp);
    folder.pop_back();  // without its final backslash
    const std::string missing = folder + "\\rv-no-such.pac";
    const struct {
        std::string path, message;
    } rows[] = {
        {missing, "no such file"},
        {folder, "a directory, not a script file"},
        {empty.path(), "the file is empty"},
    };
    for (const auto &row : rows) {
        const ProgramRun run = RunCaptured(Tool("--pac-file \"" + row.path + "\" intranet"));
        EXPECT_EQ(run.code, 2u) << row.path;
        EXPECT_EQ(run.err, "routvane: --pac-file " + row.path + ": " + row.message + "\r\n");
        EXPECT_EQ(run.out, "intranet:80  failed  none\r\nscript file: " + row.path + "\r\n");
    }
    const ProgramRun stuck =
        RunCaptured(Tool("--pac-file \"" + endless.path() + "\" --timeout 1 --json intranet"));
    EXPECT_EQ(stuck.code, 2u);
    EXPECT_EQ(stuck.out, "");
    EXPECT_EQ(stuck.err,
              "routvane: no answer within 1 s (the script or the server did not finish)\r\n");
}

}  // namespace
