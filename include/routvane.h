// Routvane client header: everything a C++ program needs to ask which HTTP
// proxy, if any, a connection to host:port must go through.
//
//   CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
//   IRoutvane *resolver = nullptr;
//   CLSID clsid;
//   CLSIDFromProgID(L"Ovrena.Routvane", &clsid);
//   CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IRoutvane,
//                    reinterpret_cast<void **>(&resolver));
//   if (resolver->RoutvaneBrowser(0, "www.example.com", 443) == ROUTVANE_PROXY) {
//       for (int i = 0; i < resolver->GetProxyCount(); ++i) {
//           bool direct; char host[256]; unsigned port;
//           resolver->GetProxy(i, &direct, host, sizeof host, &port);
//       }
//   }
//   resolver->Release();
//
// One object answers one caller at a time. Entries of earlier resolves on
// the same object stay ahead of new ones: use one object per target, or read
// only the entries added by the last call.
#ifndef ROUTVANE_H
#define ROUTVANE_H

#include <windows.h>
#include <unknwn.h>

#if __cplusplus >= 201703L
#define ROUTVANE_GUID_STORAGE inline const
#else
#define ROUTVANE_GUID_STORAGE static const
#endif

// {6B1C4E2A-8F3D-4A57-9C21-3E5D7A90B4F1}
ROUTVANE_GUID_STORAGE CLSID CLSID_Routvane = {
    0x6b1c4e2a, 0x8f3d, 0x4a57, {0x9c, 0x21, 0x3e, 0x5d, 0x7a, 0x90, 0xb4, 0xf1}};
// {9A4E2F71-3C8B-4D16-A5E2-7B0F19C6D834}
ROUTVANE_GUID_STORAGE IID IID_IRoutvane = {
    0x9a4e2f71, 0x3c8b, 0x4d16, {0xa5, 0xe2, 0x7b, 0x0f, 0x19, 0xc6, 0xd8, 0x34}};

#define ROUTVANE_PROGID L"Ovrena.Routvane"
#define ROUTVANE_PROGID_VERSIONED L"Ovrena.Routvane.1"

// Results of RoutvaneBrowser.
enum RoutvaneStatus : unsigned int {
    ROUTVANE_PROXY = 0,   // one or more entries were added: read them with GetProxy
    ROUTVANE_DIRECT = 1,  // no proxy applies
    ROUTVANE_FAILED = 2,  // the settings could not be read or evaluated
};

// Browser codes of GetBrowser.
enum RoutvaneBrowserCode : unsigned int {
    ROUTVANE_BROWSER_IE = 0,        // WinINet settings
    ROUTVANE_BROWSER_NETSCAPE = 1,  // Netscape Navigator preferences
    ROUTVANE_BROWSER_UNKNOWN = 2,   // no resolve has chosen one yet
};

// Bits of the options word that automatic discovery reads.
enum RoutvaneOptions : unsigned int {
    ROUTVANE_SKIP_DHCP = 1,    // do not ask DHCP for a PAC URL
    ROUTVANE_SKIP_DNS = 2,     // do not try the wpad host names
    ROUTVANE_FORCE_DHCP = 4,   // send the DHCP query even where DHCP is not enabled
};

struct IRoutvane : public IUnknown {
    // Resolves target:port (a host name, not a URL); a RoutvaneStatus.
    virtual unsigned int STDMETHODCALLTYPE RoutvaneBrowser(unsigned int options, const char *target,
                                                          unsigned int port) = 0;
    virtual long long STDMETHODCALLTYPE GetProxyCount() = 0;
    // False for an index outside the list. A direct entry gives direct true,
    // an empty host and port 0. The host is cut to size - 1 characters.
    virtual bool STDMETHODCALLTYPE GetProxy(int index, bool *direct, char *host, int size,
                                            unsigned int *port) = 0;
    // The URL of the PAC script (or .ins file) fetched last; false when none.
    virtual bool STDMETHODCALLTYPE GetAutoConfigURL(char *buffer, int size) = 0;
    // The text of the PAC script evaluated last; false when none.
    virtual bool STDMETHODCALLTYPE GetAutoConfigScript(char *buffer, int size) = 0;
    // A RoutvaneBrowserCode; false while it is ROUTVANE_BROWSER_UNKNOWN.
    virtual bool STDMETHODCALLTYPE GetBrowser(unsigned int *code) = 0;
    virtual ~IRoutvane() {}
};

#endif
