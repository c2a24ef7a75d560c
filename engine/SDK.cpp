#include "engine/SDK.h"

#include <mutex>

#include "capture/log/LogHandler.h"
#include "capture/network/NetworkRequestInterceptor.h"
#include "capture/network/NetworkShim.h"
#include "capture/network/Request.h"
#include "capture/network/Response.h"
#include "capture/touch/QLMReactNativeSwizzler.h"
#include "capture/touch/TouchShim.h"
#include "engine/Bridge.h"
#include "engine/Core.h"
#include "engine/RequestSanitizer.h"
#include "engine/ResponseSanitizer.h"
#include "engine/Session.h"
#include "engine/TaskQueue.h"
#include "platform/foundation/NSLog.h"
#include "platform/foundation/NSString.h"
#include "upload/Uploader.h"

namespace quillmere {

namespace {

struct State {
    // Serialises initialize and shutdown: the test for a running Core and the store of the new
    // one are then one step, so of two racing starts exactly one succeeds.
    std::mutex lifecycleMutex;

    mutable std::mutex coreMutex;
    std::shared_ptr<Core> core;  // guarded by coreMutex

    TaskQueue initializationTaskQueue{
        SDK::currentCore, "Quillmere: Quillmere initialization task queue has reached maximum size."};
    TaskQueue acceptanceTaskQueue{SDK::currentCore,
                                  "Quillmere: Quillmere acceptance task queue has reached maximum size."};
};

// Never destroyed: upload replies and capture threads may reach it while the process exits.
State& state() {
    static State* const instance = new State();
    return *instance;
}

void setCore(std::shared_ptr<Core> core) {
    auto& s = state();
    std::lock_guard lock(s.coreMutex);
    s.core.swap(core);
    // The former value, if any, is released after the lock.
}

void logCannotFormURL(const Session& session, const std::string& serverURL) {
    platform::NSLog("Quillmere: Cannot form the ingest URL from \"" +
                    Uploader::ingestURLText(session, serverURL) + "\"; not starting.");
}

// The text on one line: control characters as \xNN.
std::string printable(const std::string& text) {
    static const char kDigits[] = "0123456789ABCDEF";
    std::string shown;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte != 0x7F) {
            shown += c;
        } else {
            shown += "\\x";
            shown += kDigits[byte >> 4];
            shown += kDigits[byte & 0xF];
        }
    }
    return shown;
}

void enqueueIdentify(std::string userID, std::optional<std::map<std::string, std::string>> userInfo,
                     bool isAnonymous) {
    SDK::initializationTaskQueue().enqueue(
        [userID = std::move(userID), userInfo = std::move(userInfo),
         isAnonymous](const std::shared_ptr<Core>& core) { core->identify(userID, userInfo, isAnonymous); });
}

}  // namespace

bool SDK::initialize(const std::shared_ptr<Configuration>& configuration) noexcept {
    try {
        if (!configuration) {
            platform::NSLog("Quillmere: No configuration given; not starting.");
            return false;
        }
        auto& s = state();
        std::shared_ptr<Core> core;
        {
            std::lock_guard lifecycle(s.lifecycleMutex);
            if (currentCore()) {
                platform::NSLog("Quillmere: SDK has already been initialized!");
                return false;
            }
            if (!Uploader::travelsUnescaped(configuration->appID())) {
                platform::NSLog("Quillmere: The app id \"" + printable(configuration->appID()) +
                                "\" cannot go into the ingest URL as it is; not starting.");
                return false;
            }
            auto session = Session::make(configuration->appID());
            // Checked before any Core exists, so a refused start duplicates and redirects nothing.
            const std::string serverURL = configuration->serverURL();
            if (!Uploader::ingestURL(*session, serverURL)) {
                logCannotFormURL(*session, serverURL);
                return false;
            }
            core = Core::make(session, configuration);
            if (!core) {
                // The host changed serverURL in between.
                logCannotFormURL(*session, configuration->serverURL());
                return false;
            }
            setCore(core);
            try {
                core->start();
            } catch (const std::exception&) {
                // Undo what started, and leave the slot empty so that a later initialize may start.
                try {
                    core->shutdown();
                } catch (const std::exception&) {
                }
                SDK::clearCore(*core);
                throw;
            }
        }
        // Outside the lock: held tasks may call back into the facade.
        s.initializationTaskQueue.flush(core);
        return true;
    } catch (const std::exception& e) {
        platform::NSLog(std::string("Quillmere: Could not start: ") + e.what());
        return false;
    }
}

void SDK::addLog(const std::string& level, const std::vector<std::string>& args) noexcept {
    try {
        initializationTaskQueue().enqueue([level, args](const std::shared_ptr<Core>& core) {
            core->addEvent(EventType::logEvent, LogHandler::logEventFrom(level, args));
        });
    } catch (const std::exception&) {
        // Only allocation fails here: the log call is lost.
    }
}

