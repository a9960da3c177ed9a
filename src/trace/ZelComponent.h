// Trace components: the name a trace line carries, kept on a per-thread
// stack, and the component filter read from the registry.
#pragma once

#include <windows.h>

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

class ZelComponent {
public:
    // The "default" component; not pushed on any stack.
    ZelComponent();
    // Pushes itself on the calling thread's stack until destroyed.
    explicit ZelComponent(const std::string &name);
    virtual ~ZelComponent();
    ZelComponent(const ZelComponent &) = delete;
    ZelComponent &operator=(const ZelComponent &) = delete;

    const std::string &name() const { return name_; }

private:
    std::string name_;
    bool pushed_ = false;
};

enum : uint32_t { ZEL_FILTER_EXCLUDE = 0, ZEL_FILTER_ONLY = 1 };

class ZelTraceComponentManager {
public:
    // Reads "DebugFilter-" followed by the executable's file name.
    ZelTraceComponentManager();
    virtual ~ZelTraceComponentManager();

    void push(ZelComponent *component);
    // Pops whatever is on top; scopes are assumed to nest strictly.
    void pop();
    // The calling thread's top component, or the default one.
    const ZelComponent &current();
    bool passesFilter();

    // Replaces the filter from its registry text ("mode:name,name").
    void setFilter(const std::string &text);
    uint32_t filterMode() const { return mode_; }
    const std::set<std::string> &filterNames() const { return names_; }

private:
    std::map<DWORD, std::vector<ZelComponent *>> stacks_;
    std::set<std::string> names_;
    uint32_t mode_ = ZEL_FILTER_EXCLUDE;
};

// The component of a thread whose stack is empty.
ZelComponent &ZelDefaultComponent();
