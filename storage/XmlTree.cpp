// The XML document model, its parser and its writer. Only wchar_t and the C library are used
// here (no Windows calls), so this file also builds natively for sanitizer and fuzzing runs.
#include "storage/XmlTree.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <cwctype>
#include <new>

#include "base/StrUtil.h"

unsigned XmlTree::nLine = 0;
unsigned XmlTree::nDepth = 0;

namespace {

// Entity texts are plain ASCII: only ASCII letters fold, so no other character can pass for one.
wchar_t FoldAscii(wchar_t c) { return (c >= L'A' && c <= L'Z') ? (wchar_t)(c - L'A' + L'a') : c; }

void DestroyAttrib(void* p) { delete static_cast<XmlAttrib*>(p); }

// ---------------------------------------------------------------------------------------------
// Parser primitives

struct ParseError {
    int id;
    const wchar_t* pos;
};

bool IsWhite(wchar_t c) { return c == L' ' || c == L'\t' || c == L'\r' || c == L'\n'; }
bool IsNameFirst(wchar_t c) { return (c >= L'A' && c <= L'Z') || (c >= L'a' && c <= L'z') || c == L'_'; }
bool IsNameChar(wchar_t c) { return IsNameFirst(c) || (c >= L'0' && c <= L'9') || c == L'-' || c == L'.'; }

void CountLines(const wchar_t* p, const wchar_t* end)
{
    for (; p < end; ++p)
        if (*p == L'\n')
            ++XmlTree::nLine;
}

// A comment at p ("<!--" up to the next "-->"): false when none starts there. An unclosed
// comment is reported where it starts, with the line counter of that point.
bool ParseSkipComment(const wchar_t*& p)
{
    if (!(p[0] == L'<' && p[1] == L'!' && p[2] == L'-' && p[3] == L'-'))
        return false;
    const wchar_t* end = wcsstr(p + 4, L"-->");
    if (!end)
        throw ParseError{XmlTree::IdsUnclosedComment, p};
    CountLines(p, end);
    p = end + 3;
    return true;
}

// White space and comments.
void ParseSkipWhiteSpace(const wchar_t*& p)
{
    for (;;) {
        if (IsWhite(*p)) {
            if (*p == L'\n')
                ++XmlTree::nLine;
            ++p;
        } else if (!ParseSkipComment(p)) {
            return;
        }
    }
}

// As ParseSkipWhiteSpace, also moving lineStart past every line feed skipped as white space
// (not those inside comments), with the line counter of that point in lineNo.
void ParseSkipWhiteSpaceLines(const wchar_t*& p, const wchar_t*& lineStart, unsigned& lineNo)
{
    for (;;) {
        if (*p == L'\n') {
            ++XmlTree::nLine;
            lineStart = ++p;
            lineNo = XmlTree::nLine;
        } else if (IsWhite(*p)) {
            ++p;
        } else if (!ParseSkipComment(p)) {
            return;
        }
    }
}

// The character after white space and comments from p, without moving and without counting.
wchar_t PeekAfterWhiteSpace(const wchar_t* p)
{
    unsigned line = XmlTree::nLine;
    ParseSkipWhiteSpace(p);
    XmlTree::nLine = line;
    return *p;
}

// The end of the name at p (p itself when no name starts there).
const wchar_t* ParseSkipName(const wchar_t* p)
{
    if (!IsNameFirst(*p))
        return p;
    while (IsNameChar(*++p)) {
    }
    return p;
}

// A copy of [s, s + n); the parser treats memory running out like the rest of the C++ library.
wchar_t* CopyRange(const wchar_t* s, size_t n)
{
    wchar_t* d = n < UINT_MAX ? StrDupN(s, (unsigned)n) : nullptr;
    if (!d)
        throw std::bad_alloc();
    return d;
}

// A copy of [s, s + n) with its entities decoded.
wchar_t* DecodeRange(const wchar_t* s, size_t n)
{
    wchar_t* d = CopyRange(s, n);
    XmlTree::GetConvertStr(d, d); // decoding never lengthens, so it works in place
    return d;
}

void Expect(const wchar_t*& p, wchar_t c)
{
    if (*p != c)
        throw ParseError{XmlTree::IdsUnexpected, p};
    ++p;
}

// "</name>" with white space allowed between the parts.
void ParseSkipEndElement(const wchar_t*& p, const wchar_t* name)
{
    ParseSkipWhiteSpace(p);
    Expect(p, L'<');
    ParseSkipWhiteSpace(p);
    Expect(p, L'/');
    ParseSkipWhiteSpace(p);
    size_t n = wcslen(name ? name : L"");
    if (wcsncmp(p, name ? name : L"", n) != 0)
        throw ParseError{XmlTree::IdsUnexpected, p};
    p += n;
    ParseSkipWhiteSpace(p);
    Expect(p, L'>');
}

// One attribute: false when no name follows.
bool ParseAttribNameValue(const wchar_t*& p, XmlTreeItem* item)
{
    ParseSkipWhiteSpace(p);
    const wchar_t* nameEnd = ParseSkipName(p);
    if (nameEnd == p)
        return false;
    const wchar_t* name = p;
    p = nameEnd;
    ParseSkipWhiteSpace(p);
    if (*p != L'=')
        throw ParseError{XmlTree::IdsMissingEqual, p};
    ++p;
    ParseSkipWhiteSpace(p);
    wchar_t quote = *p;
    if (quote != L'"' && quote != L'\'')
        throw ParseError{XmlTree::IdsUnquotedValue, p};
    // ParseSkipValue: the value runs to the next quote of the same kind, across lines.
    const wchar_t* value = p + 1;
    const wchar_t* end = wcschr(value, quote);
    if (!end)
        throw ParseError{XmlTree::IdsMissingQuote, p};
    CountLines(value, end);
    XmlAttrib* attr = new XmlAttrib;
    attr->name = CopyRange(name, (size_t)(nameEnd - name));
    attr->value = DecodeRange(value, (size_t)(end - value));
    item->GetListAttr().AddTail(attr);
    p = end + 1;
    return true;
}

const struct {
    wchar_t c;
    const wchar_t* text;
    unsigned len;
} kEntities[] = {
    {L'"', L"&quot;", 6}, {L'\'', L"&apos;", 6}, {L'<', L"&lt;", 4}, {L'>', L"&gt;", 4}, {L'&', L"&amp;", 5},
};

// ---------------------------------------------------------------------------------------------
// Writer primitives: every character is counted; it is stored only when there is a buffer. The
// count saturates instead of wrapping, so a caller can never size a buffer too small from it.

void AddCount(unsigned& count, unsigned n) { count = (count > UINT_MAX - n) ? UINT_MAX : count + n; }

void PutChars(wchar_t*& out, const wchar_t* s, unsigned& count)
{
    unsigned n = (unsigned)wcslen(s ? s : L"");
    if (out && n) {
        wmemcpy(out, s, n);
        out += n;
    }
    AddCount(count, n);
}

void PutTabs(wchar_t*& out, unsigned n, unsigned& count)
{
    if (out) {
        wmemset(out, L'\t', n);
        out += n;
    }
    AddCount(count, n);
}

} // namespace

