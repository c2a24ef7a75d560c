// Weak hash and map tables: members compare by identity, and entries leave when their object dies.
#include <gtest/gtest.h>

#include <algorithm>

#include "platform/foundation/NSHashTable.h"
#include "platform/foundation/NSMapTable.h"
#include "platform/foundation/NSString.h"

using namespace platform;

namespace {

TEST(NSHashTable, HoldsMembersWeaklyByIdentity) {
    auto table = NSHashTable<NSString>::weakObjectsHashTable();
    auto a = NSStr("same");
    auto b = NSStr("same");  // equal to a, yet another member
    auto c = NSStr("other");
    table->addObject(a);
    table->addObject(b);
    table->addObject(c);
    table->addObject(a);
    EXPECT_EQ(table->count(), 3u);
    EXPECT_TRUE(table->containsObject(b));
    EXPECT_FALSE(table->containsObject(NSStr("same")));

    std::weak_ptr<NSString> watchA = a;
    a.reset();
    EXPECT_TRUE(watchA.expired()) << "the table must not keep members alive";
    EXPECT_EQ(table->count(), 2u);
    auto live = table->allObjects();
    ASSERT_EQ(live.size(), 2u);
    EXPECT_TRUE(std::count(live.begin(), live.end(), b) == 1 && std::count(live.begin(), live.end(), c) == 1);

    table->removeObject(b);
    EXPECT_FALSE(table->containsObject(b));
    EXPECT_EQ(table->count(), 1u);
}

TEST(NSHashTable, ManyReleasedMembersLeaveNoEntries) {
    auto table = NSHashTable<NSObject>::weakObjectsHashTable();
    auto keeper = std::make_shared<NSObject>();
    table->addObject(keeper);
    for (int i = 0; i < 1000; ++i) table->addObject(std::make_shared<NSObject>());  // each dies at once
    EXPECT_EQ(table->count(), 1u);
    EXPECT_EQ(table->allObjects(), std::vector<std::shared_ptr<NSObject>>{keeper});
}

TEST(NSMapTable, MapsLiveKeysByIdentityToStrongValues) {
    auto table = NSMapTable<NSString, NSString>::weakToStrongObjectsMapTable();
    auto k1 = NSStr("key");
    auto k2 = NSStr("key");
    table->setObjectForKey(NSStr("one"), k1);
    table->setObjectForKey(NSStr("two"), k2);
    EXPECT_EQ(table->count(), 2u);
    EXPECT_EQ(table->objectForKey(k1)->UTF8String(), "one");
    EXPECT_EQ(table->objectForKey(k2)->UTF8String(), "two");
    EXPECT_EQ(table->objectForKey(NSStr("key")), nullptr);

    auto replaced = NSStr("first");
    std::weak_ptr<NSString> watchReplaced = replaced;
    table->setObjectForKey(std::move(replaced), k1);
    table->setObjectForKey(NSStr("second"), k1);
    EXPECT_TRUE(watchReplaced.expired()) << "a replaced value is released";
    EXPECT_EQ(table->objectForKey(k1)->UTF8String(), "second");

    table->setObjectForKey(nullptr, k2);
    EXPECT_EQ(table->objectForKey(k2), nullptr);
    EXPECT_EQ(table->count(), 1u);
}

TEST(NSMapTable, EntryOfAReleasedKeyDisappearsWithItsValue) {
    auto table = NSMapTable<NSObject, NSString>::weakToStrongObjectsMapTable();
    auto key = std::make_shared<NSObject>();
    auto survivor = std::make_shared<NSObject>();
    auto value = NSStr("payload");
    std::weak_ptr<NSString> watchValue = value;
    table->setObjectForKey(std::move(value), key);
    table->setObjectForKey(NSStr("kept"), survivor);

    key.reset();
    EXPECT_EQ(table->count(), 1u);
    EXPECT_TRUE(watchValue.expired()) << "the value of a dead key is released once the table notices";
    EXPECT_EQ(table->objectForKey(survivor)->UTF8String(), "kept");
}

// A value whose destructor uses the table, as an observer record that unregisters itself would.
class Unregistering : public NSObject {
public:
    Unregistering(NSMapTable<NSObject, NSObject>& table, std::shared_ptr<NSObject> other)
        : table_(table), other_(std::move(other)) {}
    ~Unregistering() override { table_.removeObjectForKey(other_); }

private:
    NSMapTable<NSObject, NSObject>& table_;
    std::shared_ptr<NSObject> other_;
};

TEST(NSMapTable, ValueReleasedDuringASweepMayUseTheTable) {
    auto table = NSMapTable<NSObject, NSObject>::weakToStrongObjectsMapTable();
    auto dying = std::make_shared<NSObject>();
    auto other = std::make_shared<NSObject>();
    table->setObjectForKey(std::make_shared<NSObject>(), other);
    table->setObjectForKey(std::make_shared<Unregistering>(*table, other), dying);
    dying.reset();
    EXPECT_EQ(table->count(), 0u);
    EXPECT_EQ(table->objectForKey(other), nullptr);
}

}  // namespace
