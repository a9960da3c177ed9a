#include "TestSupport.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <utility>

#include "trace/ZelTraceManager.h"
#include "util/Registry.h"

ScopedRegistryValue::ScopedRegistryValue(HKEY root, std::string key, std::string name)
    : root_(root), key_(std::move(key)), name_(std::move(name)) {
    // An empty name is the key's default value.
    RegKey k;
    if (RegOpenKeyExA(root_, key_.c_str(), 0, KEY_READ, k.out()) != ERROR_SUCCESS) return;
    DWORD size = 0;
    if (RegQueryValueExA(k.get(), name_.c_str(), nullptr, &oldType_, nullptr, &size) ==
        ERROR_SUCCESS) {
        old_.resize(size);
        had_ = RegQueryValueExA(k.get(), name_.c_str(), nullptr, &oldType_, old_.data(), &size) ==
               ERROR_SUCCESS;
    }
}

ScopedRegistryValue::ScopedRegistryValue(ScopedRegistryValue &&other) noexcept
    : root_(other.root_),
      key_(std::move(other.key_)),
      name_(std::move(other.name_)),
      active_(std::exchange(other.active_, false)),
      had_(other.had_),
      oldType_(other.oldType_),
      old_(std::move(other.old_)) {}

// Setting a value makes its key when missing.
void ScopedRegistryValue::set(DWORD type, const void *data, DWORD size) {
    if (data)
        RegSetKeyValueA(root_, key_.c_str(), name_.c_str(), type, data, size);
    else
        RegDeleteKeyValueA(root_, key_.c_str(), name_.c_str());
}

ScopedRegistryValue::~ScopedRegistryValue() {
    if (active_) set(oldType_, had_ ? old_.data() : nullptr, static_cast<DWORD>(old_.size()));
}

ScopedRegistryValue ScopedRegistryValue::Raw(const std::string &name, DWORD type, const void *data,
                                             DWORD size, HKEY root, const std::string &key) {
    ScopedRegistryValue v(root, key, name);
    v.set(type, data, size);
    return v;
}

// Deletes a whole key tree under a root, ignoring a missing one.
static void DeleteRegistryTree(HKEY root, const std::string &key) {
    RegDeleteTreeA(root, key.c_str());
    RegDeleteKeyA(root, key.c_str());
}

ScopedKeyRemoved::ScopedKeyRemoved(HKEY root, const std::string &key) : root_(root), key_(key) {
    static unsigned counter = 0;
    RegKey from, to;
    if (RegOpenKeyExA(root_, key_.c_str(), 0, KEY_READ, from.out()) != ERROR_SUCCESS) return;
    parked_ = "Software\\RoutvaneTestParked\\" + std::to_string(GetCurrentProcessId()) + "-" +
              std::to_string(++counter);
    RegCreateKeyExA(HKEY_CURRENT_USER, parked_.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                    to.out(), nullptr);
    RegCopyTreeA(from.get(), nullptr, to.get());
    from.reset();
    DeleteRegistryTree(root_, key_);
}

ScopedKeyRemoved::~ScopedKeyRemoved() {
    DeleteRegistryTree(root_, key_);
    if (parked_.empty()) return;
    RegKey from, to;
    RegOpenKeyExA(HKEY_CURRENT_USER, parked_.c_str(), 0, KEY_READ, from.out());
    RegCreateKeyExA(root_, key_.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, to.out(), nullptr);
    RegCopyTreeA(from.get(), nullptr, to.get());
    from.reset();
    DeleteRegistryTree(HKEY_CURRENT_USER, parked_);
}

ScopedEnvironment::ScopedEnvironment(const std::string &name, const std::string &value,
                                     bool unset)
    : name_(name), had_(getenv(name.c_str()) != nullptr), old_(had_ ? getenv(name.c_str()) : "") {
    _putenv_s(name.c_str(), unset ? "" : value.c_str());
}

ScopedEnvironment::~ScopedEnvironment() { _putenv_s(name_.c_str(), had_ ? old_.c_str() : ""); }

static void RemoveTree(const std::string &path) {
    for (const std::string &name : DirectoryEntries(path)) {
        const std::string full = path + "\\" + name;
        if (GetFileAttributesA(full.c_str()) & FILE_ATTRIBUTE_DIRECTORY)
            RemoveTree(full);
        else
            DeleteFileA(full.c_str());
    }
    RemoveDirectoryA(path.c_str());
}

TempDir::TempDir() {
    char base[MAX_PATH + 1];
    GetTempPathA(MAX_PATH, base);
    static unsigned counter = 0;
    // A name taken already (left by a killed run) is passed over; when a
    // hundred in a row cannot be made, the tests fail on their files.
    for (int tries = 0; tries < 100; ++tries) {
        path_ = std::string(base) + "rvtest-" + std::to_string(GetCurrentProcessId()) + "-" +
                std::to_string(++counter);
        if (CreateDirectoryA(path_.c_str(), nullptr)) return;
    }
}

TempDir::~TempDir() { RemoveTree(path_); }

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

