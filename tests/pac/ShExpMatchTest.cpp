// shExpMatch as a script sees it: wildcards, the literal dot, the other
// regular-expression characters that keep their meaning, and patterns that
// do not compile.
#include <gtest/gtest.h>

#include <string>

#include "PacTestSupport.h"

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
        {"'', '*'", "true"},
        {"'xabcx', 'abc'", "false"},  // anchored at both ends
        {"'x', ''", "false"},
        // Every other regular-expression character keeps its meaning.
        {"'web.example.net', '*.example.(com|net)'", "true"},
        {"'b-host', '[a-c]*'", "true"},
        {"'a$b', 'a\\\\$b'", "true"},
        // The backslash escapes the dot that "*" became: any run of dots.
        {"'a*b', 'a\\\\*b'", "false"},
        {"'a..b', 'a\\\\*b'", "true"},
        // Patterns that do not compile match nothing.
        {"'abc', '('", "false"},
        {"'abc', '\\\\'", "false"},
        // Text beyond ASCII in the ANSI code page.
        {"'caf\\u00e9', 'caf*'", "true"},
        // Coercions by the type library.
        {"true, '-1'", "true"},
        {"undefined, ''", "true"},
        {"new Array(65537).join('a'), '*a'", "true"},
        {"new Array(65537).join('a') + 'b', '*.b'", "false"},
        // A NUL would cut the C strings short; such text never matches.
        {"'a\\u0000b', '*'", "false"},
        {"null, '*'", "error:80020005"},
        {"'a'", "error:8002000e"},
    };
    for (const Row &row : rows) {
        const std::string expected = row.expected[0] == 'e' ? row.expected
                                                            : std::string("boolean:") + row.expected;
        EXPECT_EQ(expected, Eval(std::string("shExpMatch(") + row.args + ")")) << row.args;
    }
}

}  // namespace
