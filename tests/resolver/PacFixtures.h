// The frame of the PAC and Netscape tests: a loopback server, a TEMP that
// must be empty again at the end, WinINet handles counted, and trace files.
#pragma once

#include <gtest/gtest.h>

#include <winsock2.h>
#include <windows.h>
#include <objbase.h>

#include <cstdlib>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "LoopbackHttpServer.h"
#include "TestSupport.h"
#include "resolver/Routvane.h"
#include "resolver/WinInetDownload.h"
#include "resolver/WinInetSettings.h"

// Sets (or with unset, removes) an environment variable for the C library
// and the process alike, and puts back what was there when it goes.
class ScopedEnvironment {
public:
    ScopedEnvironment(const std::string &name, const std::string &value, bool unset = false)
        : name_(name),
          had_(getenv(name.c_str()) != nullptr),
          old_(had_ ? getenv(name.c_str()) : "") {
        _putenv_s(name.c_str(), unset ? "" : value.c_str());
    }
    ~ScopedEnvironment() { _putenv_s(name_.c_str(), had_ ? old_.c_str() : ""); }
    ScopedEnvironment(const ScopedEnvironment &) = delete;
    ScopedEnvironment &operator=(const ScopedEnvironment &) = delete;

private:
    const std::string name_;
    const bool had_;
    const std::string old_;
};

struct Entry {
    uint32_t kind;
    std::string host;
    uint32_t port;
    bool operator==(const Entry &o) const {
        return kind == o.kind && host == o.host && port == o.port;
    }
};
std::ostream &operator<<(std::ostream &out, const Entry &e);
const Entry kDirect{PROXY_ENTRY_DIRECT, "", 0};
inline Entry Proxy(const std::string &host, uint32_t port) {
    return Entry{PROXY_ENTRY_PROXY, host, port};
}
std::vector<Entry> Entries(const Routvane &resolver);

// A script whose FindProxyForURL returns the given JScript expression.
inline std::string Returning(const std::string &expression) {
    return "function FindProxyForURL(url, host) {\n    return " + expression + ";\n}\n";
}

// The names in a folder, "." and ".." left out.
std::vector<std::string> DirectoryEntries(const std::string &path);

// The WinINet calls made through the download seam, one line each, such as
// "open OvrenaTessel 1", "option 2 4 5000", "url 84000200 -1", "close session".
struct WinInetLog {
    static int open;  // handles given and not yet closed
    static std::vector<std::string> calls;
};

class PacTest : public ::testing::Test {
protected:
    PacTest();
    void TearDown() override;
    // A fresh trace file, so that a row of a table sees its own lines only.
    void StartTrace();
    // Message texts, without line prefix and thread tail, holding the fragment.
    std::vector<std::string> Messages(const std::string &fragment) const;
    static std::string Text(const std::string &line);
    uint32_t Read(const std::string &url) { return resolver_.readURL(url, script_); }

    struct Com {
        HRESULT hr = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
        ~Com() {
            if (SUCCEEDED(hr)) CoUninitialize();
        }
    } com_;
    LoopbackHttpServer server_;
    ScopedWinInetDownload download_;
    ScopedWinInetSettings settings_;
    TempDir files_;  // the trace files and the test's own other files
    TempDir temp_;
    ScopedEnvironment tempVariable_{"TEMP", temp_.path()}, tmpVariable_{"TMP", temp_.path()};
    // Far beyond what a loopback download needs however loaded the
    // machine: a worker abandoned here would outlive the test's fakes.
    ScopedRegistryValue timeout_ = ScopedRegistryValue::Dword("WPADConnectTimeout", 10);
    std::unique_ptr<ScopedTrace> trace_;
    int traces_ = 0;
    Routvane resolver_;
    std::string script_;
};
