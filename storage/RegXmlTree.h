// RegXmlTree: registry key trees as XML documents, the format of the exported settings file.
//
// A "KEY" element is one registry key (attribute "Name": the subkey's name; its children: the
// key's subkeys and values). A "DATA" element is one value, with the attributes "Name" (empty
// for the key's default value), "Type" and "Value" in that order:
//   REG_SZ       the string itself
//   REG_BINARY   two upper-case hexadecimal digits per byte, no separators
//   REG_DWORD    unsigned decimal
//   INT8..UINT64 the value's bytes, least significant first, two hexadecimal digits each
// A missing or unknown "Type" counts as REG_DWORD. The INT8 to UINT64 forms are for documents
// kept in memory: written into the registry they become a DWORD 0.
//
// Reading a key into a tree can be narrowed by Filter patterns; writing a tree into a key writes
// only values that differ and never deletes anything.
//
// The files: every export writes one root "KEY" element that stands for the exported key,
// UTF-16 little-endian with a byte-order mark, TAB indentation and CR LF line ends.
//   ExportRegSubKey(owner, "HKCU\Software\X", "Y", file, flag)  <KEY Name="Y"> ... </KEY>
//   ExportRegSubKey(owner, "HKCU\Software\X", null, file, flag)  <KEY Name="X"> ... </KEY>
//   ExportRegKey(owner, hOpenKey, file, flag)                     <KEY Name=""> ... </KEY>
//   ImportRegKey(owner, hOpenKey, file, flag)    the root KEY element's contents go into the key
//   ImportRegSubKey(owner, path, "Z", file, flag)  the same into path\Z (created as needed), so a
//                                                  file exported from one key imports into another
//   ImportRegSubKey(owner, path, null, file, flag) the document as it is into path: the root KEY
//                                                  recreates the exported subkey by its own name
// A document whose top level is not a single "KEY" element is written into the target key as it
// is. flag is the tree's silent flag: nonzero shows no parse error. Files that cannot be read or
// written are reported to owner when it is not null. Nothing is created in the registry before
// the whole file has parsed.
#pragma once
#include <windows.h>

#include "storage/XmlTree.h"

class RegKey;

class RegXmlTreeItem : public XmlTreeItem {
public:
    enum Type {
        TypeStr = 1,
        TypeBin = 2,
        TypeDword = 3,
        TypeInt8 = 4,
        TypeUInt8 = 5,
        TypeInt16 = 6,
        TypeUInt16 = 7,
        TypeInt32 = 8,
        TypeUInt32 = 9,
        TypeInt64 = 10,
        TypeUInt64 = 11,
    };
    static const wchar_t* const pszKey;   // "KEY"
    static const wchar_t* const pszData;  // "DATA"
    static const wchar_t* const pszName;  // "Name"
    static const wchar_t* const pszType;  // "Type"
    static const wchar_t* const pszValue; // "Value"
    // "REG_SZ", "REG_BINARY", ...; null for a number outside the table.
    static const wchar_t* GetTypeName(int type);

    using XmlTreeItem::XmlTreeItem;

    int IsSubKey() const;
    // Copy "Name" / "Value" (empty when absent); false, with the text cut, when it needs cch
    // characters or more.
    int GetItemName(wchar_t* buf, unsigned cch) const;
    int GetValue(wchar_t* buf, unsigned cch) const;
    int GetType() const;

    // Set "Type" and then "Value", each replaced or appended.
    void PutValue(int type, const wchar_t* text);
    void PutStr(const wchar_t* s) { PutValue(TypeStr, s); }
    void PutDWORD(DWORD v);
    void PutBin(const void* data, unsigned size, int type = TypeBin);

    // Strings: type REG_SZ only, else 0 and an empty buffer. GetStr is false when the string
    // does not fit in cch characters.
    unsigned GetStrLen() const;
    int GetStr(wchar_t* buf, unsigned cch) const;
    // REG_DWORD only, else 0; a text of 20 characters or more reads as 0.
    DWORD GetDWORD() const;
    // Half the length of "Value" (an odd last digit does not count).
    unsigned GetBinSize() const;
    // False when the item's type is not type, size is smaller than GetBinSize() or a digit is not
    // hexadecimal; else fills GetBinSize() bytes of buf.
    int GetBin(void* buf, unsigned size, int type = TypeBin) const;

