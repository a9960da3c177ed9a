// Told what happened during one PAC evaluation that a script written for
// another PAC runtime may not expect here: a helper call whose text this
// library reads its own way, a function the runtime does not have, an
// answer entry that was skipped, an alert. Only the compatibility report of
// the tester listens; without an observer nothing is collected and the
// evaluation behaves exactly the same.
#pragma once

#include <string>

class EvaluationObserver {
public:
    // One line of the report, written as the library's own words.
    virtual void Note(const std::string &text) = 0;

protected:
    ~EvaluationObserver() = default;
};
