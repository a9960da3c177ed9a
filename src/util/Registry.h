// Registry access with one owner for an open key.
#pragma once

#include <windows.h>

#include <string>

class RegKey {
public:
    RegKey() = default;
    explicit RegKey(HKEY key) : key_(key) {}
    ~RegKey() { reset(); }
    RegKey(const RegKey &) = delete;
    RegKey &operator=(const RegKey &) = delete;
    RegKey(RegKey &&other) noexcept : key_(other.release()) {}
    RegKey &operator=(RegKey &&other) noexcept {
        if (this != &other) reset(other.release());
        return *this;
    }

    // RegOpenKeyExA; the status of the call.
    LONG open(HKEY root, const char *subkey, REGSAM access);
    // RegCreateKeyExA with an empty class, non-volatile.
    LONG create(HKEY root, const char *subkey, REGSAM access);

    HKEY get() const { return key_; }
    explicit operator bool() const { return key_ != nullptr; }
    HKEY release() {
        HKEY k = key_;
        key_ = nullptr;
        return k;
    }
    void reset(HKEY key = nullptr);

private:
    HKEY key_ = nullptr;
};

// The key under HKEY_LOCAL_MACHINE that holds the library's settings.
extern const char kOvrenaKey[];

// Reads a REG_SZ value of at most bufferSize bytes (terminator included).
// False for a missing key or value, another type, or a longer value; an
// empty text is returned as true with an empty result.
bool ReadRegistryString(HKEY root, const char *subkey, const char *name, size_t bufferSize,
                        std::string &out);
