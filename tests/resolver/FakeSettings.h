// WinINet settings and process tokens as a test arranges them, answered
// through their seams.
#pragma once

#include <windows.h>
#include <wininet.h>

#include <string>

#include "TestSupport.h"
#include "resolver/ProcessToken.h"
#include "resolver/WinInetSettings.h"

struct FakeWinInet {
    // INTERNET_OPTION_VERSION
    bool versionOk = true;
    DWORD major = 1, minor = 2;
    // INTERNET_OPTION_PROXY (legacy)
    bool legacyOk = true;
    DWORD accessType = INTERNET_OPEN_TYPE_DIRECT;
    const char *legacyProxy = nullptr;
    const char *legacyBypass = nullptr;
    // INTERNET_OPTION_PER_CONNECTION_OPTION
    bool perConnectionOk = true;
    DWORD flags = PROXY_TYPE_DIRECT;
    const char *autoConfigUrl = nullptr;
    const char *bypass = nullptr;
    const char *proxyServer = nullptr;
    DWORD error = ERROR_INTERNET_INVALID_OPTION;
    // LoadLibraryA("wininet.dll")
    bool present = true;
    int perConnectionQueries = 0;

    static FakeWinInet *current;

    void Install(ScopedWinInetSettings &platform) {
        current = this;
        platform->InternetQueryOptionA = &Query;
        platform->LoadLibraryA = [](const char *name) -> HMODULE {
            if (_stricmp(name, "wininet.dll") == 0 && !current->present) return nullptr;
            return RealWinInetSettings().LoadLibraryA(name);
        };
    }

    static char *Copy(const char *text) {
        if (!text) return nullptr;
        char *copy = static_cast<char *>(GlobalAlloc(GMEM_FIXED, strlen(text) + 1));
        strcpy(copy, text);
        return copy;
    }

    static BOOL WINAPI Query(HINTERNET, DWORD option, void *buffer, DWORD *length) {
        FakeWinInet &f = *current;
        switch (option) {
        case INTERNET_OPTION_VERSION: {
            if (!f.versionOk || *length < sizeof(INTERNET_VERSION_INFO)) break;
            auto *v = static_cast<INTERNET_VERSION_INFO *>(buffer);
            v->dwMajorVersion = f.major;
            v->dwMinorVersion = f.minor;
            return TRUE;
        }
        case INTERNET_OPTION_PROXY: {
            if (!f.legacyOk) break;
            // As WinINet does: the strings are copied behind the structure.
            auto *info = static_cast<INTERNET_PROXY_INFO *>(buffer);
            char *tail = static_cast<char *>(buffer) + sizeof *info;
            char *end = static_cast<char *>(buffer) + *length;
            info->dwAccessType = f.accessType;
            info->lpszProxy = nullptr;
            info->lpszProxyBypass = nullptr;
            for (auto [text, slot] : {std::make_pair(f.legacyProxy, &info->lpszProxy),
                                      std::make_pair(f.legacyBypass, &info->lpszProxyBypass)}) {
                if (!text) continue;
                const size_t n = strlen(text) + 1;
                if (tail + n > end) {
                    SetLastError(ERROR_INSUFFICIENT_BUFFER);
                    return FALSE;
                }
                memcpy(tail, text, n);
                *slot = reinterpret_cast<LPCTSTR>(tail);
                tail += n;
            }
            return TRUE;
        }
        case INTERNET_OPTION_PER_CONNECTION_OPTION: {
            ++f.perConnectionQueries;
            if (!f.perConnectionOk) break;
            auto *list = static_cast<INTERNET_PER_CONN_OPTION_LISTA *>(buffer);
            if (*length != sizeof *list || list->dwSize != sizeof *list) break;
            for (DWORD i = 0; i < list->dwOptionCount; ++i) {
                INTERNET_PER_CONN_OPTIONA &o = list->pOptions[i];
                switch (o.dwOption) {
                case INTERNET_PER_CONN_FLAGS: o.Value.dwValue = f.flags; break;
                case INTERNET_PER_CONN_AUTODISCOVERY_FLAGS: o.Value.dwValue = 0; break;
                case INTERNET_PER_CONN_AUTOCONFIG_URL: o.Value.pszValue = Copy(f.autoConfigUrl); break;
                case INTERNET_PER_CONN_PROXY_BYPASS: o.Value.pszValue = Copy(f.bypass); break;
                case INTERNET_PER_CONN_PROXY_SERVER: o.Value.pszValue = Copy(f.proxyServer); break;
                }
            }
            return TRUE;
        }
        }
        SetLastError(f.error);
        return FALSE;
    }
};