// -------------------------------------------------------------------------------------------------
// XmlAttrib

XmlAttrib::XmlAttrib(const wchar_t* pszName, const wchar_t* pszValue) : name(StrDup(pszName)), value(StrDup(pszValue)) {}

void XmlAttrib::SetNameValue(const wchar_t* pszName, const wchar_t* pszValue)
{
    wchar_t* n = StrDup(pszName);
    wchar_t* v = StrDup(pszValue);
    Clean();
    name = n;
    value = v;
}

void XmlAttrib::SetValue(const wchar_t* pszValue)
{
    wchar_t* v = StrDup(pszValue);
    StrRelease(value);
    value = v;
}

void XmlAttrib::Clean()
{
    StrRelease(name);
    StrRelease(value);
}

// -------------------------------------------------------------------------------------------------
// XmlTreeItem

XmlTreeItem::XmlTreeItem(const wchar_t* pszName, const wchar_t* pszBody)
    : name(StrDup(pszName)), body(StrDup(pszBody)), listAttr(DestroyAttrib)
{
}

XmlTreeItem::~XmlTreeItem()
{
    CleanName();
    CleanBody();
    listAttr.RemoveAll();
}

void XmlTreeItem::SetName(const wchar_t* pszName)
{
    wchar_t* n = StrDup(pszName);
    StrRelease(name);
    name = n;
}

void XmlTreeItem::SetBody(const wchar_t* pszBody)
{
    wchar_t* b = StrDup(pszBody);
    StrRelease(body);
    body = b;
}

