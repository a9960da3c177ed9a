// PAC evaluation: an auto-config URL completed where it names only a
// server, its script fetched and run in a script host of its own, and the
// answer of FindProxyForURL read into the proxy list.
#include <algorithm>
#include <sstream>
#include <string>

#include "pac/ScriptHost.h"
#include "resolver/Routvane.h"
#include "trace/ZelComponent.h"
#include "trace/tracefunc.h"

namespace {

// The URL to fetch first when the auto-config URL names only a server
// (http://server or http://server/); empty when it is fetched as given.
std::string CompletedUrl(const std::string &pacUrl, size_t slashes) {
    if (slashes == 2) return pacUrl + "/wpad.dat";
    if (slashes == 3 && pacUrl.back() == '/') return pacUrl + "wpad.dat";
    return std::string();
}

}  // namespace

uint32_t Routvane::RunAutoProxyURL(uint32_t, const std::string &target, uint32_t port,
                                   const std::string &pacUrl) {
    ZelComponent component("Routvane");
    tracefunc tf(__LINE__, "Routvane", "Routvane::RunAutoProxyURL");
    tf << target << "," << static_cast<int>(port) << "," << pacUrl << endtrace;

    std::string script;
    const uint32_t fetched = FetchAutoProxyScript(pacUrl, script);
    if (fetched == ROUTVANE_FAILED) return ROUTVANE_FAILED;
    return EvaluateAutoProxyScript(script, target, port, fetched);
}

uint32_t Routvane::FetchAutoProxyScript(const std::string &pacUrl, std::string &script) {
    // Lines are written in the name of RunAutoProxyURL, whose halves these are.
    tracefunc tf(__LINE__, "Routvane", "Routvane::RunAutoProxyURL", 0, true);
    const size_t slashes = static_cast<size_t>(std::count(pacUrl.begin(), pacUrl.end(), '/'));
    if (slashes < 2) {
        tf << "Invalid input URL" << endtrace;
        return ROUTVANE_FAILED;
    }

    uint32_t downloaded = ROUTVANE_FAILED;
    const std::string completed = CompletedUrl(pacUrl, slashes);
    if (!completed.empty()) {
        downloaded = readURL(completed, script);
        if (downloaded == ROUTVANE_FAILED) return ROUTVANE_FAILED;
    }
    if (script.empty()) {
        // Either no completion was made or its text was no script: the URL
        // as given gets its turn. An empty text here goes on to evaluation,
        // which then fails.
        downloaded = readURL(pacUrl, script);
    }
    return downloaded;
}

uint32_t Routvane::EvaluateAutoProxyScript(const std::string &script, const std::string &target,
                                           uint32_t port, uint32_t fetched) {
    // Lines are written in the name of RunAutoProxyURL, whose halves these are.
    tracefunc tf(__LINE__, "Routvane", "Routvane::RunAutoProxyURL", 0, true);
    autoConfigScript_ = script;
    tf << "--- BEGIN SCRIPT ---" << endtrace;
    tf << script << endtrace;
    tf << "--- END SCRIPT ---" << endtrace;

    std::string answer;
    {
        // One engine per evaluation, gone before the answer is read.
        ScriptHost host(observer_);
        std::string message;
        std::string detail;
        if (!host.Parse(script)) {
            host.GetErrorText(message, detail);
            tf << "host.Parse failed:  " << message << ";" << detail << endtrace;
            return fetched;
        }
        // Always https:// and no path, whatever the scheme the client asked
        // about: the form the scripts are called with, kept on purpose.
        std::ostringstream url;
        url << "https://" << target << ":" << port;
        if (!host.ExecuteSSS("FindProxyForURL", url.str(), target, answer)) {
            host.GetErrorText(message, detail);
            tf << "host.ExecuteSSS failed:  " << message << ";" << detail << endtrace;
            return fetched;
        }
        tf << "FindProxyForURL returned:  " << answer << endtrace;
    }
    return ParseFindProxyForURLReturn(answer);
}
