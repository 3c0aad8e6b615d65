// The class library's linked list: links stay consistent on removal and owned items are freed
// exactly once.
#include <gtest/gtest.h>

#include <vector>

#include "base/DMList.h"

namespace {

std::vector<int> g_destroyed;   // what the destroy callback freed, in order (-1: a null item)

void DestroyInt(void* p)
{
    g_destroyed.push_back(p ? *(int*)p : -1);
    delete (int*)p;
}

// Walks the list both ways: it holds exactly want, and the count agrees.
void ExpectItems(const DMList& list, const std::vector<int>& want)
{
    std::vector<int> fwd, back;
    for (DMPos pos = list.GetHeadPosition(); pos && fwd.size() <= want.size();)
        fwd.push_back(*(int*)list.GetNext(pos));
    for (DMPos pos = list.GetTailPosition(); pos && back.size() <= want.size();)
        back.insert(back.begin(), *(int*)list.GetPrev(pos));
    EXPECT_EQ(want, fwd) << "forward walk";
    EXPECT_EQ(want, back) << "backward walk";
    EXPECT_EQ(want.size(), list.GetCount());
}

TEST(DMListTest, RemovalKeepsLinksAndDestroysOnce)
{
    g_destroyed.clear();
    DMList list(DestroyInt);
    std::vector<DMPos> pos;
    for (int i = 1; i <= 5; ++i)
        pos.push_back(list.AddTail(new int(i)));
    list.RemoveAt(pos[2]);   // middle
    list.RemoveAt(pos[0]);   // head
    list.RemoveAt(pos[4]);   // tail
    list.RemoveAt(nullptr);
    ExpectItems(list, {2, 4});
    list.RemoveAt(pos[3]);
    list.RemoveAt(pos[1]);   // the last node takes head and tail with it
    ExpectItems(list, {});
    list.InsertAfter(nullptr, new int(9));   // after nothing: at the end
    list.AddHead(new int(0));
    ExpectItems(list, {0, 9});
    EXPECT_EQ(std::vector<int>({3, 1, 5, 4, 2}), g_destroyed);
}

TEST(DMListTest, RemoveAllAndDestructorDestroyEachItemOnce)
{
    g_destroyed.clear();
    int kept = 1;
    {
        DMList list(DestroyInt);
        for (int i = 1; i <= 3; ++i)
            list.AddTail(new int(i));
        list.AddTail(nullptr);   // a null item still reaches the callback
        list.RemoveAll();
        ExpectItems(list, {});
        EXPECT_EQ(std::vector<int>({1, 2, 3, -1}), g_destroyed);
        list.AddTail(new int(7));
        list.SetAt(list.AddHead(&kept), new int(6));   // the old item goes back to the caller
    }   // the destructor frees what is left, and nothing removed before
    EXPECT_EQ(std::vector<int>({1, 2, 3, -1, 6, 7}), g_destroyed);
    {
        DMList list;   // without a callback the list only refers to its items (threads delete themselves)
        list.AddTail(&kept);
        list.RemoveAt(list.AddTail(&kept));
    }
    EXPECT_EQ(6u, g_destroyed.size());
}

} // namespace
