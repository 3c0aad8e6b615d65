// Opening keys: the path syntax every settings record is addressed with, creation of missing
// levels, read-only opens, relative opens, and the handle ownership rules of RegKey objects.
#include <gtest/gtest.h>

#include "storage/RegKey.h"
#include "support/TestSupport.h"
#include "RegTestUtil.h"

using vxtest::ScopedTestKey;

namespace {

// The value "Marker" tells which key a handle really refers to.
std::wstring Marker(HKEY k)
{
    wchar_t buf[64] = {};
    DWORD cb = sizeof(buf) - sizeof(wchar_t);
    if (!k || RegQueryValueExW(k, L"Marker", nullptr, nullptr, (BYTE*)buf, &cb) != ERROR_SUCCESS)
        return L"<none>";
    return buf;
}

TEST(RegKeyPath, RootNamesInEitherSpellingAndCase)
{
    EXPECT_EQ(RegKey::OpenKey(L"HKLM", 0, 0), HKEY_LOCAL_MACHINE);
    EXPECT_EQ(RegKey::OpenKey(L"hkey_local_machine", 0, 0), HKEY_LOCAL_MACHINE);
    EXPECT_EQ(RegKey::OpenKey(L"HKCU", 0, 0), HKEY_CURRENT_USER);
    EXPECT_EQ(RegKey::OpenKey(L"HKEY_CURRENT_USER", 0, 0), HKEY_CURRENT_USER);
    EXPECT_EQ(RegKey::OpenKey(L"hku", 0, 0), HKEY_USERS);
    EXPECT_EQ(RegKey::OpenKey(L"HKEY_USERS", 0, 0), HKEY_USERS);
    EXPECT_EQ(RegKey::OpenKey(L"HKCLS", 0, 0), HKEY_CLASSES_ROOT);
    EXPECT_EQ(RegKey::OpenKey(L"HKEY_CLASSES_ROOT", 0, 0), HKEY_CLASSES_ROOT);
    EXPECT_EQ(RegKey::OpenKey(L"", 0, 0), nullptr);
    EXPECT_EQ(RegKey::OpenKey(L"Bogus", 0, 0), nullptr) << "no root name, no key";

    // Both spellings reach the same machine key: same subkey and value counts.
    RegKey a(L"hklm\\software", 0), b(L"HKEY_LOCAL_MACHINE\\Software", 0);
    ASSERT_TRUE(a.IsReady());
    ASSERT_TRUE(b.IsReady());
    DWORD subA = 0, subB = 1, valA = 0, valB = 1;
    ASSERT_EQ(RegQueryInfoKeyW(a, nullptr, nullptr, nullptr, &subA, nullptr, nullptr, &valA, nullptr, nullptr, nullptr, nullptr), ERROR_SUCCESS);
    ASSERT_EQ(RegQueryInfoKeyW(b, nullptr, nullptr, nullptr, &subB, nullptr, nullptr, &valB, nullptr, nullptr, nullptr, nullptr), ERROR_SUCCESS);
    EXPECT_EQ(subA, subB);
    EXPECT_EQ(valA, valB);
    EXPECT_GT(subA, 0u);
}

TEST(RegKeyPath, SpellingsUnknownRootsAndDoubledBackslashesReachTheSameKey)
{
    ScopedTestKey t(L"path");
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(), L"Marker", L"here"));
    const std::wstring sub = t.sub();
    const std::wstring paths[] = {
        t.path(),
        L"hkcu\\" + sub,
        L"HKEY_CURRENT_USER\\" + sub,
        L"Bogus\\HKCU\\" + sub,
        L"Bogus\\Other\\HKEY_CURRENT_USER\\" + sub,
        L"\\\\HKCU\\\\Software\\\\VantrelTests\\" + sub.substr(sub.rfind(L'\\') + 1) + L"\\\\",
    };
    for (const auto& p : paths) {
        SCOPED_TRACE(p);
        RegKey k(p.c_str(), 0);
        ASSERT_TRUE(k.IsReady());
        EXPECT_EQ(Marker(k), L"here");
    }
}

