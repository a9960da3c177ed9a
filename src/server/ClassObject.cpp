// The class object of the resolver and the unload test of the library.
#include <windows.h>

#include <new>

#include "com/COvrenaFactory.h"
#include "com/ComGuard.h"
#include "com/Module.h"
#include "resolver/Routvane.h"
#include "util/ComOwners.h"

STDAPI DllGetClassObject(REFCLSID clsid, REFIID iid, LPVOID *out) {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (!IsEqualCLSID(clsid, CLSID_Routvane)) return CLASS_E_CLASSNOTAVAILABLE;
    return GuardedCall("DllGetClassObject", E_OUTOFMEMORY, [&] {
        // A fresh class object for every call; a refused interface destroys
        // it again through the final Release.
        auto *factory = new (std::nothrow) COvrenaFactory<Routvane>();
        if (!factory) return E_OUTOFMEMORY;
        const auto held = ComPtr<COvrenaFactory<Routvane>>::Share(factory);
        return held->QueryInterface(iid, out);
    });
}

STDAPI DllCanUnloadNow() {
    if (ModuleObjectCount() != 0) return S_FALSE;
    if (ModuleLockCount() != 0) return S_FALSE;
    return S_OK;
}
