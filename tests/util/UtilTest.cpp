// The UTF-16 to UTF-8 conversion and the library's exception type.
#include <gtest/gtest.h>

#include "TestSupport.h"
#include "util/UnicodeUtilInclude.h"
#include "util/qorException.h"

namespace {

// A refused text throws with its code and place; the wrapper gives "" for it.
TEST(Utf8, ConversionsAndRefusals) {
    const size_t kAll = UTF8_TO_TERMINATOR;
    const struct {
        std::wstring text;
        size_t length;
        uint32_t flags;
        std::string expected;
        const char *refusedBy = nullptr;
        uint32_t code = 0;
    } rows[] = {{L"A", 1, 0, "A"},
                {L"\ufffe", 1, 0, "\xEF\xBF\xBE"},
                {L"\u07ff\u0800", 2, 0, "\xDF\xBF\xE0\xA0\x80"},
                {L"\u0011", 1, 0, "\x11"},
                {L"\u0011", 1, UTF8_MAP_0011_TO_FF, "\xFF"},
                {L"a\u0011b", 3, UTF8_ASCII_ONLY | UTF8_MAP_0011_TO_FF, "a\xFF" "b"},
                {std::wstring(L"a\0b", 3), 3, 0, std::string("a\0b", 3)},
                {L"plain ascii", 11, UTF8_ASCII_ONLY, "plain ascii"},
                {L"ab\u00e9", kAll, 0, "ab\xC3\xA9"},
                {L"", kAll, 0, ""},
                // A length reads past nothing.
                {L"abcdef", 2, 0, "ab"},
                {L"abcdef", 0, 0, ""},
                {L"ok\xD83D\xDE00", 4, 0, "", "UTF8FromUnicode"},
                {L"\xDC00", 1, 0, "", "UTF8FromUnicode"},
                {L"\xFFFF", 1, 0, "", "UTF8FromUnicode"},
                {L"abc\u00e9", 4, UTF8_ASCII_ONLY, "", "UTF8ToUnicode", 5665}};
    TempDir dir;
    ScopedTrace trace(dir.file("t.txt"));
    for (const auto &row : rows) {
        SCOPED_TRACE("row " + std::to_string(&row - rows));
        try {
            EXPECT_EQ(UTF8FromUnicode(row.text.c_str(), row.length, row.flags), row.expected);
            EXPECT_EQ(row.refusedBy, nullptr) << "no exception";
        } catch (const qorException &e) {
            EXPECT_EQ(e.where(), row.refusedBy ? row.refusedBy : "not refused");
            EXPECT_EQ(e.errcode(), row.code);
        }
        EXPECT_EQ(UTF8FromUnicodeNoThrow(row.text.c_str(), row.length, row.flags), row.expected);
    }
    EXPECT_EQ(UTF8FromUnicode(nullptr), "");
    // Both calls of each of the three rows above UCS-2 trace the refusal;
    // the ASCII-only refusals write none of these lines.
    EXPECT_EQ(trace.linesWith("...encountered case with chars above UCS-2 range").size(), 6u);
    EXPECT_EQ(trace.linesWith("...exception being thrown for non UCS-2 range chars").size(), 6u);
}

// The texts by code are the message table's; the lookup is checked on a
// code this library raises and on one it does not know.
TEST(qorException, MessagesByCode) {
    EXPECT_STREQ(qorException("here", 5665).message(),
                 "This combination of client and server versions does not allow the use of "
                 "extended characters.");
    EXPECT_STREQ(qorException("here", 4294967295u).message(), "Unknown error");
    qorException e("here", 5665);
    EXPECT_EQ(e.fullMessage(), e.message());
    e.setDetail("x");
    EXPECT_EQ(e.fullMessage(), std::string(e.message()) + " (x)");
}

TEST(qorException, ConstructionIsTracedExceptForConnectionCodes) {
    TempDir dir;
    ScopedTrace trace(dir.file("t.txt"));
    qorException quiet1("a", 5007);
    qorException quiet2("b", 5027);
    EXPECT_TRUE(trace.linesWith("where = ").empty());
    qorException loud("UTF8FromUnicode", 5666);
    const auto where = trace.linesWith("where = UTF8FromUnicode (tid=");
    const auto code = trace.linesWith("errcode = 5666 (tid=");
    ASSERT_EQ(where.size(), 1u);
    ASSERT_EQ(code.size(), 1u);
    EXPECT_EQ(LineLevel(where[0]), "Detail");
    EXPECT_NE(where[0].find(";function=qorException::qorException)"), std::string::npos);
}

}  // namespace
