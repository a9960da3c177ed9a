#include "PacFixtures.h"

#include <cstdio>
#include <cstring>

std::ostream &operator<<(std::ostream &out, const Entry &e) {
    return out << (e.kind == PROXY_ENTRY_DIRECT ? "DIRECT" : "PROXY ") << e.host << ":" << e.port;
}

std::vector<Entry> Entries(const Routvane &resolver) {
    std::vector<Entry> out;
    for (const ProxyEntry &e : resolver.proxies()) out.push_back(Entry{e.kind, e.host, e.port});
    return out;
}

ScopedNavigator::ScopedNavigator(const TempDir &dir)
    : program(dir.file("Program")), prefs(dir.file("Users\\alice\\prefs.js")) {
    CreateDirectoryA(program.c_str(), nullptr);
    CreateDirectoryA(dir.file("Users").c_str(), nullptr);
    CreateDirectoryA(dir.file("Users\\alice").c_str(), nullptr);
    const std::string key = kNavigatorKey;
    values.push_back(
        ScopedRegistryValue::String("CurrentVersion", "4.8 (en)", HKEY_LOCAL_MACHINE, key));
    values.push_back(ScopedRegistryValue::String("Install Directory", program, HKEY_LOCAL_MACHINE,
                                                 key + "\\4.8 (en)\\Main"));
    values.push_back(
        ScopedRegistryValue::String("CurrentUser", "alice", HKEY_CURRENT_USER, key + "\\biff"));
}

int WinInetLog::open = 0;
std::vector<std::string> WinInetLog::calls;
static HINTERNET session;

PacTest::PacTest() {
    WinInetLog::open = 0;
    WinInetLog::calls.clear();
    // Wine's real WinINet behind a layer that notes every call.
    download_->InternetOpenA = [](const char *agent, DWORD access, const char *proxy,
                                  const char *bypass, DWORD flags) {
        WinInetLog::calls.push_back("open " + std::string(agent) + " " + std::to_string(access));
        session = RealWinInetDownload().InternetOpenA(agent, access, proxy, bypass, flags);
        WinInetLog::open += session != nullptr;
        return session;
    };
    download_->InternetSetOptionA = [](HINTERNET h, DWORD option, void *buffer, DWORD length) {
        DWORD value = 0;
        if (buffer && length >= sizeof value) memcpy(&value, buffer, sizeof value);
        WinInetLog::calls.push_back("option " + std::to_string(option) + " " +
                                    std::to_string(length) + " " + std::to_string(value) +
                                    (h == session ? "" : " elsewhere"));
        return RealWinInetDownload().InternetSetOptionA(h, option, buffer, length);
    };
    download_->InternetOpenUrlA = [](HINTERNET s, const char *url, const char *headers,
                                     DWORD headersLength, DWORD flags, DWORD_PTR context) {
        char line[64];
        snprintf(line, sizeof line, "url %08lx %ld", flags, static_cast<long>(headersLength));
        WinInetLog::calls.push_back(line);
        HINTERNET h =
            RealWinInetDownload().InternetOpenUrlA(s, url, headers, headersLength, flags, context);
        WinInetLog::open += h != nullptr;
        return h;
    };
    download_->closeInternet = [](HINTERNET h) {
        --WinInetLog::open;
        WinInetLog::calls.push_back(h == session ? "close session" : "close");
        return RealWinInetDownload().closeInternet(h);
    };
    StartTrace();
}

void PacTest::TearDown() {
    EXPECT_EQ(DirectoryEntries(temp_.path()), std::vector<std::string>()) << "a file left behind";
    EXPECT_EQ(WinInetLog::open, 0) << "a WinINet handle left open";
}

void PacTest::StartTrace() {
    trace_.reset();
    trace_ =
        std::make_unique<ScopedTrace>(files_.file("trace" + std::to_string(++traces_) + ".log"));
}
