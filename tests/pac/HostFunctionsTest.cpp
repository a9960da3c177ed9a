// The host and address functions as a script sees them: names, coercions
// of the arguments by the type library, omitted and surplus arguments, and
// results. Only loopback names and names under the reserved "invalid"
// domain are looked up.
#include <gtest/gtest.h>

#include <winsock2.h>

#include <string>

#include "PacTestSupport.h"
#include "TestSupport.h"
#include "util/ComOwners.h"
#include "pac/FindProxyForURL.h"

namespace {

// The type library's coercion answers: null cannot become a string, and a
// call with the wrong number of arguments never reaches the method.
const char kMismatch[] = "error:80020005";
const char kBadCount[] = "error:8002000e";
const char kT[] = "boolean:true";
const char kF[] = "boolean:false";
// 64 Ki characters built inside the script.
#define LONG_A "new Array(65537).join('a')"

TEST(HostFunctions, Table) {
    // The machine name's address, looked up here independently; the helper
    // object keeps sockets up.
    const auto keepSocketsUp = ComPtr<IFindProxyForUrl>::Share(new FindProxyForURL());
    char name[256] = {};
    ASSERT_EQ(0, gethostname(name, sizeof name));
    const hostent *entry = gethostbyname(name);
    const std::string myIp = std::string("string:") +
        (entry ? inet_ntoa(*reinterpret_cast<const in_addr *>(entry->h_addr_list[0])) : "");
    const std::pair<const char *, const char *> rows[] = {
        {"isPlainHostname('intranet')", kT},
        {"isPlainHostname('web.example.com')", kF},
        {"isPlainHostname('')", kT},
        {"isPlainHostname(4.2)", kF},
        {"isPlainHostname(" LONG_A " + '.')", kF},
        {"isPlainHostname('\\u65e5\\u672c.jp')", kF},
        {"isPlainHostname('a\\u0000.b')", kF},  // the dot after the NUL still counts
        {"isPlainHostname(null)", kMismatch},
        {"isPlainHostname()", kBadCount},

        {"dnsDomainIs('a.b.example.com', '.example.com')", kT},
        // The leading dot is required, and the host itself is never compared.
        {"dnsDomainIs('web.example.com', 'example.com')", kF},
        {"dnsDomainIs('example.com', '.example.com')", kF},
        {"dnsDomainIs('.example.com', '.example.com')", kF},
        {"dnsDomainIs('web.Example.com', '.example.com')", kF},
        {"dnsDomainIs('webexample.com', '.example.com')", kF},
        {"dnsDomainIs('web.example.com.au', '.example.com')", kF},
        // An empty domain matches only a host ending in a dot.
        {"dnsDomainIs('web.example.com.', '')", kT},
        {"dnsDomainIs('web.example.com', '')", kF},
        {"dnsDomainIs('', '')", kF},
        {"dnsDomainIs('x.' + " LONG_A ", '.' + " LONG_A ")", kT},
        {"dnsDomainIs('a\\u0000.example.com', '.example.com')", kT},
        {"dnsDomainIs(null, '.example.com')", kMismatch},
        {"dnsDomainIs('web.example.com')", kBadCount},

        {"localHostOrDomainIs('web', 'web.example.com')", kT},
        {"localHostOrDomainIs('web.example.com', 'web.example.com')", kT},
        {"localHostOrDomainIs('web.other.com', 'web.example.com')", kF},
        {"localHostOrDomainIs('WEB', 'web.example.com')", kF},
        {"localHostOrDomainIs('we', 'web.example.com')", kF},
        {"localHostOrDomainIs('web', 'web.')", kT},
        {"localHostOrDomainIs('', '.example.com')", kT},
        {"localHostOrDomainIs('web', '')", kF},
        {"localHostOrDomainIs(" LONG_A ", " LONG_A " + '.example.com')", kT},
        {"localHostOrDomainIs('a', 'a\\u0000b.example.com')", kF},
        {"localHostOrDomainIs('web', null)", kMismatch},
        {"localHostOrDomainIs('web')", kBadCount},

        {"isResolvable('localhost')", kT},
        {"isResolvable('127.0.0.1')", kT},
        {"isResolvable('NoSuch.INVALID')", kF},
        {"isResolvable('localhost\\u0000.invalid')", kF},  // not cut at the NUL
        {"isResolvable(" LONG_A ")", kF},
        {"isResolvable('') == (dnsResolve('') != '')", kT},
        {"isResolvable(null)", kMismatch},
        {"isResolvable('localhost', 'localhost')", kBadCount},

        {"isInNet('10.1.2.3', '10.1.0.0', '255.255.0.0')", kT},
        {"isInNet('10.2.2.3', '10.1.0.0', '255.255.0.0')", kF},
        {"isInNet('10.1.2.3', '99.9.9.9', '0.0.0.0')", kT},
        {"isInNet('0.0.0.0', '0.0.0.0', '0.0.0.0')", kF},  // address 0 never matches
        {"isInNet('localhost', '127.0.0.0', '255.0.0.0')", kT},
        {"isInNet('nosuch.invalid', '0.0.0.0', '0.0.0.0')", kF},
        {"isInNet(" LONG_A ", '0.0.0.0', '0.0.0.0')", kF},
        // A leading digit means an address, never a name: all ones here.
        {"isInNet('1host.invalid', '255.255.255.255', '255.255.255.255')", kT},
        // Unparsable patterns and masks are all ones, used as they are.
        {"isInNet('10.1.2.3', '10.1.2.3', 'mask')", kT},
        {"isInNet('10.1.2.3', 'pattern', '0.0.0.0')", kT},
        {"isInNet('10.1.2.3\\u0000junk', '10.1.2.3', '255.255.255.255')", kF},
        {"isInNet('10.1.2.3', '10.1.2.3\\u0000junk', '255.255.255.255')", kF},
        // A number arrives as text; "10.5" is inet_addr's short form of 10.0.0.5.
        {"isInNet(10.5, '10.0.0.5', '255.255.255.255')", kT},
        {"isInNet('10.1.2.3', null, '255.0.0.0')", kMismatch},
        {"isInNet('10.1.2.3', '10.1.0.0')", kBadCount},

        {"dnsResolve('localhost')", "string:127.0.0.1"},
        {"dnsResolve('nosuch.invalid')", "string:"},
        {"dnsResolve(" LONG_A ")", "string:"},
        {"dnsResolve('localhost\\u0000.invalid')", "string:"},
        {"dnsResolve(null)", kMismatch},
        {"dnsResolve()", kBadCount},
        {"myIpAddress()", myIp.c_str()},
        {"myIpAddress('x')", kBadCount},

        {"dnsDomainLevels('web.example.com')", "number:2"},
        {"dnsDomainLevels('a..b')", "number:2"},
        {"dnsDomainLevels('')", "number:0"},
        {"dnsDomainLevels(new Array(65537).join('.'))", "number:65536"},
        {"dnsDomainLevels('a\\u0000.b.c')", "number:2"},
        {"dnsDomainLevels(null)", kMismatch},
        {"dnsDomainLevels()", kBadCount},
    };
    for (const auto &row : rows) EXPECT_EQ(row.second, Eval(row.first)) << row.first;
}

// One line each: alert's message whatever its type (alert answers
// undefined), the name a host test was asked about, the pattern that did
// not compile.
TEST(HostFunctions, TraceLines) {
    const std::string long64k(64 * 1024, 'm');
    const char kUndefined[] = "undefined:undefined", kAlert[] = "FindProxyForURL::alert";
    const struct {
        std::string call;
        const char *result;
        std::string text;  // the start of the line's text
        const char *function;
    } rows[] = {
        {"alert('from the script')", kUndefined, "alert: from the script (tid=", kAlert},
        {"alert()", kUndefined, "alert:  (tid=", kAlert},
        {"alert(-1.5)", kUndefined, "alert: -1.5 (tid=", kAlert},
        {"alert(true)", kUndefined, "alert: true (tid=", kAlert},
        {"alert(null)", kUndefined, "alert: null (tid=", kAlert},
        {"alert(undefined)", kUndefined, "alert: undefined (tid=", kAlert},
        {"alert('" + long64k + "')", kUndefined, "alert: " + long64k + " (tid=", kAlert},
        {"alert({a: 1})", kUndefined, "alert: ", kAlert},
        {"isPlainHostname('intranet')", kT, "hostname=intranet", "FindProxyForURL::isPlainHostname"},
        {"shExpMatch('abc', '(')", kF, "regcomp failed.  RegExp: \"^($\". Return code: ",
         "SafeRegex::Compile"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.call.substr(0, 40));
        TempDir dir;
        ScopedTrace trace(dir.file("trace.log"));
        EXPECT_EQ(row.result, Eval(row.call));
        const auto lines = trace.linesWith(row.text);
        ASSERT_EQ(1u, lines.size());
        EXPECT_EQ(0u, LineText(lines[0]).rfind(row.text, 0)) << LineText(lines[0]).substr(0, 80);
        EXPECT_NE(std::string::npos, lines[0].find(std::string("function=") + row.function))
            << lines[0].substr(0, 200);
        // alert writes at level 0.
        if (row.function == std::string(kAlert)) {
            EXPECT_EQ("Detail", LineLevel(lines[0]));
        }
    }
}

}  // namespace
