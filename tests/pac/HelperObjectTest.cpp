// The PAC helper object's frame: its type library, its dispatch layer, its
// identity, and what its methods receive.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "PacTestSupport.h"
#include "pac/FindProxyForURL.h"
#include "pac/ScriptHost.h"

namespace {

ComPtr<ITypeLib> LoadOwnTypeLib(const char *file) {
    char path[MAX_PATH];
    const DWORD length = GetModuleFileNameA(nullptr, path, sizeof path);
    std::string full(path, length);
    if (file) full = full.substr(0, full.find_last_of('\\') + 1) + file;
    ScopedBstr wide = BstrFromNarrow(full);
    ComPtr<ITypeLib> lib;
    ITypeLib *raw = nullptr;
    if (SUCCEEDED(LoadTypeLib(wide.get(), &raw))) lib = ComPtr<ITypeLib>::Adopt(raw);
    return lib;
}

struct MethodRow {
    const wchar_t *name;
    DISPID id;
    short params;          // declared in-parameters
    short optional;        // of which optional
    VARTYPE firstType;     // type of the first in-parameter
    VARTYPE resultType;    // type behind the out-retval pointer
    short vtableSlot;      // virtual slot in the interface
};

const MethodRow kMethods[] = {
    {L"isPlainHostname", 1, 1, 0, VT_BSTR, VT_BOOL, 7},
    {L"dnsDomainIs", 2, 2, 0, VT_BSTR, VT_BOOL, 8},
    {L"localHostOrDomainIs", 3, 2, 0, VT_BSTR, VT_BOOL, 9},
    {L"isResolvable", 4, 1, 0, VT_BSTR, VT_BOOL, 10},
    {L"isInNet", 5, 3, 0, VT_BSTR, VT_BOOL, 11},
    {L"dnsResolve", 6, 1, 0, VT_BSTR, VT_BSTR, 12},
    {L"myIpAddress", 7, 0, 0, VT_EMPTY, VT_BSTR, 13},
    {L"dnsDomainLevels", 8, 1, 0, VT_BSTR, VT_INT, 14},
    {L"shExpMatch", 9, 2, 0, VT_BSTR, VT_BOOL, 15},
    {L"weekdayRange", 10, 3, 2, VT_BSTR, VT_BOOL, 16},
    {L"dateRange", 11, 7, 6, VT_VARIANT, VT_BOOL, 17},
    {L"timeRange", 12, 7, 6, VT_VARIANT, VT_BOOL, 18},
};

TEST(HelperTypeLibrary, MethodTable) {
    ComPtr<ITypeLib> lib = LoadOwnTypeLib(nullptr);
    ASSERT_TRUE(lib);
    ComPtr<ITypeInfo> info;
    ASSERT_EQ(S_OK, lib->GetTypeInfoOfGuid(IID_IFindProxyForUrl, info.out()));
    // The dual interface's dispatch side refers to its vtable side.
    HREFTYPE ref = 0;
    ComPtr<ITypeInfo> vtable;
    ASSERT_EQ(S_OK, info->GetRefTypeOfImplType(-1, &ref));
    ASSERT_EQ(S_OK, info->GetRefTypeInfo(ref, vtable.out()));
    TYPEATTR *attr = nullptr;
    ASSERT_EQ(S_OK, vtable->GetTypeAttr(&attr));
    EXPECT_TRUE(attr->wTypeFlags & TYPEFLAG_FDUAL);
    EXPECT_TRUE(attr->wTypeFlags & TYPEFLAG_FOLEAUTOMATION);
    EXPECT_TRUE(attr->wTypeFlags & TYPEFLAG_FDISPATCHABLE);
    EXPECT_EQ(12, attr->cFuncs);
    vtable->ReleaseTypeAttr(attr);

    for (UINT i = 0; i < 12; ++i) {
        const MethodRow &row = kMethods[i];
        FUNCDESC *func = nullptr;
        ASSERT_EQ(S_OK, vtable->GetFuncDesc(i, &func));
        EXPECT_EQ(row.id, func->memid) << i;
        EXPECT_EQ(row.vtableSlot * static_cast<short>(sizeof(void *)), func->oVft) << i;
        ASSERT_EQ(row.params + 1, func->cParams) << i;
        EXPECT_EQ(row.optional, func->cParamsOpt == -1 ? 0 : func->cParamsOpt + 0) << i;
        ScopedBstr name;
        UINT names = 0;
        EXPECT_EQ(S_OK, vtable->GetNames(func->memid, name.out(), 1, &names));
        EXPECT_EQ(std::wstring(row.name), WideFromBstr(name.get()));
        if (row.params > 0) {
            EXPECT_EQ(row.firstType, func->lprgelemdescParam[0].tdesc.vt) << i;
        }
        const ELEMDESC &retval = func->lprgelemdescParam[row.params];
        EXPECT_TRUE(retval.paramdesc.wParamFlags & PARAMFLAG_FRETVAL) << i;
        ASSERT_EQ(VT_PTR, retval.tdesc.vt) << i;
        EXPECT_EQ(row.resultType, retval.tdesc.lptdesc->vt) << i;
        // Optional parameters: the two weekday strings default to "", the
        // range VARIANTs are plain optional.
        for (short p = row.params - row.optional; p < row.params; ++p) {
            const PARAMDESC &desc = func->lprgelemdescParam[p].paramdesc;
            EXPECT_TRUE(desc.wParamFlags & PARAMFLAG_FOPT) << i << "/" << p;
            if (row.firstType == VT_BSTR) {
                ASSERT_TRUE(desc.wParamFlags & PARAMFLAG_FHASDEFAULT) << i << "/" << p;
                const VARIANT &value = desc.pparamdescex->varDefaultValue;
                EXPECT_EQ(VT_BSTR, V_VT(&value));
                EXPECT_EQ(0u, SysStringLen(V_BSTR(&value)));
            } else {
                EXPECT_FALSE(desc.wParamFlags & PARAMFLAG_FHASDEFAULT) << i << "/" << p;
            }
        }
        vtable->ReleaseFuncDesc(func);
    }
}

TEST(HelperTypeLibrary, LibraryAndClass) {
    ComPtr<ITypeLib> lib = LoadOwnTypeLib(nullptr);
    ASSERT_TRUE(lib);
    TLIBATTR *attr = nullptr;
    ASSERT_EQ(S_OK, lib->GetLibAttr(&attr));
    EXPECT_TRUE(IsEqualGUID(LIBID_FindProxyForUrl, attr->guid));
    EXPECT_EQ(1, attr->wMajorVerNum);
    EXPECT_EQ(0, attr->wMinorVerNum);
    lib->ReleaseTLibAttr(attr);
    ScopedBstr name, help;
    ASSERT_EQ(S_OK, lib->GetDocumentation(-1, name.out(), help.out(), nullptr, nullptr));
    EXPECT_EQ(L"FindProxyForUrl", WideFromBstr(name.get()));
    EXPECT_EQ(L"Ovrena FindProxyForUrl methods", WideFromBstr(help.get()));

    ComPtr<ITypeInfo> coclass;
    ASSERT_EQ(S_OK, lib->GetTypeInfoOfGuid(CLSID_FindProxyForUrl, coclass.out()));
    TYPEATTR *classAttr = nullptr;
    ASSERT_EQ(S_OK, coclass->GetTypeAttr(&classAttr));
    EXPECT_TRUE(classAttr->wTypeFlags & TYPEFLAG_FCANCREATE);
    coclass->ReleaseTypeAttr(classAttr);
    INT flags = 0;
    ASSERT_EQ(S_OK, coclass->GetImplTypeFlags(0, &flags));
    EXPECT_TRUE(flags & IMPLTYPEFLAG_FDEFAULT);
}

TEST(HelperTypeLibrary, TheShippedLibraryCarriesIt) {
    ComPtr<ITypeLib> lib = LoadOwnTypeLib("routvane.dll");
    ASSERT_TRUE(lib);
    ComPtr<ITypeInfo> info;
    EXPECT_EQ(S_OK, lib->GetTypeInfoOfGuid(IID_IFindProxyForUrl, info.out()));
}

TEST(HelperObject, DispatchFrame) {
    ComPtr<IFindProxyForUrl> helper = ComPtr<IFindProxyForUrl>::Share(new FindProxyForURL());
    UINT count = 0;
    EXPECT_EQ(S_OK, helper->GetTypeInfoCount(&count));
    EXPECT_EQ(1u, count);
    ITypeInfo *info = reinterpret_cast<ITypeInfo *>(1);
    EXPECT_EQ(DISP_E_BADINDEX, helper->GetTypeInfo(1, 0, &info));
    EXPECT_EQ(nullptr, info);
    ASSERT_EQ(S_OK, helper->GetTypeInfo(0, 0x0409, &info));
    ASSERT_NE(nullptr, info);
    info->Release();

    LPOLESTR names[] = {const_cast<LPOLESTR>(L"shExpMatch")};
    DISPID id = 0;
    EXPECT_EQ(DISP_E_UNKNOWNINTERFACE, helper->GetIDsOfNames(IID_IDispatch, names, 1, 0, &id));
    ASSERT_EQ(S_OK, helper->GetIDsOfNames(IID_NULL, names, 1, 0, &id));
    EXPECT_EQ(9, id);
    LPOLESTR unknown[] = {const_cast<LPOLESTR>(L"alert")};
    EXPECT_EQ(DISP_E_UNKNOWNNAME, helper->GetIDsOfNames(IID_NULL, unknown, 1, 0, &id));

    // A call through Invoke reaches the method.
    ScopedBstr host(SysAllocString(L"a.b.c"));
    VARIANT arg;
    V_VT(&arg) = VT_BSTR;
    V_BSTR(&arg) = host.get();
    DISPPARAMS params = {&arg, nullptr, 1, 0};
    ScopedVariant result;
    UINT argError = 0;
    EXPECT_EQ(DISP_E_UNKNOWNINTERFACE,
              helper->Invoke(8, IID_IDispatch, 0, DISPATCH_METHOD, &params, result.get(), nullptr,
                             &argError));
    ASSERT_EQ(S_OK, helper->Invoke(8, IID_NULL, 0, DISPATCH_METHOD, &params, result.get(), nullptr,
                                   &argError));
    EXPECT_EQ(VT_I4, V_VT(result.get()));
    EXPECT_EQ(2, V_I4(result.get()));
}

TEST(HelperObject, Identity) {
    FindProxyForURL *object = new FindProxyForURL();
    ComPtr<IFindProxyForUrl> helper = ComPtr<IFindProxyForUrl>::Share(object);
    struct Case {
        const IID *iid;
        void *expected;
    };
    const Case cases[] = {
        {&IID_IUnknown, static_cast<IFindProxyForUrl *>(object)},
        {&IID_IDispatch, static_cast<IFindProxyForUrl *>(object)},
        {&IID_IFindProxyForUrl, static_cast<IFindProxyForUrl *>(object)},
        {&IID_ISupportErrorInfo, static_cast<ISupportErrorInfo *>(object)},
        {&IID_IProvideClassInfo, static_cast<IProvideClassInfo2 *>(object)},
        {&IID_IProvideClassInfo2, static_cast<IProvideClassInfo2 *>(object)},
        {&IID_IClassFactory, nullptr},
        {&IID_IPersist, nullptr},
        {&IID_IActiveScriptSite, nullptr},
    };
    for (const Case &c : cases) {
        void *out = reinterpret_cast<void *>(1);
        const HRESULT hr = helper->QueryInterface(*c.iid, &out);
        EXPECT_EQ(c.expected ? S_OK : E_NOINTERFACE, hr);
        EXPECT_EQ(c.expected, out);
        if (out) static_cast<IUnknown *>(out)->Release();
    }
    // Every table reaches the same count.
    IProvideClassInfo2 *classInfo = static_cast<IProvideClassInfo2 *>(object);
    EXPECT_EQ(2u, classInfo->AddRef());
    EXPECT_EQ(3u, helper->AddRef());
    EXPECT_EQ(2u, static_cast<ISupportErrorInfo *>(object)->Release());
    EXPECT_EQ(1u, classInfo->Release());

    EXPECT_EQ(S_OK, object->InterfaceSupportsErrorInfo(IID_IFindProxyForUrl));
    EXPECT_EQ(S_FALSE, object->InterfaceSupportsErrorInfo(IID_IDispatch));
    GUID guid = {};
    EXPECT_EQ(E_INVALIDARG, classInfo->GetGUID(0, &guid));
    EXPECT_EQ(E_FAIL, classInfo->GetGUID(GUIDKIND_DEFAULT_SOURCE_DISP_IID, &guid));
    ComPtr<ITypeInfo> coclass;
    ASSERT_EQ(S_OK, classInfo->GetClassInfo(coclass.out()));
    TYPEATTR *attr = nullptr;
    ASSERT_EQ(S_OK, coclass->GetTypeAttr(&attr));
    EXPECT_TRUE(IsEqualGUID(CLSID_FindProxyForUrl, attr->guid));
    coclass->ReleaseTypeAttr(attr);
}

// Records what the type library's dispatch hands to the date methods.
class RecordingHelper : public FindProxyForURL {
public:
    STDMETHODIMP weekdayRange(BSTR wd1, BSTR wd2, BSTR gmt, VARIANT_BOOL *ret) override {
        weekdays = {WideFromBstr(wd1), WideFromBstr(wd2), WideFromBstr(gmt)};
        weekdayNulls = (wd2 == nullptr) + (gmt == nullptr);
        *ret = VARIANT_TRUE;
        return S_OK;
    }
    STDMETHODIMP dateRange(VARIANT p1, VARIANT p2, VARIANT p3, VARIANT p4, VARIANT p5, VARIANT p6,
                           VARIANT gmt, VARIANT_BOOL *ret) override {
        for (const VARIANT &v : {p1, p2, p3, p4, p5, p6, gmt}) {
            types.push_back(V_VT(&v));
            errors.push_back(V_VT(&v) == VT_ERROR ? V_ERROR(&v) : S_OK);
        }
        *ret = VARIANT_FALSE;
        return S_OK;
    }
    std::vector<std::wstring> weekdays;
    int weekdayNulls = -1;
    std::vector<VARTYPE> types;
    std::vector<SCODE> errors;
};

TEST(HelperObject, OmittedOptionalArguments) {
    RecordingHelper *recorder = new RecordingHelper();
    ComPtr<IFindProxyForUrl> helper = ComPtr<IFindProxyForUrl>::Share(recorder);
    ScriptHost host(helper.get());
    ASSERT_TRUE(host.Parse("function FindProxyForURL(url, h) {\n"
                           "  return weekdayRange('MON') + ',' + dateRange(1);\n}"));
    std::string result;
    ASSERT_TRUE(host.ExecuteSSS("FindProxyForURL", "", "", result));
    EXPECT_EQ("true,false", result);
    EXPECT_EQ((std::vector<std::wstring>{L"MON", L"", L""}), recorder->weekdays);
    ASSERT_EQ(7u, recorder->types.size());
    EXPECT_EQ(VT_I4, recorder->types[0]);
    for (size_t i = 1; i < 7; ++i) {
        EXPECT_EQ(VT_ERROR, recorder->types[i]) << i;
        EXPECT_EQ(DISP_E_PARAMNOTFOUND, recorder->errors[i]) << i;
    }
}

}  // namespace
