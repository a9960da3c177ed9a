// The frame of the PAC and Netscape tests: a loopback server, a TEMP that
// must be empty again at the end, WinINet handles counted, and trace files.
#pragma once

#include <gtest/gtest.h>

#include <winsock2.h>
#include <windows.h>
#include <objbase.h>

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "LoopbackHttpServer.h"
#include "TestSupport.h"
#include "resolver/Routvane.h"
#include "resolver/WinInetDownload.h"
#include "resolver/WinInetSettings.h"

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

// One resolver, released at the end of its scope.
struct Resolver {
    Routvane *r = new Routvane();
    Resolver() { r->AddRef(); }
    ~Resolver() { r->Release(); }
    Routvane *operator->() { return r; }
};

// Navigator 4.8 (en) installed in a folder of its own for the scope: the
// program folder beside the users' profiles, the registry keys naming both,
// and the user alice, whose prefs.js is prefs.
struct ScopedNavigator {
    explicit ScopedNavigator(const TempDir &dir);
    ScopedKeyRemoved machineKey{HKEY_LOCAL_MACHINE, "Software\\Netscape"};
    ScopedKeyRemoved userKey{HKEY_CURRENT_USER, "Software\\Netscape"};
    const std::string program, prefs;
    std::vector<ScopedRegistryValue> values;
};
const char kNavigatorKey[] = "Software\\Netscape\\Netscape Navigator";

// A script whose FindProxyForURL returns the given JScript expression.
inline std::string Returning(const std::string &expression) {
    return "function FindProxyForURL(url, host) {\n    return " + expression + ";\n}\n";
}

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
    uint32_t Read(const std::string &url) { return resolver_.readURL(url, script_); }

    ComApartment com_;
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
