#include <cerrno>
#include <cstdint>
#include <gtest/gtest.h>
#include <string>

#include "conf/ConfStore.h"
#include "tests/conf/RecordedLog.h"
#include "tests/lib/FailingNew.h"
#include "tests/lib/Faults.h"

namespace
{

class ConfStoreTest : public ::testing::Test
{
protected:
    ConfStoreTest() { errno = 0; }

    faults::Guard guard_;
    RecordedLog log_;
};

using ConfStoreGrowth = ConfStoreTest;
using ConfStoreWithoutMemory = ConfStoreTest;

/// A name for each number, in no particular order: "N7", "N38", "N69", "N0" ...
std::string nameOf(size_t number)
{
    return "N" + std::to_string((number * 31 + 7) % 101);
}

void fill(ConfStore& store, size_t count)
{
    for (size_t number = store.count(); number < count; ++number) {
        ASSERT_TRUE(store.insert(nameOf(number), "value of " + nameOf(number)));
    }
}

/// Fails the first allocation of an insertion, then the second and so on until it goes well.
int failuresBeforeInserted(
    ConfStore& store, const char* name, FailingNew::Error error = FailingNew::Error::memory)
{
    const size_t count = store.count();
    int failures = 0;
    for (bool inserted = false; !inserted; failures += inserted ? 0 : 1) {
        errno = 0;
        {
            const FailingNew failing(failures + 1, error);
            inserted = store.insert(name, "new");
        }
        EXPECT_EQ(errno, inserted ? 0 : ENOMEM);
        EXPECT_EQ(RecordedLog::take(),
            inserted ? "" : "12|Unable to form configuration: Cannot allocate memory|\n");
        EXPECT_EQ(store.count(), inserted ? count + 1 : count);
    }
    return failures;
}

} // namespace

TEST(NextCapacity, IsTheSameWhileThereIsRoom)
{
    EXPECT_EQ(nextCapacity(20, 0), 20);
    EXPECT_EQ(nextCapacity(20, 19), 20);
}

TEST(NextCapacity, Is20ForAnEmptyStore)
{
    EXPECT_EQ(nextCapacity(0, 0), 20);
}

TEST(NextCapacity, IsTheDoubleOnceTheStoreIsFull)
{
    EXPECT_EQ(nextCapacity(20, 20), 40);
    EXPECT_EQ(nextCapacity(40, 40), 80);
    EXPECT_EQ(nextCapacity(1, 1), 2);
    EXPECT_EQ(nextCapacity(3, 5), 6);
}

TEST(NextCapacity, Is20AboveTheCountWhereTheDoubleDoesNotExceedIt)
{
    EXPECT_EQ(nextCapacity(3, 6), 26);
    EXPECT_EQ(nextCapacity(0, 5), 25);
}

TEST(NextCapacity, IsRefusedFrom0x1fffffffPairsOn)
{
    EXPECT_EQ(nextCapacity(0x0fffffff, 0x0fffffff), 0x1ffffffe);
    EXPECT_EQ(nextCapacity(0x10000000, 0x10000000), std::nullopt);
    EXPECT_EQ(nextCapacity(0, 0x1fffffff - 21), 0x1ffffffe);
    EXPECT_EQ(nextCapacity(0, 0x1fffffff - 20), std::nullopt);
    EXPECT_EQ(nextCapacity(0x1fffffff, 0x1fffffff), std::nullopt);
}

TEST(NextCapacity, DoesNotOverflow)
{
    EXPECT_EQ(nextCapacity(SIZE_MAX / 2 + 1, SIZE_MAX / 2 + 1), std::nullopt);
    EXPECT_EQ(nextCapacity(0, SIZE_MAX - 5), std::nullopt);
    EXPECT_EQ(nextCapacity(SIZE_MAX, SIZE_MAX), std::nullopt);
}

TEST_F(ConfStoreTest, StartsEmptyAndSorted)
{
    const ConfStore store;
    EXPECT_EQ(store.count(), 0U);
    EXPECT_EQ(store.capacity(), 0U);
    EXPECT_TRUE(store.sorted());
    EXPECT_EQ(store.find("A"), nullptr);
}

TEST_F(ConfStoreTest, SortsNothingInAnEmptyStore)
{
    ConfStore store;
    store.sort();
    EXPECT_TRUE(store.sorted());
    EXPECT_EQ(store.find("A"), nullptr);
}

