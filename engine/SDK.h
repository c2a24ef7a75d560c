#pragma once
// The host's entry point, exported as QLMSDK: class operations only, on process-wide state that is
// made on first use and never destroyed.
//
// Every operation may be called from any thread and returns normally whatever it is given; the
// result of initialize is the only outcome the host sees. Calls that need a running Core wait in a
// bounded queue until the first initialize; getSessionURL waits until the server first accepts an
// upload.
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// Public headers name each other as siblings: installed, they sit side by side in quillmere/.
#include "Configuration.h"
#include "QuillmereExport.h"
#include "platform/foundation/NSObject.h"
#include "platform/foundation/NSString.h"

namespace quillmere {

class Core;
class TaskQueue;

class QLM_EXPORT SDK final : public platform::NSObject {
    PLATFORM_OBJC_CLASS_NAMED(SDK, platform::NSObject, "QLMSDK")
public:
    // The completion of the exported getSessionURL: selector, as a block taking an NSString.
    using SessionURLBlock = std::function<void(std::shared_ptr<platform::NSString>)>;

    // Starts a session with `configuration`, which the Core keeps and reads live. False, with one
    // log line, when a session runs already, or when `configuration` is null or its serverURL and
    // appID form no URL; nothing starts then.
    static bool initialize(const std::shared_ptr<Configuration>& configuration) noexcept;
    // A log event with `level` ("DEBUG", "INFO", "LOG", "WARN", "ERROR"; anything else is LOG).
    static void addLog(const std::string& level, const std::vector<std::string>& args) noexcept;
    // Calls `completion` once with the replay URL (empty while the server has relayed none), on the
    // caller's thread or, if the server has not yet accepted an upload, on the thread that handles
    // the first accepting reply. Never called if no session runs by then.
    static void getSessionURL(std::function<void(std::string)> completion) noexcept;
    static void identify(const std::string& userID,
                         const std::optional<std::map<std::string, std::string>>& userInfo) noexcept;
    static void identifyAsAnonymous(
        const std::string& userID,
        const std::optional<std::map<std::string, std::string>>& userInfo) noexcept;
    // Stops capture and makes a last upload; the library may be initialized again afterwards.
    // Blocks until that upload has been handed to the URL session. Does nothing when nothing runs.
    static void shutdown() noexcept;

    // The running Core, or null: the reference it gives stays valid whatever a concurrent shutdown
    // does.
    static std::shared_ptr<Core> currentCore() noexcept;
    // Empties the slot if it still holds `core`; Core::shutdown's last step.
    static void clearCore(const Core& core) noexcept;

    static TaskQueue& initializationTaskQueue();
    static TaskQueue& acceptanceTaskQueue();

    // Adds the six operations, under their exported selectors, and the exported classes and
    // protocols to the runtime; idempotent, and done when the library loads.
    static void exportToRuntime();
};

}  // namespace quillmere
