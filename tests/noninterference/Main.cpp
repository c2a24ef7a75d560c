// The comparison's test program. Started again by the runner with a scenario in its environment,
// it plays that scenario instead of running tests.
#include <gtest/gtest.h>

#include "tests/noninterference/ScenarioRunner.h"

int main(int argc, char** argv) {
    if (qlm_test::isScenarioProcess()) return qlm_test::playScenarioFromEnvironment();
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