void XmlTreeItem::SetNameBody(const wchar_t* pszName, const wchar_t* pszBody)
{
    SetName(pszName);
    SetBody(pszBody);
}

void XmlTreeItem::CleanName() { StrRelease(name); }
void XmlTreeItem::CleanBody() { StrRelease(body); }

XmlAttrib* XmlTreeItem::FindAttrib(const wchar_t* pszName) const
{
    for (DMPos pos = listAttr.GetHeadPosition(); pos;) {
        XmlAttrib* a = static_cast<XmlAttrib*>(listAttr.GetNext(pos));
        if (a && StrEqualNoCase(a->name, pszName))
            return a;
    }
    return nullptr;
}

const wchar_t* XmlTreeItem::GetAttribValue(const wchar_t* pszName) const
{
    XmlAttrib* a = FindAttrib(pszName);
    return a ? a->value : nullptr;
}

unsigned XmlTreeItem::GetAttrib(const wchar_t* pszName, wchar_t* buf, unsigned cch) const
{
    if (!buf || !cch)
        return 0;
    buf[0] = 0;
    XmlAttrib* a = FindAttrib(pszName);
    if (!a || !a->value)
        return 0;
    size_t n = wcslen(a->value);
    if (n >= cch)
        n = cch - 1;
    wmemcpy(buf, a->value, n);
    buf[n] = 0;
    return (unsigned)n;
}

XmlAttrib* XmlTreeItem::AddAttrib(const wchar_t* pszName, const wchar_t* pszValue)
{
    XmlAttrib* a = new XmlAttrib(pszName, pszValue);
    listAttr.AddTail(a);
    return a;
}

XmlAttrib* XmlTreeItem::SetAttrib(const wchar_t* pszName, const wchar_t* pszValue)
{
    XmlAttrib* a = FindAttrib(pszName);
    if (!a)
        return AddAttrib(pszName, pszValue);
    a->SetValue(pszValue);
    return a;
}

int XmlTreeItem::DeleteAttrib(const wchar_t* pszName)
{
    XmlAttrib* a = FindAttrib(pszName);
    if (!a)
        return 0;
    listAttr.RemoveAt(listAttr.Find(a));
    return 1;
}

XmlAttrib* XmlTreeItem::SetAttribInt(const wchar_t* pszName, int v)
{
    wchar_t buf[16];
    swprintf(buf, 16, L"%d", v);
    return SetAttrib(pszName, buf);
}

int XmlTreeItem::GetAttribInt(const wchar_t* pszName) const
{
    const wchar_t* v = GetAttribValue(pszName);
    if (!v || !*v || wcslen(v) > 15)
        return 0;
    // Out-of-range numbers end at the limits, as a 32-bit strtol has it on every build.
    long long n = wcstoll(v, nullptr, 10);
    if (n > INT_MAX)
        return INT_MAX;
    if (n < INT_MIN)
        return INT_MIN;
    return (int)n;
}

// -------------------------------------------------------------------------------------------------
// XmlTree: the list

XmlTree::XmlTree(XmlTreeNode* parentNode)
    : silent(0), pHead(nullptr), pTail(nullptr), nCount(0), pParentNode(parentNode), prolog(nullptr), nErrorId(0),
      nErrorLine(0)
{
    szErrorContext[0] = 0;
}

XmlTree::~XmlTree()
{
    RemoveAll();
    Clean();
}

XmlTree* XmlTree::CreateTree(XmlTreeNode* parentNode)
{
    XmlTree* t = new XmlTree(parentNode);
    t->silent = silent;
    return t;
}

XmlTreeItem* XmlTree::CreateTreeItem(const wchar_t* pszName, const wchar_t* pszBody)
{
    return new XmlTreeItem(pszName, pszBody);
}

XmlTreeItem* XmlTree::GetNext(XmlPos& pos) const
{
    XmlTreeNode* node = pos;
    pos = node->pNext;
    return node->pItem;
}

XmlTreeItem* XmlTree::GetPrev(XmlPos& pos) const
{
    XmlTreeNode* node = pos;
    pos = node->pPrev;
    return node->pItem;
}

XmlPos XmlTree::FindPos(const XmlTreeItem* item) const
{
    for (XmlTreeNode* n = pHead; n; n = n->pNext)
        if (n->pItem == item)
            return n;
    return nullptr;
}

