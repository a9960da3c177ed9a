// The function tracer: an entry line on construction, an exit line with the
// time spent on destruction, and the message stream in between:
//
//     tracefunc tf(__LINE__, "Routvane", "Routvane::readURL");
//     tf << "Using WPAD Connect timeout: " << ms << " ms" << endtrace;
#pragma once

#include <cstdint>
#include <string>

// A 32-bit value inserted in hexadecimal ("%lX").
struct ZelHex {
    uint32_t value;
};
inline ZelHex ZelHexValue(uint32_t value) { return ZelHex{value}; }

class tracefunc {
public:
    tracefunc(unsigned line, const char *file, const char *function, uint64_t object = 0,
              bool quiet = false);
    virtual ~tracefunc();
    tracefunc(const tracefunc &) = delete;
    tracefunc &operator=(const tracefunc &) = delete;

    // Selects the level of the message being built.
    tracefunc &level(int level) {
        level_ = level;
        return *this;
    }

    tracefunc &operator<<(const char *text);
    tracefunc &operator<<(const std::string &text);
    tracefunc &operator<<(const wchar_t *text);
    tracefunc &operator<<(int value);
    tracefunc &operator<<(unsigned value);
    tracefunc &operator<<(long value);
    tracefunc &operator<<(unsigned long value);
    tracefunc &operator<<(long long value);
    tracefunc &operator<<(unsigned long long value);
    tracefunc &operator<<(const ZelHex &value);
    tracefunc &operator<<(tracefunc &(*manipulator)(tracefunc &)) { return manipulator(*this); }

    // Ends the message: writes it as one line when the level passes.
    void end();

    // Whether text inserted now would be kept for the file: a caller whose
    // text is costly to build asks first.
    bool enabled() const;

private:
    void appendNumber(const char *format, ...);
    void writeScopeLine(bool exiting, uint32_t delta);
    void writeExitLines();

    int level_ = 0;
    std::string text_;
    // Names are string literals of the callers: kept as pointers so that a
    // disabled trace allocates nothing.
    const char *function_;
    const char *file_;
    unsigned line_;
    bool quiet_;
    uint64_t object_;
    uint32_t startTick_ = 0;
};

// Ends a message: tf << "text" << endtrace.
tracefunc &endtrace(tracefunc &tf);
