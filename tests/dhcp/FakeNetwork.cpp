#include "FakeNetwork.h"

#include <cstring>

FakeNetwork *FakeNetwork::current = nullptr;

namespace {

FakeNetwork &Net() { return *FakeNetwork::current; }

DWORD Fails(const std::string &call) { return Net().failing == call ? Net().error : 0; }

// Fails call through the last error: the calls that answer BOOL or a handle.
bool SetFailure(const std::string &call) {
    if (!Fails(call)) return false;
    ::SetLastError(Fails(call));
    return true;
}

HMODULE FakeLoadLibraryA(const char *name) {
    if (SetFailure("LoadLibraryA")) return nullptr;
    return RealNetworkFacts().LoadLibraryA(name);
}

DWORD FakeGetIpAddrTable(MIB_IPADDRTABLE *table, ULONG *size, BOOL) {
    const ULONG needed = static_cast<ULONG>(sizeof(MIB_IPADDRTABLE) +
                                            Net().interfaces.size() * sizeof(MIB_IPADDRROW));
    if (!table) {
        *size = needed;
        return Fails("GetIpAddrTable sizing") ? Fails("GetIpAddrTable sizing")
                                              : ERROR_INSUFFICIENT_BUFFER;
    }
    if (Fails("GetIpAddrTable")) return Fails("GetIpAddrTable");
    if (*size < needed) return ERROR_INSUFFICIENT_BUFFER;
    table->dwNumEntries = 0;
    for (const FakeInterface &i : Net().interfaces)
        table->table[table->dwNumEntries++] = MIB_IPADDRROW{
            inet_addr(i.address.c_str()), i.index, inet_addr("255.255.255.0"), 0, 0, 0, 0};
    return NO_ERROR;
}

DWORD FakeGetBestRoute(DWORD destination, DWORD, MIB_IPFORWARDROW *route) {
    Net().routeDestination = destination;
    if (Fails("GetBestRoute")) return Fails("GetBestRoute");
    *route = MIB_IPFORWARDROW{};
    route->dwForwardIfIndex = Net().routeInterface;
    return NO_ERROR;
}

// A failing call still fills the row: what it leaves there must not count.
DWORD FakeGetIfEntry(MIB_IFROW *row) {
    for (const FakeInterface &i : Net().interfaces) {
        if (i.index != row->dwIndex) continue;
        row->dwType = i.type;
        row->dwPhysAddrLen = static_cast<DWORD>(i.mac.size());
        std::memcpy(row->bPhysAddr, i.mac.data(), i.mac.size());
        const std::string description = "if" + std::to_string(i.index);
        row->dwDescrLen = static_cast<DWORD>(description.size() + 1);
        std::memcpy(row->bDescr, description.c_str(), description.size() + 1);
        return Fails("GetIfEntry");
    }
    return ERROR_INVALID_PARAMETER;
}

DWORD FakeGetAdaptersInfo(IP_ADAPTER_INFO *info, ULONG *size) {
    const ULONG needed = static_cast<ULONG>(Net().adapters.size() * sizeof(IP_ADAPTER_INFO));
    if (!info) {
        *size = needed;
        return Fails("GetAdaptersInfo sizing") ? Fails("GetAdaptersInfo sizing")
                                               : ERROR_BUFFER_OVERFLOW;
    }
    if (Fails("GetAdaptersInfo")) return Fails("GetAdaptersInfo");
    if (*size < needed) return ERROR_BUFFER_OVERFLOW;
    for (size_t n = 0; n < Net().adapters.size(); ++n) {
        IP_ADAPTER_INFO &a = info[n] = IP_ADAPTER_INFO{};
        const FakeAdapter &f = Net().adapters[n];
        a.AddressLength = static_cast<UINT>(f.mac.size());
        std::memcpy(a.Address, f.mac.data(), f.mac.size());
        a.DhcpEnabled = f.dhcpEnabled;
        a.Next = n + 1 < Net().adapters.size() ? &info[n + 1] : nullptr;
    }
    return NO_ERROR;
}

UCHAR FakeNetbios(NCB *ncb) {
    const char *command = ncb->ncb_command == NCBENUM    ? "NCBENUM"
                          : ncb->ncb_command == NCBRESET ? "NCBRESET"
                                                         : "NCBASTAT";
    if (Net().failing == command) return NRC_SYSTEM;
    if (ncb->ncb_command == NCBENUM) {
        LANA_ENUM *lanas = reinterpret_cast<LANA_ENUM *>(ncb->ncb_buffer);
        lanas->length = static_cast<UCHAR>(Net().netbiosAdapters.size());
        for (size_t i = 0; i < Net().netbiosAdapters.size(); ++i)
            lanas->lana[i] = Net().netbiosAdapters[i].first;
        return NRC_GOODRET;
    }
    for (const auto &a : Net().netbiosAdapters) {
        if (a.first != ncb->ncb_lana_num) continue;
        if (ncb->ncb_command == NCBRESET) return NRC_GOODRET;
        if (std::memcmp(ncb->ncb_callname, "*               ", NCBNAMSZ) != 0 ||
            ncb->ncb_length < sizeof(ADAPTER_STATUS))
            return NRC_ILLCMD;
        std::memcpy(ncb->ncb_buffer, a.second.data(), 6);
        return NRC_GOODRET;
    }
    return NRC_BRIDGE;
}

BOOL FakeGetVersionExA(OSVERSIONINFOA *info) {
    if (SetFailure("GetVersionExA") || info->dwOSVersionInfoSize < sizeof(OSVERSIONINFOA))
        return FALSE;
    info->dwMajorVersion = Net().major;
    info->dwMinorVersion = Net().minor;
    info->dwPlatformId = Net().platform;
    return TRUE;
}

SC_HANDLE kManager = reinterpret_cast<SC_HANDLE>(static_cast<uintptr_t>(0x5C3));

SC_HANDLE FakeOpenSCManagerA(const char *machine, const char *database, DWORD access) {
    if (SetFailure("OpenSCManagerA") || machine || database ||
        access != (SC_MANAGER_CONNECT | SC_MANAGER_ENUMERATE_SERVICE))
        return nullptr;
    ++Net().openedServiceHandles;
    return kManager;
}

BOOL FakeEnumServicesStatusA(SC_HANDLE manager, DWORD type, DWORD state,
                             ENUM_SERVICE_STATUSA *services, DWORD size, DWORD *needed,
                             DWORD *returned, DWORD *) {
    if (manager != kManager || type != SERVICE_WIN32 || state != SERVICE_STATE_ALL) return FALSE;
    // Entries first, their names after them, as the service manager lays
    // the buffer out.
    DWORD total = 0;
    for (const auto &s : Net().services)
        total += sizeof(ENUM_SERVICE_STATUSA) + static_cast<DWORD>(2 * (s.first.size() + 1));
    *needed = total;
    *returned = 0;
    if (!services || size < total) {
        if (!SetFailure("EnumServicesStatusA sizing")) ::SetLastError(ERROR_MORE_DATA);
        return FALSE;
    }
    if (SetFailure("EnumServicesStatusA")) return FALSE;
    char *names = reinterpret_cast<char *>(services + Net().services.size());
    for (size_t i = 0; i < Net().services.size(); ++i) {
        const std::string &name = Net().services[i].first;
        services[i] = ENUM_SERVICE_STATUSA{};
        services[i].lpServiceName = std::strcpy(names, name.c_str());
        services[i].lpDisplayName = std::strcpy(names + name.size() + 1, name.c_str());
        names += 2 * (name.size() + 1);
        services[i].ServiceStatus.dwCurrentState = Net().services[i].second;
        services[i].ServiceStatus.dwServiceType = SERVICE_WIN32_SHARE_PROCESS;
    }
    *returned = static_cast<DWORD>(Net().services.size());
    return TRUE;
}

BOOL FakeCloseServiceManager(SC_HANDLE handle) {
    return handle == kManager && ++Net().closedServiceHandles;
}

}  // namespace

FakeNetwork::FakeNetwork() {
    current = this;
    platform_->LoadLibraryA = FakeLoadLibraryA;
    platform_->GetIpAddrTable = FakeGetIpAddrTable;
    platform_->GetBestRoute = FakeGetBestRoute;
    platform_->GetIfEntry = FakeGetIfEntry;
    platform_->GetAdaptersInfo = FakeGetAdaptersInfo;
    platform_->Netbios = FakeNetbios;
    platform_->GetVersionExA = FakeGetVersionExA;
    platform_->OpenSCManagerA = FakeOpenSCManagerA;
    platform_->EnumServicesStatusA = FakeEnumServicesStatusA;
    platform_->closeServiceManager = FakeCloseServiceManager;
}

FakeNetwork::~FakeNetwork() { current = nullptr; }

std::vector<BYTE> Mac(BYTE last) { return {0x00, 0x16, 0x3e, 0x10, 0x20, last}; }
