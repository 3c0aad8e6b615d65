// Where the settings come from and how they are written: policy precedence, the local key, the
// "Temp" staging key, damaged values, and the settings file exported and imported through it.
#include <gtest/gtest.h>

#include <climits>

#include "base/StrUtil.h"
#include "settings/MyOpts.h"
#include "storage/RegKey.h"
#include "storage/RegXmlTree.h"
#include "support/Guards.h"
#include "support/TestSupport.h"

using namespace vxtest;

namespace {

typedef std::vector<std::wstring> Names;
typedef std::vector<int> Ints;

class SettingsKeys : public ::testing::Test {
protected:
    ScopedTestKey local{L"local"}, policy{L"policy"};
    ScopedAppRootKey root{local.path()};
    ScopedPolicyKeys policyKeys{policy.path(), policy.path()};
    ScopedTempDir dir;
    MyOpts o;
    std::wstring L(const wchar_t* rel = nullptr) const { return rel ? local.sub(rel) : local.sub(); }
    DWORD Type(const std::wstring& sub, const wchar_t* name)
    {
        DWORD type = 0;
        return RawGet(sub, name, &type, nullptr) ? type : 0;
    }
    std::wstring File(const wchar_t* name = L"Vantrel.cfg") { return dir.file(name); }
};

TEST_F(SettingsKeys, PolicyHoldingEnableWinsAsAWhole)
{
    EXPECT_EQ(o.Load(), 0) << "no key at all";
    EXPECT_EQ(o.listInclude.GetCount(), 3u) << "the default groups stay";
    RawSetDword(L(), L"Timeout", 20);
    RawSetStr(L(L"ApplyTo"), L"1", L"Kiosk");
    RawSetDword(policy.sub(), L"Timeout", 30);
    ASSERT_EQ(o.Load(), 1);
    EXPECT_EQ(Ints({o.nTimeout, o.bPolicyInEffect}), Ints({20, 0})) << "a policy without \"Enable\" is ignored";
    RawSetDword(policy.sub(), L"Enable", 0);
    ASSERT_EQ(o.Load(), 1);
    EXPECT_EQ(Ints({o.nTimeout, o.bPolicyInEffect, o.nMsgTimeout}), Ints({30, 1, 5}));
    EXPECT_TRUE(o.listInclude.IsEmpty()) << "no list in the policy: an empty list";
    RawSetStr(policy.sub(), L"Enable", L"yes"); // not a number: no policy
    ASSERT_EQ(o.Load(), 1);
    EXPECT_EQ(Ints({o.nTimeout, o.bPolicyInEffect}), Ints({20, 0}));
    EXPECT_EQ(Items(o.listInclude), Names{L"Kiosk"});
}

TEST_F(SettingsKeys, ValuesAreReadAsStoredUnlessDamaged)
{
    RawSetDword(L(), L"PercentCPU", 250); // kept as stored: the engine decides what it means
    for (DWORD action : {0u, 1u, 2u, 3u, 4u, 0xFFFFFFFEu}) {
        RawSetDword(L(), L"ShutdownAction", action);
        ASSERT_EQ(o.Load(), 1);
        EXPECT_EQ(o.nShutdownAction, action >= 1 && action <= 3 ? (int)action : 1) << action;
    }
    EXPECT_TRUE(o.listInclude.IsEmpty()) << "a settings key without a list subkey: an empty list";
    RawSetStr(L(), L"MessageText", std::wstring(512, L'm'));          // one too long for the field
    RawSetStr(L(), L"MessageTextIfLocked", std::wstring(511, L'k'));  // fits exactly
    BYTE eight[8] = {5};
    RawSetBin(L(), L"Timeout", eight, sizeof(eight));                // binary, not four bytes
    RawSetStr(L(), L"MessageTimeout", L"12abc");                      // no number
    RawSetStr(L(), L"LogoffStaleCount", std::wstring(64, L'7'));      // text over 128 bytes
    RawSetBin(L(), L"MonitorKB", nullptr, 0, REG_NONE);               // no type
    RawSetDword(L(), L"ShutdownTimeout", 0xFFFFFFFF);                 // -1 reads like missing
    RawSetStr(L(), L"FullScreen", L" 2147483648");                    // beyond an int
    const wchar_t unterminated[] = L"Mon 8:00-9:00X"; // a non-zero character after the data
    RawSetBin(L(), L"Schedule", unterminated, 13 * sizeof(wchar_t), REG_SZ);
    RawSetStr(L(L"ApplyTo"), L"1", L"First");
    RawSetStr(L(L"ApplyTo"), L"2", std::wstring(256, L'x'));          // 514 bytes: ends the list
    RawSetStr(L(L"ApplyTo"), L"3", L"Never reached");
    RawSetStr(L(L"Exclude"), L"1", L"A");
    RawSetStr(L(L"Exclude"), L"3", L"After a gap");
    ASSERT_EQ(o.Load(), 1);
    EXPECT_EQ(Ints({o.nTimeout, o.nMsgTimeout, o.nLogoffStaleCount, o.bMonitorKB, o.nShutdownTimeout, o.bFullScreen, o.nPercentCPU}),
              Ints({10, 5, 5, 1, 10, 0, 250}));
    EXPECT_EQ(o.szMsgText + std::wstring(L"|") + o.szMsgTextLocked, L"|" + std::wstring(511, L'k'));
    EXPECT_STREQ(o.GetSchedule(), L"Mon 8:00-9:00");
    EXPECT_EQ(Items(o.listInclude), Names{L"First"});
    EXPECT_EQ(Items(o.listExclude), Names{L"A"});
    RawSetStr(L(L"ApplyTo"), L"2", std::wstring(255, L'y'));          // 512 bytes: still an entry
    RawSetStr(L(), L"LogoffStaleCount", L"-2147483648 ");
    RawSetStr(L(), L"Timeout", std::wstring(61, L' ') + L"+3");        // 128 bytes of text
    ASSERT_EQ(o.Load(), 1);
    EXPECT_EQ(Ints({(int)o.listInclude.GetCount(), o.nLogoffStaleCount, o.nTimeout}), Ints({3, INT_MIN, 3}));
    o.Reset();
    o.listInclude.RemoveAll();
    o.listInclude.AddTail(L"Mine");
    o.bKeepLists = 1;
    ASSERT_EQ(o.ReadPolicy(), 1);
    EXPECT_EQ(Items(o.listInclude), Names{L"Mine"}) << "kept lists are not read";
}

TEST_F(SettingsKeys, StoreWritesOnlyChangesAndNeverThePolicy)
{
    RawSetStr(L(), L"Timeout", L"15");
    DWORD four = 8;
    RawSetBin(L(), L"PercentCPU", &four, 4);
    ASSERT_EQ(o.Load(), 1);
    EXPECT_EQ(Ints({o.nTimeout, o.nPercentCPU}), Ints({15, 8}));
    o.nTimeout = -4;
    o.listInclude.AddTail(L"Kiosk"), o.listInclude.AddTail(L"Lab");
    ASSERT_EQ(o.Store(), 1);
    EXPECT_EQ(RawGetStr(L(), L"Timeout"), L"-4") << "a number stored as text stays text";
    EXPECT_EQ(Type(L(), L"PercentCPU"), (DWORD)REG_DWORD);
    EXPECT_EQ(RawGetStr(L(), L"Schedule") + RawGetStr(L(L"ApplyTo"), L"2"), L"*Lab");
    EXPECT_FALSE(RawValueExists(L(), L"NotConfigured")) << "only the staging key holds it";
    EXPECT_FALSE(RawKeyExists(policy.sub()));
    // Equal text under another type is not rewritten. List entries always end as exactly the
    // REG_SZ entries "1", "2", ...
    RawSetStr(L(), L"MessageTimeout", L"5", REG_EXPAND_SZ);
    RawSetStr(L(), L"Schedule", L"*", REG_EXPAND_SZ);
    RawSetStr(L(L"ApplyTo"), L"1", L"Kiosk", REG_EXPAND_SZ);
    RawSetStr(L(L"ApplyTo"), L"Stray", L"x");
    o.listInclude.RemoveAt(o.listInclude.GetTailPosition());
    ASSERT_EQ(o.Store(), 1);
    EXPECT_EQ(std::vector<DWORD>({Type(L(), L"MessageTimeout"), Type(L(), L"Schedule")}), std::vector<DWORD>(2, REG_EXPAND_SZ));
    EXPECT_EQ(Type(L(L"ApplyTo"), L"1"), (DWORD)REG_SZ);
    EXPECT_EQ(RawCountValues(L(L"ApplyTo")), 1u);
    MyOpts back;
    ASSERT_EQ(back.Load(), 1);
    EXPECT_EQ(back.IsDifferent(&o), 0);
}

TEST_F(SettingsKeys, StagingKeyCarriesThePolicyState)
{
    RawSetDword(policy.sub(), L"Enable", 1); // never consulted on the staging road
    MyOpts back;
    o.bReadTemp = back.bReadTemp = 1;
    o.nTimeout = 33;
    for (int state : {0, 2, 1}) {
        o.nPolicyState = state, o.bEnable = state == 1;
        ASSERT_EQ(o.Store(), 1);
        EXPECT_EQ(RawGetDword(L(L"Temp"), L"NotConfigured"), state == 0 ? 1u : 0u);
        ASSERT_EQ(back.Load(), 1);
        EXPECT_EQ(Ints({back.nPolicyState, back.nTimeout}), Ints({state, 33}));
    }
    EXPECT_FALSE(RawValueExists(L(), L"Timeout")) << "the live settings are untouched";
    RawDeleteTree(L(L"Temp"));
    for (DWORD enable : {1u, 0u}) {
        RawSetDword(L(L"Temp"), L"Enable", enable);
        ASSERT_EQ(back.Load(), 1);
        EXPECT_EQ(back.nPolicyState, enable ? 1 : 2) << "without NotConfigured, Enable decides";
    }
}

TEST_F(SettingsKeys, SettingsFileRoundTrip)
{
    o.Reset();
    o.bEnable = 1, o.nPolicyState = 1, o.nTimeout = 45, o.nMsgTimeout = 0, o.nShutdownAction = 3;
    o.SetSchedule(L"Mon 8:00-17:30; Sat 0:00-24:00");
    StrCopy(o.szMsgText, L"\"Caf\u00e9\" & <Bar> closes in %d");
    o.listInclude.RemoveAll();
    o.SetAll(0x11);
    RawSetStr(L(L"Temp"), L"Leftover", L"x"); // stale staging values never reach the file
    ASSERT_EQ(o.Export(nullptr, File().c_str()), 1);
    MyOpts back;
    back.Reset();
    ASSERT_EQ(back.Import(nullptr, File().c_str()), 1);
    EXPECT_EQ(back.IsDifferent(&o), 0);
    EXPECT_TRUE(back.listInclude.IsEmpty()) << "an empty list, not the default groups";
    EXPECT_EQ(back.bReadTemp + o.bReadTemp, 0);
    EXPECT_FALSE(RawValueExists(L(), L"Timeout")) << "neither stores the live settings";
    EXPECT_FALSE(RawKeyExists(L(L"Temp")));
    ScopedTestKey scratch(L"scratch");
    ASSERT_EQ(ImportRegKey(nullptr, RegKey(scratch.path().c_str(), 1).GetKey(), File().c_str(), 1), 1);
    EXPECT_EQ(RawGetDword(scratch.sub(), L"Timeout"), 45u);
    EXPECT_FALSE(RawValueExists(scratch.sub(), L"Leftover"));
    EXPECT_EQ(o.Export(nullptr, dir.file(L"no such folder\\x.cfg").c_str()), 0);
}

// A file that cannot be read, or is no settings file, changes nothing; a document that is no
// settings file would otherwise import as defaults with empty user lists.
TEST_F(SettingsKeys, BadFilesChangeNothing)
{
    o.Reset();
    ASSERT_EQ(o.Export(nullptr, File().c_str()), 1);
    std::vector<BYTE> good;
    ASSERT_TRUE(ReadFileBytes(File(), &good));
    good.resize(good.size() * 2 / 3);
    const wchar_t* texts[] = {
        nullptr, L"", L"<KEY Name=\"\"></X>", L"<html><head><title>Timeout</title></head><body><p>Enable</p></body></html>",
        L"<DATA Name=\"Enable\" Type=\"REG_DWORD\" Value=\"1\"/>",
        L"<KEY Name=\"\"><DATA Name=\"Colour\" Value=\"1\"/><KEY Name=\"Timeout\"/></KEY>",
        L"<KEY Name=\"\"><KEY Name=\"Sub\"><DATA Name=\"Enable\" Value=\"1\"/></KEY></KEY>",
        L"<KEY Name=\"a\"><DATA Name=\"Enable\" Value=\"1\"/></KEY><KEY Name=\"b\"/>",
    };
    for (size_t i = 0; i < std::size(texts); ++i) {
        const wchar_t* text = texts[i];
        std::wstring xml = std::wstring(L"\xFEFF<?xml version=\"1.0\"?>\r\n") + (text ? text : L"");
        ASSERT_TRUE(text ? WriteFileBytes(File(L"bad.cfg"), xml.data(), xml.size() * 2)
                         : WriteFileBytes(File(L"bad.cfg"), good.data(), good.size()));
        MyOpts before;
        o.nTimeout = 77;
        before.CopyFrom(&o);
        SetLastError(0xdeadbeef);
        EXPECT_EQ(o.Import(nullptr, File(L"bad.cfg").c_str()), 0);
        DWORD error = GetLastError();
        EXPECT_EQ(o.IsDifferent(&before) + o.bReadTemp, 0);
        EXPECT_FALSE(RawKeyExists(L(L"Temp")));
        if (i >= 3) {
            EXPECT_EQ(error, (DWORD)ERROR_INVALID_DATA) << i;
        }
    }
    EXPECT_EQ(o.Import(nullptr, File(L"missing.cfg").c_str()), 0);
    wchar_t message[256];
    MyOpts::FormatNotSettingsFile(L"C:\\page.htm", message, 256);
    EXPECT_STREQ(message, L"C:\\page.htm\n\nThis file is not a Vantrel settings file. Nothing was imported.");
    // Files written by earlier versions and edited by hand still import, with their values.
    struct { const wchar_t* file; Ints timeoutAndUsers; } files[] = {
        {L"settings-default.xml", {10, 3}}, {L"settings-custom.xml", {15, 4}}, {L"edited-settings-utf8.xml", {120, 1}}};
    for (auto& c : files) {
        ASSERT_EQ(o.Import(nullptr, (std::wstring(VX_SETTINGS_FILES) + c.file).c_str()), 1);
        EXPECT_EQ(Ints({o.nTimeout, (int)o.listInclude.GetCount()}), c.timeoutAndUsers) << &c - files;
    }
}

// A computer without a settings key gets none from an export or import: loading an empty key
// would read empty user lists instead of the default groups and watch the administrators.
TEST_F(SettingsKeys, ExportAndImportLeaveTheSettingsKeyAsTheyFoundIt)
{
    o.Reset();
    ASSERT_TRUE(WriteFileBytes(File(L"bad.cfg"), "<x", 2));
    ScopedAppRootKey absent(local.path(L"Korvane\\Vantrel"));
    ASSERT_EQ(o.Export(nullptr, File().c_str()), 1);
    EXPECT_EQ(o.Import(nullptr, File().c_str()) + o.Import(nullptr, File(L"bad.cfg").c_str()), 1);
    EXPECT_FALSE(RawKeyExists(L())) << "absent stays absent, with every level above it";
    RawSetDword(L(L"Korvane"), L"Other", 1); // a level above exists: it stays, with its value
    ASSERT_EQ(o.Export(nullptr, File().c_str()), 1);
    EXPECT_TRUE(RawValueExists(L(L"Korvane"), L"Other"));
    EXPECT_FALSE(RawKeyExists(L(L"Korvane\\Vantrel")));
    RawCreateKey(L(L"Korvane\\Vantrel")); // the settings key itself exists, empty: it stays
    ASSERT_EQ(o.Import(nullptr, File().c_str()), 1);
    EXPECT_TRUE(RawKeyExists(L(L"Korvane\\Vantrel")));
}

} // namespace
