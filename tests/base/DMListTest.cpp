// The class library's linked list: links stay consistent and owned items are freed exactly once.
#include <gtest/gtest.h>

#include <vector>

#include "base/DMList.h"

namespace {

// Items are heap ints; the destroy callback records each value it frees.
std::vector<int> g_destroyed;
const DMList* g_pWatched = nullptr;
std::vector<unsigned> g_countSeenByDestroy;

void DestroyInt(void* p)
{
    if (g_pWatched)
        g_countSeenByDestroy.push_back(g_pWatched->GetCount());
    g_destroyed.push_back(p ? *(int*)p : -1);
    delete (int*)p;
}

struct DMListTest : ::testing::Test {
    void SetUp() override
    {
        g_destroyed.clear();
        g_countSeenByDestroy.clear();
        g_pWatched = nullptr;
    }
    void TearDown() override { g_pWatched = nullptr; }
};

// Walks the list both ways and checks it holds exactly `want`, with head, tail and count agreeing.
void ExpectItems(const DMList& list, const std::vector<int>& want)
{
    std::vector<int> fwd, back;
    for (DMPos pos = list.GetHeadPosition(); pos && fwd.size() <= want.size();)
        fwd.push_back(*(int*)list.GetNext(pos));
    for (DMPos pos = list.GetTailPosition(); pos && back.size() <= want.size();)
        back.insert(back.begin(), *(int*)list.GetPrev(pos));
    EXPECT_EQ(fwd, want) << "forward walk";
    EXPECT_EQ(back, want) << "backward walk";
    EXPECT_EQ(list.GetCount(), want.size());
    EXPECT_EQ(list.IsEmpty() != 0, want.empty());
    if (want.empty()) {
        EXPECT_EQ(list.GetHeadPosition(), nullptr);
        EXPECT_EQ(list.GetTailPosition(), nullptr);
    } else {
        ASSERT_NE(list.GetHeadPosition(), nullptr);
        ASSERT_NE(list.GetTailPosition(), nullptr);
        EXPECT_EQ(list.GetHeadPosition()->pPrev, nullptr);
        EXPECT_EQ(list.GetTailPosition()->pNext, nullptr);
    }
}

TEST_F(DMListTest, AddsAndInsertsInOrder)
{
    DMList list(DestroyInt);
    ExpectItems(list, {});
    DMPos p2 = list.AddTail(new int(2));
    list.AddHead(new int(1));
    DMPos p4 = list.AddTail(new int(4));
    ASSERT_NE(p2, nullptr);
    DMPos p3 = list.InsertAfter(p2, new int(3));
    list.InsertAfter(p4, new int(5));     // after the tail: the new tail
    list.InsertAfter(nullptr, new int(6)); // after nothing: appended
    ExpectItems(list, {1, 2, 3, 4, 5, 6});
    EXPECT_EQ(*(int*)list.GetAt(p3), 3);
    EXPECT_EQ(list.GetAt(nullptr), nullptr);

    EXPECT_EQ(list.FindIndex(0), list.GetHeadPosition());
    EXPECT_EQ(list.FindIndex(2), p3);
    EXPECT_EQ(list.FindIndex(5), list.GetTailPosition());
    EXPECT_EQ(list.FindIndex(6), nullptr);
    EXPECT_EQ(list.Find(list.GetAt(p4)), p4);
    int other = 4;
    EXPECT_EQ(list.Find(&other), nullptr) << "Find compares item pointers, not values";

    DMList empty;
    DMPos only = empty.InsertAfter(nullptr, &other);
    ASSERT_NE(only, nullptr);
    EXPECT_EQ(empty.GetHeadPosition(), only);
    EXPECT_EQ(empty.GetTailPosition(), only);
    EXPECT_TRUE(g_destroyed.empty());
}

TEST_F(DMListTest, RemoveAtHeadMiddleTailKeepsLinksAndDestroysOnce)
{
    DMList list(DestroyInt);
    std::vector<DMPos> pos;
    for (int i = 1; i <= 5; ++i)
        pos.push_back(list.AddTail(new int(i)));

    list.RemoveAt(pos[2]); // middle
    ExpectItems(list, {1, 2, 4, 5});
    EXPECT_EQ(g_destroyed, std::vector<int>({3}));

    list.RemoveAt(pos[0]); // head
    ExpectItems(list, {2, 4, 5});
    list.RemoveAt(pos[4]); // tail
    ExpectItems(list, {2, 4});
    EXPECT_EQ(g_destroyed, std::vector<int>({3, 1, 5}));

    list.RemoveAt(nullptr);
    ExpectItems(list, {2, 4});

    // New nodes link correctly to what is left after the removals.
    list.AddHead(new int(0));
    list.AddTail(new int(9));
    list.InsertAfter(pos[1], new int(3));
    ExpectItems(list, {0, 2, 3, 4, 9});

    list.RemoveAt(pos[1]);
    list.RemoveAt(pos[3]);
    ExpectItems(list, {0, 3, 9});
    list.RemoveAt(list.GetHeadPosition());
    list.RemoveAt(list.GetHeadPosition());
    list.RemoveAt(list.GetHeadPosition()); // the last node: head and tail both go
    ExpectItems(list, {});
    EXPECT_EQ(g_destroyed, std::vector<int>({3, 1, 5, 2, 4, 0, 3, 9}));
}

TEST_F(DMListTest, RemoveAllAndDestructorDestroyEachItemOnce)
{
    {
        DMList list(DestroyInt);
        for (int i = 1; i <= 3; ++i)
            list.AddTail(new int(i));
        list.AddTail(nullptr); // a null item still reaches the callback
        g_pWatched = &list;
        list.RemoveAll();
        g_pWatched = nullptr;
        ExpectItems(list, {});
        EXPECT_EQ(g_destroyed, std::vector<int>({1, 2, 3, -1}));
        EXPECT_EQ(g_countSeenByDestroy, std::vector<unsigned>({0, 0, 0, 0})) << "items are freed after the list is emptied";

        list.AddTail(new int(7));
        list.AddHead(new int(6));
    } // the destructor frees what is left, and nothing removed before
    EXPECT_EQ(g_destroyed, std::vector<int>({1, 2, 3, -1, 6, 7}));

    // SetAt hands the old item back to the caller instead of destroying it.
    g_destroyed.clear();
    int* kept = new int(1);
    {
        DMList list(DestroyInt);
        DMPos p = list.AddTail(kept);
        list.SetAt(p, new int(2));
    }
    EXPECT_EQ(g_destroyed, std::vector<int>({2}));
    EXPECT_EQ(*kept, 1);
    delete kept;

    // Without a callback the list only refers to its items.
    g_destroyed.clear();
    int a = 1, b = 2;
    {
        DMList list;
        list.AddTail(&a);
        DMPos pb = list.AddTail(&b);
        list.RemoveAt(pb);
        ExpectItems(list, {1});
        list.SetDestroy(DestroyInt);
        list.SetDestroy(nullptr);
    }
    EXPECT_TRUE(g_destroyed.empty());
}

} // namespace
