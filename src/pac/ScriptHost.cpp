#include "pac/ScriptHost.h"

#include <objsafe.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <new>

#include "pac/HostSecurity.h"

namespace {

// The JScript engine's published class, and the 64-bit parse interface,
// which mingw's uuid library lacks.
const CLSID kClsidJScript = {
    0xf414c260, 0x6ac0, 0x11cf, {0xb6, 0xd1, 0x00, 0xaa, 0x00, 0xbb, 0xbb, 0x58}};
const IID kIidActiveScriptParse64 = {
    0xc7ef7658, 0xe1ee, 0x480e, {0x97, 0xea, 0xd5, 0x2c, 0xb4, 0xd7, 0x6d, 0x17}};

const LCID kLocale = LOCALE_SYSTEM_DEFAULT;

HRESULT RestrictToUntrusted(IUnknown *engine) {
    ComPtr<IObjectSafety> safety;
    HRESULT hr = engine->QueryInterface(IID_IObjectSafety, safety.outVoid());
    if (SUCCEEDED(hr))
        hr = safety->SetInterfaceSafetyOptions(IID_IActiveScript, kUntrustedScriptOptions,
                                               kUntrustedScriptOptions);
    return hr;
}
const unsigned kMaxArguments = 32;

}  // namespace

ScriptHost::ScriptHost(EvaluationObserver *observer) {
    MyScriptSite *site = nullptr;
    try {
        site = new MyScriptSite(observer);
    } catch (...) {
        site = nullptr;
    }
    Connect(site);
}

ScriptHost::ScriptHost(IFindProxyForUrl *helper) {
    MyScriptSite *site = nullptr;
    try {
        site = new MyScriptSite(helper);
    } catch (...) {
        site = nullptr;
    }
    Connect(site);
}

void ScriptHost::Connect(MyScriptSite *site) {
    // The site is taken over first so that every early return below still
    // frees it.
    site_ = ComPtr<MyScriptSite>::Share(site);
    status_ = CoCreateInstance(kClsidJScript, nullptr, CLSCTX_ALL, kIidActiveScriptParse64,
                               parser_.outVoid());
    if (SUCCEEDED(status_)) status_ = parser_->QueryInterface(IID_IActiveScript, engine_.outVoid());
    // The script is untrusted: the engine must know before InitNew, or it
    // takes the options and still lets scripts create objects.
    if (SUCCEEDED(status_)) status_ = RestrictToUntrusted(parser_.get());
    // The engine is initialised before its site is set, on purpose.
    if (SUCCEEDED(status_)) status_ = parser_->InitNew();
    if (SUCCEEDED(status_) && !site_) status_ = E_FAIL;
    if (SUCCEEDED(status_)) status_ = engine_->SetScriptSite(site_.get());
    if (SUCCEEDED(status_))
        status_ = engine_->AddNamedItem(L"GlobalMethods",
                                        SCRIPTITEM_ISVISIBLE | SCRIPTITEM_GLOBALMEMBERS);
    if (FAILED(status_)) {
        parser_.reset();
        engine_.reset();
        site_.reset();
    }
}

ScriptHost::~ScriptHost() {
    // Not closed with IActiveScript::Close: the last release ends the
    // engine. Parser, engine, site, in that order.
    parser_.reset();
    engine_.reset();
    site_.reset();
}

bool ScriptHost::Parse(const std::string &script) {
    if (!parser_) return false;
    try {
        ScopedBstr text = BstrFromNarrow(script);
        ScopedExcepInfo exception;
        // Flags 0: the text becomes ordinary global code, run when the
        // engine is started by ExecuteSSS.
        status_ = parser_->ParseScriptText(text.get(), nullptr, nullptr, nullptr, 0, 0, 0, nullptr,
                                           exception.out());
    } catch (const std::bad_alloc &) {
        status_ = E_OUTOFMEMORY;
    }
    return SUCCEEDED(status_);
}

