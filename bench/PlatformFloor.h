// The floors the benchmarks hold the library to: the platform work a call
// of the library cannot avoid, made directly, with none of the library's
// own code around it. A ratio against these says what the library adds,
// not what the platform costs.
//
// Each function makes the calls the library makes on the path the
// benchmark takes, in the same order and with the same arguments; where the
// library branches on an answer (interface selection) the floor takes the
// same branch. The entries of the seams are used where the library binds a
// system library lazily; they are the real functions.
#pragma once

#include <winsock2.h>
#include <windows.h>
#include <iphlpapi.h>
#include <nb30.h>
#include <share.h>
#include <wininet.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "NullHelper.h"
#include "dhcp/NetworkFacts.h"
#include "pac/ScriptHost.h"
#include "resolver/WinInetDownload.h"
#include "util/ComOwners.h"
#include "util/Owners.h"
#include "util/Registry.h"

namespace platform_floor {

// --- The PAC resolve ---------------------------------------------------------

// The local-system test: the process token's user against the LocalSystem
// SID.
inline bool TokenIsLocalSystem() {
    SID_IDENTIFIER_AUTHORITY nt = SECURITY_NT_AUTHORITY;
    SidOwner system;
    if (!AllocateAndInitializeSid(&nt, 1, SECURITY_LOCAL_SYSTEM_RID, 0, 0, 0, 0, 0, 0, 0,
                                  system.out()))
        return false;
    bool isSystem = false;
    KernelHandle token;
    if (OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.out())) {
        DWORD needed = 0;
        GetTokenInformation(token.get(), TokenUser, nullptr, 0, &needed);
        std::vector<BYTE> buffer(needed, 0);
        if (needed >= sizeof(TOKEN_USER) &&
            GetTokenInformation(token.get(), TokenUser, buffer.data(), needed, &needed))
            isSystem =
                EqualSid(reinterpret_cast<TOKEN_USER *>(buffer.data())->User.Sid, system.get());
    }
    return isSystem;
}

// One string value of a key, read with a buffer of the library's size.
inline std::string RegistryText(HKEY root, const char *subkey, const char *name, DWORD size) {
    std::string text;
    RegKey key;
    if (RegOpenKeyExA(root, subkey, 0, KEY_READ, key.out()) != ERROR_SUCCESS) return text;
    std::vector<char> buffer(size + 1, '\0');
    DWORD type = 0;
    if (RegQueryValueExA(key.get(), name, nullptr, &type, reinterpret_cast<BYTE *>(buffer.data()),
                         &size) == ERROR_SUCCESS &&
        (type == REG_SZ || type == REG_EXPAND_SZ))
        text = buffer.data();
    return text;
}

// The .html association: the document class, then its open command.
inline std::string HtmlOpenCommand() {
    const std::string documentClass = RegistryText(HKEY_CLASSES_ROOT, ".html", nullptr, 128);
    if (documentClass.empty()) return documentClass;
    return RegistryText(HKEY_CLASSES_ROOT, (documentClass + "\\shell\\open\\command").c_str(),
                        nullptr, 512);
}

// Navigator's preferences file, found through its three registry values.
inline std::string NetscapePrefsPath() {
    const char kNavigator[] = "Software\\Netscape\\Netscape Navigator";
    const std::string version = RegistryText(HKEY_LOCAL_MACHINE, kNavigator, "CurrentVersion", 512);
    const std::string install =
        RegistryText(HKEY_LOCAL_MACHINE, (std::string(kNavigator) + "\\" + version + "\\Main").c_str(),
                     "Install Directory", 512);
    const std::string user = RegistryText(
        HKEY_CURRENT_USER, "Software\\Netscape\\Netscape Navigator\\biff", "CurrentUser", 512);
    return install + "\\..\\Users\\" + user + "\\prefs.js";
}

// A whole file, opened without denying anything to others and read in
// chunks of the library's size.
inline std::string ReadWholeFile(const std::string &path) {
    std::string text;
    const FileOwner in(_fsopen(path.c_str(), "rb", _SH_DENYNO));
    if (!in) return text;
    char chunk[1024];
    size_t got = 0;
    while ((got = fread(chunk, 1, sizeof chunk, in.get())) > 0) text.append(chunk, got);
    return text;
}

