// The host-name and IPv4-address functions of the PAC helper object. Several
// differ from the textbook PAC definitions on purpose (dnsDomainIs wants the
// domain's leading dot and never compares the host itself, isInNet takes a
// host beginning with a digit as an address without a look-up, unparsable
// addresses and masks are used as all ones); scripts written against this
// system rely on them.
#include <winsock2.h>

#include <cctype>
#include <cwchar>
#include <cwctype>
#include <initializer_list>
#include <string>

#include "com/ComGuard.h"
#include "util/ComOwners.h"
#include "pac/FindProxyForURL.h"
#include "trace/tracefunc.h"

namespace {

// Longest name a DNS look-up can carry.
const size_t kMaxHostName = 255;

bool EndsWithInvalidLabel(const std::string &name) {
    static const char kInvalid[] = "invalid";
    std::string tail = name;
    while (!tail.empty() && tail.back() == '.') tail.pop_back();
    if (tail.size() < 7) return false;
    const std::string last = tail.substr(tail.size() - 7);
    for (size_t i = 0; i < 7; ++i)
        if (std::tolower(static_cast<unsigned char>(last[i])) != kInvalid[i]) return false;
    return tail.size() == 7 || tail[tail.size() - 8] == '.';
}

// The first IPv4 address of a host name, in network byte order. Names that
// cannot be names are answered without asking the resolver: one with a NUL
// inside (the resolver would read only the part before it), one too long
// for DNS, and names under the reserved top-level domain "invalid", which
// never resolve and must not cause a query.
bool LookUpHost(const std::string &name, in_addr *address) {
    if (name.find('\0') != std::string::npos || name.size() > kMaxHostName) return false;
    if (EndsWithInvalidLabel(name)) return false;
    const hostent *entry = gethostbyname(name.c_str());
    if (!entry || entry->h_addrtype != AF_INET || entry->h_length != sizeof(in_addr) ||
        !entry->h_addr_list || !entry->h_addr_list[0])
        return false;
    // Per-thread storage of Windows Sockets: copied out at once.
    *address = *reinterpret_cast<const in_addr *>(entry->h_addr_list[0]);
    return true;
}

// inet_addr of the text; a NUL inside makes it unparsable like any other
// text inet_addr refuses.
unsigned long ParseAddress(const std::string &text) {
    if (text.find('\0') != std::string::npos) return INADDR_NONE;
    return inet_addr(text.c_str());
}

ScopedBstr EmptyBstr() { return ScopedBstr(SysAllocStringLen(L"", 0)); }

// The host itself, or a plain host name that is hostdom's first label.
bool LocalHostOrDomainMatches(const std::wstring &host, const std::wstring &hostdom) {
    if (host == hostdom) return true;
    if (host.find(L'.') != std::wstring::npos) return false;
    const size_t dot = hostdom.find(L'.');
    return dot != std::wstring::npos && host.size() == dot && hostdom.compare(0, dot, host) == 0;
}

// A call as the compatibility report shows it: name("arg", "arg").
std::string CallText(const char *name, std::initializer_list<BSTR> args) {
    std::string text = std::string(name) + "(";
    const char *separator = "";
    for (BSTR arg : args) {
        text += separator + ("\"" + NarrowFromBstr(arg) + "\"");
        separator = ", ";
    }
    return text + ")";
}

std::wstring Lower(std::wstring text) {
    for (wchar_t &c : text) c = static_cast<wchar_t>(towlower(c));
    return text;
}

// Whether inet_addr would refuse the text, which this library then uses
// as all ones where other runtimes refuse the call.
bool Unparsable(const std::string &text) {
    return ParseAddress(text) == INADDR_NONE && text != "255.255.255.255";
}

}  // namespace

STDMETHODIMP FindProxyForURL::isPlainHostname(BSTR hostname, VARIANT_BOOL *isplain) {
    if (!isplain) return E_POINTER;
    *isplain = VARIANT_FALSE;
    return GuardedCall("FindProxyForURL::isPlainHostname", S_OK, [&]() -> HRESULT {
        tracefunc tf(__LINE__, "FindProxyForURL", "FindProxyForURL::isPlainHostname");
        // Scripts call this once per rule: the name is converted only when
        // the trace keeps it.
        if (tf.enabled()) tf << "hostname=" << NarrowFromBstr(hostname);
        tf << endtrace;
        if (!hostname || !wmemchr(hostname, L'.', SysStringLen(hostname))) *isplain = VARIANT_TRUE;
        return S_OK;
    });
}

STDMETHODIMP FindProxyForURL::dnsDomainIs(BSTR hostText, BSTR domainText, VARIANT_BOOL *ret) {
    if (!ret) return E_POINTER;
    *ret = VARIANT_FALSE;
    return GuardedCall("FindProxyForURL::dnsDomainIs", S_OK, [&]() -> HRESULT {
        const std::wstring host = WideFromBstr(hostText);
        std::wstring domain = WideFromBstr(domainText);
        // The domain is written with its leading dot, ".example.com".
        if (!host.empty() && !domain.empty() && domain[0] != L'.') {
            if (observed())
                Note(CallText("dnsDomainIs", {hostText, domainText}) +
                     ": the domain has no leading dot, so it never matches here");
            return S_OK;
        }
        if (!host.empty() && host[0] == L'.') return S_OK;
        if (!domain.empty() && domain[0] == L'.') domain.erase(0, 1);
        // Only what follows one of the host's dots is compared, on whole
        // labels; the host itself never is.
        for (size_t dot = host.find(L'.'); dot != std::wstring::npos;
             dot = host.find(L'.', dot + 1)) {
            const size_t tail = dot + 1;
            if (host.size() - tail == domain.size() &&
                host.compare(tail, std::wstring::npos, domain) == 0) {
                *ret = VARIANT_TRUE;
                break;
            }
        }
        return S_OK;
    });
}

