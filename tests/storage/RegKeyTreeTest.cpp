// Whole keys: enumeration, deleting trees (including a subkey the system refuses to delete),
// copying and renaming trees, saving hives, and the path-name helpers.
#include <gtest/gtest.h>

#include <set>

#include "RegTestUtil.h"

using regtest::Guarded;
using vxtest::ScopedTestKey;

namespace {

// Catches items listed twice or skipped, ByIndex moving the cursor, and a name longer than the
// buffer ending the loop early (it deliberately counts as an item).
TEST(RegKeyTree, EnumerationCursor)
{
    ScopedTestKey t(L"enum");
    for (const wchar_t* n : {L"S1", L"S2", L"AVeryLongSubkeyName"})
        ASSERT_TRUE(vxtest::RawCreateKey(t.sub(n)));
    ASSERT_TRUE(vxtest::RawSetDword(t.sub(), L"V1", 1) && vxtest::RawSetDword(t.sub(), L"V2", 1));
    RegKey k(t.path().c_str(), 0);
    std::set<std::wstring> keys;
    wchar_t name[64], byIndex[64];
    for (int ok = k.GetFirstSubKey(name, 64); ok && keys.size() < 10; ok = k.GetNextSubKey(name, 64))
        keys.insert(name);
    EXPECT_EQ(keys, (std::set<std::wstring>{L"S1", L"S2", L"AVeryLongSubkeyName"}));
    ASSERT_TRUE(k.GetFirstSubKey(name, 64) && k.GetSubKeyByIndex(2, byIndex, 64) && k.GetNextSubKey(name, 64));
    ASSERT_TRUE(k.GetSubKeyByIndex(1, byIndex, 64));
    EXPECT_STREQ(name, byIndex) << "ByIndex moved the cursor";
    int count = 0;
    for (int ok = k.GetFirstSubKey(name, 3); ok && count < 10; ok = k.GetNextSubKey(name, 3))
        ++count;
    EXPECT_EQ(count, 3);
    EXPECT_TRUE(k.GetFirstValue(name, 1) && k.GetNextValue(name, 64) && !k.GetNextValue(name, 64)) << "V1, V2, end";
}

// Catches partial deletion of nested trees (values, default values, subkeys at every level)
// and DelSubKeyIfEmpty removing a key that still holds something.
TEST(RegKeyTree, DeletingTreesAndEmptyKeys)
{
    ScopedTestKey t(L"deltree");
    for (const wchar_t* level : {L"Tree", L"Tree\\L1", L"Tree\\L1\\L2"})
        for (const wchar_t* n : {L"a", L"b", (const wchar_t*)nullptr})
            ASSERT_TRUE(vxtest::RawSetStr(t.sub(level), n, L"x") && vxtest::RawCreateKey(t.sub(level) + L"\\Side"));
    ASSERT_TRUE(vxtest::RawCreateKey(t.sub(L"HasSub\\Child")) && vxtest::RawCreateKey(t.sub(L"Empty")));
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(L"HasDefault"), nullptr, L"d") && vxtest::RawSetDword(t.sub(), L"Top", 1));
    RegKey k(t.path().c_str(), 1);
    EXPECT_TRUE(k.DelSubKey(L"Tree") && k.DelSubKey(L"Tree")) << "an absent subkey counts as deleted";
    EXPECT_FALSE(vxtest::RawKeyExists(t.sub(L"Tree")));
    for (const wchar_t* n : {L"HasSub", L"HasDefault"}) {
        EXPECT_FALSE(k.DelSubKeyIfEmpty(n) || RegKey(t.path(n).c_str(), 0).IsKeyEmpty()) << testing::PrintToString(std::wstring(n));
        EXPECT_TRUE(vxtest::RawKeyExists(t.sub(n)));
    }
    EXPECT_TRUE(RegKey(t.path(L"Empty").c_str(), 0).IsKeyEmpty() && k.DelSubKeyIfEmpty(L"Empty") && k.DelSubKeyIfEmpty(L"Empty"));
    EXPECT_FALSE(vxtest::RawKeyExists(t.sub(L"Empty")));
    EXPECT_TRUE(k.DelAll() && k.IsKeyEmpty());
    EXPECT_TRUE(vxtest::RawKeyExists(t.sub())) << "DelAll keeps the key itself";
}