    // Fixed-size integers; each Get returns 0 unless the type is exactly its own.
    void PutINT8(signed char v) { PutFixed(TypeInt8, (unsigned long long)(unsigned char)v, 1); }
    void PutUINT8(unsigned char v) { PutFixed(TypeUInt8, v, 1); }
    void PutINT16(short v) { PutFixed(TypeInt16, (unsigned long long)(unsigned short)v, 2); }
    void PutUINT16(unsigned short v) { PutFixed(TypeUInt16, v, 2); }
    void PutINT32(int v) { PutFixed(TypeInt32, (unsigned long long)(unsigned)v, 4); }
    void PutUINT32(unsigned v) { PutFixed(TypeUInt32, v, 4); }
    void PutINT64(long long v) { PutFixed(TypeInt64, (unsigned long long)v, 8); }
    void PutUINT64(unsigned long long v) { PutFixed(TypeUInt64, v, 8); }
    signed char GetINT8() const { return (signed char)GetFixed(TypeInt8, 1); }
    unsigned char GetUINT8() const { return (unsigned char)GetFixed(TypeUInt8, 1); }
    short GetINT16() const { return (short)GetFixed(TypeInt16, 2); }
    unsigned short GetUINT16() const { return (unsigned short)GetFixed(TypeUInt16, 2); }
    int GetINT32() const { return (int)GetFixed(TypeInt32, 4); }
    unsigned GetUINT32() const { return (unsigned)GetFixed(TypeUInt32, 4); }
    long long GetINT64() const { return (long long)GetFixed(TypeInt64, 8); }
    unsigned long long GetUINT64() const { return GetFixed(TypeUInt64, 8); }

private:
    void PutFixed(int type, unsigned long long v, unsigned size);
    unsigned long long GetFixed(int type, unsigned size) const;
};

class RegXmlTree : public XmlTree {
public:
    explicit RegXmlTree(XmlTreeNode* parentNode = nullptr) : XmlTree(parentNode) {}

    // Every item, also those the parser makes, is a RegXmlTreeItem.
    XmlTreeItem* CreateTreeItem(const wchar_t* pszName, const wchar_t* pszBody) override;

    // A "DATA" item named name (empty for null).
    RegXmlTreeItem* AddDataItem(const wchar_t* name);
    // A "KEY" item named name, with its (new, empty) child tree, which is returned.
    RegXmlTree* AddSubTreeItem(const wchar_t* name);
    // The first "DATA" / "KEY" item whose "Name" is exactly name; the first of its kind for null.
    RegXmlTreeItem* FindDataItem(const wchar_t* name) const;
    RegXmlTreeItem* FindSubTreeItem(const wchar_t* name) const;
    // The child tree of that "KEY" item (by its "Name", unlike XmlTree::FindSubTree).
    RegXmlTree* FindSubTree(const wchar_t* name) const;
    int DeleteDataItem(const wchar_t* name);
    int DeleteSubTreeItem(const wchar_t* name);

    // Typed access by value name. A Get returns def when there is no such "DATA" item, and 0 when
    // the item exists with another type. A Put finds or adds the item and stores value and type.
    unsigned GetStrLen(const wchar_t* name) const;
    // def (empty for null) when there is no such item; false when the item is missing, has
    // another type or does not fit.
    int GetStr(const wchar_t* name, wchar_t* buf, unsigned cch, const wchar_t* def = nullptr) const;
    void PutStr(const wchar_t* name, const wchar_t* s);
    DWORD GetDWORD(const wchar_t* name, DWORD def) const;
    void PutDWORD(const wchar_t* name, DWORD v);
    unsigned GetBinSize(const wchar_t* name) const;
    int GetBin(const wchar_t* name, void* buf, unsigned size, int type = RegXmlTreeItem::TypeBin) const;
    void PutBin(const wchar_t* name, const void* data, unsigned size, int type = RegXmlTreeItem::TypeBin);

