#include "trace/ZelTraceManager.h"

#include <windows.h>

#include <ace/Init_ACE.h>
#include <ace/Recursive_Thread_Mutex.h>

#include <cstring>

#include "trace/Clock.h"
#include "trace/ZelComponent.h"
#include "util/Registry.h"

namespace {

std::atomic<bool> g_lockReady{false};
ZelTraceManager *g_traceManager = nullptr;
ZelTraceComponentManager *g_componentManager = nullptr;
// Guards setTraceFile against being re-entered while it closes a file.
bool g_settingFile = false;

ACE_Recursive_Thread_Mutex &TraceLock() {
    static ACE_Recursive_Thread_Mutex lock;
    return lock;
}

// The forced-tracing hook: a program that links the library may force
// tracing into a file of its choosing, whatever the registry says
// (ZelForceTraceFile). Off unless a program asks; the DLL never does. The
// flag is read without the lock so that a disabled trace statement stays
// cheap; the path is read and written under the trace lock.
std::atomic<bool> g_forced{false};
std::string g_forcedPath;

bool ForcedTracing(std::string &path) {
    path.clear();
    if (!g_forced.load(std::memory_order_acquire)) return false;
    ZelTraceGuard guard;
    if (!g_forced.load()) return false;
    path = g_forcedPath;
    return true;
}

std::string DefaultTracePath() {
    char dir[MAX_PATH + 1] = "";
    if (GetTempPathA(MAX_PATH, dir) == 0) dir[0] = '\0';
    char name[64];
    snprintf(name, sizeof name, "ZelTrace-%lu.txt", GetCurrentProcessId());
    return std::string(dir) + name;
}

}  // namespace

ZelTraceGuard::ZelTraceGuard() : held_(g_lockReady.load()) {
    if (held_) TraceLock().acquire();
}

ZelTraceGuard::~ZelTraceGuard() {
    if (held_) TraceLock().release();
}

const std::string &ZelExecutableName() {
    static const std::string name = [] {
        char path[MAX_PATH + 1] = "";
        GetModuleFileNameA(nullptr, path, MAX_PATH);
        const char *slash = strrchr(path, '\\');
        return std::string(slash ? slash + 1 : path);
    }();
    return name;
}

ZelTraceManager *ZelTraceManagerInstance() { return g_traceManager; }

ZelTraceComponentManager *ZelComponentManagerInstance() { return g_componentManager; }

int ZelTraceManager::LevelFromWord(const std::string &word) {
    if (word == "detailed") return ZEL_DETAIL;
    if (word == "trace") return ZEL_TRACE;
    if (word == "error") return ZEL_ERROR;
    return ZEL_DETAIL;
}

const char *ZelTraceManager::LevelWord(int level) {
    if (level >= ZEL_ERROR) return "Error";
    if (level == ZEL_TRACE) return "Trace";
    return "Detail";
}

std::string ZelTraceManager::RolledName(const std::string &path, const struct tm &day) {
    char suffix[256];
    if (strftime(suffix, sizeof suffix, "_%Y-%m-%d", &day) == 0) suffix[0] = '\0';
    const size_t dot = path.rfind('.');
    if (dot != std::string::npos && path.find('\\', dot) == std::string::npos)
        return path.substr(0, dot) + suffix + path.substr(dot);
    return path + suffix;
}

ZelTraceManager::ZelTraceManager() {
    std::string word;
    if (ReadRegistryString(HKEY_LOCAL_MACHINE, kOvrenaKey,
                           ("DebugLevel-" + ZelExecutableName()).c_str(), 260, word))
        threshold_ = LevelFromWord(word);
    lastRead_ = Clock().time(nullptr);
    readFileSetting();
}

ZelTraceManager::~ZelTraceManager() = default;

void ZelTraceManager::readFileSetting() {
    std::string path;
    if (ReadRegistryString(HKEY_LOCAL_MACHINE, kOvrenaKey,
                           ("Debug-" + ZelExecutableName()).c_str(), 512, path) &&
        !path.empty())
        setTraceFile(path);
}

void ZelTraceManager::setTraceFile(const std::string &path) {
    ZelTraceGuard guard;
    if (file_ && path == path_) return;
    if (file_ && !g_settingFile) {
        g_settingFile = true;
        file_.reset();
        unflushed_ = false;
        path_.clear();
        g_settingFile = false;
    }
    if (path.empty()) return;
    if (FILE *file = fopen(path.c_str(), "a+")) {
        file_.reset(file);
        path_ = path;
        day_ = -1;
    }
}

