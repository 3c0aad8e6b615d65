// StrList: a list of owned wide strings (user and group names of the settings, the groups of a
// user). Every entry is a heap copy made by the list and freed when its node is removed, so a
// caller never keeps a pointer into the list past the next change of that entry.
//
// Load and Store keep the whole list as one binary value in the product's per-user key: the
// strings one after another, each ending in a zero character, then one more zero. An empty
// entry therefore ends the list when it is loaded again; the settings never store empty names.
//
// Like DMList it cannot be copied by value: CopyFrom makes a deep copy.
#pragma once
#include "base/DMList.h"

class StrList : public DMList {
public:
    // valueName: the registry value used by Load and Store (may be null: they then do nothing).
    explicit StrList(const wchar_t* valueName = nullptr);
    ~StrList() override;

    // Insert a copy of s (null stores a null entry); the new position, or null when out of memory.
    DMPos AddHead(const wchar_t* s);
    DMPos AddTail(const wchar_t* s);
    // Frees the string at pos and stores a copy of s there (null leaves the entry null).
    // False for a null pos or when the copy cannot be made (the entry is then null).
    int ReplaceAt(DMPos pos, const wchar_t* s);

    const wchar_t* GetAt(DMPos pos) const { return (const wchar_t*)DMList::GetAt(pos); }
    const wchar_t* GetNext(DMPos& pos) const { return (const wchar_t*)DMList::GetNext(pos); }

    // The first entry equal to s ignoring case; null when there is none.
    DMPos FindStrExactIgnoreCase(const wchar_t* s) const;
    // Walks other in its order; the position here of the first of its strings this list holds
    // (ignoring case); null when the lists share none.
    DMPos FindStrExactIgnoreCase(const StrList& other) const;
    // bWhole: the first entry equal to s; otherwise the first entry that begins with s.
    // bIgnoreCase chooses how characters compare.
    DMPos FindStr(const wchar_t* s, int bWhole, int bIgnoreCase) const;

    // Empties this list and appends a copy of each string of other, in order. False when memory
    // ran out (the list then holds the strings copied so far).
    int CopyFrom(const StrList& other);
    // True when the lengths differ or two strings at the same place differ (case-sensitive).
    int IsDifferent(const StrList& other) const;
    // As IsDifferent, but the order does not matter: true unless each string occurs equally
    // often in both lists (a repeated string counts as often as it appears).
    int IsDifferentIgnoreSort(const StrList& other) const;

    // Empties the list and fills it from the value in the product's per-user key. True when the
    // value was read (possibly giving an empty list); false when there is no value name or the
    // key or value is missing or unreadable (the reason in the last error), the list then empty.
    int Load();
    // Writes the list to that value; an unchanged list is not rewritten. False when there is no
    // value name or the key cannot be created or written.
    int Store();

    const wchar_t* GetValueName() const { return pszValueName; }
    // False when memory runs out (the name is then null).
    int SetValueName(const wchar_t* name);

    // The largest value Load accepts: far beyond any real list of user and group names, small
    // enough that a damaged or hostile value cannot exhaust the service's memory.
    static const unsigned nMaxStoreBytes = 1024 * 1024;

private:
    wchar_t* pszValueName;
};
