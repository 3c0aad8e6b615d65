// ProcessEntry and ProcessSubKey: the single routine through which a settings record is
// stored, loaded, removed and compared, for every operation on strings and DWORDs.
#include <gtest/gtest.h>

#include <string>
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

// ProcessEntry takes a writable buffer even for the operations that only read it.
int Str(RegKey& k, RegKey::Op op, const wchar_t* name, const std::wstring& s)
{
    std::vector<wchar_t> buf(s.begin(), s.end());
    buf.push_back(0);
    return k.ProcessEntry(op, name, buf.data(), (unsigned)buf.size());
}

TEST(RegKeyEntry, StringChecks)
{
    ScopedTestKey t(L"strchk");
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(), L"S", L"Abc"));
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(), L"Empty", L""));
    const std::wstring fits(259, L'x'), tooLong(260, L'y'); // 520 bytes with terminator fit, 522 do not
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(), L"Fits", fits));
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(), L"Long", tooLong));
    RegKey k(t.path().c_str(), 0);
    ASSERT_TRUE(k.IsReady());

    EXPECT_TRUE(Str(k, RegKey::OpCheck, L"S", L"Abc"));
    EXPECT_FALSE(Str(k, RegKey::OpCheck, L"S", L"abc"));
    EXPECT_FALSE(Str(k, RegKey::OpCheck, L"S", L""));
    EXPECT_TRUE(Str(k, RegKey::OpCheckNoCase, L"S", L"aBC"));
    EXPECT_FALSE(Str(k, RegKey::OpCheckNoCase, L"S", L"aBCd"));

    // Absent, empty and over-long stored values all compare equal to "" and to nothing else.
    for (const wchar_t* name : {L"Absent", L"Empty", L"Long"}) {
        SCOPED_TRACE(name);
        EXPECT_TRUE(Str(k, RegKey::OpCheck, name, L""));
        EXPECT_TRUE(Str(k, RegKey::OpCheckNoCase, name, L""));
        EXPECT_FALSE(Str(k, RegKey::OpCheck, name, L"x"));
    }
    EXPECT_FALSE(Str(k, RegKey::OpCheck, L"Long", tooLong));
    EXPECT_TRUE(Str(k, RegKey::OpCheck, L"Fits", fits));
    EXPECT_FALSE(Str(k, RegKey::OpCheck, L"Fits", fits + L"x"));

    EXPECT_TRUE(Str(k, RegKey::OpCheckAbsent, L"Absent", L""));
    EXPECT_FALSE(Str(k, RegKey::OpCheckAbsent, L"Empty", L""));
    EXPECT_FALSE(Str(k, RegKey::OpCheckAbsent, L"S", L"Abc"));
}

TEST(RegKeyEntry, StringReadSizeRule)
{
    ScopedTestKey t(L"strrd");
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(), L"S", L"abc")); // 8 bytes
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(), L"Empty", L""));
    RegKey k(t.path().c_str(), 0);

    Guarded<4> exact;
    EXPECT_TRUE(k.ProcessEntry(RegKey::OpRead, L"S", exact.buf, 4));
    EXPECT_STREQ(exact.buf, L"abc");
    EXPECT_TRUE(exact.Intact());

    Guarded<3> tooSmall;
    EXPECT_FALSE(k.ProcessEntry(RegKey::OpRead, L"S", tooSmall.buf, 3));
    EXPECT_EQ(tooSmall.buf[0], 0) << "a value that does not fit empties the buffer";
    EXPECT_TRUE(tooSmall.Intact());

    for (const wchar_t* name : {L"Absent", L"Empty"}) {
        SCOPED_TRACE(name);
        Guarded<8> g;
        wcscpy(g.buf, L"stale");
        EXPECT_FALSE(k.ProcessEntry(RegKey::OpRead, name, g.buf, 8));
        EXPECT_EQ(g.buf[0], 0);
    }
}

