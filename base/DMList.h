// DMList: the class library's doubly linked list of untyped items.
//
// Items are void pointers kept in insertion order; duplicates and null items are allowed. A
// position (DMPos) is the node itself, so walking, inserting after and removing are O(1) and a
// position stays valid until its own node is removed. A list can own its items: when a destroy
// callback is set, every node that leaves the list (RemoveAt, RemoveAll, the destructor) hands
// its item to the callback exactly once. Without a callback the list only refers to its items
// (the engine's list of session threads, whose threads delete themselves).
//
// Copying: deliberately not copyable. The library's small wrapper classes copy their pointers as
// they are, but a list copied that way would share its nodes, and the second destructor would
// free nodes and items a second time. Lists are copied item by item where needed
// (StrList::CopyFrom), so a by-value copy is refused at compile time instead.
#pragma once

struct DMNode {
    DMNode* pPrev;
    DMNode* pNext;
    void* pItem;
};

// A place in a list; null means "none" (before the head, after the tail, not found).
typedef DMNode* DMPos;

// Frees one item that leaves the list (also called for a null item).
typedef void (*DMDestroyFn)(void* pItem);

class DMList {
public:
    explicit DMList(DMDestroyFn pfnDestroy = nullptr);
    virtual ~DMList();
    DMList(const DMList&) = delete;
    DMList& operator=(const DMList&) = delete;

    // The callback applies to nodes removed from now on.
    void SetDestroy(DMDestroyFn pfn) { pfnDestroy = pfn; }
    DMDestroyFn GetDestroy() const { return pfnDestroy; }

    unsigned GetCount() const { return nCount; }
    int IsEmpty() const { return nCount == 0; }

    DMPos GetHeadPosition() const { return pHead; }
    DMPos GetTailPosition() const { return pTail; }
    // Return the item at pos and move pos to the next (previous) node, null past the end.
    // pos must not be null.
    void* GetNext(DMPos& pos) const;
    void* GetPrev(DMPos& pos) const;
    // The item at pos; null for a null position.
    void* GetAt(DMPos pos) const { return pos ? pos->pItem : nullptr; }
    // Replaces the item at pos without destroying the old one (the caller takes it back).
    void SetAt(DMPos pos, void* pItem);
    // The position of the nIndex-th node (from 0), null when the list is shorter.
    DMPos FindIndex(unsigned nIndex) const;
    // The position of the first node holding exactly this item, null when none does.
    DMPos Find(const void* pItem) const;

    // Each returns the new node's position, or null (nothing added) when memory runs out.
    DMPos AddHead(void* pItem);
    DMPos AddTail(void* pItem);
    // A null pos inserts at the tail (after "nothing" is the end of the list).
    DMPos InsertAfter(DMPos pos, void* pItem);

    // Unlinks the node at pos and destroys its item; a null pos does nothing.
    void RemoveAt(DMPos pos);
    void RemoveAll();

protected:
    DMNode* pHead;
    DMNode* pTail;
    unsigned nCount;
    DMDestroyFn pfnDestroy;
};
