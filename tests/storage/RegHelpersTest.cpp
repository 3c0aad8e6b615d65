// The helpers beside RegKey: rectangles and fonts stored as values, the product's "Home"
// folder, per-user restrictions, the move from the former company key, and the event-log
// source registration. The fixed machine paths are exercised with a unique product name.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "storage/RegKey.h"
#include "support/TestSupport.h"
#include "RegTestUtil.h"

using vxtest::ScopedTestKey;

namespace {

static_assert(sizeof(LOGFONTW) == 92, "fonts are stored as 92-byte values");

// A product name nobody else uses, with its keys under Software\Korvane and Software\Drelmark
// of both hives removed before and after. The company keys themselves are only removed when
// this test created them and left them empty.
class ScopedProduct {
public:
    ScopedProduct()
    {
        static LONG counter = 0;
        name_ = L"VantrelTest_" + std::to_wstring(GetCurrentProcessId()) + L"_" + std::to_wstring(InterlockedIncrement(&counter));
        for (int i = 0; i < 4; ++i)
            existed_[i] = ParentExists(i);
        Clean();
    }
    ~ScopedProduct()
    {
        Clean();
        for (int i = 0; i < 4; ++i) {
            DWORD subkeys = 1, values = 1;
            HKEY k;
            if (existed_[i] || RegOpenKeyExW(Root(i), Parent(i), 0, KEY_READ, &k) != ERROR_SUCCESS)
                continue;
            RegQueryInfoKeyW(k, nullptr, nullptr, nullptr, &subkeys, nullptr, nullptr, &values, nullptr, nullptr, nullptr, nullptr);
            RegCloseKey(k);
            if (subkeys == 0 && values == 0)
                RegDeleteKeyW(Root(i), Parent(i));
        }
    }
    ScopedProduct(const ScopedProduct&) = delete;
    ScopedProduct& operator=(const ScopedProduct&) = delete;

