#include <gtest/gtest.h>

#include "TestSupport.h"
#include "util/UnicodeUtilInclude.h"
#include "util/qorException.h"

namespace {

TEST(qorExceptionTest, MessagesByCode) {
    const struct {
        uint32_t code;
        const char *message;
    } rows[] = {
        {5007, "Peer disconnected"},
        {5027, "Internal error:  WouldBlock error not correctly processed"},
        {5665,
         "This combination of client and server versions does not allow the use of extended "
         "characters."},
        {5666, "An error occurred while locating your proxy server."},
        {0, "Unknown error"},
        {4294967295u, "Unknown error"},
    };
    for (const auto &row : rows) {
        EXPECT_STREQ(qorException("here", row.code).message(), row.message) << row.code;
    }
}

TEST(qorExceptionTest, FullMessageAddsTheDetailInParentheses) {
    qorException e("here", 5665);
    EXPECT_EQ(e.fullMessage(), e.message());
    e.setDetail("x");
    EXPECT_EQ(e.fullMessage(), std::string(e.message()) + " (x)");
}

TEST(qorExceptionTest, ConstructionIsTracedExceptForConnectionCodes) {
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

TEST(qorExceptionTest, RefusalAboveUcs2IsTracedBeforeTheThrow) {
    TempDir dir;
    ScopedTrace trace(dir.file("t.txt"));
    EXPECT_EQ(UTF8FromUnicodeNoThrow(L"\xD800"), "");
    EXPECT_EQ(trace.linesWith("...encountered case with chars above UCS-2 range").size(), 1u);
    EXPECT_EQ(trace.linesWith("...exception being thrown for non UCS-2 range chars").size(), 1u);
    // The ASCII-only refusal writes none of the conversion's own lines.
    EXPECT_EQ(UTF8FromUnicodeNoThrow(L"\u00e9", UTF8_TO_TERMINATOR, UTF8_ASCII_ONLY), "");
    EXPECT_EQ(trace.linesWith("...encountered case").size(), 1u);
}

}  // namespace
