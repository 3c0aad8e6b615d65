// The helpers beside RegKey: rectangles and fonts stored as values, the product's "Home"
// folder, per-user restrictions, the move from the former company key, and the event-log
// source registration. The fixed machine paths are exercised with a unique product name.
#include <gtest/gtest.h>

#include <cstring>

#include "RegTestUtil.h"

using regtest::Failed;
using regtest::KeyExists;
using regtest::MachineGetStr;
using regtest::Try;
using vxtest::ScopedTestKey;

namespace {

// A product name nobody else uses. Its keys in both hives are removed before and after, and so
// are the company keys once empty (their deletion fails while another product is below them).
struct ScopedProduct {
    static inline int counter = 0;
    const std::wstring name = L"VantrelTest_" + std::to_wstring(GetCurrentProcessId()) + L"_" + std::to_wstring(++counter);
    ScopedProduct() { Clean(); }
    ~ScopedProduct()
    {
        Clean();
        for (HKEY root : {HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER})
            RegDeleteKeyW(root, L"Software\\Korvane"), RegDeleteKeyW(root, L"Software\\Drelmark");
    }
    std::wstring Korvane(const std::wstring& rel = L"") const { return L"Software\\Korvane\\" + name + (rel.empty() ? L"" : L"\\" + rel); }
    std::wstring Drelmark(const std::wstring& rel = L"") const { return L"Software\\Drelmark\\" + name + (rel.empty() ? L"" : L"\\" + rel); }
    void Clean() const
    {
        for (const std::wstring& sub : {Korvane(), Drelmark(), Drelmark() + L"_sibling"})
            regtest::MachineDeleteTree(sub), vxtest::RawDeleteTree(sub);
    }
};

// Catches swapped or misnamed rectangle fields, absent fields overwritten, fonts accepted at
// the wrong size, and a dropped font left dangling.
TEST(RegHelpers, RectanglesAndFonts)
{
    ScopedTestKey t(L"rectfont");
    RegKey k(t.path().c_str(), 1), ro(t.path().c_str(), 0);
    RECT rc = {1, -2, 300, 400}, got = {7, 7, 7, 7};
    EXPECT_TRUE(RegPutRect(k, &rc, L"Wnd"));
    for (auto f : {std::make_pair(L"WndL", 1), {L"WndT", -2}, {L"WndR", 300}, {L"WndB", 400}})
        EXPECT_EQ(vxtest::RawGetDword(t.sub(), f.first), (DWORD)f.second) << testing::PrintToString(std::wstring(f.first));
    EXPECT_TRUE(RegPutRect(ro, &rc, L"Wnd")) << "an unchanged rectangle is not written";
    EXPECT_EQ(Try([&] { return RegPutRect(ro, &got, L"Wnd"); }), Failed(ERROR_ACCESS_DENIED));
    ASSERT_TRUE(k.DelValue(L"WndT"));
    EXPECT_EQ(RegGetRect(k, &got, L"Wnd"), 0) << "not every field was stored";
    EXPECT_EQ(got.left, 1);
    EXPECT_EQ(got.top, 7) << "an absent field keeps its value";
    EXPECT_EQ(got.right, 300);
    EXPECT_EQ(got.bottom, 400);

    LOGFONTW font{}, *p = nullptr;
    wcscpy(font.lfFaceName, L"Tahoma");
    EXPECT_TRUE(RegPutLogFont(k, L"Font", &font));
    EXPECT_EQ(k.GetBinSize(L"Font"), 92u) << "a LOGFONTW as 92 binary bytes";
    EXPECT_EQ(k.GetValueType(L"Font"), (DWORD)REG_BINARY);
    ASSERT_EQ(RegGetLogFont(k, L"Font", p), 1);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(memcmp(p, &font, 92), 0);
    ASSERT_TRUE(vxtest::RawSetBin(t.sub(), L"Font", &font, 91));
    EXPECT_EQ(RegGetLogFont(k, L"Font", p), 0) << "a value of another size is not a font";
    EXPECT_EQ(p, nullptr) << "the font held before is dropped";
}

// Catches a wrong key path or value name for "Home" (the log line shows both), and a read that
// creates the key.
TEST(RegHelpers, HomeFolderInTheMachineKey)
{
    ScopedProduct prod;
    const wchar_t* p = prod.name.c_str();
    wchar_t buf[MAX_PATH] = L"junk", home[] = L"C:\\Program Files\\Korvane\\Vantrel", other[] = L"D:\\Elsewhere";
    EXPECT_EQ(Try([&] { return GetHomeFolder(p, buf); }), Failed(ERROR_FILE_NOT_FOUND));
    EXPECT_STREQ(buf, L"") << "the buffer is emptied";
    EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, prod.Korvane())) << "reading creates nothing";
    {
        regtest::LogGuard guard;
        regtest::Guarded<256> log;
        RegKey::StartLog(log.buf);
        EXPECT_TRUE(ProcessHomeFolder(RegKey::OpWrite, p, home, MAX_PATH));
        RegKey::EndLog();
        EXPECT_EQ(std::wstring(log.buf), L"[HKLM\\" + prod.Korvane(L"Setup") + L"]\r\nHome=" + home + L"\r\n");
    }
    EXPECT_EQ(ProcessHomeFolder(RegKey::OpWrite, p, home, MAX_PATH), 1);
    EXPECT_EQ(GetHomeFolder(p, buf), 1);
    EXPECT_STREQ(buf, home);
    DWORD type = 0;
    EXPECT_EQ(MachineGetStr(prod.Korvane(L"Setup"), L"Home", &type), home);
    EXPECT_EQ(type, (DWORD)REG_SZ);
    EXPECT_EQ(ProcessHomeFolder(RegKey::OpCheck, p, home, MAX_PATH), 1);
    EXPECT_EQ(ProcessHomeFolder(RegKey::OpCheck, p, other, MAX_PATH), 0);
    EXPECT_EQ(ProcessHomeFolder(RegKey::OpDelete, p, other, MAX_PATH), 1);
    EXPECT_EQ(MachineGetStr(prod.Korvane(L"Setup"), L"Home"), L"<absent>");
}