// A REG_DWORD under the library's key, 0 when absent or of another type.
inline DWORD OvrenaDword(const char *name) {
    DWORD value = 0;
    DWORD size = sizeof value;
    DWORD type = 0;
    RegKey key;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, "Software\\Ovrena", 0, KEY_READ, key.out()) ==
        ERROR_SUCCESS) {
        if (RegQueryValueExA(key.get(), name, nullptr, &type, reinterpret_cast<BYTE *>(&value),
                             &size) != ERROR_SUCCESS ||
            type != REG_DWORD)
            value = 0;
    }
    return value;
}

// The connect time-out setting, in milliseconds (5 s when not set).
inline DWORD ConnectTimeoutMs() {
    const DWORD value = OvrenaDword("WPADConnectTimeout");
    return (value ? value : 5) * 1000;
}

// The limits a resolve reads besides the connect time-out: the download's
// total time and size, and the script's time.
inline DWORD ReadLimits() {
    return OvrenaDword("WPADDownloadTimeout") + OvrenaDword("WPADMaxScriptSize") +
           OvrenaDword("PACScriptTimeout");
}

// The script download: a direct session with the connect time-out set, the
// URL from the server and never from or into the cache; the URL handle is
// closed before the session, in the library's order: the order decides
// what becomes of the connection, and so what the next download finds.
inline std::string Download(const std::string &url, DWORD timeoutMs) {
    std::string text;
    const WinInetDownloadApi &api = WinInetDownload();
    // Declared first so that it goes last.
    const InternetHandle session(
        api.InternetOpenA("OvrenaTessel", INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0));
    if (!session) return text;
    api.InternetSetOptionA(session.get(), INTERNET_OPTION_CONNECT_TIMEOUT, &timeoutMs,
                           sizeof timeoutMs);
    const InternetHandle file(api.InternetOpenUrlA(
        session.get(), url.c_str(), nullptr, static_cast<DWORD>(-1),
        INTERNET_FLAG_RELOAD | INTERNET_FLAG_NO_CACHE_WRITE | INTERNET_FLAG_NO_UI, 0));
    if (file) {
        char buffer[2048];
        for (;;) {
            DWORD read = 0;
            api.InternetReadFile(file.get(), buffer, sizeof buffer, &read);
            if (read == 0) break;
            text.append(buffer, read);
        }
    }
    return text;
}

// The hand-over the library must make because neither a download nor a
// script can be stopped from outside: the work runs on another thread
// (one that stays between calls, as the library's does) under the caller's
// impersonation token if any, and the caller waits on an event of the
// job's own until it is done.
class Worker {
public:
    Worker()
        : wake_(CreateEventA(nullptr, FALSE, FALSE, nullptr)),
          thread_(CreateThread(nullptr, 0, Main, this, 0, nullptr)) {}
    ~Worker() {
        Run(nullptr);
        WaitForSingleObject(thread_.get(), INFINITE);
    }
    Worker(const Worker &) = delete;
    Worker &operator=(const Worker &) = delete;

    // Runs job on the worker and waits for it; null ends the worker.
    void Run(void (*job)(void *), void *context = nullptr) {
        HANDLE token = nullptr;
        OpenThreadToken(GetCurrentThread(), TOKEN_IMPERSONATE | TOKEN_QUERY, TRUE, &token);
        const KernelHandle impersonation(token);
        const KernelHandle done(CreateEventA(nullptr, TRUE, FALSE, nullptr));
        done_ = done.get();
        job_ = job;
        context_ = context;
        SetEvent(wake_.get());
        WaitForSingleObject(done.get(), INFINITE);
    }

private:
    static DWORD WINAPI Main(void *self) {
        Worker &w = *static_cast<Worker *>(self);
        for (;;) {
            WaitForSingleObject(w.wake_.get(), INFINITE);
            void (*job)(void *) = w.job_;
            if (job) job(w.context_);
            SetEvent(w.done_);
            if (!job) return 0;
        }
    }
    KernelHandle wake_;
    HANDLE done_ = nullptr;
    void (*job_)(void *) = nullptr;
    void *context_ = nullptr;
    KernelHandle thread_;
};

inline Worker &TheWorker() {
    static Worker worker;
    return worker;
}

// One evaluation in a fresh engine whose helper functions do nothing: the
// script engine and the dispatch, without the helpers' own work.
inline std::string EvaluateBare(const std::string &script, const std::string &url,
                                const std::string &host) {
    std::string answer;
    ComPtr<IFindProxyForUrl> helper = ComPtr<IFindProxyForUrl>::Share(new NullHelper());
    ScriptHost engine(helper.get());
    if (engine.Parse(script)) engine.ExecuteSSS("FindProxyForURL", url, host, answer);
    return answer;
}

