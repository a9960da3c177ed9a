// The script host: parsing, calling FindProxyForURL, the texts of failures
// and the site the engine talks to. The invoke helper is checked as its one
// caller uses it: two strings in, a string back.
#include <gtest/gtest.h>

#include <string>

#include "LoopbackHttpServer.h"
#include "PacTestSupport.h"
#include "TestSupport.h"
#include "pac/FindProxyForURL.h"
#include "pac/ScriptHost.h"

namespace {

std::string Function(const std::string &body) {
    return "function FindProxyForURL(url, host) {\n  " + body + "\n}";
}

bool Has(const std::string &text, const std::string &part) {
    return text.find(part) != std::string::npos;
}

TEST(ScriptHost, StringResultsArriveWhole) {
    struct Case {
        const char *body;
        std::string expected;
    };
    const Case cases[] = {
        {"return url + '|' + host;", "http://web.example.com:8080/|web.example.com"},
        {"return '';", ""},
        {"return 'caf\\u00e9';", "caf\xe9"},  // the ANSI code page of the test prefix
        {"return 'a\\u0000b';", std::string("a\0b", 3)},
        {"return new Array(1048577).join('x');", std::string(1048576, 'x')},
    };
    for (const Case &c : cases) {
        const ScriptOutcome out =
            RunScript(Function(c.body), "http://web.example.com:8080/", "web.example.com");
        EXPECT_TRUE(out.executed && out.status == S_OK && out.detail.empty()) << c.body;
        EXPECT_TRUE(c.expected == out.result) << c.body << " gave " << out.result.size() << " bytes";
    }
}

TEST(ScriptHost, FailuresAndTheirTexts) {
    const HRESULT kAnyFailure = 1;
    struct Case {
        std::string script;
        bool parsed;
        HRESULT status;
        // The whole detail; or after '*' a part of it, after '~' a part of
        // the helper's failure with the site's report.
        const char *detail;
    };
    const char kReturnType[] = "Invalid return type specified";
    const Case cases[] = {
        {Function("return 1;"), true, E_FAIL, kReturnType},
        {Function("return;"), true, E_FAIL, kReturnType},
        // Parse leaves the detail alone.
        {Function("return ((( ;"), false, kAnyFailure, ""},
        {"function findProxyForURL(url, host) { return 'DIRECT'; }", true, DISP_E_UNKNOWNNAME, ""},
        // The top-level code runs when the engine starts, at the first call.
        {"throw new Error('top level');\n" + Function("return 'DIRECT';"), true, kAnyFailure,
         "*Description:  top level\r\n"},
        {Function("throw new Error('no proxy today');"), true, E_FAIL,
         "~\r\nDescription:  no proxy today\r\n"},
        {Function("return undefinedFunction(host);"), true, E_FAIL, "~\r\nDescription:  "},
    };
    for (const Case &c : cases) {
        const ScriptOutcome out = RunScript(c.script);
        EXPECT_EQ(c.parsed, out.parsed) << c.script;
        EXPECT_FALSE(out.executed) << c.script;
        EXPECT_EQ("", out.result) << c.script;
        EXPECT_FALSE(out.message.empty()) << c.script;
        EXPECT_EQ(c.status == kAnyFailure ? out.status : c.status, out.status) << c.script;
        EXPECT_LT(out.status, 0) << c.script;
        if (c.detail[0] != '*' && c.detail[0] != '~') {
            EXPECT_EQ(c.detail, out.detail) << c.script;
            continue;
        }
        EXPECT_TRUE(Has(out.detail, c.detail + 1)) << out.detail;
        if (c.detail[0] == '*') continue;
        // The helper's words, a blank line, then the site's lines.
        EXPECT_EQ(0u, out.detail.find("Invoke failed\r\n\r\nSource:  ")) << out.detail;
        EXPECT_TRUE(Has(out.detail, "\r\nLine:  ") && Has(out.detail, "\r\nPosition:  "));
        EXPECT_EQ("\r\n", out.detail.substr(out.detail.size() - 2));
    }
}

// Scripts that try what an attacker's script would: run a command, write a
// file, send a request. Judged by what happened, not by options read back.
TEST(ScriptHost, ScriptsCreateNoObjectsWriteNoFilesAndSendNoRequests) {
    LoopbackHttpServer server;
    server.serve("/steal", HttpResponse::Text("stolen"));
    TempDir dir;
    const std::string file = dir.file("made.txt");
    std::string jsFile = file;
    for (size_t at = 0; (at = jsFile.find('\\', at)) != std::string::npos; at += 2)
        jsFile.insert(at, "\\");
    const std::string url = server.url("/steal");
    const std::string request = ".open('GET', '" + url + "', false); o.send(); return 'sent';";
    const struct {
        const char *progId;
        std::string use;  // with the object in o
    } attacks[] = {
        {"WScript.Shell", "o.Run('cmd /c echo x > \"" + jsFile + "\"', 0, true); return 'ran';"},
        {"Scripting.FileSystemObject", "o.CreateTextFile('" + jsFile + "').Close(); return 'made';"},
        {"MSXML2.XMLHTTP", "o" + request},
        {"Microsoft.XMLHTTP", "o" + request},
        {"WinHttp.WinHttpRequest.5.1", "o" + request},
        {"MSXML2.ServerXMLHTTP", "o" + request},
    };
    for (const auto &attack : attacks) {
        const std::string create =
            "var o = new ActiveXObject('" + std::string(attack.progId) + "'); " + attack.use;
        // Caught, the script's answer stands and the helper functions still
        // work; an uncaught failure fails the call as any other does.
        const ScriptOutcome caught = RunScript(Function(
            "try { " + create + " } catch (e) { return 'refused ' + (e.number >>> 0).toString(16)"
            " + ' ' + isPlainHostname(host); }"));
        EXPECT_EQ("refused 800a01ad true", caught.result) << attack.progId;
        EXPECT_FALSE(FileExists(file)) << attack.progId;
    }
    EXPECT_TRUE(server.requests().empty()) << server.requests().size() << " requests";
    EXPECT_EQ(0, server.silentConnections());
}

TEST(ScriptHost, LaterCallsReuseTheEngineAndForgetEarlierErrors) {
    ScriptHost host;
    ASSERT_TRUE(host.Parse("var calls = 0;\n" + Function(
        "calls++;\n  if (host == 'bad') throw new Error('first');\n"
        "  if (host == 'worse') throw new Error('second');\n  return host + calls;")));
    std::string result, message, detail;
    ASSERT_TRUE(host.ExecuteSSS("FindProxyForURL", "http://a/", "a", result));
    EXPECT_EQ("a1", result);
    EXPECT_FALSE(host.ExecuteSSS("FindProxyForURL", "", "bad", result));
    EXPECT_FALSE(host.ExecuteSSS("FindProxyForURL", "", "worse", result));
    host.GetErrorText(message, detail);
    EXPECT_FALSE(Has(detail, "first")) << detail;
    EXPECT_TRUE(Has(detail, "second")) << detail;
    // The top-level code ran once: the counter survived.
    ASSERT_TRUE(host.ExecuteSSS("FindProxyForURL", "http://b/", "b", result));
    EXPECT_EQ("b4", result);
}

TEST(ScriptHost, ErrorMessageTexts) {
    const std::string outOfMemory = ErrorMessageText(E_OUTOFMEMORY);
    EXPECT_TRUE(!outOfMemory.empty() && outOfMemory.back() != '\n' && outOfMemory.back() != '\r');
    EXPECT_EQ("IDispatch error #65023", ErrorMessageText(static_cast<HRESULT>(0x8004FFFF)));
    EXPECT_EQ("IDispatch error #0", ErrorMessageText(static_cast<HRESULT>(0x80040200)));
    EXPECT_EQ("Unknown error 0x8BAD0001", ErrorMessageText(static_cast<HRESULT>(0x8BAD0001)));
}

// An engine's error report with set answers.
class FakeScriptError : public IActiveScriptError {
public:
    FakeScriptError(bool exception, bool position, const wchar_t *source)
        : hasException(exception), hasPosition(position), source(source) {}
    STDMETHODIMP QueryInterface(REFIID, void **) override { return E_NOINTERFACE; }
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP GetExceptionInfo(EXCEPINFO *info) override {
        if (!hasException) return E_FAIL;
        ZeroMemory(info, sizeof *info);
        info->bstrSource = source ? SysAllocString(source) : nullptr;
        info->bstrDescription = SysAllocString(L"Object expected");
        return S_OK;
    }
    STDMETHODIMP GetSourcePosition(DWORD *context, ULONG *line, LONG *position) override {
        *context = *line = 3;
        *position = -1;
        return hasPosition ? S_OK : E_FAIL;
    }
    STDMETHODIMP GetSourceLineText(BSTR *) override { return E_NOTIMPL; }