bool ScriptHost::ExecuteSSS(const std::string &functionName, const std::string &arg1,
                            const std::string &arg2, std::string &result) {
    if (!engine_ || !Start()) return false;
    ComPtr<IDispatch> global;
    status_ = engine_->GetScriptDispatch(nullptr, global.out());
    if (FAILED(status_)) return false;
    if (!global) {
        status_ = E_FAIL;
        return false;
    }
    try {
        return CallWithTwoStrings(global.get(), functionName, arg1, arg2, result);
    } catch (const std::bad_alloc &) {
        status_ = E_OUTOFMEMORY;
        return false;
    }
}

bool ScriptHost::Start() {
    SCRIPTSTATE before = SCRIPTSTATE_UNINITIALIZED;
    if (FAILED(engine_->GetScriptState(&before))) before = SCRIPTSTATE_UNINITIALIZED;
    // Both states are asked for on every call; a started engine takes the
    // repeated requests as no-ops.
    status_ = engine_->SetScriptState(SCRIPTSTATE_STARTED);
    if (FAILED(status_)) return false;
    status_ = engine_->SetScriptState(SCRIPTSTATE_CONNECTED);
    if (FAILED(status_)) return false;
    // Starting runs the script's top-level code. An engine may report a
    // throw there only to the site and still grant the state; the script
    // then stopped half-way and its function's answer cannot be trusted.
    if (before == SCRIPTSTATE_INITIALIZED && site_ && !site_->errorText().empty()) {
        status_ = SCRIPT_E_REPORTED;
        detail_ = site_->errorText();
        return false;
    }
    return true;
}

bool ScriptHost::CallWithTwoStrings(IDispatch *global, const std::string &functionName,
                                    const std::string &arg1, const std::string &arg2,
                                    std::string &result) {
    ScopedBstr name = BstrFromNarrow(functionName);
    LPOLESTR names[] = {name.get()};
    DISPID member = DISPID_UNKNOWN;
    status_ = global->GetIDsOfNames(IID_NULL, names, 1, kLocale, &member);
    if (FAILED(status_)) return false;

    ScopedBstr first = BstrFromNarrow(arg1);
    ScopedBstr second = BstrFromNarrow(arg2);
    ScopedBstr answer;
    std::string errorText;
    const unsigned types[] = {VT_BSTR, VT_BSTR};
    if (InvokeDispatch(global, errorText, member, VT_BSTR, answer.out(), types, 2, first.get(),
                       second.get())) {
        result = NarrowFromBstr(answer.get());
        status_ = S_OK;
        return true;
    }
    status_ = E_FAIL;
    detail_ = errorText;
    // Two line breaks: a blank line between the helper's words and the
    // engine's report, as the evaluation's trace expects.
    const std::string scriptErrors = site_ ? site_->errorText() : std::string();
    if (!scriptErrors.empty()) detail_ += "\r\n\r\n" + scriptErrors;
    return false;
}

HRESULT ScriptHost::InterruptScript() {
    if (!engine_) return E_UNEXPECTED;
    return engine_->InterruptScriptThread(SCRIPTTHREADID_ALL, nullptr, 0);
}

void ScriptHost::GetErrorText(std::string &message, std::string &detail) const {
    message = ErrorMessageText(status_);
    detail = detail_;
}

std::string ErrorMessageText(HRESULT status) {
    char text[512];
    const DWORD length =
        FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                       static_cast<DWORD>(status), 0, text, sizeof text, nullptr);
    std::string message;
    if (length > 0 && length < sizeof text) {
        message.assign(text, length);
        while (!message.empty() && (message.back() == '\n' || message.back() == '\r'))
            message.pop_back();
    }
    if (!message.empty()) return message;
    const uint32_t code = static_cast<uint32_t>(status);
    if (code >= 0x80040200u && code <= 0x8004FFFFu)
        std::snprintf(text, sizeof text, "IDispatch error #%d", static_cast<int>(code - 0x80040200u));
    else
        std::snprintf(text, sizeof text, "Unknown error 0x%0lX", static_cast<unsigned long>(code));
    return text;
}

