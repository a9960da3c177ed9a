#include "pac/FindProxyForURL.h"

#include <winsock2.h>

#include "util/ComOwners.h"
#include "pac/DateFunctions.h"
#include "pac/SafeRegex.h"

namespace {

// A helper never fails towards the script: false unless its test passes,
// and a fault on the way leaves false.
template <class Test>
HRESULT AnswerBool(VARIANT_BOOL *ret, Test test) {
    if (!ret) return E_POINTER;
    *ret = VARIANT_FALSE;
    try {
        if (test()) *ret = VARIANT_TRUE;
    } catch (...) {
    }
    return S_OK;
}

}  // namespace

STDMETHODIMP FindProxyForURL::shExpMatch(BSTR str, BSTR shexp, VARIANT_BOOL *ret) {
    return AnswerBool(ret, [&] {
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
    return AnswerBool(ret, [&] {
        return WeekdayRangeMatches(WideFromBstr(wd1), WideFromBstr(wd2), WideFromBstr(gmt));
    });
}

STDMETHODIMP FindProxyForURL::dateRange(VARIANT p1, VARIANT p2, VARIANT p3, VARIANT p4,
                                        VARIANT p5, VARIANT p6, VARIANT gmt, VARIANT_BOOL *ret) {
    return AnswerBool(ret, [&] {
        const VARIANT args[] = {p1, p2, p3, p4, p5, p6, gmt};
        return DateRangeMatches(args);
    });
}

STDMETHODIMP FindProxyForURL::timeRange(VARIANT p1, VARIANT p2, VARIANT p3, VARIANT p4,
                                        VARIANT p5, VARIANT p6, VARIANT gmt, VARIANT_BOOL *ret) {
    return AnswerBool(ret, [&] {
        const VARIANT args[] = {p1, p2, p3, p4, p5, p6, gmt};
        return TimeRangeMatches(args);
    });
}
