// Process-wide state of the COM server: the module handle and the object and
// lock counts that decide when the library may be unloaded.
#pragma once

#include <windows.h>

void SetModuleHandle(HINSTANCE instance);

// Live objects of every COvrenaUnknown class, class objects included.
long ModuleObjectCount();
// Net LockServer(TRUE) calls.
long ModuleLockCount();

void ModuleObjectCreated();
void ModuleObjectDestroyed();
void ModuleLockServer(bool lock);

// The library's own file (GetModuleFileNameA on the module handle).
bool ModuleFileName(char *buffer, DWORD size);
