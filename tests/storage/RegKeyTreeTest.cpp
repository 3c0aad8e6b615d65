// Whole keys: enumeration, deleting trees (including a subkey the system refuses to delete),
// copying and renaming trees, saving and loading hives, and the path-name helpers.
#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "storage/RegKey.h"
#include "support/TestSupport.h"
#include "RegTestUtil.h"

using regtest::Guarded;
using vxtest::ScopedTempDir;
using vxtest::ScopedTestKey;

namespace {

TEST(RegKeyTree, EnumerationCursor)
{
    ScopedTestKey t(L"enum");
    for (const wchar_t* n : {L"S1", L"S2", L"AVeryLongSubkeyName"})
        ASSERT_TRUE(vxtest::RawCreateKey(t.sub(n)));
    for (const wchar_t* n : {L"V1", L"V2"})
        ASSERT_TRUE(vxtest::RawSetDword(t.sub(), n, 1));
    RegKey k(t.path().c_str(), 0);
    ASSERT_TRUE(k.IsReady());

    std::set<std::wstring> keys;
    wchar_t name[64];
    for (int ok = k.GetFirstSubKey(name, 64); ok; ok = k.GetNextSubKey(name, 64))
        ASSERT_TRUE(keys.insert(name).second) << "listed twice: " << testing::PrintToString(std::wstring(name));
    EXPECT_EQ(keys, (std::set<std::wstring>{L"S1", L"S2", L"AVeryLongSubkeyName"}));

    // By index leaves the cursor where First/Next put it.
    wchar_t byIndex[64], next[64];
    ASSERT_TRUE(k.GetFirstSubKey(name, 64));
    ASSERT_TRUE(k.GetSubKeyByIndex(2, byIndex, 64));
    ASSERT_TRUE(k.GetNextSubKey(next, 64));
    ASSERT_TRUE(k.GetSubKeyByIndex(1, byIndex, 64));
    EXPECT_STREQ(next, byIndex);
    EXPECT_FALSE(k.GetSubKeyByIndex(3, byIndex, 64));

    // A name longer than the buffer still counts as an item, so loops do not stop early.
    int count = 0;
    for (int ok = k.GetFirstSubKey(name, 3); ok && count < 10; ok = k.GetNextSubKey(name, 3))
        ++count;
    EXPECT_EQ(count, 3);

    std::set<std::wstring> values;
    for (int ok = k.GetFirstValue(name, 64); ok; ok = k.GetNextValue(name, 64))
        values.insert(name);
    EXPECT_EQ(values, (std::set<std::wstring>{L"V1", L"V2"}));
    EXPECT_TRUE(k.GetValueByIndex(1, name, 64));
    EXPECT_TRUE(k.GetValueByIndex(0, name, 1)) << "a too-small buffer still counts";
    EXPECT_FALSE(k.GetValueByIndex(2, name, 64));

    RegKey empty(t.path(L"S1").c_str(), 0);
    EXPECT_FALSE(empty.GetFirstSubKey(name, 64));
    EXPECT_FALSE(empty.GetFirstValue(name, 64));
}

TEST(RegKeyTree, DeletingDeepTreesAndEmptyKeys)
{
    ScopedTestKey t(L"deltree");
    std::wstring level = L"Tree";
    for (int depth = 0; depth < 6; ++depth) {
        for (int i = 0; i < 25; ++i) {
            wchar_t n[16];
            swprintf(n, 16, L"v%02d", i);
            ASSERT_TRUE(vxtest::RawSetDword(t.sub(level), n, i));
        }
        ASSERT_TRUE(vxtest::RawSetStr(t.sub(level), nullptr, L"default"));
        ASSERT_TRUE(vxtest::RawCreateKey(t.sub(level + L"\\Side")));
        level += L"\\L" + std::to_wstring(depth);
    }
    ASSERT_TRUE(vxtest::RawSetDword(t.sub(L"Keep"), L"K", 1));
    RegKey k(t.path().c_str(), 1);
    ASSERT_TRUE(k.IsReady());

    EXPECT_FALSE(k.IsKeyEmpty());
    EXPECT_TRUE(k.DelSubKey(L"Tree"));
    EXPECT_FALSE(vxtest::RawKeyExists(t.sub(L"Tree")));
    EXPECT_EQ(vxtest::RawGetDword(t.sub(L"Keep"), L"K"), 1u);
    EXPECT_TRUE(k.DelSubKey(L"Tree")) << "an absent subkey counts as deleted";

    // Only a key with neither values nor subkeys goes.
    ASSERT_TRUE(vxtest::RawCreateKey(t.sub(L"HasSub\\Child")));
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(L"HasDefault"), nullptr, L"d"));
    ASSERT_TRUE(vxtest::RawCreateKey(t.sub(L"Empty")));
    EXPECT_FALSE(k.DelSubKeyIfEmpty(L"Keep"));
    EXPECT_FALSE(k.DelSubKeyIfEmpty(L"HasSub"));
    EXPECT_FALSE(k.DelSubKeyIfEmpty(L"HasDefault"));
    EXPECT_TRUE(vxtest::RawKeyExists(t.sub(L"Keep")));
    EXPECT_TRUE(vxtest::RawKeyExists(t.sub(L"HasSub\\Child")));
    EXPECT_TRUE(vxtest::RawKeyExists(t.sub(L"HasDefault")));
    EXPECT_TRUE(k.DelSubKeyIfEmpty(L"Empty"));
    EXPECT_FALSE(vxtest::RawKeyExists(t.sub(L"Empty")));
    EXPECT_TRUE(k.DelSubKeyIfEmpty(L"Empty"));

    RegKey child(t.path(L"HasSub\\Child").c_str(), 0);
    EXPECT_TRUE(child.IsKeyEmpty());
    RegKey hasSub(t.path(L"HasSub").c_str(), 0);
    EXPECT_FALSE(hasSub.IsKeyEmpty());
    RegKey hasDefault(t.path(L"HasDefault").c_str(), 0);
    EXPECT_FALSE(hasDefault.IsKeyEmpty());

    // DelAll empties the key itself and keeps it.
    EXPECT_TRUE(vxtest::RawSetStr(t.sub(), nullptr, L"d"));
    EXPECT_TRUE(vxtest::RawSetDword(t.sub(), L"Top", 1));
    EXPECT_TRUE(k.DelAll());
    EXPECT_TRUE(vxtest::RawKeyExists(t.sub()));
    EXPECT_EQ(vxtest::RawCountSubKeys(t.sub()), 0u);
    EXPECT_EQ(vxtest::RawCountValues(t.sub()), 0u);
    EXPECT_TRUE(k.IsKeyEmpty());
}

