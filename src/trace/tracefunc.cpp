#include "trace/tracefunc.h"

#include <windows.h>

#include <cstdarg>
#include <cstdio>

#include "trace/Clock.h"
#include "trace/ZelComponent.h"
#include "trace/ZelTraceManager.h"
#include "util/UnicodeUtilInclude.h"

namespace {

bool TraceFileOpen() {
    ZelTraceManager *manager = ZelTraceManagerInstance();
    return manager && manager->refresh();
}

}  // namespace

tracefunc::tracefunc(unsigned line, const char *file, const char *function, uint64_t object,
                     bool quiet)
    : function_(function ? function : ""),
      file_(file ? file : ""),
      line_(line),
      quiet_(quiet),
      object_(object) {
    if (TraceFileOpen()) {
        text_.reserve(4096);
        level_ = ZEL_TRACE;
        if (!quiet_) writeScopeLine(false, 0);
    }
    startTick_ = Clock().GetTickCount();
}

tracefunc::~tracefunc() {
    // Writing allocates, and a destructor may run while an exception
    // unwinds: a line that cannot be written is lost, nothing is thrown.
    try {
        writeExitLines();
    } catch (...) {
    }
}

void tracefunc::writeExitLines() {
    if (!TraceFileOpen()) return;
    // Unsigned arithmetic gives the true duration across a wrap of the
    // 32-bit tick counter.
    const uint32_t delta = Clock().GetTickCount() - startTick_;
    if (level_ < ZEL_TRACE) level_ = ZEL_TRACE;
    if (!quiet_) writeScopeLine(true, delta);
    if (!text_.empty()) {
        // A message begun and never ended still reaches the file, without
        // the thread tail, whatever the threshold says.
        ZelTraceManager *manager = ZelTraceManagerInstance();
        if (!manager) return;
        ZelTraceGuard guard;
        manager->write(0, (manager->linePrefix(ZEL_TRACE) + "\t").c_str());
        manager->write(ZEL_WRITE_NEWLINE | ZEL_WRITE_FLUSH, text_.c_str());
    }
}

void tracefunc::writeScopeLine(bool exiting, uint32_t delta) {
    {
        // Momentarily pushed and popped again: the line stays under the
        // caller's component.
        ZelComponent tracer("tracer");
    }
    *this << function_;
    if (object_ != 0) *this << "[ 0x" << ZelHexValue(static_cast<uint32_t>(object_)) << " ] ";
    *this << "(" << file_ << ":" << static_cast<int>(line_);
    // One blank after the colon on exit, two on entry: readers of existing
    // trace files match on both forms.
    if (exiting)
        *this << "): Exited (delta = " << static_cast<unsigned long>(delta) << "ms)";
    else
        *this << "):  Entered";
    *this << endtrace;
}

bool tracefunc::enabled() const {
    ZelTraceManager *manager = ZelTraceManagerInstance();
    return manager && manager->isEnabled(level_);
}

void tracefunc::appendNumber(const char *format, ...) {
    char buffer[128];
    va_list args;
    va_start(args, format);
    vsnprintf(buffer, sizeof buffer, format, args);
    va_end(args);
    text_ += buffer;
}

tracefunc &tracefunc::operator<<(const char *text) {
    if (enabled() && text) text_ += text;
    return *this;
}

tracefunc &tracefunc::operator<<(const std::string &text) {
    if (enabled()) text_ += text;
    return *this;
}

tracefunc &tracefunc::operator<<(const wchar_t *text) {
    if (enabled()) text_ += UTF8FromUnicodeNoThrow(text);
    return *this;
}

tracefunc &tracefunc::operator<<(int value) {
    if (enabled()) appendNumber("%d", value);
    return *this;
}

tracefunc &tracefunc::operator<<(unsigned value) {
    if (enabled()) appendNumber("%u", value);
    return *this;
}

tracefunc &tracefunc::operator<<(long value) {
    if (enabled()) appendNumber("%ld", value);
    return *this;
}

tracefunc &tracefunc::operator<<(unsigned long value) {
    if (enabled()) appendNumber("%lu", value);
    return *this;
}

tracefunc &tracefunc::operator<<(long long value) {
    if (enabled()) appendNumber("%lld", value);
    return *this;
}

tracefunc &tracefunc::operator<<(unsigned long long value) {
    if (enabled()) appendNumber("%llu", value);
    return *this;
}

tracefunc &tracefunc::operator<<(const ZelHex &value) {
    if (enabled()) appendNumber("%lX", static_cast<unsigned long>(value.value));
    return *this;
}

void tracefunc::end() {
    ZelTraceManager *manager = ZelTraceManagerInstance();
    if (manager && manager->isEnabled(level_)) {
        char tid[32];
        snprintf(tid, sizeof tid, "%ld", static_cast<long>(GetCurrentThreadId()));
        text_ += " (tid=";
        text_ += tid;
        text_ += ";function=";
        text_ += function_;
        text_ += ")";
        // Prefix and text are two writes; holding the lock across both keeps
        // lines of different threads whole.
        ZelTraceGuard guard;
        manager->write(0, (manager->linePrefix(level_) + "\t").c_str());
        manager->write(ZEL_WRITE_NEWLINE | ZEL_WRITE_FLUSH, text_.c_str());
    }
    text_.clear();
    level_ = ZEL_DETAIL;
}

tracefunc &endtrace(tracefunc &tf) {
    tf.end();
    return tf;
}
