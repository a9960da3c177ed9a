// routvane.exe: what will a program on this machine be told, and why.
//
//   routvane [--options N] [--json] [--script] HOST [PORT]
//       resolves through the registered resolver (or routvane.dll beside
//       this program), exactly as a client program would.
//   routvane --pac URL [--json] [--script] [--trace] HOST [PORT]
//       runs the PAC script at URL for HOST:PORT (Routvane::RunAutoProxyURL
//       of the library's code linked into this program).
//   routvane --detect [--options N] [--json] [--script] [--trace] HOST [PORT]
//       runs automatic discovery (Routvane::RunAutoDetect): the DHCP stage,
//       then the wpad DNS names, each URL found evaluated. It broadcasts a
//       DHCPINFORM unless bit 0 of N is set.
//
// --trace copies the trace lines of the run to standard error. --json prints
// exactly one JSON object on standard output and nothing else there.
// Exit code: 0 proxy entries, 1 direct, 2 failure, 3 usage error.
#include <winsock2.h>
#include <windows.h>
#include <objbase.h>
#include <io.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <optional>
#include <string>
#include <vector>

#include "resolver/Routvane.h"
#include <routvane.h>
#include "trace/ZelTraceManager.h"
#include "util/ComOwners.h"

namespace {

const int kExitUsage = 3;

const char kUsage[] =
    "usage: routvane [--options N] [--json] [--script] HOST [PORT]\n"
    "       routvane --pac URL [--json] [--script] [--trace] HOST [PORT]\n"
    "       routvane --detect [--options N] [--json] [--script] [--trace] HOST [PORT]\n"
    "\n"
    "  (no mode)  resolve HOST:PORT through the registered routvane.dll, as a client would\n"
    "  --pac URL  run the PAC script at URL for HOST:PORT\n"
    "  --detect   automatic discovery: DHCP (option 252), then the wpad DNS names\n"
    "  --options N  options word, decimal or 0x hexadecimal: bit 0 skips the DHCP stage,\n"
    "               bit 1 the DNS stage, bit 2 forces the DHCP query\n"
    "  --json     one JSON object on standard output\n"
    "  --script   also print the PAC script that decided\n"
    "  --trace    copy the run's trace lines to standard error (--pac, --detect)\n"
    "  PORT defaults to 80.\n"
    "exit code: 0 proxy entries, 1 direct, 2 failure, 3 usage error\n";

enum class Mode { Com, Pac, Detect };

struct Options {
    Mode mode = Mode::Com;
    unsigned optionsWord = 0;
    bool optionsGiven = false;
    bool json = false;
    bool script = false;
    bool trace = false;
    std::string pacUrl;
    std::string host;
    unsigned port = 80;
};

struct Answer {
    unsigned status = ROUTVANE_FAILED;
    bool hasBrowser = false;
    unsigned browser = ROUTVANE_BROWSER_UNKNOWN;
    struct Entry {
        bool direct;
        std::string host;
        unsigned port;
    };
    std::vector<Entry> entries;
    std::string autoConfigURL;
    std::string script;
};

// One line on standard error naming what was wrong; exit code 3.
[[noreturn]] void Usage(const std::string &problem) {
    fprintf(stderr, "routvane: %s (routvane --help shows the usage)\n", problem.c_str());
    fflush(stderr);
    exit(kExitUsage);
}

// Decimal, or hexadecimal after 0x; nothing else (no sign, no blanks).
bool ParseNumber(const char *text, unsigned long long limit, unsigned &out) {
    if (!text || !*text) return false;
    int base = 10;
    const char *digits = text;
    if (text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        digits = text + 2;
    }
    if (!*digits || strlen(digits) > 16) return false;
    for (const char *p = digits; *p; ++p) {
        const bool ok = base == 16 ? isxdigit(static_cast<unsigned char>(*p)) != 0
                                   : (*p >= '0' && *p <= '9');
        if (!ok) return false;
    }
    const unsigned long long value = strtoull(digits, nullptr, base);
    if (value > limit) return false;
    out = static_cast<unsigned>(value);
    return true;
}

Options ParseArguments(int argc, char **argv) {
    Options o;
    bool pac = false, detect = false;
    std::vector<std::string> positional;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--help" || arg == "-h" || arg == "/?") {
            fputs(kUsage, stdout);
            exit(0);
        } else if (arg == "--options") {
            if (i + 1 >= argc) Usage("--options needs a number");
            if (o.optionsGiven) Usage("--options given twice");
            if (!ParseNumber(argv[++i], 0xFFFFFFFFull, o.optionsWord))
                Usage(std::string("--options: not a number from 0 to 0xFFFFFFFF: ") + argv[i]);
            o.optionsGiven = true;
        } else if (arg == "--pac") {
            if (pac) Usage("--pac given twice");
            if (i + 1 >= argc || argv[i + 1][0] == '\0' ||
                (argv[i + 1][0] == '-' && argv[i + 1][1] == '-'))
                Usage("--pac needs a URL");
            o.pacUrl = argv[++i];
            pac = true;
        } else if (arg == "--detect") {
            detect = true;
        } else if (arg == "--json") {
            o.json = true;
        } else if (arg == "--script") {
            o.script = true;
        } else if (arg == "--trace") {
            o.trace = true;
        } else if (arg.size() > 1 && arg[0] == '-') {
            Usage("unknown option " + arg);
        } else {
            positional.push_back(arg);
        }
    }
    if (pac && detect) Usage("--pac and --detect cannot be used together");
    o.mode = pac ? Mode::Pac : detect ? Mode::Detect : Mode::Com;
    if (o.mode == Mode::Pac && o.optionsGiven)
        Usage("--options has no effect with --pac (it is for --detect and the COM mode)");
    if (o.mode == Mode::Com && o.trace)
        Usage("--trace needs --pac or --detect (the registered DLL traces to its own file)");
    if (positional.empty() || positional[0].empty()) Usage("missing HOST");
    if (positional.size() > 2) Usage("too many arguments: " + positional[2]);
    o.host = positional[0];
    if (positional.size() == 2 && !ParseNumber(positional[1].c_str(), 65535, o.port))
        Usage("PORT must be a number from 0 to 65535: " + positional[1]);
    return o;
}

