// Registry access with one owner for an open key.
#pragma once

#include <windows.h>

#include <string>

#include "util/Owners.h"

class RegKey : public UniqueOwner<RegKeyTraits> {
public:
    using UniqueOwner::UniqueOwner;
    // RegOpenKeyExA; the status of the call.
    LONG open(HKEY root, const char *subkey, REGSAM access);
    // RegCreateKeyExA with an empty class, non-volatile.
    LONG create(HKEY root, const char *subkey, REGSAM access);
};

// The key under HKEY_LOCAL_MACHINE that holds the library's settings.
extern const char kOvrenaKey[];

// Reads a REG_SZ value of at most bufferSize bytes (terminator included).
// False for a missing key or value, another type, or a longer value; an
// empty text is returned as true with an empty result.
bool ReadRegistryString(HKEY root, const char *subkey, const char *name, size_t bufferSize,
                        std::string &out);