TEST_F(ConfStoreTest, FindsWhatWasInsertedBeforeAndAfterSorting)
{
    ConfStore store;
    fill(store, 101);
    for (int round = 0; round < 2; ++round) {
        for (size_t number = 0; number < 101; ++number) {
            EXPECT_EQ(store.find(nameOf(number).c_str()), "value of " + nameOf(number));
        }
        EXPECT_EQ(store.find("N"), nullptr);
        EXPECT_EQ(store.find("N101"), nullptr);
        EXPECT_EQ(store.find("A"), nullptr);
        EXPECT_EQ(store.find("Z"), nullptr);
        EXPECT_EQ(store.find(""), nullptr);
        store.sort();
        EXPECT_TRUE(store.sorted());
    }
}

TEST_F(ConfStoreTest, TellsNamesApartByCase)
{
    ConfStore store;
    ASSERT_TRUE(store.insert("name", "lower"));
    ASSERT_TRUE(store.insert("NAME", "upper"));
    for (int round = 0; round < 2; ++round) {
        EXPECT_STREQ(store.find("name"), "lower");
        EXPECT_STREQ(store.find("NAME"), "upper");
        EXPECT_EQ(store.find("Name"), nullptr);
        store.sort();
    }
}

TEST_F(ConfStoreTest, KeepsCopiesOfItsOwn)
{
    ConfStore store;
    std::string name = "NAME and more";
    std::string value = "value and more";
    ASSERT_TRUE(store.insert({name.data(), 4}, {value.data(), 5}));
    name.assign(name.size(), 'x');
    value.assign(value.size(), 'x');
    EXPECT_STREQ(store.find("NAME"), "value");
}

TEST_F(ConfStoreTest, EndsAValueAtItsFirstNul)
{
    ConfStore store;
    ASSERT_TRUE(store.insert("A", std::string_view("a\0b", 3)));
    EXPECT_STREQ(store.find("A"), "a");
}

TEST_F(ConfStoreTest, ClearsTheSortedFlagForANewName)
{
    ConfStore store;
    ASSERT_TRUE(store.insert("A", "1"));
    EXPECT_FALSE(store.sorted());
    store.sort();
    ASSERT_TRUE(store.insert("B", "2"));
    EXPECT_FALSE(store.sorted());
    EXPECT_STREQ(store.find("B"), "2");
}

TEST_F(ConfStoreTest, GivesAKnownNameItsLastValueAndStaysAsItWasOtherwise)
{
    ConfStore store;
    fill(store, 3);
    store.sort();
    ASSERT_TRUE(store.insert(nameOf(1), "new"));
    EXPECT_TRUE(store.sorted());
    EXPECT_EQ(store.count(), 3U);
    EXPECT_STREQ(store.find(nameOf(1).c_str()), "new");
    EXPECT_EQ(store.find(nameOf(2).c_str()), "value of " + nameOf(2));
}

TEST_F(ConfStoreGrowth, Takes20ThenTheDoubleEachTime)
{
    ConfStore store;
    const auto capacityAt = [&store](size_t count) {
        fill(store, count);
        return store.capacity();
    };
    EXPECT_EQ(capacityAt(1), 20U);
    EXPECT_EQ(capacityAt(20), 20U);
    EXPECT_EQ(capacityAt(21), 40U);
    EXPECT_EQ(capacityAt(40), 40U);
    EXPECT_EQ(capacityAt(41), 80U);
}

TEST_F(ConfStoreGrowth, ComesBeforeTheLookForAKnownName)
{
    ConfStore store;
    fill(store, 20);
    ASSERT_TRUE(store.insert(nameOf(3), "new"));
    EXPECT_EQ(store.capacity(), 40U);
    EXPECT_EQ(store.count(), 20U);
}

TEST_F(ConfStoreGrowth, LetsTheLastValueWinAcrossIt)
{
    ConfStore store;
    fill(store, 20);
    ASSERT_TRUE(store.insert("LATE", "first"));
    fill(store, 41);
    EXPECT_EQ(store.capacity(), 80U);
    ASSERT_TRUE(store.insert("LATE", "last"));
    ASSERT_TRUE(store.insert(nameOf(0), "last too"));
    EXPECT_STREQ(store.find("LATE"), "last");
    EXPECT_STREQ(store.find(nameOf(0).c_str()), "last too");
    EXPECT_EQ(store.count(), 41U);
}

TEST_F(ConfStoreGrowth, LeavesFoundValuesWhereTheyAre)
{
    ConfStore store;
    fill(store, 20);
    const char* const value = store.find(nameOf(5).c_str());
    fill(store, 100);
    store.sort();
    EXPECT_EQ(store.find(nameOf(5).c_str()), value);
}

