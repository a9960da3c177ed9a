#include "com/Module.h"

#include <atomic>

namespace {

HINSTANCE g_module = nullptr;
std::atomic<long> g_objectCount{0};
std::atomic<long> g_lockCount{0};

}  // namespace

void SetModuleHandle(HINSTANCE instance) { g_module = instance; }

long ModuleObjectCount() { return g_objectCount.load(); }
long ModuleLockCount() { return g_lockCount.load(); }

void ModuleObjectCreated() { ++g_objectCount; }
void ModuleObjectDestroyed() { --g_objectCount; }

void ModuleLockServer(bool lock) {
    if (lock)
        ++g_lockCount;
    else
        --g_lockCount;
}

bool ModuleFileName(char *buffer, DWORD size) {
    const DWORD length = GetModuleFileNameA(g_module, buffer, size);
    return length != 0 && length < size;
}
