#include "PacTestSupport.h"


#include "TestSupport.h"
#include "pac/ScriptHost.h"

// The evaluating thread of a client has COM initialised; so does this
// program's, for its whole run.
static const ComApartment g_apartment;

ScriptOutcome RunScript(const std::string &script, const std::string &url,
                        const std::string &host) {
    ScriptOutcome out;
    ScriptHost scriptHost;
    out.parsed = scriptHost.Parse(script);
    if (out.parsed) out.executed = scriptHost.ExecuteSSS("FindProxyForURL", url, host, out.result);
    out.status = scriptHost.status();
    scriptHost.GetErrorText(out.message, out.detail);
    return out;
}

std::string Eval(const std::string &expression) {
    const std::string script =
        "function FindProxyForURL(url, host) {\n"
        "  try {\n"
        "    var r = (" + expression + ");\n"
        "    return typeof r + ':' + r;\n"
        "  } catch (e) {\n"
        "    var n = e.number;\n"
        "    if (n < 0) n += 0x100000000;\n"
        "    return 'error:' + n.toString(16);\n"
        "  }\n"
        "}\n";
    const ScriptOutcome out = RunScript(script);
    if (!out.parsed) return "parse failed: " + out.message;
    if (!out.executed) return "execute failed: " + out.detail;
    return out.result;
}
