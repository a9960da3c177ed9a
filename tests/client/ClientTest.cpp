// A client program's view: the DLL registered with regsvr32, the resolver
// created by ProgID, and nothing but the public header.
#include <gtest/gtest.h>

#include <windows.h>
#include <objbase.h>

#include <string>

#include "routvane.h"

namespace {

std::string BesideThisProgram(const char *name) {
    char path[MAX_PATH];
    const DWORD n = GetModuleFileNameA(nullptr, path, MAX_PATH);
    std::string dir(path, n);
    return dir.substr(0, dir.find_last_of('\\') + 1) + name;
}

DWORD RunProgram(std::string command) {
    STARTUPINFOA si = {};
    si.cb = sizeof si;
    PROCESS_INFORMATION pi = {};
    if (!CreateProcessA(nullptr, &command[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &si,
                        &pi))
        return GetLastError();
    DWORD code = STILL_ACTIVE;
    if (WaitForSingleObject(pi.hProcess, 60000) == WAIT_OBJECT_0) GetExitCodeProcess(pi.hProcess, &code);
    CloseHandle(pi.hThread);
    CloseHandle(pi.hProcess);
    return code;
}

// The WinINet settings of this user: a fixed proxy and a bypass list.
class ProxySettings {
public:
    ProxySettings() {
        RegCreateKeyExA(HKEY_CURRENT_USER, kKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key_,
                        nullptr);
        Save("ProxyEnable", enable_);
        Save("ProxyServer", server_);
        Save("ProxyOverride", override_);
        const DWORD one = 1;
        RegSetValueExA(key_, "ProxyEnable", 0, REG_DWORD, reinterpret_cast<const BYTE *>(&one), 4);
        Set("ProxyServer", "proxy.corp.example:3128");
        Set("ProxyOverride", "<local>;*.intranet.example");
    }
    ~ProxySettings() {
        Restore("ProxyEnable", enable_);
        Restore("ProxyServer", server_);
        Restore("ProxyOverride", override_);
        RegCloseKey(key_);
    }

private:
    struct Saved {
        bool had = false;
        DWORD type = 0;
        BYTE data[1024];
        DWORD size = sizeof data;
    };
    static constexpr const char *kKey =
        "Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings";
    void Save(const char *name, Saved &s) {
        s.had = RegQueryValueExA(key_, name, nullptr, &s.type, s.data, &s.size) == ERROR_SUCCESS;
    }
    void Set(const char *name, const char *value) {
        RegSetValueExA(key_, name, 0, REG_SZ, reinterpret_cast<const BYTE *>(value),
                       static_cast<DWORD>(strlen(value) + 1));
    }
    void Restore(const char *name, const Saved &s) {
        if (s.had)
            RegSetValueExA(key_, name, 0, s.type, s.data, s.size);
        else
            RegDeleteValueA(key_, name);
    }
    HKEY key_ = nullptr;
    Saved enable_, server_, override_;
};

class ClientTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        ASSERT_EQ(RunProgram("regsvr32 /s \"" + BesideThisProgram("routvane.dll") + "\""), 0u);
    }
    static void TearDownTestSuite() {
        RunProgram("regsvr32 /u /s \"" + BesideThisProgram("routvane.dll") + "\"");
    }
    void SetUp() override { ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))); }
    void TearDown() override { CoUninitialize(); }
    ProxySettings settings_;
};

IRoutvane *Create() {
    CLSID clsid = {};
    EXPECT_EQ(CLSIDFromProgID(ROUTVANE_PROGID, &clsid), S_OK);
    EXPECT_TRUE(IsEqualCLSID(clsid, CLSID_Routvane));
    IRoutvane *resolver = nullptr;
    EXPECT_EQ(CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IRoutvane,
                               reinterpret_cast<void **>(&resolver)),
              S_OK);
    return resolver;
}

TEST_F(ClientTest, ResolvesThroughTheRegisteredServer) {
    const struct {
        const char *target;
        unsigned status;
    } rows[] = {{"www.example.com", ROUTVANE_PROXY},
                {"intranet", ROUTVANE_DIRECT},
                {"app.intranet.example", ROUTVANE_DIRECT}};
    for (const auto &row : rows) {
        IRoutvane *resolver = Create();
        ASSERT_NE(resolver, nullptr);
        EXPECT_EQ(resolver->RoutvaneBrowser(0, row.target, 443), row.status) << row.target;
        if (row.status == ROUTVANE_PROXY) {
            ASSERT_EQ(resolver->GetProxyCount(), 1);
            bool direct = true;
            char host[64];
            unsigned port = 0;
            EXPECT_TRUE(resolver->GetProxy(0, &direct, host, sizeof host, &port));
            EXPECT_FALSE(direct);
            EXPECT_STREQ(host, "proxy.corp.example");
            EXPECT_EQ(port, 3128u);
        } else {
            EXPECT_EQ(resolver->GetProxyCount(), 0);
        }
        unsigned browser = ROUTVANE_BROWSER_UNKNOWN;
        EXPECT_TRUE(resolver->GetBrowser(&browser));
        EXPECT_EQ(browser, ROUTVANE_BROWSER_IE);
        EXPECT_EQ(resolver->Release(), 0u);
    }
    // With every object released the server may be unloaded.
    HMODULE dll = GetModuleHandleA("routvane.dll");
    ASSERT_NE(dll, nullptr);
    auto canUnload = reinterpret_cast<HRESULT(WINAPI *)()>(
        reinterpret_cast<void *>(GetProcAddress(dll, "DllCanUnloadNow")));
    ASSERT_NE(canUnload, nullptr);
    EXPECT_EQ(canUnload(), S_OK);
}

TEST_F(ClientTest, ExampleProgramAndCommandLineClientAgree) {
    EXPECT_EQ(RunProgram("\"" + BesideThisProgram("resolve_example.exe") + "\" www.example.com 443"), 0u);
    EXPECT_EQ(RunProgram("\"" + BesideThisProgram("resolve_example.exe") + "\" intranet 80"), 1u);
    EXPECT_EQ(RunProgram("\"" + BesideThisProgram("routvane.exe") + "\" www.example.com 443"), 0u);
    EXPECT_EQ(RunProgram("\"" + BesideThisProgram("routvane.exe") + "\" --json intranet"), 1u);
    EXPECT_EQ(RunProgram("\"" + BesideThisProgram("routvane.exe") + "\" --options x intranet"), 3u);
    EXPECT_EQ(RunProgram("\"" + BesideThisProgram("routvane.exe") + "\""), 3u);
}

}  // namespace
