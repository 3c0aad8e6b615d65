// Whole keys: enumeration, deleting trees (including a subkey the system refuses to delete),
// copying and renaming trees, saving hives, and the path-name helpers.
#include <gtest/gtest.h>

#include <set>

#include "RegTestUtil.h"

using regtest::Failed;
using regtest::Guarded;
using regtest::Try;
using vxtest::ScopedTestKey;

namespace {

// Catches items listed twice or skipped, ByIndex moving the cursor, and a name longer than the
// buffer ending the loop early (it deliberately counts as an item).
TEST(RegKeyTree, EnumerationCursor)
{
    ScopedTestKey t(L"enum");
    for (const wchar_t* n : {L"S1", L"S2", L"AVeryLongSubkeyName"})
        ASSERT_TRUE(vxtest::RawCreateKey(t.sub(n)));
    ASSERT_TRUE(vxtest::RawSetDword(t.sub(), L"V1", 1));
    ASSERT_TRUE(vxtest::RawSetDword(t.sub(), L"V2", 1));
    RegKey k(t.path().c_str(), 0);
    std::set<std::wstring> keys;
    wchar_t name[64], byIndex[64];
    for (int ok = k.GetFirstSubKey(name, 64); ok && keys.size() < 10; ok = k.GetNextSubKey(name, 64))
        keys.insert(name);
    EXPECT_EQ(keys, (std::set<std::wstring>{L"S1", L"S2", L"AVeryLongSubkeyName"}));
    ASSERT_EQ(k.GetFirstSubKey(name, 64), 1);
    ASSERT_EQ(k.GetSubKeyByIndex(2, byIndex, 64), 1);
    ASSERT_EQ(k.GetNextSubKey(name, 64), 1);
    ASSERT_EQ(k.GetSubKeyByIndex(1, byIndex, 64), 1);
    EXPECT_STREQ(name, byIndex) << "ByIndex moved the cursor";
    int count = 0;
    for (int ok = k.GetFirstSubKey(name, 3); ok && count < 10; ok = k.GetNextSubKey(name, 3))
        ++count;
    EXPECT_EQ(count, 3);
    EXPECT_EQ(k.GetFirstValue(name, 1), 1) << "V1, too long for the buffer, still counts";
    EXPECT_STREQ(name, L"") << "a name that does not fit is not handed out";
    EXPECT_EQ(k.GetNextValue(name, 64), 1);
    EXPECT_STREQ(name, L"V2");
    EXPECT_EQ(k.GetNextValue(name, 64), 0) << "the end";
}

// Catches partial deletion of nested trees (values, default values, subkeys at every level)
// and DelSubKeyIfEmpty removing a key that still holds something.
TEST(RegKeyTree, DeletingTreesAndEmptyKeys)
{
    ScopedTestKey t(L"deltree");
    for (const wchar_t* level : {L"Tree", L"Tree\\L1", L"Tree\\L1\\L2"}) {
        for (const wchar_t* n : {L"a", L"b", (const wchar_t*)nullptr})
            ASSERT_TRUE(vxtest::RawSetStr(t.sub(level), n, L"x"));
        ASSERT_TRUE(vxtest::RawCreateKey(t.sub(level) + L"\\Side"));
    }
    ASSERT_TRUE(vxtest::RawCreateKey(t.sub(L"HasSub\\Child")));
    ASSERT_TRUE(vxtest::RawCreateKey(t.sub(L"Empty")));
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(L"HasDefault"), nullptr, L"d"));
    ASSERT_TRUE(vxtest::RawSetDword(t.sub(), L"Top", 1));
    RegKey k(t.path().c_str(), 1);
    EXPECT_EQ(k.DelSubKey(L"Tree"), 1);
    EXPECT_FALSE(vxtest::RawKeyExists(t.sub(L"Tree")));
    EXPECT_EQ(k.DelSubKey(L"Tree"), 1) << "an absent subkey counts as deleted";
    for (const wchar_t* n : {L"HasSub", L"HasDefault"}) {
        SCOPED_TRACE(testing::PrintToString(std::wstring(n)));
        EXPECT_EQ(RegKey(t.path(n).c_str(), 0).IsKeyEmpty(), 0);
        EXPECT_EQ(k.DelSubKeyIfEmpty(n), 0);
        EXPECT_TRUE(vxtest::RawKeyExists(t.sub(n)));
    }
    EXPECT_EQ(RegKey(t.path(L"Empty").c_str(), 0).IsKeyEmpty(), 1);
    EXPECT_EQ(k.DelSubKeyIfEmpty(L"Empty"), 1);
    EXPECT_FALSE(vxtest::RawKeyExists(t.sub(L"Empty")));
    EXPECT_EQ(k.DelSubKeyIfEmpty(L"Empty"), 1) << "an absent subkey counts as deleted";
    EXPECT_EQ(k.DelAll(), 1);
    EXPECT_EQ(k.IsKeyEmpty(), 1);
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
    // Access comes back even when an assertion ends the test, so the test key can be deleted.
    struct Unlock {
        std::wstring sub;
        ~Unlock() { regtest::SetKeySddl(HKEY_CURRENT_USER, sub, L"D:(A;;KA;;;WD)"); }
    } unlock{t.sub(L"Parent\\B_locked")};
    HKEY probe;
    ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, t.sub(L"Parent").c_str(), 0, KEY_READ, &probe), ERROR_SUCCESS);
    const LONG refused = RegDeleteKeyW(probe, L"B_locked");
    RegCloseKey(probe);
    ASSERT_NE(refused, ERROR_SUCCESS) << "the system no longer refuses the deletion; the test proves nothing";

    RegKey k(t.path().c_str(), 1);
    regtest::Outcome result{-1, 0};
    ASSERT_TRUE(regtest::FinishesWithin(10000, [&] { result = Try([&] { return k.DelSubKey(L"Parent"); }); })) << "DelSubKey loops";
    EXPECT_EQ(result, Failed(ERROR_ACCESS_DENIED)) << "the parent cannot go while the refused subkey remains";
    EXPECT_EQ(vxtest::RawCountSubKeys(t.sub(L"Parent")), 1u) << "the siblings on both sides go";
    ASSERT_TRUE(vxtest::RawCreateKey(t.sub(L"Parent\\D_ok")));
    RegKey parent(t.path(L"Parent").c_str(), 1);
    EXPECT_TRUE(regtest::FinishesWithin(10000, [&] { parent.DelAll(); })) << "DelAll loops";
    EXPECT_EQ(vxtest::RawCountSubKeys(t.sub(L"Parent")), 1u);
}

