#include "util/qorException.h"

#include <cstddef>

#include "trace/tracefunc.h"

namespace {

struct MessageRow {
    uint32_t code;
    const char *message;
};

// The rows of the shared table that this library raises or reports. The
// lookup is by code, so rows of the wider family can be added in any place.
const MessageRow kMessages[] = {
    {QOR_PEER_DISCONNECTED, "Peer disconnected"},
    {QOR_WOULDBLOCK_NOT_PROCESSED, "Internal error:  WouldBlock error not correctly processed"},
    {QOR_EXTENDED_CHARS_NOT_ALLOWED,
     "This combination of client and server versions does not allow the use of extended "
     "characters."},
    {QOR_PROXY_LOCATION_ERROR, "An error occurred while locating your proxy server."},
};

}  // namespace

qorException::qorException(const std::string &where, uint32_t errcode)
    : where_(where), errcode_(errcode) {
    // Connection-level codes are raised in normal operation and would only
    // flood the trace, so they are not traced.
    if (errcode == QOR_WOULDBLOCK_NOT_PROCESSED || errcode == QOR_PEER_DISCONNECTED) return;
    tracefunc tf(__LINE__, "qorException", "qorException::qorException");
    tf << "where = " << where_ << endtrace;
    tf << "errcode = " << errcode_ << endtrace;
}

qorException::~qorException() = default;

const char *qorException::MessageFor(uint32_t code) {
    for (const MessageRow &row : kMessages) {
        if (row.code == code) return row.message;
    }
    return "Unknown error";
}

const char *qorException::message() const { return MessageFor(errcode_); }

std::string qorException::fullMessage() const {
    std::string text = message();
    if (!detail_.empty()) text += " (" + detail_ + ")";
    return text;
}
