#include "PacFixtures.h"

#include <io.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>

ScopedEnvironment::ScopedEnvironment(const std::string &name, const std::string &value, bool unset)
    : name_(name) {
    const char *old = getenv(name.c_str());
    had_ = old != nullptr;
    if (old) old_ = old;
    // _putenv_s changes the C library's copy and the process's block both.
    _putenv_s(name.c_str(), unset ? "" : value.c_str());
}

ScopedEnvironment::ScopedEnvironment(ScopedEnvironment &&other) noexcept
    : name_(std::move(other.name_)),
      old_(std::move(other.old_)),
      had_(other.had_),
      active_(other.active_) {
    other.active_ = false;
}

ScopedEnvironment::~ScopedEnvironment() {
    if (active_) _putenv_s(name_.c_str(), had_ ? old_.c_str() : "");
}

ScopedCurrentDirectory::ScopedCurrentDirectory(const std::string &path) {
    char old[MAX_PATH] = {};
    GetCurrentDirectoryA(sizeof old, old);
    old_ = old;
    SetCurrentDirectoryA(path.c_str());
}

ScopedCurrentDirectory::~ScopedCurrentDirectory() { SetCurrentDirectoryA(old_.c_str()); }

std::vector<std::string> DirectoryEntries(const std::string &path) {
    std::vector<std::string> names;
    WIN32_FIND_DATAA data;
    HANDLE find = FindFirstFileA((path + "\\*").c_str(), &data);
    if (find == INVALID_HANDLE_VALUE) return names;
    do {
        const std::string name = data.cFileName;
        if (name != "." && name != "..") names.push_back(name);
    } while (FindNextFileA(find, &data));
    FindClose(find);
    return names;
}

int OccupyParkingNames(const std::string &directory) {
    int made = 0;
    // _mktemp offers one letter per name, so a few dozen names exhaust it.
    for (int i = 0; i < 64; ++i) {
        char name[MAX_PATH];
        if (directory.empty())
            snprintf(name, sizeof name, "INSXXXXXX");
        else
            snprintf(name, sizeof name, "%s/INSXXXXXX", directory.c_str());
        if (!_mktemp(name)) break;
        FILE *f = fopen(name, "w");
        if (!f) break;
        fclose(f);
        ++made;
    }
    return made;
}

double NowMs() {
    using namespace std::chrono;
    return duration<double, std::milli>(steady_clock::now().time_since_epoch()).count();
}