// Catches a copy that loses value types or bytes, skips deep or empty subkeys, or clears the
// destination; then renaming, which is copy plus delete, and creates nothing for a missing key.
TEST(RegKeyTree, CopyToKeepsTypesAndRenameMovesTheTree)
{
    ScopedTestKey t(L"copy");
    const std::wstring src = t.sub(L"Src");
    ASSERT_TRUE(vxtest::RawSetStr(src, nullptr, L"default"));
    ASSERT_TRUE(vxtest::RawSetStr(src, L"Exp", L"%WINDIR%", REG_EXPAND_SZ));
    ASSERT_TRUE(vxtest::RawSetDword(src + L"\\A\\B\\C", L"Deep", 3));
    ASSERT_TRUE(vxtest::RawCreateKey(src + L"\\EmptySub"));
    ASSERT_TRUE(vxtest::RawSetDword(t.sub(L"Dst"), L"Extra", 9));
    RegKey k(t.path().c_str(), 1), dst(t.path(L"Dst").c_str(), 1);
    EXPECT_TRUE(RegKey(t.path(L"Src").c_str(), 0).CopyTo(dst));
    EXPECT_EQ(vxtest::RawGetStr(t.sub(L"Dst"), nullptr), L"default");
    EXPECT_EQ(regtest::RawType(t.sub(L"Dst"), L"Exp"), (DWORD)REG_EXPAND_SZ);
    EXPECT_EQ(vxtest::RawGetStr(t.sub(L"Dst"), L"Exp"), L"%WINDIR%");
    EXPECT_EQ(vxtest::RawGetDword(t.sub(L"Dst\\A\\B\\C"), L"Deep"), 3u);
    EXPECT_TRUE(vxtest::RawKeyExists(t.sub(L"Dst\\EmptySub")));
    EXPECT_EQ(vxtest::RawGetDword(t.sub(L"Dst"), L"Extra"), 9u) << "copying adds, it does not clear";

    EXPECT_EQ(k.RenameSubkey(L"Src", L"New"), 1);
    EXPECT_FALSE(vxtest::RawKeyExists(src));
    EXPECT_EQ(vxtest::RawGetDword(t.sub(L"New\\A\\B\\C"), L"Deep"), 3u);
    EXPECT_EQ(Try([&] { return k.RenameSubkey(L"Missing", L"Other"); }), Failed(ERROR_FILE_NOT_FOUND));
    EXPECT_FALSE(vxtest::RawKeyExists(t.sub(L"Other")));
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
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(), L"Saved", L"yes"));
    ASSERT_TRUE(vxtest::WriteFileBytes(ro, "stale", 5));
    ASSERT_TRUE(SetFileAttributesW(ro.c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN));
    const DWORD attrs = GetFileAttributesW(ro.c_str());
    RegKey k(t.path().c_str(), 0);
    RegKey::lError = 12345;
    EXPECT_EQ(k.Save(ro.c_str()), 1);
    EXPECT_EQ(RegKey::lError, ERROR_SUCCESS);
    EXPECT_EQ(GetFileAttributesW(ro.c_str()), attrs);
    EXPECT_TRUE(vxtest::ReadFileBytes(ro, &bytes));
    EXPECT_GT(bytes.size(), 5u) << "the old content was not replaced";
    SetFileAttributesW(ro.c_str(), FILE_ATTRIBUTE_NORMAL);
    EXPECT_TRUE(RegKey::SaveKey(k, fresh.c_str(), nullptr));
    EXPECT_EQ(GetFileAttributesW(fresh.c_str()), (DWORD)FILE_ATTRIBUTE_ARCHIVE);
    EXPECT_EQ(Try([&] { return RegKey::SaveKey(k, dir.file(L"no\\such\\folder.reg").c_str(), nullptr); }), Failed(ERROR_PATH_NOT_FOUND));
    EXPECT_EQ(RegKey::lError, ERROR_PATH_NOT_FOUND) << "lError holds the system's answer";
}

