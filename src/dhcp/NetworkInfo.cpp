// Which interface a DHCPINFORM is sent from, its address and hardware
// address, and whether DHCP configures it: IP Helper first (the route to the
// destination, else a scan of the interfaces), then the host name's address
// and the NetBIOS adapter status.
#include <winsock2.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "dhcp/NetworkFacts.h"
#include "dhcp/dhcp.h"
#include "trace/tracefunc.h"

namespace {

std::string Description(const MIB_IFROW &row) {
    size_t length = row.dwDescrLen < sizeof row.bDescr ? row.dwDescrLen : sizeof row.bDescr;
    const char *text = reinterpret_cast<const char *>(row.bDescr);
    const void *zero = std::memchr(text, 0, length);
    if (zero) length = static_cast<size_t>(static_cast<const char *>(zero) - text);
    return std::string(text, length);
}

void TakeRow(const MIB_IFROW &from, MIB_IFROW *to, size_t size) {
    std::memcpy(to, &from, size < sizeof from ? size : sizeof from);
}

// 127.0.0.1 as IP Helper and Windows Sockets hold it: network byte order,
// read as a number on this little-endian platform. A constant, so that the
// choices that compare with it ask nothing of the platform.
const uint32_t kLoopback = 0x0100007F;

const DWORD kIfTypeEthernet = 6;
const DWORD kIfTypeTokenRing = 9;
const DWORD kIfTypeFddi = 15;

}  // namespace

const IP_ADAPTER_INFO *MatchingAdapter(const IP_ADAPTER_INFO *adapters, const MIB_IFROW &row) {
    for (const IP_ADAPTER_INFO *adapter = adapters; adapter; adapter = adapter->Next) {
        if (adapter->AddressLength != row.dwPhysAddrLen) continue;
        // Both arrays are 8 bytes; a longer claimed length cannot match
        // beyond what either holds.
        size_t length = adapter->AddressLength;
        if (length > sizeof adapter->Address) length = sizeof adapter->Address;
        if (length > sizeof row.bPhysAddr) length = sizeof row.bPhysAddr;
        if (std::memcmp(adapter->Address, row.bPhysAddr, length) == 0) return adapter;
    }
    return nullptr;
}

IpAddrTablePtr MyGetIpAddrTable() {
    tracefunc tf(__LINE__, "dhcp", "MyGetIpAddrTable");
    ULONG size = 0;
    DWORD rc = NetworkFacts().GetIpAddrTable(nullptr, &size, FALSE);
    if (rc != ERROR_INSUFFICIENT_BUFFER) {
        tf << "GetIpAddrTable failed:  " << rc << endtrace;
        return IpAddrTablePtr();
    }
    IpAddrTablePtr table = AllocateHeapBlock<MIB_IPADDRTABLE>(size);
    if (!table) return IpAddrTablePtr();
    rc = NetworkFacts().GetIpAddrTable(table.get(), &size, FALSE);
    if (rc != NO_ERROR) {
        tf << "GetIpAddrTable (second call) failed:  " << rc << endtrace;
        return IpAddrTablePtr();
    }
    return table;
}

namespace {

// GetIfEntry is asked only when GetBestRoute named an interface.
RouteFacts QueryBestRoute(uint32_t destination) {
    RouteFacts facts{RouteFacts::kNone, NO_ERROR, MIB_IFROW{}};
    MIB_IPFORWARDROW route;
    std::memset(&route, 0, sizeof route);
    facts.error = NetworkFacts().GetBestRoute(destination, 0, &route);
    if (facts.error != NO_ERROR) {
        facts.failed = RouteFacts::kGetBestRoute;
        return facts;
    }
    facts.row.dwIndex = route.dwForwardIfIndex;
    facts.error = NetworkFacts().GetIfEntry(&facts.row);
    if (facts.error != NO_ERROR) facts.failed = RouteFacts::kGetIfEntry;
    return facts;
}

}  // namespace

bool ChooseRouteInterface(const RouteFacts &route, const MIB_IPADDRROW *rows, DWORD count,
                          uint32_t &address, tracefunc &tf) {
    if (route.failed == RouteFacts::kGetBestRoute) {
        tf << "GetBestRoute failed:  " << route.error << endtrace;
        return false;
    }
    tf << "GetBestRoute worked...using routing table to determine interface" << endtrace;
    if (route.failed == RouteFacts::kGetIfEntry) {
        tf << "GetIfEntry failed:  " << route.error << endtrace;
        return false;
    }
    address = 0;
    for (DWORD i = 0; i < count; ++i) {
        if (rows[i].dwIndex != route.row.dwIndex) continue;
        address = rows[i].dwAddr;
        break;
    }
    // A route through the loopback interface says nothing about the network
    // a DHCP server could be on; the scan decides then.
    return address != 0 && address != kLoopback;
}

