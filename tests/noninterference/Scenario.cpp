#include "tests/noninterference/Scenario.h"

#include <chrono>

#include "tests/support/Wait.h"

namespace qlm_test {
namespace {

std::vector<Scenario>& registry() {
    static auto* scenarios = new std::vector<Scenario>();
    return *scenarios;
}

}  // namespace

void ScenarioRun::runEndSteps() {
    for (const auto& step : endSteps_) step();
    endSteps_.clear();
}

void ScenarioRun::awaitCapture(const CaptureCheck& ready) {
    if (!library_.await) {
        // A little more than the screen scanner's interval.
        runMainLoopUntil([] { return false; }, std::chrono::milliseconds(1200));
        return;
    }
    if (!library_.await(ready) && failure_.empty()) failure_ = "capture never got where the scenario waited for it";
}

void ScenarioRun::startLibrary() {
    if (library_.start) library_.start();
}

void ScenarioRun::shutdownLibrary() {
    if (library_.shutdown) library_.shutdown();
}

bool addScenarios(std::vector<Scenario> scenarios) {
    for (auto& scenario : scenarios) registry().push_back(std::move(scenario));
    return true;
}

const std::vector<Scenario>& allScenarios() {
    return registry();
}

const Scenario* findScenario(const std::string& name) {
    for (const auto& scenario : registry())
        if (scenario.name == name) return &scenario;
    return nullptr;
}

}  // namespace qlm_test
