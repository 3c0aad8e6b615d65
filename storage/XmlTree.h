// XmlTree: the small XML document model behind the settings file.
//
// A document is a tree of elements (XmlTreeItem) with attributes (XmlAttrib), kept as ordered
// lists (one XmlTree per level). XmlTree::Get parses a whole document from one wide string and
// XmlTree::Put renders the tree back into one. It is deliberately not a general XML processor:
// no namespaces, no CDATA, no numeric character references, no mixed content; an element has
// either text or child elements. Element names compare case-sensitively, attribute names
// ignoring case.
//
// The parsing and rendering (XmlTree.cpp) use only wchar_t and the C library, so they also build
// outside Windows for sanitizer and fuzzing runs; the message boxes and the file functions live
// in XmlTreeIO.cpp (a native build supplies its own ParseShowError).
//
// Hostile input: the parser does not recurse (nesting is followed through the parent links of
// the tree) and refuses elements nested deeper than nMaxDepth levels, deeper than the registry
// could ever hold; the destructor and the writer do not recurse either.
//
// Copy hazard: copying an XmlAttrib copies its two pointers as they are and both copies free
// them; copies are never made of attributes that stay in a list.
#pragma once

#include "base/DMList.h"

// The window type without <windows.h>, identical to its own declaration there.
struct HWND__;
typedef HWND__* HWND;

class XmlTree;

class XmlAttrib {
public:
    XmlAttrib() : name(nullptr), value(nullptr) {}
    XmlAttrib(const wchar_t* pszName, const wchar_t* pszValue);
    virtual ~XmlAttrib() { Clean(); }

    // Replace both with copies; a null argument leaves that field null.
    void SetNameValue(const wchar_t* pszName, const wchar_t* pszValue);
    void SetValue(const wchar_t* pszValue);
    void Clean();

    wchar_t* name;
    wchar_t* value;
};

class XmlTreeItem {
public:
    XmlTreeItem(const wchar_t* pszName = nullptr, const wchar_t* pszBody = nullptr);
    virtual ~XmlTreeItem();
    XmlTreeItem(const XmlTreeItem&) = delete;
    XmlTreeItem& operator=(const XmlTreeItem&) = delete;

    const wchar_t* GetName() const { return name; }
    // Null means "no text": the writer renders such an element as empty ("<name/>").
    const wchar_t* GetBody() const { return body; }
    void SetName(const wchar_t* pszName);
    void SetBody(const wchar_t* pszBody);
    void SetNameBody(const wchar_t* pszName, const wchar_t* pszBody);
    void CleanName();
    void CleanBody();

    // The attributes in document order; each list item is an owned XmlAttrib*.
    DMList& GetListAttr() { return listAttr; }
    const DMList& GetListAttr() const { return listAttr; }

    // Attribute names compare ignoring case; each lookup takes the first of that name.
    XmlAttrib* FindAttrib(const wchar_t* pszName) const;
    const wchar_t* GetAttribValue(const wchar_t* pszName) const;
    // Copies the value into buf (cch characters, cut to fit); 0 and an empty buf when there is
    // no such attribute, else the characters copied.
    unsigned GetAttrib(const wchar_t* pszName, wchar_t* buf, unsigned cch) const;
    // Appends even when an attribute of that name exists.
    XmlAttrib* AddAttrib(const wchar_t* pszName, const wchar_t* pszValue);
    // Replaces the value of the first attribute of that name, or appends one.
    XmlAttrib* SetAttrib(const wchar_t* pszName, const wchar_t* pszValue);
    int DeleteAttrib(const wchar_t* pszName);

    // Integers as decimal text. The unsigned forms store values above 2147483647 as negative
    // numbers and read them back to the same bits. A missing, empty or longer than 15 characters
    // attribute reads as 0.
    XmlAttrib* SetAttribInt(const wchar_t* pszName, int v);
    int GetAttribInt(const wchar_t* pszName) const;
    XmlAttrib* SetAttribUInt(const wchar_t* pszName, unsigned v) { return SetAttribInt(pszName, (int)v); }
    unsigned GetAttribUInt(const wchar_t* pszName) const { return (unsigned)GetAttribInt(pszName); }

protected:
    friend class XmlTree;
    wchar_t* name;
    wchar_t* body;
    DMList listAttr;
};

// One node of a tree level: its element, the element's children (null when it has none) and the
// level it belongs to. A position in a level is its node.
struct XmlTreeNode {
    XmlTreeNode* pPrev;
    XmlTreeNode* pNext;
    XmlTreeItem* pItem;
    XmlTree* pChild;
    XmlTree* pOwner;
};
typedef XmlTreeNode* XmlPos;

class XmlTree {
public:
    // Message numbers of the parser (string resources of the same numbers hold the texts).
    enum {
        IdsParseError = 21901,   // "Error parsing XML document in line %d:\n\n%s: %s"
        IdsUnclosedComment = 21902,
        IdsSyntaxError = 21903,
        IdsUnexpected = 21904,
        IdsMissingName = 21905,  // has a text but no trigger: a missing name ends the list
        IdsMissingEqual = 21906,
        IdsUnquotedValue = 21907,
        IdsMissingQuote = 21908,
        IdsMissingEndTag = 21909,
        IdsNoData = 21910,
    };
    // Characters of input shown after the point of a parse error.
    static constexpr unsigned nContextChars = 20;
    // Levels of nesting the parser accepts; the registry itself holds at most 512.
    static constexpr unsigned nMaxDepth = 512;

    explicit XmlTree(XmlTreeNode* parentNode = nullptr);
    virtual ~XmlTree();
    XmlTree(const XmlTree&) = delete;
    XmlTree& operator=(const XmlTree&) = delete;

