// Resolver costs against the platform calls a resolve cannot avoid, the
// bypass list against the regular expressions it must compile, and memory
// over many resolves.
#include "BenchSupport.h"
#include "TestSupport.h"

#include <wininet.h>

#include <cstring>
#include <tre/regex.h>

#include "pac/SafeRegex.h"
#include "resolver/Routvane.h"
#include "resolver/WinInetSettings.h"
#include "trace/ZelTraceManager.h"

namespace {

const char kInternetSettings[] = "Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings";

unsigned ResolveOnce(const char *target) {
    const auto r = ComPtr<Routvane>::Share(new Routvane());
    return r->RoutvaneBrowser(0, target, 443);
}

// The platform calls a resolve of a fixed proxy makes, and nothing else.
void BareSequence() {
    SID_IDENTIFIER_AUTHORITY nt = SECURITY_NT_AUTHORITY;
    SidOwner system;
    AllocateAndInitializeSid(&nt, 1, SECURITY_LOCAL_SYSTEM_RID, 0, 0, 0, 0, 0, 0, 0, system.out());
    KernelHandle token;
    OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.out());
    DWORD needed = 0;
    GetTokenInformation(token.get(), TokenUser, nullptr, 0, &needed);
    BYTE user[256];
    GetTokenInformation(token.get(), TokenUser, user, needed, &needed);
    EqualSid(reinterpret_cast<TOKEN_USER *>(user)->User.Sid, system.get());
    token.reset();
    system.reset();

    {
        RegKey html, command;
        char value[512];
        DWORD size = 128;
        html.open(HKEY_CLASSES_ROOT, ".html", KEY_READ);
        RegQueryValueExA(html.get(), nullptr, nullptr, nullptr, reinterpret_cast<BYTE *>(value),
                         &size);
        command.open(HKEY_CLASSES_ROOT, "RoutvaneBenchDocument\\shell\\open\\command", KEY_READ);
        size = sizeof value;
        RegQueryValueExA(command.get(), nullptr, nullptr, nullptr, reinterpret_cast<BYTE *>(value),
                         &size);
    }

    const ModuleReference wininet(LoadLibraryA("wininet.dll"));
    INTERNET_VERSION_INFO version;
    DWORD length = sizeof version;
    WinInetSettings().InternetQueryOptionA(nullptr, INTERNET_OPTION_VERSION, &version, &length);
    INTERNET_PER_CONN_OPTIONA options[5] = {};
    const DWORD ids[5] = {INTERNET_PER_CONN_AUTOCONFIG_URL, INTERNET_PER_CONN_AUTODISCOVERY_FLAGS,
                          INTERNET_PER_CONN_FLAGS, INTERNET_PER_CONN_PROXY_BYPASS,
                          INTERNET_PER_CONN_PROXY_SERVER};
    for (int i = 0; i < 5; ++i) options[i].dwOption = ids[i];
    INTERNET_PER_CONN_OPTION_LISTA list = {sizeof list, nullptr, 5, 0, options};
    length = sizeof list;
    WinInetSettings().InternetQueryOptionA(nullptr, INTERNET_OPTION_PER_CONNECTION_OPTION, &list,
                                           &length);
    // The strings WinInet hands over, freed as the resolver frees them.
    for (int i : {0, 3, 4}) const GlobalBlock text(options[i].Value.pszValue);
}

// Twenty bypass tokens that do not match, and what matching them costs at
// the least: a compile and a match of each translated expression.
const char *const kBypass[20] = {"*.corp0.example", "*.corp1.example", "10.1.*", "10.2.*",
                                 "*.intra3", "*.intra4", "host5", "host6", "*.lab7.example",
                                 "*.lab8.example", "192.168.9.*", "*.dev10", "*.dev11", "svc12",
                                 "svc13", "*.test14", "*.test15", "*.qa16", "*.qa17", "h18"};

std::string BypassList() {
    std::string list;
    for (const char *token : kBypass) list += std::string(token) + ";";
    return list;
}

void BareRegexes(const char *target) {
    for (const char *token : kBypass) {
        const std::string expression = ShellExpressionToRegex(token);
        regex_t compiled;
        if (regcomp(&compiled, expression.c_str(), REG_EXTENDED | REG_ICASE | REG_NOSUB) == 0) {
            regexec(&compiled, target, 0, nullptr, 0);
            regfree(&compiled);
        }
    }
}

