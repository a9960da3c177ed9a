#include <gtest/gtest.h>

#include <objbase.h>
#include <olectl.h>

#include <routvane.h>

#include "TestSupport.h"

namespace {

std::string ClsidText() {
    LPOLESTR wide = nullptr;
    StringFromCLSID(CLSID_Routvane, &wide);
    char narrow[64];
    WideCharToMultiByte(CP_ACP, 0, wide, -1, narrow, sizeof narrow, nullptr, nullptr);
    CoTaskMemFree(wide);
    return narrow;
}

bool ReadValue(const std::string &key, const char *name, std::string &out) {
    char buffer[1024];
    LONG size = sizeof buffer;
    DWORD type = 0;
    DWORD dsize = sizeof buffer;
    HKEY k = nullptr;
    if (RegOpenKeyExA(HKEY_CLASSES_ROOT, key.c_str(), 0, KEY_READ, &k) != ERROR_SUCCESS)
        return false;
    const bool ok = RegQueryValueExA(k, name, nullptr, &type, reinterpret_cast<BYTE *>(buffer),
                                     &dsize) == ERROR_SUCCESS &&
                    type == REG_SZ;
    RegCloseKey(k);
    (void)size;
    if (ok) out = buffer;
    return ok;
}

bool KeyExists(const std::string &key) {
    HKEY k = nullptr;
    if (RegOpenKeyExA(HKEY_CLASSES_ROOT, key.c_str(), 0, KEY_READ, &k) != ERROR_SUCCESS)
        return false;
    RegCloseKey(k);
    return true;
}

class RegistrationTest : public testing::Test {
protected:
    void SetUp() override {
        DllUnregisterServer();
        CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    }
    void TearDown() override {
        DllUnregisterServer();
        CoUninitialize();
    }
    const std::string clsid_ = ClsidText();
    const std::string classKey_ = "CLSID\\" + ClsidText();
};

TEST_F(RegistrationTest, WritesTheClassTree) {
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
    for (const auto &row : rows) {
        std::string value;
        EXPECT_TRUE(ReadValue(row.key, row.name, value)) << row.key;
        EXPECT_EQ(value, row.data) << row.key;
    }
    EXPECT_EQ(clsid_.front(), '{');
    EXPECT_EQ(clsid_.size(), 38u);
}

TEST_F(RegistrationTest, BothProgIdsYieldTheClassId) {
    ASSERT_EQ(DllRegisterServer(), S_OK);
    for (const wchar_t *progId : {ROUTVANE_PROGID, ROUTVANE_PROGID_VERSIONED}) {
        CLSID clsid = {};
        EXPECT_EQ(CLSIDFromProgID(progId, &clsid), S_OK);
        EXPECT_TRUE(IsEqualCLSID(clsid, CLSID_Routvane));
    }
}

TEST_F(RegistrationTest, UnregisterRemovesWholeTreesAndToleratesAbsence) {
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

TEST_F(RegistrationTest, RegisteringTwiceKeepsOneTree) {
    ASSERT_EQ(DllRegisterServer(), S_OK);
    ASSERT_EQ(DllRegisterServer(), S_OK);
    std::string value;
    EXPECT_TRUE(ReadValue(classKey_ + "\\InprocServer32", "ThreadingModel", value));
    EXPECT_EQ(DllUnregisterServer(), S_OK);
    EXPECT_FALSE(KeyExists(classKey_));
}

}  // namespace