void SDK::getSessionURL(std::function<void(std::string)> completion) noexcept {
    if (!completion) return;
    try {
        acceptanceTaskQueue().enqueue(
            [completion = std::move(completion)](const std::shared_ptr<Core>& core) {
                completion(core->sessionURL());
            });
    } catch (const std::exception&) {
        // Only allocation fails here: the completion is dropped, as after shutdown.
    }
}

void SDK::identify(const std::string& userID,
                   const std::optional<std::map<std::string, std::string>>& userInfo) noexcept {
    try {
        enqueueIdentify(userID, userInfo, false);
    } catch (const std::exception&) {
    }
}

void SDK::identifyAsAnonymous(const std::string& userID,
                              const std::optional<std::map<std::string, std::string>>& userInfo) noexcept {
    try {
        enqueueIdentify(userID, userInfo, true);
    } catch (const std::exception&) {
    }
}

void SDK::shutdown() noexcept {
    try {
        std::lock_guard lifecycle(state().lifecycleMutex);
        if (auto core = currentCore()) core->shutdown();
    } catch (const std::exception& e) {
        platform::NSLog(std::string("Quillmere: Could not shut down: ") + e.what());
    }
}

std::shared_ptr<Core> SDK::currentCore() noexcept {
    auto& s = state();
    std::lock_guard lock(s.coreMutex);
    return s.core;
}

void SDK::clearCore(const Core& core) noexcept {
    std::shared_ptr<Core> released;
    auto& s = state();
    std::lock_guard lock(s.coreMutex);
    if (s.core.get() == &core) released.swap(s.core);
    // `released` dies after the lock: the last reference may run the Core's destructor.
}

TaskQueue& SDK::initializationTaskQueue() {
    return state().initializationTaskQueue;
}

TaskQueue& SDK::acceptanceTaskQueue() {
    return state().acceptanceTaskQueue;
}

namespace {

using platform::id;
using platform::NSObject;
using platform::SEL;

void addClassMethods() {
    const platform::Class cls = SDK::class_();
    const auto add = [cls](const char* selector, platform::IMP imp) {
        platform::class_addClassMethod(cls, platform::sel_getUid(selector), imp);
    };
    add("initializeWithConfiguration:",
        platform::imp_makeFunction<bool, id>([](NSObject*, SEL, id configuration) {
            return SDK::initialize(platform::objc_cast<Configuration>(configuration));
        }));
    add("addLogWithLevel:args:",
        platform::imp_makeFunction<void, id, id>([](NSObject*, SEL, id level, id args) {
            SDK::addLog(platform::NSStringValue(level).value_or(""), bridge::strings(args));
        }));
    add("getSessionURL:", platform::imp_makeFunction<void, SDK::SessionURLBlock>(
                              [](NSObject*, SEL, SDK::SessionURLBlock completion) {
                                  if (!completion) return;
                                  SDK::getSessionURL([completion = std::move(completion)](std::string url) {
                                      completion(platform::NSStr(std::move(url)));
                                  });
                              }));
    // A userID that is no string gives the host's call nothing to identify: it is dropped.
    add("identifyWithUserID:userInfo:",
        platform::imp_makeFunction<void, id, id>([](NSObject*, SEL, id userID, id userInfo) {
            if (auto text = platform::NSStringValue(userID))
                SDK::identify(*text, bridge::stringMap(userInfo));
        }));
    add("identifyAsAnonymousWithUserID:userInfo:",
        platform::imp_makeFunction<void, id, id>([](NSObject*, SEL, id userID, id userInfo) {
            if (auto text = platform::NSStringValue(userID)) {
                SDK::identifyAsAnonymous(*text, bridge::stringMap(userInfo));
            }
        }));
    add("shutdown", platform::imp_makeFunction<void>([](NSObject*, SEL) { SDK::shutdown(); }));
}

}  // namespace

void SDK::exportToRuntime() {
    static std::once_flag once;
    std::call_once(once, [] {
        addClassMethods();
        Configuration::exportToRuntime();
        RequestSanitizer::protocol();
        ResponseSanitizer::protocol();
        Request::class_();
        Response::class_();
        NetworkRequestInterceptor::exportToRuntime();
        NetworkShim::protocolClass();
        TouchShim::exportToRuntime();
        QLMReactNativeSwizzler::exportToRuntime();
        Core::runtimeClass();
    });
}

namespace {

// As a framework's classes are registered when its image loads.
[[maybe_unused]] const bool exportedAtLoad = (SDK::exportToRuntime(), true);

}  // namespace

}  // namespace quillmere
