#pragma once
// Plays a scenario in a fresh process: the test program starts itself again with the scenario's
// name in its environment, and main() hands such a process to playScenarioFromEnvironment instead
// of running tests. The child writes its transcript to a file that the parent reads back.
//
// Threads: playInFreshProcess on any one thread of the test; the child side on its main thread.
#include <string>
#include <vector>

#include "tests/noninterference/Scenario.h"

namespace qlm_test {

struct RunResult {
    std::vector<std::string> observed;  // the transcript
    bool completed = false;             // the process ended normally with a transcript
    bool captured = false;              // capture on: its events reached the ingest endpoint
    std::string note;                   // how the run went, for a failure's message
};

// Plays `scenario` once in a new process, with the library started (every capture on, uploading to
// a loopback ingest endpoint of the child) or not at all.
RunResult playInFreshProcess(const Scenario& scenario, bool captureOn);

// True in a process that playInFreshProcess started.
bool isScenarioProcess();
// That process's whole work; gives its exit status.
int playScenarioFromEnvironment();

}  // namespace qlm_test