    signed char GetINT8(const wchar_t* name, signed char def) const;
    unsigned char GetUINT8(const wchar_t* name, unsigned char def) const;
    short GetINT16(const wchar_t* name, short def) const;
    unsigned short GetUINT16(const wchar_t* name, unsigned short def) const;
    int GetINT32(const wchar_t* name, int def) const;
    unsigned GetUINT32(const wchar_t* name, unsigned def) const;
    long long GetINT64(const wchar_t* name, long long def) const;
    unsigned long long GetUINT64(const wchar_t* name, unsigned long long def) const;
    void PutINT8(const wchar_t* name, signed char v) { Data(name)->PutINT8(v); }
    void PutUINT8(const wchar_t* name, unsigned char v) { Data(name)->PutUINT8(v); }
    void PutINT16(const wchar_t* name, short v) { Data(name)->PutINT16(v); }
    void PutUINT16(const wchar_t* name, unsigned short v) { Data(name)->PutUINT16(v); }
    void PutINT32(const wchar_t* name, int v) { Data(name)->PutINT32(v); }
    void PutUINT32(const wchar_t* name, unsigned v) { Data(name)->PutUINT32(v); }
    void PutINT64(const wchar_t* name, long long v) { Data(name)->PutINT64(v); }
    void PutUINT64(const wchar_t* name, unsigned long long v) { Data(name)->PutUINT64(v); }

protected:
    XmlTree* CreateTree(XmlTreeNode* parentNode) override;

private:
    RegXmlTreeItem* FindKind(const wchar_t* kind, const wchar_t* name) const;
    // The "DATA" item of that name, added when missing.
    RegXmlTreeItem* Data(const wchar_t* name);
};

// Wildcard patterns that choose subkeys and values by name. A pattern list is one string of
// patterns cut at any character of the separator (one pattern when there is no separator). "*"
// matches any run of characters; letters compare ignoring case; an empty pattern matches nothing.
// Filters refer to the default value by the name "NULL". An empty list counts as not set.
class Filter {
public:
    Filter(const wchar_t* include = nullptr, const wchar_t* exclude = nullptr, const wchar_t* separator = nullptr);
    ~Filter() { Reset(); }
    Filter(const Filter&) = delete;
    Filter& operator=(const Filter&) = delete;

    void SetFilters(const wchar_t* include, const wchar_t* exclude);
    // Not copied: the separator must outlive the filter (a literal, as a rule).
    void SetSeparator(const wchar_t* sep) { pszSeparator = sep; }
    void Reset();
    int IsEmpty() const { return !pszInclude && !pszExclude; }
    void GetFilters(wchar_t* includeBuf, wchar_t* excludeBuf, unsigned cch) const;

    // True for a null or empty name; exclusion wins over inclusion; no include list takes all.
    int Match(const wchar_t* name) const;
    // Patterns beyond the first 259 characters of list are not seen.
    int MatchWithSep(const wchar_t* list, const wchar_t* name) const;
    static int MatchCore(const wchar_t* pattern, const wchar_t* name);
    static int MatchOkay(const wchar_t* s) { return !s || !*s || *s == L'*'; }

private:
    const wchar_t* pszSeparator;
    wchar_t* pszInclude;
    wchar_t* pszExclude;
};

// Appends key's subkeys and values to tree. Subkeys pass keyFilter and values valueFilter (null:
// all pass); below the first level the filters apply only when bFilterSubkeys is nonzero.
// What cannot be opened or read is skipped; always true.
int ReadRegKeyToTree(RegKey& key, RegXmlTree& tree, Filter* keyFilter, Filter* valueFilter, int bFilterSubkeys);
// Appends one "KEY" item named subkey with subkey's contents; false when it cannot be opened.
int ReadRegSubKeyToTree(RegKey& key, const wchar_t* subkey, RegXmlTree& tree, Filter* keyFilter,
                        Filter* valueFilter, int bFilterSubkeys);
// Writes every item into key, in order, stopping at the first that cannot be written; values
// are written only when they differ; nothing is deleted.
int WriteRegKeyFromTree(RegKey& key, RegXmlTree& tree);
// Writes the one item at pos (the first when pos is null).
int WriteRegSubKeyFromTree(RegKey& key, RegXmlTree& tree, XmlPos pos);

int ExportRegKey(HWND owner, HKEY key, const wchar_t* file, int flag);
int ExportRegSubKey(HWND owner, const wchar_t* keyPath, const wchar_t* subkey, const wchar_t* file, int flag);
// Decides, after the file was parsed and before anything is written, whether its document may
// be imported (for example, that it is the kind of file the caller exported). It tells the user
// why not itself (owner and file are the import's) and returns 0 to refuse.
typedef int (*ImportCheck)(const RegXmlTree& tree, HWND owner, const wchar_t* file);
// A refused document writes nothing and gives 0.
int ImportRegKey(HWND owner, HKEY key, const wchar_t* file, int flag, ImportCheck check = nullptr);
int ImportRegSubKey(HWND owner, const wchar_t* keyPath, const wchar_t* subkey, const wchar_t* file, int flag);
