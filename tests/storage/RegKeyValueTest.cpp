// Values: typed reads with defaults, writes that only touch the registry when the setting
// changed, the fixed buffer size rules of string reads, binary values, deletion by prefix, and
// ProcessEntry/ProcessSubKey, the single routine through which a settings record is stored,
// loaded, removed and compared. An equal value stored under another type proves a skipped
// write: a rewrite replaces the type.
#include <gtest/gtest.h>

#include <cstring>

#include "RegTestUtil.h"

using regtest::Failed;
using regtest::Guarded;
using regtest::RawType;
using regtest::Try;
using vxtest::ScopedTestKey;

namespace {

// Catches an absent value taken as equal, equal values rewritten, and the flag ignored.
TEST(RegKeyValue, DwordsAreWrittenOnlyWhenDifferent)
{
    ScopedTestKey t(L"dw");
    RegKey k(t.path().c_str(), 1), ro(t.path().c_str(), 0);
    EXPECT_EQ(k.GetInt(L"D", -3), -3);
    EXPECT_EQ(k.PutDword(L"Zero", 0, 1), 1) << "absence always counts as different";
    EXPECT_EQ(k.PutDword(L"Max", 0xFFFFFFFF, 1), 1);
    EXPECT_EQ(vxtest::RawGetDword(t.sub(), L"Zero", 99), 0u);
    EXPECT_EQ(vxtest::RawGetDword(t.sub(), L"Max", 0), 0xFFFFFFFFu);

    const DWORD five = 5;
    ASSERT_TRUE(vxtest::RawSetBin(t.sub(), L"D", &five, 4, REG_BINARY));
    EXPECT_EQ(k.GetDword(L"D", 0), 5u) << "the stored type is not checked";
    EXPECT_TRUE(k.PutDword(L"D", 5, 1));
    EXPECT_EQ(RawType(t.sub(), L"D"), (DWORD)REG_BINARY) << "an equal value was rewritten";
    EXPECT_TRUE(ro.PutInt(L"Max", -1)) << "PutInt writes only when different";
    EXPECT_EQ(Try([&] { return ro.PutDword(L"D", 6, 1); }), Failed(ERROR_ACCESS_DENIED));
    EXPECT_EQ(Try([&] { return ro.PutDword(L"D", 5, 0); }), Failed(ERROR_ACCESS_DENIED)) << "without the flag the write is attempted";
    EXPECT_EQ(k.PutDword(L"D", 5, 0), 1);
    EXPECT_EQ(RawType(t.sub(), L"D"), (DWORD)REG_DWORD) << "without the flag the value is written";
    EXPECT_EQ(k.PutDwordOrDeleteIfZero(L"D", 0, 1), 1);
    EXPECT_FALSE(vxtest::RawValueExists(t.sub(), L"D"));
    EXPECT_EQ(Try([] { return RegKey().PutDword(L"D", 1, 0); }), Failed(ERROR_INVALID_HANDLE)) << "a key that did not open";
}

// Catches overflow of the caller's buffer, a partial read of a value that does not fit, the
// default replacing an existing empty string, and a value stored without a terminator.
TEST(RegKeyValue, GetStrFitsExactlyCchCharactersAndFallsBackToTheDefault)
{
    ScopedTestKey t(L"gs");
    const wchar_t noTerm[5] = {L'a', L'b', L'c', L'd', L'e'}; // only 4 stored: no zero follows them
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(), L"S", L"abcd"));
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(), L"Empty", L""));
    ASSERT_TRUE(vxtest::RawSetBin(t.sub(), L"NoTerm", noTerm, 8, REG_SZ));
    RegKey k(t.path().c_str(), 0);
    const struct { const wchar_t *name; int cch; const wchar_t *def; int result; const wchar_t* text; } rows[] = {
        {L"S", 5, nullptr, 4, L"abcd"}, {L"S", 4, nullptr, 0, L""}, {L"S", 4, L"xy", 2, L"xy"},
        {L"Absent", 4, L"defaultvalue", 3, L"def"}, {L"Absent", 8, nullptr, 0, L""}, {L"Empty", 8, L"def", 0, L""}};
    for (const auto& r : rows) {
        SCOPED_TRACE(testing::Message() << r.cch << " " << testing::PrintToString(std::wstring(r.name)));
        Guarded<8> g;
        EXPECT_EQ(k.GetStr(r.name, g.buf, r.cch, r.def), r.result);
        EXPECT_STREQ(g.buf, r.text);
        EXPECT_EQ(g.buf[r.cch], 0xbdbd) << "written past cch";
    }
    Guarded<16> self;
    wcscpy(self.buf, L"keep me");
    EXPECT_EQ(k.GetStr(L"Absent", self.buf, 16, self.buf), 7) << "a default that is the buffer stays";
    EXPECT_STREQ(self.buf, L"keep me");
    Guarded<4> g;
    const int n = k.GetStr(L"NoTerm", g.buf, 4, nullptr);
    EXPECT_LT(wcsnlen(g.buf, 4), 4u) << "no terminator inside the buffer";
    EXPECT_EQ(g.buf[4], 0xbdbd);
    EXPECT_EQ((size_t)n, wcsnlen(g.buf, 4));
    EXPECT_EQ(k.GetStrSize(L"S"), 6);
    EXPECT_EQ(k.GetStrSize(L"Empty"), 0);
    EXPECT_EQ(k.GetStrSize(L"Absent"), 0);
}

