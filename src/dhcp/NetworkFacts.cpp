#include "dhcp/NetworkFacts.h"

namespace {

HMODULE RealLoadLibraryA(const char *name) { return ::LoadLibraryA(name); }

// Callers test the presence of iphlpapi.dll before they get here.
template <class Fn>
Fn Iphlpapi(const char *name) {
    return OptionalFunction<Fn>("iphlpapi.dll", name);
}

DWORD RealGetIpAddrTable(MIB_IPADDRTABLE *table, ULONG *size, BOOL order) {
    using Fn = DWORD(WINAPI *)(MIB_IPADDRTABLE *, ULONG *, BOOL);
    static Fn fn = Iphlpapi<Fn>("GetIpAddrTable");
    return fn ? fn(table, size, order) : ERROR_PROC_NOT_FOUND;
}

DWORD RealGetBestRoute(DWORD destination, DWORD source, MIB_IPFORWARDROW *route) {
    using Fn = DWORD(WINAPI *)(DWORD, DWORD, MIB_IPFORWARDROW *);
    static Fn fn = Iphlpapi<Fn>("GetBestRoute");
    return fn ? fn(destination, source, route) : ERROR_PROC_NOT_FOUND;
}

DWORD RealGetIfEntry(MIB_IFROW *row) {
    using Fn = DWORD(WINAPI *)(MIB_IFROW *);
    static Fn fn = Iphlpapi<Fn>("GetIfEntry");
    return fn ? fn(row) : ERROR_PROC_NOT_FOUND;
}

DWORD RealGetAdaptersInfo(IP_ADAPTER_INFO *info, ULONG *size) {
    using Fn = DWORD(WINAPI *)(IP_ADAPTER_INFO *, ULONG *);
    static Fn fn = Iphlpapi<Fn>("GetAdaptersInfo");
    return fn ? fn(info, size) : ERROR_PROC_NOT_FOUND;
}

UCHAR RealNetbios(NCB *ncb) { return ::Netbios(ncb); }

BOOL RealGetVersionExA(OSVERSIONINFOA *info) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    return ::GetVersionExA(info);
#pragma GCC diagnostic pop
}

SC_HANDLE RealOpenSCManagerA(const char *machine, const char *database, DWORD access) {
    return ::OpenSCManagerA(machine, database, access);
}

BOOL RealEnumServicesStatusA(SC_HANDLE manager, DWORD type, DWORD state,
                             ENUM_SERVICE_STATUSA *services, DWORD size, DWORD *needed,
                             DWORD *returned, DWORD *resume) {
    return ::EnumServicesStatusA(manager, type, state, services, size, needed, returned, resume);
}

const NetworkFactsApi kReal = {
    RealLoadLibraryA,   RealGetIpAddrTable, RealGetBestRoute,      RealGetIfEntry,
    RealGetAdaptersInfo, RealNetbios,       RealGetVersionExA,     RealOpenSCManagerA,
    RealEnumServicesStatusA, CloseServiceManager,
};
NetworkFactsApi g_current = kReal;

}  // namespace

NetworkFactsApi &NetworkFacts() { return g_current; }

const NetworkFactsApi &RealNetworkFacts() { return kReal; }
