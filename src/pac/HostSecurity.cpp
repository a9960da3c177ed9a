#include "pac/HostSecurity.h"

#include <objbase.h>

STDMETHODIMP HostSecurityManager::GetSecurityId(BYTE *, DWORD *, DWORD_PTR) { return E_NOTIMPL; }

STDMETHODIMP HostSecurityManager::ProcessUrlAction(DWORD, BYTE *policy, DWORD policySize, BYTE *,
                                                   DWORD, DWORD, DWORD) {
    if (policy && policySize >= sizeof(DWORD)) {
        const DWORD disallow = URLPOLICY_DISALLOW;
        CopyMemory(policy, &disallow, sizeof disallow);
    }
    return S_FALSE;
}

STDMETHODIMP HostSecurityManager::QueryCustomPolicy(REFGUID, BYTE **policy, DWORD *policySize,
                                                    BYTE *, DWORD, DWORD) {
    if (!policy || !policySize) return E_POINTER;
    *policy = nullptr;
    *policySize = 0;
    // The caller frees the policy with CoTaskMemFree.
    auto *answer = static_cast<DWORD *>(CoTaskMemAlloc(sizeof(DWORD)));
    if (!answer) return E_OUTOFMEMORY;
    *answer = URLPOLICY_DISALLOW;
    *policy = reinterpret_cast<BYTE *>(answer);
    *policySize = sizeof(DWORD);
    return S_FALSE;
}