// Catches an absent value matching "" (so an empty setting is never stored), a stored "1"
// mistaken for absence, case-insensitive comparison, and equal strings rewritten.
TEST(RegKeyValue, PutStrComparesCaseSensitivelyAndNeverMatchesAnAbsentValue)
{
    ScopedTestKey t(L"ps");
    RegKey k(t.path().c_str(), 1);
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(), L"One", L"1"));
    EXPECT_EQ(k.PutStr(L"E", L"", 1), 1);
    EXPECT_EQ(k.PutStr(L"One", L"", 1), 1);
    EXPECT_EQ(RawType(t.sub(), L"E"), (DWORD)REG_SZ);
    EXPECT_EQ(vxtest::RawGetStr(t.sub(), L"E") + vxtest::RawGetStr(t.sub(), L"One"), L"");

    ASSERT_TRUE(vxtest::RawSetStr(t.sub(), L"X", L"Path", REG_EXPAND_SZ));
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(), L"E", L"", REG_EXPAND_SZ));
    EXPECT_EQ(k.PutStr(L"X", L"Path", 1), 1);
    EXPECT_EQ(k.PutStr(L"E", L"", 1), 1);
    EXPECT_EQ(RawType(t.sub(), L"X"), (DWORD)REG_EXPAND_SZ) << "an equal string was rewritten";
    EXPECT_EQ(RawType(t.sub(), L"E"), (DWORD)REG_EXPAND_SZ) << "an equal empty string was rewritten";
    EXPECT_EQ(k.PutStr(L"X", L"path", 1), 1);
    EXPECT_EQ(vxtest::RawGetStr(t.sub(), L"X"), L"path") << "a case change is a change";
    EXPECT_EQ(k.PutStr(L"E", L"", 0), 1);
    EXPECT_EQ(RawType(t.sub(), L"E"), (DWORD)REG_SZ) << "without the flag it is written";
    EXPECT_EQ(k.PutStrOrDelEmpty(L"X", L"", 1), 1);
    EXPECT_FALSE(vxtest::RawValueExists(t.sub(), L"X"));
}

