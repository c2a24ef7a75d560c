#include "platform/objc/Runtime.h"

#include <cstdio>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <unordered_map>

#include "platform/foundation/NSObject.h"

namespace platform {

struct objc_selector {
    std::string name;
};

struct objc_method {
    SEL name;
    std::atomic<IMP> imp;
};

struct objc_class {
    std::string name;
    Class superclass;
    std::unordered_map<SEL, std::unique_ptr<objc_method>> methods;       // guarded by Runtime::mutex
    std::unordered_map<SEL, std::unique_ptr<objc_method>> classMethods;  // guarded by Runtime::mutex
};

struct objc_protocol {
    std::string name;
};

namespace {

// Process-wide tables. Never destroyed: classes, selectors and implementations live for the
// process, as on the platform, and may be used by threads still running at exit.
struct Runtime {
    std::shared_mutex mutex;
    std::unordered_map<std::string, std::unique_ptr<objc_selector>> selectors;  // guarded by mutex
    std::unordered_map<std::string, std::unique_ptr<objc_class>> classes;       // guarded by mutex
    std::unordered_map<std::string, std::unique_ptr<objc_protocol>> protocols;   // guarded by mutex
    std::deque<std::unique_ptr<objc_imp>> implementations;                      // guarded by mutex
};

Runtime& runtime() {
    static Runtime* instance = new Runtime();
    return *instance;
}

}  // namespace

SEL sel_getUid(std::string_view name) {
    Runtime& rt = runtime();
    std::string key(name);
    {
        std::shared_lock lock(rt.mutex);
        if (auto it = rt.selectors.find(key); it != rt.selectors.end()) return it->second.get();
    }
    std::unique_lock lock(rt.mutex);
    auto& slot = rt.selectors[key];
    if (!slot) slot = std::make_unique<objc_selector>(objc_selector{key});
    return slot.get();
}

const char* sel_getName(SEL sel) { return sel ? sel->name.c_str() : "<null selector>"; }

Class objc_defineClass(std::string_view name, Class superclass) {
    Runtime& rt = runtime();
    std::unique_lock lock(rt.mutex);
    auto& slot = rt.classes[std::string(name)];
    if (!slot) slot = std::make_unique<objc_class>(objc_class{std::string(name), superclass, {}, {}});
    return slot.get();
}

Class NSClassFromString(std::string_view name) {
    Runtime& rt = runtime();
    std::shared_lock lock(rt.mutex);
    auto it = rt.classes.find(std::string(name));
    return it == rt.classes.end() ? nullptr : it->second.get();
}

std::string NSStringFromClass(Class cls) { return cls ? cls->name : std::string(); }
const char* class_getName(Class cls) { return cls ? cls->name.c_str() : "nil"; }
Class class_getSuperclass(Class cls) { return cls ? cls->superclass : nullptr; }

bool class_isSubclassOf(Class cls, Class ancestor) {
    for (Class c = cls; c != nullptr; c = c->superclass) {
        if (c == ancestor) return true;
    }
    return false;
}

Class object_getClass(const NSObject* object) { return object ? object->objcClass() : nullptr; }

Protocol objc_defineProtocol(std::string_view name) {
    Runtime& rt = runtime();
    std::unique_lock lock(rt.mutex);
    auto& slot = rt.protocols[std::string(name)];
    if (!slot) slot = std::make_unique<objc_protocol>(objc_protocol{std::string(name)});
    return slot.get();
}

Protocol NSProtocolFromString(std::string_view name) {
    Runtime& rt = runtime();
    std::shared_lock lock(rt.mutex);
    auto it = rt.protocols.find(std::string(name));
    return it == rt.protocols.end() ? nullptr : it->second.get();
}

const char* protocol_getName(Protocol protocol) { return protocol ? protocol->name.c_str() : "nil"; }

namespace {

using MethodTable = std::unordered_map<SEL, std::unique_ptr<objc_method>> objc_class::*;

bool addMethod(Class cls, MethodTable table, SEL name, IMP imp) {
    if (cls == nullptr || name == nullptr) return false;
    Runtime& rt = runtime();
    std::unique_lock lock(rt.mutex);
    auto& slot = (cls->*table)[name];
    if (slot) return false;
    slot = std::make_unique<objc_method>();
    slot->name = name;
    slot->imp.store(imp);
    return true;
}

Method findMethod(Class cls, MethodTable table, SEL name) {
    if (name == nullptr) return nullptr;
    Runtime& rt = runtime();
    std::shared_lock lock(rt.mutex);
    for (Class c = cls; c != nullptr; c = c->superclass) {
        if (auto it = (c->*table).find(name); it != (c->*table).end()) return it->second.get();
    }
    return nullptr;
}

}  // namespace

bool class_addMethod(Class cls, SEL name, IMP imp) { return addMethod(cls, &objc_class::methods, name, imp); }

Method class_getInstanceMethod(Class cls, SEL name) { return findMethod(cls, &objc_class::methods, name); }

bool class_addClassMethod(Class cls, SEL name, IMP imp) {
    return addMethod(cls, &objc_class::classMethods, name, imp);
}

Method class_getClassMethod(Class cls, SEL name) { return findMethod(cls, &objc_class::classMethods, name); }

bool class_respondsToSelector(Class cls, SEL name) { return class_getInstanceMethod(cls, name) != nullptr; }

IMP method_getImplementation(Method method) { return method ? method->imp.load() : nullptr; }
SEL method_getName(Method method) { return method ? method->name : nullptr; }

IMP method_setImplementation(Method method, IMP imp) {
    if (method == nullptr) return nullptr;
    return method->imp.exchange(imp);
}

void method_exchangeImplementations(Method a, Method b) {
    if (a == nullptr || b == nullptr) return;
    // One exchange at a time, so two concurrent exchanges cannot interleave into a lost update.
    static std::mutex exchangeMutex;
    std::lock_guard lock(exchangeMutex);
    IMP first = a->imp.load();
    a->imp.store(b->imp.exchange(first));
}

IMP objc_retainImplementation(std::unique_ptr<objc_imp> imp) {
    Runtime& rt = runtime();
    std::unique_lock lock(rt.mutex);
    rt.implementations.push_back(std::move(imp));
    return rt.implementations.back().get();
}

void objc_signatureMismatch(IMP, SEL sel, const std::type_info& expected) {
    std::fprintf(stderr, "objc runtime: implementation of %s called with the wrong signature (%s)\n",
                 sel_getName(sel), expected.name());
    std::abort();
}

void objc_unrecognizedSelector(const NSObject* self, SEL sel) {
    std::fprintf(stderr, "objc runtime: -[%s %s]: unrecognized selector sent to instance %p\n",
                 class_getName(object_getClass(self)), sel_getName(sel), static_cast<const void*>(self));
    std::abort();
}

}  // namespace platform
