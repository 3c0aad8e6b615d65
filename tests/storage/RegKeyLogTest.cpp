// Log mode: the settings code runs unchanged and its value writes become text lines, which
// must have exactly the documented forms; sizing runs with no buffer; the registry is left
// untouched by value writes while subkey changes still happen.
#include <gtest/gtest.h>

#include <string>

#include "storage/RegKey.h"
#include "support/TestSupport.h"
#include "RegTestUtil.h"

using regtest::LogGuard;
using vxtest::ScopedTestKey;

namespace {

// The operations a settings record would run; the key is opened by path inside log mode.
void DescribeRecord(const std::wstring& path)
{
    RegKey k(path.c_str(), 1);
    k.PutDword(L"Timeout", 0xAB, 1);
    k.PutInt(L"Offset", -1);
    k.PutStr(L"Message", L"Good bye \"%s\"=x", 1);
    k.PutStr(L"Empty", L"", 1);
    k.DelValue(L"Gone");
    k.PutDwordOrDeleteIfZero(L"Zero", 0, 1);
}

TEST(RegKeyLog, ExactLinesAndSizes)
{
    ScopedTestKey t(L"log");
    LogGuard guard;
    const std::wstring path = t.path(L"Rec");
    const std::wstring expected = L"[" + path + L"]\r\n"
                                  L"Timeout=dword:000000AB\r\n"
                                  L"Offset=dword:FFFFFFFF\r\n"
                                  L"Message=Good bye \"%s\"=x\r\n"
                                  L"Empty=\r\n"
                                  L"Gone=@\r\n"
                                  L"Zero=@\r\n";

    // Sizing run: no buffer, only the count.
    RegKey::StartLog(nullptr);
    EXPECT_EQ(RegKey::bLogMode, 1);
    DescribeRecord(path);
    EXPECT_EQ(RegKey::nLogSizeChars, expected.size());
    const unsigned size = RegKey::EndLog();
    EXPECT_EQ(size, expected.size() + 1) << "the terminator is counted";
    EXPECT_EQ(RegKey::bLogMode, 0);

    regtest::Guarded<512> g;
    ASSERT_LT(size, 512u);
    RegKey::StartLog(g.buf);
    DescribeRecord(path);
    EXPECT_EQ(RegKey::EndLog(), size);
    EXPECT_EQ(std::wstring(g.buf), expected);
    EXPECT_EQ(g.buf[size], 0xbdbd) << "nothing past the terminator";

    // Nothing touched the registry.
    EXPECT_FALSE(vxtest::RawKeyExists(t.sub()));

    RegKey::StartLog(nullptr);
    EXPECT_EQ(RegKey::EndLog(), 0u) << "nothing logged";
    regtest::Guarded<4> none;
    RegKey::StartLog(none.buf);
    EXPECT_EQ(RegKey::EndLog(), 0u);
    EXPECT_EQ(none.buf[0], 0xbdbd) << "an empty log writes no terminator";
}

TEST(RegKeyLog, KeyPathsAreLoggedWholeAndNothingIsOpened)
{
    ScopedTestKey t(L"logpath");
    LogGuard guard;
    regtest::Guarded<512> g;
    RegKey::StartLog(g.buf);
    {
        RegKey two(t.path().c_str(), L"Part", 1);
        EXPECT_TRUE(two.IsReady()) << "a stand-in handle lets the record code carry on";
        RegKey parent;
        EXPECT_TRUE(parent.OpenParent(t.path(L"A\\B").c_str(), 1, 1));
        EXPECT_NE(RegKey::OpenKey(L"HKLM\\Software\\Anything", 0, 0), nullptr);
        RegKey empty;
        EXPECT_TRUE(empty.Flush()) << "no flushing in log mode";
    }
    RegKey::EndLog();
    EXPECT_EQ(std::wstring(g.buf), L"[" + t.path() + L"\\Part]\r\n[" + t.path(L"A\\B") + L"]\r\n[HKLM\\Software\\Anything]\r\n");
    EXPECT_FALSE(vxtest::RawKeyExists(t.sub()));
}

TEST(RegKeyLog, LongLinesAreCutToTheLineBuffer)
{
    ScopedTestKey t(L"loglong");
    RegKey k(t.path().c_str(), 1);
    ASSERT_TRUE(k.IsReady());
    LogGuard guard;
    const std::wstring value(400, L'v');
    regtest::Guarded<600> g;
    RegKey::StartLog(g.buf);
    k.PutStr(L"Name", value.c_str(), 1);
    const unsigned n = RegKey::EndLog();
    // A line is formatted into 255 characters: at most 254 plus the terminator.
    EXPECT_EQ(n, 255u);
    EXPECT_EQ(std::wstring(g.buf), L"Name=" + value.substr(0, 249));
    EXPECT_EQ(g.buf[n], 0xbdbd);
}

TEST(RegKeyLog, ValueChangesAreOnlyLoggedButSubkeyChangesHappen)
{
    ScopedTestKey t(L"logreg");
    ASSERT_TRUE(vxtest::RawSetDword(t.sub(), L"Keep1", 1));
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(), L"Keep2", L"old"));
    ASSERT_TRUE(vxtest::RawSetDword(t.sub(L"Sub"), L"Inner", 1));
    ASSERT_TRUE(vxtest::RawSetDword(t.sub(L"Rec"), L"Stale", 1));
    RegKey k(t.path().c_str(), 1); // opened for real before log mode starts
    ASSERT_TRUE(k.IsReady());

    LogGuard guard;
    regtest::Guarded<1024> g;
    RegKey::StartLog(g.buf);
    EXPECT_TRUE(k.PutDword(L"Keep1", 2, 1));
    EXPECT_TRUE(k.PutStr(L"Keep2", L"new", 1));
    EXPECT_TRUE(k.DelValue(L"Keep1"));
    bool finished = regtest::FinishesWithin(10000, [&] { k.DelValuesStartingWith(L"Keep", 0); });
    EXPECT_TRUE(finished) << "DelValuesStartingWith loops when log mode leaves the values in place";
    const BYTE bytes[2] = {1, 2};
    EXPECT_TRUE(k.PutBin(L"Bin", bytes, 2)) << "binary writes are not logged";
    // Relative opens act on the registry.
    RegKey rel(k, L"Relative", 1);
    EXPECT_TRUE(rel.IsReady());
    rel.Close();
    EXPECT_TRUE(k.ProcessSubKey(RegKey::OpWrite, L"Rec"));
    if (finished) {
        finished = regtest::FinishesWithin(10000, [&] { k.DelAll(); });
        EXPECT_TRUE(finished) << "DelAll loops when log mode leaves the values in place";
    }
    RegKey::EndLog();

    const std::wstring log = g.buf;
    SCOPED_TRACE(testing::PrintToString(log));
    EXPECT_EQ(log.find(L"Keep1=dword:00000002\r\nKeep2=new\r\nKeep1=@\r\n"), 0u);
    EXPECT_NE(log.find(L"Keep2=@\r\n"), std::wstring::npos);
    EXPECT_NE(log.find(L"Bin=@\r\n"), std::wstring::npos);
    EXPECT_EQ(log.find(L"Bin="), log.rfind(L"Bin=")) << "Bin is logged once, by DelAll, and never as a write";
    EXPECT_EQ(log.find(L"["), std::wstring::npos) << "relative opens are not logged";

    // Values unchanged; the binary value and the subkey changes happened.
    EXPECT_EQ(vxtest::RawGetDword(t.sub(), L"Keep1"), 1u);
    EXPECT_EQ(vxtest::RawGetStr(t.sub(), L"Keep2"), L"old");
    EXPECT_TRUE(vxtest::RawValueExists(t.sub(), L"Bin"));
    EXPECT_EQ(vxtest::RawCountValues(t.sub()), 3u);
    EXPECT_EQ(vxtest::RawCountSubKeys(t.sub()), 0u) << "DelAll removed the subkeys even in log mode";
}