TEST_F(ConfStoreGrowth, IsLoggedAndLeavesTheErrorWhenItIsRefused)
{
    ConfStore store(40);
    fill(store, 20);
    errno = 0;
    EXPECT_FALSE(store.insert("ONE_TOO_MANY", "x"));
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(log_.take(), "12|Unable to read configuration: Cannot allocate memory|\n");
    EXPECT_EQ(store.count(), 20U);
    EXPECT_EQ(store.find("ONE_TOO_MANY"), nullptr);
}

TEST_F(ConfStoreGrowth, IsNotRefusedBelowTheLimit)
{
    ConfStore store(41);
    fill(store, 40);
    EXPECT_EQ(store.capacity(), 40U);
    EXPECT_EQ(log_.take(), "");
}

TEST_F(ConfStoreWithoutMemory, LogsAGrowthThatFails)
{
    ConfStore store;
    fill(store, 20);
    errno = 0;
    {
        const FailingNew failing;
        EXPECT_FALSE(store.insert("N", "x"));
    }
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(log_.take(), "12|Unable to read configuration: Cannot allocate memory|\n");
    EXPECT_EQ(store.count(), 20U);
    EXPECT_EQ(store.find(nameOf(19).c_str()), "value of " + nameOf(19));
}

TEST_F(ConfStoreWithoutMemory, SaysNothingWhenTheFirstPairsAreNotToBeHad)
{
    ConfStore store;
    {
        const FailingNew failing;
        EXPECT_FALSE(store.makeRoom());
    }
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(log_.take(), "");
    errno = 0;
    {
        const FailingNew failing;
        EXPECT_FALSE(store.insert("A", "x"));
    }
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(log_.take(), "");
    EXPECT_EQ(store.capacity(), 0U);
}

TEST_F(ConfStoreWithoutMemory, LogsACopyOfNameOrValueThatFailsAndKeepsThePairs)
{
    ConfStore store;
    ASSERT_TRUE(store.insert("A", "old"));
    for (const int nth : {1, 2}) {
        for (const char* name : {"A", "B"}) {
            errno = 0;
            faults::fail("malloc", ENOMEM, nth);
            EXPECT_FALSE(store.insert(name, "new"));
            EXPECT_EQ(errno, ENOMEM);
            EXPECT_EQ(log_.take(), "12|Unable to form configuration: Cannot allocate memory|\n");
            EXPECT_STREQ(store.find("A"), "old");
            EXPECT_EQ(store.find("B"), nullptr);
            EXPECT_EQ(store.count(), 1U);
        }
    }
}

TEST_F(ConfStoreWithoutMemory, LogsAnInsertionThatFailsElsewhereAndKeepsThePairs)
{
    ConfStore store;
    fill(store, 3);
    EXPECT_GT(failuresBeforeInserted(store, "A"), 0);
    store.sort();
    EXPECT_GT(failuresBeforeInserted(store, "B"), 0);
    EXPECT_STREQ(store.find("A"), "new");
    EXPECT_STREQ(store.find("B"), "new");
    for (size_t number = 0; number < 3; ++number) {
        EXPECT_EQ(store.find(nameOf(number).c_str()), "value of " + nameOf(number));
        ASSERT_TRUE(store.insert(nameOf(number), "known"));
    }
    EXPECT_EQ(store.count(), 5U);
}

TEST_F(ConfStoreWithoutMemory, TakesAContainersOwnLimitForALackOfMemory)
{
    ConfStore store;
    {
        const FailingNew failing(1, FailingNew::Error::length);
        EXPECT_FALSE(store.makeRoom());
    }
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(log_.take(), "");
    fill(store, 3);
    EXPECT_GT(failuresBeforeInserted(store, "A", FailingNew::Error::length), 0);
    EXPECT_STREQ(store.find("A"), "new");
}

TEST_F(ConfStoreTest, KnowsItsNamesAgainAfterSorting)
{
    ConfStore store;
    fill(store, 50);
    store.sort();
    for (size_t number = 0; number < 50; ++number) {
        ASSERT_TRUE(store.insert(nameOf(number), "new value of " + nameOf(number)));
    }
    EXPECT_EQ(store.count(), 50U);
    EXPECT_TRUE(store.sorted());
    for (size_t number = 0; number < 50; ++number) {
        EXPECT_EQ(store.find(nameOf(number).c_str()), "new value of " + nameOf(number));
    }
}