bool GetInterfaceUsingBestRoute(const MIB_IPADDRTABLE *table, uint32_t destination,
                                uint32_t &address, MIB_IFROW &row) {
    tracefunc tf(__LINE__, "dhcp", "GetInterfaceUsingBestRoute");
    const RouteFacts route = QueryBestRoute(destination);
    row = route.row;
    return ChooseRouteInterface(route, table->table, table->dwNumEntries, address, tf);
}

std::vector<InterfaceFacts> CollectInterfaceFacts(const MIB_IPADDRTABLE *table) {
    std::vector<InterfaceFacts> interfaces;
    for (DWORD i = 0; i < table->dwNumEntries; ++i) {
        InterfaceFacts facts;
        std::memset(&facts.row, 0, sizeof facts.row);
        facts.address = table->table[i].dwAddr;
        facts.row.dwIndex = table->table[i].dwIndex;
        if (NetworkFacts().GetIfEntry(&facts.row) == NO_ERROR) interfaces.push_back(facts);
    }
    return interfaces;
}

const InterfaceFacts *ChooseInterface(const std::vector<InterfaceFacts> &interfaces,
                                      tracefunc &tf) {
    const InterfaceFacts *chosen = nullptr;
    for (const InterfaceFacts &candidate : interfaces) {
        if (candidate.row.dwType == kIfTypeEthernet) {
            tf << "Found Ethernet interface:  " << Description(candidate.row) << endtrace;
            return &candidate;
        }
        // Token ring and FDDI serve until an Ethernet interface turns up.
        if (candidate.row.dwType == kIfTypeTokenRing || candidate.row.dwType == kIfTypeFddi) {
            tf << "Found non-Ethernet interface:  " << Description(candidate.row) << endtrace;
            chosen = &candidate;
        }
    }
    return chosen;
}

bool MyGetInterfaceUsingScan(const MIB_IPADDRTABLE *table, uint32_t &address, MIB_IFROW *row,
                             size_t rowSize) {
    tracefunc tf(__LINE__, "dhcp", "MyGetInterfaceUsingScan");
    const std::vector<InterfaceFacts> interfaces = CollectInterfaceFacts(table);
    const InterfaceFacts *chosen = ChooseInterface(interfaces, tf);
    address = chosen ? chosen->address : 0;
    if (chosen) TakeRow(chosen->row, row, rowSize);
    return address != 0;
}

bool IsDHCPEnabledForInterface(const MIB_IFROW &row, bool &enabled) {
    tracefunc tf(__LINE__, "dhcp", "IsDHCPEnabledForInterface");
    ULONG size = 0;
    DWORD rc = NetworkFacts().GetAdaptersInfo(nullptr, &size);
    if (rc != ERROR_BUFFER_OVERFLOW) {
        tf << "GetAdaptersInfo failed:  " << rc << endtrace;
        return false;
    }
    auto adapters = AllocateHeapBlock<IP_ADAPTER_INFO>(size);
    if (!adapters) return false;
    const ULONG allocated = size;
    rc = NetworkFacts().GetAdaptersInfo(adapters.get(), &size);
    if (rc != NO_ERROR) {
        tf << "GetAdaptersInfo (second call) failed:  " << rc << endtrace;
        return false;
    }
    // A list too short for one entry holds no adapter to walk.
    if (allocated < sizeof(IP_ADAPTER_INFO)) return false;
    const IP_ADAPTER_INFO *adapter = MatchingAdapter(adapters.get(), row);
    if (!adapter) return false;
    enabled = adapter->DhcpEnabled != 0;
    tf << "Found matching adapter " << (enabled ? "DHCP enabled" : "DHCP not enabled")
       << endtrace;
    return true;
}

