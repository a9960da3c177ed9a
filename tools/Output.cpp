// What the tool prints: one line per target, or with --json one JSON object
// per target and line (JSON Lines), then what the run had in common.
#include <windows.h>

#include <nlohmann/json.hpp>

#include <cstdio>

#include "Tool.h"

namespace tool {

namespace {

// ANSI code-page text as UTF-8, for JSON.
std::string Utf8(const std::string &ansi) {
    if (ansi.empty()) return ansi;
    const int wide = MultiByteToWideChar(CP_ACP, 0, ansi.data(), static_cast<int>(ansi.size()),
                                         nullptr, 0);
    if (wide <= 0) return std::string();
    std::wstring w(static_cast<size_t>(wide), L'\0');
    MultiByteToWideChar(CP_ACP, 0, ansi.data(), static_cast<int>(ansi.size()), &w[0], wide);
    const int bytes = WideCharToMultiByte(CP_UTF8, 0, w.data(), wide, nullptr, 0, nullptr, nullptr);
    if (bytes <= 0) return std::string();
    std::string out(static_cast<size_t>(bytes), '\0');
    WideCharToMultiByte(CP_UTF8, 0, w.data(), wide, &out[0], bytes, nullptr, nullptr);
    return out;
}

const char *StatusWord(unsigned status) {
    switch (status) {
    case ROUTVANE_PROXY: return "proxy";
    case ROUTVANE_DIRECT: return "direct";
    default: return "failed";
    }
}

const char *BrowserWord(unsigned browser) {
    switch (browser) {
    case ROUTVANE_BROWSER_IE: return "WinINet settings";
    case ROUTVANE_BROWSER_NETSCAPE: return "Netscape Navigator preferences";
    default: return "not determined";
    }
}

// The keys keep their order: target first, then the answer's.
void PrintJson(const Options &o, const Answer &a) {
    using Json = nlohmann::ordered_json;
    Json entries = Json::array();
    for (const auto &e : a.entries)
        entries.push_back(Json{{"direct", e.direct}, {"host", Utf8(e.host)}, {"port", e.port}});
    Json object;
    object["target"] = Utf8(a.target.text());
    object["status"] = a.status;
    object["browser"] = a.hasBrowser && a.browser != ROUTVANE_BROWSER_UNKNOWN ? Json(a.browser)
                                                                             : Json(nullptr);
    object["entries"] = entries;
    object["autoConfigURL"] = Utf8(a.autoConfigURL);
    if (o.script) object["script"] = Utf8(a.script);
    if (o.lint) {
        Json notes = Json::array();
        for (const std::string &note : a.notes) notes.push_back(Utf8(note));
        object["notes"] = notes;
    }
    // Text that is no valid UTF-8 after all is replaced, never a failure.
    printf("%s\n", object.dump(-1, ' ', false, Json::error_handler_t::replace).c_str());
}

std::string EntriesText(const Answer &a) {
    std::string text;
    for (const auto &e : a.entries) {
        if (!text.empty()) text += "; ";
        text += e.direct ? "DIRECT" : "PROXY " + e.host + ":" + std::to_string(e.port);
    }
    return text.empty() ? "none" : text;
}

// After the targets' lines: where the answers came from (the last
// target's view of it).
void PrintSource(const Options &o, const Answer &a) {
    switch (o.mode) {
    case Mode::Com:
        if (a.hasBrowser) printf("browser: %u (%s)\n", a.browser, BrowserWord(a.browser));
        if (!a.autoConfigURL.empty()) printf("auto-config URL: %s\n", a.autoConfigURL.c_str());
        break;
    case Mode::Pac:
        if (a.autoConfigURL.empty())
            printf("auto-config URL: none fetched (not a URL: %s)\n", o.pacUrl.c_str());
        else
            printf("auto-config URL: %s%s\n", a.autoConfigURL.c_str(),
                   a.status == ROUTVANE_FAILED ? " (failed)" : "");
        break;
    case Mode::PacFile: printf("script file: %s\n", o.pacFile.c_str()); break;
    case Mode::Detect:
        // The URL fetched last decided unless discovery failed.
        if (a.autoConfigURL.empty())
            printf("auto-config URL: none found\n");
        else if (a.status == ROUTVANE_FAILED)
            printf("auto-config URL: none found (last tried: %s)\n", a.autoConfigURL.c_str());
        else
            printf("auto-config URL: %s\n", a.autoConfigURL.c_str());
        break;
    }
    if (o.script) printf("script:\n%s\n", a.script.c_str());
}

}  // namespace

void PrintAnswers(const Options &o, const std::vector<Answer> &answers) {
    for (const Answer &a : answers) {
        if (o.json) {
            PrintJson(o, a);
            continue;
        }
        printf("%s  %s  %s\n", a.target.text().c_str(), StatusWord(a.status),
               EntriesText(a).c_str());
        for (const std::string &note : a.notes) printf("  lint: %s\n", note.c_str());
    }
    if (!o.json && !answers.empty()) PrintSource(o, answers.back());
}

int ExitCode(unsigned status) {
    return status == ROUTVANE_PROXY ? 0 : status == ROUTVANE_DIRECT ? 1 : 2;
}

}  // namespace tool
