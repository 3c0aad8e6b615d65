// The records: a flag set and its registry key, the settings record's defaults, comparison and
// copies, the warning text, the power action, and the configuration utility's record.
#include <gtest/gtest.h>

#include <functional>

#include "base/StrUtil.h"
#include "settings/MyOpts.h"
#include "storage/RegKey.h"
#include "support/Guards.h"
#include "support/TestSupport.h"

using namespace vxtest;

namespace {

typedef std::vector<std::wstring> Names;

class SampleOpts : public BoolOpts {
public:
    SampleOpts() : BoolOpts(L"Options") { Reset(); }
    void Reset() override { SetAll(0x10), nCount = 7; }
    void OnLoad(RegKey& key) override { key.ProcessEntry(RegKey::OpRead, L"Count", nCount); }
    void OnStore(RegKey& key) override { key.ProcessEntry(RegKey::OpWriteAlways, L"Count", nCount); }
    int nCount = 0;
};

TEST(BoolOpts, LoadStoreAndTheTempShadow)
{
    ScopedTestKey key(L"opts");
    ScopedAppRootKey root(key.path());
    SampleOpts o, back;
    o.nCount = 99;
    EXPECT_EQ(o.Load(), 0);
    EXPECT_EQ(o.nCount, 7) << "every load starts from the defaults";
    EXPECT_FALSE(RawKeyExists(key.sub())) << "loading never creates the key";
    EXPECT_EQ(o.DelTemp(), 0) << "no record key to open";
    o.SetAll(0x25), o.nCount = 3;
    ASSERT_EQ(o.Store(), 1);
    EXPECT_EQ(back.LoadTemp(), 0);
    ASSERT_EQ(back.Load(), 1);
    EXPECT_EQ(std::make_pair(back.GetAll(), back.nCount), std::make_pair(0x25u, 3));
    SampleOpts copy(back);
    copy.SetAll(0x2), copy.nCount = 4;
    EXPECT_EQ(back.GetAll(), 0x25u) << "a copy owns its flag set";
    ASSERT_EQ(copy.StoreTemp(), 1);
    EXPECT_EQ(RawGetDword(key.sub(), L"Count"), 3u) << "the live record is untouched";
    ASSERT_EQ(back.LoadTemp(), 1);
    EXPECT_EQ(std::make_pair(back.GetAll(), back.nCount), std::make_pair(0x2u, 4));
    EXPECT_EQ(o.DelTemp(), 1);
    EXPECT_FALSE(RawKeyExists(key.sub(L"Temp")));
    EXPECT_EQ(o.DelTemp(), 1) << "an absent shadow counts as deleted";

    // The flag set is read from any four bytes that are not text.
    struct { DWORD type; std::vector<BYTE> data; unsigned expected; } cases[] = {
        {REG_DWORD, {3, 0, 0, 0}, 3}, {REG_BINARY, {9, 0, 0, 0}, 9}, {REG_BINARY, {3, 0}, 0x10},
        {REG_QWORD, {1, 0, 0, 0, 0, 0, 0, 0}, 0x10}, {REG_SZ, {'5', 0, 0, 0}, 0x10},
        {REG_EXPAND_SZ, {'5', 0, 0, 0}, 0x10}, {REG_MULTI_SZ, {'5', 0, 0, 0}, 0x10},
    };
    for (const auto& c : cases) {
        ASSERT_TRUE(RawSetBin(key.sub(), L"Options", c.data.data(), (DWORD)c.data.size(), c.type));
        ASSERT_EQ(o.Load(), 1);
        EXPECT_EQ(o.GetAll(), c.expected) << "case " << &c - cases;
    }
}

const wchar_t* gGroups[4]; // an empty name is a failed look-up
int FakeLookup(WELL_KNOWN_SID_TYPE type, wchar_t* name, unsigned cch)
{
    int i = type == WinBuiltinUsersSid ? 0 : type == WinBuiltinGuestsSid ? 1 : type == WinBuiltinRemoteDesktopUsersSid ? 2 : 3;
    return StrCopy(name, cch, gGroups[i]), gGroups[i][0] != 0;
}

TEST(MyOpts, ResetGivesDefaultsAndKeepsCallerState)
{
    MyOpts o;
    o.bReadTemp = o.bKeepLists = o.bPolicyInEffect = 1;
    StrCopy(o.szMsgText, L"custom");
    o.SetSchedule(L"Mon 8:00-17:00");
    o.SetAll(0xFF);
    o.Reset();
    EXPECT_EQ(std::vector<int>({o.nPolicyState, o.bEnable, o.nTimeout, o.nMsgTimeout, o.bLogoffStale, o.nLogoffStaleCount,
                                o.bKeepLastActiveUser, o.bFullScreen, o.bMonitorKB, o.bMonitorMouse, o.bMonitorCPU,
                                o.nPercentCPU, o.bUseSchedule, o.bShutdown, o.nShutdownTimeout, o.nShutdownAction,
                                (int)o.GetAll(), o.szMsgText[0], o.schedule.IsDefault()}),
              std::vector<int>({0, 0, 10, 5, 0, 5, 0, 0, 1, 1, 0, 25, 0, 0, 10, 1, 0, 0, 1}));
    EXPECT_EQ(o.bReadTemp + o.bKeepLists + o.bPolicyInEffect, 3) << "caller state survives";
    // The user lists: the well-known groups of this computer (Wine names them in English).
    EXPECT_EQ(Items(o.listInclude), (Names{L"Users", L"Guests", L"Remote Desktop Users"}));
    EXPECT_EQ(Items(o.listExclude), Names{L"Administrators"});
    ScopedValue<MyOpts::LookupWellKnownNameFn> fake(MyOpts::pfnLookupWellKnownName, FakeLookup);
    gGroups[0] = L"Benutzer", gGroups[1] = L"", gGroups[2] = L"Remotedesktopbenutzer", gGroups[3] = L"";
    o.Reset();
    EXPECT_EQ(Items(o.listInclude), (Names{L"Benutzer", L"Remotedesktopbenutzer"})) << "replaced, not appended";
    EXPECT_TRUE(o.listExclude.IsEmpty());
}

// Every setting counts for IsDifferent and is taken by CopyFrom.
TEST(MyOpts, EverySettingIsComparedAndCopied)
{
    const std::vector<std::function<void(MyOpts&)>> changes = {
        [](MyOpts& o) { o.SetAll(1); }, [](MyOpts& o) { o.nPolicyState = 1; }, [](MyOpts& o) { o.bEnable = 1; },
        [](MyOpts& o) { o.nTimeout = 11; }, [](MyOpts& o) { o.nMsgTimeout = 6; },
        [](MyOpts& o) { o.bKeepLastActiveUser = 1; }, [](MyOpts& o) { o.bLogoffStale = 1; },
        [](MyOpts& o) { o.nLogoffStaleCount = 6; }, [](MyOpts& o) { o.bFullScreen = 1; },
        [](MyOpts& o) { o.bMonitorKB = 0; }, [](MyOpts& o) { o.bMonitorMouse = 0; }, [](MyOpts& o) { o.bMonitorCPU = 1; },
        [](MyOpts& o) { o.nPercentCPU = 26; }, [](MyOpts& o) { o.bShutdown = 1; },
        [](MyOpts& o) { o.nShutdownTimeout = 11; }, [](MyOpts& o) { o.nShutdownAction = 2; },
        [](MyOpts& o) { o.bUseSchedule = 1; }, [](MyOpts& o) { o.SetSchedule(L"Mon 8:00-9:00"); },
        [](MyOpts& o) { StrCopy(o.szMsgText, L"Bye"); }, [](MyOpts& o) { StrCopy(o.szMsgTextLocked, L"x"); },
        [](MyOpts& o) { o.listInclude.RemoveAt(o.listInclude.GetHeadPosition()), o.listInclude.AddTail(L"Users"); },
        [](MyOpts& o) { o.listExclude.AddTail(L"Kiosk"); },
    };
    for (size_t i = 0; i < changes.size(); ++i) {
        MyOpts a, b;
        a.Reset(), b.Reset();
        StrCopy(a.szMsgText, L"bye"), StrCopy(b.szMsgText, L"bye");
        changes[i](b);
        EXPECT_EQ(a.IsDifferent(&b) + b.IsDifferent(&a), 2) << "change " << i;
        a.CopyFrom(&b);
        EXPECT_EQ(a.IsDifferent(&b), 0) << "change " << i;
    }
    MyOpts src, dst;
    src.Reset();
    src.SetSchedule(L"Mon 8:00-9:00");
    src.bReadTemp = src.bPolicyInEffect = 1;
    dst.CopyFrom(&src);
    EXPECT_EQ(dst.bReadTemp + dst.bPolicyInEffect, 0) << "caller flags and policy state are not copied";
    src.SetSchedule(L"MON 8:00-9:00");
    EXPECT_STREQ(dst.GetSchedule(), L"Mon 8:00-9:00") << "a deep copy";
    EXPECT_EQ(dst.IsDifferent(&src), 0) << "schedule words ignore case; caller flags never count";
}

TEST(MyOpts, FormatUserMsg)
{
    ScopedResourceModule strings(L"VXDA64.DLL"); // the service's string table
    ASSERT_NE(strings.module(), nullptr);
    MyOpts o;
    o.Reset();
    wchar_t out[1024];
    o.FormatUserMsg(out, 1024, 1, 4, 5); // the built-in texts, locked or not
    EXPECT_EQ(std::wstring(out).find(L"Unlock the screen"), 0u) << out;
    EXPECT_NE(std::wstring(out).find(L"less than 4:05 minute(s)"), std::wstring::npos) << out;
    StrCopy(o.szMsgText, L"%d left, really %d. 100%% sure, %s %x %");
    o.FormatUserMsg(out, 1024, 0, 12, 0);
    EXPECT_STREQ(out, L"12:00 left, really 12:00. 100% sure, %s %x %");
    wchar_t small[12];
    std::fill(small, small + 12, (wchar_t)0xbdbd);
    StrCopy(o.szMsgTextLocked, L"Leave in %d!");
    o.FormatUserMsg(small, 11, 1, 3, 9);
    EXPECT_STREQ(small, L"Leave in 3") << "cut at the buffer";
    EXPECT_EQ(small[11], 0xbdbd);
}

SYSTEM_POWER_CAPABILITIES gCaps;
BOOLEAN FakePower(SYSTEM_POWER_CAPABILITIES* p) { return *p = gCaps, TRUE; }

TEST(MyOpts, ShutdownActionsFollowThePowerCapabilities)
{
    ScopedValue<MyOpts::GetPwrCapabilitiesFn> power(MyOpts::pfnGetPwrCapabilities, FakePower);
    struct { int action; BOOLEAN s1, s3, s4, hiberFile; int can; } cases[] = {
        {3, 0, 0, 0, 0, 1}, {1, 0, 0, 1, 1, 0}, {1, 0, 1, 0, 0, 1}, {1, 1, 0, 0, 0, 1},
        {2, 1, 1, 1, 0, 0}, {2, 0, 0, 0, 1, 1}, {0, 1, 1, 1, 1, 0}, {4, 1, 1, 1, 1, 0},
    };
    for (auto& c : cases) {
        gCaps = {};
        gCaps.SystemS1 = c.s1, gCaps.SystemS3 = c.s3, gCaps.SystemS4 = c.s4, gCaps.HiberFilePresent = c.hiberFile;
        EXPECT_EQ(MyOpts::CanDoShutdownAction(c.action), c.can) << "case " << &c - cases;
    }
}

TEST(MyConfig, RemembersPathsAndPlacement)
{
    ScopedTestKey key(L"cfg");
    ScopedAppRootKey root(key.path());
    MyConfig c;
    StrCopy(c.szImpExpPath, L"C:\\Exports");
    c.wpDlgMain.rcNormalPosition = {10, 20, 300, 400};
    ASSERT_EQ(c.Store(), 1);
    // A path too long for its field is not read; a placement of the wrong size is ignored.
    RawSetStr(key.sub(), L"GPOPath", std::wstring(260, L'g'));
    MyConfig back;
    ASSERT_EQ(back.Load(), 1);
    EXPECT_STREQ(back.szImpExpPath, L"C:\\Exports");
    EXPECT_STREQ(back.szGPOPath, L"");
    EXPECT_EQ(back.wpDlgMain.rcNormalPosition.right, 300);
    BYTE big[sizeof(WINDOWPLACEMENT) + 1] = {1};
    RawSetBin(key.sub(), L"DlgMain", big, sizeof(big));
    RawSetStr(key.sub(), L"GPOPath", std::wstring(259, L'g'));
    ASSERT_EQ(back.Load(), 1);
    EXPECT_EQ(back.wpDlgMain.rcNormalPosition.right, 300);
    EXPECT_EQ(wcslen(back.szGPOPath), 259u) << "a path that just fits is read";
}

} // namespace
