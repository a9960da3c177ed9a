// shExpMatch as a script sees it: wildcards, the literal dot, the other
// regular-expression characters that keep their meaning, and patterns that
// do not compile.
#include <gtest/gtest.h>

#include <string>

#include "PacTestSupport.h"
#include "TestSupport.h"
#include "pac/SafeRegex.h"

namespace {

TEST(ShExpMatch, Table) {
    // Arguments as JavaScript source; true or false, else the text expected.
    struct Row {
        const char *args;
        const char *expected;
    };
    const Row rows[] = {
        {"'web.example.com/x', '*.example.com/*'", "true"},
        {"'example.com', '*.example.com'", "false"},
        {"'a.b', 'a?b'", "true"},
        {"'ab', 'a?b'", "false"},
        {"'axb', 'a.b'", "false"},
        {"'web.example.COM', '*.EXAMPLE.com'", "true"},
        {"'', ''", "true"},
        {"'x', ''", "false"},
        {"'', '*'", "true"},
        {"'xabcx', 'abc'", "false"},  // anchored at both ends
        // Every other regular-expression character keeps its meaning.
        {"'web.example.net', '*.example.(com|net)'", "true"},
        {"'web.example.org', '*.example.(com|net)'", "false"},
        {"'b-host', '[a-c]*'", "true"},
        {"'d-host', '[a-c]*'", "false"},
        {"'aaa', 'a+'", "true"},
        {"'a+', 'a+'", "false"},
        {"'aa', 'a{2}'", "true"},
        {"'xnet', '^xnet$'", "true"},
        {"'a$b', 'a\\\\$b'", "true"},
        // The backslash escapes the dot that "*" became: any run of dots.
        {"'a*b', 'a\\\\*b'", "false"},
        {"'a..b', 'a\\\\*b'", "true"},
        // Patterns that do not compile match nothing.
        {"'abc', '('", "false"},
        {"'[', '['", "false"},
        {"'abc', 'a{2,1}'", "false"},
        {"'abc', '\\\\'", "false"},
        {"'ab', '((a)(b)'", "false"},
        // Text beyond ASCII in the ANSI code page.
        {"'caf\\u00e9', 'caf*'", "true"},
        {"'\\u65e5', '?'", "true"},
        // Coercions by the type library.
        {"12, '1?'", "true"},
        {"true, '-1'", "true"},
        {"[1, 2], '1,2'", "true"},
        {"{}, '[object Object]'", "false"},  // a bracket expression
        {"undefined, ''", "true"},
        {"new Array(65537).join('a'), '*a'", "true"},
        {"new Array(65537).join('a') + 'b', '*.b'", "false"},
        // A NUL would cut the C strings short; such text never matches.
        {"'a\\u0000b', 'a'", "false"},
        {"'a\\u0000b', '*'", "false"},
        {"null, '*'", "error:80020005"},
        {"'a'", "error:8002000e"},
        {"'a', 'b', 'c'", "error:8002000e"},
    };
    for (const Row &row : rows) {
        const std::string expected = row.expected[0] == 'e' ? row.expected
                                                            : std::string("boolean:") + row.expected;
        EXPECT_EQ(expected, Eval(std::string("shExpMatch(") + row.args + ")")) << row.args;
    }
}

TEST(ShExpMatch, CompileFailureIsTraced) {
    TempDir dir;
    ScopedTrace trace(dir.file("trace.log"));
    EXPECT_EQ("boolean:false", Eval("shExpMatch('abc', '(')"));
    EXPECT_EQ(1u, trace.linesWith("regcomp failed.  RegExp: \"^($\". Return code: ").size());
}

}  // namespace
