// Exporting the settings to a settings file and importing them back, through the staging key.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/ProductInfo.h"
#include "base/StrUtil.h"
#include "settings/MyOpts.h"
#include "storage/RegKey.h"
#include "storage/RegXmlTree.h"
#include "support/TestSupport.h"

using namespace vxtest;

namespace {

class SettingsFile : public ::testing::Test {
protected:
    ScopedTestKey local{L"file"};
    ScopedTempDir dir;
    void SetUp() override { ProductInfo::PushAppRootKey(local.path().c_str()); }
    void TearDown() override
    {
        EXPECT_FALSE(RawKeyExists(local.sub(L"Temp"))) << "no staging key may be left behind";
        ProductInfo::PopAppRootKey();
    }
    std::wstring File(const wchar_t* name = L"Vantrel.cfg") { return dir.file(name); }
    // The file as text (UTF-16 after its byte-order mark).
    std::wstring Text(const std::wstring& path)
    {
        std::vector<BYTE> bytes;
        EXPECT_TRUE(ReadFileBytes(path, &bytes));
        if (bytes.size() < 2)
            return L"";
        return std::wstring((const wchar_t*)(bytes.data() + 2), (bytes.size() - 2) / 2);
    }
    static void Fill(MyOpts& o)
    {
        o.Reset();
        o.bEnable = 1;
        o.nPolicyState = 1; // Enabled: the file carries the state as "NotConfigured" and "Enable"
        o.nTimeout = 45;
        o.nMsgTimeout = 0;
        o.bLogoffStale = 1;
        o.nLogoffStaleCount = 3;
        o.bMonitorCPU = 1;
        o.nPercentCPU = 70;
        o.bUseSchedule = 1;
        o.SetSchedule(L"Mon 8:00-17:30; Sat 0:00-24:00");
        StrCopy(o.szMsgText, L"\"Caf\u00e9\" & <Bar> closes in %d");
        o.listInclude.RemoveAll();
        o.listInclude.AddTail(L"CORP\\Kiosk Users");
        o.listInclude.AddTail(L"Gr\u00fcn");
        o.bShutdown = 1;
        o.nShutdownTimeout = 90;
        o.nShutdownAction = 3;
        o.SetAll(0x11);
    }
};

TEST_F(SettingsFile, RoundTripOfAWholeRecord)
{
    MyOpts o;
    Fill(o);
    ASSERT_EQ(o.Export(nullptr, File().c_str()), 1);
    EXPECT_EQ(o.bReadTemp, 0);
    EXPECT_FALSE(RawValueExists(local.sub(), L"Timeout")) << "exporting does not store the live settings";

    MyOpts back;
    back.Reset();
    ASSERT_EQ(back.Import(nullptr, File().c_str()), 1);
    EXPECT_EQ(back.bReadTemp, 0);
    EXPECT_EQ(back.IsDifferent(&o), 0);
    EXPECT_EQ(back.nPolicyState, 1);
    EXPECT_STREQ(back.szMsgText, o.szMsgText);
    EXPECT_FALSE(RawValueExists(local.sub(), L"Timeout")) << "importing does not store either";

    std::wstring text = Text(File());
    EXPECT_NE(text.find(L"NotConfigured"), std::wstring::npos) << "the file holds the staging layout";
    EXPECT_NE(text.find(L"ApplyTo"), std::wstring::npos);
}

TEST_F(SettingsFile, UnsetScheduleIsExportedAsStar)
{
    MyOpts o;
    o.Reset();
    ASSERT_EQ(o.Export(nullptr, File().c_str()), 1);
    // Read the value back through the same file layer into a scratch key.
    ScopedTestKey scratch(L"scratch");
    RegKey key(scratch.path().c_str(), 1);
    ASSERT_EQ(ImportRegKey(nullptr, key.GetKey(), File().c_str(), 1), 1);
    EXPECT_EQ(RawGetStr(scratch.sub(), L"Schedule"), L"*");
    EXPECT_EQ(RawGetDword(scratch.sub(), L"NotConfigured"), 1u);
}

TEST_F(SettingsFile, EmptyListsStayEmptyAndKeptListsStayKept)
{
    MyOpts o;
    o.Reset();
    o.listInclude.RemoveAll();
    ASSERT_EQ(o.Export(nullptr, File().c_str()), 1);
    MyOpts back;
    back.Reset();
    ASSERT_EQ(back.listInclude.GetCount(), 3u);
    ASSERT_EQ(back.Import(nullptr, File().c_str()), 1);
    EXPECT_TRUE(back.listInclude.IsEmpty()) << "an empty list, not the default groups";
    EXPECT_EQ(back.listExclude.GetCount(), 1u);
}

TEST_F(SettingsFile, FileWithoutPolicyStateFollowsEnable)
{
    // A settings file written from a plain key: no "NotConfigured" in it.
    ScopedTestKey source(L"plain");
    for (DWORD enable : {1u, 0u}) {
        SCOPED_TRACE(enable);
        RawSetDword(source.sub(), L"Enable", enable);
        RawSetDword(source.sub(), L"Timeout", 12);
        {
            RegKey key(source.path().c_str(), 0);
            ASSERT_EQ(ExportRegKey(nullptr, key.GetKey(), File(L"plain.cfg").c_str(), 1), 1);
        }
        MyOpts o;
        o.Reset();
        ASSERT_EQ(o.Import(nullptr, File(L"plain.cfg").c_str()), 1);
        EXPECT_EQ(o.nPolicyState, enable ? 1 : 2);
        EXPECT_EQ(o.nTimeout, 12);
    }
}

TEST_F(SettingsFile, FailedImportLeavesTheRecordAsItWas)
{
    MyOpts o;
    Fill(o);
    ASSERT_EQ(o.Export(nullptr, File().c_str()), 1);
    std::vector<BYTE> good;
    ASSERT_TRUE(ReadFileBytes(File(), &good));

    const std::wstring malformedText = L"\xFEFF<KEY Name=\"\"></X>";
    std::vector<BYTE> malformed((const BYTE*)malformedText.data(), (const BYTE*)(malformedText.data() + malformedText.size()));
    struct Case {
        const char* what;
        std::wstring path;
        std::vector<BYTE> bytes;
    } cases[] = {
        {"missing file", File(L"missing.cfg"), {}},
        {"malformed XML", File(L"bad.cfg"), malformed},
        {"truncated file", File(L"cut.cfg"), std::vector<BYTE>(good.begin(), good.begin() + good.size() * 2 / 3)},
        {"empty file", File(L"empty.cfg"), {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        if (c.path != File(L"missing.cfg")) {
            ASSERT_TRUE(WriteFileBytes(c.path, c.bytes.data(), c.bytes.size()));
        }
        MyOpts target;
        target.Reset();
        target.nTimeout = 77;
        StrCopy(target.szMsgText, L"unchanged");
        MyOpts before;
        before.CopyFrom(&target);
        EXPECT_EQ(target.Import(nullptr, c.path.c_str()), 0);
        EXPECT_EQ(target.IsDifferent(&before), 0);
        EXPECT_EQ(target.bReadTemp, 0);
        EXPECT_FALSE(RawKeyExists(local.sub(L"Temp")));
    }
}

TEST_F(SettingsFile, ExportReplacesAStaleStagingKeyAndAnUnwritableFileFails)
{
    // A stale "Temp" from an interrupted operation never reaches the file.
    RawSetStr(local.sub(L"Temp"), L"Leftover", L"x");
    MyOpts o;
    o.Reset();
    ASSERT_EQ(o.Export(nullptr, File().c_str()), 1);
    std::wstring text = Text(File());
    EXPECT_EQ(text.find(L"Leftover"), std::wstring::npos);
    EXPECT_NE(text.find(L"Name=\"Timeout\""), std::wstring::npos);

    EXPECT_EQ(o.Export(nullptr, dir.file(L"no such folder\\Vantrel.cfg").c_str()), 0);
}

} // namespace
