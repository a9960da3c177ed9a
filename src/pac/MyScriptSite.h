// The host's side of the JScript engine: hands the PAC helper object to the
// engine as the item "GlobalMethods" and collects the text of script errors.
#pragma once

#include <windows.h>
#include <activscp.h>

#include <string>

#include "PacHelperTypeLib.h"
#include "com/COvrenaUnknown.h"
#include "util/ComOwners.h"

class MyScriptSite : public COvrenaUnknown<IActiveScriptSite, &IID_IActiveScriptSite> {
public:
    // Creates the PAC helper object the engine will see.
    MyScriptSite();
    // Serves another helper object under the same item (a stand-in with
    // the same interface, for measuring the helper's own cost).
    explicit MyScriptSite(IFindProxyForUrl *helper);

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
