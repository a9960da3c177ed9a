// Running PAC scripts in the real engine from the tests.
#pragma once

#include <windows.h>

#include <string>

struct ScriptOutcome {
    bool parsed = false;
    bool executed = false;
    std::string result;
    HRESULT status = S_OK;
    std::string message;
    std::string detail;
};

// Builds a host, parses the script and calls FindProxyForURL(url, host).
ScriptOutcome RunScript(const std::string &script, const std::string &url = "http://web/",
                        const std::string &host = "web");

// Evaluates one JScript expression inside FindProxyForURL and answers
// "<typeof>:<value>", or "error:<number in hex>" when it throws.
std::string Eval(const std::string &expression);
