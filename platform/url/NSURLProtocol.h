#pragma once
// URL protocols: the classes that load the URLs of a scheme, chosen per task by the URL loading
// system, and the base of custom ones.
//
// A Class is a runtime handle, which has no C++ static methods, so each subclass T is entered in a
// class-side table with NSURLProtocol::registerSubclass<T>(): T's static canInitWithRequest,
// canInitWithTask (when T declares one) and canonicalRequestForRequest, and a factory for T. The
// class* helpers below call them for a Class. A subclass declares itself with
// PLATFORM_OBJC_CLASS(T, NSURLProtocol) and has a default constructor.
//
// Threads: the loading system calls the class methods, the init methods, startLoading and
// stopLoading on its loader thread. A protocol reports to its client from any thread.
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <type_traits>
#include <vector>

#include "platform/foundation/NSObject.h"
#include "platform/url/NSCachedURLResponse.h"
#include "platform/url/NSMutableURLRequest.h"
#include "platform/url/NSURLProtocolClient.h"
#include "platform/url/NSURLRequest.h"

namespace platform {

class NSURLSessionTask;
class NSURLProtocol;

// The class side of one protocol class.
struct NSURLProtocolClassMethods {
    std::function<bool(const std::shared_ptr<NSURLRequest>&)> canInitWithRequest;
    // Empty when the class has no canInitWithTask of its own: canInitWithRequest then decides on
    // the task's current request, and instances are made with initWithRequest.
    std::function<bool(const std::shared_ptr<NSURLSessionTask>&)> canInitWithTask;
    std::function<std::shared_ptr<NSURLRequest>(const std::shared_ptr<NSURLRequest>&)>
        canonicalRequestForRequest;
    std::function<std::shared_ptr<NSURLProtocol>()> make;
};

class NSURLProtocol : public virtual NSObject {
    PLATFORM_OBJC_CLASS(NSURLProtocol, NSObject)
public:
    NSURLProtocol() = default;

    // ---- Class side: the defaults a subclass hides with static functions of the same names.
    static bool canInitWithRequest(const std::shared_ptr<NSURLRequest>& request);  // NO
    // The subclass's canInitWithRequest: on the task's current request.
    static bool canInitWithTask(const std::shared_ptr<NSURLSessionTask>& task);
    static std::shared_ptr<NSURLRequest> canonicalRequestForRequest(
        const std::shared_ptr<NSURLRequest>& request);

    // Enters T in the class-side table (once) and gives its Class.
    template <class T>
    static Class registerSubclass();
    static void registerClassMethods(Class cls, NSURLProtocolClassMethods methods);

    // The class-side calls for a Class; a class not in the table cannot init anything.
    static bool classCanInitWithRequest(Class cls, const std::shared_ptr<NSURLRequest>& request);
    static bool classCanInitWithTask(Class cls, const std::shared_ptr<NSURLSessionTask>& task);
    static std::shared_ptr<NSURLRequest> classCanonicalRequestForRequest(
        Class cls, const std::shared_ptr<NSURLRequest>& request);
    // A new instance of `cls` for `task`, initialised as the loading system does: with
    // initWithTask when the class decides on tasks, else with initWithRequest on `request`.
    // nullptr for a class not in the table.
    static std::shared_ptr<NSURLProtocol> classMakeInstance(
        Class cls, const std::shared_ptr<NSURLSessionTask>& task,
        const std::shared_ptr<NSURLRequest>& request,
        const std::shared_ptr<NSCachedURLResponse>& cachedResponse,
        const std::shared_ptr<NSURLProtocolClient>& client);

    // The classes the loading system tries after a session's own, most recently registered first.
    // registerClass is NO for a class that is no NSURLProtocol subclass in the table.
    static bool registerClass(Class cls);
    static void unregisterClass(Class cls);
    static std::vector<Class> registeredClasses();

    // Properties a protocol keeps on a request; copies of the request carry them.
    static id propertyForKey(const std::string& key, const std::shared_ptr<NSURLRequest>& request);
    static void setProperty(id value, const std::string& key,
                            const std::shared_ptr<NSMutableURLRequest>& request);
    static void removePropertyForKey(const std::string& key,
                                     const std::shared_ptr<NSMutableURLRequest>& request);

    // ---- Instance side. Overrides of the init methods call the base's.
    virtual void initWithRequest(std::shared_ptr<NSURLRequest> request,
                                 std::shared_ptr<NSCachedURLResponse> cachedResponse,
                                 std::shared_ptr<NSURLProtocolClient> client);
    // Remembers the task and calls initWithRequest with its current request.
    virtual void initWithTask(const std::shared_ptr<NSURLSessionTask>& task,
                              std::shared_ptr<NSCachedURLResponse> cachedResponse,
                              std::shared_ptr<NSURLProtocolClient> client);
    virtual void startLoading() {}
    virtual void stopLoading() {}

    std::shared_ptr<NSURLRequest> request() const;
    std::shared_ptr<NSCachedURLResponse> cachedResponse() const;
    std::shared_ptr<NSURLProtocolClient> client() const;
    // The task being loaded; nullptr once it is gone (the protocol does not keep it alive).
    std::shared_ptr<NSURLSessionTask> task() const;

private:
    void setTask(const std::shared_ptr<NSURLSessionTask>& task);

    mutable std::mutex mutex_;
    std::shared_ptr<NSURLRequest> request_;                // guarded by mutex_
    std::shared_ptr<NSCachedURLResponse> cachedResponse_;  // guarded by mutex_
    std::shared_ptr<NSURLProtocolClient> client_;          // guarded by mutex_
    std::weak_ptr<NSURLSessionTask> task_;                 // guarded by mutex_
};

template <class T>
Class NSURLProtocol::registerSubclass() {
    static_assert(std::is_base_of_v<NSURLProtocol, T>, "registerSubclass needs an NSURLProtocol subclass");
    static const Class cls = [] {
        NSURLProtocolClassMethods methods;
        methods.canInitWithRequest = [](const std::shared_ptr<NSURLRequest>& r) {
            return T::canInitWithRequest(r);
        };
        if (&T::canInitWithTask != &NSURLProtocol::canInitWithTask) {
            methods.canInitWithTask = [](const std::shared_ptr<NSURLSessionTask>& t) {
                return T::canInitWithTask(t);
            };
        }
        methods.canonicalRequestForRequest = [](const std::shared_ptr<NSURLRequest>& r) {
            return T::canonicalRequestForRequest(r);
        };
        methods.make = [] { return std::shared_ptr<NSURLProtocol>(std::make_shared<T>()); };
        registerClassMethods(T::class_(), std::move(methods));
        return T::class_();
    }();
    return cls;
}

}  // namespace platform
