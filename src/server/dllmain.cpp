// routvane.dll: the module entry and the library's load-time start-up.
#include <windows.h>

#include "com/Module.h"
#include "trace/ZelTraceManager.h"

namespace {

// Tracing is up before the first client call and torn down at unload.
struct LoadTimeStartup {
    LoadTimeStartup() { ZelTraceStartup(); }
    ~LoadTimeStartup() { ZelTraceShutdown(); }
} g_startup;

}  // namespace

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) SetModuleHandle(instance);
    return TRUE;
}
