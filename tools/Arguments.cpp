// The tool's command line: options through CLI11, then the rules between
// them, then the targets (arguments and the targets file).
#include <windows.h>

#include <CLI/CLI.hpp>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "Tool.h"

namespace tool {

const char kUsage[] =
    "usage: routvane [--options N] [--json] [--timeout S] TARGET...\n"
    "       routvane --pac URL [--json] [--script] [--trace] [--lint] [--timeout S] TARGET...\n"
    "       routvane --pac-file PATH [--json] [--script] [--trace] [--lint] [--timeout S] "
    "TARGET...\n"
    "       routvane --detect [--options N] [--json] [--script] [--trace] [--lint] [--timeout S] "
    "TARGET...\n"
    "\n"
    "  TARGET is HOST[:PORT]; a lone number after a host is its port (HOST PORT); PORT\n"
    "  defaults to 80.\n"
    "  (no mode)      resolve through the registered routvane.dll, as a client would\n"
    "  --pac URL      run the PAC script at URL (fetched once) for each target\n"
    "  --pac-file PATH  run the PAC script in a local file for each target\n"
    "  --detect       automatic discovery: DHCP (option 252), then the wpad DNS names\n"
    "  --targets FILE more targets, one HOST[:PORT] a line (blank lines and # comments skipped)\n"
    "  --options N    options word, decimal or 0x hexadecimal: bit 0 skips the DHCP stage,\n"
    "                 bit 1 the DNS stage, bit 2 forces the DHCP query\n"
    "  --json         one JSON object per target and line on standard output\n"
    "  --script       also print the PAC script that decided\n"
    "  --trace        copy the run's trace lines to standard error\n"
    "  --lint         list what in the run behaves differently from other PAC runtimes\n"
    "  --timeout S    give up after S seconds, 1 to 86400 (default 30)\n"
    "exit code: the highest over the targets of 0 proxy entries, 1 direct, 2 failure;\n"
    "           3 usage error\n";

void Usage(const std::string &problem) {
    fprintf(stderr, "routvane: %s (routvane --help shows the usage)\n", problem.c_str());
    fflush(stderr);
    exit(kExitUsage);
}

namespace {

// Decimal, or hexadecimal after 0x; nothing else (no sign, no blanks).
bool ParseNumber(const std::string &text, unsigned long long limit, unsigned &out) {
    size_t start = 0;
    int base = 10;
    if (text.size() > 1 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        start = 2;
    }
    const std::string digits = text.substr(start);
    if (digits.empty() || digits.size() > 16) return false;
    for (const char c : digits) {
        const bool ok = base == 16 ? isxdigit(static_cast<unsigned char>(c)) != 0
                                   : (c >= '0' && c <= '9');
        if (!ok) return false;
    }
    const unsigned long long value = strtoull(digits.c_str(), nullptr, base);
    if (value > limit) return false;
    out = static_cast<unsigned>(value);
    return true;
}

// A word that can only be meant as a port: it starts with a digit and has
// neither a dot nor a colon (an address or HOST:PORT has one).
bool LooksLikePort(const std::string &word) {
    return !word.empty() && isdigit(static_cast<unsigned char>(word[0])) &&
           word.find_first_of(".:") == std::string::npos;
}

// The command line's targets: HOST[:PORT] each, and today's HOST PORT.
void AddArgumentTargets(const std::vector<std::string> &words, std::vector<Target> &targets) {
    bool portTaken = true;  // whether the last target already has its port
    for (const std::string &word : words) {
        if (!portTaken && LooksLikePort(word)) {
            if (!ParseNumber(word, 65535, targets.back().port))
                Usage("PORT must be a number from 0 to 65535: " + word);
            portTaken = true;
            continue;
        }
        Target target;
        if (word.empty()) Usage("missing HOST");
        if (!ParseTarget(word, target)) Usage("not HOST[:PORT]: " + word);
        portTaken = word.find(':') != std::string::npos;
        targets.push_back(target);
    }
}

std::string Trimmed(const std::string &text) {
    const size_t first = text.find_first_not_of(" \t\r");
    if (first == std::string::npos) return std::string();
    return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

// The targets file: one HOST[:PORT] a line; a bad line is reported with its
// number and counted, the good ones still run.
void AddFileTargets(const std::string &path, Options &o) {
    const DWORD attributes = GetFileAttributesA(path.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY))
        Usage("--targets: " + path + " is a directory");
    std::ifstream file(path, std::ios::binary);
    if (!file) Usage("--targets: cannot read " + path);
    std::string line;
    for (unsigned number = 1; std::getline(file, line); ++number) {
        const std::string text = Trimmed(line.substr(0, line.find('#')));
        if (text.empty()) continue;
        Target target;
        if (ParseTarget(text, target)) {
            o.targets.push_back(target);
        } else {
            fprintf(stderr, "routvane: %s:%u: not HOST[:PORT]: %s\n", path.c_str(), number,
                    text.c_str());
            ++o.badTargetLines;
        }
    }
}

}  // namespace

bool ParseTarget(const std::string &text, Target &target) {
    if (text.empty() || text.find_first_of(" \t") != std::string::npos) return false;
    const size_t colon = text.rfind(':');
    target.host = text.substr(0, colon);
    target.port = 80;
    if (target.host.empty()) return false;
    return colon == std::string::npos || ParseNumber(text.substr(colon + 1), 65535, target.port);
}

Options ParseArguments(int argc, char **argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::string(argv[i]) == "/?") {
            fputs(kUsage, stdout);
            exit(0);
        }
    }
    Options o;
    std::string optionsText, targetsFile, timeoutText;
    std::vector<std::string> words;
    bool help = false, detect = false;
    CLI::App app("routvane", "routvane");
    app.set_help_flag();  // the usage text is the program's own
    app.add_flag("-h,--help", help);
    CLI::Option *options = app.add_option("--options", optionsText);
    CLI::Option *pac = app.add_option("--pac", o.pacUrl);
    CLI::Option *pacFile = app.add_option("--pac-file", o.pacFile);
    CLI::Option *detectFlag = app.add_flag("--detect", detect);
    app.add_flag("--json", o.json);
    app.add_flag("--script", o.script);
    app.add_flag("--trace", o.trace);
    app.add_flag("--lint", o.lint);
    CLI::Option *timeout = app.add_option("--timeout", timeoutText);
    app.add_option("--targets", targetsFile);
    app.add_option("target", words);
    pac->excludes(detectFlag);
    pacFile->excludes(pac);
    pacFile->excludes(detectFlag);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &e) {
        if (help) {
            fputs(kUsage, stdout);
            exit(0);
        }
        Usage(e.what());
    }
    if (help) {
        fputs(kUsage, stdout);
        exit(0);
    }

    // An option word where the value belongs is a forgotten value.
    auto missing = [](const std::string &value) { return value.empty() || value[0] == '-'; };
    if (*pac && missing(o.pacUrl)) Usage("--pac needs a URL");
    if (*pacFile && missing(o.pacFile)) Usage("--pac-file needs a path");
    if (*timeout && (!ParseNumber(timeoutText, 86400, o.timeoutSeconds) || o.timeoutSeconds == 0))
        Usage("--timeout: not a number of seconds from 1 to 86400: " + timeoutText);
    o.mode = *pac ? Mode::Pac : *pacFile ? Mode::PacFile : detect ? Mode::Detect : Mode::Com;
    if (*options && !ParseNumber(optionsText, 0xFFFFFFFFull, o.optionsWord))
        Usage("--options: not a number from 0 to 0xFFFFFFFF: " + optionsText);
    if ((o.mode == Mode::Pac || o.mode == Mode::PacFile) && *options)
        Usage("--options has no effect with --pac or --pac-file (it is for --detect and the COM "
              "mode)");
    if (o.mode == Mode::Com && o.trace)
        Usage("--trace needs --pac, --pac-file or --detect (the registered DLL traces to its own "
              "file)");
    if (o.mode == Mode::Com && o.lint)
        Usage("--lint needs --pac, --pac-file or --detect (the registered DLL runs its scripts "
              "itself)");
    AddArgumentTargets(words, o.targets);
    if (!targetsFile.empty()) AddFileTargets(targetsFile, o);
    if (o.targets.empty() && o.badTargetLines == 0) Usage("missing HOST");
    return o;
}

}  // namespace tool