namespace {

VersionFacts QueryVersion() {
    OSVERSIONINFOA version;
    std::memset(&version, 0, sizeof version);
    version.dwOSVersionInfoSize = sizeof version;
    if (!NetworkFacts().GetVersionExA(&version)) return {false, ::GetLastError(), 0, 0, 0};
    return {true, NO_ERROR, version.dwMajorVersion, version.dwMinorVersion, version.dwPlatformId};
}

ServiceFacts ServicesFailed(ServiceFacts::Call call, DWORD error) { return {call, error, {}}; }

// The Win32 services the manager lists, sized by a first call. The error of
// a failed call is taken while the manager is still open.
ServiceFacts QueryServices() {
    ServiceManagerHandle manager(NetworkFacts().OpenSCManagerA(
        nullptr, nullptr, SC_MANAGER_CONNECT | SC_MANAGER_ENUMERATE_SERVICE));
    if (!manager) return ServicesFailed(ServiceFacts::kOpenSCManager, ::GetLastError());
    DWORD needed = 0, count = 0, resume = 0;
    if (!NetworkFacts().EnumServicesStatusA(manager.get(), SERVICE_WIN32, SERVICE_STATE_ALL,
                                            nullptr, 0, &needed, &count, &resume)) {
        const DWORD error = ::GetLastError();
        if (error != ERROR_MORE_DATA)
            return ServicesFailed(ServiceFacts::kEnumServicesStatus, error);
    }
    auto services = AllocateHeapBlock<ENUM_SERVICE_STATUSA>(needed);
    if (!services) return ServicesFailed(ServiceFacts::kNoMemory, NO_ERROR);
    count = 0;
    resume = 0;
    if (!NetworkFacts().EnumServicesStatusA(manager.get(), SERVICE_WIN32, SERVICE_STATE_ALL,
                                            services.get(), needed, &needed, &count, &resume))
        return ServicesFailed(ServiceFacts::kEnumServicesStatus, ::GetLastError());
    // The count cannot exceed what the buffer can hold, whatever was answered.
    count = std::min<DWORD>(count, needed / sizeof(ENUM_SERVICE_STATUSA));
    ServiceFacts facts{ServiceFacts::kNone, NO_ERROR, {}};
    for (const ENUM_SERVICE_STATUSA *s = services.get(); s < services.get() + count; ++s)
        facts.services.emplace_back(s->lpServiceName ? s->lpServiceName : "",
                                    s->ServiceStatus.dwCurrentState);
    return facts;
}

// One Netbios call on a zeroed control block.
UCHAR Netbios(UCHAR command, UCHAR lana, void *buffer, WORD length) {
    NCB ncb;
    std::memset(&ncb, 0, sizeof ncb);
    ncb.ncb_command = command;
    ncb.ncb_lana_num = lana;
    ncb.ncb_buffer = static_cast<PUCHAR>(buffer);
    ncb.ncb_length = length;
    if (command == NCBASTAT) std::memcpy(ncb.ncb_callname, "*               ", NCBNAMSZ);
    return NetworkFacts().Netbios(&ncb);
}

// The adapter status of one LAN adapter, after a reset.
NetbiosAdapterFacts QueryAdapterStatus(UCHAR lana) {
    NetbiosAdapterFacts facts{false, {}};
    unsigned char status[600];
    std::memset(status, 0, sizeof status);
    facts.answered = Netbios(NCBRESET, lana, nullptr, 0) == NRC_GOODRET &&
                     Netbios(NCBASTAT, lana, status, sizeof status) == NRC_GOODRET;
    std::memcpy(facts.address, status, sizeof facts.address);
    return facts;
}

// Neither the zero address nor the dial-up adapter's names hardware.
bool IsHardwareAddress(const unsigned char *address, tracefunc &tf) {
    static const unsigned char kZero[6] = {0, 0, 0, 0, 0, 0};
    static const unsigned char kDialup[6] = {'D', 'E', 'S', 'T', 0, 0};
    if (std::memcmp(address, kZero, 6) == 0) {
        tf << "Found zero address...continuing" << endtrace;
        return false;
    }
    if (std::memcmp(address, kDialup, 6) == 0) {
        tf << "Found dialup adapter" << endtrace;
        return false;
    }
    return true;
}

}  // namespace

bool RunsNt40(const VersionFacts &version, tracefunc &tf) {
    if (!version.answered) {
        tf << "GetVersionEx failed:  " << version.error << endtrace;
        return false;
    }
    if (version.major != 4 || version.minor != 0 || version.platform != VER_PLATFORM_WIN32_NT) {
        tf << "Not running NT 4.0:  " << static_cast<int>(version.major) << "."
           << static_cast<int>(version.minor) << ":" << static_cast<int>(version.platform)
           << endtrace;
        return false;
    }
    return true;
}

bool DhcpServiceRunning(const ServiceFacts &facts, bool &enabled, tracefunc &tf) {
    if (facts.failed == ServiceFacts::kOpenSCManager)
        tf << "OpenSCManager failed:  " << facts.error << endtrace;
    if (facts.failed == ServiceFacts::kEnumServicesStatus)
        tf << "EnumServicesStatus failed:  " << facts.error << endtrace;
    // Without memory for the list nothing is said, as nothing was asked.
    if (facts.failed != ServiceFacts::kNone) return false;
    for (const auto &service : facts.services) {
        if (_stricmp(service.first.c_str(), "DHCP") != 0) continue;
        tf << "Found DHCP Client service" << endtrace;
        enabled = service.second == SERVICE_RUNNING;
        if (enabled)
            tf << "It is enabled" << endtrace;
        else
            tf << "It is not enabled:  " << service.second << endtrace;
        return true;
    }
    tf << "Didn't find DHCP Client service" << endtrace;
    return false;
}

