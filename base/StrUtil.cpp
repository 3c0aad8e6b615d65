#include "base/StrUtil.h"

#include <cwchar>
#include <cwctype>
#include <new>
#ifdef _WIN32
#include <windows.h>
#endif

unsigned StrLen(const wchar_t* s) { return s ? (unsigned)wcslen(s) : 0; }

unsigned StrCopyN(wchar_t* dst, unsigned cch, const wchar_t* src, unsigned n)
{
    if (!dst || cch == 0)
        return 0;
    unsigned i = 0;
    if (src) {
        while (i + 1 < cch && i < n && src[i]) {
            dst[i] = src[i];
            ++i;
        }
    }
    dst[i] = 0;
    return i;
}

unsigned StrCopy(wchar_t* dst, unsigned cch, const wchar_t* src) { return StrCopyN(dst, cch, src, ~0u); }

unsigned StrExpandNumber(wchar_t* dst, unsigned cch, const wchar_t* text, const wchar_t* value)
{
    if (!dst || cch == 0)
        return 0;
    if (!value)
        value = L"";
    unsigned n = 0;
    for (const wchar_t* p = text ? text : L""; *p && n + 1 < cch;) {
        if (p[0] == L'%' && p[1] == L'd') {
            for (const wchar_t* v = value; *v && n + 1 < cch; ++v)
                dst[n++] = *v;
            p += 2;
        } else if (p[0] == L'%' && p[1] == L'%') {
            dst[n++] = L'%';
            p += 2;
        } else {
            dst[n++] = *p++;
        }
    }
    dst[n] = 0;
    return n;
}

unsigned StrAppend(wchar_t* dst, unsigned cch, const wchar_t* src)
{
    if (!dst || cch == 0)
        return 0;
    unsigned len = 0;
    while (len < cch && dst[len])
        ++len;
    if (len >= cch) { // not terminated: terminate at the end rather than run past it
        dst[cch - 1] = 0;
        return cch - 1;
    }
    return len + StrCopy(dst + len, cch - len, src);
}

unsigned StrFormatV(wchar_t* dst, unsigned cch, const wchar_t* fmt, va_list args)
{
    if (!dst || cch == 0)
        return 0;
    if (!fmt) {
        dst[0] = 0;
        return 0;
    }
#ifdef _WIN32
    // The C runtime's own formatter: "%s" takes a wide string, as the format texts expect.
    int n = _vsnwprintf(dst, cch, fmt, args);
#else
    int n = vswprintf(dst, cch, fmt, args);
#endif
    if (n < 0 || (unsigned)n >= cch) {
        dst[cch - 1] = 0;
        return (unsigned)wcslen(dst);
    }
    return (unsigned)n;
}

unsigned StrFormat(wchar_t* dst, unsigned cch, const wchar_t* fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    unsigned n = StrFormatV(dst, cch, fmt, args);
    va_end(args);
    return n;
}

static inline wchar_t FoldCase(wchar_t c)
{
#ifdef _WIN32
    // Simple upper-casing as the registry and the file system compare names.
    return (wchar_t)(ULONG_PTR)CharUpperW((LPWSTR)(ULONG_PTR)(unsigned short)c);
#else
    return (wchar_t)towupper(c);
#endif
}

int StrCompareNoCaseN(const wchar_t* a, const wchar_t* b, unsigned n)
{
    if (!a) a = L"";
    if (!b) b = L"";
    for (unsigned i = 0; i < n; ++i) {
        wchar_t ca = FoldCase(a[i]), cb = FoldCase(b[i]);
        if (ca != cb)
            return ca < cb ? -1 : 1;
        if (!ca)
            return 0;
    }
    return 0;
}

int StrCompareNoCase(const wchar_t* a, const wchar_t* b) { return StrCompareNoCaseN(a, b, ~0u); }

bool StrEqual(const wchar_t* a, const wchar_t* b) { return wcscmp(a ? a : L"", b ? b : L"") == 0; }

bool StrEqualNoCase(const wchar_t* a, const wchar_t* b) { return StrCompareNoCase(a, b) == 0; }

bool StrStartsWith(const wchar_t* s, const wchar_t* prefix, bool bIgnoreCase)
{
    unsigned n = StrLen(prefix);
    if (StrLen(s) < n)
        return false;
    if (bIgnoreCase)
        return StrCompareNoCaseN(s, prefix, n) == 0;
    return n == 0 || wcsncmp(s, prefix, n) == 0;
}

wchar_t* StrDupN(const wchar_t* s, unsigned n)
{
    if (!s)
        return nullptr;
    unsigned len = 0;
    while (len < n && s[len])
        ++len;
    wchar_t* p = new (std::nothrow) wchar_t[len + 1];
    if (p) {
        for (unsigned i = 0; i < len; ++i)
            p[i] = s[i];
        p[len] = 0;
    }
    return p;
}

wchar_t* StrDup(const wchar_t* s) { return StrDupN(s, ~0u); }

void StrFree(wchar_t* s) { delete[] s; }
