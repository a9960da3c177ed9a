// A seam is the table of platform functions of one API family whose answers
// a test cannot arrange through real Wine components. Each family's table
// lives next to its users (trace/Clock.h, resolver/WinInetSettings.h,
// resolver/WinInetDownload.h, resolver/ProcessToken.h, dhcp/NetworkFacts.h);
// production binds every entry to the real API, and a test swaps entries
// through the family's ScopedSeam and gets the real table back when the
// scope ends.
#pragma once

#include <windows.h>

// Restores the table it found when it goes out of scope. Callers read the
// table on every call, so a swap takes effect at once.
template <class Api, Api &(*Current)()>
class ScopedSeam {
public:
    ScopedSeam() : saved_(Current()) {}
    ~ScopedSeam() { Current() = saved_; }
    ScopedSeam(const ScopedSeam &) = delete;
    ScopedSeam &operator=(const ScopedSeam &) = delete;
    Api *operator->() { return &Current(); }

private:
    Api saved_;
};

// An entry point of an optional system library, bound on first use so that
// the library loads where that DLL is absent; null then. The reference taken
// on the DLL is kept: it must stay loaded for the bound function.
template <class F>
F OptionalFunction(const char *library, const char *name) {
    HMODULE module = ::LoadLibraryA(library);
    return module ? reinterpret_cast<F>(reinterpret_cast<void *>(::GetProcAddress(module, name)))
                  : nullptr;
}

// Calls an optional entry point; where it is missing the call fails as the
// absent DLL's would: the failure value, with ERROR_PROC_NOT_FOUND as the
// last error.
template <class R, class F, class... Args>
R CallOptional(F fn, R failed, Args... args) {
    if (!fn) {
        ::SetLastError(ERROR_PROC_NOT_FOUND);
        return failed;
    }
    return fn(args...);
}