XmlTreeNode* XmlTree::Append(XmlTreeItem* item)
{
    XmlTreeNode* node = new XmlTreeNode{pTail, nullptr, item, nullptr, this};
    if (pTail)
        pTail->pNext = node;
    else
        pHead = node;
    pTail = node;
    ++nCount;
    return node;
}

XmlTree* XmlTree::AttachChild(XmlTreeNode* node)
{
    if (!node->pChild)
        node->pChild = CreateTree(node);
    return node->pChild;
}

XmlTreeItem* XmlTree::AddItem(const wchar_t* pszName, const wchar_t* pszBody)
{
    return AddItem(CreateTreeItem(pszName, pszBody));
}

XmlTreeItem* XmlTree::AddItem(XmlTreeItem* item)
{
    if (item)
        Append(item);
    return item;
}

XmlTree* XmlTree::AddSubTree(XmlTreeItem* item)
{
    XmlTreeNode* node = item ? FindPos(item) : pTail;
    return node ? AttachChild(node) : nullptr;
}

int XmlTree::DeleteItem(XmlTreeItem* item)
{
    XmlTreeNode* node = item ? FindPos(item) : nullptr;
    if (!node)
        return 0;
    if (node->pPrev)
        node->pPrev->pNext = node->pNext;
    else
        pHead = node->pNext;
    if (node->pNext)
        node->pNext->pPrev = node->pPrev;
    else
        pTail = node->pPrev;
    --nCount;
    // The node goes through a scratch level, whose RemoveAll takes its subtree apart without
    // recursion.
    XmlTree scratch;
    node->pPrev = node->pNext = nullptr;
    node->pOwner = &scratch;
    scratch.pHead = scratch.pTail = node;
    scratch.nCount = 1;
    scratch.RemoveAll();
    return 1;
}

void XmlTree::RemoveAll()
{
    // A node's children move to the end of this list before the node goes, so destroying a tree
    // of any depth takes constant stack and every node moves at most once.
    while (pHead) {
        XmlTreeNode* node = pHead;
        if (XmlTree* child = node->pChild) {
            node->pChild = nullptr;
            if (child->pHead) {
                pTail->pNext = child->pHead;
                child->pHead->pPrev = pTail;
                pTail = child->pTail;
                nCount += child->nCount;
                child->pHead = child->pTail = nullptr;
                child->nCount = 0;
            }
            delete child;
        }
        pHead = node->pNext;
        if (pHead)
            pHead->pPrev = nullptr;
        else
            pTail = nullptr;
        --nCount;
        delete node->pItem;
        delete node;
    }
    nCount = 0;
}

XmlPos XmlTree::FindMatch(const wchar_t* pszName, const wchar_t* pszAttrName, const wchar_t* pszAttrValue,
                          int bIgnoreCase, int bReverse) const
{
    for (XmlTreeNode* n = bReverse ? pTail : pHead; n; n = bReverse ? n->pPrev : n->pNext) {
        XmlTreeItem* item = n->pItem;
        if (!item || (pszName && !StrEqual(item->name, pszName)))
            continue;
        if (pszAttrName && pszAttrValue) {
            const wchar_t* v = item->GetAttribValue(pszAttrName);
            if (!v || !(bIgnoreCase ? StrEqualNoCase(v, pszAttrValue) : StrEqual(v, pszAttrValue)))
                continue;
        }
        return n;
    }
    return nullptr;
}

XmlTreeItem* XmlTree::FindItem(const wchar_t* pszName, const wchar_t* pszAttrName, const wchar_t* pszAttrValue,
                               int bIgnoreCase) const
{
    return GetAt(FindMatch(pszName, pszAttrName, pszAttrValue, bIgnoreCase, 0));
}

XmlTreeItem* XmlTree::FindItemReverse(const wchar_t* pszName, const wchar_t* pszAttrName,
                                      const wchar_t* pszAttrValue, int bIgnoreCase) const
{
    return GetAt(FindMatch(pszName, pszAttrName, pszAttrValue, bIgnoreCase, 1));
}

XmlPos XmlTree::FindItemPos(const wchar_t* pszName, const wchar_t* pszAttrName, const wchar_t* pszAttrValue,
                            int bIgnoreCase) const
{
    return FindMatch(pszName, pszAttrName, pszAttrValue, bIgnoreCase, 0);
}

