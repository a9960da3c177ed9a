// One JScript engine for one PAC evaluation: parse a script, call one of
// its functions with two strings for a string, and say what went wrong.
#pragma once

#include <windows.h>
#include <activscp.h>
#include <oaidl.h>

#include <string>

#include "util/ComOwners.h"
#include "pac/MyScriptSite.h"

class ScriptHost {
public:
    // Creates the engine and connects a site with a new PAC helper object,
    // which tells the observer (if any) what a compatibility report lists.
    // Engine failures are kept in the status, never thrown.
    explicit ScriptHost(EvaluationObserver *observer = nullptr);
    // The same with the given helper object served as "GlobalMethods".
    explicit ScriptHost(IFindProxyForUrl *helper);
    ~ScriptHost();
    ScriptHost(const ScriptHost &) = delete;
    ScriptHost &operator=(const ScriptHost &) = delete;

    // True when the engine accepted the text.
    bool Parse(const std::string &script);
    // Calls the script's global function with two strings; true when it
    // returned a string, which is then in result.
    bool ExecuteSSS(const std::string &functionName, const std::string &arg1,
                    const std::string &arg2, std::string &result);
    // The system's text for the last status, and the detail of the last
    // failed call.
    void GetErrorText(std::string &message, std::string &detail) const;

    HRESULT status() const { return status_; }

    // Asks the engine to stop the script it runs, from any thread; the
    // engine's answer (E_NOTIMPL where it cannot).
    HRESULT InterruptScript();

private:
    void Connect(MyScriptSite *site);
    // Starts and connects the engine; false, with the status saying why,
    // when it refuses or when the script's top-level code threw.
    bool Start();
    // Calls the script's global function through its scope's dispatch
    // interface; false, with status and detail saying why, when it fails.
    bool CallWithTwoStrings(IDispatch *global, const std::string &functionName,
                            const std::string &arg1, const std::string &arg2,
                            std::string &result);

    ComPtr<IActiveScriptParse64> parser_;
    ComPtr<IActiveScript> engine_;
    HRESULT status_ = S_OK;
    std::string detail_;
    ComPtr<MyScriptSite> site_;
};

// The system's message text for a status, without its line break; where
// the system has none, "IDispatch error #n" for the interface-specific
// codes 0x80040200 to 0x8004FFFF and "Unknown error 0x..." otherwise.
std::string ErrorMessageText(HRESULT status);

// Calls a method through IDispatch::Invoke. argTypes gives each argument's
// VARTYPE in the method's declared order, and the values follow as one
// 64-bit slot each: VT_I4, VT_UINT, VT_BOOL, VT_BSTR, VT_DISPATCH and
// by-reference BSTR, BOOL and UINT (anything else fails with "Unsupported
// parameter type specified"); the caller keeps ownership of what it
// passes. resultType 0 asks for no result; otherwise the result must be of
// exactly that type, one of VT_I4, VT_BOOL, VT_BSTR or VT_BYREF: a
// returned BSTR or pointer goes to *resultOut and becomes the caller's.
// The evaluation passes two strings and takes a string; the other kinds
// are kept for helpers built on the same call. On failure errorText says
// why.
bool InvokeDispatch(IDispatch *target, std::string &errorText, DISPID member, VARTYPE resultType,
                    void *resultOut, const unsigned *argTypes, unsigned argCount, ...);
