// Owners of COM resources on the owner family of util/Owners.h: a BSTR,
// task memory and an interface reference on UniqueOwner; a VARIANT and an
// EXCEPINFO, which are held by value, on UniqueStruct.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <string>
#include <utility>

#include "util/Owners.h"

// One BSTR, freed with SysFreeString.
struct BstrTraits : NullTraits<BSTR> {
    static void close(BSTR text) { ::SysFreeString(text); }
};
using ScopedBstr = UniqueOwner<BstrTraits>;

// A block of COM task memory, such as StringFromCLSID hands out.
template <class T>
struct TaskMemoryTraits : NullTraits<T *> {
    static void close(T *block) { ::CoTaskMemFree(block); }
};
template <class T>
using TaskMemory = UniqueOwner<TaskMemoryTraits<T>>;

// One VARIANT, cleared with VariantClear.
struct VariantTraits {
    using type = VARIANT;
    static void init(VARIANT *value) { ::VariantInit(value); }
    static void close(VARIANT *value) { ::VariantClear(value); }
    static bool holds(const VARIANT &value) { return V_VT(&value) != VT_EMPTY; }
};
using ScopedVariant = UniqueStruct<VariantTraits>;

// An EXCEPINFO and the three BSTRs a callee may leave in it, freed even
// where the caller never reads them.
struct ExcepInfoTraits {
    using type = EXCEPINFO;
    static void init(EXCEPINFO *value) { ZeroMemory(value, sizeof *value); }
    static void close(EXCEPINFO *value) {
        ::SysFreeString(value->bstrSource);
        ::SysFreeString(value->bstrDescription);
        ::SysFreeString(value->bstrHelpFile);
    }
    static bool holds(const EXCEPINFO &value) {
        return value.bstrSource || value.bstrDescription || value.bstrHelpFile;
    }
};
using ScopedExcepInfo = UniqueStruct<ExcepInfoTraits>;

// One counted interface reference.
template <class T>
struct ComTraits : NullTraits<T *> {
    static void close(T *object) { object->Release(); }
};

template <class T>
class ComPtr : public UniqueOwner<ComTraits<T>> {
public:
    using UniqueOwner<ComTraits<T>>::UniqueOwner;
    // Takes over a reference the caller already holds.
    static ComPtr Adopt(T *owned) { return ComPtr(owned); }
    // Takes a reference of its own.
    static ComPtr Share(T *shared) {
        if (shared) shared->AddRef();
        return ComPtr(shared);
    }
    T *operator->() const { return this->get(); }
    // The reference-counting names of reset and release.
    void attach(T *owned) { this->reset(owned); }
    T *detach() { return this->release(); }
    // A reference of the caller's own in *out, null when none is held.
    HRESULT copy_to(T **out) const {
        if (!out) return E_POINTER;
        *out = this->get();
        if (*out) (*out)->AddRef();
        return S_OK;
    }
    void **outVoid() { return reinterpret_cast<void **>(this->out()); }
};

// The runtime's text is narrow in the ANSI code page; BSTRs appear only at
// the engine and dispatch boundaries. Both conversions keep embedded NULs
// and the full length.
ScopedBstr BstrFromNarrow(const std::string &text);
std::string NarrowFromBstr(BSTR text);
// The UTF-16 code units of a BSTR; a null BSTR is the empty string.
std::wstring WideFromBstr(BSTR text);
