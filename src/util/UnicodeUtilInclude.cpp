#include "util/UnicodeUtilInclude.h"

#include "trace/tracefunc.h"
#include "util/qorException.h"

namespace {

[[noreturn]] void RefuseAboveUcs2() {
    tracefunc tf(__LINE__, "UnicodeUtilInclude", "UTF8FromUnicode");
    tf << "...encountered case with chars above UCS-2 range" << endtrace;
    tf << "...exception being thrown for non UCS-2 range chars" << endtrace;
    throw qorException("UTF8FromUnicode", 0);
}

}  // namespace

std::string UTF8FromUnicode(const wchar_t *text, size_t length, uint32_t flags) {
    std::string out;
    if (!text) return out;
    for (size_t i = 0; i < length && !(length == UTF8_TO_TERMINATOR && text[i] == 0); ++i) {
        const uint32_t c = static_cast<uint16_t>(text[i]);
        if (c == 0x0011 && (flags & UTF8_MAP_0011_TO_FF)) {
            // Kept on purpose: peers that reserve 0x11 as a marker expect 0xFF.
            out += static_cast<char>(0xFF);
        } else if (c < 0x80) {
            out += static_cast<char>(c);
        } else if (flags & UTF8_ASCII_ONLY) {
            // The where-text names the opposite direction; callers match on it.
            throw qorException("UTF8ToUnicode", QOR_EXTENDED_CHARS_NOT_ALLOWED);
        } else if (c < 0x800) {
            out += static_cast<char>(0xC0 | (c >> 6));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else if (c == 0xFFFF || (c >= 0xD800 && c <= 0xDFFF)) {
            RefuseAboveUcs2();
        } else {
            out += static_cast<char>(0xE0 | (c >> 12));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return out;
}

std::string UTF8FromUnicodeNoThrow(const wchar_t *text, size_t length, uint32_t flags) {
    try {
        return UTF8FromUnicode(text, length, flags);
    } catch (const qorException &) {
        return std::string();
    }
}