XmlTree* XmlTree::FindSubTree(const wchar_t* pszName) const
{
    XmlPos pos = FindMatch(pszName, nullptr, nullptr, 0, 0);
    return pos ? pos->pChild : nullptr;
}

XmlTree* XmlTree::GetSubTree(const wchar_t* pszName)
{
    XmlPos pos = FindMatch(pszName, nullptr, nullptr, 0, 0);
    return pos ? AttachChild(pos) : nullptr;
}

void XmlTree::Clean() { StrRelease(prolog); }

void XmlTree::SetProlog(const wchar_t* text)
{
    wchar_t* p = StrDup(text);
    StrRelease(prolog);
    prolog = p;
}

// -------------------------------------------------------------------------------------------------
// Entities

const wchar_t* XmlTree::FindConversion(wchar_t c)
{
    for (const auto& e : kEntities)
        if (e.c == c)
            return e.text;
    return nullptr;
}

wchar_t XmlTree::FindConversion(const wchar_t* s, unsigned& len)
{
    for (const auto& e : kEntities) {
        unsigned i = 0;
        // Stops at the first difference, so a shorter s (its terminator differs) is never overrun.
        while (i < e.len && FoldAscii(s[i]) == e.text[i])
            ++i;
        if (i == e.len) {
            len = e.len;
            return e.c;
        }
    }
    len = 0;
    return 0;
}

void XmlTree::PutConvertStr(wchar_t*& out, const wchar_t* s, unsigned& count)
{
    if (!s)
        return;
    for (; *s; ++s) {
        if (const wchar_t* text = FindConversion(*s)) {
            PutChars(out, text, count);
        } else {
            if (out)
                *out++ = *s;
            AddCount(count, 1);
        }
    }
}

unsigned XmlTree::GetConvertStr(const wchar_t* s, wchar_t* out)
{
    unsigned n = 0;
    if (s) {
        while (*s) {
            unsigned len = 0;
            wchar_t c = (*s == L'&') ? FindConversion(s, len) : 0;
            if (c) {
                s += len;
            } else {
                c = *s++;
            }
            if (out)
                out[n] = c;
            ++n;
        }
    }
    if (out)
        out[n] = 0;
    return n;
}

// -------------------------------------------------------------------------------------------------
// Parser

void XmlTree::ParseAll(const wchar_t*& p)
{
    // The element lists are parsed in one loop: descending into an element's children moves to
    // its child tree, the end of a list moves back up through the parent node, so no input can
    // exhaust the stack.
    XmlTree* t = this;
    unsigned depth = 0;
    for (;;) {
        ParseSkipWhiteSpace(p);
        if (*p == L'<') {
            const wchar_t* lt = p;
            unsigned line = nLine;
            ++p;
            ParseSkipWhiteSpace(p);
            const wchar_t* nameEnd = ParseSkipName(p);
            if (nameEnd != p) {
                if (depth >= nMaxDepth)
                    throw ParseError{IdsSyntaxError, lt};
                wchar_t* name = CopyRange(p, (size_t)(nameEnd - p));
                p = nameEnd;
                XmlTreeItem* item = t->CreateTreeItem(name, nullptr);
                StrRelease(name);
                XmlTreeNode* node = t->Append(item);

                while (ParseAttribNameValue(p, item)) {
                }

                ParseSkipWhiteSpace(p);
                if (*p == L'/') {
                    ++p;
                    ParseSkipWhiteSpace(p);
                    if (*p != L'>')
                        throw ParseError{IdsUnexpected, p};
                    ++p;
                    continue;
                }
                if (*p != L'>')
                    throw ParseError{IdsUnexpected, p};
                ++p;
                ParseSkipWhiteSpace(p);
                if (*p == L'<' && PeekAfterWhiteSpace(p + 1) != L'/') {
                    t = t->AttachChild(node);
                    ++depth;
                    continue;
                }
                // ParseBody: the text runs to the next "<"; its leading white space and comments
                // are already behind p, trailing white space stays.
                const wchar_t* end = wcschr(p, L'<');
                if (!end)
                    throw ParseError{IdsMissingEndTag, p};
                CountLines(p, end);
                if (end > p)
                    item->body = DecodeRange(p, (size_t)(end - p));
                p = end;
                ParseSkipEndElement(p, item->name);
                continue;
            }
            // No name after "<" (as at "</"): the list ends before the "<".
            p = lt;
            nLine = line;
        }
        if (!depth)
            return;
        XmlTreeNode* parent = t->pParentNode;
        ParseSkipEndElement(p, parent->pItem->name);
        t = parent->pOwner;
        --depth;
    }
}

