#include "trace/ZelComponent.h"

#include <sstream>

#include "trace/ZelTraceManager.h"
#include "util/Registry.h"

namespace {

std::string TrimSpaces(const std::string &text) {
    const size_t first = text.find_first_not_of(' ');
    if (first == std::string::npos) return std::string();
    const size_t last = text.find_last_not_of(' ');
    return text.substr(first, last - first + 1);
}

// Splits as getline does: an empty field before a separator counts, nothing
// after a final separator does.
std::vector<std::string> SplitFields(const std::string &text, char separator) {
    std::vector<std::string> fields;
    std::istringstream in(text);
    std::string field;
    while (std::getline(in, field, separator)) fields.push_back(field);
    return fields;
}

}  // namespace

ZelComponent &ZelDefaultComponent() {
    static ZelComponent component;
    return component;
}

ZelComponent::ZelComponent() : name_("default") {}

ZelComponent::ZelComponent(const std::string &name) : name_(name) {
    if (ZelTraceComponentManager *manager = ZelComponentManagerInstance()) {
        manager->push(this);
        pushed_ = true;
    }
}

ZelComponent::~ZelComponent() {
    if (!pushed_) return;
    if (ZelTraceComponentManager *manager = ZelComponentManagerInstance()) manager->pop();
}

ZelTraceComponentManager::ZelTraceComponentManager() {
    std::string text;
    if (ReadRegistryString(HKEY_LOCAL_MACHINE, kOvrenaKey,
                           ("DebugFilter-" + ZelExecutableName()).c_str(), 1024, text) &&
        !text.empty())
        setFilter(text);
}

ZelTraceComponentManager::~ZelTraceComponentManager() = default;

void ZelTraceComponentManager::push(ZelComponent *component) {
    ZelTraceGuard guard;
    stacks_[GetCurrentThreadId()].push_back(component);
}

void ZelTraceComponentManager::pop() {
    ZelTraceGuard guard;
    auto it = stacks_.find(GetCurrentThreadId());
    if (it != stacks_.end() && !it->second.empty()) it->second.pop_back();
}

const ZelComponent &ZelTraceComponentManager::current() {
    ZelTraceGuard guard;
    auto it = stacks_.find(GetCurrentThreadId());
    if (it == stacks_.end() || it->second.empty()) return ZelDefaultComponent();
    return *it->second.back();
}

bool ZelTraceComponentManager::passesFilter() {
    // The filter never changes after load, so only the look-up of the
    // current component needs the lock.
    const std::string name = current().name();
    const bool listed = names_.count(name) != 0;
    switch (mode_) {
    case ZEL_FILTER_EXCLUDE: return !listed;
    case ZEL_FILTER_ONLY: return listed;
    default: return false;
    }
}

void ZelTraceComponentManager::setFilter(const std::string &text) {
    names_.clear();
    mode_ = ZEL_FILTER_EXCLUDE;
    const std::vector<std::string> fields = SplitFields(text, ':');
    if (fields.size() != 2) return;
    const std::string mode = TrimSpaces(fields[0]);
    if (mode.empty()) return;
    mode_ = mode == "exclude" ? ZEL_FILTER_EXCLUDE : ZEL_FILTER_ONLY;
    for (const std::string &piece : SplitFields(fields[1], ',')) {
        const std::string name = TrimSpaces(piece);
        if (!name.empty()) names_.insert(name);
    }
}
