// The runs of the resolver, one answer per target: through the registered
// DLL (the COM mode), or the library's own code linked into this program
// (a PAC URL fetched once, a local script file, automatic discovery).
#include <winsock2.h>
#include <windows.h>
#include <objbase.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>

#include "Tool.h"
#include "pac/EvaluationObserver.h"
#include "resolver/Routvane.h"
#include "trace/ZelComponent.h"
#include "util/ComOwners.h"

namespace tool {

namespace {

// The resolver, registered by ProgID, else from routvane.dll beside this program.
IRoutvane *CreateResolver() {
    IRoutvane *resolver = nullptr;
    CLSID clsid;
    if (SUCCEEDED(CLSIDFromProgID(ROUTVANE_PROGID, &clsid)) &&
        SUCCEEDED(CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IRoutvane,
                                   reinterpret_cast<void **>(&resolver))))
        return resolver;
    char path[MAX_PATH + 16];
    const DWORD length = GetModuleFileNameA(nullptr, path, MAX_PATH);
    std::string dll(path, length);
    dll = dll.substr(0, dll.find_last_of('\\') + 1) + "routvane.dll";
    HMODULE module = LoadLibraryA(dll.c_str());
    if (!module) return nullptr;
    using GetClassObject = HRESULT(WINAPI *)(REFCLSID, REFIID, void **);
    auto get = reinterpret_cast<GetClassObject>(
        reinterpret_cast<void *>(GetProcAddress(module, "DllGetClassObject")));
    ComPtr<IClassFactory> factory;
    if (!get || FAILED(get(CLSID_Routvane, IID_IClassFactory, factory.outVoid()))) return nullptr;
    factory->CreateInstance(nullptr, IID_IRoutvane, reinterpret_cast<void **>(&resolver));
    return resolver;
}

// Reads a text getter whose length is not known beforehand.
template <class Getter>
std::string ReadText(Getter get) {
    for (int size = 4096; size <= (256 << 20); size *= 4) {
        std::vector<char> buffer(static_cast<size_t>(size), '\0');
        if (!get(buffer.data(), size)) return std::string();
        const std::string text(buffer.data());
        if (static_cast<int>(text.size()) < size - 1) return text;
    }
    return std::string();
}

Answer ResolveThroughCom(const Options &o, const Target &target) {
    Answer a;
    a.target = target;
    const auto resolver = ComPtr<IRoutvane>::Adopt(CreateResolver());
    if (!resolver) {
        fprintf(stderr, "routvane: cannot create the resolver (register routvane.dll, or keep it "
                        "beside this program)\n");
        return a;
    }
    a.status = resolver->RoutvaneBrowser(o.optionsWord, target.host.c_str(), target.port);
    a.hasBrowser = true;
    resolver->GetBrowser(&a.browser);
    for (long long i = 0, n = resolver->GetProxyCount(); i < n; ++i) {
        bool direct = false;
        unsigned port = 0;
        const std::string host = ReadText([&](char *buffer, int size) {
            return resolver->GetProxy(static_cast<int>(i), &direct, buffer, size, &port);
        });
        a.entries.push_back({direct, host, port});
    }
    a.autoConfigURL = ReadText([&](char *b, int s) { return resolver->GetAutoConfigURL(b, s); });
    if (o.script)
        a.script = ReadText([&](char *b, int s) { return resolver->GetAutoConfigScript(b, s); });
    return a;
}

// The compatibility report of one evaluation: each line once, in the
// order it first happened.
class NoteList : public EvaluationObserver {
public:
    void Note(const std::string &text) override {
        for (const std::string &seen : lines)
            if (seen == text) return;
        lines.push_back(text);
    }
    std::vector<std::string> lines;
};

// A fresh resolver of the library's own code for one target: run is given
// the resolver, and answers its status.
template <class Run>
Answer ResolveDirectly(const Options &o, const Target &target, Run run) {
    Answer a;
    a.target = target;
    NoteList notes;
    const auto resolver = ComPtr<Routvane>::Share(new Routvane);
    if (o.lint) resolver->setObserver(&notes);
    try {
        a.status = run(*resolver.get());
    } catch (...) {
        fprintf(stderr, "routvane: the resolver failed unexpectedly\n");
        a.status = ROUTVANE_FAILED;
    }
    for (const ProxyEntry &e : resolver->proxies())
        a.entries.push_back({e.kind == PROXY_ENTRY_DIRECT, e.host, e.port});
    a.autoConfigURL = resolver->autoConfigURL();
    if (o.script) a.script = resolver->autoConfigScript();
    a.notes = notes.lines;
    return a;
}

// The script file's text; false, with the reason on standard error, when
// there is none to run.
bool ReadScriptFile(const std::string &path, std::string &script) {
    const DWORD attributes = GetFileAttributesA(path.c_str());
    const char *problem = nullptr;
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        problem = "no such file";
    } else if (attributes & FILE_ATTRIBUTE_DIRECTORY) {
        problem = "a directory, not a script file";
    } else {
        std::ifstream file(path, std::ios::binary);
        if (!file) {
            problem = "cannot be read";
        } else {
            script.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
            if (file.bad()) problem = "cannot be read";
            else if (script.empty()) problem = "the file is empty";
        }
    }
    if (!problem) return true;
    fprintf(stderr, "routvane: --pac-file %s: %s\n", path.c_str(), problem);
    return false;
}

