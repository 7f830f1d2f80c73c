#include "concurrency/base/intrusive_list.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using namespace Orvane::Internal;

struct OneTag;
struct OtherTag;

struct Item : ListHook<OneTag>, ListHook<OtherTag> {};

using List = IntrusiveList<Item, OneTag>;
using OtherList = IntrusiveList<Item, OtherTag>;

bool IsIn(const Item& item) {
    return static_cast<const ListHook<OneTag>&>(item).IsLinked();
}

void Unlink(Item& item) {
    static_cast<ListHook<OneTag>&>(item).Unlink();
}

// From the front; then takes all from the back, which must be the same.
void ExpectItems(List& list, const std::vector<Item*>& expected) {
    std::vector<Item*> forward;
    for (Item* item = list.Front(); item != nullptr; item = list.Next(*item)) {
        forward.push_back(item);
    }
    EXPECT_EQ(forward, expected);
    EXPECT_EQ(list.IsEmpty(), expected.empty());
    std::vector<Item*> backward;
    while (Item* const item = list.PopBack()) {
        EXPECT_FALSE(IsIn(*item));
        backward.insert(backward.begin(), item);
    }
    EXPECT_EQ(backward, expected);
    EXPECT_TRUE(list.IsEmpty());
}

class IntrusiveListTest : public testing::Test {
  protected:
    Item m_first;
    Item m_second;
    Item m_third;
    List m_list;
};

TEST_F(IntrusiveListTest, IsEmptyAtFirst) {
    EXPECT_TRUE(m_list.IsEmpty());
    EXPECT_EQ(m_list.Front(), nullptr);
    EXPECT_EQ(m_list.Back(), nullptr);
    EXPECT_EQ(m_list.PopFront(), nullptr);
    EXPECT_EQ(m_list.PopBack(), nullptr);
    EXPECT_FALSE(IsIn(m_first));
}

TEST_F(IntrusiveListTest, TakesAtBothEnds) {
    m_list.PushBack(m_second);
    m_list.PushBack(m_third);
    m_list.PushFront(m_first);
    EXPECT_EQ(m_list.Front(), &m_first);
    EXPECT_EQ(m_list.Back(), &m_third);
    EXPECT_TRUE(IsIn(m_first) && IsIn(m_second) && IsIn(m_third));
    ExpectItems(m_list, {&m_first, &m_second, &m_third});

    m_list.PushFront(m_second);
    m_list.PushFront(m_first);
    m_list.PushBack(m_third);
    ExpectItems(m_list, {&m_first, &m_second, &m_third});
}

TEST_F(IntrusiveListTest, GivesFromBothEnds) {
    m_list.PushBack(m_first);
    m_list.PushBack(m_second);
    m_list.PushBack(m_third);
    EXPECT_EQ(m_list.PopFront(), &m_first);
    EXPECT_FALSE(IsIn(m_first));
    EXPECT_EQ(m_list.PopBack(), &m_third);
    EXPECT_EQ(m_list.Front(), &m_second);
    EXPECT_EQ(m_list.Back(), &m_second);
    EXPECT_EQ(m_list.PopFront(), &m_second);
    EXPECT_TRUE(m_list.IsEmpty());
}

TEST_F(IntrusiveListTest, IsLeftByEachObjectAndByOneThatIsInNoList) {
    m_list.PushBack(m_first);
    m_list.PushBack(m_second);
    m_list.PushBack(m_third);
    Unlink(m_second);
    Unlink(m_second);
    EXPECT_FALSE(IsIn(m_second));
    EXPECT_EQ(m_list.Next(m_first), &m_third);
    EXPECT_EQ(m_list.Next(m_third), nullptr);
    ExpectItems(m_list, {&m_first, &m_third});
}

TEST_F(IntrusiveListTest, TakesAllOfAnotherOneToItsEnd) {
    List other;
    m_list.PushBack(m_first);
    m_list.TakeAll(other);
    other.PushBack(m_second);
    other.PushBack(m_third);
    m_list.TakeAll(other);
    EXPECT_TRUE(other.IsEmpty());
    EXPECT_EQ(m_list.Back(), &m_third);
    ExpectItems(m_list, {&m_first, &m_second, &m_third});

    other.PushBack(m_first);
    m_list.TakeAll(other);
    ExpectItems(m_list, {&m_first});
    ExpectItems(other, {});
}

TEST_F(IntrusiveListTest, HasNothingToDoWithAnotherTagsList) {
    OtherList other;
    m_list.PushBack(m_first);
    other.PushBack(m_second);
    other.PushBack(m_first);
    Unlink(m_first);
    EXPECT_TRUE(m_list.IsEmpty());
    EXPECT_EQ(other.PopFront(), &m_second);
    EXPECT_EQ(other.PopFront(), &m_first);
    EXPECT_EQ(other.PopFront(), nullptr);
}

}  // namespace
