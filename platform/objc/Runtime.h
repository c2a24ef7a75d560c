#pragma once
// The Objective-C runtime stand-in: classes by name, selectors, methods whose implementations can
// be looked up, replaced and exchanged, blocks as implementations, and message sending through
// those tables. Only the methods that may be replaced dispatch through it; every other call is a
// plain C++ virtual call.
#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <typeinfo>
#include <vector>

namespace platform {

class NSObject;
struct objc_class;
struct objc_selector;
struct objc_method;
struct objc_imp;

using Class = objc_class*;
using SEL = const objc_selector*;
using Method = objc_method*;
// The platform's IMP is a bare function pointer; here it is a handle to a typed callable, made by
// imp_makeFunction or imp_implementationWithBlock and called with imp_call or objc_msgSend.
// Implementations live for the process, as on the platform.
using IMP = const objc_imp*;
using BOOL = bool;
constexpr BOOL YES = true;
constexpr BOOL NO = false;

struct objc_imp {
    virtual ~objc_imp() = default;
};

template <class R, class... A>
struct objc_typed_imp final : objc_imp {
    explicit objc_typed_imp(std::function<R(NSObject*, SEL, A...)> f) : fn(std::move(f)) {}
    std::function<R(NSObject*, SEL, A...)> fn;
};

// Selectors are interned: the same name gives the same SEL.
SEL sel_getUid(std::string_view name);
const char* sel_getName(SEL sel);

// Classes. A class is registered under its name the first time it is defined; NSClassFromString
// finds registered classes only (nullptr otherwise).
Class objc_defineClass(std::string_view name, Class superclass);
Class NSClassFromString(std::string_view name);
std::string NSStringFromClass(Class cls);
const char* class_getName(Class cls);
Class class_getSuperclass(Class cls);
bool class_isSubclassOf(Class cls, Class ancestor);  // cls == ancestor counts
Class object_getClass(const NSObject* object);

// Protocols, by name: the exported names of interfaces that hosts implement.
struct objc_protocol;
using Protocol = const objc_protocol*;
Protocol objc_defineProtocol(std::string_view name);
Protocol NSProtocolFromString(std::string_view name);  // nullptr unless defined
const char* protocol_getName(Protocol protocol);

// Methods. class_getInstanceMethod looks through superclasses and gives the method where it is
// defined; nullptr for an unknown selector or a null class.
bool class_addMethod(Class cls, SEL name, IMP imp);
Method class_getInstanceMethod(Class cls, SEL name);
bool class_respondsToSelector(Class cls, SEL name);
// Class methods live in the class's metaclass table, looked up through superclasses the same way.
bool class_addClassMethod(Class cls, SEL name, IMP imp);
Method class_getClassMethod(Class cls, SEL name);
IMP method_getImplementation(Method method);  // nullptr for a null method
SEL method_getName(Method method);
IMP method_setImplementation(Method method, IMP imp);  // gives the old one; does nothing for null
void method_exchangeImplementations(Method a, Method b);  // does nothing if either is null

// Keeps `imp` alive for the process and gives its handle.
IMP objc_retainImplementation(std::unique_ptr<objc_imp> imp);

// An implementation from a function that takes the receiver and the selector, as a method does.
template <class R, class... A>
IMP imp_makeFunction(std::type_identity_t<std::function<R(NSObject*, SEL, A...)>> fn) {
    return objc_retainImplementation(std::make_unique<objc_typed_imp<R, A...>>(std::move(fn)));
}

// An implementation from a block: the block takes the receiver and the arguments, not the selector.
template <class R, class... A>
IMP imp_implementationWithBlock(std::type_identity_t<std::function<R(NSObject*, A...)>> block) {
    return imp_makeFunction<R, A...>(
        [block = std::move(block)](NSObject* self, SEL, A... args) -> R { return block(self, std::forward<A>(args)...); });
}

[[noreturn]] void objc_signatureMismatch(IMP imp, SEL sel, const std::type_info& expected);
[[noreturn]] void objc_unrecognizedSelector(const NSObject* self, SEL sel);

// Calls an implementation as the platform's cast-and-call of an IMP does. The signature must be
// the one the implementation was made with, as on the platform; a mismatch aborts with a message.
template <class R, class... A>
R imp_call(IMP imp, NSObject* self, SEL cmd, A... args) {
    auto typed = dynamic_cast<const objc_typed_imp<R, A...>*>(imp);
    if (typed == nullptr) objc_signatureMismatch(imp, cmd, typeid(objc_typed_imp<R, A...>));
    return typed->fn(self, cmd, std::forward<A>(args)...);
}

// Sends a message: looks the selector up in the receiver's class and its superclasses, and calls
// what is found. An unknown selector aborts, as the platform's "unrecognized selector" does.
template <class R, class... A>
R objc_msgSend(NSObject* self, SEL cmd, A... args) {
    Method m = class_getInstanceMethod(object_getClass(self), cmd);
    if (m == nullptr) objc_unrecognizedSelector(self, cmd);
    return imp_call<R, A...>(method_getImplementation(m), self, cmd, std::forward<A>(args)...);
}

// Sends a message to a class object: looks the selector up among the class methods. The receiver
// handed to the implementation is null; the implementation knows its class.
template <class R, class... A>
R objc_msgSendClass(Class cls, SEL cmd, A... args) {
    Method m = class_getClassMethod(cls, cmd);
    if (m == nullptr) objc_unrecognizedSelector(nullptr, cmd);
    return imp_call<R, A...>(method_getImplementation(m), nullptr, cmd, std::forward<A>(args)...);
}

}  // namespace platform
