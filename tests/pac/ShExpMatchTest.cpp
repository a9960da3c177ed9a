// shExpMatch as a script sees it: wildcards, the literal dot, the other
// regular-expression characters that keep their meaning, and patterns that
// do not compile.
#include <gtest/gtest.h>

#include <string>

#include "PacTestSupport.h"
#include "TestSupport.h"
#include "pac/SafeRegex.h"

namespace {

struct Row {
    const char *str;
    const char *shexp;
    bool expected;
};

std::string Quote(const std::string &text) {
    std::string out = "'";
    for (const char c : text) {
        if (c == '\'' || c == '\\') out += '\\';
        out += c;
    }
    return out + "'";
}

TEST(ShExpMatch, Table) {
    const Row rows[] = {
        {"web.example.com/x", "*.example.com/*", true},
        {"web.example.com", "*.example.com", true},
        {"example.com", "*.example.com", false},
        {"a.b", "a?b", true},
        {"ab", "a?b", false},
        {"axb", "a.b", false},
        {"a.b", "a.b", true},
        {"ABC", "abc", true},
        {"web.example.COM", "*.EXAMPLE.com", true},
        {"", "", true},
        {"x", "", false},
        {"", "*", true},
        {"anything at all", "*", true},
        {"xabcx", "abc", false},  // anchored at both ends
        // Every other regular-expression character keeps its meaning.
        {"web.example.net", "*.example.(com|net)", true},
        {"web.example.org", "*.example.(com|net)", false},
        {"b-host", "[a-c]*", true},
        {"d-host", "[a-c]*", false},
        {"aaa", "a+", true},
        {"a+", "a+", false},
        {"aa", "a{2}", true},
        {"a{2}", "a{2}", false},
        {"com", "com|net", true},
        {"xnet", "^xnet$", true},
        {"a$b", "a\\$b", true},
        {"a|b", "a\\|b", true},
        // The backslash escapes the dot that "*" became: any run of dots.
        {"a*b", "a\\*b", false},
        {"a..b", "a\\*b", true},
        // Patterns that do not compile match nothing.
        {"abc", "(", false},
        {"(", "(", false},
        {"abc", ")", false},
        {"[", "[", false},
        {"abc", "[abc", false},
        {"abc", "a{", false},
        {"abc", "a{2,1}", false},
        {"abc", "\\", false},
        {"abc", "*(*", false},
        {"ab", "((a)(b)", false},
        // Text beyond ASCII in the ANSI code page.
        {"caf\xc3\xa9", "caf*", true},
        {"\xe6\x97\xa5", "?", true},
    };
    for (const Row &row : rows) {
        // The two UTF-8 rows are written as JavaScript escapes below.
        std::string str = row.str;
        std::string expression;
        if (str == "caf\xc3\xa9")
            expression = "shExpMatch('caf\\u00e9', " + Quote(row.shexp) + ")";
        else if (str == "\xe6\x97\xa5")
            expression = "shExpMatch('\\u65e5', " + Quote(row.shexp) + ")";
        else
            expression = "shExpMatch(" + Quote(str) + ", " + Quote(row.shexp) + ")";
        EXPECT_EQ(row.expected ? "boolean:true" : "boolean:false", Eval(expression)) << expression;
    }
}

TEST(ShExpMatch, ArgumentsAndCoercions) {
    struct Case {
        const char *expression;
        const char *expected;
    };
    const Case cases[] = {
        {"shExpMatch(12, '1?')", "boolean:true"},
        {"shExpMatch(1.5, '1.5')", "boolean:true"},
        {"shExpMatch(true, '-1')", "boolean:true"},
        {"shExpMatch([1, 2], '1,2')", "boolean:true"},
        {"shExpMatch({}, '[object Object]')", "boolean:false"},  // a bracket expression
        {"shExpMatch({}, '?object Object?')", "boolean:true"},
        {"shExpMatch(undefined, '')", "boolean:true"},
        {"shExpMatch(new Array(65537).join('a'), '*a')", "boolean:true"},
        {"shExpMatch(new Array(65537).join('a') + 'b', '*.b')", "boolean:false"},
        // A NUL would cut the C strings short; such text never matches.
        {"shExpMatch('a\\u0000b', 'a')", "boolean:false"},
        {"shExpMatch('a', 'a\\u0000b')", "boolean:false"},
        {"shExpMatch('a\\u0000b', '*')", "boolean:false"},
        {"shExpMatch(null, '*')", "error:80020005"},
        {"shExpMatch('a')", "error:8002000e"},
        {"shExpMatch('a', 'b', 'c')", "error:8002000e"},
    };
    for (const Case &c : cases) EXPECT_EQ(c.expected, Eval(c.expression)) << c.expression;
}

// Plain wildcard patterns are matched without compiling; the answers must
// be those of the compiled translation, for every pair below.
TEST(ShExpMatch, WildcardsAgreeWithTheCompiledExpression) {
    const char *patterns[] = {"", "*", "?", "**", "*?", "?*", "a*", "*a", "*a*", "a?c", "a.c",
                              "*.example.com", "*.EXAMPLE.com/*", "web.*.com", "*.*", "a*b*c",
                              "*ab*ab*", "??", "*-*", "http://*/x?y=*", "a b", "*%*"};
    const char *texts[] = {"", "a", "A", "abc", "aBc", "a.c", "axc", "ab", "abab", "aab",
                           "web.example.com", "WEB.Example.COM/x", "example.com", "web.x.com",
                           "a-b", "http://h/x?y=1", "a b", "50%", "\t\n", "a\nb", "aXbYc"};
    for (const char *pattern : patterns) {
        SafeRegex regex(ShellExpressionToRegex(pattern));
        ASSERT_TRUE(regex.compiled()) << pattern;
        for (const char *text : texts)
            EXPECT_EQ(regex.Matches(text), ShellExpressionMatch(text, pattern))
                << "'" << text << "' against '" << pattern << "'";
    }
}

TEST(ShExpMatch, CompileFailureIsTraced) {
    TempDir dir;
    ScopedTrace trace(dir.file("trace.log"));
    EXPECT_EQ("boolean:false", Eval("shExpMatch('abc', '(')"));
    const auto lines = trace.linesWith("regcomp failed.  RegExp: \"^($\". Return code: ");
    EXPECT_EQ(1u, lines.size());
}

}  // namespace
