// A PAC helper object whose methods do nothing: the same interface, type
// information and dispatch path as the real one, so that an evaluation
// with it costs the script engine and the dispatch alone. Every method
// answers false, 0, "" or nothing through one of the answer functions
// below, which also count the calls; a method added to the interface gets
// a line of the same form.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include "PacHelperTypeLib.h"
#include "com/COvrenaDispatch.h"

class NullHelper : public COvrenaDispatch<IFindProxyForUrl, &CLSID_FindProxyForUrl,
                                          &IID_IFindProxyForUrl, &LIBID_FindProxyForUrl> {
public:
    STDMETHODIMP isPlainHostname(BSTR, VARIANT_BOOL *r) override { return False(r); }
    STDMETHODIMP dnsDomainIs(BSTR, BSTR, VARIANT_BOOL *r) override { return False(r); }
    STDMETHODIMP localHostOrDomainIs(BSTR, BSTR, VARIANT_BOOL *r) override { return False(r); }
    STDMETHODIMP isResolvable(BSTR, VARIANT_BOOL *r) override { return False(r); }
    STDMETHODIMP isInNet(BSTR, BSTR, BSTR, VARIANT_BOOL *r) override { return False(r); }
    STDMETHODIMP dnsResolve(BSTR, BSTR *r) override { return Empty(r); }
    STDMETHODIMP myIpAddress(BSTR *r) override { return Empty(r); }
    STDMETHODIMP dnsDomainLevels(BSTR, int *r) override { return Zero(r); }
    STDMETHODIMP shExpMatch(BSTR, BSTR, VARIANT_BOOL *r) override { return False(r); }
    STDMETHODIMP weekdayRange(BSTR, BSTR, BSTR, VARIANT_BOOL *r) override { return False(r); }
    STDMETHODIMP dateRange(VARIANT, VARIANT, VARIANT, VARIANT, VARIANT, VARIANT, VARIANT,
                           VARIANT_BOOL *r) override {
        return False(r);
    }
    STDMETHODIMP timeRange(VARIANT, VARIANT, VARIANT, VARIANT, VARIANT, VARIANT, VARIANT,
                           VARIANT_BOOL *r) override {
        return False(r);
    }

    STDMETHODIMP alert(VARIANT) override { return Nothing(); }

    // The helper calls this object has answered.
    long long calls() const { return calls_; }

private:
    HRESULT False(VARIANT_BOOL *r) {
        ++calls_;
        *r = VARIANT_FALSE;
        return S_OK;
    }
    HRESULT Zero(int *r) {
        ++calls_;
        *r = 0;
        return S_OK;
    }
    HRESULT Empty(BSTR *r) {
        ++calls_;
        *r = SysAllocStringLen(L"", 0);
        return S_OK;
    }
    // For a method that answers nothing.
    HRESULT Nothing() {
        ++calls_;
        return S_OK;
    }

    long long calls_ = 0;
};
