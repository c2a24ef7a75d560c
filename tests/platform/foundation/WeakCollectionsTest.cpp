// Weak hash and map tables: members compare by identity, and entries leave when their object dies.
#include <gtest/gtest.h>

#include "platform/foundation/NSHashTable.h"
#include "platform/foundation/NSMapTable.h"
#include "platform/foundation/NSString.h"

using namespace platform;

namespace {

TEST(NSHashTable, HoldsMembersWeaklyByIdentity) {
    auto table = NSHashTable<NSString>::weakObjectsHashTable();
    auto a = NSStr("same");
    auto b = NSStr("same");  // equal to a, yet another member
    table->addObject(a);
    table->addObject(b);
    table->addObject(a);
    EXPECT_EQ(table->count(), 2u);
    EXPECT_FALSE(table->containsObject(NSStr("same")));
    for (int i = 0; i < 1000; ++i) table->addObject(NSStr("dies at once"));

    std::weak_ptr<NSString> watchA = a;
    a.reset();
    EXPECT_TRUE(watchA.expired()) << "the table must not keep members alive";
    EXPECT_EQ(table->count(), 1u);
    EXPECT_EQ(table->allObjects(), std::vector<std::shared_ptr<NSString>>{b});
    table->removeObject(b);
    EXPECT_EQ(table->count(), 0u);
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

TEST(NSMapTable, MapsLiveKeysByIdentityAndDropsTheEntryOfADeadKeyWithItsValue) {
    auto table = NSMapTable<NSObject, NSObject>::weakToStrongObjectsMapTable();
    auto k1 = NSStr("key");
    auto k2 = NSStr("key");
    auto kept = NSStr("kept");
    table->setObjectForKey(NSStr("one"), k1);
    table->setObjectForKey(kept, k2);
    EXPECT_EQ(table->objectForKey(NSStr("key")), nullptr);
    EXPECT_EQ(table->objectForKey(k2), kept);

    auto other = std::make_shared<NSObject>();
    auto value = std::make_shared<NSObject>();
    std::weak_ptr<NSObject> watchValue = value;
    table->setObjectForKey(std::move(value), other);
    table->setObjectForKey(std::make_shared<Unregistering>(*table, other), k1);  // replaces "one"
    k1.reset();
    // The sweep releasing k1's value lets that value remove `other` from the same table.
    EXPECT_EQ(table->count(), 1u);
    EXPECT_TRUE(watchValue.expired()) << "values of gone entries are released";
    EXPECT_EQ(table->objectForKey(k2), kept);
}

}  // namespace
