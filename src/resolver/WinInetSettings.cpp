// The WinINet settings path: fixed proxy with its bypass list, auto-config
// URL, automatic detection, direct, in that fixed order.
#include <windows.h>
#include <wininet.h>

#include "resolver/Routvane.h"
#include "trace/ZelComponent.h"
#include "trace/tracefunc.h"
#include "util/Platform.h"

namespace {

// The strings the per-connection query hands back belong to the caller.
struct PerConnectionOptions {
    INTERNET_PER_CONN_OPTIONA options[5] = {};
    PerConnectionOptions() {
        options[0].dwOption = INTERNET_PER_CONN_AUTOCONFIG_URL;
        options[1].dwOption = INTERNET_PER_CONN_AUTODISCOVERY_FLAGS;
        options[2].dwOption = INTERNET_PER_CONN_FLAGS;
        options[3].dwOption = INTERNET_PER_CONN_PROXY_BYPASS;
        options[4].dwOption = INTERNET_PER_CONN_PROXY_SERVER;
    }
    ~PerConnectionOptions() {
        for (int i : {0, 3, 4})
            if (options[i].Value.pszValue) GlobalFree(options[i].Value.pszValue);
    }
    PerConnectionOptions(const PerConnectionOptions &) = delete;
    PerConnectionOptions &operator=(const PerConnectionOptions &) = delete;

    const char *autoConfigUrl() const { return options[0].Value.pszValue; }
    DWORD flags() const { return options[2].Value.dwValue; }
    const char *bypass() const { return options[3].Value.pszValue; }
    const char *proxyServer() const { return options[4].Value.pszValue; }
};

uint32_t LegacyProxySettings(Routvane &resolver, tracefunc &tf) {
    // INTERNET_PROXY_INFO with room for the strings WinINet copies behind it.
    alignas(INTERNET_PROXY_INFO) BYTE buffer[128] = {};
    DWORD length = sizeof buffer;
    if (!Platform().InternetQueryOptionA(nullptr, INTERNET_OPTION_PROXY, buffer, &length)) {
        tf << "InternetQueryOption failed:  " << GetLastError() << endtrace;
        return ROUTVANE_FAILED;
    }
    const auto *info = reinterpret_cast<const INTERNET_PROXY_INFO *>(buffer);
    switch (info->dwAccessType) {
    case INTERNET_OPEN_TYPE_DIRECT:
        tf << "No proxy set" << endtrace;
        return ROUTVANE_DIRECT;
    case INTERNET_OPEN_TYPE_PROXY: {
        // The bypass list is only reported on this path, never applied.
        tf << "Proxy bypass:  " << reinterpret_cast<const char *>(info->lpszProxyBypass)
           << endtrace;
        const char *proxy = reinterpret_cast<const char *>(info->lpszProxy);
        if (proxy && *proxy) return static_cast<uint32_t>(resolver.ParseProxy(proxy));
        tf << "Empty proxy value" << endtrace;
        return ROUTVANE_DIRECT;
    }
    default:
        tf << "Invalid dwAccessType:  " << info->dwAccessType << endtrace;
        return ROUTVANE_FAILED;
    }
}

uint32_t PerConnectionSettings(Routvane &resolver, uint32_t options, const std::string &target,
                               uint32_t port, tracefunc &tf) {
    PerConnectionOptions settings;
    INTERNET_PER_CONN_OPTION_LISTA list = {};
    list.dwSize = sizeof list;
    list.pszConnection = nullptr;  // the LAN settings; dial-up entries are not consulted
    list.dwOptionCount = 5;
    list.pOptions = settings.options;
    DWORD length = sizeof list;
    if (!Platform().InternetQueryOptionA(nullptr, INTERNET_OPTION_PER_CONNECTION_OPTION, &list,
                                         &length)) {
        tf << "InternetQueryOption(INTERNET_OPTION_PER_CONNECTION_OPTION) failed:  "
           << GetLastError() << endtrace;
        return ROUTVANE_FAILED;
    }
    uint32_t result = ROUTVANE_DIRECT;
    const DWORD flags = settings.flags();
    if ((flags & PROXY_TYPE_PROXY) && settings.proxyServer()) {
        if (settings.bypass() && IsBypassed(target, port, settings.bypass())) return ROUTVANE_DIRECT;
        tf << "PROXY_TYPE_PROXY:  " << settings.proxyServer() << endtrace;
        result = static_cast<uint32_t>(resolver.ParseIEProxy(settings.proxyServer()));
        if (result != ROUTVANE_FAILED) return result;
        tf << "ParseIEProxy failed...trying other proxy options" << endtrace;
    }
    if ((flags & PROXY_TYPE_AUTO_PROXY_URL) && settings.autoConfigUrl()) {
        tf << "PROXY_TYPE_AUTO_PROXY_URL" << endtrace;
        result = resolver.RunAutoProxyURL(options, target, port, settings.autoConfigUrl());
        if (result != ROUTVANE_FAILED) return result;
        tf << "RunAutoProxyURL failed...trying other proxy options" << endtrace;
    }
    if (flags & PROXY_TYPE_AUTO_DETECT) {
        tf << "PROXY_TYPE_AUTO_DETECT" << endtrace;
        result = resolver.RunAutoDetect(options, target, port);
        if (result != ROUTVANE_FAILED) return result;
        tf << "RunAutoDetect failed...trying other proxy options" << endtrace;
    }
    if (flags & PROXY_TYPE_DIRECT) {
        tf << "PROXY_TYPE_DIRECT" << endtrace;
        result = ROUTVANE_DIRECT;
    }
    return result;
}

}  // namespace

uint32_t Routvane::GetProxyFromIE(uint32_t options, const std::string &target, uint32_t port) {
    ZelComponent component("Routvane");
    tracefunc tf(__LINE__, "Routvane", "GetProxyFromIE");
    tf << target << ":" << port << endtrace;

    // Each call adds a reference to wininet.dll and none is given back: the
    // module stays loaded for the lazily bound functions.
    if (!Platform().LoadLibraryA("wininet.dll")) return ROUTVANE_DIRECT;

    INTERNET_VERSION_INFO version = {};
    DWORD length = sizeof version;
    if (Platform().InternetQueryOptionA(nullptr, INTERNET_OPTION_VERSION, &version, &length)) {
        tf << "INTERNET_OPTION_VERSION is " << version.dwMajorVersion << "."
           << version.dwMinorVersion << endtrace;
        if (version.dwMajorVersion == 1 && version.dwMinorVersion <= 1)
            return LegacyProxySettings(*this, tf);
    }
    return PerConnectionSettings(*this, options, target, port, tf);
}
