// The network facts seam of DHCP discovery: IP Helper (bound on first use,
// reached only after the presence test LoadLibraryA("iphlpapi.dll") has
// succeeded), the NetBIOS adapter status for the hardware address, and the
// system version and service manager for the NT 4.0 DHCP client service.
#pragma once

#include <winsock2.h>
#include <windows.h>
#include <iphlpapi.h>
#include <nb30.h>
#include <winsvc.h>

#include "util/Owners.h"
#include "util/Seam.h"

struct NetworkFactsApi {
    HMODULE (*LoadLibraryA)(const char *name);
    DWORD (*GetIpAddrTable)(MIB_IPADDRTABLE *table, ULONG *size, BOOL order);
    DWORD (*GetBestRoute)(DWORD destination, DWORD source, MIB_IPFORWARDROW *route);
    DWORD (*GetIfEntry)(MIB_IFROW *row);
    DWORD (*GetAdaptersInfo)(IP_ADAPTER_INFO *info, ULONG *size);
    UCHAR (*Netbios)(NCB *ncb);
    BOOL (*GetVersionExA)(OSVERSIONINFOA *info);
    SC_HANDLE (*OpenSCManagerA)(const char *machine, const char *database, DWORD access);
    BOOL (*EnumServicesStatusA)(SC_HANDLE manager, DWORD type, DWORD state,
                                ENUM_SERVICE_STATUSA *services, DWORD size, DWORD *needed,
                                DWORD *returned, DWORD *resume);
    BOOL (*closeServiceManager)(SC_HANDLE manager);
};

NetworkFactsApi &NetworkFacts();
const NetworkFactsApi &RealNetworkFacts();
using ScopedNetworkFacts = ScopedSeam<NetworkFactsApi, NetworkFacts>;

// One owner for a service manager handle, closed through the seam.
struct ServiceManagerTraits : NullTraits<SC_HANDLE> {
    static void close(SC_HANDLE manager) { NetworkFacts().closeServiceManager(manager); }
};
using ServiceManagerHandle = UniqueOwner<ServiceManagerTraits>;
