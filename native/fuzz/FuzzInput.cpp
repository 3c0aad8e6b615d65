#include <vector>

#include "fuzz/ParserChecks.h"

namespace vxfuzz {
namespace {

WideText FromVector(const std::vector<wchar_t>& v)
{
    WideText t;
    t.p.reset(new wchar_t[t.n = v.size()]);
    std::copy(v.begin(), v.end(), t.p.get());
    return t;
}

// One UTF-8 sequence at data[i]; U+FFFD for one malformed byte (overlong forms, encoded
// surrogates and values above U+10FFFF included).
wchar_t DecodeUtf8(const uint8_t* data, size_t size, size_t& i)
{
    uint8_t b = data[i++];
    if (b < 0x80)
        return (wchar_t)b;
    unsigned need = (b & 0xE0) == 0xC0 ? 1 : (b & 0xF0) == 0xE0 ? 2 : (b & 0xF8) == 0xF0 ? 3 : 0;
    uint32_t cp = b & (0x3F >> need), min = need == 1 ? 0x80 : need == 2 ? 0x800 : 0x10000;
    size_t j = i;
    for (unsigned k = 0; k < need; ++k, ++j) {
        if (j >= size || (data[j] & 0xC0) != 0x80)
            return 0xFFFD;
        cp = (cp << 6) | (data[j] & 0x3F);
    }
    if (!need || cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF))
        return 0xFFFD;
    i = j;
    return (wchar_t)cp;
}

} // namespace

WideText DecodeFileText(const uint8_t* data, size_t size)
{
    bool le = size >= 2 && data[0] == 0xFF && data[1] == 0xFE, be = size >= 2 && data[0] == 0xFE && data[1] == 0xFF;
    size_t skip = le || be ? 2 : size >= 3 && data[0] == 0xEF && data[1] == 0xBB && data[2] == 0xBF ? 3 : 0;
    if (!skip && size >= 2 && !data[0] != !data[1])
        le = data[0] != 0, be = !le;
    data += skip, size -= skip;
    std::vector<wchar_t> v;
    for (size_t i = 0; (le || be) && i + 1 < size; i += 2)
        v.push_back(le ? (wchar_t)(data[i] | (data[i + 1] << 8)) : (wchar_t)((data[i] << 8) | data[i + 1]));
    for (size_t i = 0; !le && !be && i < size;)
        v.push_back(DecodeUtf8(data, size, i));
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
    for (size_t i = 0; i < size; ++i)
        h = (h ^ data[i]) * 1099511628211ull;
    return h;
}

} // namespace vxfuzz
