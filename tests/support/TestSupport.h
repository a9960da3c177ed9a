// Shared helpers of the test programs: registry values, temporary folders,
// trace files and a fixed clock, each undone when its owner goes.
#pragma once

#include <windows.h>
#include <objbase.h>

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include "trace/Clock.h"

// Sets a value under HKEY_LOCAL_MACHINE\Software\Ovrena (or another key) and
// puts back what was there before when it goes.
class ScopedRegistryValue {
public:
    // Removes the value for the scope when data is null.
    static ScopedRegistryValue Raw(const std::string &name, DWORD type, const void *data,
                                   DWORD size, HKEY root = HKEY_LOCAL_MACHINE,
                                   const std::string &key = "Software\\Ovrena");
    static ScopedRegistryValue String(const std::string &name, const std::string &value,
                                      HKEY root = HKEY_LOCAL_MACHINE,
                                      const std::string &key = "Software\\Ovrena") {
        return Raw(name, REG_SZ, value.c_str(), static_cast<DWORD>(value.size() + 1), root, key);
    }
    static ScopedRegistryValue Dword(const std::string &name, DWORD value,
                                     HKEY root = HKEY_LOCAL_MACHINE,
                                     const std::string &key = "Software\\Ovrena") {
        return Raw(name, REG_DWORD, &value, sizeof value, root, key);
    }
    static ScopedRegistryValue Absent(const std::string &name, HKEY root = HKEY_LOCAL_MACHINE,
                                      const std::string &key = "Software\\Ovrena") {
        return Raw(name, REG_NONE, nullptr, 0, root, key);
    }
    ScopedRegistryValue(ScopedRegistryValue &&other) noexcept;
    ScopedRegistryValue &operator=(ScopedRegistryValue &&) = delete;
    ScopedRegistryValue(const ScopedRegistryValue &) = delete;
    ~ScopedRegistryValue();
    // Leaves the value as it is now when the owner goes.
    void Dismiss() { active_ = false; }

private:
    ScopedRegistryValue(HKEY root, std::string key, std::string name);
    void set(DWORD type, const void *data, DWORD size);

    HKEY root_;
    std::string key_;
    std::string name_;
    bool active_ = true;
    bool had_ = false;
    DWORD oldType_ = 0;
    std::vector<BYTE> old_;
};

// Takes a key tree away for the scope (a copy is parked under a key of
// the test's own) and puts it back, as it was, when it goes.
class ScopedKeyRemoved {
public:
    ScopedKeyRemoved(HKEY root, const std::string &key);
    ~ScopedKeyRemoved();
    ScopedKeyRemoved(const ScopedKeyRemoved &) = delete;
    ScopedKeyRemoved &operator=(const ScopedKeyRemoved &) = delete;

private:
    HKEY root_;
    std::string key_;
    std::string parked_;  // under HKEY_CURRENT_USER; empty when nothing was there
};

// Sets (or with unset, removes) an environment variable for the C library
// and the process alike, and puts back what was there when it goes.
class ScopedEnvironment {
public:
    ScopedEnvironment(const std::string &name, const std::string &value, bool unset = false);
    ~ScopedEnvironment();
    ScopedEnvironment(const ScopedEnvironment &) = delete;
    ScopedEnvironment &operator=(const ScopedEnvironment &) = delete;

private:
    const std::string name_;
    const bool had_;
    const std::string old_;
};

// A single-threaded COM apartment for the scope.
struct ComApartment {
    HRESULT hr = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    ~ComApartment() {
        if (SUCCEEDED(hr)) CoUninitialize();
    }
};

// A fresh folder under %TEMP%, removed with everything in it.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;
    const std::string &path() const { return path_; }
    std::string file(const std::string &name) const { return path_ + "\\" + name; }

private:
    std::string path_;
};

// The names in a folder, "." and ".." left out.
std::vector<std::string> DirectoryEntries(const std::string &path);
std::string ReadFileText(const std::string &path);
std::vector<std::string> ReadLines(const std::string &path);
bool FileExists(const std::string &path);
void WriteFileText(const std::string &path, const std::string &text);

// Points this program's trace file at path (every level, with an optional
// filter) and reloads tracing; stops tracing again when it goes.
class ScopedTrace {
public:
    explicit ScopedTrace(const std::string &path, const std::string &filter = "");
    ~ScopedTrace();
    ScopedTrace(const ScopedTrace &) = delete;
    ScopedTrace &operator=(const ScopedTrace &) = delete;
    const std::string &path() const { return path_; }
    std::vector<std::string> lines() const { return ReadLines(path_); }
    // Lines whose text (after the third tab) contains the fragment.
    std::vector<std::string> linesWith(const std::string &fragment) const;
    // The texts of those lines without their thread tail " (tid=...".
    std::vector<std::string> messages(const std::string &fragment) const;

private:
    std::string path_;
    std::vector<ScopedRegistryValue> values_;
};

// A clock the test moves by hand. Local time is UTC plus a fixed offset.
struct FakeClock {
    static time_t now;
    static long localOffsetSeconds;
    static DWORD tick;
    static WORD milliseconds;
    static void Install(ScopedClock &clock, time_t start);
};

// A UTC time_t for a calendar date and time.
time_t UtcTime(int year, int month, int day, int hour, int minute, int second);

// The text of a trace line after its prefix (time stamp, level, component).
std::string LineText(const std::string &line);
// The level word of a trace line.
std::string LineLevel(const std::string &line);

// A file beside this program's executable.
std::string Beside(const std::string &name);
// A program's exit code and what it wrote to standard output and error.
struct ProgramRun {
    DWORD code = STILL_ACTIVE;
    std::string out, err;
};
// Runs a program with its standard output and error each going to a file of
// its own; one that has not ended within a minute is stopped.
ProgramRun RunProgram(const std::string &program, const std::string &arguments);
