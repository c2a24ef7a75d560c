#pragma once
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "engine/Configuration.h"
#include "engine/Core.h"
#include "engine/Session.h"
#include "platform/foundation/NSDate.h"
#include "tests/support/IngestServer.h"
#include "tests/support/Wait.h"

namespace qlm_test {

inline std::shared_ptr<quillmere::Configuration> configurationFor(const IngestServer& server,
                                                                  std::string appID = "app-1") {
    auto configuration = std::make_shared<quillmere::Configuration>(std::move(appID));
    configuration->setServerURL(server.serverURL());
    // Log capture would take this test program's own descriptors 1 and 2; its tests turn it on in
    // a child process.
    configuration->setLogCaptureEnabled(false);
    // A capture waits for the main run loop, which these tests turn only now and then; one left
    // waiting would finish inside a later test's loop and add an event that test didn't make.
    configuration->setViewScanningEnabled(false);
    return configuration;
}

// Every reply to the session's uploads handled.
inline void settle(quillmere::Core& core) {
    EXPECT_TRUE(core.flush(std::chrono::steady_clock::now() + std::chrono::seconds(10)));
}

inline void shutDownAndSettle(quillmere::Core& core) {
    core.shutdown();
    settle(core);
}

inline double nowMilliseconds() {
    return platform::NSDate::date()->timeIntervalSince1970() * 1000.0;
}

}  // namespace qlm_test
