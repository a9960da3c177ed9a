// A program without the type library resource, and a copy of the library
// built without it: the helper object is still made, its dispatch calls
// answer TYPE_E_ELEMENTNOTFOUND, and scripts that call a helper fail.
#include <gtest/gtest.h>

#include <string>

#include "PacTestSupport.h"
#include "TestSupport.h"
#include "pac/FindProxyForURL.h"
#include "resolver/Routvane.h"

namespace {

TEST(NoTypeLibrary, DispatchAnswersElementNotFoundAndScriptsRunWithoutHelpers) {
    FindProxyForURL *object = new FindProxyForURL();
    ComPtr<IFindProxyForUrl> helper = ComPtr<IFindProxyForUrl>::Share(object);
    UINT count = 7;
    EXPECT_EQ(S_OK, helper->GetTypeInfoCount(&count));
    EXPECT_EQ(0u, count);
    ComPtr<ITypeInfo> info;
    EXPECT_EQ(TYPE_E_ELEMENTNOTFOUND, helper->GetTypeInfo(0, 0, info.out()));
    EXPECT_EQ(TYPE_E_ELEMENTNOTFOUND,
              static_cast<IProvideClassInfo2 *>(object)->GetClassInfo(info.out()));
    EXPECT_FALSE(info);
    LPOLESTR names[] = {const_cast<LPOLESTR>(L"isPlainHostname")};
    DISPID id = 0;
    EXPECT_EQ(TYPE_E_ELEMENTNOTFOUND, helper->GetIDsOfNames(IID_NULL, names, 1, 0, &id));
    DISPPARAMS none = {nullptr, nullptr, 0, 0};
    EXPECT_EQ(TYPE_E_ELEMENTNOTFOUND,
              helper->Invoke(7, IID_NULL, 0, DISPATCH_METHOD, &none, nullptr, nullptr, nullptr));
    EXPECT_EQ("string:DIRECT", Eval("'DIRECT'"));
    // The engine looks the name up first; the object's TYPE_E_ELEMENTNOTFOUND
    // leaves it unknown, which this engine raises as "Object expected".
    // How the host reports a failed call is the script host's own test.
    EXPECT_EQ("error:800a138f", Eval("isPlainHostname('intranet')"));
}

TEST(NoTypeLibrary, TheLibraryLoadsWithoutIt) {
    HMODULE library = LoadLibraryA("routvane_notypelib.dll");
    ASSERT_NE(nullptr, library);
    ComPtr<ITypeLib> lib;  // the copy truly lacks the resource
    const ScopedBstr path = BstrFromNarrow(Beside("routvane_notypelib.dll"));
    EXPECT_TRUE(FAILED(LoadTypeLib(path.get(), lib.out())));
    using GetClassObject = HRESULT(WINAPI *)(REFCLSID, REFIID, void **);
    auto getClassObject = reinterpret_cast<GetClassObject>(
        reinterpret_cast<void *>(GetProcAddress(library, "DllGetClassObject")));
    ASSERT_NE(nullptr, getClassObject);
    ComPtr<IClassFactory> factory;
    ASSERT_EQ(S_OK, getClassObject(CLSID_Routvane, IID_IClassFactory, factory.outVoid()));
    factory.reset();
    EXPECT_TRUE(FreeLibrary(library));
}

}  // namespace
