#include "resolver/WinInetSettings.h"

#include "resolver/Routvane.h"
#include "trace/ZelComponent.h"
#include "trace/tracefunc.h"
#include "util/Owners.h"

namespace {

BOOL RealInternetQueryOptionA(HINTERNET session, DWORD option, void *buffer, DWORD *length) {
    using Fn = BOOL(WINAPI *)(HINTERNET, DWORD, void *, DWORD *);
    static Fn fn = OptionalFunction<Fn>("wininet.dll", "InternetQueryOptionA");
    return CallOptional(fn, FALSE, session, option, buffer, length);
}

HMODULE RealLoadLibraryA(const char *name) { return ::LoadLibraryA(name); }

const WinInetSettingsApi kReal = {RealLoadLibraryA, RealInternetQueryOptionA};
WinInetSettingsApi g_current = kReal;

std::optional<std::string> Text(const void *text) {
    if (!text) return std::nullopt;
    return std::string(static_cast<const char *>(text));
}

const char *Text(const std::optional<std::string> &text) { return text ? text->c_str() : nullptr; }

void QueryLegacy(WinInetSnapshot &settings) {
    // INTERNET_PROXY_INFO with room for the strings WinINet copies behind it.
    alignas(INTERNET_PROXY_INFO) BYTE buffer[128] = {};
    DWORD length = sizeof buffer;
    if (!WinInetSettings().InternetQueryOptionA(nullptr, INTERNET_OPTION_PROXY, buffer, &length)) {
        settings.error = ::GetLastError();
        return;
    }
    settings.answered = true;
    const auto *info = reinterpret_cast<const INTERNET_PROXY_INFO *>(buffer);
    settings.accessType = info->dwAccessType;
    if (info->dwAccessType != INTERNET_OPEN_TYPE_PROXY) return;
    settings.legacyProxy = Text(info->lpszProxy);
    settings.legacyBypass = Text(info->lpszProxyBypass);
}

void QueryPerConnection(WinInetSnapshot &settings) {
    INTERNET_PER_CONN_OPTIONA options[5] = {};
    options[0].dwOption = INTERNET_PER_CONN_AUTOCONFIG_URL;
    options[1].dwOption = INTERNET_PER_CONN_AUTODISCOVERY_FLAGS;
    options[2].dwOption = INTERNET_PER_CONN_FLAGS;
    options[3].dwOption = INTERNET_PER_CONN_PROXY_BYPASS;
    options[4].dwOption = INTERNET_PER_CONN_PROXY_SERVER;
    INTERNET_PER_CONN_OPTION_LISTA list = {};
    list.dwSize = sizeof list;
    list.pszConnection = nullptr;  // the LAN settings; dial-up entries are not consulted
    list.dwOptionCount = 5;
    list.pOptions = options;
    DWORD length = sizeof list;
    const BOOL answered = WinInetSettings().InternetQueryOptionA(
        nullptr, INTERNET_OPTION_PER_CONNECTION_OPTION, &list, &length);
    const DWORD error = ::GetLastError();
    // The strings handed back belong to the caller, whatever the answer.
    const GlobalBlock strings[] = {GlobalBlock(options[0].Value.pszValue),
                                   GlobalBlock(options[3].Value.pszValue),
                                   GlobalBlock(options[4].Value.pszValue)};
    if (!answered) {
        settings.error = error;
        return;
    }
    settings.answered = true;
    settings.autoConfigUrl = Text(options[0].Value.pszValue);
    settings.flags = options[2].Value.dwValue;
    settings.bypass = Text(options[3].Value.pszValue);
    settings.proxyServer = Text(options[4].Value.pszValue);
}

uint32_t DecideLegacy(const WinInetSnapshot &settings, Routvane &resolver, tracefunc &tf) {
    if (!settings.answered) {
        tf << "InternetQueryOption failed:  " << settings.error << endtrace;
        return ROUTVANE_FAILED;
    }
    switch (settings.accessType) {
    case INTERNET_OPEN_TYPE_DIRECT:
        tf << "No proxy set" << endtrace;
        return ROUTVANE_DIRECT;
    case INTERNET_OPEN_TYPE_PROXY:
        // The bypass list is only reported on this path, never applied.
        tf << "Proxy bypass:  " << Text(settings.legacyBypass) << endtrace;
        if (settings.legacyProxy && !settings.legacyProxy->empty())
            return static_cast<uint32_t>(resolver.ParseProxy(*settings.legacyProxy));
        tf << "Empty proxy value" << endtrace;
        return ROUTVANE_DIRECT;
    default:
        tf << "Invalid dwAccessType:  " << settings.accessType << endtrace;
        return ROUTVANE_FAILED;
    }
}

uint32_t DecidePerConnection(const WinInetSnapshot &settings, const std::string &target,
                             uint32_t port, Routvane &resolver, const WinInetFallbacks &fallbacks,
                             tracefunc &tf) {
    if (!settings.answered) {
        tf << "InternetQueryOption(INTERNET_OPTION_PER_CONNECTION_OPTION) failed:  "
           << settings.error << endtrace;
        return ROUTVANE_FAILED;
    }
    uint32_t result = ROUTVANE_DIRECT;
    const DWORD flags = settings.flags;
    if ((flags & PROXY_TYPE_PROXY) && settings.proxyServer) {
        if (settings.bypass && IsBypassed(target, port, *settings.bypass)) return ROUTVANE_DIRECT;
        tf << "PROXY_TYPE_PROXY:  " << *settings.proxyServer << endtrace;
        result = static_cast<uint32_t>(resolver.ParseIEProxy(*settings.proxyServer));
        if (result != ROUTVANE_FAILED) return result;
        tf << "ParseIEProxy failed...trying other proxy options" << endtrace;
    }
    if ((flags & PROXY_TYPE_AUTO_PROXY_URL) && settings.autoConfigUrl) {
        tf << "PROXY_TYPE_AUTO_PROXY_URL" << endtrace;
        result = fallbacks.autoProxyUrl(*settings.autoConfigUrl);
        if (result != ROUTVANE_FAILED) return result;
        tf << "RunAutoProxyURL failed...trying other proxy options" << endtrace;
    }
    if (flags & PROXY_TYPE_AUTO_DETECT) {
        tf << "PROXY_TYPE_AUTO_DETECT" << endtrace;
        result = fallbacks.autoDetect();
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

WinInetSettingsApi &WinInetSettings() { return g_current; }

const WinInetSettingsApi &RealWinInetSettings() { return kReal; }

WinInetSnapshot QueryWinInetSettings() {
    WinInetSnapshot settings;
    // Each call adds a reference to wininet.dll and none is given back: the
    // module stays loaded for the lazily bound functions.
    if (!WinInetSettings().LoadLibraryA("wininet.dll")) {
        settings.present = false;
        return settings;
    }
    INTERNET_VERSION_INFO version = {};
    DWORD length = sizeof version;
    if (WinInetSettings().InternetQueryOptionA(nullptr, INTERNET_OPTION_VERSION, &version,
                                               &length)) {
        settings.versionKnown = true;
        settings.major = version.dwMajorVersion;
        settings.minor = version.dwMinorVersion;
        settings.legacy = version.dwMajorVersion == 1 && version.dwMinorVersion <= 1;
    }
    if (settings.legacy)
        QueryLegacy(settings);
    else
        QueryPerConnection(settings);
    return settings;
}

uint32_t DecideFromWinInetSettings(const WinInetSnapshot &settings, const std::string &target,
                                   uint32_t port, Routvane &resolver,
                                   const WinInetFallbacks &fallbacks, tracefunc &tf) {
    if (!settings.present) return ROUTVANE_DIRECT;
    if (settings.versionKnown)
        tf << "INTERNET_OPTION_VERSION is " << settings.major << "." << settings.minor << endtrace;
    if (settings.legacy) return DecideLegacy(settings, resolver, tf);
    return DecidePerConnection(settings, target, port, resolver, fallbacks, tf);
}

uint32_t Routvane::GetProxyFromIE(uint32_t options, const std::string &target, uint32_t port) {
    ZelComponent component("Routvane");
    tracefunc tf(__LINE__, "Routvane", "GetProxyFromIE");
    tf << target << ":" << port << endtrace;
    const WinInetFallbacks fallbacks{
        [&](const std::string &url) { return RunAutoProxyURL(options, target, port, url); },
        [&] { return RunAutoDetect(options, target, port); }};
    return DecideFromWinInetSettings(QueryWinInetSettings(), target, port, *this, fallbacks, tf);
}
