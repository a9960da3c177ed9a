// A client program's view: the DLL registered with regsvr32, the resolver
// created by ProgID, and nothing but the public header; and routvane.exe as
// an administrator runs it (its usage errors, its one JSON object, its PAC
// tester against a PAC server of this program).
#include <gtest/gtest.h>

#include "LoopbackHttpServer.h"

#include <windows.h>
#include <objbase.h>

#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "routvane.h"

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

std::string Tool(const std::string &arguments) {
    return "\"" + BesideThisProgram("routvane.exe") + "\" " + arguments;
}

// Just enough JSON to hold routvane.exe to its one object: objects (keys in
// order), arrays, strings, integers, true, false, null.
struct Json {
    enum Kind { Null, Bool, Number, String, Array, Object } kind = Null;
    bool boolean = false;
    long long number = 0;
    std::string text;
    std::vector<Json> items;
    std::vector<std::pair<std::string, Json>> members;

    const Json &operator[](const std::string &key) const {
        for (const auto &m : members)
            if (m.first == key) return m.second;
        static const Json missing;
        ADD_FAILURE() << "no key " << key;
        return missing;
    }
    std::vector<std::string> keys() const {
        std::vector<std::string> out;
        for (const auto &m : members) out.push_back(m.first);
        return out;
    }
};

class JsonParser {
public:
    explicit JsonParser(const std::string &text) : s_(text) {}
    // The whole text is one value (blanks around it allowed), or false.
    bool parseDocument(Json &out) {
        blanks();
        if (!value(out)) return false;
        blanks();
        return i_ == s_.size();
    }

private:
    void blanks() {
        while (i_ < s_.size() && (s_[i_] == ' ' || s_[i_] == '\n' || s_[i_] == '\r' || s_[i_] == '\t'))
            ++i_;
    }
    bool literal(const char *word) {
        const size_t n = strlen(word);
        if (s_.compare(i_, n, word) != 0) return false;
        i_ += n;
        return true;
    }
    bool string(std::string &out) {
        if (i_ >= s_.size() || s_[i_] != '"') return false;
        ++i_;
        while (i_ < s_.size() && s_[i_] != '"') {
            char c = s_[i_++];
            if (static_cast<unsigned char>(c) < 0x20) return false;
            if (c != '\\') {
                out += c;
                continue;
            }
            if (i_ >= s_.size()) return false;
            c = s_[i_++];
            switch (c) {
            case '"': out += '"'; break;
            case '\\': out += '\\'; break;
            case '/': out += '/'; break;
            case 'n': out += '\n'; break;
            case 'r': out += '\r'; break;
            case 't': out += '\t'; break;
            case 'b': out += '\b'; break;
            case 'f': out += '\f'; break;
            case 'u': {
                if (i_ + 4 > s_.size()) return false;
                const unsigned code = std::strtoul(s_.substr(i_, 4).c_str(), nullptr, 16);
                i_ += 4;
                if (code >= 0x80) return false;  // routvane.exe escapes control characters only
                out += static_cast<char>(code);
                break;
            }
            default: return false;
            }
        }
        if (i_ >= s_.size()) return false;
        ++i_;
        return true;
    }
    bool value(Json &out) {
        if (i_ >= s_.size()) return false;
        const char c = s_[i_];
        if (c == '{') {
            out.kind = Json::Object;
            ++i_;
            blanks();
            if (i_ < s_.size() && s_[i_] == '}') return ++i_, true;
            for (;;) {
                blanks();
                std::string key;
                if (!string(key)) return false;
                blanks();
                if (i_ >= s_.size() || s_[i_++] != ':') return false;
                blanks();
                Json member;
                if (!value(member)) return false;
                out.members.emplace_back(key, member);
                blanks();
                if (i_ < s_.size() && s_[i_] == ',') { ++i_; continue; }
                return i_ < s_.size() && s_[i_++] == '}';
            }
        }
        if (c == '[') {
            out.kind = Json::Array;
            ++i_;
            blanks();
            if (i_ < s_.size() && s_[i_] == ']') return ++i_, true;
            for (;;) {
                blanks();
                Json item;
                if (!value(item)) return false;
                out.items.push_back(item);
                blanks();
                if (i_ < s_.size() && s_[i_] == ',') { ++i_; continue; }
                return i_ < s_.size() && s_[i_++] == ']';
            }
        }
        if (c == '"') {
            out.kind = Json::String;
            return string(out.text);
        }
        if (literal("true")) { out.kind = Json::Bool; out.boolean = true; return true; }
        if (literal("false")) { out.kind = Json::Bool; return true; }
        if (literal("null")) { out.kind = Json::Null; return true; }
        if (c == '-' || (c >= '0' && c <= '9')) {
            const size_t start = i_++;
            while (i_ < s_.size() && s_[i_] >= '0' && s_[i_] <= '9') ++i_;
            out.kind = Json::Number;
            out.number = std::strtoll(s_.substr(start, i_ - start).c_str(), nullptr, 10);
            return true;
        }
        return false;
    }