TEST(RegKeyTree, DeletionStepsPastASubkeyItCannotDelete)
{
    // A subkey whose access rules deny everyone every right cannot be opened, so its own child
    // cannot be removed, so the subkey itself cannot be deleted. The deletion must step past
    // it, delete its siblings on either side, and report failure.
    ScopedTestKey t(L"refused");
    ASSERT_TRUE(vxtest::RawSetDword(t.sub(L"Parent\\A_ok"), L"V", 1));
    ASSERT_TRUE(vxtest::RawCreateKey(t.sub(L"Parent\\B_locked\\Inner")));
    ASSERT_TRUE(vxtest::RawSetDword(t.sub(L"Parent\\C_ok"), L"V", 1));
    ASSERT_TRUE(regtest::SetKeySddl(HKEY_CURRENT_USER, t.sub(L"Parent\\B_locked"), L"D:(D;;KA;;;WD)"));
    HKEY probe;
    if (RegOpenKeyExW(HKEY_CURRENT_USER, t.sub(L"Parent").c_str(), 0, KEY_READ, &probe) == ERROR_SUCCESS) {
        LONG r = RegDeleteKeyW(probe, L"B_locked");
        RegCloseKey(probe);
        ASSERT_NE(r, ERROR_SUCCESS) << "the system no longer refuses the deletion; the test proves nothing";
    }

    RegKey k(t.path().c_str(), 1);
    ASSERT_TRUE(k.IsReady());
    int result = -1;
    bool finished = regtest::FinishesWithin(10000, [&] { result = k.DelSubKey(L"Parent"); });
    EXPECT_TRUE(finished) << "DelSubKey loops on the refused subkey";
    if (finished) {
        EXPECT_EQ(result, 0) << "the parent cannot go while the refused subkey remains";
        EXPECT_EQ(vxtest::RawCountSubKeys(t.sub(L"Parent")), 1u);
        EXPECT_FALSE(vxtest::RawKeyExists(t.sub(L"Parent\\A_ok")));
        EXPECT_FALSE(vxtest::RawKeyExists(t.sub(L"Parent\\C_ok")));

        // DelAll uses the same loop.
        ASSERT_TRUE(vxtest::RawSetDword(t.sub(L"Parent\\D_ok"), L"V", 1));
        RegKey parent(t.path(L"Parent").c_str(), 1);
        finished = regtest::FinishesWithin(10000, [&] { parent.DelAll(); });
        EXPECT_TRUE(finished) << "DelAll loops on the refused subkey";
        EXPECT_EQ(vxtest::RawCountSubKeys(t.sub(L"Parent")), 1u);
    }
    EXPECT_TRUE(regtest::SetKeySddl(HKEY_CURRENT_USER, t.sub(L"Parent\\B_locked"), L"D:(A;;KA;;;WD)"));
}

