#pragma once
// Scenarios that take process-wide state (descriptors 1 and 2, the SDK's one Core, the main run
// loop) run in a child process of their own, so the test runner's own state is never touched.
#include <gtest/gtest.h>

namespace qlm_test {

// Runs `scenario` in a fresh run of this test program, where it may take descriptors 1 and 2 and
// start the library on the main thread. The child reports its failures on its own standard error,
// which the parent shows; the scenario must have put that descriptor back by the time it returns.
void inChildProcess(void (*scenario)());

// In a sanitized build, points the sanitizers' reports at a copy of descriptor 2 as it is now, so
// they reach the parent even while a scenario's log capture stands behind descriptor 2. Does
// nothing in other builds.
void keepSanitizerReportsOnStandardError();

// A loopback TCP port that was free a moment ago and has no listener now.
int unusedLoopbackPort();

}  // namespace qlm_test
