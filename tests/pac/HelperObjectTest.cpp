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