// The resolver, registered by ProgID, else from routvane.dll beside this program.
IRoutvane *CreateResolver() {
    IRoutvane *resolver = nullptr;
    CLSID clsid;
    if (SUCCEEDED(CLSIDFromProgID(ROUTVANE_PROGID, &clsid)) &&
        SUCCEEDED(CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IRoutvane,
                                   reinterpret_cast<void **>(&resolver))))
        return resolver;
    char path[MAX_PATH + 16];
    const DWORD length = GetModuleFileNameA(nullptr, path, MAX_PATH);
    std::string dll(path, length);
    dll = dll.substr(0, dll.find_last_of('\\') + 1) + "routvane.dll";
    HMODULE module = LoadLibraryA(dll.c_str());
    if (!module) return nullptr;
    using GetClassObject = HRESULT(WINAPI *)(REFCLSID, REFIID, void **);
    auto get = reinterpret_cast<GetClassObject>(
        reinterpret_cast<void *>(GetProcAddress(module, "DllGetClassObject")));
    ComPtr<IClassFactory> factory;
    if (!get || FAILED(get(CLSID_Routvane, IID_IClassFactory, factory.outVoid()))) return nullptr;
    factory->CreateInstance(nullptr, IID_IRoutvane, reinterpret_cast<void **>(&resolver));
    return resolver;
}

// Reads a text getter whose length is not known beforehand.
template <class Getter>
std::string ReadText(Getter get) {
    for (int size = 4096; size <= (256 << 20); size *= 4) {
        std::vector<char> buffer(static_cast<size_t>(size), '\0');
        if (!get(buffer.data(), size)) return std::string();
        const std::string text(buffer.data());
        if (static_cast<int>(text.size()) < size - 1) return text;
    }
    return std::string();
}

Answer ResolveThroughCom(const Options &o) {
    Answer a;
    const auto resolver = ComPtr<IRoutvane>::Adopt(CreateResolver());
    if (!resolver) {
        fprintf(stderr, "routvane: cannot create the resolver (register routvane.dll, or keep it "
                        "beside this program)\n");
        return a;
    }
    a.status = resolver->RoutvaneBrowser(o.optionsWord, o.host.c_str(), o.port);
    a.hasBrowser = true;
    resolver->GetBrowser(&a.browser);
    for (long long i = 0, n = resolver->GetProxyCount(); i < n; ++i) {
        bool direct = false;
        unsigned port = 0;
        const std::string host = ReadText([&](char *buffer, int size) {
            return resolver->GetProxy(static_cast<int>(i), &direct, buffer, size, &port);
        });
        a.entries.push_back({direct, host, port});
    }
    a.autoConfigURL = ReadText([&](char *b, int s) { return resolver->GetAutoConfigURL(b, s); });
    if (o.script)
        a.script = ReadText([&](char *b, int s) { return resolver->GetAutoConfigScript(b, s); });
    return a;
}

