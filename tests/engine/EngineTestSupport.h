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
    return configuration;
}

// The Uploader lives as long as an upload is in flight, so its end means every reply was handled.
inline void shutDownAndSettle(std::shared_ptr<quillmere::Core>& core) {
    platform::dispatch_sync(core->queue(), [] {});
    std::weak_ptr<quillmere::Uploader> uploader = core->uploader();
    core->shutdown();
    core.reset();
    EXPECT_TRUE(waitUntil([&] { return uploader.expired(); }, std::chrono::milliseconds(10000)));
}

inline double nowMilliseconds() {
    return platform::NSDate::date()->timeIntervalSince1970() * 1000.0;
}

}  // namespace qlm_test
