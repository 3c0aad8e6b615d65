#include "base/DMList.h"

#include <new>

DMList::DMList(DMDestroyFn pfn) : pHead(nullptr), pTail(nullptr), nCount(0), pfnDestroy(pfn) {}

DMList::~DMList() { RemoveAll(); }

void* DMList::GetNext(DMPos& pos) const
{
    DMNode* node = pos;
    pos = node->pNext;
    return node->pItem;
}

void* DMList::GetPrev(DMPos& pos) const
{
    DMNode* node = pos;
    pos = node->pPrev;
    return node->pItem;
}

void DMList::SetAt(DMPos pos, void* pItem)
{
    if (pos)
        pos->pItem = pItem;
}

DMPos DMList::FindIndex(unsigned nIndex) const
{
    if (nIndex >= nCount)
        return nullptr;
    DMNode* node = pHead;
    while (nIndex--)
        node = node->pNext;
    return node;
}

DMPos DMList::Find(const void* pItem) const
{
    for (DMNode* node = pHead; node; node = node->pNext)
        if (node->pItem == pItem)
            return node;
    return nullptr;
}

DMPos DMList::AddHead(void* pItem)
{
    DMNode* node = new (std::nothrow) DMNode{nullptr, pHead, pItem};
    if (!node)
        return nullptr;
    if (pHead)
        pHead->pPrev = node;
    else
        pTail = node;
    pHead = node;
    ++nCount;
    return node;
}

DMPos DMList::AddTail(void* pItem) { return InsertAfter(pTail, pItem); }

DMPos DMList::InsertAfter(DMPos pos, void* pItem)
{
    if (!pos)
        pos = pTail;
    if (!pos)
        return AddHead(pItem); // empty list
    DMNode* node = new (std::nothrow) DMNode{pos, pos->pNext, pItem};
    if (!node)
        return nullptr;
    if (pos->pNext)
        pos->pNext->pPrev = node;
    else
        pTail = node;
    pos->pNext = node;
    ++nCount;
    return node;
}

void DMList::RemoveAt(DMPos pos)
{
    if (!pos)
        return;
    if (pos->pPrev)
        pos->pPrev->pNext = pos->pNext;
    else
        pHead = pos->pNext;
    if (pos->pNext)
        pos->pNext->pPrev = pos->pPrev;
    else
        pTail = pos->pPrev;
    --nCount;
    void* pItem = pos->pItem;
    delete pos;
    // The node is out of the list before the callback runs, so a callback that looks at the
    // list sees it consistent.
    if (pfnDestroy)
        pfnDestroy(pItem);
}

void DMList::RemoveAll()
{
    // Unlink first, then destroy: the list is already empty while the callbacks run.
    DMNode* node = pHead;
    pHead = pTail = nullptr;
    nCount = 0;
    while (node) {
        DMNode* next = node->pNext;
        void* pItem = node->pItem;
        delete node;
        if (pfnDestroy)
            pfnDestroy(pItem);
        node = next;
    }
}