// Catches the deletion loop spinning forever on a subkey the system refuses to delete (here one
// whose access rules deny everyone everything): it must step past it and delete the siblings.
TEST(RegKeyTree, DeletionStepsPastASubkeyItCannotDelete)
{
    ScopedTestKey t(L"refused");
    for (const wchar_t* n : {L"Parent\\A_ok", L"Parent\\B_locked\\Inner", L"Parent\\C_ok"})
        ASSERT_TRUE(vxtest::RawCreateKey(t.sub(n)));
    ASSERT_TRUE(regtest::SetKeySddl(HKEY_CURRENT_USER, t.sub(L"Parent\\B_locked"), L"D:(D;;KA;;;WD)"));
    HKEY probe;
    ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, t.sub(L"Parent").c_str(), 0, KEY_READ, &probe), ERROR_SUCCESS);
    const LONG refused = RegDeleteKeyW(probe, L"B_locked");
    RegCloseKey(probe);
    ASSERT_NE(refused, ERROR_SUCCESS) << "the system no longer refuses the deletion; the test proves nothing";

    RegKey k(t.path().c_str(), 1);
    int result = -1;
    ASSERT_TRUE(regtest::FinishesWithin(10000, [&] { result = k.DelSubKey(L"Parent"); })) << "DelSubKey loops";
    EXPECT_EQ(result, 0) << "the parent cannot go while the refused subkey remains";
    EXPECT_EQ(vxtest::RawCountSubKeys(t.sub(L"Parent")), 1u) << "the siblings on both sides go";
    ASSERT_TRUE(vxtest::RawCreateKey(t.sub(L"Parent\\D_ok")));
    RegKey parent(t.path(L"Parent").c_str(), 1);
    EXPECT_TRUE(regtest::FinishesWithin(10000, [&] { parent.DelAll(); })) << "DelAll loops";
    EXPECT_EQ(vxtest::RawCountSubKeys(t.sub(L"Parent")), 1u);
    EXPECT_TRUE(regtest::SetKeySddl(HKEY_CURRENT_USER, t.sub(L"Parent\\B_locked"), L"D:(A;;KA;;;WD)"));
}

// Catches a copy that loses value types or bytes, skips deep or empty subkeys, or clears the
// destination; then renaming, which is copy plus delete, and creates nothing for a missing key.
TEST(RegKeyTree, CopyToKeepsTypesAndRenameMovesTheTree)
{
    ScopedTestKey t(L"copy");
    const std::wstring src = t.sub(L"Src");
    ASSERT_TRUE(vxtest::RawSetStr(src, nullptr, L"default") && vxtest::RawSetStr(src, L"Exp", L"%WINDIR%", REG_EXPAND_SZ));
    ASSERT_TRUE(vxtest::RawSetDword(src + L"\\A\\B\\C", L"Deep", 3));
    ASSERT_TRUE(vxtest::RawCreateKey(src + L"\\EmptySub") && vxtest::RawSetDword(t.sub(L"Dst"), L"Extra", 9));
    RegKey k(t.path().c_str(), 1), dst(t.path(L"Dst").c_str(), 1);
    EXPECT_TRUE(RegKey(t.path(L"Src").c_str(), 0).CopyTo(dst));
    EXPECT_EQ(vxtest::RawGetStr(t.sub(L"Dst"), nullptr), L"default");
    EXPECT_TRUE(regtest::RawType(t.sub(L"Dst"), L"Exp") == REG_EXPAND_SZ && vxtest::RawGetStr(t.sub(L"Dst"), L"Exp") == L"%WINDIR%");
    EXPECT_EQ(vxtest::RawGetDword(t.sub(L"Dst\\A\\B\\C"), L"Deep"), 3u);
    EXPECT_TRUE(vxtest::RawKeyExists(t.sub(L"Dst\\EmptySub")));
    EXPECT_EQ(vxtest::RawGetDword(t.sub(L"Dst"), L"Extra"), 9u) << "copying adds, it does not clear";

    EXPECT_TRUE(k.RenameSubkey(L"Src", L"New") && !vxtest::RawKeyExists(src));
    EXPECT_EQ(vxtest::RawGetDword(t.sub(L"New\\A\\B\\C"), L"Deep"), 3u);
    EXPECT_FALSE(k.RenameSubkey(L"Missing", L"Other") || vxtest::RawKeyExists(t.sub(L"Other")));
}

