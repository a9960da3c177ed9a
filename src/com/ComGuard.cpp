#include "com/ComGuard.h"

#include "trace/ZelComponent.h"
#include "trace/tracefunc.h"

void TraceCaughtException(const char *function, const char *what) noexcept {
    // Tracing allocates; when the exception was the lack of memory the
    // line may be lost, the answer is not.
    try {
        tracefunc tf(__LINE__, "Routvane", function, 0, true);
        tf << "Exception caught in " << function << ":  " << what << endtrace;
    } catch (...) {
    }
}