TEST(RegKeyTree, CopyToKeepsTypesAndRewritesNothingEqual)
{
    ScopedTestKey t(L"copy");
    const std::wstring src = t.sub(L"Src");
    const DWORD d = 0x12345678;
    const ULONGLONG q = 0x1122334455667788ull;
    const BYTE bin[5] = {0, 1, 2, 0xfe, 0xff};
    const wchar_t multi[] = L"one\0two\0";
    ASSERT_TRUE(vxtest::RawSetStr(src, nullptr, L"default"));
    ASSERT_TRUE(vxtest::RawSetStr(src, L"Sz", L"text"));
    ASSERT_TRUE(vxtest::RawSetStr(src, L"Exp", L"%WINDIR%", REG_EXPAND_SZ));
    ASSERT_TRUE(vxtest::RawSetBin(src, L"Multi", multi, sizeof(multi), REG_MULTI_SZ));
    ASSERT_TRUE(vxtest::RawSetBin(src, L"Dw", &d, 4, REG_DWORD));
    ASSERT_TRUE(vxtest::RawSetBin(src, L"Qw", &q, 8, REG_QWORD));
    ASSERT_TRUE(vxtest::RawSetBin(src, L"Bin", bin, 5, REG_BINARY));
    ASSERT_TRUE(vxtest::RawSetDword(src + L"\\A\\B\\C", L"Deep", 3));
    ASSERT_TRUE(vxtest::RawSetStr(src + L"\\A", L"Mid", L"m"));
    ASSERT_TRUE(vxtest::RawCreateKey(src + L"\\EmptySub"));
    ASSERT_TRUE(vxtest::RawSetDword(t.sub(L"Dst"), L"Extra", 9));

    RegKey s(t.path(L"Src").c_str(), 0), dst(t.path(L"Dst").c_str(), 1);
    ASSERT_TRUE(s.IsReady());
    ASSERT_TRUE(dst.IsReady());
    EXPECT_TRUE(s.CopyTo(dst));

    const wchar_t* valueNames[] = {nullptr, L"Sz", L"Exp", L"Multi", L"Dw", L"Qw", L"Bin"};
    for (const wchar_t* n : valueNames) {
        SCOPED_TRACE(n ? n : L"(default)");
        DWORD ts = 0, td = 0;
        std::vector<BYTE> ds, dd;
        ASSERT_TRUE(vxtest::RawGet(src, n, &ts, &ds));
        ASSERT_TRUE(vxtest::RawGet(t.sub(L"Dst"), n, &td, &dd));
        EXPECT_EQ(ts, td);
        EXPECT_EQ(ds, dd);
    }
    EXPECT_EQ(vxtest::RawGetDword(t.sub(L"Dst\\A\\B\\C"), L"Deep"), 3u);
    EXPECT_EQ(vxtest::RawGetStr(t.sub(L"Dst\\A"), L"Mid"), L"m");
    EXPECT_TRUE(vxtest::RawKeyExists(t.sub(L"Dst\\EmptySub")));
    EXPECT_EQ(vxtest::RawGetDword(t.sub(L"Dst"), L"Extra"), 9u) << "copying adds, it does not clear";
    EXPECT_EQ(vxtest::RawGetDword(src, L"Dw"), d) << "the source is left as it was";

    // A changed source value replaces the copy, type included.
    ASSERT_TRUE(vxtest::RawSetStr(src + L"\\A\\B\\C", L"Deep", L"now text"));
    EXPECT_TRUE(s.CopyTo(dst));
    EXPECT_EQ(vxtest::RawGetStr(t.sub(L"Dst\\A\\B\\C"), L"Deep"), L"now text");
}