TEST(RegKeyPath, CreateMakesEveryMissingLevelAndReadOnlyOpensNothing)
{
    ScopedTestKey t(L"create");
    {
        RegKey ro(t.path(L"A\\B\\C").c_str(), 0);
        EXPECT_FALSE(ro.IsReady());
        EXPECT_EQ(ro.GetKey(), nullptr);
        EXPECT_FALSE(vxtest::RawKeyExists(t.sub())) << "a read-only open must not create";
    }
    {
        RegKey k(t.path(L"A\\B\\C").c_str(), 1);
        ASSERT_TRUE(k.IsReady());
        EXPECT_TRUE(k.PutDword(L"V", 7, 1)) << "created keys are writable";
    }
    EXPECT_EQ(vxtest::RawGetDword(t.sub(L"A\\B\\C"), L"V"), 7u);

    // A read-only key refuses writes: proves KEY_READ rather than full access.
    RegKey ro(t.path(L"A\\B\\C").c_str(), 0);
    ASSERT_TRUE(ro.IsReady());
    EXPECT_EQ(ro.GetDword(L"V", 0), 7u);
    EXPECT_FALSE(ro.PutDword(L"V", 8, 0));
    EXPECT_FALSE(ro.PutStr(L"S", L"x", 0));
    EXPECT_EQ(vxtest::RawGetDword(t.sub(L"A\\B\\C"), L"V"), 7u);

    // Two-part paths are joined with a backslash.
    RegKey two(t.path().c_str(), L"Two\\Parts", 1);
    EXPECT_TRUE(two.IsReady());
    EXPECT_TRUE(vxtest::RawKeyExists(t.sub(L"Two\\Parts")));
    RegKey twoRo;
    EXPECT_FALSE(twoRo.Open(t.path().c_str(), L"Missing", 0));
}

TEST(RegKeyPath, OpByOperationOpensWritableOnlyForDeleteAndWrite)
{
    EXPECT_FALSE(RegKey::IsWritable(RegKey::OpCheck));
    EXPECT_TRUE(RegKey::IsWritable(RegKey::OpDelete));
    EXPECT_TRUE(RegKey::IsWritable(RegKey::OpWrite));
    EXPECT_FALSE(RegKey::IsWritable(RegKey::OpRead));
    EXPECT_FALSE(RegKey::IsWritable(RegKey::OpCheckAbsent));
    EXPECT_FALSE(RegKey::IsWritable(RegKey::OpCheckNoCase));
    EXPECT_FALSE(RegKey::IsWritable(RegKey::OpWriteAlways));

    ScopedTestKey t(L"ops");
    {
        RegKey r(t.path(L"R").c_str(), RegKey::OpRead);
        EXPECT_FALSE(r.IsReady());
        RegKey wa(t.path(L"R").c_str(), RegKey::OpWriteAlways);
        EXPECT_FALSE(wa.IsReady()) << "OpWriteAlways opens read-only, so it never creates";
        EXPECT_FALSE(vxtest::RawKeyExists(t.sub(L"R")));
        RegKey w(t.path(L"R").c_str(), RegKey::OpWrite);
        EXPECT_TRUE(w.IsReady());
        RegKey d(t.path(L"D").c_str(), RegKey::OpDelete);
        EXPECT_TRUE(d.IsReady());
    }
    EXPECT_TRUE(vxtest::RawKeyExists(t.sub(L"R")));
    EXPECT_TRUE(vxtest::RawKeyExists(t.sub(L"D")));
    RegKey wa(t.path(L"R").c_str(), RegKey::OpWriteAlways);
    ASSERT_TRUE(wa.IsReady());
    EXPECT_FALSE(wa.PutDword(L"V", 1, 0)) << "an OpWriteAlways key is read-only";
}

TEST(RegKeyPath, OpenParentStopsTheGivenNumberOfLevelsAbove)
{
    ScopedTestKey t(L"parent");
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(L"A\\B\\C"), L"Marker", L"C"));
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(L"A\\B"), L"Marker", L"B"));
    ASSERT_TRUE(vxtest::RawSetStr(t.sub(L"A"), L"Marker", L"A"));
    const std::wstring abc = t.path(L"A\\B\\C");

    RegKey k;
    ASSERT_TRUE(k.OpenParent(abc.c_str(), 0, 1));
    EXPECT_EQ(Marker(k), L"B");
    k.Close();
    ASSERT_TRUE(k.OpenParent(abc.c_str(), 0, 2));
    EXPECT_EQ(Marker(k), L"A");
    k.Close();
    ASSERT_TRUE(k.OpenParent(abc.c_str(), 0, 0));
    EXPECT_EQ(Marker(k), L"C") << "0 levels is the key itself";
    k.Close();

    EXPECT_EQ(RegKey::OpenKey(L"HKCU\\Software", 0, 1), HKEY_CURRENT_USER);

    // Creating a parent creates the levels down to it, not the last one.
    const std::wstring xyz = t.path(L"X\\Y\\Z");
    ASSERT_TRUE(k.OpenParent(xyz.c_str(), 1, 1));
    k.Close();
    EXPECT_TRUE(vxtest::RawKeyExists(t.sub(L"X\\Y")));
    EXPECT_FALSE(vxtest::RawKeyExists(t.sub(L"X\\Y\\Z")));
    EXPECT_FALSE(k.OpenParent(t.path(L"Q\\R\\S").c_str(), 0, 1));
}

