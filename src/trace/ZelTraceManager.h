// The process-wide trace facility: the trace lock, the trace file and its
// daily roll-over, the level threshold, and the start-up and tear-down that
// the library performs at load and unload.
#pragma once

#include <atomic>
#include <cstdio>
#include <ctime>
#include <string>

#include "util/Owners.h"

class ZelTraceComponentManager;

enum ZelLevel : int { ZEL_DETAIL = 0, ZEL_TRACE = 1, ZEL_ERROR = 2 };

enum : unsigned { ZEL_WRITE_FLUSH = 1, ZEL_WRITE_NEWLINE = 2 };

// Holds the trace lock for its scope. Before start-up has set the ready
// flag it takes no lock at all.
class ZelTraceGuard {
public:
    ZelTraceGuard();
    ~ZelTraceGuard();
    ZelTraceGuard(const ZelTraceGuard &) = delete;
    ZelTraceGuard &operator=(const ZelTraceGuard &) = delete;

private:
    bool held_;
};

class ZelTraceManager {
public:
    // Reads "DebugLevel-" and then "Debug-" for the executable, opening the
    // named trace file.
    ZelTraceManager();
    virtual ~ZelTraceManager();
    ZelTraceManager(const ZelTraceManager &) = delete;
    ZelTraceManager &operator=(const ZelTraceManager &) = delete;

    // A file is open, the level reaches the threshold, and the current
    // component passes the filter.
    bool isEnabled(int level);
    // Time stamp, level word and current component, tab-separated.
    std::string linePrefix(int level);
    void write(unsigned flags, const char *text);
    // Re-reads the file setting when a minute has passed; whether a file is open.
    bool refresh();
    void setTraceFile(const std::string &path);

    int threshold() const { return threshold_; }
    const std::string &path() const { return path_; }

    // The threshold a registry word stands for.
    static int LevelFromWord(const std::string &word);
    static const char *LevelWord(int level);
    // The path a file rolled over on the given day is renamed to.
    static std::string RolledName(const std::string &path, const struct tm &day);

private:
    void readFileSetting();
    void rollOver(const struct tm &day);
    bool localBreakdown(time_t t, struct tm &out);

    FileOwner file_;
    int day_ = -1;
    bool forced_ = false;
    std::string path_;
    int threshold_ = ZEL_DETAIL;
    std::atomic<long long> lastRead_{0};
    // Text this manager has written but not flushed yet: the stream already
    // stands at the end of the file, and a seek would only force an extra
    // write of the buffered part of the line.
    bool unflushed_ = false;
    // The local breakdown of the last second asked for: every line written
    // within one second needs the same one, and it is costly to make.
    time_t brokenDownTime_ = 0;
    struct tm brokenDown_ = {};
    bool (*brokenDownBy_)(time_t, struct tm *) = nullptr;
};

// The process-wide instances; null outside start-up and tear-down.
ZelTraceManager *ZelTraceManagerInstance();
ZelTraceComponentManager *ZelComponentManagerInstance();

// The file name of the host executable, extension included.
const std::string &ZelExecutableName();

// Start-up at load: the ACE object manager, the lock's ready flag, then the
// component manager and the trace manager. Tear-down reverses it.
void ZelTraceStartup();
void ZelTraceShutdown();
// Replaces both managers, re-reading every registry setting.
void ZelTraceReload();

// The forced-tracing hook. A non-empty path forces tracing on into that file
// (opened for appending) whatever the registry's file setting, and keeps it
// there, unaffected by the registry, until the hook is cleared again; an
// empty path clears the hook, which closes the forced file (tracing stays
// off until the registry's file setting is next read). The threshold and the
// component filter of the registry still apply. Off by default: the DLL
// never calls it; a program linking the library (routvane.exe --trace) may.
void ZelForceTraceFile(const std::string &path);
