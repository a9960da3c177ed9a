// Which interface a DHCPINFORM is sent from, its address and hardware
// address, and whether DHCP configures it: IP Helper first (the route to the
// destination, else a scan of the interfaces), then the host name's address
// and the NetBIOS adapter status.
#include <winsock2.h>

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

uint32_t Loopback() { return inet_addr("127.0.0.1"); }

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

bool GetInterfaceUsingBestRoute(const MIB_IPADDRTABLE *table, uint32_t destination,
                                uint32_t &address, MIB_IFROW &row) {
    tracefunc tf(__LINE__, "dhcp", "GetInterfaceUsingBestRoute");
    MIB_IPFORWARDROW route;
    std::memset(&route, 0, sizeof route);
    DWORD rc = NetworkFacts().GetBestRoute(destination, 0, &route);
    if (rc != NO_ERROR) {
        tf << "GetBestRoute failed:  " << rc << endtrace;
        return false;
    }
    tf << "GetBestRoute worked...using routing table to determine interface" << endtrace;
    row.dwIndex = route.dwForwardIfIndex;
    rc = NetworkFacts().GetIfEntry(&row);
    if (rc != NO_ERROR) {
        tf << "GetIfEntry failed:  " << rc << endtrace;
        return false;
    }
    address = 0;
    for (DWORD i = 0; i < table->dwNumEntries; ++i) {
        if (table->table[i].dwIndex == row.dwIndex) {
            address = table->table[i].dwAddr;
            break;
        }
    }
    // A route through the loopback interface says nothing about the network
    // a DHCP server could be on; the scan decides then.
    return address != 0 && address != Loopback();
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

bool RunsNt40(tracefunc &tf) {
    OSVERSIONINFOA version;
    std::memset(&version, 0, sizeof version);
    version.dwOSVersionInfoSize = sizeof version;
    if (!NetworkFacts().GetVersionExA(&version)) {
        tf << "GetVersionEx failed:  " << ::GetLastError() << endtrace;
        return false;
    }
    if (version.dwMajorVersion != 4 || version.dwMinorVersion != 0 ||
        version.dwPlatformId != VER_PLATFORM_WIN32_NT) {
        tf << "Not running NT 4.0:  " << static_cast<int>(version.dwMajorVersion) << "."
           << static_cast<int>(version.dwMinorVersion) << ":"
           << static_cast<int>(version.dwPlatformId) << endtrace;
        return false;
    }
    return true;
}

// The Win32 services the manager lists, sized by a first call; count is
// what the second call returned, bounded by what the buffer can hold.
HeapBlock<ENUM_SERVICE_STATUSA> ListServices(SC_HANDLE manager, DWORD &count, tracefunc &tf) {
    DWORD needed = 0;
    DWORD resume = 0;
    count = 0;
    if (!NetworkFacts().EnumServicesStatusA(manager, SERVICE_WIN32, SERVICE_STATE_ALL, nullptr, 0,
                                            &needed, &count, &resume)) {
        const DWORD error = ::GetLastError();
        if (error != ERROR_MORE_DATA) {
            tf << "EnumServicesStatus failed:  " << error << endtrace;
            return HeapBlock<ENUM_SERVICE_STATUSA>();
        }
    }
    auto services = AllocateHeapBlock<ENUM_SERVICE_STATUSA>(needed);
    if (!services) return services;
    count = 0;
    resume = 0;
    if (!NetworkFacts().EnumServicesStatusA(manager, SERVICE_WIN32, SERVICE_STATE_ALL,
                                            services.get(), needed, &needed, &count, &resume)) {
        tf << "EnumServicesStatus failed:  " << ::GetLastError() << endtrace;
        return HeapBlock<ENUM_SERVICE_STATUSA>();
    }
    // The count cannot exceed what the buffer can hold, whatever was answered.
    const DWORD capacity = needed / sizeof(ENUM_SERVICE_STATUSA);
    if (count > capacity) count = capacity;
    return services;
}

bool DhcpServiceRunning(const ENUM_SERVICE_STATUSA *services, DWORD count, bool &enabled,
                        tracefunc &tf) {
    for (DWORD i = 0; i < count; ++i) {
        const ENUM_SERVICE_STATUSA &service = services[i];
        if (!service.lpServiceName || _stricmp(service.lpServiceName, "DHCP") != 0) continue;
        tf << "Found DHCP Client service" << endtrace;
        const DWORD state = service.ServiceStatus.dwCurrentState;
        enabled = state == SERVICE_RUNNING;
        if (enabled)
            tf << "It is enabled" << endtrace;
        else
            tf << "It is not enabled:  " << state << endtrace;
        return true;
    }
    tf << "Didn't find DHCP Client service" << endtrace;
    return false;
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

// The adapter status of one LAN adapter, after a reset; its address opens
// the ADAPTER_STATUS block.
bool AdapterStatus(UCHAR lana, unsigned char (&status)[600], tracefunc &tf) {
    std::memset(status, 0, sizeof status);
    if (Netbios(NCBRESET, lana, nullptr, 0) != NRC_GOODRET ||
        Netbios(NCBASTAT, lana, status, sizeof status) != NRC_GOODRET) {
        tf << "Netbios function failed...continuing" << endtrace;
        return false;
    }
    return true;
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

bool IsNT4DHCPServiceEnabled(bool &enabled) {
    tracefunc tf(__LINE__, "dhcp", "IsNT4DHCPServiceEnabled");
    if (!RunsNt40(tf)) return false;
    ServiceManagerHandle manager(NetworkFacts().OpenSCManagerA(
        nullptr, nullptr, SC_MANAGER_CONNECT | SC_MANAGER_ENUMERATE_SERVICE));
    if (!manager) {
        tf << "OpenSCManager failed:  " << ::GetLastError() << endtrace;
        return false;
    }
    DWORD count = 0;
    const auto services = ListServices(manager.get(), count, tf);
    return services && DhcpServiceRunning(services.get(), count, enabled, tf);
}

bool QueryMacAddr(unsigned char *buffer, int size, uint8_t &length) {
    tracefunc tf(__LINE__, "dhcp", "QueryMacAddr");
    LANA_ENUM lanas;
    std::memset(&lanas, 0, sizeof lanas);
    if (Netbios(NCBENUM, 0, &lanas, sizeof lanas) != NRC_GOODRET) return false;
    for (unsigned i = 0; i < lanas.length && i < sizeof lanas.lana; ++i) {
        unsigned char status[600];
        if (!AdapterStatus(lanas.lana[i], status, tf) || !IsHardwareAddress(status, tf)) continue;
        if (size < 6) {
            tf << "Not enough space for MAC address (need 6 bytes)" << endtrace;
            return false;
        }
        std::memcpy(buffer, status, 6);
        length = 6;
        tf << "Using adapter ";
        for (int b = 0; b < 6; ++b) {
            if (b) tf << ":";
            tf << static_cast<unsigned>(status[b]);
        }
        tf << endtrace;
        return true;
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
    const uint32_t loopback = Loopback();
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

    if (address != 0 && address != loopback) {
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
