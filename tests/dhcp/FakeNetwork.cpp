#include "FakeNetwork.h"

#include <cstring>

namespace {

FakeNetwork *g_net = nullptr;
const BYTE kMac[] = {0, 0x16, 0x3e, 0x10, 0x20, 4, 7, 8};  // the card's and its adapter's

DWORD Fails(const std::string &call) { return g_net->failing == call ? g_net->error : 0; }

// Fails call through the last error: the calls that answer BOOL or a handle.
bool SetFailure(const std::string &call) {
    if (Fails(call)) ::SetLastError(Fails(call));
    return Fails(call) != 0;
}

// A pair of calls: the first, without a buffer, is told the size needed and
// answers more; the second fills a buffer of at least that size.
DWORD Sized(const std::string &call, const void *buffer, ULONG *size, size_t needed, DWORD more) {
    if (!buffer) *size = static_cast<ULONG>(needed);
    if (DWORD error = Fails(buffer ? call : call + " sizing")) return error;
    return buffer && *size >= needed ? NO_ERROR : more;
}

HMODULE FakeLoadLibraryA(const char *name) {
    return SetFailure("LoadLibraryA") ? nullptr : RealNetworkFacts().LoadLibraryA(name);
}

DWORD FakeGetIpAddrTable(MIB_IPADDRTABLE *table, ULONG *size, BOOL) {
    const DWORD rc = Sized("GetIpAddrTable", table, size, sizeof *table + sizeof table->table[0],
                           ERROR_INSUFFICIENT_BUFFER);
    if (rc != NO_ERROR) return rc;
    table->dwNumEntries = 2;
    table->table[0] = MIB_IPADDRROW{inet_addr("127.0.0.1"), 1, 0, 0, 0, 0, 0};
    table->table[1] = MIB_IPADDRROW{inet_addr("172.16.0.9"), 4, 0, 0, 0, 0, 0};
    return NO_ERROR;
}

DWORD FakeGetBestRoute(DWORD destination, DWORD, MIB_IPFORWARDROW *route) {
    g_net->routeDestination = destination;
    *route = MIB_IPFORWARDROW{};
    route->dwForwardIfIndex = 4;
    return Fails("GetBestRoute");
}

// A failing call still fills the row: what it leaves there must not count.
DWORD FakeGetIfEntry(MIB_IFROW *row) {
    const bool card = row->dwIndex == 4;
    if (!card && row->dwIndex != 1) return ERROR_INVALID_PARAMETER;
    row->dwType = card ? 6 : 24;
    row->dwPhysAddrLen = card ? sizeof kMac : 0;
    std::memcpy(row->bPhysAddr, kMac, row->dwPhysAddrLen);
    row->dwDescrLen = 5;
    std::memcpy(row->bDescr, card ? "card" : "loop", 5);
    return Fails("GetIfEntry");
}

DWORD FakeGetAdaptersInfo(IP_ADAPTER_INFO *info, ULONG *size) {
    const DWORD rc = Sized("GetAdaptersInfo", info, size, sizeof *info, ERROR_BUFFER_OVERFLOW);
    if (rc != NO_ERROR) return rc;
    *info = IP_ADAPTER_INFO{};
    info->AddressLength = sizeof kMac;
    std::memcpy(info->Address, kMac, sizeof kMac);
    info->DhcpEnabled = g_net->dhcpEnabled;
    return NO_ERROR;
}

UCHAR FakeNetbios(NCB *ncb) {
    const UCHAR command = ncb->ncb_command, lana = ncb->ncb_lana_num;
    const char *name = command == NCBENUM    ? "NCBENUM"
                       : command == NCBRESET ? "NCBRESET"
                                             : "NCBASTAT";
    if (g_net->failing == name && (command == NCBENUM || lana == 3)) return NRC_SYSTEM;
    if (command == NCBENUM) {
        *reinterpret_cast<LANA_ENUM *>(ncb->ncb_buffer) = LANA_ENUM{2, {3, 5}};
        return NRC_GOODRET;
    }
    if (lana != 3 && lana != 5) return NRC_BRIDGE;
    if (command == NCBRESET) return NRC_GOODRET;
    if (std::memcmp(ncb->ncb_callname, "*               ", NCBNAMSZ) != 0 ||
        ncb->ncb_length < sizeof(ADAPTER_STATUS))
        return NRC_ILLCMD;
    for (int b = 0; b < 6; ++b) ncb->ncb_buffer[b] = static_cast<UCHAR>(lana * (b + 1));
    return NRC_GOODRET;
}

BOOL FakeGetVersionExA(OSVERSIONINFOA *info) {
    if (SetFailure("GetVersionExA") || info->dwOSVersionInfoSize < sizeof *info) return FALSE;
    *info = {sizeof *info, 4, 0, 0, VER_PLATFORM_WIN32_NT, {}};
    return TRUE;
}

SC_HANDLE kManager = reinterpret_cast<SC_HANDLE>(static_cast<uintptr_t>(0x5C3));

SC_HANDLE FakeOpenSCManagerA(const char *machine, const char *database, DWORD access) {
    if (SetFailure("OpenSCManagerA") || machine || database ||
        access != (SC_MANAGER_CONNECT | SC_MANAGER_ENUMERATE_SERVICE))
        return nullptr;
    ++g_net->openServiceHandles;
    return kManager;
}

// Entries first, their names after them, as the service manager lays the
// buffer out.
BOOL FakeEnumServicesStatusA(SC_HANDLE manager, DWORD type, DWORD state,
                             ENUM_SERVICE_STATUSA *services, DWORD size, DWORD *needed,
                             DWORD *returned, DWORD *) {
    if (manager != kManager || type != SERVICE_WIN32 || state != SERVICE_STATE_ALL) return FALSE;
    *needed = 2 * sizeof *services + sizeof "Alerter" + sizeof "Dhcp";
    *returned = 0;
    if (!services || size < *needed) {
        if (!SetFailure("EnumServicesStatusA sizing")) ::SetLastError(ERROR_MORE_DATA);
        return FALSE;
    }
    if (SetFailure("EnumServicesStatusA")) return FALSE;
    char *alerter = std::strcpy(reinterpret_cast<char *>(services + 2), "Alerter");
    char *dhcp = std::strcpy(alerter + sizeof "Alerter", "Dhcp");
    const DWORD kShared = SERVICE_WIN32_SHARE_PROCESS;
    services[0] = {alerter, alerter, {kShared, SERVICE_STOPPED, 0, 0, 0, 0, 0}};
    services[1] = {dhcp, dhcp, {kShared, SERVICE_RUNNING, 0, 0, 0, 0, 0}};
    *returned = 2;
    return TRUE;
}

BOOL FakeCloseServiceManager(SC_HANDLE handle) {
    if (handle == kManager) --g_net->openServiceHandles;
    return handle == kManager;
}

}  // namespace

FakeNetwork::FakeNetwork() {
    g_net = this;
    // Every entry is the fake's; the seam puts the real table back.
    NetworkFacts() = NetworkFactsApi{
        FakeLoadLibraryA,  FakeGetIpAddrTable, FakeGetBestRoute,        FakeGetIfEntry,
        FakeGetAdaptersInfo, FakeNetbios,      FakeGetVersionExA,       FakeOpenSCManagerA,
        FakeEnumServicesStatusA, FakeCloseServiceManager};
}

FakeNetwork::~FakeNetwork() { g_net = nullptr; }
