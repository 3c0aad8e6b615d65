// Where the settings come from and how they are written: policy precedence, the local key, the
// "Temp" staging key, integers kept as text, lists as numbered values, and damaged values.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/ProductInfo.h"
#include "base/StrUtil.h"
#include "settings/MyOpts.h"
#include "settings/Policy.h"
#include "support/Guards.h"
#include "support/TestSupport.h"

using namespace vxtest;

namespace {

// The product pointed at private local and policy keys.
class SettingsKeys : public ::testing::Test {
protected:
    ScopedTestKey local{L"local"};
    ScopedTestKey policy{L"policy"};
    ScopedAppRootKey root{local.path()};
    ScopedPolicyKeys policyKeys{policy.path(), policy.path()};
    std::wstring Local(const wchar_t* rel = nullptr) const { return rel ? local.sub(rel) : local.sub(); }
};

TEST_F(SettingsKeys, PolicyWithoutEnableLeavesTheLocalSettingsInCharge)
{
    RawSetDword(Local(), L"Timeout", 20);
    RawSetDword(policy.sub(), L"Timeout", 30); // a policy key without "Enable" is ignored
    MyOpts o;
    o.bPolicyInEffect = 1;
    ASSERT_EQ(o.Load(), 1);
    EXPECT_EQ(o.nTimeout, 20);
    EXPECT_EQ(o.bPolicyInEffect, 0);
}

TEST_F(SettingsKeys, PolicyWithEnableWinsAsAWhole)
{
    RawSetDword(Local(), L"Timeout", 20);
    RawSetDword(Local(), L"MessageTimeout", 1);
    RawSetStr(Local(L"ApplyTo"), L"1", L"Kiosk");
    RawSetDword(policy.sub(), L"Enable", 1);
    MyOpts o;
    ASSERT_EQ(o.Load(), 1);
    EXPECT_EQ(o.bPolicyInEffect, 1);
    EXPECT_EQ(o.bEnable, 1);
    EXPECT_EQ(o.nTimeout, 10) << "values missing from the policy keep their defaults";
    EXPECT_EQ(o.nMsgTimeout, 5);
    EXPECT_TRUE(o.listInclude.IsEmpty()) << "the policy has no list, so the list is empty";

    // "Enable" = 0 is still a policy that holds "Enable".
    RawSetDword(policy.sub(), L"Enable", 0);
    RawSetStr(policy.sub(), L"Timeout", L"45");
    ASSERT_EQ(o.Load(), 1);
    EXPECT_EQ(o.bPolicyInEffect, 1);
    EXPECT_EQ(o.bEnable, 0);
    EXPECT_EQ(o.nTimeout, 45);

    // An "Enable" that is not a number does not make a policy.
    RawSetStr(policy.sub(), L"Enable", L"yes");
    ASSERT_EQ(o.Load(), 1);
    EXPECT_EQ(o.bPolicyInEffect, 0);
    EXPECT_EQ(o.nTimeout, 20);
}

TEST_F(SettingsKeys, NoKeyAtAllKeepsTheDefaults)
{
    MyOpts o;
    EXPECT_EQ(o.Load(), 0);
    EXPECT_EQ(o.nTimeout, 10);
    EXPECT_EQ(o.listInclude.GetCount(), 3u) << "without any key the default groups stay";
}

TEST_F(SettingsKeys, ValuesAreReadAsStoredWithOnlyTheActionChecked)
{
    const struct {
        const wchar_t* name;
        DWORD value;
    } values[] = {{L"Enable", 1},         {L"Timeout", 0},          {L"MessageTimeout", 0},   {L"LogoffStale", 1},
                  {L"LogoffStaleCount", 0}, {L"KeepLastActiveUser", 1}, {L"FullScreen", 1},    {L"MonitorKB", 0},
                  {L"MonitorMouse", 0},   {L"MonitorCPU", 1},       {L"PercentCPU", 250},     {L"Shutdown", 1},
                  {L"ShutdownTimeout", 99999}, {L"ShutdownAction", 7}, {L"UseSchedule", 1}};
    for (const auto& v : values)
        RawSetDword(Local(), v.name, v.value);
    MyOpts o;
    ASSERT_EQ(o.Load(), 1);
    EXPECT_EQ(o.bEnable, 1);
    EXPECT_EQ(o.nTimeout, 0);
    EXPECT_EQ(o.nMsgTimeout, 0);
    EXPECT_EQ(o.bLogoffStale, 1);
    EXPECT_EQ(o.nLogoffStaleCount, 0);
    EXPECT_EQ(o.bKeepLastActiveUser, 1);
    EXPECT_EQ(o.bFullScreen, 1);
    EXPECT_EQ(o.bMonitorKB, 0);
    EXPECT_EQ(o.bMonitorMouse, 0);
    EXPECT_EQ(o.bMonitorCPU, 1);
    EXPECT_EQ(o.nPercentCPU, 250);
    EXPECT_EQ(o.bShutdown, 1);
    EXPECT_EQ(o.nShutdownTimeout, 99999);
    EXPECT_EQ(o.nShutdownAction, 1) << "an unknown power action becomes sleep";
    EXPECT_EQ(o.bUseSchedule, 1);
    for (DWORD action : {0u, 4u, 0xFFFFFFFEu}) {
        RawSetDword(Local(), L"ShutdownAction", action);
        ASSERT_EQ(o.Load(), 1);
        EXPECT_EQ(o.nShutdownAction, 1) << action;
    }
    RawSetDword(Local(), L"ShutdownAction", 3);
    ASSERT_EQ(o.Load(), 1);
    EXPECT_EQ(o.nShutdownAction, 3);
}

TEST_F(SettingsKeys, IntegersStoredAsTextStayText)
{
    RawSetStr(Local(), L"Timeout", L"15");
    RawSetStr(Local(), L"MessageTimeout", L" 3 ", REG_EXPAND_SZ);
    DWORD four = 8;
    RawSetBin(Local(), L"PercentCPU", &four, 4);
    MyOpts o;
    ASSERT_EQ(o.Load(), 1);
    EXPECT_EQ(o.nTimeout, 15);
    EXPECT_EQ(o.nMsgTimeout, 3);
    EXPECT_EQ(o.nPercentCPU, 8) << "four binary bytes read like a DWORD";

    o.nTimeout = 20;
    o.nMsgTimeout = -4;
    ASSERT_EQ(o.Store(), 1);
    DWORD type = 0;
    std::vector<BYTE> data;
    ASSERT_TRUE(RawGet(Local(), L"Timeout", &type, &data));
    EXPECT_EQ(type, (DWORD)REG_SZ);
    EXPECT_EQ(RawGetStr(Local(), L"Timeout"), L"20");
    ASSERT_TRUE(RawGet(Local(), L"MessageTimeout", &type, &data));
    EXPECT_EQ(RawGetStr(Local(), L"MessageTimeout"), L"-4");
    ASSERT_TRUE(RawGet(Local(), L"ShutdownTimeout", &type, &data));
    EXPECT_EQ(type, (DWORD)REG_DWORD) << "values that were not text are written as DWORDs";
    ASSERT_TRUE(RawGet(Local(), L"PercentCPU", &type, &data));
    EXPECT_EQ(type, (DWORD)REG_DWORD);

    MyOpts back;
    ASSERT_EQ(back.Load(), 1);
    EXPECT_EQ(back.nTimeout, 20);
    EXPECT_EQ(back.nMsgTimeout, -4);
}

TEST_F(SettingsKeys, DamagedValuesNeverOverflowAndKeepDefaults)
{
    RawSetStr(Local(), L"MessageText", std::wstring(1024, L'm'));          // 2 KB: too long for the field
    RawSetStr(Local(), L"MessageTextIfLocked", std::wstring(511, L'k'));    // fits exactly
    BYTE eight[8] = {5, 0, 0, 0, 0, 0, 0, 0};
    RawSetBin(Local(), L"Timeout", eight, sizeof(eight));                  // binary, not four bytes
    RawSetStr(Local(), L"MessageTimeout", L"12abc");                        // text that is no number
    RawSetStr(Local(), L"LogoffStaleCount", std::wstring(100, L'7'));       // text over 128 bytes
    RawSetBin(Local(), L"PercentCPU", nullptr, 0, REG_NONE);                // no type
    RawSetDword(Local(), L"ShutdownTimeout", 0xFFFFFFFF);                   // -1 reads like missing
    // Stored without a terminator; the character after the stored data is not zero either, so
    // nothing on the way can quietly supply one.
    const wchar_t unterminated[] = {L'M', L'o', L'n', L' ', L'8', L':', L'0', L'0', L'-', L'9', L':', L'0', L'0', L'X'};
    RawSetBin(Local(), L"Schedule", unterminated, sizeof(unterminated) - sizeof(wchar_t), REG_SZ);
    RawSetStr(Local(L"ApplyTo"), L"1", L"First");
    RawSetStr(Local(L"ApplyTo"), L"2", std::wstring(300, L'x'));            // 602 bytes: ends the list
    RawSetStr(Local(L"ApplyTo"), L"3", L"Never reached");
    RawSetStr(Local(L"Exclude"), L"1", L"A");
    RawSetStr(Local(L"Exclude"), L"3", L"After a gap");
    RawSetStr(Local(L"Exclude"), L"01", L"Not a list name");

    MyOpts o;
    ASSERT_EQ(o.Load(), 1);
    EXPECT_STREQ(o.szMsgText, L"");
    EXPECT_EQ(std::wstring(o.szMsgTextLocked), std::wstring(511, L'k'));
    EXPECT_EQ(o.nTimeout, 10);
    EXPECT_EQ(o.nMsgTimeout, 5);
    EXPECT_EQ(o.nLogoffStaleCount, 5);
    EXPECT_EQ(o.nPercentCPU, 25);
    EXPECT_EQ(o.nShutdownTimeout, 10);
    EXPECT_STREQ(o.GetSchedule(), L"Mon 8:00-9:00");
    EXPECT_EQ(Items(o.listInclude), std::vector<std::wstring>{L"First"});
    EXPECT_EQ(Items(o.listExclude), std::vector<std::wstring>{L"A"});

    // A 512-byte entry (255 characters and the terminator) is still an entry.
    RawSetStr(Local(L"ApplyTo"), L"2", std::wstring(255, L'y'));
    ASSERT_EQ(o.Load(), 1);
    EXPECT_EQ(Items(o.listInclude), (std::vector<std::wstring>{L"First", std::wstring(255, L'y'), L"Never reached"}));
}

TEST_F(SettingsKeys, MissingListSubkeysGiveEmptyListsUnlessKept)
{
    RawSetDword(Local(), L"Enable", 1);
    MyOpts o;
    ASSERT_EQ(o.Load(), 1);
    EXPECT_TRUE(o.listInclude.IsEmpty());
    EXPECT_TRUE(o.listExclude.IsEmpty());

    RawSetStr(Local(L"ApplyTo"), L"1", L"Stored");
    MyOpts kept;
    kept.listInclude.AddTail(L"Mine");
    kept.bKeepLists = 1;
    // Load resets first, which refills the default groups: bKeepLists only stops the read.
    // The caller that keeps lists is the one that put them there after its own reset, so we
    // mimic it by loading without the framework's reset.
    kept.Reset();
    kept.listInclude.RemoveAll();
    kept.listInclude.AddTail(L"Mine");
    ASSERT_EQ(kept.ReadPolicy(), 1);
    EXPECT_EQ(Items(kept.listInclude), std::vector<std::wstring>{L"Mine"});
    EXPECT_EQ(kept.listExclude.GetCount(), 1u) << "the default group is left as it was";
}

TEST_F(SettingsKeys, StoreWritesOnlyChangesAndNeverThePolicy)
{
    MyOpts o;
    o.Reset();
    o.bEnable = 1;
    o.listInclude.RemoveAll();
    o.listInclude.AddTail(L"Kiosk");
    o.listInclude.AddTail(L"Lab");
    ASSERT_EQ(o.Store(), 1);
    EXPECT_EQ(RawGetStr(Local(), L"Schedule"), L"*");
    EXPECT_EQ(RawGetDword(Local(), L"Enable"), 1u);
    EXPECT_EQ(RawGetDword(Local(), L"Timeout"), 10u);
    EXPECT_EQ(RawGetStr(Local(L"ApplyTo"), L"1"), L"Kiosk");
    EXPECT_EQ(RawGetStr(Local(L"ApplyTo"), L"2"), L"Lab");
    EXPECT_EQ(RawCountValues(Local(L"ApplyTo")), 2u);
    EXPECT_EQ(RawGetStr(Local(L"Exclude"), L"1"), L"Administrators");
    EXPECT_FALSE(RawValueExists(Local(), L"NotConfigured")) << "only the staging key holds it";
    EXPECT_FALSE(RawKeyExists(policy.sub())) << "storing never creates or writes the policy";

    // An unchanged record writes nothing: equal values left under another text type keep it
    // (a rewrite would store REG_SZ).
    RawSetStr(Local(), L"Timeout", L"10", REG_EXPAND_SZ);
    RawSetStr(Local(), L"Schedule", L"*", REG_EXPAND_SZ);
    RawSetStr(Local(), L"MessageText", L"", REG_EXPAND_SZ);
    // List entries are the exception: they always end as exactly the REG_SZ entries "1", "2", ...,
    // also where an entry held the same text under another type.
    RawSetStr(Local(L"ApplyTo"), L"1", L"Kiosk", REG_EXPAND_SZ);
    RawSetBin(Local(L"ApplyTo"), L"2", L"Lab", sizeof(L"Lab"));
    ASSERT_EQ(o.Store(), 1);
    for (const auto& v : {std::make_pair(Local(), L"Timeout"), std::make_pair(Local(), L"Schedule"),
                          std::make_pair(Local(), L"MessageText")}) {
        DWORD type = 0;
        ASSERT_TRUE(RawGet(v.first, v.second, &type, nullptr));
        EXPECT_EQ(type, (DWORD)REG_EXPAND_SZ) << "rewritten: " << std::string(v.second, v.second + wcslen(v.second));
    }
    EXPECT_EQ(RawGetStr(Local(), L"Timeout"), L"10");
    for (const wchar_t* entry : {L"1", L"2"}) {
        DWORD type = 0;
        ASSERT_TRUE(RawGet(Local(L"ApplyTo"), entry, &type, nullptr));
        EXPECT_EQ(type, (DWORD)REG_SZ) << "list entry " << (char)entry[0];
    }
    EXPECT_EQ(RawGetStr(Local(L"ApplyTo"), L"2"), L"Lab");

    // A shorter list leaves exactly its own entries behind.
    o.listInclude.RemoveAt(o.listInclude.GetHeadPosition());
    RawSetStr(Local(L"ApplyTo"), L"Stray", L"x");
    ASSERT_EQ(o.Store(), 1);
    EXPECT_EQ(RawGetStr(Local(L"ApplyTo"), L"1"), L"Lab");
    EXPECT_EQ(RawCountValues(Local(L"ApplyTo")), 1u);

    MyOpts back;
    ASSERT_EQ(back.Load(), 1);
    EXPECT_EQ(back.IsDifferent(&o), 0);
}

TEST_F(SettingsKeys, StagingKeyCarriesThePolicyState)
{
    RawSetDword(policy.sub(), L"Enable", 1); // the staging road never consults the policy
    MyOpts staged;
    staged.Reset();
    staged.bReadTemp = 1;
    staged.nPolicyState = 0;
    staged.bEnable = 1;
    staged.nTimeout = 33;
    ASSERT_EQ(staged.Store(), 1);
    EXPECT_EQ(RawGetDword(Local(L"Temp"), L"NotConfigured"), 1u);
    EXPECT_EQ(RawGetDword(Local(L"Temp"), L"Timeout"), 33u);
    EXPECT_FALSE(RawValueExists(Local(), L"Timeout")) << "the live settings are untouched";
    EXPECT_FALSE(RawValueExists(Local(), L"NotConfigured"));

    MyOpts back;
    back.bReadTemp = 1;
    ASSERT_EQ(back.Load(), 1);
    EXPECT_EQ(back.nPolicyState, 0);
    EXPECT_EQ(back.nTimeout, 33);
    EXPECT_EQ(back.bPolicyInEffect, 0);

    staged.nPolicyState = 2;
    staged.bEnable = 0;
    ASSERT_EQ(staged.Store(), 1);
    EXPECT_EQ(RawGetDword(Local(L"Temp"), L"NotConfigured"), 0u);
    ASSERT_EQ(back.Load(), 1);
    EXPECT_EQ(back.nPolicyState, 2);

    // Without "NotConfigured" the state follows "Enable".
    RawDeleteTree(Local(L"Temp"));
    RawSetDword(Local(L"Temp"), L"Enable", 1);
    ASSERT_EQ(back.Load(), 1);
    EXPECT_EQ(back.nPolicyState, 1);
    RawSetDword(Local(L"Temp"), L"Enable", 0);
    ASSERT_EQ(back.Load(), 1);
    EXPECT_EQ(back.nPolicyState, 2);
}

TEST_F(SettingsKeys, GroupPolicyObjectsWithoutSupportReportTheFailure)
{
    MyOpts o;
    StrCopy(o.szGPOPath, L"LDAP://cn={0},cn=policies");
    StrCopy(o.szGPODisplayName, L"old");
    RawSetDword(Local(), L"Timeout", 77);
    o.Load();
    EXPECT_EQ(o.hrGPO, REGDB_E_CLASSNOTREG);
    EXPECT_STREQ(o.szGPODisplayName, L"");
    EXPECT_EQ(o.nTimeout, 10) << "the local settings are not used for a policy object";
}

TEST(Policy, IntegerTypesAndTextRules)
{
    ScopedTestKey key(L"pol");
    const std::wstring& sub = key.sub();
    Policy pol;
    ASSERT_EQ(pol.OpenAltRegKey(key.path().c_str(), 1), 1);
    RawSetDword(sub, L"D", 42);
    RawSetStr(sub, L"S", L"-17");
    RawSetStr(sub, L"M", std::wstring(L"8\0", 2), REG_MULTI_SZ);
    RawSetStr(sub, L"Junk", L"4 2");
    RawSetStr(sub, L"Huge", L"99999999999");
    RawSetBin(sub, L"None", "x", 1, REG_NONE);
    EXPECT_EQ(pol.GetInt(L"D", Policy::ScopeMachine), 42);
    EXPECT_EQ(pol.GetInt(L"S", Policy::ScopeMachine), -17);
    EXPECT_EQ(pol.GetInt(L"M", Policy::ScopeMachine), 8);
    EXPECT_EQ(pol.GetInt(L"Junk", Policy::ScopeMachine), -1);
    EXPECT_EQ(pol.GetInt(L"Huge", Policy::ScopeMachine), -1);
    EXPECT_EQ(pol.GetInt(L"None", Policy::ScopeMachine), -1);
    EXPECT_EQ(pol.GetInt(L"Missing", Policy::ScopeMachine), -1);
    EXPECT_EQ(pol.IsOn(L"D", Policy::ScopeMachine), 1);
    EXPECT_EQ(pol.IsOn(L"Missing", Policy::ScopeMachine), 0);

    EXPECT_EQ(pol.SetInt(5, L"S", Policy::ScopeMachine), 1);
    EXPECT_EQ(RawGetStr(sub, L"S"), L"5");
    EXPECT_EQ(pol.SetInt(6, L"New", Policy::ScopeMachine), 1);
    EXPECT_EQ(RawGetDword(sub, L"New"), 6u);
    EXPECT_EQ(pol.SetBool(7, L"B", Policy::ScopeMachine), 1);
    EXPECT_EQ(RawGetDword(sub, L"B"), 1u);
    wchar_t buf[8];
    RawSetStr(sub, L"Name", L"abcdefgh");
    EXPECT_EQ(pol.GetStr(buf, 8, L"Name", Policy::ScopeMachine), 0) << "too long for the buffer";
    EXPECT_EQ(pol.GetStr(buf, 9 - 1, L"S", Policy::ScopeMachine), 1);
    EXPECT_STREQ(buf, L"5");
    EXPECT_EQ(pol.GetStrSizeChars(L"Name", Policy::ScopeMachine), 10);
}

TEST(Policy, DefaultKeysFollowTheScope)
{
    ScopedTestKey machine(L"m"), user(L"u");
    {
        ScopedPolicyKeys keys(machine.path(), user.path());
        RawSetDword(machine.sub(), L"Enable", 1);
        RawSetDword(user.sub(), L"Enable", 2);
        {
            Policy pol;
            EXPECT_EQ(pol.GetIntComp(L"Enable"), 1);
        }
        Policy pol;
        EXPECT_EQ(pol.GetIntUser(L"Enable"), 2);
        EXPECT_EQ(pol.SetStr(L"Note", L"x", Policy::ScopeUser), 1) << "a read key is reopened for writing";
        EXPECT_EQ(RawGetStr(user.sub(), L"Note"), L"x");
    }
    Policy none;
    EXPECT_EQ(none.OpenAltRegKey(L"HKCU\\Software\\VantrelTests\\DoesNotExist", 0), 0);
    EXPECT_EQ(none.GetInt(L"Enable", Policy::ScopeMachine), -1) << "a chosen key is not swapped for another";
}

} // namespace