AdapterUse UseNetbiosAdapter(const NetbiosAdapterFacts &adapter, unsigned char *buffer, int size,
                             uint8_t &length, tracefunc &tf) {
    if (!adapter.answered) {
        tf << "Netbios function failed...continuing" << endtrace;
        return AdapterUse::kSkip;
    }
    if (!IsHardwareAddress(adapter.address, tf)) return AdapterUse::kSkip;
    if (size < 6) {
        tf << "Not enough space for MAC address (need 6 bytes)" << endtrace;
        return AdapterUse::kNoRoom;
    }
    std::memcpy(buffer, adapter.address, 6);
    length = 6;
    tf << "Using adapter ";
    for (int b = 0; b < 6; ++b) {
        if (b) tf << ":";
        tf << static_cast<unsigned>(adapter.address[b]);
    }
    tf << endtrace;
    return AdapterUse::kTaken;
}

// The service manager is asked only on NT 4.0.
bool IsNT4DHCPServiceEnabled(bool &enabled) {
    tracefunc tf(__LINE__, "dhcp", "IsNT4DHCPServiceEnabled");
    return RunsNt40(QueryVersion(), tf) && DhcpServiceRunning(QueryServices(), enabled, tf);
}

// The adapters are asked one at a time: the search stops at the first one
// whose address serves, and the rest are never reset.
bool QueryMacAddr(unsigned char *buffer, int size, uint8_t &length) {
    tracefunc tf(__LINE__, "dhcp", "QueryMacAddr");
    LANA_ENUM lanas;
    std::memset(&lanas, 0, sizeof lanas);
    if (Netbios(NCBENUM, 0, &lanas, sizeof lanas) != NRC_GOODRET) return false;
    for (unsigned i = 0; i < lanas.length && i < sizeof lanas.lana; ++i) {
        const AdapterUse use =
            UseNetbiosAdapter(QueryAdapterStatus(lanas.lana[i]), buffer, size, length, tf);
        if (use != AdapterUse::kSkip) return use == AdapterUse::kTaken;
    }
    tf << "Didn't find an adapter" << endtrace;
    return false;
}

bool GetNetworkInfoFromHostName(DHCPPacket &packet) {
    tracefunc tf(__LINE__, "dhcp", "GetNetworkInfoFromHostName");
    packet.ciaddr = 0;
    char name[256];
    std::memset(name, 0, sizeof name);
    if (gethostname(name, sizeof name) == 0) {
        name[sizeof name - 1] = 0;
        const hostent *entry = gethostbyname(name);
        if (entry && entry->h_addrtype == AF_INET && entry->h_length == 4 && entry->h_addr_list &&
            entry->h_addr_list[0]) {
            uint32_t address = 0;
            std::memcpy(&address, entry->h_addr_list[0], 4);
            packet.ciaddr = ntohl(address);
        }
    }
    if (packet.ciaddr == 0) return false;
    return QueryMacAddr(packet.chaddr, sizeof packet.chaddr, packet.hlen);
}

bool GetNetworkInfo(DHCPPacket &packet, bool force, uint32_t destination) {
    tracefunc tf(__LINE__, "dhcp", "GetNetworkInfo");
    MIB_IFROW row;
    std::memset(&row, 0, sizeof row);
    uint32_t address = 0;
    bool dhcpEnabled = false;

    if (HMODULE iphlpapi = NetworkFacts().LoadLibraryA("iphlpapi.dll")) {
        // The reference taken by the presence test.
        ModuleReference reference(iphlpapi);
        if (IpAddrTablePtr table = MyGetIpAddrTable()) {
            bool found = GetInterfaceUsingBestRoute(table.get(), destination, address, row);
            if (!found) found = MyGetInterfaceUsingScan(table.get(), address, &row, sizeof row);
            if (found) {
                bool flag = false;
                if (IsDHCPEnabledForInterface(row, flag) || IsNT4DHCPServiceEnabled(flag))
                    dhcpEnabled = flag;
            }
        }
    } else {
        tf << "Unable to locate iphlpapi.dll:  " << ::GetLastError() << endtrace;
    }

    // No DHCP server would know a client whose interface it does not
    // configure; force sends the query regardless.
    if (!force && !dhcpEnabled) return false;

    if (address != 0 && address != kLoopback) {
        packet.hlen = static_cast<uint8_t>(row.dwPhysAddrLen);
        // chaddr takes up to 16 bytes, but the row holds only 8.
        size_t length = row.dwPhysAddrLen;
        if (length > sizeof packet.chaddr) length = sizeof packet.chaddr;
        if (length > sizeof row.bPhysAddr) length = sizeof row.bPhysAddr;
        std::memcpy(packet.chaddr, row.bPhysAddr, length);
        packet.ciaddr = ntohl(address);
        return true;
    }
    return GetNetworkInfoFromHostName(packet);
}
