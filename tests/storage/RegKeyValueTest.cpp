// Values: typed reads with defaults, writes that only touch the registry when the setting
// changed, the fixed buffer size rules of string reads, binary values, deletion by prefix.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "storage/RegKey.h"
#include "support/TestSupport.h"
#include "RegTestUtil.h"

using regtest::Guarded;
using vxtest::ScopedTestKey;

namespace {

DWORD RawType(const std::wstring& sub, const wchar_t* name)
{
    DWORD type = 0;
    std::vector<BYTE> data;
    return vxtest::RawGet(sub, name, &type, &data) ? type : 0xFFFFFFFF;
}

size_t RawSize(const std::wstring& sub, const wchar_t* name)
{
    DWORD type = 0;
    std::vector<BYTE> data;
    return vxtest::RawGet(sub, name, &type, &data) ? data.size() : (size_t)-1;
}

TEST(RegKeyValue, DwordsAreWrittenOnlyWhenDifferent)
{
    ScopedTestKey t(L"dw");
    RegKey k(t.path().c_str(), 1);
    ASSERT_TRUE(k.IsReady());
    EXPECT_EQ(k.GetDword(L"D", 42), 42u);
    EXPECT_EQ(k.GetInt(L"D", -3), -3);

    // An absent value always counts as different, whatever is written, 0 and ~0 included.
    EXPECT_TRUE(k.PutDword(L"Zero", 0, 1));
    EXPECT_EQ(RawType(t.sub(), L"Zero"), (DWORD)REG_DWORD);
    EXPECT_EQ(vxtest::RawGetDword(t.sub(), L"Zero", 99), 0u);
    EXPECT_TRUE(k.PutDword(L"Max", 0xFFFFFFFF, 1));
    EXPECT_EQ(RawSize(t.sub(), L"Max"), 4u);
    EXPECT_EQ(vxtest::RawGetDword(t.sub(), L"Max", 0), 0xFFFFFFFFu);
    EXPECT_TRUE(k.PutInt(L"Neg", -2));
    EXPECT_EQ(vxtest::RawGetDword(t.sub(), L"Neg", 0), 0xFFFFFFFEu);
    EXPECT_EQ(k.GetInt(L"Neg", 0), -2);

    // The same value is not written: the stored type stays what another writer left, and a
    // read-only key still answers true because nothing had to be written.
    const DWORD five = 5;
    ASSERT_TRUE(vxtest::RawSetBin(t.sub(), L"D", &five, 4, REG_BINARY));
    EXPECT_EQ(k.GetDword(L"D", 0), 5u) << "the stored type is not checked";
    EXPECT_TRUE(k.PutDword(L"D", 5, 1));
    EXPECT_EQ(RawType(t.sub(), L"D"), (DWORD)REG_BINARY) << "an equal value was rewritten";
    {
        RegKey ro(t.path().c_str(), 0);
        EXPECT_TRUE(ro.PutDword(L"D", 5, 1));
        EXPECT_TRUE(ro.PutInt(L"Neg", -2));
        EXPECT_FALSE(ro.PutDword(L"D", 6, 1));
        EXPECT_FALSE(ro.PutDword(L"D", 5, 0)) << "without the flag the write is attempted";
    }
    EXPECT_TRUE(k.PutDword(L"D", 6, 1));
    EXPECT_EQ(RawType(t.sub(), L"D"), (DWORD)REG_DWORD);
    EXPECT_EQ(vxtest::RawGetDword(t.sub(), L"D"), 6u);
    // Without the flag the value is written even when equal: the type becomes REG_DWORD.
    ASSERT_TRUE(vxtest::RawSetBin(t.sub(), L"D", &five, 4, REG_BINARY));
    EXPECT_TRUE(k.PutDword(L"D", 5, 0));
    EXPECT_EQ(RawType(t.sub(), L"D"), (DWORD)REG_DWORD);

    EXPECT_TRUE(k.PutDwordOrDeleteIfZero(L"D", 0, 1));
    EXPECT_FALSE(vxtest::RawValueExists(t.sub(), L"D"));
    EXPECT_TRUE(k.PutDwordOrDeleteIfZero(L"D", 9, 1));
    EXPECT_EQ(vxtest::RawGetDword(t.sub(), L"D"), 9u);
}

TEST(RegKeyValue, GetStrFitsExactlyCchCharactersAndFallsBackToTheDefault)
{
    ScopedTestKey t(L"gs");
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(), L"S", L"abcd")); // 10 bytes with the terminator
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(), L"Empty", L""));
    RegKey k(t.path().c_str(), 0);
    ASSERT_TRUE(k.IsReady());

    Guarded<5> fits;
    EXPECT_EQ(k.GetStr(L"S", fits.buf, 5, nullptr), 4);
    EXPECT_STREQ(fits.buf, L"abcd");
    EXPECT_TRUE(fits.Intact());

    // One character short: nothing of the value is read.
    Guarded<4> shortNull;
    EXPECT_EQ(k.GetStr(L"S", shortNull.buf, 4, nullptr), 0);
    EXPECT_EQ(shortNull.buf[0], 0);
    EXPECT_TRUE(shortNull.Intact());
    Guarded<4> shortDef;
    EXPECT_EQ(k.GetStr(L"S", shortDef.buf, 4, L"xy"), 2);
    EXPECT_STREQ(shortDef.buf, L"xy");
    EXPECT_TRUE(shortDef.Intact());

    // The default is cut to the buffer; the length of what landed is returned.
    Guarded<4> cut;
    EXPECT_EQ(k.GetStr(L"Absent", cut.buf, 4, L"defaultvalue"), 3);
    EXPECT_STREQ(cut.buf, L"def");
    EXPECT_TRUE(cut.Intact());

    // A default that is the buffer itself stays as it is.
    Guarded<16> self;
    wcscpy(self.buf, L"keep me");
    EXPECT_EQ(k.GetStr(L"Absent", self.buf, 16, self.buf), 7);
    EXPECT_STREQ(self.buf, L"keep me");
    EXPECT_TRUE(self.Intact());

    Guarded<8> empty;
    EXPECT_EQ(k.GetStr(L"Empty", empty.buf, 8, L"def"), 0) << "an existing empty string is not replaced by the default";
    EXPECT_EQ(empty.buf[0], 0);
    Guarded<8> absent;
    EXPECT_EQ(k.GetStr(L"Absent", absent.buf, 8, nullptr), 0);
    EXPECT_EQ(absent.buf[0], 0);

    EXPECT_EQ(k.GetStrSize(L"S"), 6);
    EXPECT_EQ(k.GetStrSize(L"Empty"), 0);
    EXPECT_EQ(k.GetStrSize(L"Absent"), 0);
}

