// The PAC helper object: the standard PAC helper functions, which scripts
// call as global functions through the item "GlobalMethods". Every call
// arrives through the type library's dispatch machinery; no method ever
// fails towards the script, it answers false, 0 or an empty string.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include "PacHelperTypeLib.h"
#include "com/COvrenaDispatch.h"
#include "pac/EvaluationObserver.h"
#include "util/Owners.h"

class FindProxyForURL : public COvrenaDispatch<IFindProxyForUrl, &CLSID_FindProxyForUrl,
                                               &IID_IFindProxyForUrl, &LIBID_FindProxyForUrl> {
public:
    // The observer, when given, hears of calls a script for another runtime
    // may not expect (see EvaluationObserver); it must outlive the object.
    explicit FindProxyForURL(EvaluationObserver *observer = nullptr);

    // A name the object does not have fails as always; the observer hears
    // of the functions other runtimes have and this one does not.
    STDMETHODIMP GetIDsOfNames(REFIID iid, LPOLESTR *names, UINT count, LCID lcid,
                               DISPID *ids) override;

    // Host and address functions.
    STDMETHODIMP isPlainHostname(BSTR hostname, VARIANT_BOOL *isplain) override;
    STDMETHODIMP dnsDomainIs(BSTR host, BSTR domain, VARIANT_BOOL *ret) override;
    STDMETHODIMP localHostOrDomainIs(BSTR host, BSTR hostdom, VARIANT_BOOL *ret) override;
    STDMETHODIMP isResolvable(BSTR host, VARIANT_BOOL *ret) override;
    STDMETHODIMP isInNet(BSTR host, BSTR pattern, BSTR mask, VARIANT_BOOL *ret) override;
    STDMETHODIMP dnsResolve(BSTR host, BSTR *ret) override;
    STDMETHODIMP myIpAddress(BSTR *ipaddr) override;
    STDMETHODIMP dnsDomainLevels(BSTR host, int *ret) override;

    // Shell-expression matching.
    STDMETHODIMP shExpMatch(BSTR str, BSTR shexp, VARIANT_BOOL *ret) override;

    // Time and date functions.
    STDMETHODIMP weekdayRange(BSTR wd1, BSTR wd2, BSTR gmt, VARIANT_BOOL *ret) override;
    STDMETHODIMP dateRange(VARIANT p1, VARIANT p2, VARIANT p3, VARIANT p4, VARIANT p5, VARIANT p6,
                           VARIANT gmt, VARIANT_BOOL *ret) override;
    STDMETHODIMP timeRange(VARIANT p1, VARIANT p2, VARIANT p3, VARIANT p4, VARIANT p5, VARIANT p6,
                           VARIANT gmt, VARIANT_BOOL *ret) override;

    // A trace line "alert: " + the message at level 0; any value, shown as
    // text.
    STDMETHODIMP alert(VARIANT message) override;

protected:
    // Tells the observer, if any; observed() says whether there is one, so
    // that nothing is worded for nobody.
    void Note(const std::string &text) const;
    bool observed() const { return observer_ != nullptr; }

private:
    // Tells the observer where isInNet reads its text unlike other runtimes.
    void NoteIsInNetReading(BSTR host, BSTR pattern, BSTR mask) const;

    EvaluationObserver *observer_ = nullptr;
    // Windows Sockets for the object's lifetime; without them the object
    // still serves the functions that need no sockets.
    WinsockSession sockets_;
};
