#pragma once
// Bundles: the main one (the process) and those a host or a library registers to stand for its
// frameworks. Every member may be called from any thread.
#include <memory>
#include <mutex>
#include <string>

#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSObject.h"

namespace platform {

inline constexpr const char* kCFBundleIdentifierKey = "CFBundleIdentifier";
inline constexpr const char* kCFBundleNameKey = "CFBundleName";
inline constexpr const char* kCFBundleExecutableKey = "CFBundleExecutable";
inline constexpr const char* kCFBundleVersionKey = "CFBundleVersion";

class NSBundle : public NSObject {
    PLATFORM_OBJC_CLASS(NSBundle, NSObject)
public:
    explicit NSBundle(std::shared_ptr<NSDictionary> info);

    // The process's bundle. Its info dictionary holds at least CFBundleName and CFBundleExecutable
    // (the process name); it has no identifier unless the host gives one.
    static std::shared_ptr<NSBundle> mainBundle();
    // The bundle registered for `cls` or for its nearest registered superclass, else the main bundle.
    static std::shared_ptr<NSBundle> bundleForClass(Class cls);
    // A registered bundle by identifier; nil when none has it.
    static std::shared_ptr<NSBundle> bundleWithIdentifier(const std::string& identifier);

    // Stand-in only: how a host plays a bundle the platform would have loaded. registerBundle makes
    // a bundle whose info dictionary is `info` (may be null) with CFBundleIdentifier = `identifier`,
    // findable by bundleWithIdentifier; registering an identifier again replaces the earlier one.
    static std::shared_ptr<NSBundle> registerBundle(const std::string& identifier,
                                                    std::shared_ptr<NSDictionary> info = nullptr);
    // Says which bundle a class comes from; a null bundle forgets the registration.
    static void registerClass(Class cls, std::shared_ptr<NSBundle> bundle);
    // Replaces the main bundle's info dictionary (CFBundleIdentifier, versions...); CFBundleName
    // and CFBundleExecutable keep the process name unless `info` gives them.
    static void setMainBundleInfoDictionary(std::shared_ptr<NSDictionary> info);

    // Never null: empty when the bundle has no information.
    std::shared_ptr<NSDictionary> infoDictionary() const;
    // nil when the key is absent.
    id objectForInfoDictionaryKey(const std::string& key) const;
    // CFBundleIdentifier; empty when the bundle has none (the platform's nil).
    std::string bundleIdentifier() const;

private:
    void setInfoDictionary(std::shared_ptr<NSDictionary> info);

    mutable std::mutex mutex_;
    std::shared_ptr<NSDictionary> info_;  // guarded by mutex_; never null, never mutated once set
};

}  // namespace platform