TEST(RegKeyPath, RelativeOpens)
{
    ScopedTestKey t(L"rel");
    RegKey parent(t.path().c_str(), 1);
    ASSERT_TRUE(parent.IsReady());

    RegKey missing(parent, L"Child", 0);
    EXPECT_FALSE(missing.IsReady());
    EXPECT_FALSE(vxtest::RawKeyExists(t.sub(L"Child")));
    // Only OpDelete and OpWrite create (1 <= op < 3).
    for (RegKey::Op op : {RegKey::OpCheck, RegKey::OpRead, RegKey::OpCheckAbsent, RegKey::OpCheckNoCase, RegKey::OpWriteAlways}) {
        SCOPED_TRACE(op);
        RegKey k(parent, L"Child", op);
        EXPECT_FALSE(k.IsReady());
    }
    EXPECT_FALSE(vxtest::RawKeyExists(t.sub(L"Child")));
    {
        RegKey del(parent, L"ByDelete\\Deep", RegKey::OpDelete);
        EXPECT_TRUE(del.IsReady());
        RegKey wr(parent, L"Child", RegKey::OpWrite);
        ASSERT_TRUE(wr.IsReady());
        EXPECT_TRUE(wr.PutDword(L"V", 3, 1));
    }
    EXPECT_TRUE(vxtest::RawKeyExists(t.sub(L"ByDelete\\Deep")));
    EXPECT_EQ(vxtest::RawGetDword(t.sub(L"Child"), L"V"), 3u);

    RegKey ro;
    ASSERT_TRUE(ro.Open(parent, L"Child", 0));
    EXPECT_EQ(ro.GetDword(L"V", 0), 3u);
    EXPECT_FALSE(ro.PutDword(L"V", 4, 0)) << "relative read-only opens use KEY_READ";
}

TEST(RegKeyPath, HandleOwnershipCopyAttachDetach)
{
    ScopedTestKey t(L"own");
    ASSERT_TRUE(vxtest::RawCreateKey(t.sub(L"S0")));
    ASSERT_TRUE(vxtest::RawCreateKey(t.sub(L"S1")));
    ASSERT_TRUE(vxtest::RawCreateKey(t.sub(L"S2")));
    RegKey a(t.path().c_str(), 0);
    ASSERT_TRUE(a.IsReady());
    wchar_t name[64], expect[64];
    ASSERT_TRUE(a.GetFirstSubKey(name, 64));
    ASSERT_TRUE(a.GetNextSubKey(name, 64));
    {
        // A copy shares the handle and the enumeration cursor.
        RegKey b(a);
        EXPECT_EQ(b.GetKey(), a.GetKey());
        ASSERT_TRUE(b.GetNextSubKey(name, 64));
        ASSERT_TRUE(a.GetSubKeyByIndex(2, expect, 64));
        EXPECT_STREQ(name, expect);
        EXPECT_EQ(b.Detach(), a.GetKey());
        EXPECT_FALSE(b.IsReady());
    }
    {
        RegKey c;
        c = a;
        EXPECT_EQ((HKEY)c, a.GetKey());
        c.Detach();
    }
    DWORD n = 0;
    EXPECT_EQ(RegQueryInfoKeyW(a, nullptr, nullptr, nullptr, &n, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), ERROR_SUCCESS)
        << "the detached copies left the handle open";
    EXPECT_EQ(n, 3u);

    // Attach closes the handle held before; Detach hands the handle over unclosed.
    HKEY h0 = nullptr, h1 = nullptr;
    ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, t.sub(L"S0").c_str(), 0, KEY_READ, &h0), ERROR_SUCCESS);
    ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, t.sub(L"S1").c_str(), 0, KEY_READ, &h1), ERROR_SUCCESS);
    RegKey k;
    EXPECT_TRUE(k.Attach(h0));
    EXPECT_EQ(k.GetKey(), h0);
    EXPECT_TRUE(k.Attach(h1));
    EXPECT_EQ(RegQueryInfoKeyW(h0, nullptr, nullptr, nullptr, &n, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), ERROR_INVALID_HANDLE);
    EXPECT_EQ(k.Detach(), h1);
    EXPECT_FALSE(k.IsReady());
    EXPECT_EQ(RegQueryInfoKeyW(h1, nullptr, nullptr, nullptr, &n, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), ERROR_SUCCESS);
    k.Attach(h1);
    k.Close();
    EXPECT_FALSE(k.IsReady());
    EXPECT_EQ(k.GetKey(), nullptr);
    k.Close(); // closing twice is harmless
}

} // namespace