TEST(RegKeyValue, GetStrTerminatesAValueStoredWithoutTerminator)
{
    // Other tools may store strings without the terminating zero; a read that fills the buffer
    // must still leave a terminated string inside it.
    ScopedTestKey t(L"noterm");
    // The character after the stored ones must not be zero, or the system adds the terminator.
    const wchar_t raw[5] = {L'a', L'b', L'c', L'd', L'e'};
    ASSERT_TRUE(vxtest::RawSetBin(t.sub(), L"S", raw, 8, REG_SZ));
    ASSERT_EQ(RawSize(t.sub(), L"S"), 8u);
    RegKey k(t.path().c_str(), 0);
    Guarded<4> g;
    int n = k.GetStr(L"S", g.buf, 4, nullptr);
    EXPECT_TRUE(g.Intact());
    EXPECT_LT(wcsnlen(g.buf, 4), 4u) << "no terminator inside the buffer";
    EXPECT_EQ((size_t)n, wcsnlen(g.buf, 4));
    EXPECT_EQ(k.GetStrSize(L"S"), 5);
}

TEST(RegKeyValue, PutStrComparesCaseSensitivelyAndNeverMatchesAnAbsentValue)
{
    ScopedTestKey t(L"ps");
    RegKey k(t.path().c_str(), 1);
    ASSERT_TRUE(k.IsReady());

    EXPECT_TRUE(k.PutStr(L"S", L"abcd", 1));
    EXPECT_EQ(RawType(t.sub(), L"S"), (DWORD)REG_SZ);
    EXPECT_EQ(RawSize(t.sub(), L"S"), 10u);

    // An empty string for an absent value is a change: the value must appear.
    EXPECT_TRUE(k.PutStr(L"E", L"", 1));
    EXPECT_TRUE(vxtest::RawValueExists(t.sub(), L"E"));
    EXPECT_EQ(RawSize(t.sub(), L"E"), 2u);
    EXPECT_EQ(RawType(t.sub(), L"E"), (DWORD)REG_SZ);

    // Equal strings are not rewritten (a read-only key says true), nor is an existing empty
    // string; a case change is a change.
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(), L"X", L"Path", REG_EXPAND_SZ));
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(), L"E2", L"", REG_EXPAND_SZ));
    {
        RegKey ro(t.path().c_str(), 0);
        EXPECT_TRUE(ro.PutStr(L"X", L"Path", 1));
        EXPECT_TRUE(ro.PutStr(L"E", L"", 1));
        EXPECT_FALSE(ro.PutStr(L"Absent", L"", 1));
        EXPECT_FALSE(ro.PutStr(L"X", L"path", 1));
    }
    EXPECT_TRUE(k.PutStr(L"X", L"path", 1));
    EXPECT_EQ(vxtest::RawGetStr(t.sub(), L"X"), L"path");
    EXPECT_EQ(RawType(t.sub(), L"X"), (DWORD)REG_SZ);
    // A stored "1" is not mistaken for an absent value when writing an empty string.
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(), L"One", L"1"));
    EXPECT_TRUE(k.PutStr(L"One", L"", 1));
    EXPECT_EQ(vxtest::RawGetStr(t.sub(), L"One"), L"");
    // Nor is a stored string longer than the new one.
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(), L"Long", L"a much longer text"));
    EXPECT_TRUE(k.PutStr(L"Long", L"", 1));
    EXPECT_EQ(vxtest::RawGetStr(t.sub(), L"Long"), L"");
    // Without the flag an equal string is written again.
    EXPECT_TRUE(k.PutStr(L"E2", L"", 0));
    EXPECT_EQ(RawType(t.sub(), L"E2"), (DWORD)REG_SZ);

    // An equal text under another string type is left alone; a different text is written.
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(), L"S", L"abcd", REG_EXPAND_SZ));
    EXPECT_TRUE(k.PutStr(L"S", L"abcd", 1));
    EXPECT_EQ(RawType(t.sub(), L"S"), (DWORD)REG_EXPAND_SZ) << "an equal string was rewritten";
    EXPECT_TRUE(k.PutStr(L"S", L"abce", 1));
    EXPECT_EQ(RawType(t.sub(), L"S"), (DWORD)REG_SZ);
    EXPECT_EQ(vxtest::RawGetStr(t.sub(), L"S"), L"abce");

    EXPECT_TRUE(k.PutStrOrDelEmpty(L"S", L"", 1));
    EXPECT_FALSE(vxtest::RawValueExists(t.sub(), L"S"));
    EXPECT_TRUE(k.PutStrOrDelEmpty(L"S", L"v", 1));
    EXPECT_EQ(vxtest::RawGetStr(t.sub(), L"S"), L"v");
}