// Catches a save that fails on a read-only file or leaves it with other attributes, a new
// file without the archive attribute, and a wrong lError.
TEST(RegKeyTree, SaveReplacesAReadOnlyFileAndRestoresItsAttributes)
{
    ASSERT_TRUE(regtest::EnablePrivilege(SE_BACKUP_NAME));
    ScopedTestKey t(L"save");
    vxtest::ScopedTempDir dir;
    const std::wstring ro = dir.file(L"old.reg"), fresh = dir.file(L"fresh.reg");
    std::vector<BYTE> bytes;
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(), L"Saved", L"yes") && vxtest::WriteFileBytes(ro, "stale", 5));
    ASSERT_TRUE(SetFileAttributesW(ro.c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN));
    const DWORD attrs = GetFileAttributesW(ro.c_str());
    RegKey k(t.path().c_str(), 0);
    RegKey::lError = 12345;
    EXPECT_TRUE(k.Save(ro.c_str()) && RegKey::lError == ERROR_SUCCESS) << RegKey::lError;
    EXPECT_EQ(GetFileAttributesW(ro.c_str()), attrs);
    EXPECT_TRUE(vxtest::ReadFileBytes(ro, &bytes) && bytes.size() > 5) << "the old content was not replaced";
    SetFileAttributesW(ro.c_str(), FILE_ATTRIBUTE_NORMAL);
    EXPECT_TRUE(RegKey::SaveKey(k, fresh.c_str(), nullptr));
    EXPECT_EQ(GetFileAttributesW(fresh.c_str()), (DWORD)FILE_ATTRIBUTE_ARCHIVE);
    EXPECT_FALSE(RegKey::SaveKey(k, dir.file(L"no\\such\\folder.reg").c_str(), nullptr) || RegKey::lError == ERROR_SUCCESS);
}

// Catches a parent name cut after the buffer limit or left unterminated, and wrong null rules.
TEST(RegKeyTree, PathNameHelpers)
{
    const struct { const wchar_t* path; const wchar_t* parent; unsigned cch; } rows[] = {
        {L"HKLM\\A\\B", L"HKLM\\A", 32}, {L"A\\B\\", L"A\\B", 32}, {L"AB\\CD\\EF", L"AB", 6}};
    for (const auto& r : rows) {
        Guarded<32> g;
        EXPECT_TRUE(RegKey::GetParentSubkeyName(r.path, g.buf, r.cch));
        EXPECT_STREQ(g.buf, r.parent);
        EXPECT_EQ(g.buf[r.cch], 0xbdbd);
    }
    wchar_t buf[8];
    EXPECT_FALSE(RegKey::GetParentSubkeyName(nullptr, buf, 8) || RegKey::GetParentSubkeyName(L"", buf, 8) ||
                 RegKey::GetParentSubkeyName(L"A\\B", nullptr, 8));
    const wchar_t *path = L"HKCU\\Software\\Name", *single = L"Name";
    EXPECT_TRUE(RegKey::FindLastSubkeyName(path) == path + 14 && RegKey::FindLastSubkeyName(single) == single);
    EXPECT_STREQ(RegKey::FindLastSubkeyName(L"A\\"), L"");
    EXPECT_TRUE(RegKey::FindLastSubkeyName(nullptr) == nullptr && RegKey::FindLastSubkeyName(L"") == nullptr);
}

} // namespace
