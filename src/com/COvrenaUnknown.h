// Identity and reference counting shared by every COM object of the library.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <atomic>

#include "com/Module.h"

template <class I, const IID *piid>
class COvrenaUnknown : public I, public ISupportErrorInfo {
public:
    COvrenaUnknown() { ModuleObjectCreated(); }
    virtual ~COvrenaUnknown() { ModuleObjectDestroyed(); }
    COvrenaUnknown(const COvrenaUnknown &) = delete;
    COvrenaUnknown &operator=(const COvrenaUnknown &) = delete;

    STDMETHODIMP QueryInterface(REFIID iid, void **out) override {
        if (!out) return E_POINTER;
        *out = nullptr;
        if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, *piid))
            *out = static_cast<I *>(this);
        else if (IsEqualIID(iid, IID_ISupportErrorInfo))
            *out = static_cast<ISupportErrorInfo *>(this);
        else
            return E_NOINTERFACE;
        static_cast<IUnknown *>(*out)->AddRef();
        return S_OK;
    }

    STDMETHODIMP_(ULONG) AddRef() override { return ++refCount_; }

    STDMETHODIMP_(ULONG) Release() override {
        const ULONG count = --refCount_;
        if (count == 0) delete this;
        return count;
    }

    STDMETHODIMP InterfaceSupportsErrorInfo(REFIID iid) override {
        return IsEqualIID(iid, *piid) ? S_OK : S_FALSE;
    }

private:
    std::atomic<ULONG> refCount_{0};
};
