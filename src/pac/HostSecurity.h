// The host's answer to every question a script engine asks about what a
// script may do: no. PAC scripts arrive over the network from whoever
// answers DHCP or owns a wpad name, so they get nothing beyond the language
// and the PAC helper functions: no ActiveX object, no file, no request of
// their own.
#pragma once

#include <windows.h>
#include <objsafe.h>
#include <urlmon.h>

#include "com/COvrenaUnknown.h"

class HostSecurityManager
    : public COvrenaUnknown<IInternetHostSecurityManager, &IID_IInternetHostSecurityManager> {
public:
    STDMETHODIMP GetSecurityId(BYTE *id, DWORD *size, DWORD_PTR reserved) override;
    // Both write URLPOLICY_DISALLOW for every action and answer S_FALSE,
    // the answer of a policy that is not "allow".
    STDMETHODIMP ProcessUrlAction(DWORD action, BYTE *policy, DWORD policySize, BYTE *context,
                                  DWORD contextSize, DWORD flags, DWORD reserved) override;
    STDMETHODIMP QueryCustomPolicy(REFGUID key, BYTE **policy, DWORD *policySize,
                                   BYTE *context, DWORD contextSize, DWORD reserved) override;
};

// The options an engine is given before it is initialised: untrusted data,
// its callers' IDispatchEx, and the host's security manager for every
// object a script asks for. Set later than InitNew the engine takes them
// and reads them back, but blocks nothing.
const DWORD kUntrustedScriptOptions =
    INTERFACESAFE_FOR_UNTRUSTED_DATA | INTERFACE_USES_DISPEX | INTERFACE_USES_SECURITY_MANAGER;
