// The PAC helper object's frame: the shipped type library, its dispatch
// layer and its identity. The method table itself, and what it hands over
// for omitted arguments, is checked by the scripts that call every method.
#include <gtest/gtest.h>

#include <string>

#include "PacTestSupport.h"
#include "TestSupport.h"
#include "pac/FindProxyForURL.h"
#include "pac/ScriptHost.h"

namespace {

// The script tests load the type library from this program; the shipped
// library must carry the same resource for the scripts its clients run.
TEST(HelperTypeLibrary, TheShippedLibraryCarriesIt) {
    ComPtr<ITypeLib> shipped;
    ASSERT_EQ(S_OK, LoadTypeLib(BstrFromNarrow(Beside("routvane.dll")).get(), shipped.out()));
    ComPtr<ITypeInfo> info;
    EXPECT_EQ(S_OK, shipped->GetTypeInfoOfGuid(IID_IFindProxyForUrl, info.out()));
}

// What the script tests cannot reach; the calls themselves go through it there.
TEST(HelperObject, DispatchFrame) {
    ComPtr<IFindProxyForUrl> helper = ComPtr<IFindProxyForUrl>::Share(new FindProxyForURL());
    UINT count = 0;
    EXPECT_EQ(S_OK, helper->GetTypeInfoCount(&count));
    EXPECT_EQ(1u, count);
    ComPtr<ITypeInfo> info;
    EXPECT_EQ(DISP_E_BADINDEX, helper->GetTypeInfo(1, 0, info.out()));
    EXPECT_FALSE(info);
    EXPECT_EQ(S_OK, helper->GetTypeInfo(0, 0x0409, info.out()));
    EXPECT_TRUE(info);

    LPOLESTR names[] = {const_cast<LPOLESTR>(L"shExpMatch")};
    LPOLESTR unknown[] = {const_cast<LPOLESTR>(L"isInNetEx")};
    DISPID id = 0;
    EXPECT_EQ(DISP_E_UNKNOWNINTERFACE, helper->GetIDsOfNames(IID_IDispatch, names, 1, 0, &id));
    EXPECT_EQ(DISP_E_UNKNOWNNAME, helper->GetIDsOfNames(IID_NULL, unknown, 1, 0, &id));
    DISPPARAMS none = {nullptr, nullptr, 0, 0};
    EXPECT_EQ(DISP_E_UNKNOWNINTERFACE,
              helper->Invoke(7, IID_IDispatch, 0, DISPATCH_METHOD, &none, nullptr, nullptr, nullptr));
}

// alert answers undefined and writes one trace line "alert: " + the
// message at level 0, whatever the message's type.
TEST(HelperObject, AlertWritesItsMessageToTheTrace) {
    const std::string long64k(64 * 1024, 'm');
    const struct {
        std::string call, message;
    } rows[] = {
        {"alert('from the script')", "from the script"},
        {"alert()", ""},
        {"alert(-1.5)", "-1.5"},
        {"alert(true)", "true"},
        {"alert(null)", "null"},
        {"alert(undefined)", "undefined"},
        {"alert('" + long64k + "')", long64k},
    };
    for (const auto &row : rows) {
        TempDir dir;
        ScopedTrace trace(dir.file("alert.txt"));
        EXPECT_EQ("undefined:undefined", Eval(row.call)) << row.call.substr(0, 40);
        const auto lines = trace.linesWith("alert: ");
        ASSERT_EQ(1u, lines.size()) << row.call.substr(0, 40);
        EXPECT_EQ("Detail", LineLevel(lines[0]));
        EXPECT_EQ(0u, LineText(lines[0]).rfind("alert: " + row.message + " (tid=", 0))
            << row.call.substr(0, 40) << ": " << LineText(lines[0]).substr(0, 80);
    }
    // An object is no failure either.
    EXPECT_EQ("undefined:undefined", Eval("alert({a: 1})"));
}

// What the dispatch layer adds to the identity the resolver's tests check.
TEST(HelperObject, Identity) {
    FindProxyForURL *object = new FindProxyForURL();
    ComPtr<IFindProxyForUrl> helper = ComPtr<IFindProxyForUrl>::Share(object);
    IProvideClassInfo2 *classInfo = object;
    const std::pair<const IID *, void *> cases[] = {
        {&IID_IUnknown, helper.get()},
        {&IID_IDispatch, helper.get()},
        {&IID_IFindProxyForUrl, helper.get()},
        {&IID_ISupportErrorInfo, static_cast<ISupportErrorInfo *>(object)},
        {&IID_IProvideClassInfo, classInfo},
        {&IID_IProvideClassInfo2, classInfo},
        {&IID_IActiveScriptSite, nullptr},
    };
    for (const auto &c : cases) {
        void *out = reinterpret_cast<void *>(1);
        EXPECT_EQ(c.second ? S_OK : E_NOINTERFACE, helper->QueryInterface(*c.first, &out));
        EXPECT_EQ(c.second, out);
        if (out) static_cast<IUnknown *>(out)->Release();
    }
    // Every table reaches the same count.
    EXPECT_EQ(2u, classInfo->AddRef());
    EXPECT_EQ(3u, helper->AddRef());
    EXPECT_EQ(2u, static_cast<ISupportErrorInfo *>(object)->Release());
    EXPECT_EQ(1u, classInfo->Release());
    GUID guid = {};
    EXPECT_EQ(E_INVALIDARG, classInfo->GetGUID(0, &guid));
    EXPECT_EQ(E_FAIL, classInfo->GetGUID(GUIDKIND_DEFAULT_SOURCE_DISP_IID, &guid));
    // GetClassInfo is checked where the script site hands its answer on.
}

}  // namespace
