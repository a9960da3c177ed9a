// WinINet settings and process tokens as a test arranges them, answered
// through their seams.
#pragma once

#include <windows.h>
#include <wininet.h>

#include <string>

#include "TestSupport.h"
#include "resolver/ProcessToken.h"
#include "resolver/WinInetSettings.h"

// WinINet answering each settings query from fixed content, or failing the
// one query named by failing, for the scope.
struct FakeWinInet {
    bool present = true;  // LoadLibraryA("wininet.dll")
    DWORD minor = 2;      // of version 1
    DWORD failing = 0;  // INTERNET_OPTION_VERSION, _PROXY or _PER_CONNECTION_OPTION
    // The legacy answer: proxy access through legacyProxy, no bypass list.
    const char *legacyProxy = "p:3128";
    // The per-connection answer: flags, a proxy server, a bypass list and an
    // auto-config URL, each copied into a block of its own.
    DWORD flags = PROXY_TYPE_DIRECT;
    const char *proxyServer = nullptr;
    const char *bypass = nullptr;
    const char *autoConfigUrl = nullptr;
    int perConnectionQueries = 0;

    ScopedWinInetSettings seam;
    static FakeWinInet *current;

    FakeWinInet() {
        current = this;
        seam->InternetQueryOptionA = &Query;
        seam->LoadLibraryA = [](const char *name) {
            return current->present ? RealWinInetSettings().LoadLibraryA(name) : nullptr;
        };
    }

    static BOOL WINAPI Query(HINTERNET, DWORD option, void *buffer, DWORD *length) {
        FakeWinInet &f = *current;
        f.perConnectionQueries += option == INTERNET_OPTION_PER_CONNECTION_OPTION;
        SetLastError(ERROR_INTERNET_INVALID_OPTION);
        if (option == f.failing) return FALSE;
        if (option == INTERNET_OPTION_VERSION) {
            *static_cast<INTERNET_VERSION_INFO *>(buffer) = {1, f.minor};
            return TRUE;
        }
        if (option == INTERNET_OPTION_PROXY) {
            // As WinINet does: the string is copied behind the structure.
            auto *info = static_cast<INTERNET_PROXY_INFO *>(buffer);
            char *text = reinterpret_cast<char *>(info + 1);
            if (sizeof *info + strlen(f.legacyProxy) + 1 > *length) {
                SetLastError(ERROR_INSUFFICIENT_BUFFER);
                return FALSE;
            }
            strcpy(text, f.legacyProxy);
            *info = {INTERNET_OPEN_TYPE_PROXY, reinterpret_cast<LPCTSTR>(text), nullptr};
            return TRUE;
        }
        auto *list = static_cast<INTERNET_PER_CONN_OPTION_LISTA *>(buffer);
        for (DWORD i = 0; i < list->dwOptionCount; ++i) {
            INTERNET_PER_CONN_OPTIONA &o = list->pOptions[i];
            o.Value.pszValue = nullptr;
            switch (o.dwOption) {
            case INTERNET_PER_CONN_FLAGS: o.Value.dwValue = f.flags; break;
            case INTERNET_PER_CONN_PROXY_SERVER: o.Value.pszValue = Copy(f.proxyServer); break;
            case INTERNET_PER_CONN_PROXY_BYPASS: o.Value.pszValue = Copy(f.bypass); break;
            case INTERNET_PER_CONN_AUTOCONFIG_URL: o.Value.pszValue = Copy(f.autoConfigUrl); break;
            }
        }
        return TRUE;
    }

    static char *Copy(const char *text) {
        if (!text) return nullptr;
        char *copy = static_cast<char *>(GlobalAlloc(GMEM_FIXED, strlen(text) + 1));
        strcpy(copy, text);
        return copy;
    }
};

inline FakeWinInet *FakeWinInet::current = nullptr;

// The process token as the test wants it seen, for the scope.
struct FakeToken {
    enum Failure { NONE, ALLOCATE_SID, OPEN_TOKEN, FIRST_QUERY, SECOND_QUERY };
    bool localSystem = false;
    Failure failure = NONE;

    ScopedProcessToken seam;
    static FakeToken *current;

    // Whether the call named fails here, its error then set.
    static bool Fails(Failure call, DWORD error) {
        if (current->failure != call) return false;
        SetLastError(error);
        return true;
    }

    FakeToken() {
        current = this;
        seam->AllocateAndInitializeSid = [](PSID_IDENTIFIER_AUTHORITY a, BYTE n, DWORD s0,
                                            DWORD s1, DWORD s2, DWORD s3, DWORD s4, DWORD s5,
                                            DWORD s6, DWORD s7, PSID *sid) -> BOOL {
            return !Fails(ALLOCATE_SID, ERROR_NOT_ENOUGH_MEMORY) &&
                   AllocateAndInitializeSid(a, n, s0, s1, s2, s3, s4, s5, s6, s7, sid);
        };
        seam->OpenProcessToken = [](HANDLE p, DWORD access, HANDLE *token) -> BOOL {
            return !Fails(OPEN_TOKEN, ERROR_ACCESS_DENIED) && OpenProcessToken(p, access, token);
        };
        seam->GetTokenInformation = [](HANDLE token, TOKEN_INFORMATION_CLASS kind, void *buffer,
                                       DWORD size, DWORD *needed) -> BOOL {
            if (buffer ? Fails(SECOND_QUERY, ERROR_INVALID_PARAMETER)
                       : Fails(FIRST_QUERY, ERROR_INVALID_HANDLE))
                return FALSE;
            if (!GetTokenInformation(token, kind, buffer, size, needed)) return FALSE;
            // The user made LocalSystem (S-1-5-18), which fits where any
            // other user's SID stood.
            if (current->localSystem)
                *static_cast<SID *>(static_cast<TOKEN_USER *>(buffer)->User.Sid) =
                    SID{SID_REVISION, 1, SECURITY_NT_AUTHORITY, {SECURITY_LOCAL_SYSTEM_RID}};
            return TRUE;
        };
    }
};

inline FakeToken *FakeToken::current = nullptr;

const char kIECommand[] = "\"C:\\Program Files\\Internet Explorer\\IEXPLORE.EXE\" %1";

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
