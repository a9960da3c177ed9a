#include <gtest/gtest.h>

#include <objbase.h>

#include <thread>
#include <vector>

#include "com/Module.h"
#include "resolver/Routvane.h"

namespace {

// {00000000-1111-2222-3333-444444444444}
const CLSID kOtherClsid = {0x00000000, 0x1111, 0x2222, {0x33, 0x33, 0x44, 0x44, 0x44, 0x44, 0x44, 0x44}};

template <class T>
struct Ptr {
    T *p = nullptr;
    ~Ptr() {
        if (p) p->Release();
    }
    void **out() { return reinterpret_cast<void **>(&p); }
};

TEST(ModuleTest, OtherClassIdsAreNotAvailable) {
    void *out = reinterpret_cast<void *>(0x1);
    EXPECT_EQ(DllGetClassObject(kOtherClsid, IID_IClassFactory, &out), CLASS_E_CLASSNOTAVAILABLE);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(DllGetClassObject(IID_IRoutvane, IID_IClassFactory, &out), CLASS_E_CLASSNOTAVAILABLE);
}

TEST(ModuleTest, ClassObjectAnswersItsInterfacesOnly) {
    const struct {
        const IID *iid;
        HRESULT hr;
    } rows[] = {{&IID_IUnknown, S_OK},
                {&IID_IClassFactory, S_OK},
                {&IID_ISupportErrorInfo, S_OK},
                {&IID_IRoutvane, E_NOINTERFACE},
                {&IID_IDispatch, E_NOINTERFACE}};
    const long before = ModuleObjectCount();
    for (const auto &row : rows) {
        IUnknown *out = reinterpret_cast<IUnknown *>(0x1);
        EXPECT_EQ(DllGetClassObject(CLSID_Routvane, *row.iid, reinterpret_cast<void **>(&out)),
                  row.hr);
        if (row.hr == S_OK) {
            ASSERT_NE(out, nullptr);
            EXPECT_EQ(ModuleObjectCount(), before + 1);
            EXPECT_EQ(out->Release(), 0u);
        } else {
            EXPECT_EQ(out, nullptr);
        }
        EXPECT_EQ(ModuleObjectCount(), before);
    }
}

TEST(ModuleTest, EachCallMakesAFreshClassObject) {
    Ptr<IClassFactory> a, b;
    ASSERT_EQ(DllGetClassObject(CLSID_Routvane, IID_IClassFactory, a.out()), S_OK);
    ASSERT_EQ(DllGetClassObject(CLSID_Routvane, IID_IClassFactory, b.out()), S_OK);
    EXPECT_NE(a.p, b.p);
    EXPECT_EQ(DllCanUnloadNow(), S_FALSE);
}

TEST(ModuleTest, LockServerHoldsTheModule) {
    ASSERT_EQ(DllCanUnloadNow(), S_OK);
    IClassFactory *factory = nullptr;
    ASSERT_EQ(DllGetClassObject(CLSID_Routvane, IID_IClassFactory,
                                reinterpret_cast<void **>(&factory)),
              S_OK);
    EXPECT_EQ(factory->LockServer(TRUE), S_OK);
    factory->Release();
    EXPECT_EQ(ModuleLockCount(), 1);
    EXPECT_EQ(DllCanUnloadNow(), S_FALSE);
    ASSERT_EQ(DllGetClassObject(CLSID_Routvane, IID_IClassFactory,
                                reinterpret_cast<void **>(&factory)),
              S_OK);
    EXPECT_EQ(factory->LockServer(FALSE), S_OK);
    factory->Release();
    EXPECT_EQ(DllCanUnloadNow(), S_OK);
}

TEST(ModuleTest, CreateInstanceRefusesAggregationAndUnknownInterfaces) {
    Ptr<IClassFactory> factory;
    ASSERT_EQ(DllGetClassObject(CLSID_Routvane, IID_IClassFactory, factory.out()), S_OK);
    const long before = ModuleObjectCount();
    void *out = reinterpret_cast<void *>(0x1);
    EXPECT_EQ(factory.p->CreateInstance(reinterpret_cast<IUnknown *>(factory.p), IID_IUnknown,
                                        &out),
              CLASS_E_NOAGGREGATION);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(factory.p->CreateInstance(nullptr, IID_IDispatch, &out), E_NOINTERFACE);
    EXPECT_EQ(out, nullptr);
    // The refused object does not outlive the call.
    EXPECT_EQ(ModuleObjectCount(), before);
}

TEST(ModuleTest, ResolverIdentityAndErrorInfo) {
    Ptr<IClassFactory> factory;
    ASSERT_EQ(DllGetClassObject(CLSID_Routvane, IID_IClassFactory, factory.out()), S_OK);
    Ptr<IRoutvane> resolver;
    ASSERT_EQ(factory.p->CreateInstance(nullptr, IID_IRoutvane, resolver.out()), S_OK);
    Ptr<ISupportErrorInfo> errorInfo;
    ASSERT_EQ(resolver.p->QueryInterface(IID_ISupportErrorInfo, errorInfo.out()), S_OK);
    EXPECT_NE(static_cast<void *>(errorInfo.p), static_cast<void *>(resolver.p));
    EXPECT_EQ(errorInfo.p->InterfaceSupportsErrorInfo(IID_IRoutvane), S_OK);
    EXPECT_EQ(errorInfo.p->InterfaceSupportsErrorInfo(IID_IUnknown), S_FALSE);

    // Both tables lead to one identity and one reference count.
    Ptr<IUnknown> u1, u2;
    ASSERT_EQ(resolver.p->QueryInterface(IID_IUnknown, u1.out()), S_OK);
    ASSERT_EQ(errorInfo.p->QueryInterface(IID_IUnknown, u2.out()), S_OK);
    EXPECT_EQ(u1.p, u2.p);
    Ptr<IRoutvane> again;
    ASSERT_EQ(errorInfo.p->QueryInterface(IID_IRoutvane, again.out()), S_OK);
    EXPECT_EQ(again.p, resolver.p);
    EXPECT_EQ(resolver.p->AddRef(), 6u);
    EXPECT_EQ(resolver.p->Release(), 5u);

    void *out = reinterpret_cast<void *>(0x1);
    EXPECT_EQ(resolver.p->QueryInterface(IID_IClassFactory, &out), E_NOINTERFACE);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(resolver.p->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
}

TEST(ModuleTest, ReferenceCountsAreAtomic) {
    Routvane *resolver = new Routvane();
    resolver->AddRef();
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([resolver] {
            for (int i = 0; i < 20000; ++i) {
                resolver->AddRef();
                resolver->Release();
            }
        });
    }
    for (auto &t : threads) t.join();
    EXPECT_EQ(resolver->Release(), 0u);
}

TEST(ModuleTest, ModuleCanUnloadAfterEverythingIsReleased) {
    {
        Ptr<IClassFactory> factory;
        ASSERT_EQ(DllGetClassObject(CLSID_Routvane, IID_IClassFactory, factory.out()), S_OK);
        Ptr<IRoutvane> resolver;
        ASSERT_EQ(factory.p->CreateInstance(nullptr, IID_IRoutvane, resolver.out()), S_OK);
        EXPECT_EQ(DllCanUnloadNow(), S_FALSE);
    }
    EXPECT_EQ(DllCanUnloadNow(), S_OK);
}

}  // namespace