    bool hasException, hasPosition;
    const wchar_t *source;
};

TEST(MyScriptSite, ErrorReportLinesAccumulateUntilTheScriptIsEntered) {
    const std::pair<FakeScriptError, std::string> cases[] = {
        {{true, true, L"JScript"},
         "Source:  JScript\r\nDescription:  Object expected\r\nLine:  3\r\nPosition:  -1\r\n"},
        {{true, false, nullptr}, "Source:  \r\nDescription:  Object expected\r\n"},
        {{false, true, L"JScript"}, "Line:  3\r\nPosition:  -1\r\n"},
        {{false, false, L"JScript"}, ""},
    };
    for (const auto &c : cases) {
        ComPtr<MyScriptSite> site = ComPtr<MyScriptSite>::Share(new MyScriptSite());
        FakeScriptError error = c.first;
        // Reports accumulate until the engine enters the script again.
        EXPECT_EQ(S_OK, site->OnScriptError(&error));
        EXPECT_EQ(S_OK, site->OnScriptError(&error));
        EXPECT_EQ(c.second + c.second, site->errorText());
        EXPECT_EQ(S_OK, site->OnEnterScript());
        EXPECT_EQ("", site->errorText());
    }
}

TEST(MyScriptSite, ItemInfoServesOnlyGlobalMethods) {
    ComPtr<MyScriptSite> site = ComPtr<MyScriptSite>::Share(new MyScriptSite());
    for (const wchar_t *name : {L"globalmethods", L"GlobalMethods ", L"GlobalMethod", L""}) {
        IUnknown *item = reinterpret_cast<IUnknown *>(1);
        EXPECT_EQ(TYPE_E_ELEMENTNOTFOUND,
                  site->GetItemInfo(name, SCRIPTINFO_IUNKNOWN, &item, nullptr));
        EXPECT_EQ(nullptr, item);
    }
    ComPtr<IUnknown> item;
    ASSERT_EQ(S_OK, site->GetItemInfo(L"GlobalMethods", SCRIPTINFO_IUNKNOWN, item.out(), nullptr));
    ComPtr<IFindProxyForUrl> helper;
    EXPECT_EQ(S_OK, item->QueryInterface(IID_IFindProxyForUrl, helper.outVoid()));
    ComPtr<ITypeInfo> info;
    ASSERT_EQ(S_OK, site->GetItemInfo(L"GlobalMethods", SCRIPTINFO_ITYPEINFO, nullptr, info.out()));
    TYPEATTR *attr = nullptr;
    ASSERT_EQ(S_OK, info->GetTypeAttr(&attr));
    EXPECT_EQ(TKIND_COCLASS, attr->typekind);
    EXPECT_TRUE(IsEqualGUID(CLSID_FindProxyForUrl, attr->guid));
    EXPECT_TRUE(attr->wTypeFlags & TYPEFLAG_FCANCREATE);
    info->ReleaseTypeAttr(attr);
}

// Under Wine the untrusted-data option alone already blocks every object,
// so the manager's own answer is checked here: no, to every question.
TEST(MyScriptSite, SecurityManagerDisallows) {
    ComPtr<MyScriptSite> site = ComPtr<MyScriptSite>::Share(new MyScriptSite());
    ComPtr<IInternetHostSecurityManager> manager;
    ASSERT_EQ(S_OK, site->QueryService(SID_SInternetHostSecurityManager,
                                       IID_IInternetHostSecurityManager, manager.outVoid()));
    DWORD policy = URLPOLICY_ALLOW;
    BYTE *const answer = reinterpret_cast<BYTE *>(&policy);
    EXPECT_EQ(S_FALSE, manager->ProcessUrlAction(URLACTION_ACTIVEX_RUN, answer, sizeof policy,
                                                 nullptr, 0, 0, 0));
    EXPECT_EQ(DWORD{URLPOLICY_DISALLOW}, policy);
    TaskMemory<BYTE> custom;
    DWORD size = 0;
    EXPECT_EQ(S_FALSE, manager->QueryCustomPolicy(GUID{}, custom.out(), &size, nullptr, 0, 0));
    ASSERT_EQ(sizeof(DWORD), size);
    EXPECT_EQ(DWORD{URLPOLICY_DISALLOW}, *reinterpret_cast<DWORD *>(custom.get()));
}

}  // namespace