// Catches a cb of 0 refused, a short buffer overrun, and equal bytes rewritten.
TEST(RegKeyValue, BinaryValues)
{
    ScopedTestKey t(L"bin");
    RegKey k(t.path().c_str(), 1), ro(t.path().c_str(), 0);
    BYTE data[300], out[310];
    for (int i = 0; i < 300; ++i)
        data[i] = (BYTE)(i * 7 + 1);
    EXPECT_TRUE(k.PutBin(L"B", data, 300));
    EXPECT_EQ(k.GetBinSize(L"B"), 300u);
    EXPECT_EQ(k.GetValueType(L"B"), (DWORD)REG_BINARY);
    memset(out, 0xbd, sizeof(out));
    EXPECT_TRUE(k.GetBin(L"B", out, 0, nullptr)) << "a cb of 0 accepts any size";
    EXPECT_EQ(std::vector<BYTE>(out, out + 300), std::vector<BYTE>(data, data + 300));
    EXPECT_EQ(out[300], 0xbd);
    memset(out, 0xbd, sizeof(out));
    EXPECT_EQ(Try([&] { return k.GetBin(L"B", out, 299); }), Failed(ERROR_MORE_DATA));
    EXPECT_EQ(out[0], 0xbd) << "a value that does not fit is not read at all";
    EXPECT_EQ(Try([&] { return k.GetBin(L"Absent", out, 0); }), Failed(ERROR_FILE_NOT_FOUND));
    EXPECT_TRUE(ro.PutBin(L"B", data, 300)) << "equal bytes are not written";
    EXPECT_EQ(Try([&] { return ro.PutBin(L"B", data, 299); }), Failed(ERROR_ACCESS_DENIED)) << "a shorter value is different";
}

// Catches a prefix compare that ignores the case flag, takes the default value for "", or
// stops early while values are removed under the enumeration.
TEST(RegKeyValue, DeletingValuesByPrefix)
{
    ScopedTestKey t(L"del");
    for (const wchar_t* n : {L"Abc1", L"abc2", L"ABX", L"Other", L"abc"})
        ASSERT_TRUE(vxtest::RawSetDword(t.sub(), n, 1));
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(), nullptr, L"default"));
    RegKey k(t.path().c_str(), 1);
    EXPECT_TRUE(k.DelValue(L"Absent"));
    // Exact "abc" leaves Abc1; "" leaves the default value; null takes everything.
    const struct { const wchar_t* prefix; int bIgnoreCase; DWORD left; } steps[] = {{L"abc", 0, 4}, {L"aBC", 1, 3}, {L"", 0, 1}, {nullptr, 1, 0}};
    for (const auto& s : steps) {
        SCOPED_TRACE(s.left);
        EXPECT_EQ(k.DelValuesStartingWith(s.prefix, s.bIgnoreCase), 1);
        EXPECT_EQ(vxtest::RawCountValues(t.sub()), s.left);
    }
}

// Catches a copy that loses the value's type, and a wrong prefix join.
TEST(RegKeyValue, CopyValueAndPrefixedNames)
{
    ScopedTestKey t(L"pfx");
    RegKey k(t.path(L"Src").c_str(), 1), dst(t.path(L"Dst").c_str(), 1);
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(L"Src"), L"Exp", L"%TEMP%\\x", REG_EXPAND_SZ));
    ASSERT_TRUE(vxtest::RawSetBin(t.sub(L"Src"), L"Nothing", "", 0, REG_BINARY));
    EXPECT_TRUE(k.CopyValueTo(dst, L"Exp"));
    EXPECT_EQ(RawType(t.sub(L"Dst"), L"Exp"), (DWORD)REG_EXPAND_SZ);
    EXPECT_EQ(vxtest::RawGetStr(t.sub(L"Dst"), L"Exp"), L"%TEMP%\\x");
    EXPECT_EQ(k.CopyValueTo(dst, L"Absent"), 0);
    EXPECT_EQ(k.CopyValueTo(dst, L"Nothing"), 0) << "an empty value is not copied";

    wchar_t buf[8];
    EXPECT_EQ(k.PutIntPrefix(L"Wnd", L"Y", -4), 1);
    EXPECT_EQ(k.PutStrPrefix(L"Col", L"Name", L"Width"), 1);
    EXPECT_EQ(vxtest::RawGetDword(t.sub(L"Src"), L"WndY"), 0xFFFFFFFCu);
    EXPECT_EQ(k.GetStrPrefix(L"Col", L"Name", buf, 8, nullptr), 5);
    EXPECT_EQ(k.DelValuePrefix(L"Wnd", L"Y"), 1);
    EXPECT_FALSE(vxtest::RawValueExists(t.sub(L"Src"), L"WndY"));
}

