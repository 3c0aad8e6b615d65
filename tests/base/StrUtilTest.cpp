// The bounded string helpers: every later buffer limit in Vantrel rests on them.
#include <gtest/gtest.h>

#include <cwchar>

#include "base/StrUtil.h"

namespace {

// A buffer pre-filled with 0xbdbd, so a write past the limit or a missing terminator shows.
template <unsigned N> struct Guarded {
    wchar_t buf[N + 4];
    Guarded()
    {
        for (auto& c : buf)
            c = 0xbdbd;
    }
    bool Intact() const { return buf[N] == 0xbdbd && buf[N + 1] == 0xbdbd && buf[N + 2] == 0xbdbd && buf[N + 3] == 0xbdbd; }
};

TEST(StrUtil, CopyCutsAndTerminatesAtTheLimit)
{
    Guarded<5> g;
    EXPECT_EQ(StrCopy(g.buf, 5, L"abcdefgh"), 4u);
    EXPECT_STREQ(g.buf, L"abcd");
    EXPECT_TRUE(g.Intact());

    Guarded<5> exact;
    EXPECT_EQ(StrCopy(exact.buf, 5, L"abcd"), 4u);
    EXPECT_STREQ(exact.buf, L"abcd");
    EXPECT_TRUE(exact.Intact());

    Guarded<1> one;
    EXPECT_EQ(StrCopy(one.buf, 1, L"abc"), 0u);
    EXPECT_EQ(one.buf[0], 0);
    EXPECT_TRUE(one.Intact());

    Guarded<3> none;
    EXPECT_EQ(StrCopy(none.buf, 0, L"abc"), 0u);
    EXPECT_EQ(none.buf[0], 0xbdbd) << "a zero-size buffer must not be touched";

    wchar_t b[8];
    EXPECT_EQ(StrCopy(b, nullptr), 0u);
    EXPECT_STREQ(b, L"");
    EXPECT_EQ(StrCopyN(b, 8, L"abcdef", 3), 3u);
    EXPECT_STREQ(b, L"abc");
}

TEST(StrUtil, AppendNeverRunsPastTheBuffer)
{
    Guarded<6> g;
    StrCopy(g.buf, 6, L"ab");
    EXPECT_EQ(StrAppend(g.buf, 6, L"cd"), 4u);
    EXPECT_EQ(StrAppend(g.buf, 6, L"efgh"), 5u);
    EXPECT_STREQ(g.buf, L"abcde");
    EXPECT_TRUE(g.Intact());

    // A destination that is not terminated within its size is cut, not read beyond.
    Guarded<4> raw;
    for (int i = 0; i < 4; ++i)
        raw.buf[i] = L'x';
    EXPECT_EQ(StrAppend(raw.buf, 4, L"y"), 3u);
    EXPECT_STREQ(raw.buf, L"xxx");
    EXPECT_TRUE(raw.Intact());
}

TEST(StrUtil, FormatUsesWideStringsAndCutsLongResults)
{
    wchar_t b[64];
    EXPECT_EQ(StrFormat(b, L"%s=dword:%08X", L"Timeout", 0xABCu), 22u);
    EXPECT_STREQ(b, L"Timeout=dword:00000ABC");
    StrFormat(b, L"%d:%02d", 4, 5);
    EXPECT_STREQ(b, L"4:05");

    Guarded<8> g;
    EXPECT_EQ(StrFormat(g.buf, 8, L"%s\\%s", L"HKLM\\Software", L"Korvane"), 7u);
    EXPECT_STREQ(g.buf, L"HKLM\\So");
    EXPECT_TRUE(g.Intact());

    // Exactly filling the buffer (no room for the terminator) is a cut too.
    Guarded<4> full;
    EXPECT_EQ(StrFormat(full.buf, 4, L"%s", L"abcd"), 3u);
    EXPECT_STREQ(full.buf, L"abc");
    EXPECT_TRUE(full.Intact());
}

TEST(StrUtil, ComparisonsTreatNullAsEmpty)
{
    EXPECT_TRUE(StrEqual(nullptr, L""));
    EXPECT_FALSE(StrEqual(L"a", L"A"));
    EXPECT_TRUE(StrEqualNoCase(L"Administrators", L"ADMINISTRATORS"));
    EXPECT_TRUE(StrEqualNoCase(L"\u00e9t\u00e9", L"\u00c9T\u00c9")) << "non-ASCII letters fold too";
    EXPECT_FALSE(StrEqualNoCase(L"abc", L"abcd"));
    EXPECT_LT(StrCompareNoCase(L"abc", L"ABD"), 0);
    EXPECT_GT(StrCompareNoCase(L"b", L"A"), 0);
    EXPECT_EQ(StrCompareNoCaseN(L"HKLMx", L"hklmY", 4), 0);

    EXPECT_TRUE(StrStartsWith(L"Admins", L"ad", true));
    EXPECT_FALSE(StrStartsWith(L"Admins", L"ad", false));
    EXPECT_TRUE(StrStartsWith(L"Admins", L"", false));
    EXPECT_FALSE(StrStartsWith(L"Ad", L"Admins", true));
}

TEST(StrUtil, HeapCopies)
{
    EXPECT_EQ(StrDup(nullptr), nullptr);
    wchar_t* p = StrDup(L"ApplyTo");
    ASSERT_NE(p, nullptr);
    EXPECT_STREQ(p, L"ApplyTo");
    StrFree(p);
    p = StrDupN(L"ApplyTo", 5);
    EXPECT_STREQ(p, L"Apply");
    StrFree(p);
    StrFree(nullptr);
}

} // namespace

// The one placeholder an administrator's text may hold: "%d" takes the number, "%%" is a percent
// sign, and nothing else is a format; a result too long is cut, even inside the number.
TEST(StrUtil, ExpandNumberReplacesOnlyItsPlaceholder)
{
    struct { const wchar_t* text; unsigned cch; const wchar_t* want; } cases[] = {
        {L"In %d min, %d!", 64, L"In 12 min, 12!"},
        {L"100%% %s %x %", 64, L"100% %s %x %"},
        {L"%%d stays", 64, L"%d stays"},
        {L"Go %d", 5, L"Go 1"},
        {L"", 4, L""},
        {nullptr, 4, L""},
    };
    for (auto& c : cases) {
        wchar_t out[65];
        wmemset(out, 0xbdbd, 65);
        unsigned n = StrExpandNumber(out, c.cch, c.text, L"12");
        EXPECT_STREQ(c.want, out);
        EXPECT_EQ(wcslen(c.want), n);
        EXPECT_EQ((wchar_t)0xbdbd, out[c.cch]) << "nothing written past the size";
    }
}
