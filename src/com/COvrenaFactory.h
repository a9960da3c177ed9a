// The class object template; the module serves one creatable class.
#pragma once

#include <new>

#include "com/COvrenaUnknown.h"
#include "com/ComGuard.h"
#include "util/ComOwners.h"

class COvrenaFactoryBase {};

template <class T>
class COvrenaFactory : public COvrenaUnknown<IClassFactory, &IID_IClassFactory>,
                       private COvrenaFactoryBase {
public:
    STDMETHODIMP CreateInstance(IUnknown *outer, REFIID iid, void **out) override {
        if (out) *out = nullptr;
        if (outer) return CLASS_E_NOAGGREGATION;
        return GuardedCall("COvrenaFactory::CreateInstance", E_OUTOFMEMORY, [&] {
            T *object = new (std::nothrow) T();
            if (!object) return E_OUTOFMEMORY;
            // The object starts at count 0: the caller's pointer is its only
            // reference, and a refused interface must not leave it alive.
            const ComPtr<T> held = ComPtr<T>::Share(object);
            return held->QueryInterface(iid, out);
        });
    }

    STDMETHODIMP LockServer(BOOL lock) override {
        ModuleLockServer(lock != FALSE);
        return S_OK;
    }
};
