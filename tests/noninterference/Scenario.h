#pragma once
// Scenarios of the capture-off/capture-on comparison. A scenario is a scripted host: it drives the
// platform as an app would and writes into a transcript everything the host can observe, then,
// once capture has settled and stopped, what its peers received. The runner plays each scenario
// twice, each time in a fresh process, once without the library and once with every capture on,
// and the two transcripts must be equal.
//
// A kind of scenario (network, touch, console) keeps a table of them and enters it with
// addScenarios from a static initializer in its own file; nothing else needs to change.
//
// Threads: a scenario runs on the main thread of its process, which it may use as the host's
// main thread (running the main run loop while it waits).
#include <functional>
#include <string>
#include <vector>

#include "tests/noninterference/Transcript.h"
#include "wire/qm.pb.h"

namespace qlm_test {

class ScenarioRun {
public:
    using CaptureCheck = std::function<bool(const std::vector<qm::Event>&)>;

    explicit ScenarioRun(Transcript& transcript) : transcript_(transcript) {}

    // What the host observes, line by line.
    Transcript& transcript() { return transcript_; }

    // With capture on, the runner waits (with a deadline) until the events the library has
    // finished pass `check` before it stops the library, and then until they reached the ingest
    // endpoint; a run whose events never do fails, so equality can't come from capture not
    // running. Without a check, any event of the run will do. Ignored with capture off.
    void expectCapture(CaptureCheck check) { captureCheck_ = std::move(check); }
    const CaptureCheck& captureCheck() const { return captureCheck_; }

    // Steps run after capture has settled and stopped (at once when it never ran), in order: for
    // what peers received, which a late duplicate could still change until then.
    void atEnd(std::function<void()> step) { endSteps_.push_back(std::move(step)); }
    void runEndSteps();

    // Runs the main run loop until capture has done what the scenario needs before it goes on
    // (a screen capture, a touch recognizer on a window): with capture on until `ready` holds for
    // the events finished so far, or for some state of the app, with a deadline that fails the
    // run; with capture off for as long as a screen capture takes to come, so both runs wait.
    void awaitCapture(const CaptureCheck& ready);
    // For a scenario that starts the library itself (Scenario::startsLibrary): initialize and
    // shutdown as a host calls them, with capture on; nothing with capture off.
    void startLibrary();
    void shutdownLibrary();

    // Set by the runner for a capture-on run.
    struct Library {
        std::function<void()> start;
        std::function<void()> shutdown;
        std::function<bool(const CaptureCheck&)> await;  // false when the deadline passed
    };
    void setLibrary(Library library) { library_ = std::move(library); }
    // Why the run failed while it played; empty if it didn't.
    const std::string& failure() const { return failure_; }

private:
    Transcript& transcript_;
    CaptureCheck captureCheck_;
    std::vector<std::function<void()>> endSteps_;
    Library library_;
    std::string failure_;
};

struct Scenario {
    std::string name;  // unique; letters, digits and '_' (it names a test)
    std::function<void(ScenarioRun&)> play;
    // Empty: capture must change nothing. Otherwise why it does, as the README's "Known limits"
    // say; the runner then requires the transcripts to differ, so the mark can't outlive its cause.
    std::string knownDifference;
    // The scenario calls ScenarioRun::startLibrary (and may shut it down and start it again) instead
    // of the runner starting it first; it must leave it running.
    bool startsLibrary = false;
};

// Enters scenarios; gives true, for use in a static initializer.
bool addScenarios(std::vector<Scenario> scenarios);
const std::vector<Scenario>& allScenarios();
// nullptr when no scenario has that name.
const Scenario* findScenario(const std::string& name);

}  // namespace qlm_test