std::string ReadFileText(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

std::vector<std::string> ReadLines(const std::string &path) {
    std::vector<std::string> lines;
    std::istringstream in(ReadFileText(path));
    std::string line;
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        lines.push_back(line);
    }
    return lines;
}

bool FileExists(const std::string &path) {
    return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

void WriteFileText(const std::string &path, const std::string &text) {
    std::ofstream out(path, std::ios::binary);
    out << text;
}

ScopedTrace::ScopedTrace(const std::string &path, const std::string &filter) : path_(path) {
    const std::string exe = ZelExecutableName();
    values_.push_back(ScopedRegistryValue::String("Debug-" + exe, path));
    values_.push_back(ScopedRegistryValue::Absent("DebugLevel-" + exe));
    values_.push_back(filter.empty() ? ScopedRegistryValue::Absent("DebugFilter-" + exe)
                                     : ScopedRegistryValue::String("DebugFilter-" + exe, filter));
    ZelTraceReload();
}

ScopedTrace::~ScopedTrace() {
    values_.clear();
    ZelTraceReload();
}

std::vector<std::string> ScopedTrace::linesWith(const std::string &fragment) const {
    std::vector<std::string> found;
    for (const std::string &line : lines())
        if (LineText(line).find(fragment) != std::string::npos) found.push_back(line);
    return found;
}

std::vector<std::string> ScopedTrace::messages(const std::string &fragment) const {
    std::vector<std::string> texts;
    for (const std::string &line : linesWith(fragment)) {
        const std::string text = LineText(line);
        texts.push_back(text.substr(0, text.rfind(" (tid=")));
    }
    return texts;
}

time_t FakeClock::now = 0;
long FakeClock::localOffsetSeconds = 0;
DWORD FakeClock::tick = 0;
WORD FakeClock::milliseconds = 0;

time_t UtcTime(int year, int month, int day, int hour, int minute, int second) {
    struct tm tm = {second, minute, hour, day, month - 1, year - 1900, 0, 0, 0};
    return _mkgmtime(&tm);
}

void FakeClock::Install(ScopedClock &clock, time_t start) {
    now = start;
    tick = 1000;
    milliseconds = 0;
    clock->time = [](time_t *out) {
        if (out) *out = now;
        return now;
    };
    // The UTC breakdown asks nothing of the time-zone settings: a fake local
    // time is UTC moved by a fixed offset.
    clock->gmtime = RealClock().gmtime;
    clock->localtime = [](time_t t, struct tm *out) {
        return RealClock().gmtime(t + localOffsetSeconds, out);
    };
    clock->GetSystemTime = [](SYSTEMTIME *out) {
        // Seconds since 1970 as 100-nanosecond units since 1601.
        const ULONGLONG units = (static_cast<ULONGLONG>(now) + 11644473600ull) * 10000000ull;
        const FILETIME file = {static_cast<DWORD>(units), static_cast<DWORD>(units >> 32)};
        FileTimeToSystemTime(&file, out);
        out->wMilliseconds = milliseconds;
    };
    clock->GetTickCount = []() { return tick; };
}

namespace {

std::string Field(const std::string &line, int index) {
    size_t start = 0;
    for (int i = 0; i < index; ++i) {
        const size_t tab = line.find('\t', start);
        if (tab == std::string::npos) return std::string();
        start = tab + 1;
    }
    if (index == 3) return line.substr(start);  // the text, which may hold tabs
    return line.substr(start, line.find('\t', start) - start);  // no tab: to the end
}

}  // namespace

std::string LineText(const std::string &line) { return Field(line, 3); }
std::string LineLevel(const std::string &line) { return Field(line, 1); }

std::string Beside(const std::string &name) {
    char path[MAX_PATH];
    const std::string self(path, GetModuleFileNameA(nullptr, path, MAX_PATH));
    return self.substr(0, self.find_last_of('\\') + 1) + name;
}

ProgramRun RunProgram(const std::string &program, const std::string &arguments) {
    TempDir dir;
    SECURITY_ATTRIBUTES inherit = {sizeof inherit, nullptr, TRUE};
    const auto create = [&](const char *name) {
        return CreateFileA(dir.file(name).c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherit,
                           CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    };
    STARTUPINFOA si = {};
    si.cb = sizeof si;
    si.dwFlags = STARTF_USESTDHANDLES;
    si.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    si.hStdOutput = create("out");
    si.hStdError = create("err");
    std::string command = "\"" + program + "\" " + arguments;
    PROCESS_INFORMATION pi = {};
    ProgramRun run;
    if (CreateProcessA(nullptr, &command[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &si,
                       &pi)) {
        if (WaitForSingleObject(pi.hProcess, 60000) == WAIT_OBJECT_0)
            GetExitCodeProcess(pi.hProcess, &run.code);
        else
            TerminateProcess(pi.hProcess, STILL_ACTIVE);
        CloseHandle(pi.hThread);
        CloseHandle(pi.hProcess);
    } else {
        run.code = GetLastError();
    }
    CloseHandle(si.hStdOutput);
    CloseHandle(si.hStdError);
    run.out = ReadFileText(dir.file("out"));
    run.err = ReadFileText(dir.file("err"));
    return run;
}
