// Bounded wide-string helpers. Every routine that writes takes the destination's size in
// characters, never writes past it, and always leaves a terminating zero when the size is
// not 0. Null sources read as empty strings. They are used instead of raw wcscpy/swprintf
// everywhere in Vantrel, so a long registry value or user name can only ever be cut short.
#pragma once
#include <cstdarg>
#include <cstddef>

// Copies src into dst (cch characters including the terminator); returns the characters copied.
unsigned StrCopy(wchar_t* dst, unsigned cch, const wchar_t* src);
// Copies at most n characters of src.
unsigned StrCopyN(wchar_t* dst, unsigned cch, const wchar_t* src, unsigned n);
// Appends src to the string in dst; returns the new length of dst.
unsigned StrAppend(wchar_t* dst, unsigned cch, const wchar_t* src);
// Formats with the Windows conventions ("%s" is a wide string); returns the length written.
// A result that does not fit is cut and terminated.
unsigned StrFormat(wchar_t* dst, unsigned cch, const wchar_t* fmt, ...);
unsigned StrFormatV(wchar_t* dst, unsigned cch, const wchar_t* fmt, va_list args);

// Copies text into dst with each "%d" replaced by value and each "%%" by "%"; every other
// character, "%" included, is copied as it is. This is how an administrator's message text takes
// its number: it is never handed to printf as a format, so a stray "%s" in it does no harm.
// Returns the length written; a result that does not fit is cut and terminated.
unsigned StrExpandNumber(wchar_t* dst, unsigned cch, const wchar_t* text, const wchar_t* value);

unsigned StrLen(const wchar_t* s);
inline bool StrIsEmpty(const wchar_t* s) { return !s || !*s; }
// Exact and case-insensitive equality; null equals empty.
bool StrEqual(const wchar_t* a, const wchar_t* b);
bool StrEqualNoCase(const wchar_t* a, const wchar_t* b);
// Case-insensitive comparison of at most n characters (ordinal, like the registry's own rules).
int StrCompareNoCaseN(const wchar_t* a, const wchar_t* b, unsigned n);
int StrCompareNoCase(const wchar_t* a, const wchar_t* b);
bool StrStartsWith(const wchar_t* s, const wchar_t* prefix, bool bIgnoreCase);

// Owned heap copies: StrDup(null) gives null; StrFree(null) is harmless.
wchar_t* StrDup(const wchar_t* s);
wchar_t* StrDupN(const wchar_t* s, unsigned n);
void StrFree(wchar_t* s);
// Frees an owned copy and empties the pointer that held it.
inline void StrRelease(wchar_t*& s)
{
    StrFree(s);
    s = nullptr;
}

// Fixed-array conveniences: the size comes from the array itself.
template <unsigned N> inline unsigned StrCopy(wchar_t (&dst)[N], const wchar_t* src) { return StrCopy(dst, N, src); }
template <unsigned N> inline unsigned StrAppend(wchar_t (&dst)[N], const wchar_t* src) { return StrAppend(dst, N, src); }
template <unsigned N> inline unsigned StrFormat(wchar_t (&dst)[N], const wchar_t* fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    unsigned n = StrFormatV(dst, N, fmt, args);
    va_end(args);
    return n;
}