    const wchar_t* name() const { return name_.c_str(); }
    std::wstring Korvane(const std::wstring& rel = L"") const { return Under(L"Software\\Korvane\\", rel); }
    std::wstring Drelmark(const std::wstring& rel = L"") const { return Under(L"Software\\Drelmark\\", rel); }
    bool DrelmarkExistedBefore(bool bUser) const { return existed_[bUser ? 3 : 1]; }

private:
    static HKEY Root(int i) { return i < 2 ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER; }
    static const wchar_t* Parent(int i) { return i % 2 ? L"Software\\Drelmark" : L"Software\\Korvane"; }
    static bool ParentExists(int i)
    {
        HKEY k;
        if (RegOpenKeyExW(Root(i), Parent(i), 0, KEY_READ, &k) != ERROR_SUCCESS)
            return false;
        RegCloseKey(k);
        return true;
    }
    std::wstring Under(const wchar_t* company, const std::wstring& rel) const
    {
        return company + name_ + (rel.empty() ? L"" : L"\\" + rel);
    }
    void Clean()
    {
        for (const std::wstring& sub : {Korvane(), Drelmark(), Korvane() + L"_sibling", Drelmark() + L"_sibling"}) {
            regtest::MachineDeleteTree(sub);
            vxtest::RawDeleteTree(sub);
        }
    }
    std::wstring name_;
    bool existed_[4];
};

TEST(RegHelpers, RectanglesAndFonts)
{
    ScopedTestKey t(L"rectfont");
    RegKey k(t.path().c_str(), 1);
    ASSERT_TRUE(k.IsReady());

    RECT rc = {1, -2, 300, 400};
    EXPECT_TRUE(RegPutRect(k, &rc, L"Wnd"));
    EXPECT_EQ(vxtest::RawGetDword(t.sub(), L"WndL"), 1u);
    EXPECT_EQ(vxtest::RawGetDword(t.sub(), L"WndT"), 0xFFFFFFFEu);
    EXPECT_EQ(vxtest::RawGetDword(t.sub(), L"WndR"), 300u);
    EXPECT_EQ(vxtest::RawGetDword(t.sub(), L"WndB"), 400u);
    {
        RegKey ro(t.path().c_str(), 0);
        EXPECT_TRUE(RegPutRect(ro, &rc, L"Wnd")) << "an unchanged rectangle is not written";
        RECT moved = {1, -2, 301, 400};
        EXPECT_FALSE(RegPutRect(ro, &moved, L"Wnd"));
    }
    RECT got = {7, 7, 7, 7};
    EXPECT_TRUE(RegGetRect(k, &got, L"Wnd"));
    EXPECT_EQ(got.left, 1);
    EXPECT_EQ(got.top, -2);
    EXPECT_EQ(got.right, 300);
    EXPECT_EQ(got.bottom, 400);
    ASSERT_TRUE(k.DelValue(L"WndT"));
    RECT partial = {7, 7, 7, 7};
    EXPECT_FALSE(RegGetRect(k, &partial, L"Wnd")) << "not every field was stored";
    EXPECT_EQ(partial.top, 7) << "an absent field keeps its value";
    EXPECT_EQ(partial.right, 300);
    RECT none = {5, 6, 7, 8};
    EXPECT_FALSE(RegGetRect(k, &none, L"Other"));
    EXPECT_EQ(none.left, 5);
    EXPECT_EQ(none.bottom, 8);

    LOGFONTW font{};
    font.lfHeight = -12;
    font.lfWeight = FW_BOLD;
    wcscpy(font.lfFaceName, L"Tahoma");
    EXPECT_TRUE(RegPutLogFont(k, L"Font", &font));
    std::vector<BYTE> stored;
    DWORD type = 0;
    ASSERT_TRUE(vxtest::RawGet(t.sub(), L"Font", &type, &stored));
    EXPECT_EQ(type, (DWORD)REG_BINARY);
    ASSERT_EQ(stored.size(), 92u);
    EXPECT_EQ(memcmp(stored.data(), &font, 92), 0);

    LOGFONTW* p = nullptr;
    EXPECT_TRUE(RegGetLogFont(k, L"Font", p));
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(memcmp(p, &font, 92), 0);
    LOGFONTW* const held = p;
    font.lfHeight = -20;
    ASSERT_TRUE(vxtest::RawSetBin(t.sub(), L"Font", &font, 92));
    EXPECT_TRUE(RegGetLogFont(k, L"Font", p));
    EXPECT_EQ(p, held) << "a font already held is reused";
    EXPECT_EQ(p->lfHeight, -20);

    // A value of any other size is not a font: the caller's font is dropped.
    ASSERT_TRUE(vxtest::RawSetBin(t.sub(), L"Font", &font, 91));
    EXPECT_FALSE(RegGetLogFont(k, L"Font", p));
    EXPECT_EQ(p, nullptr);
    ASSERT_NE(RegNewLogFont(p), nullptr);
    EXPECT_EQ(p->lfHeight, 0);
    EXPECT_EQ(RegNewLogFont(p), p);
    EXPECT_FALSE(RegGetLogFont(k, L"Absent", p));
    EXPECT_EQ(p, nullptr);

    EXPECT_TRUE(RegPutLogFont(k, L"Font", nullptr));
    EXPECT_FALSE(vxtest::RawValueExists(t.sub(), L"Font"));
    RegNewLogFont(p);
    RegDelLogFont(p);
    EXPECT_EQ(p, nullptr);
    RegDelLogFont(p);
}

TEST(RegHelpers, HomeFolderInTheMachineKey)
{
    ScopedProduct prod;
    wchar_t buf[MAX_PATH];
    wcscpy(buf, L"junk");
    EXPECT_FALSE(GetHomeFolder(prod.name(), buf));
    EXPECT_STREQ(buf, L"");
    EXPECT_FALSE(regtest::MachineKeyExists(prod.Korvane())) << "reading creates nothing";

    wchar_t home[] = L"C:\\Program Files\\Korvane\\Vantrel";
    {
        // Described in log mode: one key line and the value, nothing written.
        regtest::LogGuard guard;
        regtest::Guarded<256> log;
        RegKey::StartLog(log.buf);
        EXPECT_TRUE(ProcessHomeFolder(RegKey::OpWrite, prod.name(), home, MAX_PATH));
        RegKey::EndLog();
        EXPECT_EQ(std::wstring(log.buf), L"[HKLM\\Software\\Korvane\\" + std::wstring(prod.name()) + L"\\Setup]\r\nHome=" + home + L"\r\n");
        EXPECT_FALSE(regtest::MachineKeyExists(prod.Korvane()));
    }
    EXPECT_TRUE(ProcessHomeFolder(RegKey::OpWrite, prod.name(), home, MAX_PATH));
    DWORD type = 0;
    EXPECT_EQ(regtest::MachineGetStr(prod.Korvane(L"Setup"), L"Home", &type), home);
    EXPECT_EQ(type, (DWORD)REG_SZ);

    EXPECT_TRUE(GetHomeFolder(prod.name(), buf));
    EXPECT_STREQ(buf, home);
    EXPECT_TRUE(ProcessHomeFolder(RegKey::OpCheck, prod.name(), home, MAX_PATH));
    wchar_t other[] = L"D:\\Elsewhere";
    EXPECT_FALSE(ProcessHomeFolder(RegKey::OpCheck, prod.name(), other, MAX_PATH));
    EXPECT_TRUE(ProcessHomeFolder(RegKey::OpDelete, prod.name(), other, MAX_PATH));
    EXPECT_EQ(regtest::MachineGetStr(prod.Korvane(L"Setup"), L"Home"), L"<absent>");
    EXPECT_FALSE(GetHomeFolder(prod.name(), buf));
}

TEST(RegHelpers, HomeFolderOfAnInstallationUnderTheFormerCompanyName)
{
    ScopedProduct prod;
    ASSERT_TRUE(regtest::MachineSetStr(prod.Drelmark(L"Setup"), L"Home", L"D:\\Legacy"));
    ASSERT_TRUE(regtest::MachineSetStr(prod.Drelmark(L"Setup"), L"Other", L"kept"));

    // Reading falls back to the former key and leaves it where it is.
    wchar_t buf[MAX_PATH];
    EXPECT_TRUE(GetHomeFolder(prod.name(), buf));
    EXPECT_STREQ(buf, L"D:\\Legacy");
    EXPECT_FALSE(regtest::MachineKeyExists(prod.Korvane()));
    EXPECT_TRUE(regtest::MachineKeyExists(prod.Drelmark()));

    // Writing moves the former key first, then writes.
    wchar_t home[] = L"E:\\New";
    EXPECT_TRUE(ProcessHomeFolder(RegKey::OpWrite, prod.name(), home, MAX_PATH));
    EXPECT_EQ(regtest::MachineGetStr(prod.Korvane(L"Setup"), L"Home"), L"E:\\New");
    EXPECT_EQ(regtest::MachineGetStr(prod.Korvane(L"Setup"), L"Other"), L"kept");
    EXPECT_FALSE(regtest::MachineKeyExists(prod.Drelmark()));
    if (!prod.DrelmarkExistedBefore(false)) {
        EXPECT_FALSE(regtest::MachineKeyExists(L"Software\\Drelmark")) << "the emptied company key goes";
    }
}

TEST(RegHelpers, MoveLegacyKeyInTheUserHive)
{
    ScopedProduct prod;
    // Nothing to move: nothing is created.
    EXPECT_TRUE(MoveLegacyKey(1, prod.name()));
    EXPECT_FALSE(vxtest::RawKeyExists(prod.Korvane()));

    ASSERT_TRUE(vxtest::RawSetDword(prod.Drelmark(), L"Timeout", 30));
    ASSERT_TRUE(vxtest::RawSetStr(prod.Drelmark(L"Setup\\Restrictions"), L"Note", L"deep"));
    ASSERT_TRUE(vxtest::RawSetDword(prod.Drelmark() + L"_sibling", L"V", 1));
    EXPECT_TRUE(MoveLegacyKey(1, prod.name()));
    EXPECT_EQ(vxtest::RawGetDword(prod.Korvane(), L"Timeout"), 30u);
    EXPECT_EQ(vxtest::RawGetStr(prod.Korvane(L"Setup\\Restrictions"), L"Note"), L"deep");
    EXPECT_FALSE(vxtest::RawKeyExists(prod.Drelmark()));
    EXPECT_TRUE(vxtest::RawKeyExists(prod.Drelmark() + L"_sibling")) << "another product's key stays";
    EXPECT_TRUE(vxtest::RawKeyExists(L"Software\\Drelmark")) << "not empty, so it stays";

    // Once the new key exists, the former one is left alone.
    ASSERT_TRUE(vxtest::RawSetDword(prod.Drelmark(), L"Timeout", 99));
    EXPECT_TRUE(MoveLegacyKey(1, prod.name()));
    EXPECT_EQ(vxtest::RawGetDword(prod.Korvane(), L"Timeout"), 30u);
    EXPECT_EQ(vxtest::RawGetDword(prod.Drelmark(), L"Timeout"), 99u);

    // The last product moved takes the company key with it.
    vxtest::RawDeleteTree(prod.Drelmark() + L"_sibling");
    vxtest::RawDeleteTree(prod.Korvane());
    EXPECT_TRUE(MoveLegacyKey(1, prod.name()));
    EXPECT_EQ(vxtest::RawGetDword(prod.Korvane(), L"Timeout"), 99u);
    if (!prod.DrelmarkExistedBefore(true)) {
        EXPECT_FALSE(vxtest::RawKeyExists(L"Software\\Drelmark"));
    }
}

TEST(RegHelpers, RestrictedReadsTheUserRestrictionKey)
{
    ScopedProduct prod;
    EXPECT_EQ(Restricted(prod.name(), L"NoExit"), 0) << "missing key";
    ASSERT_TRUE(vxtest::RawSetDword(prod.Korvane(L"Setup\\Restrictions"), L"NoExit", 1));
    ASSERT_TRUE(vxtest::RawSetDword(prod.Korvane(L"Setup\\Restrictions"), L"NoConfig", 2));
    EXPECT_EQ(Restricted(prod.name(), L"NoExit"), 1);
    EXPECT_EQ(Restricted(prod.name(), L"NoConfig"), 2);
    EXPECT_EQ(Restricted(prod.name(), L"Absent"), 0);
    EXPECT_EQ(Restricted(prod.name(), nullptr), 0);
}

TEST(RegHelpers, EventSourceRegistration)
{
    const std::wstring source = L"VantrelTest_" + std::to_wstring(GetCurrentProcessId());
    const std::wstring sub = L"SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\" + source;
    regtest::MachineDeleteTree(sub);

    EXPECT_TRUE(RegisterEventSourceFile(source.c_str(), nullptr));
    EXPECT_FALSE(regtest::MachineKeyExists(sub)) << "removing an unknown source creates nothing";

    EXPECT_TRUE(RegisterEventSourceFile(source.c_str(), L"C:\\Program Files\\Vantrel\\VXMSG.DLL"));
    DWORD type = 0;
    EXPECT_EQ(regtest::MachineGetDword(sub, L"TypesSupported", &type), 7u);
    EXPECT_EQ(type, (DWORD)REG_DWORD);
    EXPECT_EQ(regtest::MachineGetStr(sub, L"EventMessageFile", &type), L"C:\\Program Files\\Vantrel\\VXMSG.DLL");
    EXPECT_EQ(type, (DWORD)REG_SZ);
    EXPECT_TRUE(RegisterEventSourceFile(source.c_str(), L"D:\\VXMSG.DLL"));
    EXPECT_EQ(regtest::MachineGetStr(sub, L"EventMessageFile"), L"D:\\VXMSG.DLL");

    EXPECT_TRUE(RegisterEventSourceFile(source.c_str(), nullptr));
    EXPECT_FALSE(regtest::MachineKeyExists(sub));

    // A source key holding something else loses only the two values.
    ASSERT_TRUE(RegisterEventSourceFile(source.c_str(), L"D:\\VXMSG.DLL"));
    ASSERT_TRUE(regtest::MachineSetStr(sub, L"CategoryMessageFile", L"D:\\CAT.DLL"));
    EXPECT_TRUE(RegisterEventSourceFile(source.c_str(), nullptr));
    EXPECT_TRUE(regtest::MachineKeyExists(sub));
    EXPECT_EQ(regtest::MachineGetStr(sub, L"EventMessageFile"), L"<absent>");
    EXPECT_EQ(regtest::MachineGetDword(sub, L"TypesSupported"), 0xFFFFFFFFu);
    EXPECT_EQ(regtest::MachineGetStr(sub, L"CategoryMessageFile"), L"D:\\CAT.DLL");
    regtest::MachineDeleteTree(sub);
}

} // namespace
