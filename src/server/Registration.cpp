// Self-registration of the resolver class under HKEY_CLASSES_ROOT.
#include <windows.h>
#include <objbase.h>

#include <string>

#include <routvane.h>

#include "com/ComGuard.h"
#include "com/Module.h"
#include "util/ComOwners.h"
#include "util/Registry.h"

namespace {

const char kProgIdVersioned[] = "Ovrena.Routvane.1";
const char kProgId[] = "Ovrena.Routvane";
const char kDescription[] = "Ovrena.Routvane";

// {clsid} as StringFromCLSID renders it, in narrow text.
bool ClsidText(std::string &out) {
    TaskMemory<OLECHAR> wide;
    if (FAILED(StringFromCLSID(CLSID_Routvane, wide.out())) || !wide) return false;
    char narrow[64] = "";
    WideCharToMultiByte(CP_ACP, 0, wide.get(), -1, narrow, sizeof narrow, nullptr, nullptr);
    out = narrow;
    return !out.empty();
}

bool SetDefaultValue(const std::string &keyPath, const char *subkey, const char *data) {
    std::string path = keyPath;
    if (subkey && *subkey) path += std::string("\\") + subkey;
    RegKey key;
    if (key.create(HKEY_CLASSES_ROOT, path.c_str(), KEY_ALL_ACCESS) != ERROR_SUCCESS) return false;
    // The length leaves out the terminator; the registry stores REG_SZ
    // terminated all the same.
    return RegSetValueExA(key.get(), nullptr, 0, REG_SZ, reinterpret_cast<const BYTE *>(data),
                          static_cast<DWORD>(strlen(data))) == ERROR_SUCCESS;
}

bool SetNamedValue(const std::string &keyPath, const char *name, const char *data) {
    RegKey key;
    if (key.open(HKEY_CLASSES_ROOT, keyPath.c_str(), KEY_WRITE) != ERROR_SUCCESS) return false;
    return RegSetValueExA(key.get(), name, 0, REG_SZ, reinterpret_cast<const BYTE *>(data),
                          static_cast<DWORD>(strlen(data) + 1)) == ERROR_SUCCESS;
}

LONG DeleteTree(HKEY parent, const char *name) {
    RegKey key;
    const LONG opened = key.open(parent, name, KEY_ALL_ACCESS);
    if (opened != ERROR_SUCCESS) return opened;
    for (;;) {
        char child[256];
        DWORD length = sizeof child;
        if (RegEnumKeyExA(key.get(), 0, child, &length, nullptr, nullptr, nullptr, nullptr) !=
            ERROR_SUCCESS)
            break;
        const LONG deleted = DeleteTree(key.get(), child);
        if (deleted != ERROR_SUCCESS) return deleted;
    }
    key.reset();
    return RegDeleteKeyA(parent, name);
}

HRESULT Register() {
    std::string clsid;
    char path[512] = "";
    if (!ClsidText(clsid) || !ModuleFileName(path, sizeof path)) return S_OK;
    const std::string classKey = "CLSID\\" + clsid;
    // Each step needs the one before; the first failure ends the walk, and
    // the result is S_OK all the same.
    (void)(SetDefaultValue(classKey, nullptr, kDescription) &&
           SetDefaultValue(classKey, "InprocServer32", path) &&
           SetNamedValue(classKey + "\\InprocServer32", "ThreadingModel", "Both") &&
           SetDefaultValue(classKey, "ProgID", kProgIdVersioned) &&
           SetDefaultValue(classKey, "VersionIndependentProgID", kProgId) &&
           SetDefaultValue(kProgId, nullptr, kDescription) &&
           SetDefaultValue(kProgId, "CLSID", clsid.c_str()) &&
           SetDefaultValue(kProgId, "CurVer", kProgIdVersioned) &&
           SetDefaultValue(kProgIdVersioned, nullptr, kDescription) &&
           SetDefaultValue(kProgIdVersioned, "CLSID", clsid.c_str()));
    return S_OK;
}

HRESULT Unregister() {
    std::string clsid;
    if (!ClsidText(clsid)) return S_OK;
    DeleteTree(HKEY_CLASSES_ROOT, ("CLSID\\" + clsid).c_str());
    DeleteTree(HKEY_CLASSES_ROOT, kProgId);
    DeleteTree(HKEY_CLASSES_ROOT, kProgIdVersioned);
    return S_OK;
}

}  // namespace

STDAPI DllRegisterServer() { return GuardedCall("DllRegisterServer", E_OUTOFMEMORY, Register); }

STDAPI DllUnregisterServer() {
    return GuardedCall("DllUnregisterServer", E_OUTOFMEMORY, Unregister);
}