// The library's own code, linked into this program: a fresh resolver runs
// the PAC URL or automatic discovery.
Answer ResolveDirectly(const Options &o) {
    Answer a;
    const auto resolver = ComPtr<Routvane>::Share(new Routvane);
    try {
        a.status = o.mode == Mode::Pac
                       ? resolver->RunAutoProxyURL(0, o.host, o.port, o.pacUrl)
                       : resolver->RunAutoDetect(o.optionsWord, o.host, o.port);
    } catch (...) {
        fprintf(stderr, "routvane: the resolver failed unexpectedly\n");
        a.status = ROUTVANE_FAILED;
    }
    for (const ProxyEntry &e : resolver->proxies())
        a.entries.push_back({e.kind == PROXY_ENTRY_DIRECT, e.host, e.port});
    a.autoConfigURL = resolver->autoConfigURL();
    if (o.script) a.script = resolver->autoConfigScript();
    return a;
}

// --trace: the library's tracing forced into a temporary file for the run
// (the registry is not touched), its lines copied to standard error after.
class RunTrace {
public:
    explicit RunTrace(bool on) {
        if (!on) return;
        char dir[MAX_PATH + 1] = "";
        char file[MAX_PATH + 1] = "";
        if (GetTempPathA(MAX_PATH, dir) == 0 || GetTempFileNameA(dir, "rvt", 0, file) == 0) {
            fprintf(stderr, "routvane: no temporary file for the trace: %lu\n", GetLastError());
            return;
        }
        path_ = file;
        ZelForceTraceFile(path_);
    }
    ~RunTrace() { finish(); }
    RunTrace(const RunTrace &) = delete;
    RunTrace &operator=(const RunTrace &) = delete;

    void finish() {
        if (path_.empty()) return;
        ZelForceTraceFile(std::string());  // closes the file
        if (FileOwner f{fopen(path_.c_str(), "rb")}) {
            std::string line;
            char buffer[4096];
            size_t n;
            while ((n = fread(buffer, 1, sizeof buffer, f.get())) > 0) {
                for (size_t i = 0; i < n; ++i) {
                    const char c = buffer[i];
                    if (c == '\n') {
                        fprintf(stderr, "%s\n", line.c_str());
                        line.clear();
                    } else if (c != '\r') {
                        line += c;
                    }
                }
            }
            if (!line.empty()) fprintf(stderr, "%s\n", line.c_str());
        }
        fflush(stderr);
        DeleteFileA(path_.c_str());
        path_.clear();
    }

private:
    std::string path_;
};

// --json: while the resolver runs, whatever writes to standard output (the
// C library's stdout, or the process's standard output handle) lands on
// standard error instead; the one JSON object goes to the real standard
// output afterwards.
class StdoutToStderr {
public:
    StdoutToStderr() {
        fflush(stdout);
        savedHandle_ = GetStdHandle(STD_OUTPUT_HANDLE);
        savedFd_ = _dup(_fileno(stdout));
        if (savedFd_ >= 0) _dup2(_fileno(stderr), _fileno(stdout));
        SetStdHandle(STD_OUTPUT_HANDLE, GetStdHandle(STD_ERROR_HANDLE));
    }
    ~StdoutToStderr() { restore(); }
    StdoutToStderr(const StdoutToStderr &) = delete;
    StdoutToStderr &operator=(const StdoutToStderr &) = delete;

    void restore() {
        if (restored_) return;
        restored_ = true;
        fflush(stdout);
        if (savedFd_ >= 0) {
            _dup2(savedFd_, _fileno(stdout));
            _close(savedFd_);
        }
        SetStdHandle(STD_OUTPUT_HANDLE, savedHandle_);
    }

private:
    HANDLE savedHandle_ = nullptr;
    int savedFd_ = -1;
    bool restored_ = false;
};

// ANSI code-page text as UTF-8, for JSON.
std::string Utf8(const std::string &ansi) {
    if (ansi.empty()) return ansi;
    const int wide = MultiByteToWideChar(CP_ACP, 0, ansi.data(), static_cast<int>(ansi.size()),
                                         nullptr, 0);
    if (wide <= 0) return std::string();
    std::wstring w(static_cast<size_t>(wide), L'\0');
    MultiByteToWideChar(CP_ACP, 0, ansi.data(), static_cast<int>(ansi.size()), &w[0], wide);
    const int bytes = WideCharToMultiByte(CP_UTF8, 0, w.data(), wide, nullptr, 0, nullptr, nullptr);
    if (bytes <= 0) return std::string();
    std::string out(static_cast<size_t>(bytes), '\0');
    WideCharToMultiByte(CP_UTF8, 0, w.data(), wide, &out[0], bytes, nullptr, nullptr);
    return out;
}

