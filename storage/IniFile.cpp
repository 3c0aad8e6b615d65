// The parsing half of IniFile: no Windows calls here (see IniFile.h).
#include "storage/IniFile.h"

#include <cwchar>
#include <new>

#include "base/StrUtil.h"

namespace {

inline bool IsBlank(wchar_t c) { return c == L' ' || c == L'\t'; }

void Append(wchar_t*& out, const wchar_t* s, unsigned& count)
{
    for (; s && *s; ++s, ++count)
        if (out)
            *out++ = *s;
}

} // namespace

int IniFile::Parser::AtLineEnd() const
{
    if (!IsIn() || *p == L'\n')
        return 1;
    return *p == L'\r' && p + 1 < pEnd && p[1] == L'\n';
}

void IniFile::Parser::SkipBlanks()
{
    while (IsIn() && IsBlank(*p))
        ++p;
}

void IniFile::Parser::SkipLineEnd()
{
    if (!IsIn())
        return;
    if (*p == L'\n')
        ++p;
    else if (*p == L'\r' && p + 1 < pEnd && p[1] == L'\n')
        p += 2;
}

void IniFile::Parser::SkipLine()
{
    while (!AtLineEnd())
        ++p;
    SkipLineEnd();
}

unsigned IniFile::Parser::CopyUntil(wchar_t* buf, unsigned cch, wchar_t stop)
{
    unsigned n = 0;
    while (!AtLineEnd() && !(stop && *p == stop)) {
        if (n + 1 < cch)
            buf[n++] = *p;
        ++p;
    }
    if (cch)
        buf[n] = 0;
    return n;
}

IniFile::IniFile() : pParser(nullptr) { szPath[0] = 0; }

IniFile::IniFile(const wchar_t* path) : pParser(nullptr) { StrCopy(szPath, nPathChars, path); }

IniFile::~IniFile() { DeleteParser(); }

void IniFile::SetPath(const wchar_t* path) { StrCopy(szPath, nPathChars, path); }

void IniFile::DeleteParser()
{
    delete pParser;
    pParser = nullptr;
}

void IniFile::WriteSec(wchar_t*& out, const wchar_t* name, unsigned& count)
{
    Append(out, L"[", count);
    Append(out, name, count);
    Append(out, L"]\r\n", count);
}

void IniFile::WriteVar(wchar_t*& out, const wchar_t* name, const wchar_t* value, unsigned& count)
{
    Append(out, name, count);
    Append(out, L"=", count);
    Append(out, value, count);
    Append(out, L"\r\n", count);
}

int IniFile::ReadComments(const wchar_t* section)
{
    wchar_t text[nMaxTextChars + 1];
    Parser& ps = *pParser;
    for (;;) {
        const wchar_t* line = ps.p;
        ps.SkipBlanks();
        if (!ps.IsIn())
            return 1; // the end of the text is not an empty line of its own
        if (!ps.AtLineEnd() && *ps.p != L';') {
            ps.p = line;
            return 1;
        }
        ps.CopyUntil(text, nMaxTextChars + 1, 0);
        ps.SkipLine();
        if (!HandleEvent(EvComment, section, text, L""))
            return 0;
    }
}

int IniFile::ReadAllParsed()
{
    wchar_t section[nMaxTextChars + 1];
    wchar_t name[nMaxTextChars + 1];
    wchar_t value[nMaxTextChars + 1];
    Parser& ps = *pParser;

    if (ps.Peek() == 0xFEFF)
        ++ps.p;
    if (!ReadComments(L""))
        return 0;
    for (;;) {
        // The section header.
        while (ps.IsIn() && (IsBlank(*ps.p) || ps.AtLineEnd())) {
            ps.SkipBlanks();
            ps.SkipLineEnd();
        }
        if (ps.Peek() != L'[')
            break;
        ++ps.p;
        ps.CopyUntil(section, nMaxTextChars + 1, L']');
        if (ps.Peek() != L']')
            break;
        ps.SkipLine();
        if (!ReadComments(section))
            return 0;

        // Its variables.
        for (;;) {
            while (ps.IsIn() && (IsBlank(*ps.p) || ps.AtLineEnd())) {
                ps.SkipBlanks();
                ps.SkipLineEnd();
            }
            wchar_t c = ps.Peek();
            if (c == 0 || c == L';' || c == L'[')
                break;
            const wchar_t* line = ps.p;
            unsigned n = ps.CopyUntil(name, nMaxTextChars + 1, L'=');
            if (ps.Peek() != L'=') {
                ps.p = line; // not a variable: the section header check ends reading
                break;
            }
            while (n && name[n - 1] == L' ')
                name[--n] = 0;
            ++ps.p;
            ps.SkipBlanks();
            ps.CopyUntil(value, nMaxTextChars + 1, 0);
            ps.SkipLine();
            if (!HandleEvent(EvVariable, section, name, value))
                return 0;
            if (!ReadComments(section))
                return 0;
        }
    }
    return HandleEvent(EvEnd, L"", L"", L"");
}

int IniFile::ReadAll(const wchar_t* text, unsigned len)
{
    DeleteParser();
    if (!text)
        text = L"";
    if (len == 0)
        len = (unsigned)wcslen(text);
    if (!HandleEvent(EvStart, L"", L"", L""))
        return 0;
    pParser = new (std::nothrow) Parser(text, text + len);
    if (!pParser)
        return 0;
    int ok = ReadAllParsed();
    DeleteParser();
    return ok;
}
