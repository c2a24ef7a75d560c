#include "tests/noninterference/Scenario.h"

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
