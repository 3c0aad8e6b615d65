// Log mode: the settings code runs unchanged and its value writes become text lines, which
// must have exactly the documented forms; sizing runs with no buffer; the registry is left
// untouched by value writes while subkey changes still happen.
#include <gtest/gtest.h>

#include "RegTestUtil.h"

using regtest::Guarded;
using vxtest::ScopedTestKey;

namespace {

// What a settings record would run; the key is opened by path inside log mode.
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

// Catches any change to the line formats, a sizing run that disagrees with the filling run, an
// uncounted terminator, a write past it, and log mode touching the registry.
TEST(RegKeyLog, ExactLinesAndSizes)
{
    ScopedTestKey t(L"log");
    regtest::LogGuard guard;
    const std::wstring path = t.path(L"Rec");
    const std::wstring expected = L"[" + path + L"]\r\nTimeout=dword:000000AB\r\nOffset=dword:FFFFFFFF\r\n"
                                  L"Message=Good bye \"%s\"=x\r\nEmpty=\r\nGone=@\r\nZero=@\r\n";
    RegKey::StartLog(nullptr);
    DescribeRecord(path);
    const unsigned size = RegKey::EndLog();
    EXPECT_EQ(size, expected.size() + 1) << "the terminator is counted";
    EXPECT_EQ(RegKey::bLogMode, 0);
    Guarded<512> g;
    RegKey::StartLog(g.buf);
    DescribeRecord(path);
    EXPECT_EQ(RegKey::EndLog(), size);
    EXPECT_EQ(std::wstring(g.buf), expected);
    EXPECT_EQ(g.buf[size], 0xbdbd) << "nothing past the terminator";
    EXPECT_FALSE(vxtest::RawKeyExists(t.sub())) << "log mode touched the registry";

    RegKey::StartLog(nullptr);
    EXPECT_EQ(RegKey::EndLog(), 0u) << "nothing logged";
}

// Catches two-part and parent opens logging only part of the path, and a line longer than
// the 255-character line buffer overrunning it.
TEST(RegKeyLog, ParentPathsAreLoggedWholeAndLongLinesAreCut)
{
    ScopedTestKey t(L"logpath");
    RegKey real(t.path().c_str(), 1);
    regtest::LogGuard guard;
    Guarded<512> g;
    RegKey::StartLog(g.buf);
    EXPECT_TRUE(RegKey().OpenParent(t.path(L"A\\B").c_str(), 1, 1)) << "a stand-in handle lets the record code carry on";
    EXPECT_TRUE(RegKey(t.path().c_str(), L"Part", 1).IsReady());
    real.PutStr(L"Name", std::wstring(400, L'v').c_str(), 1);
    const unsigned n = RegKey::EndLog();
    const std::wstring keys = L"[" + t.path(L"A\\B") + L"]\r\n[" + t.path(L"Part") + L"]\r\n";
    EXPECT_EQ(std::wstring(g.buf), keys + L"Name=" + std::wstring(249, L'v'));
    EXPECT_EQ(n, keys.size() + 255) << "at most 254 characters a line, plus the terminator";
    EXPECT_EQ(g.buf[n], 0xbdbd);
    EXPECT_FALSE(vxtest::RawKeyExists(t.sub(L"A")));
    EXPECT_FALSE(vxtest::RawKeyExists(t.sub(L"Part")));
}

// Catches value deletions carried out in log mode (and the deletion loops spinning on values
// that stay), binary writes or relative opens logged, and subkey changes skipped.
TEST(RegKeyLog, ValueChangesAreOnlyLoggedButSubkeyChangesHappen)
{
    ScopedTestKey t(L"logreg");
    ASSERT_TRUE(vxtest::RawSetDword(t.sub(), L"Keep1", 1));
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(), L"Keep2", L"old"));
    ASSERT_TRUE(vxtest::RawSetDword(t.sub(L"Sub"), L"Inner", 1));
    ASSERT_TRUE(vxtest::RawSetDword(t.sub(L"Rec\\Child"), L"V", 1));
    RegKey k(t.path().c_str(), 1);
    regtest::LogGuard guard;
    Guarded<1024> g;
    RegKey::StartLog(g.buf);
    EXPECT_EQ(k.PutDword(L"Keep1", 2, 1), 1);
    EXPECT_EQ(k.PutStr(L"Keep2", L"new", 1), 1);
    EXPECT_EQ(k.DelValue(L"Keep1"), 1);
    EXPECT_TRUE(regtest::FinishesWithin(10000, [&] { k.DelValuesStartingWith(L"Keep", 0); })) << "loops";
    EXPECT_EQ(k.PutBin(L"Bin", (const BYTE*)"ab", 2), 1);
    EXPECT_EQ(RegKey(k, L"Relative", 1).IsReady(), 1);
    EXPECT_EQ(k.ProcessSubKey(RegKey::OpWrite, L"Rec"), 1);
    EXPECT_TRUE(vxtest::RawKeyExists(t.sub(L"Rec")));
    EXPECT_FALSE(vxtest::RawKeyExists(t.sub(L"Rec\\Child")));
    EXPECT_TRUE(regtest::FinishesWithin(10000, [&] { k.DelAll(); })) << "DelAll loops";
    RegKey::EndLog();
    const std::wstring log = g.buf, head = L"Keep1=dword:00000002\r\nKeep2=new\r\nKeep1=@\r\n";
    SCOPED_TRACE(testing::PrintToString(log)); // value enumeration order is the system's own
    EXPECT_EQ(log.find(head), 0u);
    EXPECT_NE(log.find(L"Keep2=@\r\n"), std::wstring::npos);
    EXPECT_NE(log.find(L"Bin=@\r\n"), std::wstring::npos) << "DelAll logs Bin";
    EXPECT_EQ(log.find(L"Bin="), log.rfind(L"Bin=")) << "Bin: only DelAll logs it";
    EXPECT_EQ(log.find(L"["), std::wstring::npos) << "relative opens are not logged";
    EXPECT_EQ(vxtest::RawGetDword(t.sub(), L"Keep1"), 1u) << "values were changed";
    EXPECT_EQ(vxtest::RawGetStr(t.sub(), L"Keep2"), L"old") << "values were changed";
    EXPECT_EQ(vxtest::RawCountValues(t.sub()), 3u) << "Bin was written, no value deleted";
    EXPECT_EQ(vxtest::RawCountSubKeys(t.sub()), 0u) << "DelAll removed the subkeys even in log mode";
}

} // namespace
