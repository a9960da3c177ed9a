// The host's side of the JScript engine: hands the PAC helper object to the
// engine as the item "GlobalMethods", collects the text of script errors,
// and serves the host security manager that refuses scripts every object
// and action (IServiceProvider).
#pragma once

#include <windows.h>
#include <activscp.h>
#include <servprov.h>

#include <string>

#include "PacHelperTypeLib.h"
#include "com/COvrenaUnknown.h"
#include "pac/EvaluationObserver.h"
#include "util/ComOwners.h"

class MyScriptSite : public COvrenaUnknown<IActiveScriptSite, &IID_IActiveScriptSite>,
                     public IServiceProvider {
    using Base = COvrenaUnknown<IActiveScriptSite, &IID_IActiveScriptSite>;

public:
    // Creates the PAC helper object the engine will see, telling the
    // observer (if any) what a compatibility report lists.
    explicit MyScriptSite(EvaluationObserver *observer = nullptr);
    // Serves another helper object under the same item (a stand-in with
    // the same interface, for measuring the helper's own cost).
    explicit MyScriptSite(IFindProxyForUrl *helper);

    // IUnknown, one implementation behind both interface tables.
    STDMETHODIMP QueryInterface(REFIID iid, void **out) override;
    STDMETHODIMP_(ULONG) AddRef() override { return Base::AddRef(); }
    STDMETHODIMP_(ULONG) Release() override { return Base::Release(); }

    // IServiceProvider: only SID_SInternetHostSecurityManager.
    STDMETHODIMP QueryService(REFGUID service, REFIID iid, void **out) override;

    STDMETHODIMP GetLCID(LCID *lcid) override;
    STDMETHODIMP GetItemInfo(LPCOLESTR name, DWORD returnMask, IUnknown **itemOut,
                             ITypeInfo **typeInfoOut) override;
    STDMETHODIMP GetDocVersionString(BSTR *version) override;
    STDMETHODIMP OnScriptTerminate(const VARIANT *result, const EXCEPINFO *exception) override;
    STDMETHODIMP OnStateChange(SCRIPTSTATE state) override;
    STDMETHODIMP OnScriptError(IActiveScriptError *error) override;
    STDMETHODIMP OnEnterScript() override;
    STDMETHODIMP OnLeaveScript() override;

    // The errors reported since the engine last entered the script.
    const std::string &errorText() const { return errorText_; }

private:
    std::string errorText_;
    ComPtr<IFindProxyForUrl> helper_;
};