TEST(RegKeyValue, BinaryValues)
{
    ScopedTestKey t(L"bin");
    RegKey k(t.path().c_str(), 1);
    ASSERT_TRUE(k.IsReady());
    BYTE data[300];
    for (int i = 0; i < 300; ++i)
        data[i] = (BYTE)(i * 7 + 1);
    EXPECT_EQ(k.GetBinSize(L"B"), 0u);
    EXPECT_TRUE(k.PutBin(L"B", data, 300));
    EXPECT_EQ(RawType(t.sub(), L"B"), (DWORD)REG_BINARY);
    EXPECT_EQ(k.GetBinSize(L"B"), 300u);
    EXPECT_EQ(k.GetValueType(L"B"), (DWORD)REG_BINARY);

    // A cb of 0 accepts any size.
    BYTE out[310];
    memset(out, 0xbd, sizeof(out));
    DWORD type = 0;
    EXPECT_TRUE(k.GetBin(L"B", out, 0, &type));
    EXPECT_EQ(type, (DWORD)REG_BINARY);
    EXPECT_EQ(memcmp(out, data, 300), 0);
    EXPECT_EQ(out[300], 0xbd);

    // A buffer one byte short reads nothing; an exact or larger one reads.
    memset(out, 0xbd, sizeof(out));
    EXPECT_FALSE(k.GetBin(L"B", out, 299));
    EXPECT_EQ(out[0], 0xbd);
    EXPECT_TRUE(k.GetBin(L"B", out, 300));
    EXPECT_EQ(memcmp(out, data, 300), 0);
    EXPECT_TRUE(k.GetBin(L"B", out, 310));
    EXPECT_FALSE(k.GetBin(L"Absent", out, 0));

    // Equal bytes are not rewritten: a read-only key says true.
    {
        RegKey ro(t.path().c_str(), 0);
        EXPECT_TRUE(ro.PutBin(L"B", data, 300));
        EXPECT_FALSE(ro.PutBin(L"B", data, 299)) << "a shorter value is different";
        BYTE changed[300];
        memcpy(changed, data, 300);
        changed[299] ^= 1;
        EXPECT_FALSE(ro.PutBin(L"B", changed, 300));
    }
    EXPECT_TRUE(k.PutBin(L"B", data, 12, REG_SZ));
    EXPECT_EQ(RawType(t.sub(), L"B"), (DWORD)REG_SZ);
    EXPECT_EQ(RawSize(t.sub(), L"B"), 12u);

    EXPECT_TRUE(k.FindValue(L"B"));
    EXPECT_FALSE(k.FindValue(L"Absent"));
    EXPECT_EQ(k.GetValueType(L"Absent"), 0u);
}