// The download and the evaluation as the library makes them: each on the
// worker, the evaluation in the worker's multithreaded apartment with
// Windows Sockets started for the helper object.
inline std::string DownloadOnWorker(const std::string &url, DWORD timeoutMs) {
    struct Job {
        const std::string &url;
        DWORD timeoutMs;
        std::string text;
    } job{url, timeoutMs, std::string()};
    TheWorker().Run(
        [](void *p) {
            Job &j = *static_cast<Job *>(p);
            j.text = Download(j.url, j.timeoutMs);
        },
        &job);
    return job.text;
}

inline std::string EvaluateOnWorker(const std::string &script, const std::string &url,
                                    const std::string &host) {
    struct Job {
        const std::string &script, &url, &host;
        std::string answer;
    } job{script, url, host, std::string()};
    TheWorker().Run(
        [](void *p) {
            Job &j = *static_cast<Job *>(p);
            const HRESULT hr = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
            {
                // The helper object starts Windows Sockets for its name and
                // address functions whether the script calls them or not.
                const WinsockSession sockets;
                j.answer = EvaluateBare(j.script, j.url, j.host);
            }
            if (SUCCEEDED(hr)) CoUninitialize();
        },
        &job);
    return job.answer;
}

// A resolve's platform work when Navigator is the default browser and its
// preferences name a script at scriptUrl: the script's answer, or "" when a
// step found nothing.
inline std::string PacResolve(const std::string &scriptUrl, const std::string &host,
                              unsigned port) {
    if (TokenIsLocalSystem()) return std::string();
    if (HtmlOpenCommand().empty()) return std::string();
    if (ReadWholeFile(NetscapePrefsPath()).empty()) return std::string();
    const DWORD connectMs = ConnectTimeoutMs();
    ReadLimits();
    const std::string script = DownloadOnWorker(scriptUrl, connectMs);
    return EvaluateOnWorker(script, "https://" + host + ":" + std::to_string(port), host);
}

// --- Interface selection for a DHCPINFORM -----------------------------------

// Whether DHCP configures the adapter with this hardware address.
inline bool AdapterDhcpEnabled(const MIB_IFROW &row, bool &enabled) {
    ULONG size = 0;
    if (NetworkFacts().GetAdaptersInfo(nullptr, &size) != ERROR_BUFFER_OVERFLOW) return false;
    const auto block = AllocateHeapBlock<IP_ADAPTER_INFO>(size);
    auto *adapters = block.get();
    if (NetworkFacts().GetAdaptersInfo(adapters, &size) != NO_ERROR) return false;
    for (const IP_ADAPTER_INFO *a = adapters; a; a = a->Next) {
        if (a->AddressLength != row.dwPhysAddrLen ||
            std::memcmp(a->Address, row.bPhysAddr, a->AddressLength < 8 ? a->AddressLength : 8))
            continue;
        enabled = a->DhcpEnabled != 0;
        return true;
    }
    return false;
}

// The NT 4.0 DHCP client service's state, asked only on NT 4.0.
inline bool Nt4DhcpServiceRunning(bool &enabled) {
    OSVERSIONINFOA version = {};
    version.dwOSVersionInfoSize = sizeof version;
    if (!NetworkFacts().GetVersionExA(&version) || version.dwMajorVersion != 4 ||
        version.dwMinorVersion != 0 || version.dwPlatformId != VER_PLATFORM_WIN32_NT)
        return false;
    const ServiceManagerHandle manager(NetworkFacts().OpenSCManagerA(
        nullptr, nullptr, SC_MANAGER_CONNECT | SC_MANAGER_ENUMERATE_SERVICE));
    if (!manager) return false;
    bool found = false;
    DWORD needed = 0, returned = 0, resume = 0;
    NetworkFacts().EnumServicesStatusA(manager.get(), SERVICE_WIN32, SERVICE_STATE_ALL, nullptr, 0, &needed,
                                   &returned, &resume);
    const auto block = AllocateHeapBlock<ENUM_SERVICE_STATUSA>(needed);
    auto *services = block.get();
    returned = resume = 0;
    if (NetworkFacts().EnumServicesStatusA(manager.get(), SERVICE_WIN32, SERVICE_STATE_ALL, services, needed,
                                       &needed, &returned, &resume)) {
        for (DWORD i = 0; i < returned && !found; ++i) {
            if (!services[i].lpServiceName || _stricmp(services[i].lpServiceName, "DHCP")) continue;
            enabled = services[i].ServiceStatus.dwCurrentState == SERVICE_RUNNING;
            found = true;
        }
    }
    return found;
}