TEST(RegKeyTree, RenameSubkeyMovesTheTree)
{
    ScopedTestKey t(L"rename");
    ASSERT_TRUE(vxtest::RawSetDword(t.sub(L"Old"), L"V", 1));
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(L"Old\\Sub\\Deeper"), L"S", L"deep"));
    RegKey k(t.path().c_str(), 1);
    ASSERT_TRUE(k.IsReady());

    EXPECT_TRUE(k.RenameSubkey(L"Old", L"New"));
    EXPECT_FALSE(vxtest::RawKeyExists(t.sub(L"Old")));
    EXPECT_EQ(vxtest::RawGetDword(t.sub(L"New"), L"V"), 1u);
    EXPECT_EQ(vxtest::RawGetStr(t.sub(L"New\\Sub\\Deeper"), L"S"), L"deep");

    EXPECT_FALSE(k.RenameSubkey(L"Missing", L"Other"));
    EXPECT_FALSE(vxtest::RawKeyExists(t.sub(L"Other"))) << "nothing is created for a missing source";
}

TEST(RegKeyTree, SaveKeyReplacesAReadOnlyFileAndRestoresItsAttributes)
{
    // Saving and loading hives need the backup and restore privileges, held but not enabled.
    ASSERT_TRUE(regtest::EnablePrivilege(SE_BACKUP_NAME));
    ScopedTestKey t(L"save");
    ScopedTempDir dir;
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(), L"Saved", L"yes"));
    RegKey k(t.path().c_str(), 0);
    ASSERT_TRUE(k.IsReady());

    const std::wstring fresh = dir.file(L"fresh.reg");
    RegKey::lError = 12345;
    EXPECT_TRUE(RegKey::SaveKey(k, fresh.c_str(), nullptr));
    EXPECT_EQ(RegKey::lError, ERROR_SUCCESS);
    EXPECT_EQ(GetFileAttributesW(fresh.c_str()), (DWORD)FILE_ATTRIBUTE_ARCHIVE);

    const std::wstring ro = dir.file(L"old.reg");
    ASSERT_TRUE(vxtest::WriteFileBytes(ro, "stale", 5));
    ASSERT_TRUE(SetFileAttributesW(ro.c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN));
    const DWORD attrs = GetFileAttributesW(ro.c_str());
    ASSERT_NE(attrs & FILE_ATTRIBUTE_READONLY, 0u);
    RegKey::lError = 12345;
    EXPECT_TRUE(k.Save(ro.c_str()));
    EXPECT_EQ(RegKey::lError, ERROR_SUCCESS);
    EXPECT_EQ(GetFileAttributesW(ro.c_str()), attrs);
    std::vector<BYTE> bytes;
    ASSERT_TRUE(vxtest::ReadFileBytes(ro, &bytes));
    EXPECT_GT(bytes.size(), 5u) << "the old content was not replaced";
    SetFileAttributesW(ro.c_str(), FILE_ATTRIBUTE_NORMAL);

    RegKey::lError = 0;
    EXPECT_FALSE(RegKey::SaveKey(k, dir.file(L"no\\such\\folder.reg").c_str(), nullptr));
    EXPECT_NE(RegKey::lError, ERROR_SUCCESS);
}

