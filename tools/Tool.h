// routvane.exe: what will a program on this machine be told, and why. The
// pieces of the program: its arguments, the runs of the resolver, the
// output; routvane.cpp ties them together under the run's time limit.
#pragma once

#include <string>
#include <vector>

#include <routvane.h>

namespace tool {

const int kExitUsage = 3;

enum class Mode { Com, Pac, PacFile, Detect };

struct Target {
    std::string host;
    unsigned port = 80;
    std::string text() const { return host + ":" + std::to_string(port); }
};

struct Options {
    Mode mode = Mode::Com;
    unsigned optionsWord = 0;
    bool json = false;
    bool script = false;
    bool trace = false;
    bool lint = false;
    std::string pacUrl;
    std::string pacFile;
    unsigned timeoutSeconds = 30;
    std::vector<Target> targets;
    // Lines of the targets file that named no target; each was reported.
    unsigned badTargetLines = 0;
};

// One target's answer.
struct Answer {
    Target target;
    unsigned status = ROUTVANE_FAILED;
    bool hasBrowser = false;
    unsigned browser = ROUTVANE_BROWSER_UNKNOWN;
    struct Entry {
        bool direct;
        std::string host;
        unsigned port;
    };
    std::vector<Entry> entries;
    std::string autoConfigURL;
    std::string script;
    // The compatibility report (--lint), in the order things happened.
    std::vector<std::string> notes;
};

// The usage text of --help.
extern const char kUsage[];

// The command line read; a usage error ends the program with one line on
// standard error and exit code 3.
Options ParseArguments(int argc, char **argv);
[[noreturn]] void Usage(const std::string &problem);

// HOST[:PORT]; false when it is none (an empty host, a blank inside, a
// port that is not a number from 0 to 65535).
bool ParseTarget(const std::string &text, Target &target);

// Every target answered, in order, by the mode's resolver.
std::vector<Answer> ResolveAll(const Options &options);

void PrintAnswers(const Options &options, const std::vector<Answer> &answers);

// 0 proxy entries, 1 direct, 2 failure.
int ExitCode(unsigned status);

}  // namespace tool
