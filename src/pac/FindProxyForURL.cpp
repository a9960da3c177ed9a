#include "pac/FindProxyForURL.h"

#include <winsock2.h>

#include "pac/ComOwners.h"
#include "pac/DateFunctions.h"
#include "pac/SafeRegex.h"

FindProxyForURL::FindProxyForURL() {
    // The first version the system grants counts; without any the object
    // still serves the functions that need no sockets.
    static const WORD kVersions[] = {MAKEWORD(2, 2), MAKEWORD(2, 0), MAKEWORD(1, 1)};
    for (const WORD version : kVersions) {
        WSADATA data;
        if (WSAStartup(version, &data) == 0) {
            socketsStarted_ = true;
            break;
        }
    }
}

FindProxyForURL::~FindProxyForURL() {
    if (socketsStarted_) WSACleanup();
}

STDMETHODIMP FindProxyForURL::shExpMatch(BSTR str, BSTR shexp, VARIANT_BOOL *ret) {
    if (!ret) return E_POINTER;
    *ret = VARIANT_FALSE;
    try {
        const std::string text = NarrowFromBstr(str);
        const std::string pattern = NarrowFromBstr(shexp);
        // The regular-expression library reads C strings: a NUL inside
        // either would cut it short and match what the script never asked.
        if (text.find('\0') != std::string::npos || pattern.find('\0') != std::string::npos)
            return S_OK;
        if (ShellExpressionMatch(text, pattern)) *ret = VARIANT_TRUE;
    } catch (...) {
    }
    return S_OK;
}

STDMETHODIMP FindProxyForURL::weekdayRange(BSTR wd1, BSTR wd2, BSTR gmt, VARIANT_BOOL *ret) {
    if (!ret) return E_POINTER;
    *ret = VARIANT_FALSE;
    try {
        if (WeekdayRangeMatches(WideFromBstr(wd1), WideFromBstr(wd2), WideFromBstr(gmt)))
            *ret = VARIANT_TRUE;
    } catch (...) {
    }
    return S_OK;
}

STDMETHODIMP FindProxyForURL::dateRange(VARIANT p1, VARIANT p2, VARIANT p3, VARIANT p4,
                                        VARIANT p5, VARIANT p6, VARIANT gmt, VARIANT_BOOL *ret) {
    if (!ret) return E_POINTER;
    *ret = VARIANT_FALSE;
    try {
        const VARIANT args[] = {p1, p2, p3, p4, p5, p6, gmt};
        if (DateRangeMatches(args)) *ret = VARIANT_TRUE;
    } catch (...) {
    }
    return S_OK;
}

STDMETHODIMP FindProxyForURL::timeRange(VARIANT p1, VARIANT p2, VARIANT p3, VARIANT p4,
                                        VARIANT p5, VARIANT p6, VARIANT gmt, VARIANT_BOOL *ret) {
    if (!ret) return E_POINTER;
    *ret = VARIANT_FALSE;
    try {
        const VARIANT args[] = {p1, p2, p3, p4, p5, p6, gmt};
        if (TimeRangeMatches(args)) *ret = VARIANT_TRUE;
    } catch (...) {
    }
    return S_OK;
}
