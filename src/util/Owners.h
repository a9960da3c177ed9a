// The one owner family. UniqueOwner<Traits> holds one resource and releases
// it exactly once, on every path: when it goes, on reset, or never after a
// release hands it over. Every owner has the same vocabulary: get, reset,
// release, out (where a callee stores a new value), move, and explicit
// bool for "holds a resource". A Traits class names the held type, the value
// that means "nothing held" and how the resource is released; each resource
// kind is one line below; UniqueStruct is the same owner for a resource held
// by value in a struct. The release functions are called here and only
// here (COM's as well, in util/ComOwners.h).
#pragma once

#include <winsock2.h>
#include <windows.h>
#include <winsvc.h>

#include <cstdio>
#include <string>
#include <utility>

template <class Traits>
class UniqueOwner {
public:
    using type = typename Traits::type;

    UniqueOwner() = default;
    explicit UniqueOwner(type owned) : value_(std::move(owned)) {}
    ~UniqueOwner() { reset(); }
    UniqueOwner(UniqueOwner &&other) noexcept : value_(other.release()) {}
    UniqueOwner &operator=(UniqueOwner &&other) noexcept {
        if (this != &other) reset(other.release());
        return *this;
    }
    UniqueOwner(const UniqueOwner &) = delete;
    UniqueOwner &operator=(const UniqueOwner &) = delete;

    const type &get() const { return value_; }
    explicit operator bool() const { return !(value_ == Traits::invalid()); }
    // Hands the resource over; the owner is left empty.
    type release() { return std::exchange(value_, Traits::invalid()); }
    void reset(type owned = Traits::invalid()) {
        type old = std::exchange(value_, std::move(owned));
        if (!(old == Traits::invalid())) Traits::close(old);
    }
    // Where a callee stores a new value; what was held is released first.
    type *out() {
        reset();
        return &value_;
    }

private:
    type value_ = Traits::invalid();
};

// The same owner for a resource held by value in a struct, whose release
// empties the struct in place (a VARIANT, an EXCEPINFO). Traits::init makes
// the struct empty, Traits::close releases what it holds and Traits::holds
// says whether it holds anything. get, reset, release, out, move and
// explicit bool mean what they mean above; release hands the struct over
// as it is and leaves the owner empty.
template <class Traits>
class UniqueStruct {
public:
    using type = typename Traits::type;

    UniqueStruct() { Traits::init(&value_); }
    explicit UniqueStruct(const type &owned) : value_(owned) {}
    ~UniqueStruct() { Traits::close(&value_); }
    UniqueStruct(UniqueStruct &&other) noexcept : value_(other.release()) {}
    UniqueStruct &operator=(UniqueStruct &&other) noexcept {
        if (this != &other) reset(other.release());
        return *this;
    }
    UniqueStruct(const UniqueStruct &) = delete;
    UniqueStruct &operator=(const UniqueStruct &) = delete;

    const type &get() const { return value_; }
    explicit operator bool() const { return Traits::holds(value_); }
    type release() {
        type out = value_;
        Traits::init(&value_);
        return out;
    }
    void reset() {
        Traits::close(&value_);
        Traits::init(&value_);
    }
    void reset(const type &owned) {
        type old = value_;
        value_ = owned;
        Traits::close(&old);
    }
    type *out() {
        reset();
        return &value_;
    }

private:
    type value_;
};

// Traits of a resource whose "nothing held" value is null.
template <class T>
struct NullTraits {
    using type = T;
    static T invalid() { return nullptr; }
};

struct RegKeyTraits : NullTraits<HKEY> {
    static void close(HKEY key) { ::RegCloseKey(key); }
};
struct KernelHandleTraits : NullTraits<HANDLE> {
    static void close(HANDLE handle) { ::CloseHandle(handle); }
};
struct ModuleTraits : NullTraits<HMODULE> {
    static void close(HMODULE module) { ::FreeLibrary(module); }
};
struct SidTraits : NullTraits<PSID> {
    static void close(PSID sid) { ::FreeSid(sid); }
};
struct FileTraits : NullTraits<FILE *> {
    static void close(FILE *file) { ::fclose(file); }
};
// A block of the process heap, as IP Helper and the service manager fill.
template <class T>
struct HeapTraits : NullTraits<T *> {
    static void close(T *block) { ::HeapFree(::GetProcessHeap(), 0, block); }
};
// A block of the global heap, as WinINet hands its strings to the caller.
struct GlobalTraits : NullTraits<void *> {
    static void close(void *block) { ::GlobalFree(block); }
};
struct SocketTraits {
    using type = SOCKET;
    static SOCKET invalid() { return INVALID_SOCKET; }
    static void close(SOCKET s) { ::closesocket(s); }
};
// A Windows Sockets start-up, held as the version granted (0: none).
struct WinsockTraits {
    using type = WORD;
    static WORD invalid() { return 0; }
    static void close(WORD) { ::WSACleanup(); }
};
// A file of that name, removed when it goes.
struct TemporaryFileTraits {
    using type = std::string;
    static std::string invalid() { return std::string(); }
    static void close(const std::string &name) { ::remove(name.c_str()); }
};

using KernelHandle = UniqueOwner<KernelHandleTraits>;
using ModuleReference = UniqueOwner<ModuleTraits>;
using SidOwner = UniqueOwner<SidTraits>;
using FileOwner = UniqueOwner<FileTraits>;
template <class T>
using HeapBlock = UniqueOwner<HeapTraits<T>>;
using GlobalBlock = UniqueOwner<GlobalTraits>;
using SocketOwner = UniqueOwner<SocketTraits>;
using TemporaryFile = UniqueOwner<TemporaryFileTraits>;

// Windows Sockets for the life of the object: 2.2, else 2.0, else 1.1;
// WSACleanup once when one of them started.
class WinsockSession : public UniqueOwner<WinsockTraits> {
public:
    WinsockSession();
    bool started() const { return static_cast<bool>(*this); }
    WORD version() const { return get(); }
};

// The production release functions of the two seams whose tests count
// releases: the service manager (dhcp/NetworkFacts.h) and WinINet handles,
// bound to wininet.dll on first use (resolver/WinInetDownload.h).
BOOL CloseServiceManager(SC_HANDLE manager);
BOOL CloseInternetHandle(void *handle);

// A zeroed block of the process heap of at least one byte, owned.
template <class T>
HeapBlock<T> AllocateHeapBlock(size_t bytes) {
    return HeapBlock<T>(
        static_cast<T *>(::HeapAlloc(::GetProcessHeap(), HEAP_ZERO_MEMORY, bytes ? bytes : 1)));
}