// ProcessEntry and ProcessSubKey.

// ProcessEntry takes a writable buffer even for the operations that only read it.
int Str(RegKey& k, RegKey::Op op, const wchar_t* name, std::wstring s)
{
    return k.ProcessEntry(op, name, s.data(), (unsigned)s.size() + 1);
}

// Catches wrong case rules, and absent, empty or over-long (> 260 characters) values not
// comparing equal to exactly "".
TEST(RegKeyEntry, StringChecks)
{
    ScopedTestKey t(L"strchk");
    const std::wstring fits(259, L'x'), tooLong(260, L'y'); // 520 bytes with the terminator fit, 522 do not
    for (const auto& v : {std::make_pair(L"S", std::wstring(L"Abc")), {L"Empty", L""}, {L"Fits", fits}, {L"Long", tooLong}})
        ASSERT_TRUE(vxtest::RawSetStr(t.sub(), v.first, v.second));
    RegKey k(t.path().c_str(), 0);
    const RegKey::Op C = RegKey::OpCheck, N = RegKey::OpCheckNoCase, A = RegKey::OpCheckAbsent;
    const struct { RegKey::Op op; const wchar_t* name; std::wstring given; int result; } rows[] = {
        {C, L"S", L"Abc", 1}, {C, L"S", L"abc", 0}, {C, L"S", L"", 0}, {N, L"S", L"aBC", 1}, {N, L"S", L"aBCd", 0},
        {C, L"Absent", L"", 1}, {N, L"Absent", L"", 1}, {C, L"Absent", L"x", 0}, {C, L"Empty", L"", 1},
        {C, L"Empty", L"x", 0}, {C, L"Long", L"", 1}, {C, L"Long", tooLong, 0}, {C, L"Fits", fits, 1},
        {C, L"Fits", fits + L"x", 0}, {A, L"Absent", L"", 1}, {A, L"Empty", L"", 0}, {A, L"S", L"Abc", 0}};
    for (const auto& r : rows)
        EXPECT_EQ(!!Str(k, r.op, r.name, r.given), r.result) << r.op << " " << testing::PrintToString(std::wstring(r.name)) << " " << r.given.size();
}

// Catches overflow of the caller's buffer and stale text left when nothing is read.
TEST(RegKeyEntry, StringReadFitsCchOrEmptiesTheBuffer)
{
    ScopedTestKey t(L"strrd");
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(), L"S", L"abc"));
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(), L"Empty", L""));
    RegKey k(t.path().c_str(), 0);
    const struct { const wchar_t* name; unsigned cch; int result; const wchar_t* text; } rows[] = {
        {L"S", 4, 1, L"abc"}, {L"S", 3, 0, L""}, {L"Absent", 8, 0, L""}, {L"Empty", 8, 0, L""}};
    for (const auto& r : rows) {
        Guarded<8> g;
        wcscpy(g.buf, L"ab");
        EXPECT_EQ(!!k.ProcessEntry(RegKey::OpRead, r.name, g.buf, r.cch), r.result) << r.cch;
        EXPECT_STREQ(g.buf, r.text);
        EXPECT_EQ(g.buf[r.cch], 0xbdbd) << "written past cch";
    }
}

// Catches OpWrite creating a value for "" or rewriting equal text, and OpWriteAlways comparing.
TEST(RegKeyEntry, StringWritesAndDeletes)
{
    ScopedTestKey t(L"strwr");
    RegKey k(t.path().c_str(), RegKey::OpWrite);
    EXPECT_EQ(Str(k, RegKey::OpWrite, L"E", L""), 1);
    EXPECT_FALSE(vxtest::RawValueExists(t.sub(), L"E")) << "\"\" already equals an absent value";
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(), L"X", L"Same", REG_EXPAND_SZ));
    EXPECT_TRUE(Str(k, RegKey::OpWriteAlways, L"X", L"Same"));
    EXPECT_EQ(RawType(t.sub(), L"X"), (DWORD)REG_SZ) << "OpWriteAlways writes an equal string again";
    EXPECT_TRUE(Str(k, RegKey::OpWrite, L"X", L""));
    EXPECT_EQ(vxtest::RawGetStr(t.sub(), L"X"), L"") << "\"\" over a string writes, it does not delete";
    EXPECT_EQ(Str(k, RegKey::OpDelete, L"X", L"ignored"), 1);
    EXPECT_FALSE(vxtest::RawValueExists(t.sub(), L"X"));
}

