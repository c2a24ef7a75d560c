// The runtime operations the library uses to replace methods of platform classes: lookup by name,
// inherited lookup, exchange and replacement, blocks as implementations, and message sending that
// follows replacements.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "platform/foundation/NSObject.h"

using namespace platform;

namespace {

class Animal : public NSObject {
    PLATFORM_OBJC_CLASS(Animal, NSObject)
public:
    // Dispatches through the runtime, as the platform methods that the library replaces do.
    std::string sound() { return objc_msgSend<std::string>(this, sel_getUid("sound")); }
};

class Dog : public Animal {
    PLATFORM_OBJC_CLASS(Dog, Animal)
};

class Puppy : public Dog {
    PLATFORM_OBJC_CLASS_NAMED(Puppy, Dog, "ZZPuppy")
};

struct RuntimeTest : ::testing::Test {
    static void SetUpTestSuite() {
        class_addMethod(Animal::class_(), sel_getUid("sound"),
                        imp_makeFunction<std::string>([](NSObject*, SEL) { return std::string("..."); }));
        class_addMethod(Dog::class_(), sel_getUid("sound"),
                        imp_makeFunction<std::string>([](NSObject*, SEL) { return std::string("woof"); }));
    }
};

TEST_F(RuntimeTest, ClassesAreFoundByTheirRuntimeNameOnceDefined) {
    EXPECT_EQ(NSClassFromString("Dog"), Dog::class_());
    EXPECT_EQ(NSClassFromString("ZZPuppy"), Puppy::class_());
    EXPECT_EQ(NSClassFromString("Puppy"), nullptr);
    EXPECT_EQ(NSClassFromString("NoSuchClassAnywhere"), nullptr);
    EXPECT_EQ(class_getSuperclass(Puppy::class_()), Dog::class_());
    EXPECT_EQ(NSStringFromClass(Puppy::class_()), "ZZPuppy");
}

TEST_F(RuntimeTest, KindAndMemberTestsFollowTheDynamicClass) {
    auto puppy = std::make_shared<Puppy>();
    NSObject* asObject = puppy.get();
    EXPECT_EQ(object_getClass(asObject), Puppy::class_());
    EXPECT_TRUE(asObject->isKindOfClass(Dog::class_()));
    EXPECT_TRUE(asObject->isKindOfClass(NSObject::class_()));
    EXPECT_TRUE(asObject->isMemberOfClass(Puppy::class_()));
    EXPECT_FALSE(asObject->isMemberOfClass(Dog::class_()));
    EXPECT_FALSE(Dog().isKindOfClass(Puppy::class_()));
}

TEST_F(RuntimeTest, SelectorsAreInterned) {
    EXPECT_EQ(sel_getUid("gestureRecognizer:shouldRequireFailureOfGestureRecognizer:"),
              sel_getUid(std::string("gestureRecognizer:") + "shouldRequireFailureOfGestureRecognizer:"));
    EXPECT_NE(sel_getUid("a"), sel_getUid("b"));
    EXPECT_STREQ(sel_getName(sel_getUid("protocolClasses")), "protocolClasses");
}

TEST_F(RuntimeTest, LookupIsInheritedAndGivesTheDefiningClassesMethod) {
    Method onDog = class_getInstanceMethod(Dog::class_(), sel_getUid("sound"));
    EXPECT_EQ(class_getInstanceMethod(Puppy::class_(), sel_getUid("sound")), onDog);
    EXPECT_NE(class_getInstanceMethod(Animal::class_(), sel_getUid("sound")), onDog);
    EXPECT_EQ(class_getInstanceMethod(Dog::class_(), sel_getUid("fly")), nullptr);
    EXPECT_EQ(class_getInstanceMethod(nullptr, sel_getUid("sound")), nullptr);
    EXPECT_EQ(Puppy().sound(), "woof");
    EXPECT_FALSE(class_addMethod(Dog::class_(), sel_getUid("sound"), method_getImplementation(onDog)));
}

TEST_F(RuntimeTest, ExchangingTwiceRestoresAndMessagesFollowTheExchange) {
    // A category method calling its own selector reaches the original after an exchange.
    class_addMethod(Animal::class_(), sel_getUid("fakeSound"),
                    imp_makeFunction<std::string>([](NSObject* self, SEL) {
                        return "[" + objc_msgSend<std::string>(self, sel_getUid("fakeSound")) + "]";
                    }));
    Method real = class_getInstanceMethod(Dog::class_(), sel_getUid("sound"));
    Method fake = class_getInstanceMethod(Animal::class_(), sel_getUid("fakeSound"));
    Dog dog;
    method_exchangeImplementations(real, fake);
    EXPECT_EQ(dog.sound(), "[woof]");
    EXPECT_EQ(Animal().sound(), "...");  // the superclass keeps its own method
    method_exchangeImplementations(real, fake);
    EXPECT_EQ(dog.sound(), "woof");
    method_exchangeImplementations(real, nullptr);
    EXPECT_EQ(dog.sound(), "woof");
}

TEST_F(RuntimeTest, BlockImplementationCanCallTheImplementationItReplaced) {
    SEL sel = sel_getUid("sound");
    Method m = class_getInstanceMethod(Dog::class_(), sel);
    IMP original = method_getImplementation(m);
    IMP block = imp_implementationWithBlock<std::string>(
        [original, sel](NSObject* self) { return imp_call<std::string>(original, self, sel) + "!"; });
    EXPECT_EQ(method_setImplementation(m, block), original);
    EXPECT_EQ(Dog().sound(), "woof!");
    EXPECT_EQ(method_setImplementation(m, original), block);
    EXPECT_EQ(Dog().sound(), "woof");
    EXPECT_EQ(method_setImplementation(nullptr, block), nullptr);
    EXPECT_EQ(method_getImplementation(nullptr), nullptr);
}

TEST_F(RuntimeTest, MessagesStayValidWhileAnotherThreadSwapsImplementations) {
    SEL sel = sel_getUid("sound");
    Method m = class_getInstanceMethod(Dog::class_(), sel);
    IMP original = method_getImplementation(m);
    IMP other = imp_makeFunction<std::string>([](NSObject*, SEL) { return std::string("bark"); });
    std::atomic<bool> stop{false};
    std::atomic<bool> reading{false};
    std::thread swapper([&] {
        // Swapping before the reader has started would test nothing on a busy machine.
        while (!reading) std::this_thread::yield();
        for (int i = 0; i < 2000; ++i) method_setImplementation(m, i % 2 ? original : other);
        stop = true;
    });
    Dog dog;
    int answers = 0;
    do {
        const std::string s = dog.sound();
        ASSERT_TRUE(s == "woof" || s == "bark") << s;
        ++answers;
        reading = true;
    } while (!stop);
    swapper.join();
    method_setImplementation(m, original);
    EXPECT_GT(answers, 0);
}

using RuntimeDeathTest = RuntimeTest;

TEST_F(RuntimeDeathTest, UnknownSelectorAndWrongSignatureAbortWithTheirNames) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    Dog dog;
    EXPECT_DEATH(objc_msgSend<void>(&dog, sel_getUid("fly")), "unrecognized selector");
    EXPECT_DEATH(objc_msgSend<int>(&dog, sel_getUid("sound")), "wrong signature");
}

}  // namespace

namespace {

TEST_F(RuntimeTest, ClassMethodsAndProtocolsAreFoundByName) {
    EXPECT_EQ(NSProtocolFromString("ZZGreeter"), nullptr);
    Protocol greeter = objc_defineProtocol("ZZGreeter");
    EXPECT_EQ(NSProtocolFromString("ZZGreeter"), greeter);
    EXPECT_STREQ(protocol_getName(greeter), "ZZGreeter");

    SEL make = sel_getUid("dogWithName:");
    class_addClassMethod(Dog::class_(), make,
                         imp_makeFunction<std::string, std::string>([](NSObject*, SEL, std::string name) {
                             return "dog " + name;
                         }));
    EXPECT_EQ(objc_msgSendClass<std::string>(Puppy::class_(), make, std::string("rex")), "dog rex");
    EXPECT_EQ(class_getClassMethod(Animal::class_(), make), nullptr);
    EXPECT_EQ(class_getInstanceMethod(Dog::class_(), make), nullptr);
}

}  // namespace
