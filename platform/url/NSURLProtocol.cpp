#include "platform/url/NSURLProtocol.h"

#include <algorithm>
#include <map>
#include <shared_mutex>

#include "platform/url/NSURLSessionTask.h"

namespace platform {
namespace {

// The class-side table and the registered classes. Never destroyed: the loader thread may read
// them while the process exits.
struct ProtocolClasses {
    std::shared_mutex mutex;
    std::map<Class, std::shared_ptr<const NSURLProtocolClassMethods>> methods;  // guarded by mutex
    std::vector<Class> registered;  // guarded by mutex; most recent first
};

ProtocolClasses& protocolClasses() {
    static ProtocolClasses* table = new ProtocolClasses();
    return *table;
}

std::shared_ptr<const NSURLProtocolClassMethods> methodsFor(Class cls) {
    ProtocolClasses& table = protocolClasses();
    std::shared_lock lock(table.mutex);
    auto it = table.methods.find(cls);
    return it == table.methods.end() ? nullptr : it->second;
}

}  // namespace

bool NSURLProtocol::canInitWithRequest(const std::shared_ptr<NSURLRequest>&) {
    return false;
}

bool NSURLProtocol::canInitWithTask(const std::shared_ptr<NSURLSessionTask>& task) {
    return task != nullptr && canInitWithRequest(task->currentRequest());
}

std::shared_ptr<NSURLRequest> NSURLProtocol::canonicalRequestForRequest(
    const std::shared_ptr<NSURLRequest>& request) {
    return request;
}

void NSURLProtocol::registerClassMethods(Class cls, NSURLProtocolClassMethods methods) {
    ProtocolClasses& table = protocolClasses();
    std::unique_lock lock(table.mutex);
    table.methods[cls] = std::make_shared<const NSURLProtocolClassMethods>(std::move(methods));
}

bool NSURLProtocol::classCanInitWithRequest(Class cls, const std::shared_ptr<NSURLRequest>& request) {
    auto methods = methodsFor(cls);
    return methods && methods->canInitWithRequest && methods->canInitWithRequest(request);
}

bool NSURLProtocol::classCanInitWithTask(Class cls, const std::shared_ptr<NSURLSessionTask>& task) {
    auto methods = methodsFor(cls);
    if (!methods || !task) return false;
    if (methods->canInitWithTask) return methods->canInitWithTask(task);
    return methods->canInitWithRequest && methods->canInitWithRequest(task->currentRequest());
}

std::shared_ptr<NSURLRequest> NSURLProtocol::classCanonicalRequestForRequest(
    Class cls, const std::shared_ptr<NSURLRequest>& request) {
    auto methods = methodsFor(cls);
    if (!methods || !methods->canonicalRequestForRequest) return request;
    auto canonical = methods->canonicalRequestForRequest(request);
    return canonical ? canonical : request;
}

std::shared_ptr<NSURLProtocol> NSURLProtocol::classMakeInstance(
    Class cls, const std::shared_ptr<NSURLSessionTask>& task, const std::shared_ptr<NSURLRequest>& request,
    const std::shared_ptr<NSCachedURLResponse>& cachedResponse,
    const std::shared_ptr<NSURLProtocolClient>& client) {
    auto methods = methodsFor(cls);
    if (!methods || !methods->make) return nullptr;
    auto instance = methods->make();
    if (!instance) return nullptr;
    instance->setTask(task);
    if (methods->canInitWithTask && task) {
        instance->initWithTask(task, cachedResponse, client);
    } else {
        instance->initWithRequest(request, cachedResponse, client);
    }
    return instance;
}

bool NSURLProtocol::registerClass(Class cls) {
    if (!class_isSubclassOf(cls, NSURLProtocol::class_()) || !methodsFor(cls)) return false;
    ProtocolClasses& table = protocolClasses();
    std::unique_lock lock(table.mutex);
    std::erase(table.registered, cls);
    table.registered.insert(table.registered.begin(), cls);
    return true;
}

void NSURLProtocol::unregisterClass(Class cls) {
    ProtocolClasses& table = protocolClasses();
    std::unique_lock lock(table.mutex);
    std::erase(table.registered, cls);
}

std::vector<Class> NSURLProtocol::registeredClasses() {
    ProtocolClasses& table = protocolClasses();
    std::shared_lock lock(table.mutex);
    return table.registered;
}

id NSURLProtocol::propertyForKey(const std::string& key, const std::shared_ptr<NSURLRequest>& request) {
    if (!request) return nullptr;
    auto it = request->properties_.find(key);
    return it == request->properties_.end() ? nullptr : it->second;
}

void NSURLProtocol::setProperty(id value, const std::string& key,
                                const std::shared_ptr<NSMutableURLRequest>& request) {
    if (!request) return;
    if (!value) {
        request->properties_.erase(key);
        return;
    }
    request->properties_[key] = std::move(value);
}

void NSURLProtocol::removePropertyForKey(const std::string& key,
                                         const std::shared_ptr<NSMutableURLRequest>& request) {
    if (request) request->properties_.erase(key);
}

void NSURLProtocol::initWithRequest(std::shared_ptr<NSURLRequest> request,
                                    std::shared_ptr<NSCachedURLResponse> cachedResponse,
                                    std::shared_ptr<NSURLProtocolClient> client) {
    std::lock_guard lock(mutex_);
    request_ = std::move(request);
    cachedResponse_ = std::move(cachedResponse);
    client_ = std::move(client);
}

void NSURLProtocol::initWithTask(const std::shared_ptr<NSURLSessionTask>& task,
                                 std::shared_ptr<NSCachedURLResponse> cachedResponse,
                                 std::shared_ptr<NSURLProtocolClient> client) {
    setTask(task);
    initWithRequest(task ? task->currentRequest() : nullptr, std::move(cachedResponse), std::move(client));
}

std::shared_ptr<NSURLRequest> NSURLProtocol::request() const {
    std::lock_guard lock(mutex_);
    return request_;
}

std::shared_ptr<NSCachedURLResponse> NSURLProtocol::cachedResponse() const {
    std::lock_guard lock(mutex_);
    return cachedResponse_;
}

std::shared_ptr<NSURLProtocolClient> NSURLProtocol::client() const {
    std::lock_guard lock(mutex_);
    return client_;
}

std::shared_ptr<NSURLSessionTask> NSURLProtocol::task() const {
    std::lock_guard lock(mutex_);
    return task_.lock();
}

void NSURLProtocol::setTask(const std::shared_ptr<NSURLSessionTask>& task) {
    std::lock_guard lock(mutex_);
    task_ = task;
}

}  // namespace platform