// Every target failed the same way: the script could not be had.
std::vector<Answer> AllFailed(const Options &o, const std::string &autoConfigURL) {
    std::vector<Answer> answers;
    for (const Target &target : o.targets) {
        Answer a;
        a.target = target;
        a.autoConfigURL = autoConfigURL;
        answers.push_back(a);
    }
    return answers;
}

// The script evaluated for every target, each in a fresh evaluation; the
// text is read or fetched only once.
std::vector<Answer> EvaluateForEach(const Options &o, const std::string &script,
                                    uint32_t fetched, const std::string &autoConfigURL) {
    std::vector<Answer> answers;
    for (const Target &target : o.targets) {
        Answer a = ResolveDirectly(o, target, [&](Routvane &r) {
            return r.EvaluateAutoProxyScript(script, target.host, target.port, fetched);
        });
        a.autoConfigURL = autoConfigURL;
        answers.push_back(a);
    }
    return answers;
}

}  // namespace

std::vector<Answer> ResolveAll(const Options &o) {
    ZelComponent component("Routvane");
    std::vector<Answer> answers;
    switch (o.mode) {
    case Mode::Com:
        for (const Target &target : o.targets) answers.push_back(ResolveThroughCom(o, target));
        break;
    case Mode::Detect:
        for (const Target &target : o.targets)
            answers.push_back(ResolveDirectly(o, target, [&](Routvane &r) {
                return r.RunAutoDetect(o.optionsWord, target.host, target.port);
            }));
        break;
    case Mode::PacFile: {
        std::string script;
        if (!ReadScriptFile(o.pacFile, script)) return AllFailed(o, o.pacFile);
        // Read completely, as a finished download.
        answers = EvaluateForEach(o, script, ROUTVANE_PROXY, o.pacFile);
        break;
    }
    case Mode::Pac: {
        const auto fetcher = ComPtr<Routvane>::Share(new Routvane);
        std::string script;
        uint32_t fetched = ROUTVANE_FAILED;
        try {
            fetched = fetcher->FetchAutoProxyScript(o.pacUrl, script);
        } catch (...) {
            fprintf(stderr, "routvane: the resolver failed unexpectedly\n");
        }
        const std::string url = fetcher->autoConfigURL();
        answers = fetched == ROUTVANE_FAILED ? AllFailed(o, url)
                                             : EvaluateForEach(o, script, fetched, url);
        break;
    }
    }
    return answers;
}

}  // namespace tool
