// The Windows half of XmlTree: message texts and boxes, and the document files.
#include <windows.h>

#include <climits>
#include <cstring>
#include <new>

#include "base/Handle.h"
#include "base/ProductInfo.h"
#include "base/Resources.h"
#include "base/StrUtil.h"
#include "storage/XmlTree.h"

namespace {

// A settings document is a few kilobytes; refusing anything this large keeps a damaged or
// hostile file from exhausting memory.
const DWORD kMaxFileBytes = 64u * 1024 * 1024;

// The required texts, used when the resource module carries no string of that number.
const struct {
    int id;
    const wchar_t* text;
} kMessages[] = {
    {XmlTree::IdsParseError, L"Error parsing XML document in line %d:\n\n%s: %s"},
    {XmlTree::IdsUnclosedComment, L"Unclosed comment"},
    {XmlTree::IdsSyntaxError, L"Syntax error"},
    {XmlTree::IdsUnexpected, L"Unexpected"},
    {XmlTree::IdsMissingName, L"Missing name of an element"},
    {XmlTree::IdsMissingEqual, L"Missing '='"},
    {XmlTree::IdsUnquotedValue, L"Unquoted attribute value"},
    {XmlTree::IdsMissingQuote, L"Missing closing quote"},
    {XmlTree::IdsMissingEndTag, L"Missing closing tag"},
    {XmlTree::IdsNoData, L"No XML data found."},
};

void ShowBox(HWND owner, const wchar_t* text)
{
    MessageBoxW(owner, text, ProductInfo::GetProductName(), MB_OK | MB_ICONERROR);
}

// "<path>" and the system's text of err, for files that cannot be opened, created or written.
// These go to the window that asked for the file; without one (the Group Policy path) nothing is
// shown. Parse errors follow the tree's silent flag instead.
void ShowFileError(HWND owner, const wchar_t* path, DWORD err)
{
    wchar_t sys[512] = L"";
    FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, err, 0, sys, 512, nullptr);
    wchar_t text[1024];
    StrFormat(text, L"%s\n\n%s", path ? path : L"", sys);
    ShowBox(owner, text);
    SetLastError(err);
}

bool WriteAll(HANDLE h, const void* data, DWORD cb)
{
    DWORD written = 0;
    return WriteFile(h, data, cb, &written, nullptr) && written == cb;
}

// The file's text as a zero-terminated wide string (delete[] it). UTF-16 with either byte order
// is recognised by its mark, or without one by a zero high byte in the first character; anything
// else is read as UTF-8. Marks are not part of the text.
wchar_t* DecodeText(const BYTE* data, DWORD cb)
{
    bool le = false, be = false;
    if (cb >= 2 && data[0] == 0xFF && data[1] == 0xFE) {
        le = true;
        data += 2, cb -= 2;
    } else if (cb >= 2 && data[0] == 0xFE && data[1] == 0xFF) {
        be = true;
        data += 2, cb -= 2;
    } else if (cb >= 3 && data[0] == 0xEF && data[1] == 0xBB && data[2] == 0xBF) {
        data += 3, cb -= 3;
    } else if (cb >= 2 && data[0] && !data[1]) {
        le = true;
    } else if (cb >= 2 && !data[0] && data[1]) {
        be = true;
    }
    if (le || be) {
        DWORD cch = cb / 2; // an odd last byte is not a character
        wchar_t* text = new (std::nothrow) wchar_t[cch + 1];
        if (!text)
            return nullptr;
        for (DWORD i = 0; i < cch; ++i)
            text[i] = le ? (wchar_t)(data[2 * i] | (data[2 * i + 1] << 8)) : (wchar_t)((data[2 * i] << 8) | data[2 * i + 1]);
        text[cch] = 0;
        return text;
    }
    int cch = cb ? MultiByteToWideChar(CP_UTF8, 0, (const char*)data, (int)cb, nullptr, 0) : 0;
    wchar_t* text = new (std::nothrow) wchar_t[(size_t)cch + 1];
    if (!text)
        return nullptr;
    if (cch)
        cch = MultiByteToWideChar(CP_UTF8, 0, (const char*)data, (int)cb, text, cch);
    text[cch] = 0;
    return text;
}

} // namespace