// WinINet settings answered from memory, for the memory test.
BOOL WINAPI SettingsFromMemory(HINTERNET, DWORD option, void *buffer, DWORD *) {
    if (option != INTERNET_OPTION_PER_CONNECTION_OPTION) return FALSE;
    auto *list = static_cast<INTERNET_PER_CONN_OPTION_LISTA *>(buffer);
    for (DWORD i = 0; i < list->dwOptionCount; ++i) {
        INTERNET_PER_CONN_OPTIONA &o = list->pOptions[i];
        if (o.dwOption == INTERNET_PER_CONN_FLAGS) o.Value.dwValue = PROXY_TYPE_PROXY;
        if (o.dwOption == INTERNET_PER_CONN_PROXY_SERVER || o.dwOption == INTERNET_PER_CONN_PROXY_BYPASS) {
            const char *text = o.dwOption == INTERNET_PER_CONN_PROXY_SERVER ? "proxy.corp.example:3128"
                                                                          : "<local>;*.intranet";
            o.Value.pszValue = static_cast<char *>(GlobalAlloc(GMEM_FIXED, strlen(text) + 1));
            strcpy(o.Value.pszValue, text);
        }
        if (o.dwOption == INTERNET_PER_CONN_AUTOCONFIG_URL) o.Value.pszValue = nullptr;
    }
    return TRUE;
}

}  // namespace

int main() {
    setvbuf(stdout, nullptr, _IONBF, 0);
    ZelTraceStartup();
    Targets targets;
    const std::string exe = ZelExecutableName();
    const auto enable = ScopedRegistryValue::Dword("ProxyEnable", 1, HKEY_CURRENT_USER, kInternetSettings);
    const auto server = ScopedRegistryValue::String("ProxyServer", "proxy.corp.example:3128",
                                                    HKEY_CURRENT_USER, kInternetSettings);
    const auto bypass = ScopedRegistryValue::Absent("ProxyOverride", HKEY_CURRENT_USER, kInternetSettings);
    const auto document =
        ScopedRegistryValue::String("", "RoutvaneBenchDocument", HKEY_CLASSES_ROOT, ".html");
    const auto command = ScopedRegistryValue::String(
        "", "C:\\Program Files\\Internet Explorer\\iexplore.exe", HKEY_CLASSES_ROOT,
        "RoutvaneBenchDocument\\shell\\open\\command");
    const auto traceOff = ScopedRegistryValue::Absent("Debug-" + exe);
    ZelTraceReload();
    if (ResolveOnce("www.example.com") != 0) {
        printf("the fixed proxy did not resolve\n");
        return 1;
    }

    auto medians = CompareMedians({[] { ResolveOnce("www.example.com"); }, BareSequence}, 15, 100);
    printf("resolve of a fixed proxy: %.1f us; bare platform calls: %.1f us\n", medians[0] * 1e6,
           medians[1] * 1e6);
    targets.Check("resolve / bare platform calls", medians[0] / medians[1], 1.10);
    {
        TempDir dir;
        ScopedTrace traceOn(dir.file("trace.txt"));
        const auto traced = CompareMedians({[] { ResolveOnce("www.example.com"); }}, 5, 100);
        printf("resolve with tracing on: %.1f us\n", traced[0] * 1e6);
    }

    const std::string list = BypassList();
    medians = CompareMedians({[&] { IsBypassed("www.example.com", 443, list); },
                              [] { BareRegexes("www.example.com"); }},
                             15, 200);
    printf("IsBypassed, 20 tokens: %.1f us; 20 regex compile-and-match: %.1f us\n",
           medians[0] * 1e6, medians[1] * 1e6);
    targets.Check("IsBypassed / bare regexes", medians[0] / medians[1], 1.2);

    const auto parser = ComPtr<Routvane>::Share(new Routvane());
    int calls = 0;
    const double start = NowSeconds();
    while (calls < 200000) {
        parser->ParseIEProxy("http=h1:80;https=h2:443");
        ++calls;
    }
    const double rate = calls / (NowSeconds() - start);
    printf("ParseIEProxy: %.0f calls/s\n", rate);

    if (!PrivateBytesMove()) {
        printf("the private-memory counter does not move; no memory figure\n");
        targets.allMet = false;
    } else {
        ScopedWinInetSettings platform;
        platform->InternetQueryOptionA = SettingsFromMemory;
        for (int i = 0; i < 1000; ++i) ResolveOnce("www.example.com");
        const SIZE_T after1000 = PrivateBytes();
        for (int i = 1000; i < 100000; ++i) ResolveOnce("www.example.com");
        const double grown = (static_cast<double>(PrivateBytes()) - after1000) / (1024.0 * 1024.0);
        printf("100,000 resolves from memory: private memory grew %.3f MiB after the first 1,000\n",
               grown);
        targets.Check("private memory growth (MiB)", grown, 1.0);
    }
    ZelTraceShutdown();
    return targets.ExitCode();
}
