// routvane.exe: what will a program on this machine be told, and why.
//
//   routvane [--options N] [--json] [--script] HOST [PORT]
//       resolves through the registered resolver (or routvane.dll beside
//       this program), exactly as a client program would.
//
// Exit code: 0 proxy entries, 1 direct, 2 failure, 3 usage error.
#include <windows.h>
#include <objbase.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "routvane.h"

namespace {

const int kExitUsage = 3;

struct Options {
    unsigned optionsWord = 0;
    bool json = false;
    bool script = false;
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

[[noreturn]] void Usage(const std::string &problem) {
    fprintf(stderr, "routvane: %s\n", problem.c_str());
    fprintf(stderr, "usage: routvane [--options N] [--json] [--script] HOST [PORT]\n");
    exit(kExitUsage);
}

bool ParseNumber(const char *text, unsigned long long limit, unsigned &out) {
    if (!text || !*text) return false;
    char *end = nullptr;
    const unsigned long long value = strtoull(text, &end, 0);
    if (*end != '\0' || text[0] == '-' || value > limit) return false;
    out = static_cast<unsigned>(value);
    return true;
}

Options ParseArguments(int argc, char **argv) {
    Options o;
    std::vector<std::string> positional;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--options") {
            if (i + 1 >= argc) Usage("--options needs a number");
            if (!ParseNumber(argv[++i], 0xFFFFFFFFull, o.optionsWord))
                Usage(std::string("--options: not a number: ") + argv[i]);
        } else if (arg == "--json") {
            o.json = true;
        } else if (arg == "--script") {
            o.script = true;
        } else if (arg.size() > 1 && arg[0] == '-') {
            Usage("unknown option " + arg);
        } else {
            positional.push_back(arg);
        }
    }
    if (positional.empty()) Usage("missing HOST");
    if (positional.size() > 2) Usage("too many arguments: " + positional[2]);
    o.host = positional[0];
    if (positional.size() == 2 && (!ParseNumber(positional[1].c_str(), 65535, o.port)))
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
    IClassFactory *factory = nullptr;
    if (!get || FAILED(get(CLSID_Routvane, IID_IClassFactory, reinterpret_cast<void **>(&factory))))
        return nullptr;
    factory->CreateInstance(nullptr, IID_IRoutvane, reinterpret_cast<void **>(&resolver));
    factory->Release();
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
    IRoutvane *resolver = CreateResolver();
    if (!resolver) {
        fprintf(stderr, "routvane: cannot create the resolver (register routvane.dll, or keep it "
                        "beside this program)\n");
        exit(ROUTVANE_FAILED);
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
    resolver->Release();
    return a;
}

// ANSI code-page text as UTF-8, for JSON.
std::string Utf8(const std::string &ansi) {
    if (ansi.empty()) return ansi;
    const int wide = MultiByteToWideChar(CP_ACP, 0, ansi.data(), static_cast<int>(ansi.size()),
                                         nullptr, 0);
    std::wstring w(static_cast<size_t>(wide), L'\0');
    MultiByteToWideChar(CP_ACP, 0, ansi.data(), static_cast<int>(ansi.size()), &w[0], wide);
    const int bytes = WideCharToMultiByte(CP_UTF8, 0, w.data(), wide, nullptr, 0, nullptr, nullptr);
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
            if (c < 0x20) {
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
    if (!pac.empty()) printf("entries: %s\n", pac.c_str());
    if (!a.autoConfigURL.empty()) printf("auto-config URL: %s\n", a.autoConfigURL.c_str());
    if (o.script) printf("script:\n%s\n", a.script.c_str());
}

}  // namespace

int main(int argc, char **argv) {
    const Options o = ParseArguments(argc, argv);
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    const Answer a = ResolveThroughCom(o);
    if (o.json)
        PrintJson(o, a);
    else
        PrintText(o, a);
    CoUninitialize();
    return a.status == ROUTVANE_PROXY ? 0 : a.status == ROUTVANE_DIRECT ? 1 : 2;
}
