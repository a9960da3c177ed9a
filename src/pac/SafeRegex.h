// One compiled POSIX extended regular expression, and the shell-expression
// match built on it that serves both shExpMatch and the bypass list.
#pragma once

#include <tre/tre.h>

#include <string>

class SafeRegex {
public:
    explicit SafeRegex(const std::string &pattern);
    virtual ~SafeRegex();
    SafeRegex(const SafeRegex &) = delete;
    SafeRegex &operator=(const SafeRegex &) = delete;

    // Compiles the held expression; a failure leaves nothing compiled.
    void Compile();
    // True when the whole expression matches the subject.
    bool Matches(const std::string &subject);
    bool compiled() const { return compiled_ != nullptr; }

private:
    void Free();

    std::string pattern_;
    regex_t *compiled_ = nullptr;
};

// "*" any run, "?" any one character, "." literal; every other character
// keeps its regular-expression meaning. Anchored at both ends.
std::string ShellExpressionToRegex(const std::string &shexp);

// Whether the whole text matches the shell expression, letters compared
// without regard to case. An expression that does not compile matches nothing.
bool ShellExpressionMatch(const std::string &text, const std::string &shexp);
