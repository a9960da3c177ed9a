#include "util/Registry.h"

#include <vector>

const char kOvrenaKey[] = "Software\\Ovrena";

LONG RegKey::open(HKEY root, const char *subkey, REGSAM access) {
    HKEY key = nullptr;
    const LONG status = RegOpenKeyExA(root, subkey, 0, access, &key);
    reset(status == ERROR_SUCCESS ? key : nullptr);
    return status;
}

LONG RegKey::create(HKEY root, const char *subkey, REGSAM access) {
    HKEY key = nullptr;
    const LONG status = RegCreateKeyExA(root, subkey, 0, const_cast<char *>(""),
                                        REG_OPTION_NON_VOLATILE, access, nullptr, &key, nullptr);
    reset(status == ERROR_SUCCESS ? key : nullptr);
    return status;
}

bool ReadRegistryString(HKEY root, const char *subkey, const char *name, size_t bufferSize,
                        std::string &out) {
    out.clear();
    RegKey key;
    if (key.open(root, subkey, KEY_READ) != ERROR_SUCCESS) return false;
    // One spare byte so that a value stored without its terminator still
    // ends inside the buffer.
    std::vector<char> buffer(bufferSize + 1, '\0');
    DWORD type = 0;
    DWORD size = static_cast<DWORD>(bufferSize);
    if (RegQueryValueExA(key.get(), name, nullptr, &type, reinterpret_cast<BYTE *>(buffer.data()),
                         &size) != ERROR_SUCCESS)
        return false;
    if (type != REG_SZ) return false;
    out.assign(buffer.data());
    return true;
}