// Catches a parent name cut after the buffer limit or left unterminated, and wrong null rules.
TEST(RegKeyTree, PathNameHelpers)
{
    const struct { const wchar_t* path; const wchar_t* parent; unsigned cch; } rows[] = {
        {L"HKLM\\A\\B", L"HKLM\\A", 32}, {L"A\\B\\", L"A\\B", 32}, {L"AB\\CD\\EF", L"AB", 6}};
    for (const auto& r : rows) {
        Guarded<32> g;
        EXPECT_EQ(RegKey::GetParentSubkeyName(r.path, g.buf, r.cch), 1);
        EXPECT_STREQ(g.buf, r.parent);
        EXPECT_EQ(g.buf[r.cch], 0xbdbd);
    }
    wchar_t buf[8];
    EXPECT_EQ(RegKey::GetParentSubkeyName(nullptr, buf, 8), 0);
    EXPECT_EQ(RegKey::GetParentSubkeyName(L"", buf, 8), 0);
    EXPECT_EQ(RegKey::GetParentSubkeyName(L"A\\B", nullptr, 8), 0);
    const wchar_t *path = L"HKCU\\Software\\Name", *single = L"Name";
    EXPECT_EQ(RegKey::FindLastSubkeyName(path), path + 14);
    EXPECT_EQ(RegKey::FindLastSubkeyName(single), single);
    EXPECT_STREQ(RegKey::FindLastSubkeyName(L"A\\"), L"");
    EXPECT_EQ(RegKey::FindLastSubkeyName(nullptr), nullptr);
    EXPECT_EQ(RegKey::FindLastSubkeyName(L""), nullptr);
}

} // namespace
