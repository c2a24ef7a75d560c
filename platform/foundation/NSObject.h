#pragma once
// The root class. Objects are held by std::shared_ptr (strong) and std::weak_ptr (weak); `id` is a
// strong reference to any object.
#include <cstddef>
#include <memory>
#include <string>

#include "platform/objc/Runtime.h"

// Declares a class to the runtime under the C++ name (or an exported name with the _NAMED form).
// Each class that host code or the library may test with isKindOfClass:, look up by name, or whose
// methods may be replaced, declares itself so.
#define PLATFORM_OBJC_CLASS_NAMED(Self, Super, Name)                                            \
public:                                                                                          \
    static ::platform::Class class_() {                                                          \
        static const ::platform::Class cls = ::platform::objc_defineClass(Name, Super::class_()); \
        return cls;                                                                              \
    }                                                                                            \
    ::platform::Class objcClass() const override { return class_(); }                            \
                                                                                                 \
private:

#define PLATFORM_OBJC_CLASS(Self, Super) PLATFORM_OBJC_CLASS_NAMED(Self, Super, #Self)

namespace platform {

class NSObject;
using id = std::shared_ptr<NSObject>;

class NSObject : public std::enable_shared_from_this<NSObject> {
public:
    NSObject() = default;
    NSObject(const NSObject&) = delete;
    NSObject& operator=(const NSObject&) = delete;
    virtual ~NSObject() = default;

    static Class class_();
    // The object's dynamic class, as object_getClass gives it.
    virtual Class objcClass() const { return class_(); }

    bool isKindOfClass(Class cls) const;
    bool isMemberOfClass(Class cls) const;
    bool respondsToSelector(SEL sel) const;

    virtual bool isEqual(const NSObject* other) const { return this == other; }
    virtual std::size_t hash() const { return reinterpret_cast<std::size_t>(this); }
    virtual std::string description() const;
};

// isEqual: for two possibly-null references.
bool NSObjectsEqual(const id& a, const id& b);

// The object as T when it is one (a kind-of test through the C++ type), else nullptr.
template <class T>
std::shared_ptr<T> objc_cast(const id& object) {
    return std::dynamic_pointer_cast<T>(object);
}

}  // namespace platform
