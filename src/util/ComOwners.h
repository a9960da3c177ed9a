// Owners of the COM resources of the script runtime: a BSTR, a VARIANT and
// an interface reference each have exactly one owner class, and every path
// out of a function releases what it holds through them.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <string>
#include <utility>

// One BSTR, freed with SysFreeString.
class ScopedBstr {
public:
    ScopedBstr() = default;
    explicit ScopedBstr(BSTR owned) : value_(owned) {}
    ~ScopedBstr() { reset(); }
    ScopedBstr(ScopedBstr &&other) noexcept : value_(other.release()) {}
    ScopedBstr &operator=(ScopedBstr &&other) noexcept {
        if (this != &other) reset(other.release());
        return *this;
    }
    ScopedBstr(const ScopedBstr &) = delete;
    ScopedBstr &operator=(const ScopedBstr &) = delete;

    BSTR get() const { return value_; }
    // Where a callee stores a new BSTR; what was held is freed first.
    BSTR *out() {
        reset();
        return &value_;
    }
    BSTR release() { return std::exchange(value_, nullptr); }
    void reset(BSTR owned = nullptr) {
        if (value_) SysFreeString(value_);
        value_ = owned;
    }

private:
    BSTR value_ = nullptr;
};

// One VARIANT, cleared with VariantClear.
class ScopedVariant {
public:
    ScopedVariant() { VariantInit(&value_); }
    ~ScopedVariant() { VariantClear(&value_); }
    ScopedVariant(const ScopedVariant &) = delete;
    ScopedVariant &operator=(const ScopedVariant &) = delete;

    VARIANT *get() { return &value_; }
    const VARIANT &operator*() const { return value_; }
    // Hands the value over without clearing it; the holder is left empty.
    VARIANT release() {
        VARIANT out = value_;
        VariantInit(&value_);
        return out;
    }

private:
    VARIANT value_;
};

// An EXCEPINFO and the three BSTRs a callee may leave in it, freed even
// where the caller never reads them.
class ScopedExcepInfo {
public:
    ScopedExcepInfo() { ZeroMemory(&value_, sizeof value_); }
    ~ScopedExcepInfo() {
        SysFreeString(value_.bstrSource);
        SysFreeString(value_.bstrDescription);
        SysFreeString(value_.bstrHelpFile);
    }
    ScopedExcepInfo(const ScopedExcepInfo &) = delete;
    ScopedExcepInfo &operator=(const ScopedExcepInfo &) = delete;

    EXCEPINFO *get() { return &value_; }

private:
    EXCEPINFO value_;
};

// One counted interface reference.
template <class T>
class ComPtr {
public:
    ComPtr() = default;
    // Takes over a reference the caller already holds.
    static ComPtr Adopt(T *owned) {
        ComPtr p;
        p.value_ = owned;
        return p;
    }
    // Takes a reference of its own.
    static ComPtr Share(T *shared) {
        if (shared) shared->AddRef();
        return Adopt(shared);
    }
    ~ComPtr() { reset(); }
    ComPtr(ComPtr &&other) noexcept : value_(std::exchange(other.value_, nullptr)) {}
    ComPtr &operator=(ComPtr &&other) noexcept {
        if (this != &other) {
            reset();
            value_ = std::exchange(other.value_, nullptr);
        }
        return *this;
    }
    ComPtr(const ComPtr &) = delete;
    ComPtr &operator=(const ComPtr &) = delete;

    T *get() const { return value_; }
    T *operator->() const { return value_; }
    explicit operator bool() const { return value_ != nullptr; }
    // Where a callee stores a new reference; what was held is released first.
    T **out() {
        reset();
        return &value_;
    }
    void **outVoid() { return reinterpret_cast<void **>(out()); }
    void reset() {
        if (value_) std::exchange(value_, nullptr)->Release();
    }

private:
    T *value_ = nullptr;
};

// The runtime's text is narrow in the ANSI code page; BSTRs appear only at
// the engine and dispatch boundaries. Both conversions keep embedded NULs
// and the full length.
ScopedBstr BstrFromNarrow(const std::string &text);
std::string NarrowFromBstr(BSTR text);
// The UTF-16 code units of a BSTR; a null BSTR is the empty string.
std::wstring WideFromBstr(BSTR text);
