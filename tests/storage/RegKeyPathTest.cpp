// Opening keys: the path syntax every settings record is addressed with, creation of missing
// levels, read-only opens, relative opens, and the handle ownership rules of RegKey objects.
#include <gtest/gtest.h>

#include "RegTestUtil.h"

using regtest::Failed;
using regtest::Try;
using vxtest::ScopedTestKey;

namespace {

// The value "Marker" tells which key a handle really refers to.
std::wstring Marker(HKEY k)
{
    wchar_t buf[64] = {};
    DWORD cb = sizeof(buf) - sizeof(wchar_t);
    return k && RegQueryValueExW(k, L"Marker", nullptr, nullptr, (BYTE*)buf, &cb) == ERROR_SUCCESS ? buf : L"<none>";
}

// Catches a root-name table with a wrong or case-sensitive entry, and unknown roots not skipped.
TEST(RegKeyPath, RootNamesSpellingsAndUnknownRoots)
{
    const std::pair<const wchar_t*, HKEY> roots[] = {
        {L"HKLM", HKEY_LOCAL_MACHINE}, {L"hklm", HKEY_LOCAL_MACHINE}, {L"hkey_local_machine", HKEY_LOCAL_MACHINE}, {L"HKCU", HKEY_CURRENT_USER},
        {L"HKEY_CURRENT_USER", HKEY_CURRENT_USER}, {L"hku", HKEY_USERS}, {L"HKEY_USERS", HKEY_USERS},
        {L"HKCLS", HKEY_CLASSES_ROOT}, {L"HKEY_CLASSES_ROOT", HKEY_CLASSES_ROOT}};
    for (const auto& r : roots)
        EXPECT_EQ(RegKey::OpenKey(r.first, 0, 0), r.second) << testing::PrintToString(std::wstring(r.first));
    EXPECT_EQ(Try([] { return RegKey::OpenKey(L"", 0, 0); }), Failed(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(Try([] { return RegKey::OpenKey(L"Bogus", 0, 0); }), Failed(ERROR_FILE_NOT_FOUND)) << "a path without a root";

    ScopedTestKey t(L"path");
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(), L"Marker", L"here"));
    const std::wstring sub = t.sub(), last = sub.substr(sub.rfind(L'\\') + 1);
    for (const std::wstring& p : {L"hkcu\\" + sub, L"Bogus\\HKCU\\" + sub, L"Bogus\\Other\\HKEY_CURRENT_USER\\" + sub,
                                  L"\\\\HKCU\\\\Software\\\\VantrelTests\\" + last + L"\\\\"})
        EXPECT_EQ(Marker(RegKey(p.c_str(), 0)), L"here") << testing::PrintToString(p);
}

// Catches read-only opens (by path, relative, or through a non-writing Op, OpWriteAlways
// included) that create keys or get write access.
TEST(RegKeyPath, OnlyDeleteAndWriteCreateAndReadOnlyKeysCannotWrite)
{
    ScopedTestKey t(L"create");
    RegKey parent(t.path().c_str(), 1);
    for (RegKey::Op op : {RegKey::OpCheck, RegKey::OpRead, RegKey::OpCheckAbsent, RegKey::OpCheckNoCase, RegKey::OpWriteAlways}) {
        EXPECT_EQ(Try([&] { return RegKey(t.path(L"A\\B").c_str(), op).IsReady(); }), Failed(ERROR_FILE_NOT_FOUND)) << op;
        EXPECT_EQ(Try([&] { return RegKey(parent, L"A", op).IsReady(); }), Failed(ERROR_FILE_NOT_FOUND)) << op;
    }
    EXPECT_EQ(Try([&] { return RegKey(t.path().c_str(), L"A", 0).IsReady(); }), Failed(ERROR_FILE_NOT_FOUND));
    EXPECT_FALSE(vxtest::RawKeyExists(t.sub(L"A")));
    EXPECT_TRUE(RegKey(t.path(L"A\\B").c_str(), RegKey::OpWrite).PutDword(L"V", 7, 1));
    EXPECT_EQ(RegKey(t.path().c_str(), L"Two\\Parts", 1).IsReady(), 1);
    EXPECT_EQ(RegKey(parent, L"Del\\Deep", RegKey::OpDelete).IsReady(), 1);
    EXPECT_EQ(RegKey(parent, L"Rel", RegKey::OpWrite).IsReady(), 1);
    EXPECT_EQ(RegKey(t.path(L"D").c_str(), RegKey::OpDelete).IsReady(), 1);
    for (const wchar_t* rel : {L"A\\B", L"Two\\Parts", L"Del\\Deep", L"Rel", L"D"})
        EXPECT_TRUE(vxtest::RawKeyExists(t.sub(rel))) << testing::PrintToString(std::wstring(rel));

    RegKey byPath(t.path(L"A\\B").c_str(), RegKey::OpWriteAlways), rel(parent, L"A\\B", RegKey::OpRead);
    EXPECT_EQ(byPath.GetDword(L"V", 0), 7u);
    EXPECT_EQ(Try([&] { return byPath.PutDword(L"V", 8, 0); }), Failed(ERROR_ACCESS_DENIED)) << "opened with write access";
    EXPECT_EQ(Try([&] { return rel.PutDword(L"V", 8, 0); }), Failed(ERROR_ACCESS_DENIED)) << "opened with write access";
}

// Catches an off-by-one in the level count and a parent open that creates the last level.
TEST(RegKeyPath, OpenParentStopsTheGivenNumberOfLevelsAbove)
{
    ScopedTestKey t(L"parent");
    for (const wchar_t* rel : {L"A", L"A\\B", L"A\\B\\C"})
        ASSERT_TRUE(vxtest::RawSetStr(t.sub(rel), L"Marker", rel));
    RegKey k;
    const wchar_t* expect[] = {L"A\\B\\C", L"A\\B", L"A"};
    for (int levels = 0; levels < 3; ++levels) {
        ASSERT_TRUE(k.OpenParent(t.path(L"A\\B\\C").c_str(), 0, levels));
        EXPECT_EQ(Marker(k), expect[levels]);
        k.Close();
    }
    EXPECT_EQ(RegKey::OpenKey(L"HKCU\\Software", 0, 1), HKEY_CURRENT_USER);
    ASSERT_TRUE(k.OpenParent(t.path(L"X\\Y\\Z").c_str(), 1, 1));
    EXPECT_TRUE(vxtest::RawKeyExists(t.sub(L"X\\Y")));
    EXPECT_FALSE(vxtest::RawKeyExists(t.sub(L"X\\Y\\Z")));
}

} // namespace
