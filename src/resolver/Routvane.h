// The resolver object: one client's question "which proxy for host:port",
// answered from the default browser's settings.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// The client header, by the include path: a quoted "routvane.h" would find
// this very file first where letter case does not count.
#include <routvane.h>

#include "com/COvrenaUnknown.h"
#include "pac/EvaluationObserver.h"

struct ProxyEntry {
    uint32_t kind;  // 0 direct, 1 the proxy in host and port
    std::string host;
    uint32_t port;
};

enum : uint32_t { PROXY_ENTRY_DIRECT = 0, PROXY_ENTRY_PROXY = 1 };

class Routvane : public COvrenaUnknown<IRoutvane, &IID_IRoutvane> {
public:
    Routvane();
    ~Routvane() override;

    // IRoutvane
    unsigned int STDMETHODCALLTYPE RoutvaneBrowser(unsigned int options, const char *target,
                                                  unsigned int port) override;
    long long STDMETHODCALLTYPE GetProxyCount() override;
    bool STDMETHODCALLTYPE GetProxy(int index, bool *direct, char *host, int size,
                                    unsigned int *port) override;
    bool STDMETHODCALLTYPE GetAutoConfigURL(char *buffer, int size) override;
    bool STDMETHODCALLTYPE GetAutoConfigScript(char *buffer, int size) override;
    bool STDMETHODCALLTYPE GetBrowser(unsigned int *code) override;

    // Settings sources; each answers 0 (entries added), 1 (direct) or 2 (failed).
    uint32_t GetProxyFromIE(uint32_t options, const std::string &target, uint32_t port);
    uint32_t GetProxyFromNetscape(uint32_t options, const std::string &target, uint32_t port);
    uint32_t RunAutoProxyURL(uint32_t options, const std::string &target, uint32_t port,
                             const std::string &pacUrl);
    // The two halves of RunAutoProxyURL. Fetching answers 0 when a download
    // completed, 2 when it failed; evaluating runs the script for one target
    // in an engine of its own and answers as ParseFindProxyForURLReturn, or
    // what fetching answered when the script fails.
    uint32_t FetchAutoProxyScript(const std::string &pacUrl, std::string &script);
    uint32_t EvaluateAutoProxyScript(const std::string &script, const std::string &target,
                                     uint32_t port, uint32_t fetched);
    uint32_t RunAutoDetect(uint32_t options, const std::string &target, uint32_t port);

    // PAC retrieval: 0 when a download completed (script filled only when
    // the text holds "FindProxyForURL"), 2 when it failed.
    uint32_t readURL(const std::string &url, std::string &script);
    // A PAC answer appended to the list: 1 empty, 0 entries added, 2 none.
    uint32_t ParseFindProxyForURLReturn(const std::string &returned);

    // Proxy strings of the settings, appended to the list.
    int32_t ParseProxy(const std::string &text);
    int32_t ParseIEProxyForScheme(const std::string &list, const std::string &scheme);
    int32_t ParseIEProxy(const std::string &list);

    const std::vector<ProxyEntry> &proxies() const { return proxies_; }
    const std::string &autoConfigURL() const { return autoConfigURL_; }
    const std::string &autoConfigScript() const { return autoConfigScript_; }
    uint32_t browser() const { return browser_; }

    // Hears, during PAC evaluations of this object, what a script written
    // for another runtime may not expect here; null (the default) for none.
    // The observer must outlive the evaluations.
    void setObserver(EvaluationObserver *observer) { observer_ = observer; }

private:
    EvaluationObserver *observer_ = nullptr;
    // The bodies of RoutvaneBrowser and GetProxy, which guard them.
    unsigned int Resolve(unsigned int options, const char *target, unsigned int port);
    bool CopyProxy(int index, bool *direct, char *host, int size, unsigned int *port) const;

    std::string autoConfigURL_;
    std::string autoConfigScript_;
    std::vector<ProxyEntry> proxies_;
    uint32_t browser_ = ROUTVANE_BROWSER_UNKNOWN;
};

// Whether the target is exempt from the fixed proxy by the bypass list.
bool IsBypassed(const std::string &target, uint32_t port, const std::string &list);

// True when the process runs as the LocalSystem account.
bool IsLocalSystem();

// 0 for Internet Explorer, 1 for Netscape Navigator, from the .html association.
uint32_t GetDefaultBrowser();

// A non-zero REG_DWORD under HKEY_LOCAL_MACHINE\Software\Ovrena, else the default.
uint32_t ReadRegistryDword(const char *name, uint32_t defaultValue);