TEST(RegKeyEntry, StringWritesAndDeletes)
{
    ScopedTestKey t(L"strwr");
    RegKey k(t.path().c_str(), RegKey::OpWrite);
    ASSERT_TRUE(k.IsReady());

    EXPECT_TRUE(Str(k, RegKey::OpWrite, L"S", L"One"));
    EXPECT_EQ(vxtest::RawGetStr(t.sub(), L"S"), L"One");
    EXPECT_EQ(RawType(t.sub(), L"S"), (DWORD)REG_SZ);
    // "" on an absent value already compares equal: nothing is created.
    EXPECT_TRUE(Str(k, RegKey::OpWrite, L"E", L""));
    EXPECT_FALSE(vxtest::RawValueExists(t.sub(), L"E"));
    // "" over a stored string writes an empty string, it does not delete.
    EXPECT_TRUE(Str(k, RegKey::OpWrite, L"S", L""));
    EXPECT_TRUE(vxtest::RawValueExists(t.sub(), L"S"));
    EXPECT_EQ(vxtest::RawGetStr(t.sub(), L"S"), L"");

    // Equal values are left alone by OpWrite, rewritten by OpWriteAlways.
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(), L"X", L"Same", REG_EXPAND_SZ));
    EXPECT_TRUE(Str(k, RegKey::OpWrite, L"X", L"Same"));
    EXPECT_EQ(RawType(t.sub(), L"X"), (DWORD)REG_EXPAND_SZ);
    EXPECT_TRUE(Str(k, RegKey::OpWriteAlways, L"X", L"Same"));
    EXPECT_EQ(RawType(t.sub(), L"X"), (DWORD)REG_SZ);
    EXPECT_TRUE(Str(k, RegKey::OpWrite, L"X", L"same"));
    EXPECT_EQ(vxtest::RawGetStr(t.sub(), L"X"), L"same");

    EXPECT_TRUE(Str(k, RegKey::OpDelete, L"X", L"ignored"));
    EXPECT_FALSE(vxtest::RawValueExists(t.sub(), L"X"));
    EXPECT_TRUE(Str(k, RegKey::OpDelete, L"X", L""));
}

TEST(RegKeyEntry, DwordOperations)
{
    ScopedTestKey t(L"dwop");
    RegKey k(t.path().c_str(), 1);
    ASSERT_TRUE(k.IsReady());
    DWORD v;

    // An absent DWORD reads and compares as 0.
    v = 0;
    EXPECT_TRUE(k.ProcessEntry(RegKey::OpCheck, L"D", v));
    v = 1;
    EXPECT_FALSE(k.ProcessEntry(RegKey::OpCheck, L"D", v));
    v = 77;
    EXPECT_TRUE(k.ProcessEntry(RegKey::OpRead, L"D", v));
    EXPECT_EQ(v, 0u);

    v = 7;
    EXPECT_TRUE(k.ProcessEntry(RegKey::OpWrite, L"D", v));
    EXPECT_EQ(vxtest::RawGetDword(t.sub(), L"D"), 7u);
    EXPECT_EQ(RawType(t.sub(), L"D"), (DWORD)REG_DWORD);
    EXPECT_TRUE(k.ProcessEntry(RegKey::OpCheck, L"D", v));
    EXPECT_TRUE(k.ProcessEntry(RegKey::OpCheckNoCase, L"D", v));
    v = 8;
    EXPECT_FALSE(k.ProcessEntry(RegKey::OpCheck, L"D", v));
    EXPECT_TRUE(k.ProcessEntry(RegKey::OpRead, L"D", v));
    EXPECT_EQ(v, 7u);

    // OpWrite of 0 deletes; OpWriteAlways of 0 stores a real 0.
    v = 0;
    EXPECT_TRUE(k.ProcessEntry(RegKey::OpWrite, L"D", v));
    EXPECT_FALSE(vxtest::RawValueExists(t.sub(), L"D"));
    EXPECT_TRUE(k.ProcessEntry(RegKey::OpWrite, L"D", v));
    EXPECT_FALSE(vxtest::RawValueExists(t.sub(), L"D"));
    EXPECT_TRUE(k.ProcessEntry(RegKey::OpWriteAlways, L"D", v));
    EXPECT_TRUE(vxtest::RawValueExists(t.sub(), L"D"));
    EXPECT_EQ(vxtest::RawGetDword(t.sub(), L"D"), 0u);

    // OpWrite leaves an equal value alone (its type stays), OpWriteAlways rewrites it.
    const DWORD five = 5;
    ASSERT_TRUE(vxtest::RawSetBin(t.sub(), L"B", &five, 4, REG_BINARY));
    v = 5;
    EXPECT_TRUE(k.ProcessEntry(RegKey::OpWrite, L"B", v));
    EXPECT_EQ(RawType(t.sub(), L"B"), (DWORD)REG_BINARY);
    EXPECT_TRUE(k.ProcessEntry(RegKey::OpWriteAlways, L"B", v));
    EXPECT_EQ(RawType(t.sub(), L"B"), (DWORD)REG_DWORD);

    EXPECT_TRUE(k.ProcessEntry(RegKey::OpDelete, L"B", v));
    EXPECT_FALSE(vxtest::RawValueExists(t.sub(), L"B"));

    // The int form behaves the same.
    int i = -9;
    EXPECT_TRUE(k.ProcessEntry(RegKey::OpWrite, L"I", i));
    EXPECT_EQ(vxtest::RawGetDword(t.sub(), L"I"), 0xFFFFFFF7u);
    int r = 0;
    EXPECT_TRUE(k.ProcessEntry(RegKey::OpRead, L"I", r));
    EXPECT_EQ(r, -9);
    EXPECT_TRUE(k.ProcessEntry(RegKey::OpCheck, L"I", i));
    i = 0;
    EXPECT_TRUE(k.ProcessEntry(RegKey::OpWrite, L"I", i));
    EXPECT_FALSE(vxtest::RawValueExists(t.sub(), L"I"));
}

