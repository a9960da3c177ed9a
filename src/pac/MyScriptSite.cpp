#include "pac/MyScriptSite.h"

#include <cstdio>
#include <cwchar>
#include <new>

#include "pac/FindProxyForURL.h"
#include "pac/HostSecurity.h"

namespace {

const wchar_t kGlobalMethods[] = L"GlobalMethods";

// An engine may hand over an EXCEPINFO whose texts are filled in only on
// request. The callback fills the struct in place, so it works on the
// struct handed over by the owner, which then takes it back.
void FillInDeferred(ScopedExcepInfo &exception) {
    if (!exception.get().pfnDeferredFillIn) return;
    EXCEPINFO filled = exception.release();
    filled.pfnDeferredFillIn(&filled);
    exception.reset(filled);
}

}  // namespace

MyScriptSite::MyScriptSite(EvaluationObserver *observer) {
    // The site holds the helper's first reference; the engine adds its own.
    helper_ = ComPtr<IFindProxyForUrl>::Share(new FindProxyForURL(observer));
}

MyScriptSite::MyScriptSite(IFindProxyForUrl *helper)
    : helper_(ComPtr<IFindProxyForUrl>::Share(helper)) {}

STDMETHODIMP MyScriptSite::QueryInterface(REFIID iid, void **out) {
    const HRESULT hr = Base::QueryInterface(iid, out);
    if (hr != E_NOINTERFACE) return hr;
    if (!IsEqualIID(iid, IID_IServiceProvider)) return E_NOINTERFACE;
    *out = static_cast<IServiceProvider *>(this);
    AddRef();
    return S_OK;
}

STDMETHODIMP MyScriptSite::QueryService(REFGUID service, REFIID iid, void **out) {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (!IsEqualGUID(service, SID_SInternetHostSecurityManager)) return E_NOINTERFACE;
    // A fresh manager per question: it holds no state, and the engine keeps
    // what it asked for as long as it likes.
    auto *manager = new (std::nothrow) HostSecurityManager();
    if (!manager) return E_OUTOFMEMORY;
    const auto held = ComPtr<HostSecurityManager>::Share(manager);
    return held->QueryInterface(iid, out);
}

STDMETHODIMP MyScriptSite::GetLCID(LCID *) { return E_NOTIMPL; }

STDMETHODIMP MyScriptSite::GetItemInfo(LPCOLESTR name, DWORD returnMask, IUnknown **itemOut,
                                       ITypeInfo **typeInfoOut) {
    if (itemOut) *itemOut = nullptr;
    if (typeInfoOut) *typeInfoOut = nullptr;
    // The one item the host adds; the name is matched exactly, case included.
    if (!name || std::wcscmp(name, kGlobalMethods) != 0) return TYPE_E_ELEMENTNOTFOUND;
    ComPtr<IUnknown> item;
    if (returnMask & SCRIPTINFO_IUNKNOWN) {
        if (!itemOut || !helper_) return E_POINTER;
        item = ComPtr<IUnknown>::Share(helper_.get());
    }
    if (returnMask & SCRIPTINFO_ITYPEINFO) {
        ComPtr<IProvideClassInfo> classInfo;
        if (!typeInfoOut || !helper_ ||
            FAILED(helper_->QueryInterface(IID_IProvideClassInfo, classInfo.outVoid())) ||
            FAILED(classInfo->GetClassInfo(typeInfoOut)))
            return TYPE_E_ELEMENTNOTFOUND;
    }
    if (item) *itemOut = item.detach();
    return S_OK;
}

STDMETHODIMP MyScriptSite::GetDocVersionString(BSTR *) { return E_NOTIMPL; }

STDMETHODIMP MyScriptSite::OnScriptTerminate(const VARIANT *, const EXCEPINFO *) { return S_OK; }

STDMETHODIMP MyScriptSite::OnStateChange(SCRIPTSTATE) { return S_OK; }

STDMETHODIMP MyScriptSite::OnScriptError(IActiveScriptError *error) {
    if (!error) return S_OK;
    try {
        ScopedExcepInfo exception;
        if (SUCCEEDED(error->GetExceptionInfo(exception.out()))) {
            FillInDeferred(exception);
            errorText_ += "Source:  " + NarrowFromBstr(exception.get().bstrSource) + "\r\n";
            errorText_ += "Description:  " + NarrowFromBstr(exception.get().bstrDescription) + "\r\n";
        }
        DWORD context = 0;
        ULONG line = 0;
        LONG position = 0;
        if (SUCCEEDED(error->GetSourcePosition(&context, &line, &position))) {
            char number[32];
            std::snprintf(number, sizeof number, "%d", static_cast<int>(line));
            errorText_ += std::string("Line:  ") + number + "\r\n";
            std::snprintf(number, sizeof number, "%d", static_cast<int>(position));
            errorText_ += std::string("Position:  ") + number + "\r\n";
        }
    } catch (...) {
        // The report is lost, the engine's own error handling goes on.
    }
    return S_OK;
}

STDMETHODIMP MyScriptSite::OnEnterScript() {
    errorText_.clear();
    return S_OK;
}

STDMETHODIMP MyScriptSite::OnLeaveScript() { return S_OK; }
