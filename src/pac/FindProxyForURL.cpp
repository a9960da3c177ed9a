#include "pac/FindProxyForURL.h"

#include <winsock2.h>

#include "com/ComGuard.h"
#include "util/ComOwners.h"
#include "pac/DateFunctions.h"
#include "pac/SafeRegex.h"
#include "trace/ZelTraceManager.h"
#include "trace/tracefunc.h"

FindProxyForURL::FindProxyForURL(EvaluationObserver *observer) : observer_(observer) {}

void FindProxyForURL::Note(const std::string &text) const {
    if (observer_) observer_->Note(text);
}

namespace {

// Functions other PAC runtimes give their scripts (the IPv6 extensions and
// the runtime's version) that this one does not have.
const char *const kOtherRuntimesFunctions[] = {
    "isInNetEx",      "dnsResolveEx",      "myIpAddressEx",
    "isResolvableEx", "sortIpAddressList", "getClientVersion",
};

// The function's name when the script's name is one of them, else null.
// Names are compared exactly, case included, as the engine binds them.
const char *OtherRuntimesFunction(const wchar_t *name) {
    for (const char *known : kOtherRuntimesFunctions) {
        size_t i = 0;
        while (known[i] && name[i] == static_cast<wchar_t>(known[i])) ++i;
        if (!known[i] && !name[i]) return known;
    }
    return nullptr;
}

// The message of alert as text: JavaScript's words for undefined, null and
// the booleans, numbers in the invariant locale, anything else as OLE
// converts it (empty when it cannot).
std::string AlertText(const VARIANT &message) {
    switch (V_VT(&message)) {
    case VT_ERROR:
        if (V_ERROR(&message) == DISP_E_PARAMNOTFOUND) return std::string();
        break;
    case VT_EMPTY: return "undefined";
    case VT_NULL: return "null";
    case VT_BOOL: return V_BOOL(&message) ? "true" : "false";
    case VT_BSTR: return NarrowFromBstr(V_BSTR(&message));
    default: break;
    }
    ScopedVariant text;
    if (FAILED(VariantChangeTypeEx(text.out(), const_cast<VARIANT *>(&message), LOCALE_INVARIANT,
                                   0, VT_BSTR)))
        return std::string();
    return NarrowFromBstr(V_BSTR(&text.get()));
}

}  // namespace

STDMETHODIMP FindProxyForURL::GetIDsOfNames(REFIID iid, LPOLESTR *names, UINT count, LCID lcid,
                                            DISPID *ids) {
    const HRESULT hr = COvrenaDispatch::GetIDsOfNames(iid, names, count, lcid, ids);
    // The engine asks when the script names the function; the call then
    // fails as it always has.
    if (FAILED(hr) && observer_ && names && count > 0 && names[0]) {
        if (const char *missing = OtherRuntimesFunction(names[0]))
            Note(std::string(missing) +
                 ": not a function of this runtime (the script stops where it calls it)");
    }
    return hr;
}

STDMETHODIMP FindProxyForURL::alert(VARIANT message) {
    try {
        std::string text = AlertText(message);
        tracefunc tf(__LINE__, "FindProxyForURL", "FindProxyForURL::alert", 0, true);
        tf.level(ZEL_DETAIL) << "alert: " << text << endtrace;
        Note("alert: " + text);
    } catch (...) {
    }
    return S_OK;
}

namespace {

// A helper never fails towards the script: false unless its test passes,
// and a fault on the way leaves false.
template <class Test>
HRESULT AnswerBool(const char *function, VARIANT_BOOL *ret, Test test) {
    if (!ret) return E_POINTER;
    *ret = VARIANT_FALSE;
    return GuardedCall(function, S_OK, [&] {
        if (test()) *ret = VARIANT_TRUE;
        return S_OK;
    });
}

}  // namespace

STDMETHODIMP FindProxyForURL::shExpMatch(BSTR str, BSTR shexp, VARIANT_BOOL *ret) {
    return AnswerBool("FindProxyForURL::shExpMatch", ret, [&] {
        const std::string text = NarrowFromBstr(str);
        const std::string pattern = NarrowFromBstr(shexp);
        // The regular-expression library reads C strings: a NUL inside
        // either would cut it short and match what the script never asked.
        if (text.find('\0') != std::string::npos || pattern.find('\0') != std::string::npos)
            return false;
        return ShellExpressionMatch(text, pattern);
    });
}

STDMETHODIMP FindProxyForURL::weekdayRange(BSTR wd1, BSTR wd2, BSTR gmt, VARIANT_BOOL *ret) {
    return AnswerBool("FindProxyForURL::weekdayRange", ret, [&] {
        return WeekdayRangeMatches(WideFromBstr(wd1), WideFromBstr(wd2), WideFromBstr(gmt));
    });
}

STDMETHODIMP FindProxyForURL::dateRange(VARIANT p1, VARIANT p2, VARIANT p3, VARIANT p4,
                                        VARIANT p5, VARIANT p6, VARIANT gmt, VARIANT_BOOL *ret) {
    return AnswerBool("FindProxyForURL::dateRange", ret, [&] {
        const VARIANT args[] = {p1, p2, p3, p4, p5, p6, gmt};
        return DateRangeMatches(args);
    });
}

STDMETHODIMP FindProxyForURL::timeRange(VARIANT p1, VARIANT p2, VARIANT p3, VARIANT p4,
                                        VARIANT p5, VARIANT p6, VARIANT gmt, VARIANT_BOOL *ret) {
    return AnswerBool("FindProxyForURL::timeRange", ret, [&] {
        const VARIANT args[] = {p1, p2, p3, p4, p5, p6, gmt};
        return TimeRangeMatches(args);
    });
}