TEST(RegKeyEntry, ProcessSubKeyEmptiesOrRemovesTheSubkey)
{
    ScopedTestKey t(L"psk");
    auto fill = [&] {
        ASSERT_TRUE(vxtest::RawSetDword(t.sub(L"Rec"), L"V", 1));
        ASSERT_TRUE(vxtest::RawSetDword(t.sub(L"Rec\\Deep\\Deeper"), L"W", 2));
    };
    fill();
    RegKey k(t.path().c_str(), 1);
    ASSERT_TRUE(k.IsReady());

    for (RegKey::Op op : {RegKey::OpCheck, RegKey::OpRead, RegKey::OpCheckAbsent, RegKey::OpCheckNoCase}) {
        SCOPED_TRACE(op);
        EXPECT_TRUE(k.ProcessSubKey(op, L"Rec"));
        EXPECT_EQ(vxtest::RawCountValues(t.sub(L"Rec")), 1u);
        EXPECT_EQ(vxtest::RawCountSubKeys(t.sub(L"Rec")), 1u);
    }
    for (RegKey::Op op : {RegKey::OpWrite, RegKey::OpWriteAlways}) {
        SCOPED_TRACE(op);
        fill();
        EXPECT_TRUE(k.ProcessSubKey(op, L"Rec"));
        EXPECT_TRUE(vxtest::RawKeyExists(t.sub(L"Rec")));
        EXPECT_EQ(vxtest::RawCountValues(t.sub(L"Rec")), 0u);
        EXPECT_EQ(vxtest::RawCountSubKeys(t.sub(L"Rec")), 0u);
    }
    fill();
    EXPECT_TRUE(k.ProcessSubKey(RegKey::OpDelete, L"Rec"));
    EXPECT_FALSE(vxtest::RawKeyExists(t.sub(L"Rec")));
    EXPECT_TRUE(k.ProcessSubKey(RegKey::OpDelete, L"Rec")) << "always true";
    EXPECT_TRUE(k.ProcessSubKey(RegKey::OpWrite, L"Rec"));
    EXPECT_TRUE(vxtest::RawKeyExists(t.sub(L"Rec")));
}

} // namespace
