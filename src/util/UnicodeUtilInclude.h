// UTF-16 to UTF-8 conversion, restricted to the Basic Multilingual Plane.
#pragma once

#include <cstdint>
#include <string>

enum : uint32_t {
    UTF8_ASCII_ONLY = 1,        // refuse any code unit of 0x80 or above
    UTF8_MAP_0011_TO_FF = 2,    // write U+0011 as the single byte 0xFF
};

// The largest length value: convert up to the terminating zero.
constexpr size_t UTF8_TO_TERMINATOR = static_cast<size_t>(-1);

// Throws qorException when the text holds what it refuses.
std::string UTF8FromUnicode(const wchar_t *text, size_t length = UTF8_TO_TERMINATOR,
                            uint32_t flags = 0);

// The same conversion; a refusal gives an empty string.
std::string UTF8FromUnicodeNoThrow(const wchar_t *text, size_t length = UTF8_TO_TERMINATOR,
                                   uint32_t flags = 0);