bool ZelTraceManager::refresh() {
    std::string forcedPath;
    const bool forced = ForcedTracing(forcedPath);
    if (forced == forced_) {
        const time_t now = Clock().time(nullptr);
        // While tracing is forced the forced file stays: the registry's file
        // setting is not read.
        if (!forced && difftime(now, static_cast<time_t>(lastRead_.load())) >= 60.0) {
            ZelTraceGuard guard;
            lastRead_ = now;
            readFileSetting();
        }
        return static_cast<bool>(file_);
    }
    ZelTraceGuard guard;
    forced_ = forced;
    if (!forced)
        setTraceFile(std::string());
    else
        setTraceFile(forcedPath.empty() ? DefaultTracePath() : forcedPath);
    return forced;
}

bool ZelTraceManager::isEnabled(int level) {
    if (!refresh()) return false;
    if (level < threshold_) return false;
    return g_componentManager && g_componentManager->passesFilter();
}

std::string ZelTraceManager::linePrefix(int level) {
    SYSTEMTIME now;
    Clock().GetSystemTime(&now);
    char stamp[128];
    snprintf(stamp, sizeof stamp, "%4d-%02d-%02d %02d:%02d:%02d.%03d: ", now.wYear, now.wMonth,
             now.wDay, now.wHour, now.wMinute, now.wSecond, now.wMilliseconds);
    std::string prefix = stamp;
    prefix += '\t';
    prefix += LevelWord(level);
    prefix += '\t';
    prefix += g_componentManager ? g_componentManager->current().name()
                                 : ZelDefaultComponent().name();
    return prefix;
}

void ZelTraceManager::rollOver(const struct tm &day) {
    const std::string rolled = RolledName(path_, day);
    day_ = day.tm_mday;
    file_.reset();
    unflushed_ = false;
    // A failed rename (another process rolled first, or the dated file
    // exists) is not an error: the same file is reopened and appended to.
    MoveFileA(path_.c_str(), rolled.c_str());
    file_.reset(fopen(path_.c_str(), "a+"));
}

bool ZelTraceManager::localBreakdown(time_t t, struct tm &out) {
    const auto breakDown = Clock().localtime;
    if (breakDown != brokenDownBy_ || t != brokenDownTime_) {
        if (!breakDown(t, &brokenDown_)) {
            brokenDownBy_ = nullptr;
            return false;
        }
        brokenDownBy_ = breakDown;
        brokenDownTime_ = t;
    }
    out = brokenDown_;
    return true;
}

void ZelTraceManager::write(unsigned flags, const char *text) {
    ZelTraceGuard guard;
    if (!refresh()) return;
    struct tm yesterday;
    if (localBreakdown(Clock().time(nullptr) - 86400, yesterday)) {
        if (day_ == -1)
            day_ = yesterday.tm_mday;
        else if (yesterday.tm_mday != day_)
            rollOver(yesterday);
    }
    if (!file_) return;
    if (!unflushed_) fseek(file_.get(), 0, SEEK_END);
    fputs(text, file_.get());
    if (flags & ZEL_WRITE_NEWLINE) fputc('\n', file_.get());
    if (flags & ZEL_WRITE_FLUSH) {
        fflush(file_.get());
        unflushed_ = false;
    } else {
        unflushed_ = true;
    }
}

void ZelForceTraceFile(const std::string &path) {
    {
        ZelTraceGuard guard;
        g_forcedPath = path;
        g_forced.store(!path.empty(), std::memory_order_release);
    }
    // Takes effect at once: the forced file is open (or closed again) when
    // this returns.
    ZelTraceGuard guard;
    if (ZelTraceManager *manager = g_traceManager) {
        manager->refresh();
        // Forced already, to another file: switch to this one.
        if (!path.empty() && manager->path() != path) manager->setTraceFile(path);
    }
}

void ZelTraceStartup() {
    ACE::init();
    g_lockReady = true;
    g_componentManager = new ZelTraceComponentManager();
    g_traceManager = new ZelTraceManager();
}

void ZelTraceShutdown() {
    {
        ZelTraceGuard guard;
        delete g_traceManager;
        g_traceManager = nullptr;
        delete g_componentManager;
        g_componentManager = nullptr;
    }
    ACE::fini();
}

void ZelTraceReload() {
    ZelTraceGuard guard;
    delete g_traceManager;
    g_traceManager = nullptr;
    delete g_componentManager;
    g_componentManager = new ZelTraceComponentManager();
    g_traceManager = new ZelTraceManager();
}
