// The COM boundary: nothing thrown inside the library may unwind into a
// client or a script engine, neither of which knows C++ exceptions. Every
// interface method and exported function runs its body through
// GuardedCall, which answers the failure value the interface promises (a
// status, false, an HRESULT) and writes one trace line naming the function.
#pragma once

#include <exception>

// Writes "Exception caught in <function>:  <what>"; never throws, and
// writes nothing where even that fails.
void TraceCaughtException(const char *function, const char *what) noexcept;

template <class R, class Body>
R GuardedCall(const char *function, R failure, Body &&body) noexcept {
    try {
        return body();
    } catch (const std::exception &e) {
        TraceCaughtException(function, e.what());
    } catch (...) {
        TraceCaughtException(function, "unknown exception");
    }
    return failure;
}