unsigned XmlTree::LoadMessage(int id, wchar_t* buf, unsigned cch)
{
    if (!buf || !cch)
        return 0;
    int n = LoadResString(id, buf, cch);
    if (n > 0)
        return (unsigned)n;
    for (const auto& m : kMessages)
        if (m.id == id)
            return StrCopy(buf, cch, m.text);
    buf[0] = 0;
    return 0;
}

unsigned XmlTree::FormatError(wchar_t* buf, unsigned cch) const
{
    if (!buf || !cch)
        return 0;
    buf[0] = 0;
    if (!nErrorId)
        return 0;
    if (nErrorId == IdsNoData)
        return LoadMessage(IdsNoData, buf, cch);
    wchar_t fmt[256], what[256];
    LoadMessage(IdsParseError, fmt, 256);
    LoadMessage(nErrorId, what, 256);
    return StrFormat(buf, cch, fmt, (int)nErrorLine, what, szErrorContext);
}

void XmlTree::ParseShowError(HWND owner) const
{
    if (silent)
        return;
    wchar_t text[768];
    FormatError(text, 768);
    ShowBox(owner, text);
}

int XmlTree::SaveFile(HWND owner, const wchar_t* path)
{
    wchar_t* none = nullptr;
    unsigned cch = Put(none);
    // A saturated count means the document cannot be held in memory at all.
    wchar_t* text = (cch == UINT_MAX) ? nullptr : new (std::nothrow) wchar_t[(size_t)cch + 1];
    if (!text) {
        if (owner)
            ShowFileError(owner, path, ERROR_NOT_ENOUGH_MEMORY);
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return 0;
    }
    wchar_t* out = text;
    Put(out);
    DWORD err = 0;
    {
        Handle file(CreateFileW(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
        if (!file.IsValid()) {
            err = GetLastError();
        } else {
            const BYTE bom[2] = {0xFF, 0xFE};
            // The terminating zero stays out of the file.
            if (!WriteAll(file.Get(), bom, sizeof(bom)) || !WriteAll(file.Get(), text, (cch - 1) * (DWORD)sizeof(wchar_t)))
                err = GetLastError();
        }
    }
    delete[] text;
    if (err) {
        if (owner)
            ShowFileError(owner, path, err);
        SetLastError(err);
        return 0;
    }
    return 1;
}

int XmlTree::LoadFile(HWND owner, const wchar_t* path)
{
    BYTE* data = nullptr;
    DWORD cb = 0, err = 0;
    {
        Handle file(CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
        LARGE_INTEGER size{};
        if (!file.IsValid() || !GetFileSizeEx(file.Get(), &size)) {
            err = GetLastError();
        } else if (size.QuadPart > (LONGLONG)kMaxFileBytes) {
            err = ERROR_FILE_TOO_LARGE;
        } else {
            data = new (std::nothrow) BYTE[(size_t)size.QuadPart + 1];
            if (!data)
                err = ERROR_NOT_ENOUGH_MEMORY;
            else if (!ReadFile(file.Get(), data, (DWORD)size.QuadPart, &cb, nullptr))
                err = GetLastError();
        }
    }
    wchar_t* text = err ? nullptr : DecodeText(data, cb);
    delete[] data;
    if (!err && !text)
        err = ERROR_NOT_ENOUGH_MEMORY;
    if (err) {
        if (owner)
            ShowFileError(owner, path, err);
        SetLastError(err);
        return 0;
    }
    const wchar_t* p = text;
    int ok = Get(owner, p);
    delete[] text;
    if (!ok)
        SetLastError(ERROR_INVALID_DATA);
    return ok;
}