inline FakeWinInet *FakeWinInet::current = nullptr;

// The process token as the test wants it seen.
struct FakeToken {
    enum Failure { NONE, ALLOCATE_SID, OPEN_TOKEN, FIRST_QUERY, SECOND_QUERY };
    bool localSystem = false;
    Failure failure = NONE;

    static FakeToken *current;

    void Install(ScopedProcessToken &platform) {
        current = this;
        platform->AllocateAndInitializeSid = [](PSID_IDENTIFIER_AUTHORITY a, BYTE n, DWORD s0,
                                                DWORD s1, DWORD s2, DWORD s3, DWORD s4, DWORD s5,
                                                DWORD s6, DWORD s7, PSID *sid) -> BOOL {
            if (current->failure == ALLOCATE_SID) {
                SetLastError(ERROR_NOT_ENOUGH_MEMORY);
                return FALSE;
            }
            return AllocateAndInitializeSid(a, n, s0, s1, s2, s3, s4, s5, s6, s7, sid);
        };
        platform->OpenProcessToken = [](HANDLE p, DWORD access, HANDLE *token) -> BOOL {
            if (current->failure == OPEN_TOKEN) {
                SetLastError(ERROR_ACCESS_DENIED);
                return FALSE;
            }
            return OpenProcessToken(p, access, token);
        };
        platform->GetTokenInformation = [](HANDLE token, TOKEN_INFORMATION_CLASS kind,
                                           void *buffer, DWORD size, DWORD *needed) -> BOOL {
            if (current->failure == FIRST_QUERY && !buffer) {
                SetLastError(ERROR_INVALID_HANDLE);
                return FALSE;
            }
            if (current->failure == SECOND_QUERY && buffer) {
                SetLastError(ERROR_INVALID_PARAMETER);
                return FALSE;
            }
            if (!current->localSystem) return GetTokenInformation(token, kind, buffer, size, needed);
            // A token whose user is LocalSystem (S-1-5-18).
            struct SystemUser {
                TOKEN_USER user;
                SID sid;
            };
            *needed = sizeof(SystemUser);
            if (!buffer || size < sizeof(SystemUser)) {
                SetLastError(ERROR_INSUFFICIENT_BUFFER);
                return FALSE;
            }
            auto *out = static_cast<SystemUser *>(buffer);
            out->sid.Revision = SID_REVISION;
            out->sid.SubAuthorityCount = 1;
            out->sid.IdentifierAuthority = SECURITY_NT_AUTHORITY;
            out->sid.SubAuthority[0] = SECURITY_LOCAL_SYSTEM_RID;
            out->user.User.Sid = &out->sid;
            out->user.User.Attributes = 0;
            return TRUE;
        };
    }
};

inline FakeToken *FakeToken::current = nullptr;

// Makes the .html association name the given open command for the scope.
class ScopedBrowserCommand {
public:
    explicit ScopedBrowserCommand(const std::string &command)
        : html_(HKEY_CLASSES_ROOT, ".html"),
          htm_(HKEY_CLASSES_ROOT, ".htm"),
          cls_(HKEY_CLASSES_ROOT, "RoutvaneTestDocument") {
        auto cls = ScopedRegistryValue::String("", "RoutvaneTestDocument", HKEY_CLASSES_ROOT, ".html");
        auto cmd = ScopedRegistryValue::String("", command, HKEY_CLASSES_ROOT,
                                               "RoutvaneTestDocument\\shell\\open\\command");
        // The removed keys are put back by their owners; these values need
        // no restoring of their own.
        cls.Dismiss();
        cmd.Dismiss();
    }

private:
    ScopedKeyRemoved html_;
    ScopedKeyRemoved htm_;
    ScopedKeyRemoved cls_;
};
