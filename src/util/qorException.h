// The library's exception type: where it was raised, a numeric code, and the
// message the code stands for. Raised by the text conversion and caught by
// its non-throwing wrapper; it never crosses the COM boundary.
#pragma once

#include <cstdint>
#include <string>

class qorException {
public:
    qorException(const std::string &where, uint32_t errcode);
    virtual ~qorException();

    const std::string &where() const { return where_; }
    uint32_t errcode() const { return errcode_; }
    const std::string &detail() const { return detail_; }
    void setDetail(const std::string &detail) { detail_ = detail; }

    // The table's message for the code, or "Unknown error".
    const char *message() const;
    // The message followed by " (detail)" when a detail was set.
    std::string fullMessage() const;

    static const char *MessageFor(uint32_t code);

private:
    std::string where_;
    uint32_t errcode_;
    std::string detail_;
    std::string secondText_;
};

// Codes this library raises or is expected to know.
enum : uint32_t {
    QOR_PEER_DISCONNECTED = 5007,
    QOR_WOULDBLOCK_NOT_PROCESSED = 5027,
    QOR_EXTENDED_CHARS_NOT_ALLOWED = 5665,
    QOR_PROXY_LOCATION_ERROR = 5666,
};