// The first NetBIOS adapter's hardware address: enumerate, reset, status.
inline bool NetbiosHardwareAddress() {
    LANA_ENUM lanas = {};
    NCB ncb = {};
    ncb.ncb_command = NCBENUM;
    ncb.ncb_buffer = reinterpret_cast<PUCHAR>(&lanas);
    ncb.ncb_length = sizeof lanas;
    if (NetworkFacts().Netbios(&ncb) != NRC_GOODRET) return false;
    for (unsigned i = 0; i < lanas.length && i < sizeof lanas.lana; ++i) {
        ncb = NCB{};
        ncb.ncb_command = NCBRESET;
        ncb.ncb_lana_num = lanas.lana[i];
        if (NetworkFacts().Netbios(&ncb) != NRC_GOODRET) continue;
        unsigned char status[600] = {};
        ncb = NCB{};
        ncb.ncb_command = NCBASTAT;
        ncb.ncb_lana_num = lanas.lana[i];
        std::memcpy(ncb.ncb_callname, "*               ", NCBNAMSZ);
        ncb.ncb_buffer = status;
        ncb.ncb_length = sizeof status;
        if (NetworkFacts().Netbios(&ncb) != NRC_GOODRET) continue;
        static const unsigned char kZero[6] = {};
        static const unsigned char kDialup[6] = {'D', 'E', 'S', 'T', 0, 0};
        if (!std::memcmp(status, kZero, 6) || !std::memcmp(status, kDialup, 6)) continue;
        return true;
    }
    return false;
}

// The calls of interface selection for a query towards destination (network
// order): the route's interface, else the first Ethernet one; whether DHCP
// configures it; and, where no interface address serves, the host name's
// address and the NetBIOS adapter status. True when a query can be sent.
inline bool SelectInterface(uint32_t destination) {
    const uint32_t loopback = inet_addr("127.0.0.1");
    uint32_t address = 0;
    bool dhcpEnabled = false;
    MIB_IFROW row = {};
    if (const ModuleReference iphlpapi{NetworkFacts().LoadLibraryA("iphlpapi.dll")}) {
        ULONG size = 0;
        if (NetworkFacts().GetIpAddrTable(nullptr, &size, FALSE) == ERROR_INSUFFICIENT_BUFFER) {
            const auto block = AllocateHeapBlock<MIB_IPADDRTABLE>(size);
            auto *table = block.get();
            if (NetworkFacts().GetIpAddrTable(table, &size, FALSE) == NO_ERROR) {
                MIB_IPFORWARDROW route = {};
                if (NetworkFacts().GetBestRoute(destination, 0, &route) == NO_ERROR) {
                    row.dwIndex = route.dwForwardIfIndex;
                    if (NetworkFacts().GetIfEntry(&row) == NO_ERROR)
                        for (DWORD i = 0; i < table->dwNumEntries && !address; ++i)
                            if (table->table[i].dwIndex == row.dwIndex)
                                address = table->table[i].dwAddr;
                }
                if (address == 0 || address == loopback) {
                    address = 0;
                    // Every interface's row is asked for, as the library
                    // collects them all before it chooses.
                    bool ethernet = false;
                    for (DWORD i = 0; i < table->dwNumEntries; ++i) {
                        MIB_IFROW candidate = {};
                        candidate.dwIndex = table->table[i].dwIndex;
                        if (NetworkFacts().GetIfEntry(&candidate) != NO_ERROR) continue;
                        if (!ethernet && (candidate.dwType == 6 || candidate.dwType == 9 ||
                                          candidate.dwType == 15)) {
                            row = candidate;
                            address = table->table[i].dwAddr;
                            ethernet = candidate.dwType == 6;
                        }
                    }
                }
                if (address != 0) {
                    bool flag = false;
                    if (AdapterDhcpEnabled(row, flag) || Nt4DhcpServiceRunning(flag))
                        dhcpEnabled = flag;
                }
            }
        }
    }
    if (!dhcpEnabled) return false;
    if (address != 0 && address != loopback) return true;
    char name[256] = {};
    if (gethostname(name, sizeof name) != 0) return false;
    const hostent *entry = gethostbyname(name);
    if (!entry || !entry->h_addr_list || !entry->h_addr_list[0]) return false;
    return NetbiosHardwareAddress();
}

}  // namespace platform_floor