TEST(RegKeyValue, DeletingValues)
{
    ScopedTestKey t(L"del");
    for (const wchar_t* n : {L"Abc1", L"abc2", L"ABX", L"Other", L"abc"})
        ASSERT_TRUE(vxtest::RawSetDword(t.sub(), n, 1));
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(), nullptr, L"default"));
    RegKey k(t.path().c_str(), 1);
    ASSERT_TRUE(k.IsReady());

    EXPECT_TRUE(k.DelValue(L"Absent"));
    EXPECT_TRUE(k.DelValuesStartingWith(L"abc", 0));
    EXPECT_FALSE(vxtest::RawValueExists(t.sub(), L"abc2"));
    EXPECT_FALSE(vxtest::RawValueExists(t.sub(), L"abc"));
    EXPECT_TRUE(vxtest::RawValueExists(t.sub(), L"Abc1")) << "exact compare keeps other cases";
    EXPECT_TRUE(k.DelValuesStartingWith(L"aBC", 1));
    EXPECT_FALSE(vxtest::RawValueExists(t.sub(), L"Abc1"));
    EXPECT_TRUE(vxtest::RawValueExists(t.sub(), L"ABX"));
    EXPECT_EQ(vxtest::RawCountValues(t.sub()), 3u);

    // An empty prefix takes every named value but leaves the default value; null takes all.
    EXPECT_TRUE(k.DelValuesStartingWith(L"", 0));
    EXPECT_EQ(vxtest::RawCountValues(t.sub()), 1u);
    EXPECT_EQ(vxtest::RawGetStr(t.sub(), nullptr), L"default");
    ASSERT_TRUE(vxtest::RawSetDword(t.sub(), L"Again", 1));
    EXPECT_TRUE(k.DelValuesStartingWith(nullptr, 1));
    EXPECT_EQ(vxtest::RawCountValues(t.sub()), 0u);

    ASSERT_TRUE(vxtest::RawSetStr(t.sub(), nullptr, L"default"));
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(), L"V", L"x"));
    EXPECT_TRUE(k.DelValue(nullptr));
    EXPECT_FALSE(vxtest::RawValueExists(t.sub(), nullptr));
    EXPECT_TRUE(k.DelValue(L"V"));
    EXPECT_FALSE(vxtest::RawValueExists(t.sub(), L"V"));
}

