// The main of every test program: tracing started as the library starts it
// at load, and a check that each test leaves the module's object count
// where it found it.
#include <gtest/gtest.h>

#include "com/Module.h"
#include "resolver/BoundedWorker.h"
#include "trace/ZelTraceManager.h"

namespace {

class ObjectCountListener : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo &) override { start_ = ModuleObjectCount(); }
    void OnTestEnd(const testing::TestInfo &info) override {
        const long end = ModuleObjectCount();
        // Objects of an abandoned worker that still runs are held, not
        // leaked; a test that leaves one running checks its own counts.
        if (end != start_ && AbandonedWorkers() == 0) {
            ADD_FAILURE() << info.name() << " left the object count at " << end << " (was "
                          << start_ << ")";
        }
    }
    long start_ = 0;
};

}  // namespace

int main(int argc, char **argv) {
    ZelTraceStartup();
    testing::InitGoogleTest(&argc, argv);
    testing::UnitTest::GetInstance()->listeners().Append(new ObjectCountListener);
    const int rc = RUN_ALL_TESTS();
    ZelTraceShutdown();
    return rc;
}
