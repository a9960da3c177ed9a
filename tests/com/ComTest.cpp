// The COM server's module: class objects, object and lock counts, the
// resolver's identity, and the registry entries written and removed by
// registration. The client tests use the same entries through regsvr32 and
// CoCreateInstance.
#include <gtest/gtest.h>

#include <objbase.h>
#include <olectl.h>

#include <thread>
#include <vector>

#include "TestSupport.h"
#include "com/Module.h"
#include "resolver/Routvane.h"

namespace {

// {00000000-1111-2222-3333-444444444444}
const CLSID kOtherClsid = {0x00000000, 0x1111, 0x2222,
                           {0x33, 0x33, 0x44, 0x44, 0x44, 0x44, 0x44, 0x44}};

template <class T>
struct Ptr {
    T *p = nullptr;
    ~Ptr() {
        if (p) p->Release();
    }
    void **out() { return reinterpret_cast<void **>(&p); }
};

TEST(Module, ClassObjectForItsClassAndInterfacesOnly) {
    const struct {
        const CLSID *clsid;
        const IID *iid;
        HRESULT hr;
    } rows[] = {{&kOtherClsid, &IID_IClassFactory, CLASS_E_CLASSNOTAVAILABLE},
                {&IID_IRoutvane, &IID_IClassFactory, CLASS_E_CLASSNOTAVAILABLE},
                {&CLSID_Routvane, &IID_IUnknown, S_OK},
                {&CLSID_Routvane, &IID_IClassFactory, S_OK},
                {&CLSID_Routvane, &IID_ISupportErrorInfo, S_OK},
                {&CLSID_Routvane, &IID_IRoutvane, E_NOINTERFACE},
                {&CLSID_Routvane, &IID_IDispatch, E_NOINTERFACE}};
    const long before = ModuleObjectCount();
    for (size_t i = 0; i < sizeof rows / sizeof rows[0]; ++i) {
        IUnknown *out = reinterpret_cast<IUnknown *>(0x1);
        EXPECT_EQ(DllGetClassObject(*rows[i].clsid, *rows[i].iid, reinterpret_cast<void **>(&out)),
                  rows[i].hr)
            << "row " << i;
        if (rows[i].hr == S_OK) {
            ASSERT_NE(out, nullptr);
            EXPECT_EQ(ModuleObjectCount(), before + 1);
            EXPECT_EQ(out->Release(), 0u);
        } else {
            EXPECT_EQ(out, nullptr) << "row " << i;
        }
        EXPECT_EQ(ModuleObjectCount(), before);
    }
}

TEST(Module, EachCallMakesAFreshClassObject) {
    Ptr<IClassFactory> a, b;
    ASSERT_EQ(DllGetClassObject(CLSID_Routvane, IID_IClassFactory, a.out()), S_OK);
    ASSERT_EQ(DllGetClassObject(CLSID_Routvane, IID_IClassFactory, b.out()), S_OK);
    EXPECT_NE(a.p, b.p);
    EXPECT_EQ(DllCanUnloadNow(), S_FALSE);
}

TEST(Module, LockServerHoldsTheModule) {
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

TEST(Module, CreateInstanceRefusesAggregationAndUnknownInterfaces) {
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

TEST(Module, ResolverIdentityErrorInfoAndItsHoldOnTheModule) {
    Ptr<IClassFactory> factory;
    ASSERT_EQ(DllGetClassObject(CLSID_Routvane, IID_IClassFactory, factory.out()), S_OK);
    Ptr<IRoutvane> resolver;
    ASSERT_EQ(factory.p->CreateInstance(nullptr, IID_IRoutvane, resolver.out()), S_OK);
    factory.p->Release();
    factory.p = nullptr;
    EXPECT_EQ(DllCanUnloadNow(), S_FALSE) << "a live resolver holds the module";
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

TEST(Module, ReferenceCountsAreAtomic) {
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

// ------------------------------------------------------------ registration

// A REG_SZ value under HKEY_CLASSES_ROOT, or "(none)".
std::string ClassesValue(const std::string &key, const char *name) {
    char buffer[1024];
    DWORD size = sizeof buffer;
    if (RegGetValueA(HKEY_CLASSES_ROOT, key.c_str(), name, RRF_RT_REG_SZ, nullptr, buffer,
                     &size) != ERROR_SUCCESS)
        return "(none)";
    return buffer;
}

bool KeyExists(const std::string &key) {
    HKEY k = nullptr;
    if (RegOpenKeyExA(HKEY_CLASSES_ROOT, key.c_str(), 0, KEY_READ, &k) != ERROR_SUCCESS)
        return false;
    RegCloseKey(k);
    return true;
}

class Registration : public testing::Test {
protected:
    void SetUp() override { DllUnregisterServer(); }
    void TearDown() override { DllUnregisterServer(); }
    const std::string clsid_ = [] {
        LPOLESTR wide = nullptr;
        StringFromCLSID(CLSID_Routvane, &wide);
        char narrow[64];
        WideCharToMultiByte(CP_ACP, 0, wide, -1, narrow, sizeof narrow, nullptr, nullptr);
        CoTaskMemFree(wide);
        return std::string(narrow);
    }();
    const std::string classKey_ = "CLSID\\" + clsid_;
};

TEST_F(Registration, WritesTheClassTreeAgainOverItself) {
    ASSERT_EQ(DllRegisterServer(), S_OK);
    ASSERT_EQ(DllRegisterServer(), S_OK);
    char path[512];
    GetModuleFileNameA(nullptr, path, sizeof path);
    const struct {
        std::string key;
        const char *name;
        std::string data;
    } rows[] = {
        {classKey_, nullptr, "Ovrena.Routvane"},
        {classKey_ + "\\InprocServer32", nullptr, path},
        {classKey_ + "\\InprocServer32", "ThreadingModel", "Both"},
        {classKey_ + "\\ProgID", nullptr, "Ovrena.Routvane.1"},
        {classKey_ + "\\VersionIndependentProgID", nullptr, "Ovrena.Routvane"},
        {"Ovrena.Routvane", nullptr, "Ovrena.Routvane"},
        {"Ovrena.Routvane\\CLSID", nullptr, clsid_},
        {"Ovrena.Routvane\\CurVer", nullptr, "Ovrena.Routvane.1"},
        {"Ovrena.Routvane.1", nullptr, "Ovrena.Routvane"},
        {"Ovrena.Routvane.1\\CLSID", nullptr, clsid_},
    };
    for (const auto &row : rows)
        EXPECT_EQ(ClassesValue(row.key, row.name), row.data)
            << row.key << " " << (row.name ? row.name : "");
}

TEST_F(Registration, UnregisterRemovesWholeTreesAndToleratesAbsence) {
    ASSERT_EQ(DllRegisterServer(), S_OK);
    HKEY extra = nullptr;
    ASSERT_EQ(RegCreateKeyExA(HKEY_CLASSES_ROOT, (classKey_ + "\\Added\\Deeper").c_str(), 0,
                              nullptr, 0, KEY_ALL_ACCESS, nullptr, &extra, nullptr),
              ERROR_SUCCESS);
    RegCloseKey(extra);
    EXPECT_EQ(DllUnregisterServer(), S_OK);
    for (const std::string &key : {classKey_, std::string("Ovrena.Routvane"),
                                  std::string("Ovrena.Routvane.1")})
        EXPECT_FALSE(KeyExists(key)) << key;
    // Nothing registered: still S_OK, and nothing else is touched.
    EXPECT_EQ(DllUnregisterServer(), S_OK);
    EXPECT_TRUE(KeyExists("CLSID"));
}

}  // namespace