TEST(RegKeyLog, ProcessSubKeyRecreatesTheSubkeyInLogMode)
{
    ScopedTestKey t(L"logsub");
    ASSERT_TRUE(vxtest::RawSetDword(t.sub(L"Rec"), L"Stale", 1));
    ASSERT_TRUE(vxtest::RawCreateKey(t.sub(L"Rec\\Child")));
    ASSERT_TRUE(vxtest::RawSetDword(t.sub(L"Gone"), L"V", 1));
    RegKey k(t.path().c_str(), 1);
    ASSERT_TRUE(k.IsReady());
    LogGuard guard;
    RegKey::StartLog(nullptr);
    EXPECT_TRUE(k.ProcessSubKey(RegKey::OpWrite, L"Rec"));
    EXPECT_TRUE(k.ProcessSubKey(RegKey::OpDelete, L"Gone"));
    RegKey::EndLog();
    EXPECT_TRUE(vxtest::RawKeyExists(t.sub(L"Rec")));
    EXPECT_EQ(vxtest::RawCountSubKeys(t.sub(L"Rec")), 0u);
    EXPECT_EQ(vxtest::RawCountValues(t.sub(L"Rec")), 0u);
    EXPECT_FALSE(vxtest::RawKeyExists(t.sub(L"Gone")));
}

} // namespace
