// The script host: parsing, calling FindProxyForURL, the texts of failures,
// the invoke helper and the site the engine talks to.
#include <gtest/gtest.h>

#include <string>
#include <vector>

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
        {Function("return null;"), true, E_FAIL, kReturnType},
        {Function("return;"), true, E_FAIL, kReturnType},
        {Function("return {};"), true, E_FAIL, kReturnType},
        {Function("return new String('x');"), true, E_FAIL, kReturnType},
        // Parse leaves the detail alone.
        {Function("return ((( ;"), false, kAnyFailure, ""},
        {"}}}", false, kAnyFailure, ""},
        {"function findProxyForURL(url, host) { return 'DIRECT'; }", true, DISP_E_UNKNOWNNAME, ""},
        // The top-level code runs when the engine starts, at the first call.
        {"throw new Error('top level');\n" + Function("return 'DIRECT';"), true, kAnyFailure,
         "*Description:  top level\r\n"},
        {Function("throw new Error('no proxy today');"), true, E_FAIL,
         "~\r\nDescription:  no proxy today\r\n"},
        {Function("return undefinedFunction(host);"), true, E_FAIL, "~\r\nDescription:  "},
        {Function("return isPlainHostname();"), true, E_FAIL, "~\r\nDescription:  "},
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
        // Uncaught, the failure fails the call; caught, the script's answer
        // stands and the helper functions still work.
        const ScriptOutcome bare = RunScript(Function(create));
        EXPECT_TRUE(bare.parsed && !bare.executed) << attack.progId << " gave " << bare.result;
        EXPECT_TRUE(Has(bare.detail, "Description:  ")) << attack.progId << ": " << bare.detail;
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
    EXPECT_EQ("IDispatch error #16", ErrorMessageText(static_cast<HRESULT>(0x80040210)));
    EXPECT_EQ("IDispatch error #65023", ErrorMessageText(static_cast<HRESULT>(0x8004FFFF)));
    EXPECT_EQ("IDispatch error #0", ErrorMessageText(static_cast<HRESULT>(0x80040200)));
    EXPECT_EQ("Unknown error 0x8BAD0001", ErrorMessageText(static_cast<HRESULT>(0x8BAD0001)));
}

// A dispatch target that records the call and answers with a set value.
class RecordingDispatch : public IDispatch {
public:
    STDMETHODIMP QueryInterface(REFIID, void **) override { return E_NOINTERFACE; }
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP GetTypeInfoCount(UINT *) override { return E_NOTIMPL; }
    STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo **) override { return E_NOTIMPL; }
    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR *, UINT, LCID, DISPID *) override {
        return E_NOTIMPL;
    }
    STDMETHODIMP Invoke(DISPID id, REFIID, LCID lcid, WORD how, DISPPARAMS *params,
                        VARIANT *result, EXCEPINFO *exception, UINT *) override {
        call = {id, static_cast<long>(lcid), how, static_cast<long>(params->cNamedArgs)};
        askedForResult = result != nullptr;
        args.assign(params->rgvarg, params->rgvarg + params->cArgs);
        if (failWith != S_OK) {
            // An engine's exception text, which the helper must free.
            exception->bstrDescription = SysAllocString(L"thrown");
            return failWith;
        }
        if (result) VariantCopy(result, &answer);
        return S_OK;
    }

    HRESULT failWith = S_OK;
    VARIANT answer = {};
    std::vector<long> call;  // member, locale, flags, named arguments
    bool askedForResult = false;
    std::vector<VARIANT> args;
};

TEST(InvokeDispatch, ArgumentsGoLastFirstWithTheirTypes) {
    RecordingDispatch target;
    std::string error;
    ScopedBstr text(SysAllocString(L"text"));
    VARIANT_BOOL flag = VARIANT_FALSE;
    const unsigned types[] = {VT_BSTR, VT_I4, VT_BOOL, VT_UINT, VT_BYREF | VT_BOOL};
    ASSERT_TRUE(InvokeDispatch(&target, error, 7, VT_EMPTY, nullptr, types, 5, text.get(),
                               static_cast<long long>(-5), static_cast<long long>(VARIANT_TRUE),
                               static_cast<unsigned long long>(4000000000u), &flag));
    EXPECT_EQ("", error);
    EXPECT_EQ((std::vector<long>{7, LOCALE_SYSTEM_DEFAULT, DISPATCH_METHOD, 0}), target.call);
    EXPECT_FALSE(target.askedForResult);
    ASSERT_EQ(5u, target.args.size());
    for (int i = 0; i < 5; ++i) EXPECT_EQ(types[4 - i], V_VT(&target.args[i])) << i;
    EXPECT_EQ(&flag, V_BOOLREF(&target.args[0]));
    EXPECT_EQ(4000000000u, V_UINT(&target.args[1]));
    EXPECT_EQ(VARIANT_TRUE, V_BOOL(&target.args[2]));
    EXPECT_EQ(-5, V_I4(&target.args[3]));
    EXPECT_EQ(text.get(), V_BSTR(&target.args[4]));  // the caller's BSTR, not a copy
}

