// IDispatch over the library's own type library, and the class-information
// interfaces, for the dual interfaces of objects the library hands to
// script engines. Calls are answered by the type information's own dispatch
// machinery, which coerces the arguments, fills in declared defaults and
// calls the interface method in the matching virtual slot.
#pragma once

#include <windows.h>
#include <oaidl.h>
#include <ocidl.h>

#include "com/COvrenaUnknown.h"
#include "util/ComOwners.h"

template <class I, const CLSID *pclsid, const IID *piid, const GUID *plibid>
class COvrenaDispatch : public COvrenaUnknown<I, piid>, public IProvideClassInfo2 {
    using Base = COvrenaUnknown<I, piid>;

public:
    COvrenaDispatch() {
        // No failure escapes: without type information the object still
        // exists and every dispatch call answers TYPE_E_ELEMENTNOTFOUND.
        try {
            char path[512];
            if (ModuleFileName(path, sizeof path)) {
                wchar_t widePath[512];
                if (MultiByteToWideChar(CP_ACP, 0, path, -1, widePath, 512) > 0) {
                    ScopedBstr file(SysAllocString(widePath));
                    ITypeLib *lib = nullptr;
                    if (file.get() && SUCCEEDED(LoadTypeLib(file.get(), &lib)))
                        typeLib_ = ComPtr<ITypeLib>::Adopt(lib);
                }
            }
            // The registered copy serves a build whose file lacks the
            // resource.
            ITypeLib *registered = nullptr;
            if (!typeLib_ && SUCCEEDED(LoadRegTypeLib(*plibid, 1, 0, 0, &registered)))
                typeLib_ = ComPtr<ITypeLib>::Adopt(registered);
            ITypeInfo *info = nullptr;
            if (typeLib_ && SUCCEEDED(typeLib_->GetTypeInfoOfGuid(*piid, &info)))
                typeInfo_ = ComPtr<ITypeInfo>::Adopt(info);
        } catch (...) {
        }
    }

    // IUnknown, one implementation behind all three interface tables.
    STDMETHODIMP QueryInterface(REFIID iid, void **out) override {
        const HRESULT hr = Base::QueryInterface(iid, out);
        if (hr != E_NOINTERFACE) return hr;
        if (IsEqualIID(iid, IID_IDispatch))
            *out = static_cast<I *>(this);
        else if (IsEqualIID(iid, IID_IProvideClassInfo) || IsEqualIID(iid, IID_IProvideClassInfo2))
            *out = static_cast<IProvideClassInfo2 *>(this);
        else
            return E_NOINTERFACE;
        AddRef();
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return Base::AddRef(); }
    STDMETHODIMP_(ULONG) Release() override { return Base::Release(); }

    // IDispatch.
    STDMETHODIMP GetTypeInfoCount(UINT *count) override {
        if (!count) return E_POINTER;
        *count = typeInfo_ ? 1 : 0;
        return S_OK;
    }

    STDMETHODIMP GetTypeInfo(UINT index, LCID, ITypeInfo **info) override {
        if (!info) return E_POINTER;
        *info = nullptr;
        if (index != 0) return DISP_E_BADINDEX;
        if (!typeInfo_) return TYPE_E_ELEMENTNOTFOUND;
        typeInfo_->AddRef();
        *info = typeInfo_.get();
        return S_OK;
    }

    STDMETHODIMP GetIDsOfNames(REFIID iid, LPOLESTR *names, UINT count, LCID,
                               DISPID *ids) override {
        if (!IsEqualIID(iid, IID_NULL)) return DISP_E_UNKNOWNINTERFACE;
        if (!typeInfo_) return TYPE_E_ELEMENTNOTFOUND;
        return typeInfo_->GetIDsOfNames(names, count, ids);
    }

    STDMETHODIMP Invoke(DISPID id, REFIID iid, LCID, WORD flags, DISPPARAMS *params,
                        VARIANT *result, EXCEPINFO *exception, UINT *argError) override {
        if (!IsEqualIID(iid, IID_NULL)) return DISP_E_UNKNOWNINTERFACE;
        if (!typeInfo_) return TYPE_E_ELEMENTNOTFOUND;
        SetErrorInfo(0, nullptr);
        return typeInfo_->Invoke(static_cast<I *>(this), id, flags, params, result, exception,
                                 argError);
    }

    // IProvideClassInfo2.
    STDMETHODIMP GetClassInfo(ITypeInfo **info) override {
        if (!info) return E_POINTER;
        *info = nullptr;
        if (!typeLib_) return TYPE_E_ELEMENTNOTFOUND;
        return typeLib_->GetTypeInfoOfGuid(*pclsid, info);
    }

    STDMETHODIMP GetGUID(DWORD kind, GUID *guid) override {
        if (kind != GUIDKIND_DEFAULT_SOURCE_DISP_IID) return E_INVALIDARG;
        if (!guid) return E_POINTER;
        if (!sourceIid_) return E_FAIL;
        *guid = *sourceIid_;
        return S_OK;
    }

private:
    ComPtr<ITypeInfo> typeInfo_;
    ComPtr<ITypeLib> typeLib_;
    // The default source interface; null for classes without events.
    const GUID *sourceIid_ = nullptr;
};
