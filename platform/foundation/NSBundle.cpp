#include "platform/foundation/NSBundle.h"

#include <errno.h>

#include <unordered_map>

#include "platform/foundation/NSString.h"

namespace platform {

namespace {

// Registrations for the process. Never destroyed, so bundles may be looked up during exit.
struct BundleRegistry {
    std::mutex mutex;
    std::unordered_map<Class, std::shared_ptr<NSBundle>> byClass;             // guarded by mutex
    std::unordered_map<std::string, std::shared_ptr<NSBundle>> byIdentifier;  // guarded by mutex
};

BundleRegistry& registry() {
    static BundleRegistry* instance = new BundleRegistry();
    return *instance;
}

// `info` with the entries of `defaults` it lacks; a copy, so the caller's dictionary stays theirs.
std::shared_ptr<NSDictionary> withDefaults(const std::shared_ptr<NSDictionary>& info,
                                           const std::vector<std::pair<std::string, std::string>>& defaults,
                                           bool overrideDefaults) {
    auto merged = NSMutableDictionary::dictionary();
    if (info) {
        for (const auto& [key, value] : *info) merged->setObjectForKey(value, key);
    }
    for (const auto& [key, value] : defaults) {
        if (overrideDefaults || !merged->objectForKey(key)) merged->setObjectForKey(NSStr(value), key);
    }
    return std::make_shared<NSDictionary>(merged->entries());
}

std::shared_ptr<NSDictionary> mainInfo(const std::shared_ptr<NSDictionary>& info) {
    const std::string process = program_invocation_short_name;
    return withDefaults(info, {{kCFBundleNameKey, process}, {kCFBundleExecutableKey, process}}, false);
}

}  // namespace

NSBundle::NSBundle(std::shared_ptr<NSDictionary> info)
    : info_(info ? std::move(info) : std::make_shared<NSDictionary>()) {}

std::shared_ptr<NSBundle> NSBundle::mainBundle() {
    static const std::shared_ptr<NSBundle>* instance =
        new std::shared_ptr<NSBundle>(std::make_shared<NSBundle>(mainInfo(nullptr)));
    return *instance;
}

std::shared_ptr<NSBundle> NSBundle::bundleForClass(Class cls) {
    BundleRegistry& reg = registry();
    {
        std::lock_guard lock(reg.mutex);
        for (Class c = cls; c != nullptr; c = class_getSuperclass(c)) {
            if (auto it = reg.byClass.find(c); it != reg.byClass.end()) return it->second;
        }
    }
    return mainBundle();
}

std::shared_ptr<NSBundle> NSBundle::bundleWithIdentifier(const std::string& identifier) {
    if (identifier.empty()) return nullptr;
    if (mainBundle()->bundleIdentifier() == identifier) return mainBundle();
    BundleRegistry& reg = registry();
    std::lock_guard lock(reg.mutex);
    auto it = reg.byIdentifier.find(identifier);
    return it == reg.byIdentifier.end() ? nullptr : it->second;
}

std::shared_ptr<NSBundle> NSBundle::registerBundle(const std::string& identifier,
                                                   std::shared_ptr<NSDictionary> info) {
    auto bundle =
        std::make_shared<NSBundle>(withDefaults(info, {{kCFBundleIdentifierKey, identifier}}, true));
    BundleRegistry& reg = registry();
    std::lock_guard lock(reg.mutex);
    reg.byIdentifier[identifier] = bundle;
    return bundle;
}

void NSBundle::registerClass(Class cls, std::shared_ptr<NSBundle> bundle) {
    if (cls == nullptr) return;
    BundleRegistry& reg = registry();
    std::lock_guard lock(reg.mutex);
    if (bundle) {
        reg.byClass[cls] = std::move(bundle);
    } else {
        reg.byClass.erase(cls);
    }
}

void NSBundle::setMainBundleInfoDictionary(std::shared_ptr<NSDictionary> info) {
    mainBundle()->setInfoDictionary(mainInfo(info));
}

void NSBundle::setInfoDictionary(std::shared_ptr<NSDictionary> info) {
    std::lock_guard lock(mutex_);
    info_ = std::move(info);
}

std::shared_ptr<NSDictionary> NSBundle::infoDictionary() const {
    std::lock_guard lock(mutex_);
    return info_;
}

id NSBundle::objectForInfoDictionaryKey(const std::string& key) const {
    return infoDictionary()->objectForKey(key);
}

std::string NSBundle::bundleIdentifier() const {
    return NSStringValue(objectForInfoDictionaryKey(kCFBundleIdentifierKey)).value_or(std::string());
}

}  // namespace platform
