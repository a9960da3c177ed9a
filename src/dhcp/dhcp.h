// DHCP discovery of the auto-proxy URL: the BOOTP/DHCP message, the choice
// of the interface it is sent from, and the DHCPINFORM exchange that asks
// the network's DHCP server for option 252.
#pragma once

#include <winsock2.h>
#include <windows.h>
#include <iphlpapi.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "util/Owners.h"

class tracefunc;

enum : uint32_t {
    DHCP_PACKET_SIZE = 548,   // 236 header bytes and the option area
    DHCP_HEADER_SIZE = 236,
    DHCP_OPTIONS_SIZE = 312,
    DHCP_SERVER_PORT = 67,
    DHCP_CLIENT_PORT = 68,
    DHCP_RECEIVE_SIZE = 2048,
    DHCP_OPTION_AUTO_PROXY = 252,
};

// One BOOTP/DHCP message as plain fields; numbers are host order here and
// big-endian on the wire. A fresh packet is all zeros.
class DHCPPacket {
public:
    DHCPPacket() { Clear(); }

    void Clear();

    // A DHCPINFORM asking for option 252, from the interface whose route
    // leads to destination (dotted address or host name).
    bool CreateInformPacket(bool force, const std::string &destination);
    // The 548-byte wire form, replacing the content of out.
    bool GetBuffer(std::string &out) const;
    // Parses a received datagram; fields read before a shortfall keep their
    // new values.
    bool SetBuffer(const unsigned char *bytes, int length);
    // The data of option code as raw bytes, embedded zeros included.
    bool GetStringOption(uint8_t code, std::string &value) const;

    uint8_t op;
    uint8_t htype;
    uint8_t hlen;
    uint8_t hops;
    uint32_t xid;
    uint16_t secs;
    uint16_t flags;
    uint32_t ciaddr;
    uint32_t yiaddr;
    uint32_t siaddr;
    uint32_t giaddr;
    unsigned char chaddr[16];
    unsigned char sname[64];
    unsigned char file[128];
    unsigned char options[DHCP_OPTIONS_SIZE];
};

// Cursor readers: on success the cursor moves on and remaining goes down;
// when fewer bytes remain than needed, nothing changes and the answer is
// false.
bool Grab8(const unsigned char *&cursor, int &remaining, uint8_t &out);
bool Grab16(const unsigned char *&cursor, int &remaining, uint16_t &out);
bool Grab32(const unsigned char *&cursor, int &remaining, uint32_t &out);
bool GrabStr(const unsigned char *&cursor, int &remaining, int length, unsigned char *out);

// The interface address table, owned on the process heap.
using IpAddrTablePtr = HeapBlock<MIB_IPADDRTABLE>;

// Fills hlen, chaddr and ciaddr of the packet for a DHCPINFORM towards
// destination (network byte order). False when the interface is not
// configured by DHCP and force is false, or no address can be found.
bool GetNetworkInfo(DHCPPacket &packet, bool force, uint32_t destination);
IpAddrTablePtr MyGetIpAddrTable();
bool GetInterfaceUsingBestRoute(const MIB_IPADDRTABLE *table, uint32_t destination,
                                uint32_t &address, MIB_IFROW &row);
bool MyGetInterfaceUsingScan(const MIB_IPADDRTABLE *table, uint32_t &address, MIB_IFROW *row,
                             size_t rowSize);

// The scan in two steps: the interfaces of the address table as GetIfEntry
// describes them (those it does not describe left out), then the choice,
// which asks nothing: the first Ethernet interface, else the last token
// ring or FDDI one. Null when none is of those types.
struct InterfaceFacts {
    uint32_t address;  // network byte order
    MIB_IFROW row;
};
std::vector<InterfaceFacts> CollectInterfaceFacts(const MIB_IPADDRTABLE *table);
const InterfaceFacts *ChooseInterface(const std::vector<InterfaceFacts> &interfaces,
                                      tracefunc &tf);
// The adapter whose hardware address is the interface's, or null.
const IP_ADAPTER_INFO *MatchingAdapter(const IP_ADAPTER_INFO *adapters, const MIB_IFROW &row);
bool IsDHCPEnabledForInterface(const MIB_IFROW &row, bool &enabled);
bool IsNT4DHCPServiceEnabled(bool &enabled);
bool QueryMacAddr(unsigned char *buffer, int size, uint8_t &length);

// What the platform answered, as plain facts: failed names the call that
// did not answer (error its code). The choices on them ask nothing and
// trace what they found.

// The route to the destination: GetBestRoute, then GetIfEntry for the
// interface it leaves by. Chosen: that interface's first address in the
// table, unless it has none or it is the loopback address.
struct RouteFacts {
    enum Call { kNone, kGetBestRoute, kGetIfEntry } failed;
    DWORD error;
    MIB_IFROW row;
};
bool ChooseRouteInterface(const RouteFacts &route, const MIB_IPADDRROW *rows, DWORD count,
                          uint32_t &address, tracefunc &tf);
// GetVersionExA; only NT 4.0 goes on to the service manager.
struct VersionFacts {
    bool answered;
    DWORD error;
    DWORD major, minor, platform;
};
bool RunsNt40(const VersionFacts &version, tracefunc &tf);
// The Win32 services the service manager lists: name and current state.
struct ServiceFacts {
    enum Call { kNone, kOpenSCManager, kEnumServicesStatus, kNoMemory } failed;
    DWORD error;
    std::vector<std::pair<std::string, DWORD>> services;
};
bool DhcpServiceRunning(const ServiceFacts &facts, bool &enabled, tracefunc &tf);
// One NetBIOS LAN adapter: answered when NCBRESET and NCBASTAT both
// succeeded; address opens its ADAPTER_STATUS block.
struct NetbiosAdapterFacts {
    bool answered;
    unsigned char address[6];
};
enum class AdapterUse { kSkip, kTaken, kNoRoom };
AdapterUse UseNetbiosAdapter(const NetbiosAdapterFacts &adapter, unsigned char *buffer, int size,
                             uint8_t &length, tracefunc &tf);

// The address of the host name and the NetBIOS hardware address.
bool GetNetworkInfoFromHostName(DHCPPacket &packet);

// Asks the DHCP server for the auto-proxy URL with a broadcast DHCPINFORM.
// server, when given, receives the replying server's address as held in the
// socket address (network byte order).
bool DiscoverProxyUrlViaDHCP(bool force, std::string destination, std::string &url,
                             unsigned timeoutSeconds, uint32_t *server = nullptr);

// "%02x" bytes separated by one blank.
std::string DhcpHexDump(const unsigned char *bytes, size_t length);
