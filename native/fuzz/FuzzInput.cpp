#include "fuzz/FuzzInput.h"

#include <vector>

namespace vxfuzz {

namespace {

WideText FromVector(const std::vector<wchar_t>& v)
{
    WideText t;
    t.n = v.size();
    t.p.reset(new wchar_t[t.n]);
    for (size_t i = 0; i < t.n; ++i)
        t.p[i] = v[i];
    return t;
}

// One UTF-8 sequence at data[i]: its code point, or U+FFFD for one malformed byte (overlong
// forms, encoded surrogates and values above U+10FFFF are malformed).
wchar_t DecodeUtf8(const uint8_t* data, size_t size, size_t& i)
{
    const wchar_t bad = 0xFFFD;
    uint8_t b = data[i++];
    if (b < 0x80)
        return (wchar_t)b;
    unsigned need;
    uint32_t cp, min;
    if ((b & 0xE0) == 0xC0) {
        need = 1, cp = b & 0x1F, min = 0x80;
    } else if ((b & 0xF0) == 0xE0) {
        need = 2, cp = b & 0x0F, min = 0x800;
    } else if ((b & 0xF8) == 0xF0) {
        need = 3, cp = b & 0x07, min = 0x10000;
    } else {
        return bad;
    }
    size_t j = i;
    for (unsigned k = 0; k < need; ++k, ++j) {
        if (j >= size || (data[j] & 0xC0) != 0x80)
            return bad;
        cp = (cp << 6) | (data[j] & 0x3F);
    }
    if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF))
        return bad;
    i = j;
    return (wchar_t)cp;
}

} // namespace

WideText DecodeFileText(const uint8_t* data, size_t size)
{
    bool le = false, be = false;
    if (size >= 2 && data[0] == 0xFF && data[1] == 0xFE) {
        le = true;
        data += 2, size -= 2;
    } else if (size >= 2 && data[0] == 0xFE && data[1] == 0xFF) {
        be = true;
        data += 2, size -= 2;
    } else if (size >= 3 && data[0] == 0xEF && data[1] == 0xBB && data[2] == 0xBF) {
        data += 3, size -= 3;
    } else if (size >= 2 && data[0] && !data[1]) {
        le = true;
    } else if (size >= 2 && !data[0] && data[1]) {
        be = true;
    }
    std::vector<wchar_t> v;
    if (le || be) {
        for (size_t i = 0; i + 1 < size; i += 2)
            v.push_back(le ? (wchar_t)(data[i] | (data[i + 1] << 8)) : (wchar_t)((data[i] << 8) | data[i + 1]));
    } else {
        for (size_t i = 0; i < size;)
            v.push_back(DecodeUtf8(data, size, i));
    }
    v.push_back(0);
    return FromVector(v);
}

WideText Utf16LeUnits(const uint8_t* data, size_t size)
{
    std::vector<wchar_t> v;
    for (size_t i = 0; i + 1 < size; i += 2)
        v.push_back((wchar_t)(data[i] | (data[i + 1] << 8)));
    return FromVector(v);
}

WideText Terminated(const wchar_t* text, size_t n)
{
    std::vector<wchar_t> v(text, text + n);
    v.push_back(0);
    return FromVector(v);
}

uint64_t HashBytes(const uint8_t* data, size_t size)
{
    uint64_t h = 14695981039346656037ull;
    for (size_t i = 0; i < size; ++i) {
        h ^= data[i];
        h *= 1099511628211ull;
    }
    return h;
}

} // namespace vxfuzz
