#include "PacTestSupport.h"

#include <gtest/gtest.h>

#include "pac/ScriptHost.h"

namespace {

// The evaluating thread of a client has COM initialised; so does this
// program's, for its whole run.
class ComApartment : public testing::Environment {
    void SetUp() override { ASSERT_EQ(S_OK, CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)); }
    void TearDown() override { CoUninitialize(); }
};

[[maybe_unused]] testing::Environment *const g_apartment =
    testing::AddGlobalTestEnvironment(new ComApartment);

}  // namespace

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
