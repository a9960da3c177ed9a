#include "pac/SafeRegex.h"

#include <tre/regex.h>

#include "trace/tracefunc.h"

SafeRegex::SafeRegex(const std::string &pattern) : pattern_(pattern) { Compile(); }

SafeRegex::~SafeRegex() { Free(); }

void SafeRegex::Free() {
    if (!compiled_) return;
    regfree(compiled_);
    delete compiled_;
    compiled_ = nullptr;
}

void SafeRegex::Compile() {
    // Quiet: a bypass list compiles once per token, and entry and exit lines
    // for each would bury the resolver's own lines.
    tracefunc tf(__LINE__, "SafeRegex", "SafeRegex::Compile", 0, true);
    if (compiled_) {
        tf << "regex_t already exists.  Freeing it." << endtrace;
        Free();
    }
    compiled_ = new regex_t();
    const int rc = regcomp(compiled_, pattern_.c_str(), REG_EXTENDED | REG_ICASE | REG_NOSUB);
    if (rc != 0) {
        tf << "regcomp failed.  RegExp: \"" << pattern_ << "\". Return code: " << rc << endtrace;
        // regcomp frees its own partial work on failure.
        delete compiled_;
        compiled_ = nullptr;
    }
}

bool SafeRegex::Matches(const std::string &subject) {
    if (!compiled_) {
        tracefunc tf(__LINE__, "SafeRegex", "SafeRegex::Matches");
        tf << "regex_t object is NULL." << endtrace;
        return false;
    }
    return regexec(compiled_, subject.c_str(), 0, nullptr, 0) == 0;
}

std::string ShellExpressionToRegex(const std::string &shexp) {
    std::string regex;
    regex.reserve(shexp.size() * 2 + 2);
    regex += '^';
    for (const char c : shexp) {
        switch (c) {
        case '*': regex += ".*"; break;
        case '?': regex += '.'; break;
        // Only the dot is escaped: the rest keeps its regular-expression
        // meaning, so "*.example.(com|net)" is an alternation. Scripts in
        // the field rely on it.
        case '.': regex += "\\."; break;
        default: regex += c; break;
        }
    }
    regex += '$';
    return regex;
}

bool ShellExpressionMatch(const std::string &text, const std::string &shexp) {
    SafeRegex regex(ShellExpressionToRegex(shexp));
    return regex.Matches(text);
}
