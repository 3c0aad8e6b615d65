// Exporting the settings to a settings file and importing them back, through the staging key.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/ProductInfo.h"
#include "base/StrUtil.h"
#include "settings/MyOpts.h"
#include "storage/RegKey.h"
#include "storage/RegXmlTree.h"
#include "support/Guards.h"
#include "support/TestSupport.h"

using namespace vxtest;

namespace {

class SettingsFile : public ::testing::Test {
protected:
    ScopedTestKey local{L"file"};
    ScopedAppRootKey root{local.path()};
    ScopedTempDir dir;
    void TearDown() override { EXPECT_FALSE(RawKeyExists(local.sub(L"Temp"))) << "no staging key may be left behind"; }
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

// Well-formed XML that is no settings file is refused before anything is written: imported, a
// web page or a list of values without their key would reset the record to defaults with empty
// user lists, and the administrators would no longer be excluded once the result was applied.
TEST_F(SettingsFile, DocumentsThatAreNoSettingsFileAreRefused)
{
    struct { const char* what; const wchar_t* text; } cases[] = {
        {"web page", L"<html><head><title>Timeout</title></head><body><p>Enable</p></body></html>"},
        {"values without their key", L"<DATA Name=\"Enable\" Type=\"REG_DWORD\" Value=\"1\"/>"
                                     L"<DATA Name=\"Timeout\" Type=\"REG_DWORD\" Value=\"5\"/>"},
        {"a key without settings", L"<KEY Name=\"\"><DATA Name=\"Colour\" Value=\"1\"/><KEY Name=\"ApplyTo\"/></KEY>"},
        {"settings only in a subkey", L"<KEY Name=\"\"><KEY Name=\"Sub\"><DATA Name=\"Enable\" Value=\"1\"/></KEY></KEY>"},
        {"a key named like a setting", L"<KEY Name=\"\"><KEY Name=\"Timeout\"/></KEY>"},
        {"two keys", L"<KEY Name=\"a\"><DATA Name=\"Enable\" Value=\"1\"/></KEY><KEY Name=\"b\"><DATA Name=\"Enable\" Value=\"1\"/></KEY>"},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(c.what);
        std::wstring text = std::wstring(L"\xFEFF<?xml version=\"1.0\"?>\r\n") + c.text;
        ASSERT_TRUE(WriteFileBytes(File(L"other.xml"), text.data(), text.size() * sizeof(wchar_t)));
        MyOpts target;
        target.Reset();
        target.nTimeout = 77;
        MyOpts before;
        before.CopyFrom(&target);
        SetLastError(0xdeadbeef);
        EXPECT_EQ(target.Import(nullptr, File(L"other.xml").c_str()), 0);
        EXPECT_EQ(GetLastError(), (DWORD)ERROR_INVALID_DATA);
        EXPECT_EQ(target.IsDifferent(&before), 0);
        EXPECT_FALSE(RawKeyExists(local.sub(L"Temp")));
    }
    wchar_t message[256];
    MyOpts::FormatNotSettingsFile(L"C:\\Users\\Public\\page.htm", message, 256);
    EXPECT_STREQ(message, L"C:\\Users\\Public\\page.htm\n\nThis file is not a Vantrel settings file. Nothing was imported.");
}

// Settings files written by earlier versions and edited by hand still import, with their values.
TEST_F(SettingsFile, SettingsFilesOfEveryKindStillImport)
{
    struct { const wchar_t* file; int timeout; size_t applyTo; } cases[] = {
        {L"settings-default.xml", 10, 3}, {L"settings-custom.xml", 15, 4}, {L"edited-settings-utf8.xml", 120, 1},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "file " << std::string(c.file, c.file + wcslen(c.file)));
        MyOpts o;
        o.Reset();
        ASSERT_EQ(o.Import(nullptr, (std::wstring(VX_SETTINGS_FILES) + c.file).c_str()), 1);
        EXPECT_EQ(o.nTimeout, c.timeout);
        EXPECT_EQ(o.listInclude.GetCount(), c.applyTo);
    }
}

// A computer that has no settings key yet gets none from an export or an import, whether it
// worked or failed: loading would otherwise find an empty key and read empty user lists instead
// of the default groups, and start monitoring the administrators. A key that exists keeps what
// it holds.
TEST_F(SettingsFile, ExportAndImportLeaveTheSettingsKeyAsTheyFoundIt)
{
    MyOpts o;
    Fill(o);
    {
        ScopedAppRootKey absent(local.path(L"Korvane\\Vantrel"));
        ASSERT_EQ(o.Export(nullptr, File().c_str()), 1);
        EXPECT_FALSE(RawKeyExists(local.sub())) << "absent stays absent, with every level above it";
        ASSERT_TRUE(WriteFileBytes(File(L"bad.cfg"), "<x", 2));
        for (const std::wstring& file : {File(), File(L"bad.cfg"), File(L"missing.cfg")})
            o.Import(nullptr, file.c_str());
        EXPECT_FALSE(RawKeyExists(local.sub()));
        EXPECT_EQ(o.Export(nullptr, dir.file(L"no such folder\\x.cfg").c_str()), 0);
        EXPECT_FALSE(RawKeyExists(local.sub()));
    }
    {
        RawSetDword(local.sub(L"Korvane"), L"Other", 1); // a level above exists: it stays, with its value
        ScopedAppRootKey below(local.path(L"Korvane\\Vantrel"));
        ASSERT_EQ(o.Export(nullptr, File().c_str()), 1);
        EXPECT_TRUE(RawValueExists(local.sub(L"Korvane"), L"Other"));
        EXPECT_FALSE(RawKeyExists(local.sub(L"Korvane\\Vantrel")));
    }

    // The settings key itself exists, empty: it stays.
    RawCreateKey(local.sub());
    ASSERT_EQ(o.Import(nullptr, File().c_str()), 1);
    EXPECT_TRUE(RawKeyExists(local.sub()));
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
