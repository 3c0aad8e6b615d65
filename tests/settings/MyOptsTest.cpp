// The settings record: defaults, copies, comparison, the warning text and the power action.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "base/ProductInfo.h"
#include "base/Resources.h"
#include "base/StrUtil.h"
#include "settings/MyOpts.h"
#include "support/Guards.h"
#include "support/TestSupport.h"

using namespace vxtest;

namespace {

// A computer whose well-known groups carry the given names; an empty name is a failed look-up.
struct FakeGroups {
    static std::wstring users, guests, rdu, admins;
    static int Lookup(WELL_KNOWN_SID_TYPE type, wchar_t* name, unsigned cch)
    {
        const std::wstring* s = type == WinBuiltinUsersSid            ? &users
                                : type == WinBuiltinGuestsSid         ? &guests
                                : type == WinBuiltinRemoteDesktopUsersSid ? &rdu
                                : type == WinBuiltinAdministratorsSid ? &admins
                                                                      : nullptr;
        if (!s || s->empty())
            return 0;
        StrCopy(name, cch, s->c_str());
        return 1;
    }
    MyOpts::LookupWellKnownNameFn saved = MyOpts::pfnLookupWellKnownName;
    FakeGroups(const wchar_t* u, const wchar_t* g, const wchar_t* r, const wchar_t* a)
    {
        users = u, guests = g, rdu = r, admins = a;
        MyOpts::pfnLookupWellKnownName = Lookup;
    }
    ~FakeGroups() { MyOpts::pfnLookupWellKnownName = saved; }
};
std::wstring FakeGroups::users, FakeGroups::guests, FakeGroups::rdu, FakeGroups::admins;

TEST(MyOpts, ResetGivesTheDocumentedDefaults)
{
    MyOpts o;
    o.bReadTemp = 1;
    o.bKeepLists = 1;
    StrCopy(o.szGPOPath, L"LDAP://gpo");
    StrCopy(o.szGPODisplayName, L"Kiosk policy");
    o.hrGPO = E_FAIL;
    o.bPolicyInEffect = 1;
    o.SetSchedule(L"Mon 8:00-17:00");
    StrCopy(o.szMsgText, L"custom");
    o.SetAll(0xFF);
    o.Reset();

    EXPECT_EQ(o.GetAll(), 0u);
    EXPECT_EQ(o.nPolicyState, 0);
    EXPECT_EQ(o.bEnable, 0);
    EXPECT_EQ(o.nTimeout, 10);
    EXPECT_EQ(o.nMsgTimeout, 5);
    EXPECT_EQ(o.bLogoffStale, 0);
    EXPECT_EQ(o.nLogoffStaleCount, 5);
    EXPECT_EQ(o.bKeepLastActiveUser, 0);
    EXPECT_EQ(o.bFullScreen, 0);
    EXPECT_EQ(o.bMonitorKB, 1);
    EXPECT_EQ(o.bMonitorMouse, 1);
    EXPECT_EQ(o.bMonitorCPU, 0);
    EXPECT_EQ(o.nPercentCPU, 25);
    EXPECT_STREQ(o.szMsgText, L"");
    EXPECT_STREQ(o.szMsgTextLocked, L"");
    EXPECT_EQ(o.bUseSchedule, 0);
    EXPECT_STREQ(o.GetSchedule(), L"*");
    EXPECT_EQ(o.bShutdown, 0);
    EXPECT_EQ(o.nShutdownTimeout, 10);
    EXPECT_EQ(o.nShutdownAction, 1);
    // The caller's flags and the Group Policy state survive a reset.
    EXPECT_EQ(o.bReadTemp, 1);
    EXPECT_EQ(o.bKeepLists, 1);
    EXPECT_STREQ(o.szGPOPath, L"LDAP://gpo");
    EXPECT_STREQ(o.szGPODisplayName, L"Kiosk policy");
    EXPECT_EQ(o.hrGPO, E_FAIL);
    EXPECT_EQ(o.bPolicyInEffect, 1);
}

TEST(MyOpts, DefaultListsComeFromWellKnownGroups)
{
    {
        // This computer's own names (Wine answers with the English names).
        MyOpts o;
        o.Reset();
        EXPECT_EQ(Items(o.listInclude), (std::vector<std::wstring>{L"Users", L"Guests", L"Remote Desktop Users"}));
        EXPECT_EQ(Items(o.listExclude), (std::vector<std::wstring>{L"Administrators"}));
    }
    {
        FakeGroups fr(L"Benutzer", L"G\u00e4ste", L"Remotedesktopbenutzer", L"Administratoren");
        MyOpts o;
        o.Reset();
        o.Reset(); // a second reset does not append the groups again
        EXPECT_EQ(Items(o.listInclude), (std::vector<std::wstring>{L"Benutzer", L"G\u00e4ste", L"Remotedesktopbenutzer"}));
        EXPECT_EQ(Items(o.listExclude), (std::vector<std::wstring>{L"Administratoren"}));
    }
    {
        FakeGroups missing(L"Users", L"Guests", L"", L"");
        MyOpts o;
        o.Reset();
        EXPECT_EQ(Items(o.listInclude), (std::vector<std::wstring>{L"Users", L"Guests"}));
        EXPECT_TRUE(o.listExclude.IsEmpty());
    }
}

TEST(MyOpts, CopyFromIsDeepAndLeavesCallerState)
{
    MyOpts src;
    src.Reset();
    src.SetAll(0x42);
    src.nPolicyState = 2;
    src.bEnable = 1;
    src.nTimeout = 30;
    src.nMsgTimeout = 0;
    src.bLogoffStale = 1;
    src.nLogoffStaleCount = 2;
    src.bKeepLastActiveUser = 1;
    src.bFullScreen = 1;
    src.bMonitorKB = 0;
    src.bMonitorMouse = 0;
    src.bMonitorCPU = 1;
    src.nPercentCPU = 60;
    src.bUseSchedule = 1;
    src.SetSchedule(L"Mon 8:00-17:00");
    StrCopy(src.szMsgText, L"Bye in %d");
    StrCopy(src.szMsgTextLocked, L"Locked, bye in %d");
    src.listInclude.RemoveAll();
    src.listInclude.AddTail(L"Kiosk");
    src.bShutdown = 1;
    src.nShutdownTimeout = 45;
    src.nShutdownAction = 3;
    src.bReadTemp = 1;
    StrCopy(src.szGPOPath, L"LDAP://src");
    src.bPolicyInEffect = 1;

    MyOpts dst;
    dst.Reset();
    dst.CopyFrom(&src);
    EXPECT_EQ(dst.IsDifferent(&src), 0);
    EXPECT_EQ(dst.GetAll(), 0x42u);
    EXPECT_EQ(dst.nShutdownAction, 3);
    EXPECT_EQ(dst.bReadTemp, 0);
    EXPECT_STREQ(dst.szGPOPath, L"");
    EXPECT_EQ(dst.bPolicyInEffect, 0);

    // Deep: the source's strings can change or go away without touching the copy.
    src.SetSchedule(L"Tue 8:00-9:00");
    src.listInclude.RemoveAll();
    src.Reset();
    EXPECT_STREQ(dst.GetSchedule(), L"Mon 8:00-17:00");
    EXPECT_EQ(Items(dst.listInclude), std::vector<std::wstring>{L"Kiosk"});
    EXPECT_STREQ(dst.szMsgText, L"Bye in %d");

    // A source without a schedule makes the copy standard too.
    dst.CopyFrom(&src);
    EXPECT_STREQ(dst.GetSchedule(), L"*");
    EXPECT_EQ(dst.schedule.IsDefault(), 1);

    MyOpts gpo;
    StrCopy(src.szGPOPath, L"LDAP://cn=x");
    StrCopy(src.szGPODisplayName, L"X");
    src.bPolicyInEffect = 1;
    gpo.CopyGPOFrom(&src);
    EXPECT_STREQ(gpo.szGPOPath, L"LDAP://cn=x");
    EXPECT_STREQ(gpo.szGPODisplayName, L"X");
    EXPECT_EQ(gpo.bPolicyInEffect, 1);
    EXPECT_EQ(gpo.nTimeout, 0) << "CopyGPOFrom copies no setting";
}

TEST(MyOpts, IsDifferentNoticesEverySetting)
{
    const std::vector<std::pair<const char*, std::function<void(MyOpts&)>>> changes = {
        {"flags", [](MyOpts& o) { o.SetAll(1); }},
        {"policy state", [](MyOpts& o) { o.nPolicyState = 1; }},
        {"Enable", [](MyOpts& o) { o.bEnable = 1; }},
        {"Timeout", [](MyOpts& o) { o.nTimeout = 11; }},
        {"MessageTimeout", [](MyOpts& o) { o.nMsgTimeout = 6; }},
        {"KeepLastActiveUser", [](MyOpts& o) { o.bKeepLastActiveUser = 1; }},
        {"LogoffStale", [](MyOpts& o) { o.bLogoffStale = 1; }},
        {"LogoffStaleCount", [](MyOpts& o) { o.nLogoffStaleCount = 6; }},
        {"FullScreen", [](MyOpts& o) { o.bFullScreen = 1; }},
        {"MonitorKB", [](MyOpts& o) { o.bMonitorKB = 0; }},
        {"MonitorMouse", [](MyOpts& o) { o.bMonitorMouse = 0; }},
        {"MonitorCPU", [](MyOpts& o) { o.bMonitorCPU = 1; }},
        {"PercentCPU", [](MyOpts& o) { o.nPercentCPU = 26; }},
        {"Shutdown", [](MyOpts& o) { o.bShutdown = 1; }},
        {"ShutdownTimeout", [](MyOpts& o) { o.nShutdownTimeout = 11; }},
        {"ShutdownAction", [](MyOpts& o) { o.nShutdownAction = 2; }},
        {"UseSchedule", [](MyOpts& o) { o.bUseSchedule = 1; }},
        {"Schedule", [](MyOpts& o) { o.SetSchedule(L"Mon 8:00-9:00"); }},
        {"MessageText case", [](MyOpts& o) { StrCopy(o.szMsgText, L"Bye"); }},
        {"MessageTextIfLocked", [](MyOpts& o) { StrCopy(o.szMsgTextLocked, L"x"); }},
        {"ApplyTo order", [](MyOpts& o) { o.listInclude.AddHead(o.listInclude.GetAt(o.listInclude.GetTailPosition())), o.listInclude.RemoveAt(o.listInclude.GetTailPosition()); }},
        {"Exclude", [](MyOpts& o) { o.listExclude.AddTail(L"Kiosk"); }},
    };
    for (const auto& change : changes) {
        SCOPED_TRACE(change.first);
        MyOpts a, b;
        a.Reset();
        b.Reset();
        StrCopy(a.szMsgText, L"bye");
        StrCopy(b.szMsgText, L"bye");
        change.second(b);
        EXPECT_EQ(a.IsDifferent(&b), 1);
        EXPECT_EQ(b.IsDifferent(&a), 1);
    }

    MyOpts a, b;
    a.Reset();
    b.Reset();
    a.SetSchedule(L"Mon 8:00-9:00");
    b.SetSchedule(L"MON 8:00-9:00");
    EXPECT_EQ(a.IsDifferent(&b), 0) << "schedule words compare without regard to case";
    b.SetSchedule(L"*");
    a.SetSchedule(nullptr);
    EXPECT_EQ(a.IsDifferent(&b), 0) << "no schedule equals \"*\"";
    b.bReadTemp = b.bKeepLists = 1;
    StrCopy(b.szGPOPath, L"LDAP://x");
    b.bPolicyInEffect = 1;
    b.hrGPO = E_FAIL;
    EXPECT_EQ(a.IsDifferent(&b), 0) << "caller flags and Group Policy state never count";
}

TEST(MyOpts, FormatUserMsgReplacesEveryPlaceholderWithMinutesAndSeconds)
{
    ScopedResourceModule strings(L"VXDA64.DLL"); // the string table the service uses
    ASSERT_NE(strings.module(), nullptr);
    MyOpts o;
    o.Reset();
    wchar_t out[1024];

    o.FormatUserMsg(out, 1024, 1, 4, 5);
    EXPECT_STREQ(out, L"Unlock the screen to keep your session active. Otherwise, you will be logged off in less than 4:05 "
                      L"minute(s) and any unsaved work will be discarded!\r\n\r\nNote: Pressing OK is NOT ENOUGH, you must "
                      L"UNLOCK the screen to keep your session active.\r\nLog on now to stop the automatic log off.");
    o.FormatUserMsg(out, 1024, 0, 0, 59);
    EXPECT_STREQ(out, L"Press OK to keep your session active. Otherwise, you will be logged off in less than 0:59 minute(s) "
                      L"and any unsaved work will be discarded!\r\n\r\nPress OK to stop the automatic log off.");

    StrCopy(o.szMsgText, L"%d left, really %d. 100%% sure, %s %x %");
    o.FormatUserMsg(out, 1024, 0, 12, 0);
    EXPECT_STREQ(out, L"12:00 left, really 12:00. 100% sure, %s %x %");
    StrCopy(o.szMsgTextLocked, L"Locked: %d");
    o.FormatUserMsg(out, 1024, 1, 1, 7);
    EXPECT_STREQ(out, L"Locked: 1:07");

    // Cut at the buffer, never beyond it, even in the middle of the time.
    wchar_t small[12];
    for (auto& c : small)
        c = 0xbdbd;
    StrCopy(o.szMsgText, L"Leave in %d!");
    o.FormatUserMsg(small, 11, 0, 3, 9);
    EXPECT_STREQ(small, L"Leave in 3");
    EXPECT_EQ(small[11], 0xbdbd);
}

TEST(MyOpts, FormatUserMsgWithoutStringsGivesEmptyText)
{
    ScopedResourceModule none(GetModuleHandleW(nullptr)); // the test program has no string table
    MyOpts o;
    o.Reset();
    wchar_t out[64] = L"junk";
    o.FormatUserMsg(out, 64, 0, 1, 2);
    EXPECT_STREQ(out, L"");
}

struct FakePower {
    static SYSTEM_POWER_CAPABILITIES caps;
    static int calls;
    static BOOLEAN Get(SYSTEM_POWER_CAPABILITIES* p)
    {
        ++calls;
        *p = caps;
        return TRUE;
    }
    MyOpts::GetPwrCapabilitiesFn saved = MyOpts::pfnGetPwrCapabilities;
    FakePower()
    {
        caps = {};
        calls = 0;
        MyOpts::pfnGetPwrCapabilities = Get;
    }
    ~FakePower() { MyOpts::pfnGetPwrCapabilities = saved; }
};
SYSTEM_POWER_CAPABILITIES FakePower::caps;
int FakePower::calls;

TEST(MyOpts, ShutdownActionsFollowThePowerCapabilities)
{
    FakePower power;
    EXPECT_EQ(MyOpts::CanDoShutdownAction(3), 1);
    EXPECT_EQ(FakePower::calls, 0) << "shutting down is always possible, nothing to ask";
    EXPECT_EQ(MyOpts::CanDoShutdownAction(1), 0);
    EXPECT_EQ(MyOpts::CanDoShutdownAction(2), 0);
    FakePower::caps.SystemS3 = TRUE;
    EXPECT_EQ(MyOpts::CanDoShutdownAction(1), 1);
    FakePower::caps.SystemS3 = FALSE;
    FakePower::caps.SystemS1 = TRUE;
    EXPECT_EQ(MyOpts::CanDoShutdownAction(1), 1);
    FakePower::caps.SystemS4 = TRUE; // hibernation needs the file, not just the state
    EXPECT_EQ(MyOpts::CanDoShutdownAction(2), 0);
    FakePower::caps.HiberFilePresent = TRUE;
    EXPECT_EQ(MyOpts::CanDoShutdownAction(2), 1);
    EXPECT_EQ(MyOpts::CanDoShutdownAction(0), 0);
    EXPECT_EQ(MyOpts::CanDoShutdownAction(4), 0);

    EXPECT_STREQ(MyOpts::GetShutdownActionText(1), L"Sleep");
    EXPECT_STREQ(MyOpts::GetShutdownActionText(2), L"Hibernate");
    EXPECT_STREQ(MyOpts::GetShutdownActionText(3), L"Shutdown");
    EXPECT_STREQ(MyOpts::GetShutdownActionText(0), L"");
    EXPECT_STREQ(MyOpts::GetShutdownActionText(4), L"");
}

TEST(MyConfig, RemembersPathsAndPlacement)
{
    ScopedTestKey key(L"cfg");
    ScopedAppRootKey root(key.path());
    MyConfig c;
    c.Reset();
    StrCopy(c.szImpExpPath, L"C:\\Exports");
    c.wpDlgMain.length = sizeof(WINDOWPLACEMENT);
    c.wpDlgMain.rcNormalPosition = {10, 20, 300, 400};
    c.Set(MyConfig::OPTF_HIDE_MSG_1, 1);
    c.Set(MyConfig::OPTF_HIDE_MSG_2, 1);
    c.SetBits(0x2, 0x2);
    ASSERT_EQ(c.Store(), 1);
    EXPECT_EQ(RawGetStr(key.sub(), L"ImpExpPath"), L"C:\\Exports");
    EXPECT_FALSE(RawValueExists(key.sub(), L"GPOPath")) << "an empty path is not stored";
    EXPECT_EQ(RawGetDword(key.sub(), L"Config"), 0x7u);

    MyConfig back;
    ASSERT_EQ(back.Load(), 1);
    EXPECT_STREQ(back.szImpExpPath, L"C:\\Exports");
    EXPECT_EQ(back.IsGPO(), 0);
    EXPECT_EQ(back.wpDlgMain.rcNormalPosition.right, 300);
    back.RestoreHiddenMsg();
    EXPECT_EQ(back.GetAll(), 0x2u);

    // A path too long for its field is not taken; a placement of the wrong size is ignored.
    RawSetStr(key.sub(), L"GPOPath", std::wstring(300, L'g'));
    BYTE big[60] = {1};
    RawSetBin(key.sub(), L"DlgMain", big, sizeof(big));
    MyConfig odd;
    odd.wpDlgMain.flags = 77;
    ASSERT_EQ(odd.Load(), 1);
    EXPECT_STREQ(odd.szGPOPath, L"");
    EXPECT_EQ(odd.wpDlgMain.flags, 77u);

    // Clearing the path deletes its value.
    back.szImpExpPath[0] = 0;
    ASSERT_EQ(back.Store(), 1);
    EXPECT_FALSE(RawValueExists(key.sub(), L"ImpExpPath"));
}

} // namespace