TEST(RegKeyTree, LoadAndUnloadAHive)
{
    ASSERT_TRUE(regtest::EnablePrivilege(SE_BACKUP_NAME));
    ASSERT_TRUE(regtest::EnablePrivilege(SE_RESTORE_NAME));
    ScopedTestKey t(L"hive");
    ScopedTempDir dir;
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(L"Inner"), L"Loaded", L"from file"));
    const std::wstring file = dir.file(L"hive.reg");
    {
        RegKey k(t.path().c_str(), 0);
        ASSERT_TRUE(RegKey::SaveKey(k, file.c_str(), nullptr));
    }
    wchar_t mount[64];
    swprintf(mount, 64, L"VantrelTestHive_%lu", GetCurrentProcessId());
    ASSERT_TRUE(RegKey::LoadKey(HKEY_USERS, mount, file.c_str()));
    {
        RegKey loaded((std::wstring(L"HKU\\") + mount + L"\\Inner").c_str(), 0);
        EXPECT_TRUE(loaded.IsReady());
        wchar_t buf[32];
        EXPECT_EQ(loaded.GetStr(L"Loaded", buf, 32, nullptr), 9);
        EXPECT_STREQ(buf, L"from file");
    }
    EXPECT_TRUE(RegKey::UnLoadKey(HKEY_USERS, mount));
    RegKey gone((std::wstring(L"HKU\\") + mount).c_str(), 0);
    EXPECT_FALSE(gone.IsReady());
    EXPECT_FALSE(RegKey::UnLoadKey(HKEY_USERS, mount));
}

TEST(RegKeyTree, PathNameHelpers)
{
    Guarded<32> g;
    EXPECT_TRUE(RegKey::GetParentSubkeyName(L"HKLM\\A\\B", g.buf, 32));
    EXPECT_STREQ(g.buf, L"HKLM\\A");
    EXPECT_TRUE(g.Intact());
    g.Fill();
    EXPECT_TRUE(RegKey::GetParentSubkeyName(L"A\\B\\", g.buf, 32));
    EXPECT_STREQ(g.buf, L"A\\B") << "a trailing backslash is just removed";
    // The copy is cut to the buffer first, then at its last backslash.
    Guarded<6> cut;
    EXPECT_TRUE(RegKey::GetParentSubkeyName(L"AB\\CD\\EF", cut.buf, 6));
    EXPECT_STREQ(cut.buf, L"AB");
    EXPECT_TRUE(cut.Intact());
    g.Fill();
    EXPECT_FALSE(RegKey::GetParentSubkeyName(nullptr, g.buf, 32));
    EXPECT_FALSE(RegKey::GetParentSubkeyName(L"", g.buf, 32));
    EXPECT_FALSE(RegKey::GetParentSubkeyName(L"A\\B", nullptr, 32));

    const wchar_t* path = L"HKCU\\Software\\Name";
    EXPECT_EQ(RegKey::FindLastSubkeyName(path), path + 14);
    const wchar_t* single = L"Name";
    EXPECT_EQ(RegKey::FindLastSubkeyName(single), single);
    const wchar_t* trailing = L"A\\";
    ASSERT_NE(RegKey::FindLastSubkeyName(trailing), nullptr);
    EXPECT_STREQ(RegKey::FindLastSubkeyName(trailing), L"");
    EXPECT_EQ(RegKey::FindLastSubkeyName(nullptr), nullptr);
    EXPECT_EQ(RegKey::FindLastSubkeyName(L""), nullptr);
}

} // namespace