int XmlTree::Get(HWND owner, const wchar_t*& text)
{
    nErrorId = 0;
    nErrorLine = 0;
    szErrorContext[0] = 0;
    nLine = 1;
    const wchar_t* p = text ? text : L"";
    if (*p == 0xFEFF)
        ++p;
    const wchar_t* start = p;
    try {
        // ParseSkipProlog: line by line, up to the first element, "<" and a name. The prolog
        // ends at the start of the element's line, or earlier when a comment that started on an
        // earlier line ends there: the prolog never cuts a comment in two.
        const wchar_t* end;
        for (;;) {
            const wchar_t* lineStart = p;
            unsigned lineNo = nLine;
            if (!*p) {
                end = p;
                break;
            }
            ParseSkipWhiteSpaceLines(p, lineStart, lineNo);
            if (*p == L'<' && IsNameFirst(PeekAfterWhiteSpace(p + 1))) {
                p = end = lineStart;
                nLine = lineNo;
                break;
            }
            while (*p && *p != L'\n')
                ++p;
            if (*p == L'\n') {
                ++nLine;
                ++p;
            }
        }
        size_t n = (size_t)(end - start);
        if (n && start[n - 1] == L'\n')
            --n;
        if (n && start[n - 1] == L'\r')
            --n;
        wchar_t* pro = CopyRange(start, n);
        StrRelease(prolog);
        prolog = pro;

        if (!*p) {
            nErrorId = IdsNoData;
            nErrorLine = nLine;
            text = p;
            ParseShowError(owner);
            return 0;
        }
        ParseAll(p);
        ParseSkipWhiteSpace(p);
        if (*p)
            throw ParseError{IdsSyntaxError, p};
    } catch (const ParseError& e) {
        nErrorId = e.id;
        nErrorLine = nLine;
        unsigned i = 0;
        for (; i < nContextChars && e.pos[i]; ++i)
            szErrorContext[i] = e.pos[i];
        szErrorContext[i] = 0;
        text = e.pos;
        ParseShowError(owner);
        return 0;
    }
    text = p;
    return 1;
}

// -------------------------------------------------------------------------------------------------
// Writer

unsigned XmlTree::Put(wchar_t*& out)
{
    unsigned count = 0;
    nDepth = 0;
    PutChars(out, prolog ? prolog : L"<?xml version=\"1.0\"?>", count);
    PutChars(out, L"\r\n", count);

    // Walks the tree in document order through the child and parent links, without recursion.
    const XmlTree* t = this;
    const XmlTreeNode* node = pHead;
    for (;;) {
        if (!node) {
            if (t == this)
                break;
            node = t->pParentNode;
            t = node->pOwner;
            --nDepth;
            PutTabs(out, nDepth, count);
            PutChars(out, L"</", count);
            PutChars(out, node->pItem->name, count);
            PutChars(out, L">\r\n", count);
            node = node->pNext;
            continue;
        }
        const XmlTreeItem* item = node->pItem;
        PutTabs(out, nDepth, count);
        PutChars(out, L"<", count);
        PutChars(out, item->name, count);
        for (DMPos pos = item->listAttr.GetHeadPosition(); pos;) {
            const XmlAttrib* a = static_cast<const XmlAttrib*>(item->listAttr.GetNext(pos));
            if (!a)
                continue;
            PutChars(out, L" ", count);
            PutChars(out, a->name, count);
            PutChars(out, L"=\"", count);
            PutConvertStr(out, a->value, count);
            PutChars(out, L"\"", count);
        }
        if (!item->body && !node->pChild) {
            PutChars(out, L"/>\r\n", count);
            node = node->pNext;
            continue;
        }
        PutChars(out, L">", count);
        if (node->pChild) {
            PutChars(out, L"\r\n", count);
            t = node->pChild;
            node = t->pHead;
            ++nDepth;
            continue;
        }
        PutConvertStr(out, item->body, count);
        PutChars(out, L"</", count);
        PutChars(out, item->name, count);
        PutChars(out, L">\r\n", count);
        node = node->pNext;
    }
    if (out)
        *out++ = 0;
    AddCount(count, 1);
    nDepth = 0;
    return count;
}
