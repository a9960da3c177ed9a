#include <gtest/gtest.h>

#include "util/UnicodeUtilInclude.h"
#include "util/qorException.h"

namespace {

struct Conversion {
    std::wstring input;
    uint32_t flags;
    std::string expected;
};

class ConvertsTest : public testing::TestWithParam<Conversion> {};

TEST_P(ConvertsTest, GivesTheUtf8Bytes) {
    const Conversion &c = GetParam();
    EXPECT_EQ(UTF8FromUnicode(c.input.data(), c.input.size(), c.flags), c.expected);
    EXPECT_EQ(UTF8FromUnicodeNoThrow(c.input.data(), c.input.size(), c.flags), c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Table, ConvertsTest,
    testing::Values(Conversion{L"A", 0, "A"}, Conversion{L"\u00e9", 0, "\xC3\xA9"},
                    Conversion{L"\u20ac", 0, "\xE2\x82\xAC"},
                    Conversion{L"\ufffe", 0, "\xEF\xBF\xBE"},
                    Conversion{L"\u07ff\u0800", 0, "\xDF\xBF\xE0\xA0\x80"},
                    Conversion{L"\u0011", 0, "\x11"}, Conversion{L"\u0011", 2, "\xFF"},
                    Conversion{L"a\u0011b", 3, "a\xFF" "b"},
                    Conversion{std::wstring(L"a\0b", 3), 0, std::string("a\0b", 3)},
                    Conversion{L"", 0, ""}, Conversion{L"plain ascii", 1, "plain ascii"}));

struct Refusal {
    std::wstring input;
    uint32_t flags;
    uint32_t code;
    std::string where;
};

class RefusesTest : public testing::TestWithParam<Refusal> {};

TEST_P(RefusesTest, ThrowsAndTheWrapperGivesEmpty) {
    const Refusal &r = GetParam();
    try {
        UTF8FromUnicode(r.input.data(), r.input.size(), r.flags);
        FAIL() << "no exception";
    } catch (const qorException &e) {
        EXPECT_EQ(e.errcode(), r.code);
        EXPECT_EQ(e.where(), r.where);
    }
    EXPECT_EQ(UTF8FromUnicodeNoThrow(r.input.data(), r.input.size(), r.flags), "");
}

INSTANTIATE_TEST_SUITE_P(
    Table, RefusesTest,
    testing::Values(Refusal{L"ok\xD83D\xDE00", 0, 0, "UTF8FromUnicode"},
                    Refusal{L"\xDC00", 0, 0, "UTF8FromUnicode"},
                    Refusal{L"\xFFFF", 0, 0, "UTF8FromUnicode"},
                    Refusal{L"abc\u00e9", 1, 5665, "UTF8ToUnicode"},
                    Refusal{L"\u20ac", 1, 5665, "UTF8ToUnicode"}));

TEST(UnicodeTest, UnlimitedLengthStopsAtTheTerminator) {
    EXPECT_EQ(UTF8FromUnicode(L"ab\u00e9"), "ab\xC3\xA9");
    EXPECT_EQ(UTF8FromUnicode(L""), "");
    EXPECT_EQ(UTF8FromUnicode(nullptr), "");
}

TEST(UnicodeTest, LimitedLengthReadsPastNothing) {
    const wchar_t text[] = L"abcdef";
    EXPECT_EQ(UTF8FromUnicode(text, 2), "ab");
    EXPECT_EQ(UTF8FromUnicode(text, 0), "");
}

}  // namespace
