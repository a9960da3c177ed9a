// The script host: parsing, calling FindProxyForURL, the texts of failures,
// the invoke helper and the site the engine talks to.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "PacTestSupport.h"
#include "pac/FindProxyForURL.h"
#include "pac/ScriptHost.h"

namespace {

const char kTwoArgs[] = "function FindProxyForURL(url, host) { return url + '|' + host; }";

TEST(ScriptHost, CallsTheFunctionWithBothArguments) {
    const ScriptOutcome out = RunScript(kTwoArgs, "http://web.example.com:8080/", "web.example.com");
    ASSERT_TRUE(out.parsed);
    ASSERT_TRUE(out.executed) << out.detail;
    EXPECT_EQ("http://web.example.com:8080/|web.example.com", out.result);
    EXPECT_EQ(S_OK, out.status);
    EXPECT_EQ("", out.detail);
}

TEST(ScriptHost, StringResultsArriveWhole) {
    struct Case {
        const char *body;
        std::string expected;
    };
    const Case cases[] = {
        {"return 'PROXY proxy.example.com:3128; DIRECT';", "PROXY proxy.example.com:3128; DIRECT"},
        {"return '';", ""},
        {"return 'caf\\u00e9';", "caf\xe9"},  // the ANSI code page of the test prefix
        {"return 'a\\u0000b';", std::string("a\0b", 3)},
        {"return String(1 + 2);", "3"},
    };
    for (const Case &c : cases) {
        const ScriptOutcome out =
            RunScript(std::string("function FindProxyForURL(url, host) { ") + c.body + " }");
        EXPECT_TRUE(out.executed) << c.body << ": " << out.detail;
        EXPECT_EQ(c.expected, out.result) << c.body;
    }
}

TEST(ScriptHost, OneMebibyteResult) {
    const ScriptOutcome out = RunScript(
        "function FindProxyForURL(url, host) { return new Array(1048577).join('x'); }");
    ASSERT_TRUE(out.executed) << out.detail;
    EXPECT_EQ(std::string(1048576, 'x'), out.result);
}

TEST(ScriptHost, ResultsOtherThanStringsFail) {
    const char *bodies[] = {
        "return 1;", "return 1.5;", "return null;", "return;", "return undefined;",
        "return {};", "return [];", "return true;", "return new String('x');",
        "return function () {};",
    };
    for (const char *body : bodies) {
        const ScriptOutcome out =
            RunScript(std::string("function FindProxyForURL(url, host) { ") + body + " }");
        EXPECT_TRUE(out.parsed) << body;
        EXPECT_FALSE(out.executed) << body;
        EXPECT_EQ(E_FAIL, out.status) << body;
        EXPECT_EQ("Invalid return type specified", out.detail) << body;
        EXPECT_EQ("", out.result) << body;
    }
}

TEST(ScriptHost, SyntaxErrorsFailParse) {
    const char *scripts[] = {
        "function FindProxyForURL(url, host) { return ((( ; }",
        "}}}",
        "function FindProxyForURL(url, host) { return 'a' + ; }",
        "var = 1;",
    };
    for (const char *script : scripts) {
        const ScriptOutcome out = RunScript(script);
        EXPECT_FALSE(out.parsed) << script;
        EXPECT_LT(out.status, 0) << script;
        EXPECT_FALSE(out.message.empty()) << script;
        // Parse leaves the detail alone.
        EXPECT_EQ("", out.detail) << script;
    }
}

TEST(ScriptHost, ThrowAtTopLevelFailsTheFirstCall) {
    ScriptHost host;
    ASSERT_TRUE(host.Parse("throw new Error('top level');\n"
                           "function FindProxyForURL(url, host) { return 'DIRECT'; }"));
    std::string result;
    EXPECT_FALSE(host.ExecuteSSS("FindProxyForURL", "http://web/", "web", result));
    std::string message, detail;
    host.GetErrorText(message, detail);
    EXPECT_LT(host.status(), 0);
    EXPECT_NE(std::string::npos, detail.find("Description:  top level\r\n")) << detail;
    EXPECT_EQ("", result);
}

TEST(ScriptHost, MissingFunctionFailsWithTheLookUpsStatus) {
    const ScriptOutcome out = RunScript("function findProxyForURL(url, host) { return 'DIRECT'; }");
    EXPECT_TRUE(out.parsed);
    EXPECT_FALSE(out.executed);
    EXPECT_EQ(DISP_E_UNKNOWNNAME, out.status);
    EXPECT_EQ("", out.detail);
    EXPECT_FALSE(out.message.empty());
}

TEST(ScriptHost, RunTimeErrorsCarryTheEnginesReport) {
    struct Case {
        const char *body;
        const char *description;
    };
    const Case cases[] = {
        {"throw new Error('no proxy today');", "no proxy today"},
        {"return undefinedFunction(host);", ""},
        {"return isPlainHostname();", ""},
    };
    for (const Case &c : cases) {
        const ScriptOutcome out =
            RunScript(std::string("function FindProxyForURL(url, host) {\n  ") + c.body + "\n}");
        ASSERT_FALSE(out.executed) << c.body;
        EXPECT_EQ(E_FAIL, out.status);
        // The helper's words, a blank line, then the site's lines.
        const std::string head = "Invoke failed\r\n\r\nSource:  ";
        EXPECT_EQ(head, out.detail.substr(0, head.size())) << out.detail;
        EXPECT_NE(std::string::npos, out.detail.find(std::string("\r\nDescription:  ") +
                                                     c.description))
            << out.detail;
        EXPECT_NE(std::string::npos, out.detail.find("\r\nLine:  ")) << out.detail;
        EXPECT_NE(std::string::npos, out.detail.find("\r\nPosition:  ")) << out.detail;
        EXPECT_EQ("\r\n", out.detail.substr(out.detail.size() - 2));
    }
}

TEST(ScriptHost, SecondCallReusesTheStartedEngine) {
    ScriptHost host;
    ASSERT_TRUE(host.Parse("var calls = 0;\n"
                           "function FindProxyForURL(url, host) { calls++; return host + calls; }"));
    std::string first, second;
    ASSERT_TRUE(host.ExecuteSSS("FindProxyForURL", "http://a/", "a", first));
    ASSERT_TRUE(host.ExecuteSSS("FindProxyForURL", "http://b/", "b", second));
    // The top-level code ran once: the counter survived.
    EXPECT_EQ("a1", first);
    EXPECT_EQ("b2", second);
}

TEST(ScriptHost, ErrorsOfOneCallDoNotLeakIntoTheNext) {
    ScriptHost host;
    ASSERT_TRUE(host.Parse("function FindProxyForURL(url, host) {\n"
                           "  if (host == 'bad') throw new Error('first');\n"
                           "  if (host == 'worse') throw new Error('second');\n"
                           "  return 'DIRECT';\n}"));
    std::string result, message, detail;
    EXPECT_FALSE(host.ExecuteSSS("FindProxyForURL", "", "bad", result));
    EXPECT_FALSE(host.ExecuteSSS("FindProxyForURL", "", "worse", result));
    host.GetErrorText(message, detail);
    EXPECT_EQ(std::string::npos, detail.find("first")) << detail;
    EXPECT_NE(std::string::npos, detail.find("second")) << detail;
    EXPECT_TRUE(host.ExecuteSSS("FindProxyForURL", "", "good", result));
    EXPECT_EQ("DIRECT", result);
}

TEST(ScriptHost, ErrorMessageTexts) {
    // The system's own text, without the line break it ends with.
    const std::string outOfMemory = ErrorMessageText(E_OUTOFMEMORY);
    EXPECT_FALSE(outOfMemory.empty());
    EXPECT_NE('\n', outOfMemory.back());
    EXPECT_NE('\r', outOfMemory.back());
    // Codes without text fall back to the fixed formats.
    EXPECT_EQ("IDispatch error #16", ErrorMessageText(static_cast<HRESULT>(0x80040210)));
    EXPECT_EQ("IDispatch error #65023", ErrorMessageText(static_cast<HRESULT>(0x8004FFFF)));
    EXPECT_EQ("IDispatch error #0", ErrorMessageText(static_cast<HRESULT>(0x80040200)));
    EXPECT_EQ("Unknown error 0x8BAD0001", ErrorMessageText(static_cast<HRESULT>(0x8BAD0001)));
}

// A dispatch target that records the call and answers with a set value.
class RecordingDispatch : public IDispatch {
public:
    STDMETHODIMP QueryInterface(REFIID, void **out) override {
        *out = nullptr;
        return E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP GetTypeInfoCount(UINT *count) override {
        *count = 0;
        return S_OK;
    }
    STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo **) override { return E_NOTIMPL; }
    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR *, UINT, LCID, DISPID *) override {
        return E_NOTIMPL;
    }
    STDMETHODIMP Invoke(DISPID id, REFIID, LCID locale, WORD flags, DISPPARAMS *params,
                        VARIANT *result, EXCEPINFO *exception, UINT *) override {
        member = id;
        this->locale = locale;
        this->flags = flags;
        askedForResult = result != nullptr;
        args.assign(params->rgvarg, params->rgvarg + params->cArgs);
        namedArgs = params->cNamedArgs;
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
    DISPID member = 0;
    LCID locale = 0;
    WORD flags = 0;
    bool askedForResult = false;
    UINT namedArgs = 0;
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
    EXPECT_EQ(7, target.member);
    EXPECT_EQ(static_cast<LCID>(LOCALE_SYSTEM_DEFAULT), target.locale);
    EXPECT_EQ(DISPATCH_METHOD, target.flags);
    EXPECT_FALSE(target.askedForResult);
    EXPECT_EQ(0u, target.namedArgs);
    ASSERT_EQ(5u, target.args.size());
    EXPECT_EQ(VT_BYREF | VT_BOOL, V_VT(&target.args[0]));
    EXPECT_EQ(&flag, V_BOOLREF(&target.args[0]));
    EXPECT_EQ(VT_UINT, V_VT(&target.args[1]));
    EXPECT_EQ(4000000000u, V_UINT(&target.args[1]));
    EXPECT_EQ(VT_BOOL, V_VT(&target.args[2]));
    EXPECT_EQ(VARIANT_TRUE, V_BOOL(&target.args[2]));
    EXPECT_EQ(VT_I4, V_VT(&target.args[3]));
    EXPECT_EQ(-5, V_I4(&target.args[3]));
    EXPECT_EQ(VT_BSTR, V_VT(&target.args[4]));
    // The caller's BSTR itself, not a copy.
    EXPECT_EQ(text.get(), V_BSTR(&target.args[4]));
}

TEST(InvokeDispatch, ArgumentCountLimit) {
    RecordingDispatch target;
    std::vector<unsigned> types(33, VT_I4);
    std::string error;
    // 33 values are passed but refused before any is read.
    EXPECT_FALSE(InvokeDispatch(&target, error, 1, VT_EMPTY, nullptr, types.data(), 33, 1LL, 2LL,
                                3LL, 4LL, 5LL, 6LL, 7LL, 8LL, 9LL, 10LL, 11LL, 12LL, 13LL, 14LL,
                                15LL, 16LL, 17LL, 18LL, 19LL, 20LL, 21LL, 22LL, 23LL, 24LL, 25LL,
                                26LL, 27LL, 28LL, 29LL, 30LL, 31LL, 32LL, 33LL));
    EXPECT_EQ("Too many parameters specified (max is 32)", error);
    EXPECT_TRUE(target.args.empty());

    error.clear();
    EXPECT_TRUE(InvokeDispatch(&target, error, 1, VT_EMPTY, nullptr, types.data(), 32, 1LL, 2LL,
                               3LL, 4LL, 5LL, 6LL, 7LL, 8LL, 9LL, 10LL, 11LL, 12LL, 13LL, 14LL,
                               15LL, 16LL, 17LL, 18LL, 19LL, 20LL, 21LL, 22LL, 23LL, 24LL, 25LL,
                               26LL, 27LL, 28LL, 29LL, 30LL, 31LL, 32LL));
    ASSERT_EQ(32u, target.args.size());
    EXPECT_EQ(32, V_I4(&target.args[0]));
    EXPECT_EQ(1, V_I4(&target.args[31]));
}

TEST(InvokeDispatch, UnsupportedArgumentTypes) {
    const unsigned unsupported[] = {VT_R8, VT_I2, VT_VARIANT, VT_EMPTY, VT_BYREF | VT_I4,
                                    VT_UNKNOWN};
    for (const unsigned type : unsupported) {
        RecordingDispatch target;
        std::string error;
        const unsigned types[] = {VT_I4, type};
        EXPECT_FALSE(InvokeDispatch(&target, error, 1, VT_EMPTY, nullptr, types, 2, 1LL, 0LL))
            << type;
        EXPECT_EQ("Unsupported parameter type specified", error) << type;
        EXPECT_TRUE(target.args.empty()) << "the call was made for type " << type;
    }
}

TEST(InvokeDispatch, Results) {
    {
        RecordingDispatch target;
        V_VT(&target.answer) = VT_I4;
        V_I4(&target.answer) = -42;
        LONG value = 0;
        std::string error;
        EXPECT_TRUE(InvokeDispatch(&target, error, 1, VT_I4, &value, nullptr, 0));
        EXPECT_EQ(-42, value);
        EXPECT_TRUE(target.askedForResult);
    }
    {
        RecordingDispatch target;
        V_VT(&target.answer) = VT_BOOL;
        V_BOOL(&target.answer) = VARIANT_TRUE;
        VARIANT_BOOL value = VARIANT_FALSE;
        std::string error;
        EXPECT_TRUE(InvokeDispatch(&target, error, 1, VT_BOOL, &value, nullptr, 0));
        EXPECT_EQ(VARIANT_TRUE, value);
    }
    {
        RecordingDispatch target;
        V_VT(&target.answer) = VT_BSTR;
        V_BSTR(&target.answer) = SysAllocString(L"answer");
        ScopedBstr value;
        std::string error;
        EXPECT_TRUE(InvokeDispatch(&target, error, 1, VT_BSTR, value.out(), nullptr, 0));
        EXPECT_EQ(L"answer", WideFromBstr(value.get()));
        VariantClear(&target.answer);
    }
    {
        // A type mismatch: no conversion is attempted.
        RecordingDispatch target;
        V_VT(&target.answer) = VT_I4;
        ScopedBstr value;
        std::string error;
        EXPECT_FALSE(InvokeDispatch(&target, error, 1, VT_BSTR, value.out(), nullptr, 0));
        EXPECT_EQ("Invalid return type specified", error);
        EXPECT_EQ(nullptr, value.get());
    }
    {
        RecordingDispatch target;
        V_VT(&target.answer) = VT_R8;
        double value = 0;
        std::string error;
        EXPECT_FALSE(InvokeDispatch(&target, error, 1, VT_R8, &value, nullptr, 0));
        EXPECT_EQ("Unsupported return type", error);
    }
    {
        // A type without a place for it fails silently, and asks no result.
        RecordingDispatch target;
        std::string error;
        EXPECT_FALSE(InvokeDispatch(&target, error, 1, VT_BSTR, nullptr, nullptr, 0));
        EXPECT_EQ("", error);
        EXPECT_FALSE(target.askedForResult);
    }
    {
        RecordingDispatch target;
        target.failWith = DISP_E_EXCEPTION;
        std::string error;
        EXPECT_FALSE(InvokeDispatch(&target, error, 1, VT_EMPTY, nullptr, nullptr, 0));
        EXPECT_EQ("Invoke failed", error);
    }
}

// An engine's error report with set answers.
class FakeScriptError : public IActiveScriptError {
public:
    STDMETHODIMP QueryInterface(REFIID, void **out) override {
        *out = nullptr;
        return E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP GetExceptionInfo(EXCEPINFO *info) override {
        if (!hasException) return E_FAIL;
        ZeroMemory(info, sizeof *info);
        info->bstrSource = source ? SysAllocString(source) : nullptr;
        info->bstrDescription = description ? SysAllocString(description) : nullptr;
        info->bstrHelpFile = SysAllocString(L"help");
        return S_OK;
    }
    STDMETHODIMP GetSourcePosition(DWORD *context, ULONG *line, LONG *position) override {
        if (!hasPosition) return E_FAIL;
        *context = 0;
        *line = this->line;
        *position = this->position;
        return S_OK;
    }
    STDMETHODIMP GetSourceLineText(BSTR *) override { return E_NOTIMPL; }

    bool hasException = true;
    bool hasPosition = true;
    const wchar_t *source = L"JScript";
    const wchar_t *description = L"Object expected";
    ULONG line = 3;
    LONG position = -1;
};

TEST(MyScriptSite, ErrorReportLines) {
    struct Case {
        bool hasException;
        bool hasPosition;
        const wchar_t *source;
        std::string expected;
    };
    const Case cases[] = {
        {true, true, L"JScript",
         "Source:  JScript\r\nDescription:  Object expected\r\nLine:  3\r\nPosition:  -1\r\n"},
        {true, false, nullptr, "Source:  \r\nDescription:  Object expected\r\n"},
        {false, true, L"JScript", "Line:  3\r\nPosition:  -1\r\n"},
        {false, false, L"JScript", ""},
    };
    for (const Case &c : cases) {
        MyScriptSite *site = new MyScriptSite();
        site->AddRef();
        FakeScriptError error;
        error.hasException = c.hasException;
        error.hasPosition = c.hasPosition;
        error.source = c.source;
        EXPECT_EQ(S_OK, site->OnScriptError(&error));
        EXPECT_EQ(c.expected, site->errorText());
        // Reports accumulate until the engine enters the script again.
        EXPECT_EQ(S_OK, site->OnScriptError(&error));
        EXPECT_EQ(c.expected + c.expected, site->errorText());
        EXPECT_EQ(S_OK, site->OnEnterScript());
        EXPECT_EQ("", site->errorText());
        site->Release();
    }
}

TEST(MyScriptSite, ItemInfoServesOnlyGlobalMethods) {
    MyScriptSite *site = new MyScriptSite();
    site->AddRef();
    const wchar_t *others[] = {L"globalmethods", L"GLOBALMETHODS", L"GlobalMethods ",
                               L"GlobalMethod", L"", L"window"};
    for (const wchar_t *name : others) {
        IUnknown *item = reinterpret_cast<IUnknown *>(1);
        EXPECT_EQ(TYPE_E_ELEMENTNOTFOUND, site->GetItemInfo(name, SCRIPTINFO_IUNKNOWN, &item,
                                                            nullptr));
        EXPECT_EQ(nullptr, item);
    }

    IUnknown *item = nullptr;
    ASSERT_EQ(S_OK, site->GetItemInfo(L"GlobalMethods", SCRIPTINFO_IUNKNOWN, &item, nullptr));
    ASSERT_NE(nullptr, item);
    IFindProxyForUrl *helper = nullptr;
    EXPECT_EQ(S_OK, item->QueryInterface(IID_IFindProxyForUrl, reinterpret_cast<void **>(&helper)));
    VARIANT_BOOL plain = VARIANT_FALSE;
    ScopedBstr name(SysAllocString(L"intranet"));
    EXPECT_EQ(S_OK, helper->isPlainHostname(name.get(), &plain));
    EXPECT_EQ(VARIANT_TRUE, plain);
    helper->Release();
    item->Release();

    ITypeInfo *info = nullptr;
    ASSERT_EQ(S_OK, site->GetItemInfo(L"GlobalMethods", SCRIPTINFO_ITYPEINFO, nullptr, &info));
    ASSERT_NE(nullptr, info);
    TYPEATTR *attr = nullptr;
    ASSERT_EQ(S_OK, info->GetTypeAttr(&attr));
    EXPECT_EQ(TKIND_COCLASS, attr->typekind);
    EXPECT_TRUE(IsEqualGUID(CLSID_FindProxyForUrl, attr->guid));
    info->ReleaseTypeAttr(attr);
    info->Release();

    EXPECT_EQ(S_OK, site->GetItemInfo(L"GlobalMethods", 0, nullptr, nullptr));
    LCID lcid = 0;
    EXPECT_EQ(E_NOTIMPL, site->GetLCID(&lcid));
    BSTR version = nullptr;
    EXPECT_EQ(E_NOTIMPL, site->GetDocVersionString(&version));
    EXPECT_EQ(S_OK, site->OnStateChange(SCRIPTSTATE_STARTED));
    EXPECT_EQ(S_OK, site->OnScriptTerminate(nullptr, nullptr));
    EXPECT_EQ(S_OK, site->OnLeaveScript());

    IActiveScriptSite *asSite = nullptr;
    EXPECT_EQ(S_OK, site->QueryInterface(IID_IActiveScriptSite, reinterpret_cast<void **>(&asSite)));
    asSite->Release();
    IDispatch *dispatch = reinterpret_cast<IDispatch *>(1);
    EXPECT_EQ(E_NOINTERFACE, site->QueryInterface(IID_IDispatch, reinterpret_cast<void **>(&dispatch)));
    EXPECT_EQ(nullptr, dispatch);
    site->Release();
}

}  // namespace