std::string JsonString(const std::string &text) {
    std::string out = "\"";
    for (const unsigned char c : Utf8(text)) {
        switch (c) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\t': out += "\\t"; break;
        default:
            if (c < 0x20 || c == 0x7F) {
                char escaped[8];
                snprintf(escaped, sizeof escaped, "\\u%04x", c);
                out += escaped;
            } else {
                out += static_cast<char>(c);
            }
        }
    }
    return out + "\"";
}

const char *StatusWord(unsigned status) {
    switch (status) {
    case ROUTVANE_PROXY: return "proxy";
    case ROUTVANE_DIRECT: return "direct";
    default: return "failed";
    }
}

const char *BrowserWord(unsigned browser) {
    switch (browser) {
    case ROUTVANE_BROWSER_IE: return "WinINet settings";
    case ROUTVANE_BROWSER_NETSCAPE: return "Netscape Navigator preferences";
    default: return "not determined";
    }
}

void PrintJson(const Options &o, const Answer &a) {
    std::string json = "{\"status\": " + std::to_string(a.status) + ", \"browser\": ";
    json += a.hasBrowser && a.browser != ROUTVANE_BROWSER_UNKNOWN ? std::to_string(a.browser)
                                                                  : "null";
    json += ", \"entries\": [";
    for (size_t i = 0; i < a.entries.size(); ++i) {
        const auto &e = a.entries[i];
        json += i ? ", " : "";
        json += "{\"direct\": " + std::string(e.direct ? "true" : "false") +
                ", \"host\": " + JsonString(e.host) + ", \"port\": " + std::to_string(e.port) +
                "}";
    }
    json += "], \"autoConfigURL\": " + JsonString(a.autoConfigURL);
    if (o.script) json += ", \"script\": " + JsonString(a.script);
    json += "}";
    printf("%s\n", json.c_str());
}

void PrintText(const Options &o, const Answer &a) {
    printf("status: %u (%s)\n", a.status, StatusWord(a.status));
    if (a.hasBrowser) printf("browser: %u (%s)\n", a.browser, BrowserWord(a.browser));
    std::string pac;
    for (const auto &e : a.entries) {
        if (!pac.empty()) pac += "; ";
        pac += e.direct ? "DIRECT" : "PROXY " + e.host + ":" + std::to_string(e.port);
    }
    if (!pac.empty())
        printf("entries: %s\n", pac.c_str());
    else if (o.mode != Mode::Com)
        printf("entries: none\n");
    switch (o.mode) {
    case Mode::Com:
        if (!a.autoConfigURL.empty()) printf("auto-config URL: %s\n", a.autoConfigURL.c_str());
        break;
    case Mode::Pac:
        if (a.autoConfigURL.empty())
            printf("auto-config URL: none fetched (not a URL: %s)\n", o.pacUrl.c_str());
        else
            printf("auto-config URL: %s%s\n", a.autoConfigURL.c_str(),
                   a.status == ROUTVANE_FAILED ? " (failed)" : "");
        break;
    case Mode::Detect:
        // The URL fetched last decided unless discovery failed.
        if (a.autoConfigURL.empty())
            printf("auto-config URL: none found\n");
        else if (a.status == ROUTVANE_FAILED)
            printf("auto-config URL: none found (last tried: %s)\n", a.autoConfigURL.c_str());
        else
            printf("auto-config URL: %s\n", a.autoConfigURL.c_str());
        break;
    }
    if (o.script) printf("script:\n%s\n", a.script.c_str());
}

int Run(int argc, char **argv) {
    const Options o = ParseArguments(argc, argv);
    Answer a;
    {
        std::optional<StdoutToStderr> quiet;
        if (o.json) quiet.emplace();
        // The script host runs the PAC script on this thread, in its apartment.
        CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
        if (o.mode == Mode::Com) {
            a = ResolveThroughCom(o);
        } else {
            // The DLL starts tracing at load; this program is not the DLL.
            ZelTraceStartup();
            {
                RunTrace trace(o.trace);
                a = ResolveDirectly(o);
            }
            ZelTraceShutdown();
        }
        CoUninitialize();
    }
    if (o.json)
        PrintJson(o, a);
    else
        PrintText(o, a);
    fflush(stdout);
    return a.status == ROUTVANE_PROXY ? 0 : a.status == ROUTVANE_DIRECT ? 1 : 2;
}

}  // namespace

int main(int argc, char **argv) {
    // No error dialogue boxes: a failure is an exit code.
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
    try {
        return Run(argc, argv);
    } catch (const std::exception &e) {
        fprintf(stderr, "routvane: %s\n", e.what());
    } catch (...) {
        fprintf(stderr, "routvane: unexpected failure\n");
    }
    return ROUTVANE_FAILED;
}
