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
#include "util/ComOwners.h"
#include "util/Registry.h"
#include "resolver/Routvane.h"

namespace {

const CLSID kOtherClsid = {0x00000000, 0x1111, 0x2222,
                           {0x33, 0x33, 0x44, 0x44, 0x44, 0x44, 0x44, 0x44}};

TEST(Module, ClassObjectForItsClassAndInterfacesOnly) {
    const struct {
        const CLSID *clsid;
        const IID *iid;
        HRESULT hr;
    } rows[] = {{&kOtherClsid, &IID_IClassFactory, CLASS_E_CLASSNOTAVAILABLE},
                {&CLSID_Routvane, &IID_IUnknown, S_OK},
                {&CLSID_Routvane, &IID_IClassFactory, S_OK},
                {&CLSID_Routvane, &IID_IRoutvane, E_NOINTERFACE}};
    const long before = ModuleObjectCount();
    for (const auto &row : rows) {
        SCOPED_TRACE("row " + std::to_string(&row - rows));
        IUnknown *out = reinterpret_cast<IUnknown *>(0x1);
        EXPECT_EQ(DllGetClassObject(*row.clsid, *row.iid, reinterpret_cast<void **>(&out)), row.hr);
        EXPECT_EQ(row.hr == S_OK, out != nullptr);
        if (out) {
            EXPECT_EQ(ModuleObjectCount(), before + 1);
            EXPECT_EQ(out->Release(), 0u);
        }
        EXPECT_EQ(ModuleObjectCount(), before);
    }
}

// A fresh class object per call; a lock holds the module past its
// release; refused objects do not outlive the call.
TEST(Module, FactoryLocksAndRefusals) {
    ASSERT_EQ(DllCanUnloadNow(), S_OK);
    ComPtr<IClassFactory> factory, other;
    ASSERT_EQ(DllGetClassObject(CLSID_Routvane, IID_IClassFactory, factory.outVoid()), S_OK);
    ASSERT_EQ(DllGetClassObject(CLSID_Routvane, IID_IClassFactory, other.outVoid()), S_OK);
    EXPECT_NE(factory.get(), other.get());
    EXPECT_EQ(factory->LockServer(TRUE), S_OK);
    factory.reset();
    other.reset();
    EXPECT_EQ(ModuleLockCount(), 1);
    EXPECT_EQ(DllCanUnloadNow(), S_FALSE);
    ASSERT_EQ(DllGetClassObject(CLSID_Routvane, IID_IClassFactory, factory.outVoid()), S_OK);
    EXPECT_EQ(factory->LockServer(FALSE), S_OK);
    const long before = ModuleObjectCount();
    void *out = reinterpret_cast<void *>(0x1);
    EXPECT_EQ(factory->CreateInstance(factory.get(), IID_IUnknown, &out), CLASS_E_NOAGGREGATION);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(factory->CreateInstance(nullptr, IID_IDispatch, &out), E_NOINTERFACE);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(ModuleObjectCount(), before);
    factory.reset();
    EXPECT_EQ(DllCanUnloadNow(), S_OK);
}

TEST(Module, ResolverIdentityErrorInfoAndItsHoldOnTheModule) {
    ComPtr<IClassFactory> factory;
    ASSERT_EQ(DllGetClassObject(CLSID_Routvane, IID_IClassFactory, factory.outVoid()), S_OK);
    ComPtr<IRoutvane> resolver;
    ASSERT_EQ(factory->CreateInstance(nullptr, IID_IRoutvane, resolver.outVoid()), S_OK);
    factory.reset();
    EXPECT_EQ(DllCanUnloadNow(), S_FALSE) << "a live resolver holds the module";
    ComPtr<ISupportErrorInfo> errorInfo;
    ASSERT_EQ(resolver->QueryInterface(IID_ISupportErrorInfo, errorInfo.outVoid()), S_OK);
    EXPECT_NE(static_cast<void *>(errorInfo.get()), static_cast<void *>(resolver.get()));
    EXPECT_EQ(errorInfo->InterfaceSupportsErrorInfo(IID_IRoutvane), S_OK);
    EXPECT_EQ(errorInfo->InterfaceSupportsErrorInfo(IID_IUnknown), S_FALSE);

    // Both tables lead to one identity and one reference count.
    ComPtr<IUnknown> u1, u2;
    ASSERT_EQ(resolver->QueryInterface(IID_IUnknown, u1.outVoid()), S_OK);
    ASSERT_EQ(errorInfo->QueryInterface(IID_IUnknown, u2.outVoid()), S_OK);
    EXPECT_EQ(u1.get(), u2.get());
    ComPtr<IRoutvane> again;
    ASSERT_EQ(errorInfo->QueryInterface(IID_IRoutvane, again.outVoid()), S_OK);
    EXPECT_EQ(again.get(), resolver.get());
    EXPECT_EQ(resolver->AddRef(), 6u);
    EXPECT_EQ(resolver->Release(), 5u);
    // A refused interface is the helper object's row: the same base answers.
    EXPECT_EQ(resolver->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
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
    RegKey k;
    return RegOpenKeyExA(HKEY_CLASSES_ROOT, key.c_str(), 0, KEY_READ, k.out()) == ERROR_SUCCESS;
}

// Registered twice over itself, then unregistered with a key of someone
// else's inside, then once more with nothing registered.
TEST(Registration, WritesTheClassTreeAndRemovesWholeTrees) {
    const std::string clsid = "{6B1C4E2A-8F3D-4A57-9C21-3E5D7A90B4F1}";
    const std::string classKey = "CLSID\\" + clsid;
    DllUnregisterServer();
    ASSERT_EQ(DllRegisterServer(), S_OK);
    ASSERT_EQ(DllRegisterServer(), S_OK);
    char path[512];
    GetModuleFileNameA(nullptr, path, sizeof path);
    const struct {
        std::string key;
        const char *name;
        std::string data;
    } rows[] = {
        {classKey, nullptr, "Ovrena.Routvane"},
        {classKey + "\\InprocServer32", nullptr, path},
        {classKey + "\\InprocServer32", "ThreadingModel", "Both"},
        {classKey + "\\ProgID", nullptr, "Ovrena.Routvane.1"},
        {classKey + "\\VersionIndependentProgID", nullptr, "Ovrena.Routvane"},
        {"Ovrena.Routvane", nullptr, "Ovrena.Routvane"},
        {"Ovrena.Routvane\\CLSID", nullptr, clsid},
        {"Ovrena.Routvane\\CurVer", nullptr, "Ovrena.Routvane.1"},
        {"Ovrena.Routvane.1", nullptr, "Ovrena.Routvane"},
        {"Ovrena.Routvane.1\\CLSID", nullptr, clsid},
    };
    for (const auto &row : rows)
        EXPECT_EQ(ClassesValue(row.key, row.name), row.data)
            << row.key << " " << (row.name ? row.name : "");

    ASSERT_EQ(RegSetKeyValueA(HKEY_CLASSES_ROOT, (classKey + "\\Added\\Deeper").c_str(), nullptr,
                              REG_SZ, "x", 2),
              ERROR_SUCCESS);
    EXPECT_EQ(DllUnregisterServer(), S_OK);
    for (const std::string &key : {classKey, std::string("Ovrena.Routvane"),
                                  std::string("Ovrena.Routvane.1")})
        EXPECT_FALSE(KeyExists(key)) << key;
    EXPECT_EQ(DllUnregisterServer(), S_OK);
    EXPECT_TRUE(KeyExists("CLSID"));
}

}  // namespace