STDMETHODIMP FindProxyForURL::localHostOrDomainIs(BSTR hostText, BSTR hostdomText,
                                                  VARIANT_BOOL *ret) {
    if (!ret) return E_POINTER;
    *ret = VARIANT_FALSE;
    return GuardedCall("FindProxyForURL::localHostOrDomainIs", S_OK, [&]() -> HRESULT {
        const std::wstring host = WideFromBstr(hostText);
        const std::wstring hostdom = WideFromBstr(hostdomText);
        if (LocalHostOrDomainMatches(host, hostdom)) {
            *ret = VARIANT_TRUE;
        } else if (observed() && LocalHostOrDomainMatches(Lower(host), Lower(hostdom))) {
            // Only the letter case stood between the two.
            Note(CallText("localHostOrDomainIs", {hostText, hostdomText}) +
                 ": compared with the letter case, so false here");
        }
        return S_OK;
    });
}

STDMETHODIMP FindProxyForURL::isResolvable(BSTR host, VARIANT_BOOL *ret) {
    if (!ret) return E_POINTER;
    *ret = VARIANT_FALSE;
    return GuardedCall("FindProxyForURL::isResolvable", S_OK, [&]() -> HRESULT {
        in_addr address;
        if (LookUpHost(NarrowFromBstr(host), &address)) *ret = VARIANT_TRUE;
        return S_OK;
    });
}

STDMETHODIMP FindProxyForURL::isInNet(BSTR hostText, BSTR patternText, BSTR maskText,
                                      VARIANT_BOOL *ret) {
    if (!ret) return E_POINTER;
    *ret = VARIANT_FALSE;
    return GuardedCall("FindProxyForURL::isInNet", S_OK, [&]() -> HRESULT {
        // Unchecked on purpose: an unparsable pattern or mask is all ones.
        const unsigned long pattern = ParseAddress(NarrowFromBstr(patternText));
        const unsigned long mask = ParseAddress(NarrowFromBstr(maskText));
        const std::wstring wideHost = WideFromBstr(hostText);
        const std::string host = NarrowFromBstr(hostText);
        if (observed()) NoteIsInNetReading(hostText, patternText, maskText);
        unsigned long address = 0;
        if (wideHost.empty() || wideHost[0] < L'0' || wideHost[0] > L'9') {
            in_addr found;
            if (!LookUpHost(host, &found)) return S_OK;
            address = found.s_addr;
        } else {
            // A leading digit means a dotted address: no look-up, so
            // "1host.example" is all ones rather than a name.
            address = ParseAddress(host);
        }
        if (address == 0) return S_OK;
        if ((address & mask) == (pattern & mask)) *ret = VARIANT_TRUE;
        return S_OK;
    });
}

void FindProxyForURL::NoteIsInNetReading(BSTR hostText, BSTR patternText, BSTR maskText) const {
    const std::string call = CallText("isInNet", {hostText, patternText, maskText});
    const std::string host = NarrowFromBstr(hostText);
    if (!host.empty() && host[0] >= '0' && host[0] <= '9' && Unparsable(host))
        Note(call + ": a host beginning with a digit is taken as an address without a look-up; "
                    "this one is no address and is used as 255.255.255.255");
    if (Unparsable(NarrowFromBstr(patternText)))
        Note(call + ": the pattern is no address and is used as 255.255.255.255");
    if (Unparsable(NarrowFromBstr(maskText)))
        Note(call + ": the mask is no address and is used as 255.255.255.255");
}

STDMETHODIMP FindProxyForURL::dnsResolve(BSTR host, BSTR *ret) {
    if (!ret) return E_POINTER;
    *ret = nullptr;
    return GuardedCall("FindProxyForURL::dnsResolve", S_OK, [&]() -> HRESULT {
        ScopedBstr answer;
        in_addr address;
        if (LookUpHost(NarrowFromBstr(host), &address))
            answer = BstrFromNarrow(inet_ntoa(address));
        else
            answer = EmptyBstr();
        *ret = answer.release();
        return S_OK;
    });
}

STDMETHODIMP FindProxyForURL::myIpAddress(BSTR *ipaddr) {
    if (!ipaddr) return E_POINTER;
    *ipaddr = nullptr;
    return GuardedCall("FindProxyForURL::myIpAddress", S_OK, [&]() -> HRESULT {
        char name[256];
        if (gethostname(name, sizeof name) == SOCKET_ERROR) {
            *ipaddr = EmptyBstr().release();
            return S_OK;
        }
        name[sizeof name - 1] = '\0';
        // Through the interface slot, as a script's own call would go.
        ScopedBstr wideName = BstrFromNarrow(name);
        static_cast<IFindProxyForUrl *>(this)->dnsResolve(wideName.get(), ipaddr);
        return S_OK;
    });
}

STDMETHODIMP FindProxyForURL::dnsDomainLevels(BSTR host, int *ret) {
    if (!ret) return E_POINTER;
    *ret = 0;
    return GuardedCall("FindProxyForURL::dnsDomainLevels", S_OK, [&]() -> HRESULT {
        int dots = 0;
        for (const wchar_t c : WideFromBstr(host))
            if (c == L'.') ++dots;
        *ret = dots;
        return S_OK;
    });
}
