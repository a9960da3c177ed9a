#include "FakeNetwork.h"

#include <cstring>

FakeNetwork *FakeNetwork::current = nullptr;

namespace {

FakeNetwork &Net() { return *FakeNetwork::current; }

HMODULE FakeLoadLibraryA(const char *name) {
    if (_stricmp(name, "iphlpapi.dll") == 0 && !Net().iphlpapiPresent) {
        ::SetLastError(ERROR_MOD_NOT_FOUND);
        return nullptr;
    }
    return RealNetworkFacts().LoadLibraryA(name);
}

DWORD FakeGetIpAddrTable(MIB_IPADDRTABLE *table, ULONG *size, BOOL) {
    ++Net().ipHelperCalls;
    DWORD count = 0;
    for (const FakeInterface &i : Net().interfaces) count += !i.address.empty();
    const ULONG needed = sizeof(MIB_IPADDRTABLE) + count * sizeof(MIB_IPADDRROW);
    if (!table) {
        *size = needed;
        return Net().ipAddrTableFirstAnswer;
    }
    if (Net().ipAddrTableSecondAnswer != NO_ERROR) return Net().ipAddrTableSecondAnswer;
    if (*size < needed) return ERROR_INSUFFICIENT_BUFFER;
    table->dwNumEntries = count;
    DWORD n = 0;
    for (const FakeInterface &i : Net().interfaces) {
        if (i.address.empty()) continue;
        table->table[n++] = MIB_IPADDRROW{inet_addr(i.address.c_str()), i.index,
                                          inet_addr("255.255.255.0"), 0, 0, 0, 0};
    }
    return NO_ERROR;
}

DWORD FakeGetBestRoute(DWORD destination, DWORD, MIB_IPFORWARDROW *route) {
    ++Net().ipHelperCalls;
    Net().lastBestRouteDestination = destination;
    if (Net().bestRouteError != NO_ERROR) return Net().bestRouteError;
    *route = MIB_IPFORWARDROW{};
    route->dwForwardIfIndex = Net().bestRouteInterface;
    return NO_ERROR;
}

DWORD FakeGetIfEntry(MIB_IFROW *row) {
    ++Net().ipHelperCalls;
    if (Net().ifEntryError != NO_ERROR) return Net().ifEntryError;
    for (const FakeInterface &i : Net().interfaces) {
        if (i.index != row->dwIndex) continue;
        row->dwType = i.type;
        row->dwPhysAddrLen = static_cast<DWORD>(i.mac.size());
        std::memcpy(row->bPhysAddr, i.mac.data(), i.mac.size());
        row->dwDescrLen = static_cast<DWORD>(i.description.size() + 1);
        std::memcpy(row->bDescr, i.description.c_str(), i.description.size() + 1);
        return NO_ERROR;
    }
    return ERROR_INVALID_PARAMETER;
}

DWORD FakeGetAdaptersInfo(IP_ADAPTER_INFO *info, ULONG *size) {
    ++Net().ipHelperCalls;
    const ULONG needed = static_cast<ULONG>(Net().adapters.size() * sizeof(IP_ADAPTER_INFO));
    if (!info) {
        *size = needed;
        return Net().adaptersFirstAnswer;
    }
    if (Net().adaptersSecondAnswer != NO_ERROR) return Net().adaptersSecondAnswer;
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
    if (!Net().netbiosPresent) return NRC_SYSTEM;
    switch (ncb->ncb_command) {
    case NCBENUM: {
        LANA_ENUM *lanas = reinterpret_cast<LANA_ENUM *>(ncb->ncb_buffer);
        lanas->length = static_cast<UCHAR>(Net().netbiosAdapters.size());
        for (size_t i = 0; i < Net().netbiosAdapters.size(); ++i)
            lanas->lana[i] = Net().netbiosAdapters[i].lana;
        return NRC_GOODRET;
    }
    case NCBRESET:
    case NCBASTAT:
        for (const FakeNetbiosAdapter &a : Net().netbiosAdapters) {
            if (a.lana != ncb->ncb_lana_num) continue;
            if (ncb->ncb_command == NCBRESET) return a.resetFails ? NRC_SYSTEM : NRC_GOODRET;
            if (a.statusFails) return NRC_SYSTEM;
            if (std::memcmp(ncb->ncb_callname, "*               ", NCBNAMSZ) != 0 ||
                ncb->ncb_length < sizeof(ADAPTER_STATUS))
                return NRC_ILLCMD;
            std::memcpy(ncb->ncb_buffer, a.address.data(), 6);
            return NRC_GOODRET;
        }
        return NRC_BRIDGE;
    default:
        return NRC_ILLCMD;
    }
}

BOOL FakeGetVersionExA(OSVERSIONINFOA *info) {
    if (Net().versionFails) {
        ::SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (info->dwOSVersionInfoSize < sizeof(OSVERSIONINFOA)) return FALSE;
    info->dwMajorVersion = Net().major;
    info->dwMinorVersion = Net().minor;
    info->dwPlatformId = Net().platform;
    return TRUE;
}

SC_HANDLE kManager = reinterpret_cast<SC_HANDLE>(static_cast<uintptr_t>(0x5C3));

SC_HANDLE FakeOpenSCManagerA(const char *machine, const char *database, DWORD access) {
    if (Net().scManagerFails || machine || database ||
        access != (SC_MANAGER_CONNECT | SC_MANAGER_ENUMERATE_SERVICE)) {
        ::SetLastError(ERROR_ACCESS_DENIED);
        return nullptr;
    }
    ++Net().openedServiceHandles;
    return kManager;
}

BOOL FakeEnumServicesStatusA(SC_HANDLE manager, DWORD type, DWORD state,
                             ENUM_SERVICE_STATUSA *services, DWORD size, DWORD *needed,
                             DWORD *returned, DWORD *) {
    if (manager != kManager || type != SERVICE_WIN32 || state != SERVICE_STATE_ALL) {
        ::SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    // Entries first, their names after them, as the service manager lays
    // the buffer out.
    DWORD total = 0;
    for (const auto &s : Net().services)
        total += sizeof(ENUM_SERVICE_STATUSA) + static_cast<DWORD>(2 * (s.first.size() + 1));
    *needed = total;
    if (!services || size < total) {
        *returned = 0;
        ::SetLastError(services ? ERROR_MORE_DATA : Net().enumFirstError);
        return FALSE;
    }
    if (Net().enumSecondFails) {
        ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return FALSE;
    }
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

void FakeNetwork::AddEthernet(DWORD index, const std::string &address, std::vector<BYTE> mac,
                              bool dhcp, const std::string &description) {
    interfaces.push_back({index, 6, address, mac,
                          description.empty() ? "Ethernet " + std::to_string(index) : description});
    adapters.push_back({mac, dhcp});
}

std::vector<BYTE> Mac(BYTE last) { return {0x00, 0x16, 0x3e, 0x10, 0x20, last}; }
