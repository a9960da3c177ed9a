// The WinINet settings path in two steps: QueryWinInetSettings asks WinINet
// through the settings seam and keeps the answers as a plain snapshot;
// DecideFromWinInetSettings walks the snapshot (fixed proxy with its bypass
// list, auto-config URL, automatic detection, direct, in that fixed order)
// without a platform call of its own.
#pragma once

#include <windows.h>
#include <wininet.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "util/Seam.h"

class Routvane;
class tracefunc;

// WinINet's settings queries, bound to wininet.dll on first use;
// LoadLibraryA is the presence test of "wininet.dll" (null means absent).
struct WinInetSettingsApi {
    HMODULE (*LoadLibraryA)(const char *name);
    BOOL (*InternetQueryOptionA)(HINTERNET session, DWORD option, void *buffer, DWORD *length);
};

WinInetSettingsApi &WinInetSettings();
const WinInetSettingsApi &RealWinInetSettings();
using ScopedWinInetSettings = ScopedSeam<WinInetSettingsApi, WinInetSettings>;

// What WinINet answered. Strings WinINet left null are empty optionals.
struct WinInetSnapshot {
    bool present = true;        // wininet.dll loads
    bool versionKnown = false;  // INTERNET_OPTION_VERSION answered
    DWORD major = 0, minor = 0;
    // Versions up to 1.1 know only INTERNET_OPTION_PROXY (the legacy query);
    // later ones are asked INTERNET_OPTION_PER_CONNECTION_OPTION.
    bool legacy = false;
    bool answered = false;  // the settings query succeeded
    DWORD error = 0;        // GetLastError of a failed settings query
    // The legacy answer.
    DWORD accessType = 0;
    std::optional<std::string> legacyProxy, legacyBypass;
    // The per-connection answer (the LAN settings).
    DWORD flags = 0;
    std::optional<std::string> autoConfigUrl, bypass, proxyServer;
};

WinInetSnapshot QueryWinInetSettings();

// The sources that reach the network, tried in the walk's order; each
// answers as the settings sources do (0 entries, 1 direct, 2 failed).
struct WinInetFallbacks {
    std::function<uint32_t(const std::string &url)> autoProxyUrl;
    std::function<uint32_t()> autoDetect;
};

// 0 (entries added to the resolver's list), 1 (direct) or 2 (failed). The
// trace lines and the resolver's list are its only effects.
uint32_t DecideFromWinInetSettings(const WinInetSnapshot &settings, const std::string &target,
                                   uint32_t port, Routvane &resolver,
                                   const WinInetFallbacks &fallbacks, tracefunc &tf);
