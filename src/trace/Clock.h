// The clock seam: trace time stamps, roll-over and scope timings, the PAC
// date and time functions and the DHCP transaction id read the time here.
#pragma once

#include <windows.h>

#include <ctime>

#include "util/Seam.h"

struct ClockApi {
    time_t (*time)(time_t *out);
    bool (*localtime)(time_t t, struct tm *out);
    bool (*gmtime)(time_t t, struct tm *out);
    void (*GetSystemTime)(SYSTEMTIME *out);
    DWORD (*GetTickCount)();
};

// The table in force, and the production bindings.
ClockApi &Clock();
const ClockApi &RealClock();

using ScopedClock = ScopedSeam<ClockApi, Clock>;
