// One owner for a WinINet handle (session or URL): closed when it goes.
#pragma once

#include "resolver/WinInetDownload.h"

class InternetHandle {
public:
    InternetHandle() = default;
    explicit InternetHandle(HINTERNET handle) : handle_(handle) {}
    ~InternetHandle() { reset(); }
    InternetHandle(const InternetHandle &) = delete;
    InternetHandle &operator=(const InternetHandle &) = delete;

    HINTERNET get() const { return handle_; }
    explicit operator bool() const { return handle_ != nullptr; }
    void reset(HINTERNET handle = nullptr) {
        if (handle_) WinInetDownload().InternetCloseHandle(handle_);
        handle_ = handle;
    }

private:
    HINTERNET handle_ = nullptr;
};