namespace {

// The arguments in the dispatch convention's order, the last one first;
// false for a type outside the kinds InvokeDispatch passes. The VARIANTs
// borrow the caller's values and are never cleared here.
bool FillArguments(VARIANT *args, const unsigned *argTypes, unsigned argCount, va_list values) {
    for (unsigned i = 0; i < argCount; ++i) {
        const uint64_t slot = va_arg(values, uint64_t);
        VARIANT &arg = args[argCount - 1 - i];
        V_VT(&arg) = static_cast<VARTYPE>(argTypes[i]);
        switch (argTypes[i]) {
        case VT_I4: V_I4(&arg) = static_cast<LONG>(static_cast<uint32_t>(slot)); break;
        case VT_UINT: V_UINT(&arg) = static_cast<UINT>(slot); break;
        case VT_BOOL: V_BOOL(&arg) = static_cast<VARIANT_BOOL>(static_cast<uint16_t>(slot)); break;
        case VT_BSTR: V_BSTR(&arg) = reinterpret_cast<BSTR>(slot); break;
        case VT_DISPATCH: V_DISPATCH(&arg) = reinterpret_cast<IDispatch *>(slot); break;
        case VT_BYREF | VT_BSTR: V_BSTRREF(&arg) = reinterpret_cast<BSTR *>(slot); break;
        case VT_BYREF | VT_BOOL: V_BOOLREF(&arg) = reinterpret_cast<VARIANT_BOOL *>(slot); break;
        case VT_BYREF | VT_UINT: V_UINTREF(&arg) = reinterpret_cast<UINT *>(slot); break;
        default: return false;
        }
    }
    return true;
}

// Hands the target's result over: exactly the type asked for; a BSTR or a
// by-reference pointer becomes the caller's.
bool TakeResult(ScopedVariant &result, VARTYPE resultType, void *resultOut,
                std::string &errorText) {
    if (V_VT(&result.get()) != resultType) {
        errorText = "Invalid return type specified";
        return false;
    }
    switch (resultType) {
    case VT_I4: *static_cast<LONG *>(resultOut) = V_I4(&result.get()); break;
    case VT_BOOL: *static_cast<VARIANT_BOOL *>(resultOut) = V_BOOL(&result.get()); break;
    case VT_BSTR: *static_cast<BSTR *>(resultOut) = result.release().bstrVal; break;
    case VT_BYREF: *static_cast<void **>(resultOut) = result.release().byref; break;
    default: errorText = "Unsupported return type"; return false;
    }
    return true;
}

}  // namespace

bool InvokeDispatch(IDispatch *target, std::string &errorText, DISPID member, VARTYPE resultType,
                    void *resultOut, const unsigned *argTypes, unsigned argCount, ...) {
    if (argCount > kMaxArguments) {
        errorText = "Too many parameters specified (max is 32)";
        return false;
    }
    if (!target || (argCount > 0 && !argTypes)) {
        errorText = "Invoke failed";
        return false;
    }
    VARIANT args[kMaxArguments];
    for (unsigned i = 0; i < argCount; ++i) VariantInit(&args[i]);
    va_list values;
    va_start(values, argCount);
    const bool supported = FillArguments(args, argTypes, argCount, values);
    va_end(values);
    if (!supported) {
        errorText = "Unsupported parameter type specified";
        return false;
    }

    const bool wantResult = resultType != VT_EMPTY && resultOut != nullptr;
    ScopedVariant result;
    ScopedExcepInfo exception;
    DISPPARAMS params = {argCount > 0 ? args : nullptr, nullptr, argCount, 0};
    UINT argError = 0;
    const HRESULT hr = target->Invoke(member, IID_NULL, kLocale, DISPATCH_METHOD, &params,
                                      wantResult ? result.out() : nullptr, exception.out(),
                                      &argError);
    if (FAILED(hr)) {
        errorText = "Invoke failed";
        return false;
    }
    // A type asked for without a place to put it fails without words.
    if (!wantResult) return resultType == VT_EMPTY;
    return TakeResult(result, resultType, resultOut, errorText);
}