TEST(RegKeyValue, CopyValueAndPrefixedNames)
{
    ScopedTestKey t(L"pfx");
    RegKey k(t.path(L"Src").c_str(), 1), dst(t.path(L"Dst").c_str(), 1);
    ASSERT_TRUE(k.IsReady());
    ASSERT_TRUE(dst.IsReady());
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(L"Src"), L"Exp", L"%TEMP%\\x", REG_EXPAND_SZ));
    ASSERT_TRUE(vxtest::RawSetBin(t.sub(L"Src"), L"Nothing", "", 0, REG_BINARY));
    EXPECT_TRUE(k.CopyValueTo(dst, L"Exp"));
    EXPECT_EQ(RawType(t.sub(L"Dst"), L"Exp"), (DWORD)REG_EXPAND_SZ);
    EXPECT_EQ(vxtest::RawGetStr(t.sub(L"Dst"), L"Exp"), L"%TEMP%\\x");
    EXPECT_FALSE(k.CopyValueTo(dst, L"Absent"));
    EXPECT_FALSE(k.CopyValueTo(dst, L"Nothing"));
    {
        // Copying a value that is already there writes nothing (a read-only copy succeeds).
        RegKey dstRo(t.path(L"Dst").c_str(), 0);
        EXPECT_TRUE(k.CopyValueTo(dstRo, L"Exp"));
        ASSERT_TRUE(vxtest::RawSetStr(t.sub(L"Src"), L"Exp", L"%TEMP%\\y", REG_EXPAND_SZ));
        EXPECT_FALSE(k.CopyValueTo(dstRo, L"Exp"));
    }

    EXPECT_TRUE(k.PutDwordPrefix(L"Wnd", L"X", 3));
    EXPECT_TRUE(k.PutIntPrefix(L"Wnd", L"Y", -4));
    EXPECT_TRUE(k.PutStrPrefix(L"Col", L"Name", L"Width"));
    const BYTE bytes[3] = {1, 2, 3};
    EXPECT_TRUE(k.PutBinPrefix(L"Pos", L"Data", bytes, 3));
    EXPECT_EQ(vxtest::RawGetDword(t.sub(L"Src"), L"WndX"), 3u);
    EXPECT_EQ(vxtest::RawGetDword(t.sub(L"Src"), L"WndY"), 0xFFFFFFFCu);
    EXPECT_EQ(vxtest::RawGetStr(t.sub(L"Src"), L"ColName"), L"Width");
    EXPECT_EQ(RawType(t.sub(L"Src"), L"PosData"), (DWORD)REG_BINARY);

    EXPECT_EQ(k.GetDwordPrefix(L"Wnd", L"X", 0), 3u);
    EXPECT_EQ(k.GetIntPrefix(L"Wnd", L"Y", 0), -4);
    EXPECT_EQ(k.GetIntPrefix(L"Wnd", L"Z", 11), 11);
    Guarded<8> g;
    EXPECT_EQ(k.GetStrPrefix(L"Col", L"Name", g.buf, 8, nullptr), 5);
    EXPECT_STREQ(g.buf, L"Width");
    EXPECT_EQ(k.GetBinSizePrefix(L"Pos", L"Data"), 3u);
    BYTE out[3] = {};
    EXPECT_TRUE(k.GetBinPrefix(L"Pos", L"Data", out, 3));
    EXPECT_EQ(memcmp(out, bytes, 3), 0);

    // The prefixed writes also skip equal values.
    {
        RegKey ro(t.path(L"Src").c_str(), 0);
        EXPECT_TRUE(ro.PutDwordPrefix(L"Wnd", L"X", 3));
        EXPECT_TRUE(ro.PutStrPrefix(L"Col", L"Name", L"Width"));
        EXPECT_FALSE(ro.PutStrPrefix(L"Col", L"Name", L"width"));
    }
    EXPECT_TRUE(k.DelValuePrefix(L"Wnd", L"X"));
    EXPECT_FALSE(vxtest::RawValueExists(t.sub(L"Src"), L"WndX"));
    EXPECT_TRUE(vxtest::RawValueExists(t.sub(L"Src"), L"WndY"));
}

} // namespace
