#include "util/ComOwners.h"

#include <climits>
#include <new>

ScopedBstr BstrFromNarrow(const std::string &text) {
    if (text.empty() || text.size() > INT_MAX) return ScopedBstr(SysAllocStringLen(L"", 0));
    const int length = static_cast<int>(text.size());
    const int wide = MultiByteToWideChar(CP_ACP, 0, text.data(), length, nullptr, 0);
    ScopedBstr out(SysAllocStringLen(nullptr, static_cast<UINT>(wide > 0 ? wide : 0)));
    if (!out.get()) throw std::bad_alloc();
    if (wide > 0) MultiByteToWideChar(CP_ACP, 0, text.data(), length, out.get(), wide);
    return out;
}

std::string NarrowFromBstr(BSTR text) {
    const UINT length = text ? SysStringLen(text) : 0;
    if (length == 0 || length > INT_MAX) return std::string();
    const int n = WideCharToMultiByte(CP_ACP, 0, text, static_cast<int>(length), nullptr, 0,
                                      nullptr, nullptr);
    if (n <= 0) return std::string();
    std::string out(static_cast<size_t>(n), '\0');
    WideCharToMultiByte(CP_ACP, 0, text, static_cast<int>(length), &out[0], n, nullptr, nullptr);
    return out;
}

std::wstring WideFromBstr(BSTR text) {
    return text ? std::wstring(text, SysStringLen(text)) : std::wstring();
}