TEST(InvokeDispatch, RefusedArgumentsNeverReachTheTarget) {
    std::vector<unsigned> types(33, VT_I4);
    RecordingDispatch target;
    std::string error;
#define RV_ARGS32 1LL, 2LL, 3LL, 4LL, 5LL, 6LL, 7LL, 8LL, 9LL, 10LL, 11LL, 12LL, 13LL, 14LL, \
    15LL, 16LL, 17LL, 18LL, 19LL, 20LL, 21LL, 22LL, 23LL, 24LL, 25LL, 26LL, 27LL, 28LL, 29LL, \
    30LL, 31LL, 32LL
    EXPECT_FALSE(InvokeDispatch(&target, error, 1, VT_EMPTY, nullptr, types.data(), 33, RV_ARGS32,
                                33LL));
    EXPECT_EQ("Too many parameters specified (max is 32)", error);
    EXPECT_TRUE(target.args.empty());
    EXPECT_TRUE(InvokeDispatch(&target, error, 1, VT_EMPTY, nullptr, types.data(), 32, RV_ARGS32));
#undef RV_ARGS32
    ASSERT_EQ(32u, target.args.size());
    EXPECT_EQ(32, V_I4(&target.args[0]));
    EXPECT_EQ(1, V_I4(&target.args[31]));

    const unsigned unsupported[] = {VT_R8, VT_I2, VT_VARIANT, VT_EMPTY, VT_BYREF | VT_I4, VT_UNKNOWN};
    for (const unsigned type : unsupported) {
        RecordingDispatch other;
        const unsigned two[] = {VT_I4, type};
        EXPECT_FALSE(InvokeDispatch(&other, error, 1, VT_EMPTY, nullptr, two, 2, 1LL, 0LL));
        EXPECT_EQ("Unsupported parameter type specified", error) << type;
        EXPECT_TRUE(other.args.empty()) << type;
    }
}

TEST(InvokeDispatch, Results) {
    struct Case {
        VARTYPE answerType;  // VT_EMPTY: the target fails
        VARTYPE asked;
        bool withPlace;
        const char *error;  // null for success
    };
    const Case cases[] = {
        {VT_I4, VT_I4, true, nullptr},
        {VT_BSTR, VT_BSTR, true, nullptr},
        {VT_I4, VT_BSTR, true, "Invalid return type specified"},  // never converted
        {VT_R8, VT_R8, true, "Unsupported return type"},
        {VT_BSTR, VT_BSTR, false, ""},  // no place: silent, and no result asked
        {VT_EMPTY, VT_EMPTY, false, "Invoke failed"},
    };
    for (const Case &c : cases) {
        RecordingDispatch target;
        V_VT(&target.answer) = c.answerType;
        V_I4(&target.answer) = -42;
        if (c.answerType == VT_BSTR) V_BSTR(&target.answer) = SysAllocString(L"answer");
        if (c.answerType == VT_EMPTY) target.failWith = DISP_E_EXCEPTION;
        LONG i4 = 0;
        ScopedBstr bstr;
        double r8 = 0;
        void *place = c.asked == VT_I4 ? static_cast<void *>(&i4)
                      : c.asked == VT_BSTR ? static_cast<void *>(bstr.out())
                                           : static_cast<void *>(&r8);
        std::string error;
        EXPECT_EQ(!c.error, InvokeDispatch(&target, error, 1, c.asked,
                                           c.withPlace ? place : nullptr, nullptr, 0));
        EXPECT_EQ(c.error ? c.error : "", error) << c.asked;
        EXPECT_EQ(c.withPlace, target.askedForResult) << c.asked;
        EXPECT_EQ(!c.error && c.asked == VT_I4 ? -42 : 0, i4);
        EXPECT_EQ(!c.error && c.asked == VT_BSTR ? L"answer" : L"", WideFromBstr(bstr.get()));
        VariantClear(&target.answer);
    }
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
    info->ReleaseTypeAttr(attr);
}

}  // namespace
