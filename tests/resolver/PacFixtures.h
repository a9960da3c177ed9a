// Helpers of the PAC and Netscape tests: environment variables, the files of
// a folder, the unique names of parked settings files, and a COM apartment.
#pragma once

#include <windows.h>
#include <objbase.h>

#include <string>
#include <vector>

// Sets (or with unset, removes) an environment variable for the C library
// and the process alike, and puts back what was there when it goes.
class ScopedEnvironment {
public:
    ScopedEnvironment(const std::string &name, const std::string &value, bool unset = false);
    static ScopedEnvironment Unset(const std::string &name) { return {name, "", true}; }
    ScopedEnvironment(ScopedEnvironment &&other) noexcept;
    ScopedEnvironment(const ScopedEnvironment &) = delete;
    ScopedEnvironment &operator=(const ScopedEnvironment &) = delete;
    ScopedEnvironment &operator=(ScopedEnvironment &&) = delete;
    ~ScopedEnvironment();

private:
    std::string name_;
    std::string old_;
    bool had_ = false;
    bool active_ = true;
};

// Moves the current directory for the scope.
class ScopedCurrentDirectory {
public:
    explicit ScopedCurrentDirectory(const std::string &path);
    ~ScopedCurrentDirectory();
    ScopedCurrentDirectory(const ScopedCurrentDirectory &) = delete;
    ScopedCurrentDirectory &operator=(const ScopedCurrentDirectory &) = delete;

private:
    std::string old_;
};

// The names in a folder, "." and ".." left out.
std::vector<std::string> DirectoryEntries(const std::string &path);

// Creates files under every name _mktemp can still make from
// "<directory>/INSXXXXXX" (or "INSXXXXXX" for an empty directory), so that
// the next _mktemp on that template fails. The number of files made.
int OccupyParkingNames(const std::string &directory);

// COM initialised on the calling thread for the scope.
class ComApartment {
public:
    ComApartment() : hr_(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)) {}
    ~ComApartment() {
        if (SUCCEEDED(hr_)) CoUninitialize();
    }
    ComApartment(const ComApartment &) = delete;
    ComApartment &operator=(const ComApartment &) = delete;

private:
    HRESULT hr_;
};

// Milliseconds on a monotonic clock.
double NowMs();