    const std::string &s_;
    size_t i_ = 0;
};

// Standard output holds exactly one JSON object on one line, with the keys
// of routvane.exe in their order and of their types.
Json OneJsonObject(const std::string &out, bool script) {
    Json json;
    EXPECT_EQ(out.find('\n'), out.size() - 1) << "not one line: " << out;
    EXPECT_TRUE(JsonParser(out).parseDocument(json)) << "not one JSON value: " << out;
    EXPECT_EQ(json.kind, Json::Object) << out;
    std::vector<std::string> keys = {"status", "browser", "entries", "autoConfigURL"};
    if (script) keys.push_back("script");
    EXPECT_EQ(json.keys(), keys) << out;
    if (json.kind != Json::Object || json.keys() != keys) return json;
    EXPECT_EQ(json["status"].kind, Json::Number);
    EXPECT_TRUE(json["browser"].kind == Json::Number || json["browser"].kind == Json::Null);
    EXPECT_EQ(json["entries"].kind, Json::Array);
    for (const Json &e : json["entries"].items) {
        EXPECT_EQ(e.keys(), std::vector<std::string>({"direct", "host", "port"})) << out;
        if (e.keys().size() != 3) continue;
        EXPECT_EQ(e["direct"].kind, Json::Bool);
        EXPECT_EQ(e["host"].kind, Json::String);
        EXPECT_EQ(e["port"].kind, Json::Number);
    }
    EXPECT_EQ(json["autoConfigURL"].kind, Json::String);
    if (script) {
        EXPECT_EQ(json["script"].kind, Json::String);
    }
    return json;
}

// An entry as PAC text, for short comparisons.
std::string EntryText(const Json &e) {
    if (e.kind != Json::Object || e.members.size() != 3) return "?";
    return e["direct"].boolean ? "DIRECT"
                               : "PROXY " + e["host"].text + ":" + std::to_string(e["port"].number);
}

std::vector<std::string> EntryTexts(const Json &json) {
    std::vector<std::string> out;
    if (json.kind != Json::Object || json.keys().size() < 4) return out;
    for (const Json &e : json["entries"].items) out.push_back(EntryText(e));
    return out;
}

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
    const Json json = OneJsonObject(proxied.out, false);
    EXPECT_EQ(json["status"].number, 0);
    EXPECT_EQ(json["browser"].kind, Json::Number);
    EXPECT_EQ(json["browser"].number, ROUTVANE_BROWSER_IE);
    EXPECT_EQ(EntryTexts(json), std::vector<std::string>({"PROXY proxy.corp.example:3128"}));
    EXPECT_EQ(json["autoConfigURL"].text, "");

    const ProgramRun direct = RunCaptured(Tool("--json --script intranet"));
    EXPECT_EQ(direct.code, 1u) << direct.err;
    const Json d = OneJsonObject(direct.out, true);
    EXPECT_EQ(d["status"].number, 1);
    EXPECT_TRUE(d["entries"].items.empty());
    EXPECT_EQ(d["script"].text, "");
}

