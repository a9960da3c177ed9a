#include "com/Module.h"

#include <atomic>
#include <new>

#include "com/COvrenaFactory.h"
#include "resolver/Routvane.h"

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

STDAPI DllGetClassObject(REFCLSID clsid, REFIID iid, LPVOID *out) {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (!IsEqualCLSID(clsid, CLSID_Routvane)) return CLASS_E_CLASSNOTAVAILABLE;
    // A fresh class object for every call; a refused interface destroys it
    // again through the final Release.
    auto *factory = new (std::nothrow) COvrenaFactory<Routvane>();
    if (!factory) return E_OUTOFMEMORY;
    factory->AddRef();
    const HRESULT hr = factory->QueryInterface(iid, out);
    factory->Release();
    return hr;
}

STDAPI DllCanUnloadNow() {
    if (g_objectCount.load() != 0) return S_FALSE;
    if (g_lockCount.load() != 0) return S_FALSE;
    return S_OK;
}