// Catches a read that does not fall back to, or that moves, the former company key; a write
// that does not move it first (deep content included); a move over an existing new key; and
// the company key removed while another product lives there, or kept once empty.
TEST(RegHelpers, HomeFolderAndSettingsUnderTheFormerCompanyName)
{
    ScopedProduct prod;
    const wchar_t* p = prod.name.c_str();
    const bool hadCompanyKey = KeyExists(HKEY_LOCAL_MACHINE, L"Software\\Drelmark");
    ASSERT_EQ(RegSetKeyValueW(HKEY_LOCAL_MACHINE, prod.Drelmark(L"Setup").c_str(), L"Home", REG_SZ, L"D:\\Legacy", 20), ERROR_SUCCESS);
    wchar_t buf[MAX_PATH], home[] = L"E:\\New";
    EXPECT_TRUE(GetHomeFolder(p, buf));
    EXPECT_STREQ(buf, L"D:\\Legacy");
    EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, prod.Korvane()));
    EXPECT_TRUE(ProcessHomeFolder(RegKey::OpWrite, p, home, MAX_PATH));
    EXPECT_EQ(MachineGetStr(prod.Korvane(L"Setup"), L"Home"), L"E:\\New");
    EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, prod.Drelmark()));
    if (!hadCompanyKey) {
        EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, L"Software\\Drelmark")) << "the emptied company key goes";
    }

    EXPECT_EQ(MoveLegacyKey(1, p), 1);
    EXPECT_FALSE(vxtest::RawKeyExists(prod.Korvane())) << "nothing to move: nothing created";
    ASSERT_TRUE(vxtest::RawSetStr(prod.Drelmark(L"Setup\\Restrictions"), L"Note", L"deep"));
    ASSERT_TRUE(vxtest::RawSetDword(prod.Drelmark() + L"_sibling", L"V", 1));
    EXPECT_TRUE(MoveLegacyKey(1, p));
    EXPECT_EQ(vxtest::RawGetStr(prod.Korvane(L"Setup\\Restrictions"), L"Note"), L"deep");
    EXPECT_FALSE(vxtest::RawKeyExists(prod.Drelmark()));
    EXPECT_TRUE(vxtest::RawKeyExists(prod.Drelmark() + L"_sibling")) << "another product's key stays";
    ASSERT_TRUE(vxtest::RawSetStr(prod.Drelmark(), L"Note", L"old"));
    EXPECT_TRUE(MoveLegacyKey(1, p));
    EXPECT_TRUE(vxtest::RawKeyExists(prod.Drelmark())) << "the new key exists: nothing moves";
}

// Catches a wrong restriction key path and missing keys or values not reading as 0.
TEST(RegHelpers, RestrictedReadsTheUserRestrictionKey)
{
    ScopedProduct prod;
    EXPECT_EQ(Restricted(prod.name.c_str(), L"NoExit"), 0) << "missing key";
    ASSERT_TRUE(vxtest::RawSetDword(prod.Korvane(L"Setup\\Restrictions"), L"NoExit", 2));
    EXPECT_EQ(Restricted(prod.name.c_str(), L"NoExit"), 2);
    EXPECT_EQ(Restricted(prod.name.c_str(), L"Absent"), 0);
    EXPECT_EQ(Restricted(prod.name.c_str(), nullptr), 0);
}

// Catches wrong value names or types for the event log, and removal that deletes a source key
// still holding other values, or keeps an empty one.
TEST(RegHelpers, EventSourceRegistration)
{
    const std::wstring source = L"VantrelTest_" + std::to_wstring(GetCurrentProcessId());
    const std::wstring sub = L"SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\" + source;
    DWORD type = 0, types = 0, cb = 4;
    regtest::MachineDeleteTree(sub);
    EXPECT_TRUE(RegisterEventSourceFile(source.c_str(), L"C:\\Vantrel\\VXMSG.DLL"));
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, sub.c_str(), L"TypesSupported", RRF_RT_REG_DWORD, nullptr, &types, &cb), ERROR_SUCCESS);
    EXPECT_EQ(types, 7u) << "a DWORD 7: errors, warnings and information";
    EXPECT_EQ(MachineGetStr(sub, L"EventMessageFile", &type), L"C:\\Vantrel\\VXMSG.DLL");
    EXPECT_EQ(type, (DWORD)REG_SZ);
    ASSERT_EQ(RegSetKeyValueW(HKEY_LOCAL_MACHINE, sub.c_str(), L"CategoryMessageFile", REG_SZ, L"D:\\CAT.DLL", 22), ERROR_SUCCESS);
    EXPECT_TRUE(RegisterEventSourceFile(source.c_str(), nullptr));
    EXPECT_EQ(MachineGetStr(sub, L"EventMessageFile") + MachineGetStr(sub, L"TypesSupported"), L"<absent><absent>");
    EXPECT_EQ(MachineGetStr(sub, L"CategoryMessageFile"), L"D:\\CAT.DLL");
    ASSERT_EQ(RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, sub.c_str(), L"CategoryMessageFile"), ERROR_SUCCESS);
    EXPECT_TRUE(RegisterEventSourceFile(source.c_str(), nullptr));
    EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, sub)) << "an emptied source key goes";
    regtest::MachineDeleteTree(sub);
}

} // namespace