TEST_F(ClientTest, ExampleProgramAndCommandLineClientAgree) {
    EXPECT_EQ(RunProgram("\"" + BesideThisProgram("resolve_example.exe") + "\" www.example.com 443"), 0u);
    EXPECT_EQ(RunProgram("\"" + BesideThisProgram("resolve_example.exe") + "\" intranet 80"), 1u);
    EXPECT_EQ(RunProgram("\"" + BesideThisProgram("routvane.exe") + "\" www.example.com 443"), 0u);
    EXPECT_EQ(RunProgram("\"" + BesideThisProgram("routvane.exe") + "\" --json intranet"), 1u);
    EXPECT_EQ(RunProgram("\"" + BesideThisProgram("routvane.exe") + "\" --options x intranet"), 3u);
    EXPECT_EQ(RunProgram("\"" + BesideThisProgram("routvane.exe") + "\""), 3u);
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
        {"--frobnicate intranet", "unknown option --frobnicate"},
        {"-x intranet", "unknown option -x"},
        {"--pac http://127.0.0.1/p.pac --jsn intranet", "unknown option --jsn"},
        {"intranet 65536", "PORT must be a number from 0 to 65535: 65536"},
        {"intranet 99999999999999999999999", "PORT must be a number from 0 to 65535"},
        {"intranet 80x", "PORT must be a number from 0 to 65535: 80x"},
        {"--detect --options 3 intranet 70000", "PORT must be a number from 0 to 65535: 70000"},
        {"--detect --options ten intranet", "--options: not a number"},
        {"--detect --options 3.5 intranet", "--options: not a number"},
        {"--options 0x100000000 intranet", "--options: not a number"},
        {"--options x intranet", "--options: not a number"},
        {"--detect --options", "--options needs a number"},
        {"--pac", "--pac needs a URL"},
        {"--pac --json intranet", "--pac needs a URL"},
        {"--pac http://127.0.0.1/p.pac --detect intranet", "--pac and --detect cannot be used together"},
        {"--detect --pac http://127.0.0.1/p.pac intranet", "--pac and --detect cannot be used together"},
        {"--pac http://127.0.0.1/p.pac --options 1 intranet", "--options has no effect with --pac"},
        {"--trace intranet", "--trace needs --pac or --detect"},
        {"intranet 80 extra", "too many arguments: extra"},
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
    const Json json = OneJsonObject(run.out, false);
    EXPECT_EQ(json["status"].number, 1);
    EXPECT_EQ(json["browser"].kind, Json::Null);
    EXPECT_TRUE(json["entries"].items.empty());
    EXPECT_EQ(json["autoConfigURL"].text, "");
    // The trace of the run, on standard error.
    EXPECT_NE(run.err.find("Using DHCP timeout: "), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("DiscoverProxyUrlViaDHCP returned false"), std::string::npos) << run.err;
    EXPECT_EQ(run.err.find("Trying WPAD"), std::string::npos) << run.err;

    const ProgramRun text = RunCaptured(Tool("--detect --options 0x3 www.example.com"));
    EXPECT_EQ(text.code, 1u) << text.err;
    EXPECT_NE(text.out.find("status: 1 (direct)"), std::string::npos) << text.out;
    EXPECT_NE(text.out.find("auto-config URL: none found"), std::string::npos) << text.out;
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
    const Json json = OneJsonObject(run.out, true);
    EXPECT_EQ(json["status"].number, 0);
    EXPECT_EQ(json["browser"].kind, Json::Null);
    EXPECT_EQ(EntryTexts(json), std::vector<std::string>({"PROXY p.example:3128", "DIRECT"}));
    EXPECT_EQ(json["autoConfigURL"].text, url);
    EXPECT_EQ(json["script"].text, script_);
    EXPECT_EQ(server_.requests(), std::vector<std::string>({"/proxy.pac"}));
    // --trace: the run's trace lines on standard error, none on standard output.
    EXPECT_NE(run.err.find("FindProxyForURL returned:  PROXY p.example:3128; DIRECT"),
              std::string::npos)
        << run.err;
    EXPECT_NE(run.err.find("--- BEGIN SCRIPT ---"), std::string::npos) << run.err;
}

TEST_F(PacTesterTest, TextAndExitCodes) {
    server_.serve("/direct.pac",
                  HttpResponse::Text("function FindProxyForURL(url, host) { return \"\"; }"));
    server_.serve("/proxy.pac", HttpResponse::Text(script_));
    const ProgramRun proxied = RunCaptured(Tool("--pac " + server_.url("/proxy.pac") + " www.example.com 8080"));
    EXPECT_EQ(proxied.code, 0u) << proxied.err;
    EXPECT_NE(proxied.out.find("entries: PROXY p.example:3128; DIRECT"), std::string::npos)
        << proxied.out;
    EXPECT_NE(proxied.out.find("auto-config URL: " + server_.url("/proxy.pac")), std::string::npos)
        << proxied.out;
    EXPECT_EQ(proxied.err, "");  // no --trace: nothing on standard error

    // An empty answer: direct.
    const ProgramRun direct = RunCaptured(Tool("--pac " + server_.url("/direct.pac") + " --json intranet"));
    EXPECT_EQ(direct.code, 1u) << direct.err;
    EXPECT_EQ(OneJsonObject(direct.out, false)["status"].number, 1);

    // A 404 page is a completed download without a script: the evaluation
    // fails, and the library answers 0 with no entries (Part 2.5).
    const ProgramRun missing =
        RunCaptured(Tool("--pac " + server_.url("/missing.pac") + " --json --trace www.example.com"));
    EXPECT_EQ(missing.code, 0u) << missing.err;
    const Json m = OneJsonObject(missing.out, false);
    EXPECT_EQ(m["status"].number, 0);
    EXPECT_TRUE(m["entries"].items.empty());
    EXPECT_NE(missing.err.find("host.ExecuteSSS failed:  "), std::string::npos) << missing.err;

    // A refused connection, not a URL: failure, still one object.
    for (const std::string &bad : {"http://127.0.0.1:" + std::to_string(UnusedLoopbackPort()) +
                                       "/proxy.pac",
                                   std::string("not-a-url")}) {
        const ProgramRun failed = RunCaptured(Tool("--pac " + bad + " --json www.example.com"));
        EXPECT_EQ(failed.code, 2u) << bad << ": " << failed.err;
        const Json json = OneJsonObject(failed.out, false);
        EXPECT_EQ(json["status"].number, 2) << bad;
        EXPECT_TRUE(json["entries"].items.empty()) << bad;
    }
}

}  // namespace