// Catches an absent DWORD not reading as 0, OpWrite storing a 0 instead of deleting,
// OpWriteAlways deleting it, and equal values rewritten.
TEST(RegKeyEntry, DwordOperations)
{
    ScopedTestKey t(L"dwop");
    RegKey k(t.path().c_str(), 1);
    DWORD zero = 0, one = 1, seven = 7, v = 77;
    EXPECT_EQ(k.ProcessEntry(RegKey::OpCheck, L"D", zero), 1);
    EXPECT_EQ(k.ProcessEntry(RegKey::OpCheck, L"D", one), 0);
    EXPECT_EQ(k.ProcessEntry(RegKey::OpRead, L"D", v), 1);
    EXPECT_EQ(v, 0u) << "an absent DWORD reads as 0";
    EXPECT_EQ(k.ProcessEntry(RegKey::OpWrite, L"D", seven), 1);
    EXPECT_EQ(k.ProcessEntry(RegKey::OpCheckNoCase, L"D", seven), 1);
    EXPECT_EQ(k.ProcessEntry(RegKey::OpRead, L"D", v), 1);
    EXPECT_EQ(v, 7u);

    EXPECT_TRUE(k.ProcessEntry(RegKey::OpWrite, L"D", zero));
    EXPECT_FALSE(vxtest::RawValueExists(t.sub(), L"D")) << "OpWrite of 0 deletes";
    EXPECT_TRUE(k.ProcessEntry(RegKey::OpWriteAlways, L"D", zero));
    EXPECT_EQ(vxtest::RawGetDword(t.sub(), L"D"), 0u) << "OpWriteAlways of 0 stores 0";

    int i = -9, r = 0;
    EXPECT_EQ(k.ProcessEntry(RegKey::OpWrite, L"I", i), 1);
    EXPECT_EQ(k.ProcessEntry(RegKey::OpRead, L"I", r), 1);
    EXPECT_EQ(r, -9);
}

// Catches check and read operations touching the subkey, and a write that keeps old content.
TEST(RegKeyEntry, ProcessSubKeyEmptiesOrRemovesTheSubkey)
{
    ScopedTestKey t(L"psk");
    RegKey k(t.path().c_str(), 1);
    for (RegKey::Op op : {RegKey::OpCheck, RegKey::OpRead, RegKey::OpCheckAbsent, RegKey::OpCheckNoCase, RegKey::OpWrite,
                          RegKey::OpWriteAlways, RegKey::OpDelete}) {
        ASSERT_TRUE(vxtest::RawSetDword(t.sub(L"Rec\\Deep\\Deeper"), L"W", 2));
        ASSERT_TRUE(vxtest::RawSetDword(t.sub(L"Rec"), L"V", 1));
        EXPECT_TRUE(k.ProcessSubKey(op, L"Rec"));
        const bool writes = op == RegKey::OpWrite || op == RegKey::OpWriteAlways, del = op == RegKey::OpDelete;
        EXPECT_EQ(vxtest::RawKeyExists(t.sub(L"Rec")), !del) << op;
        const DWORD left = del ? 0 : vxtest::RawCountValues(t.sub(L"Rec")) + vxtest::RawCountSubKeys(t.sub(L"Rec"));
        EXPECT_EQ(left, writes || del ? 0u : 2u) << op;
    }
    EXPECT_TRUE(k.ProcessSubKey(RegKey::OpDelete, L"Rec")) << "an absent subkey still counts as done";
}

} // namespace
