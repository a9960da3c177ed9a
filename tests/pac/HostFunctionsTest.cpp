// The host and address functions as a script sees them: names, coercions
// of the arguments by the type library, omitted and surplus arguments, and
// results. Only loopback names and names under the reserved "invalid"
// domain are looked up.
#include <gtest/gtest.h>

#include <winsock2.h>

#include <string>

#include "PacTestSupport.h"
#include "TestSupport.h"
#include "pac/ComOwners.h"
#include "pac/FindProxyForURL.h"

namespace {

struct Row {
    const char *expression;
    const char *expected;
};

// The type library's coercion answers: null cannot become a string, and a
// call with the wrong number of arguments never reaches the method.
const char kTypeMismatch[] = "error:80020005";
const char kBadParamCount[] = "error:8002000e";

// 64 Ki characters built inside the script.
#define LONG_A "new Array(65537).join('a')"

void CheckRows(const Row *rows, size_t count) {
    for (size_t i = 0; i < count; ++i)
        EXPECT_EQ(rows[i].expected, Eval(rows[i].expression)) << rows[i].expression;
}

TEST(HostFunctions, IsPlainHostname) {
    const Row rows[] = {
        {"isPlainHostname('intranet')", "boolean:true"},
        {"isPlainHostname('web.example.com')", "boolean:false"},
        {"isPlainHostname('')", "boolean:true"},
        {"isPlainHostname('.')", "boolean:false"},
        {"isPlainHostname('intranet.')", "boolean:false"},
        {"isPlainHostname(42)", "boolean:true"},
        {"isPlainHostname(4.2)", "boolean:false"},
        {"isPlainHostname(true)", "boolean:true"},
        {"isPlainHostname({})", "boolean:true"},
        {"isPlainHostname([1, 2])", "boolean:true"},
        {"isPlainHostname(['a.b'])", "boolean:false"},
        {"isPlainHostname(undefined)", "boolean:true"},
        {"isPlainHostname(null)", kTypeMismatch},
        {"isPlainHostname()", kBadParamCount},
        {"isPlainHostname('a', 'b')", kBadParamCount},
        {"isPlainHostname(" LONG_A ")", "boolean:true"},
        {"isPlainHostname(" LONG_A " + '.')", "boolean:false"},
        {"isPlainHostname('caf\\u00e9')", "boolean:true"},
        {"isPlainHostname('\\u65e5\\u672c.jp')", "boolean:false"},
        // The dot after the NUL still counts.
        {"isPlainHostname('a\\u0000.b')", "boolean:false"},
    };
    CheckRows(rows, sizeof rows / sizeof rows[0]);
}

TEST(HostFunctions, IsPlainHostnameTracesTheName) {
    TempDir dir;
    ScopedTrace trace(dir.file("trace.log"));
    EXPECT_EQ("boolean:true", Eval("isPlainHostname('intranet')"));
    const auto lines = trace.linesWith("hostname=intranet");
    ASSERT_EQ(1u, lines.size());
    EXPECT_NE(std::string::npos, lines[0].find("function=FindProxyForURL::isPlainHostname"));
}

TEST(HostFunctions, DnsDomainIs) {
    const Row rows[] = {
        {"dnsDomainIs('web.example.com', '.example.com')", "boolean:true"},
        {"dnsDomainIs('a.b.example.com', '.example.com')", "boolean:true"},
        {"dnsDomainIs('web.example.com', '.com')", "boolean:true"},
        // The leading dot is required, and the host itself is never compared.
        {"dnsDomainIs('web.example.com', 'example.com')", "boolean:false"},
        {"dnsDomainIs('example.com', '.example.com')", "boolean:false"},
        {"dnsDomainIs('.example.com', '.example.com')", "boolean:false"},
        {"dnsDomainIs('web.Example.com', '.example.com')", "boolean:false"},
        {"dnsDomainIs('webexample.com', '.example.com')", "boolean:false"},
        {"dnsDomainIs('web.example.com.au', '.example.com')", "boolean:false"},
        {"dnsDomainIs('web.example.com', '.web.example.com')", "boolean:false"},
        // An empty domain matches only a host ending in a dot.
        {"dnsDomainIs('web.example.com.', '')", "boolean:true"},
        {"dnsDomainIs('web.example.com', '')", "boolean:false"},
        {"dnsDomainIs('x.', '.')", "boolean:true"},
        {"dnsDomainIs('web.example.com', '.')", "boolean:false"},
        {"dnsDomainIs('', '.example.com')", "boolean:false"},
        {"dnsDomainIs('', '')", "boolean:false"},
        {"dnsDomainIs(1.5, '.5')", "boolean:true"},
        {"dnsDomainIs('x.' + " LONG_A ", '.' + " LONG_A ")", "boolean:true"},
        {"dnsDomainIs(new Array(32769).join('a.') + 'example.com', '.example.com')",
         "boolean:true"},
        {"dnsDomainIs(new Array(32769).join('a.') + 'example.net', '.example.com')",
         "boolean:false"},
        {"dnsDomainIs('a\\u0000.example.com', '.example.com')", "boolean:true"},
        {"dnsDomainIs('w.caf\\u00e9', '.caf\\u00e9')", "boolean:true"},
        {"dnsDomainIs(null, '.example.com')", kTypeMismatch},
        {"dnsDomainIs('web.example.com')", kBadParamCount},
        {"dnsDomainIs('a', 'b', 'c')", kBadParamCount},
    };
    CheckRows(rows, sizeof rows / sizeof rows[0]);
}

TEST(HostFunctions, LocalHostOrDomainIs) {
    const Row rows[] = {
        {"localHostOrDomainIs('web', 'web.example.com')", "boolean:true"},
        {"localHostOrDomainIs('web.example.com', 'web.example.com')", "boolean:true"},
        {"localHostOrDomainIs('web.other.com', 'web.example.com')", "boolean:false"},
        {"localHostOrDomainIs('WEB', 'web.example.com')", "boolean:false"},
        {"localHostOrDomainIs('web', 'webs.example.com')", "boolean:false"},
        {"localHostOrDomainIs('we', 'web.example.com')", "boolean:false"},
        {"localHostOrDomainIs('web.example', 'web.example.com')", "boolean:false"},
        {"localHostOrDomainIs('web', 'web')", "boolean:true"},
        {"localHostOrDomainIs('web', 'web.')", "boolean:true"},
        {"localHostOrDomainIs('', '')", "boolean:true"},
        {"localHostOrDomainIs('', '.example.com')", "boolean:true"},
        {"localHostOrDomainIs('web', '')", "boolean:false"},
        {"localHostOrDomainIs(true, '-1')", "boolean:true"},
        {"localHostOrDomainIs([1, 2], '1,2')", "boolean:true"},
        {"localHostOrDomainIs({}, '[object Object]')", "boolean:true"},
        {"localHostOrDomainIs(" LONG_A ", " LONG_A " + '.example.com')", "boolean:true"},
        {"localHostOrDomainIs('a\\u0000b', 'a\\u0000b.example.com')", "boolean:true"},
        {"localHostOrDomainIs('a', 'a\\u0000b.example.com')", "boolean:false"},
        {"localHostOrDomainIs('web', null)", kTypeMismatch},
        {"localHostOrDomainIs('web')", kBadParamCount},
    };
    CheckRows(rows, sizeof rows / sizeof rows[0]);
}

TEST(HostFunctions, IsResolvable) {
    const Row rows[] = {
        {"isResolvable('localhost')", "boolean:true"},
        {"isResolvable('127.0.0.1')", "boolean:true"},
        {"isResolvable('nosuch.invalid')", "boolean:false"},
        {"isResolvable('NoSuch.INVALID')", "boolean:false"},
        {"isResolvable('a.b.invalid.')", "boolean:false"},
        {"isResolvable('invalid')", "boolean:false"},
        {"isResolvable('b\\u00fccher.invalid')", "boolean:false"},
        {"isResolvable('\\u65e5\\u672c.invalid')", "boolean:false"},
        // Only the part before a NUL would reach the resolver.
        {"isResolvable('localhost\\u0000.invalid')", "boolean:false"},
        {"isResolvable(" LONG_A ")", "boolean:false"},
        {"isResolvable('') == (dnsResolve('') != '')", "boolean:true"},
        {"isResolvable(null)", kTypeMismatch},
        {"isResolvable()", kBadParamCount},
        {"isResolvable('localhost', 'localhost')", kBadParamCount},
    };
    CheckRows(rows, sizeof rows / sizeof rows[0]);
}

TEST(HostFunctions, IsInNet) {
    const Row rows[] = {
        {"isInNet('10.1.2.3', '10.1.0.0', '255.255.0.0')", "boolean:true"},
        {"isInNet('10.2.2.3', '10.1.0.0', '255.255.0.0')", "boolean:false"},
        {"isInNet('10.1.2.3', '10.1.2.3', '255.255.255.255')", "boolean:true"},
        {"isInNet('10.1.2.3', '99.9.9.9', '0.0.0.0')", "boolean:true"},
        // Address 0 never matches.
        {"isInNet('0.0.0.0', '0.0.0.0', '0.0.0.0')", "boolean:false"},
        {"isInNet('localhost', '127.0.0.0', '255.0.0.0')", "boolean:true"},
        {"isInNet('localhost', '10.0.0.0', '255.0.0.0')", "boolean:false"},
        {"isInNet('nosuch.invalid', '0.0.0.0', '0.0.0.0')", "boolean:false"},
        {"isInNet(" LONG_A ", '0.0.0.0', '0.0.0.0')", "boolean:false"},
        // A leading digit means an address, never a name: all ones here.
        {"isInNet('1host.invalid', '255.255.255.255', '255.255.255.255')", "boolean:true"},
        {"isInNet('1host.invalid', '10.0.0.0', '255.0.0.0')", "boolean:false"},
        // Unparsable patterns and masks are all ones, used as they are.
        {"isInNet('10.1.2.3', '10.1.0.0', 'mask')", "boolean:false"},
        {"isInNet('10.1.2.3', '10.1.2.3', 'mask')", "boolean:true"},
        {"isInNet('10.1.2.3', '10.1.0.0', '255.255.0.0.0')", "boolean:false"},
        {"isInNet('10.1.2.3', '10.1.0.0', '')", "boolean:false"},
        {"isInNet('10.1.2.3', 'pattern', '0.0.0.0')", "boolean:true"},
        {"isInNet('255.255.255.255', 'x', 'y')", "boolean:true"},
        {"isInNet('10.1.2.3\\u0000junk', '10.1.2.3', '255.255.255.255')", "boolean:false"},
        {"isInNet('10.1.2.3', '10.1.2.3\\u0000junk', '255.255.255.255')", "boolean:false"},
        {"isInNet('', '0.0.0.0', '0.0.0.0') == isResolvable('')", "boolean:true"},
        // A number arrives as text; "10.5" is inet_addr's short form of 10.0.0.5.
        {"isInNet(10.5, '10.0.0.5', '255.255.255.255')", "boolean:true"},
        {"isInNet('10.1.2.3', null, '255.0.0.0')", kTypeMismatch},
        {"isInNet('10.1.2.3', '10.1.0.0')", kBadParamCount},
        {"isInNet('10.1.2.3', '10.1.0.0', '255.255.0.0', 'x')", kBadParamCount},
    };
    CheckRows(rows, sizeof rows / sizeof rows[0]);
}

TEST(HostFunctions, DnsResolve) {
    const Row rows[] = {
        {"dnsResolve('localhost')", "string:127.0.0.1"},
        {"dnsResolve('127.0.0.1')", "string:127.0.0.1"},
        {"dnsResolve('nosuch.invalid')", "string:"},
        {"dnsResolve(" LONG_A ")", "string:"},
        {"dnsResolve('localhost\\u0000.invalid')", "string:"},
        {"dnsResolve('b\\u00fccher.invalid')", "string:"},
        {"dnsResolve(null)", kTypeMismatch},
        {"dnsResolve()", kBadParamCount},
    };
    CheckRows(rows, sizeof rows / sizeof rows[0]);
}

TEST(HostFunctions, MyIpAddressIsTheMachineNamesAddress) {
    // What the script must see: the first address of this machine's name,
    // looked up here independently.
    ComPtr<IFindProxyForUrl> keepSocketsUp = ComPtr<IFindProxyForUrl>::Share(new FindProxyForURL());
    char name[256] = {};
    ASSERT_EQ(0, gethostname(name, sizeof name));
    const hostent *entry = gethostbyname(name);
    const std::string expected =
        entry ? inet_ntoa(*reinterpret_cast<const in_addr *>(entry->h_addr_list[0])) : "";
    EXPECT_EQ("string:" + expected, Eval("myIpAddress()"));
    EXPECT_EQ(kBadParamCount, Eval("myIpAddress('x')"));
}

TEST(HostFunctions, DnsDomainLevels) {
    const Row rows[] = {
        {"dnsDomainLevels('web.example.com')", "number:2"},
        {"dnsDomainLevels('a..b')", "number:2"},
        {"dnsDomainLevels('.')", "number:1"},
        {"dnsDomainLevels('')", "number:0"},
        {"dnsDomainLevels('intranet')", "number:0"},
        {"dnsDomainLevels(1.5)", "number:1"},
        {"dnsDomainLevels(new Array(65537).join('.'))", "number:65536"},
        {"dnsDomainLevels('a\\u0000.b.c')", "number:2"},
        {"dnsDomainLevels(null)", kTypeMismatch},
        {"dnsDomainLevels()", kBadParamCount},
    };
    CheckRows(rows, sizeof rows / sizeof rows[0]);
}

}  // namespace