    // The virtual factory: the parser makes every element through it.
    virtual XmlTreeItem* CreateTreeItem(const wchar_t* pszName, const wchar_t* pszBody);

    // List access.
    unsigned GetCount() const { return nCount; }
    XmlPos GetHeadPosition() const { return pHead; }
    XmlPos GetTailPosition() const { return pTail; }
    // The item at pos; pos moves to the next (previous) node, null past the end.
    XmlTreeItem* GetNext(XmlPos& pos) const;
    XmlTreeItem* GetPrev(XmlPos& pos) const;
    XmlTreeItem* GetAt(XmlPos pos) const { return pos ? pos->pItem : nullptr; }
    XmlTree* GetChildAt(XmlPos pos) const { return pos ? pos->pChild : nullptr; }
    XmlPos FindPos(const XmlTreeItem* item) const;
    XmlTreeNode* GetParentNode() const { return pParentNode; }

    // Appends an item made by the factory (or by the caller, who hands it over) and returns it.
    XmlTreeItem* AddItem(const wchar_t* pszName, const wchar_t* pszBody);
    XmlTreeItem* AddItem(XmlTreeItem* item);
    // Creates and attaches the child tree of item's node (of the last node when item is null);
    // an existing child tree is returned as it is. Null when there is no such node.
    XmlTree* AddSubTree(XmlTreeItem* item);
    // Unlinks and destroys the item with its children; false when it is not in this level.
    int DeleteItem(XmlTreeItem* item);
    void RemoveAll();

    // Element names compare case-sensitively.
    XmlTree* FindSubTree(const wchar_t* pszName) const;
    XmlTree* GetSubTree(const wchar_t* pszName);
    XmlTreeItem* FindItem(const wchar_t* pszName, const wchar_t* pszAttrName = nullptr,
                          const wchar_t* pszAttrValue = nullptr, int bIgnoreCase = 0) const;
    XmlTreeItem* FindItemReverse(const wchar_t* pszName, const wchar_t* pszAttrName = nullptr,
                                 const wchar_t* pszAttrValue = nullptr, int bIgnoreCase = 0) const;
    XmlPos FindItemPos(const wchar_t* pszName, const wchar_t* pszAttrName = nullptr,
                       const wchar_t* pszAttrValue = nullptr, int bIgnoreCase = 0) const;

    // The text before the first element. Null (never set) makes Put write the standard
    // declaration; an empty prolog is written as an empty first line.
    void Clean();
    void SetProlog(const wchar_t* text);
    const wchar_t* GetProlog() const { return prolog; }

    // Parses a whole document into this (empty) tree; nonzero on success. text moves to where the
    // parse stopped. Errors end the parse: they are recorded (GetError...), shown in a message box
    // unless silent, and the tree keeps what was built before.
    int Get(HWND owner, const wchar_t*& text);
    // Renders the tree; returns the characters including the terminating zero. With a null out it
    // only counts; otherwise out must hold that many characters and is advanced past the zero.
    // The count saturates: UINT_MAX means the document is too large to be held at all.
    unsigned Put(wchar_t*& out);

    // The last parse error: its message number (0 after a successful parse), the line counter at
    // the error and up to nContextChars characters of input from where it was found.
    int GetErrorId() const { return nErrorId; }
    unsigned GetErrorLine() const { return nErrorLine; }
    const wchar_t* GetErrorContext() const { return szErrorContext; }
    // The user's text of the last error: message 21901 formatted, or 21910 (XmlTreeIO.cpp).
    unsigned FormatError(wchar_t* buf, unsigned cch) const;

    // Files (XmlTreeIO.cpp): UTF-16 little-endian with a byte-order mark. Reading also accepts
    // UTF-16 big-endian and UTF-8 (with or without their marks); files over 64 MB are refused.
    // A file that cannot be read, created or written is reported in a message box when owner is
    // not null (whatever silent says), and leaves the system's reason in the last error; a parse
    // error leaves ERROR_INVALID_DATA.
    int LoadFile(HWND owner, const wchar_t* path);
    int SaveFile(HWND owner, const wchar_t* path);

    // Entity conversion.
    static const wchar_t* FindConversion(wchar_t c);
    static wchar_t FindConversion(const wchar_t* s, unsigned& len);
    static void PutConvertStr(wchar_t*& out, const wchar_t* s, unsigned& count);
    static unsigned GetConvertStr(const wchar_t* s, wchar_t* out);
    // The text of message id: the string resource when there is one, else the built-in text
    // (XmlTreeIO.cpp).
    static unsigned LoadMessage(int id, wchar_t* buf, unsigned cch);

    // Nonzero: parse errors are not shown. Child trees inherit it when they are created.
    int silent;

    // Process-wide parser and writer state: parse and render from one thread at a time.
    static unsigned nLine;
    static unsigned nDepth;

protected:
    virtual XmlTree* CreateTree(XmlTreeNode* parentNode);
    // Shows the recorded error in a message box unless silent (XmlTreeIO.cpp).
    void ParseShowError(HWND owner) const;

    XmlTreeNode* pHead;
    XmlTreeNode* pTail;
    unsigned nCount;
    XmlTreeNode* pParentNode;
    wchar_t* prolog;
    int nErrorId;
    unsigned nErrorLine;
    wchar_t szErrorContext[nContextChars + 1];

private:
    XmlTreeNode* Append(XmlTreeItem* item);
    XmlTree* AttachChild(XmlTreeNode* node);
    void ParseAll(const wchar_t*& p);
    XmlPos FindMatch(const wchar_t* pszName, const wchar_t* pszAttrName, const wchar_t* pszAttrValue,
                     int bIgnoreCase, int bReverse) const;
};
