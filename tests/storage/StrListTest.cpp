// StrList: the settings' string lists and how they are kept in the product's per-user key.
#include <gtest/gtest.h>

#include "storage/StrList.h"
#include "support/Guards.h"
#include "support/TestSupport.h"

namespace {
typedef std::vector<std::wstring> Strings;

StrList& Fill(StrList& list, const Strings& items)
{
    list.RemoveAll();
    for (const auto& s : items)
        list.AddTail(s == L"<null>" ? nullptr : s.c_str());
    return list;
}

// Copies own their strings; lookups follow the other list's order; comparisons mind case and repeats.
TEST(StrList, OwnsCopiesFindsAndCompares)
{
    StrList list, copy;
    wchar_t buf[8] = L"Users";
    list.AddTail(buf);
    buf[0] = L'X';
    EXPECT_EQ(Fill(copy, {L"old"}).CopyFrom(list), 1);
    Fill(list, {L"Users", L"Admins", L"admins", L"Adm"});
    EXPECT_EQ(vxtest::Items(copy), Strings({L"Users"})) << "each list owns copies of its strings";
    EXPECT_EQ(list.FindStrExactIgnoreCase(L"ADMINS"), list.FindIndex(1)) << "the first of equal entries";
    EXPECT_EQ(list.FindStrExactIgnoreCase(Fill(copy, {L"nobody", L"ADM", L"USERS"})), list.FindIndex(3));
    const struct { Strings a, b; int different, ignoringOrder; } cases[] = {{{L"a", L"b"}, {L"A", L"b"}, 1, 1}, {{L"a", L"b"}, {L"a", L"b"}, 0, 0},
        {{L"a", L"b"}, {L"b", L"a"}, 1, 0}, {{L"a", L"b"}, {L"b", L"a", L"c"}, 1, 1}, {{L"a", L"a", L"b"}, {L"a", L"b", L"b"}, 1, 1}};
    StrList a, b;
    for (const auto& c : cases) // the comma operator fills both lists before comparing
        EXPECT_EQ((Fill(a, c.a), Fill(b, c.b), a.IsDifferent(b) * 10 + a.IsDifferentIgnoreSort(b) + b.IsDifferentIgnoreSort(a)), c.different * 10 + c.ignoringOrder * 2) << &c - cases;
}

// One double-zero block in the per-user key, not rewritten when unchanged; bad data read safely.
TEST(StrList, StoresADoubleZeroBlockAndLoadsHostileDataSafely)
{
    vxtest::ScopedTestKey key{L"strlist"};
    vxtest::ScopedAppRootKey root{key.path()};
    ASSERT_EQ(root.pushed(), 1);
    DWORD type = 0;
    std::vector<BYTE> data, big(StrList::nMaxStoreBytes, 'x'), bigger(StrList::nMaxStoreBytes + 1, 'x');
    EXPECT_EQ(StrList().Store() + StrList(L"").Load(), 0) << "without a value name nothing is read or written";
    EXPECT_FALSE(vxtest::RawKeyExists(key.sub()));
    const struct { Strings items; std::wstring block; Strings loaded; } cases[] = {{{}, std::wstring(1, L'\0'), {}},
        {{L"Admins", L"\x00C9quipe"}, std::wstring(L"Admins\0\x00C9quipe\0\0", 15), {L"Admins", L"\x00C9quipe"}},
        {{L"Admins", L"<null>", L"Users"}, std::wstring(L"Admins\0\0Users\0\0", 15), {L"Admins"}}}; // a null entry ends the list
    for (const auto& c : cases) {
        StrList list(L"Exclude"), loaded(L"Exclude");
        EXPECT_EQ(Fill(list, c.items).Store(), 1);
        ASSERT_TRUE(vxtest::RawGet(key.sub(), L"Exclude", &type, &data));
        EXPECT_EQ(data, std::vector<BYTE>((const BYTE*)c.block.data(), (const BYTE*)(c.block.data() + c.block.size())));
        EXPECT_EQ(type, (DWORD)REG_BINARY);
        EXPECT_EQ(Fill(loaded, {L"stale"}).Load(), 1);
        EXPECT_EQ(vxtest::Items(loaded), c.loaded);
        ASSERT_TRUE(vxtest::RawSetBin(key.sub(), L"Exclude", data.data(), (DWORD)data.size(), REG_NONE));
        EXPECT_EQ(list.Store(), 1);
        EXPECT_TRUE(vxtest::RawGet(key.sub(), L"Exclude", &type, &data) && type == REG_NONE) << "the same list was written again";
    }
    for (size_t i = 1; i < big.size(); i += 2)
        big[i] = 0;
    const struct { std::vector<BYTE> data; DWORD type; int result; Strings want; } hostile[] = {
        {{}, REG_NONE, 0, {}}, {{'a', 0, 0, 0, 'b', 0, 'c'}, REG_BINARY, 1, {L"a", L"b"}}, {{'a', 0, 'b', 0}, REG_BINARY, 1, {L"ab"}},
        {{'a'}, REG_BINARY, 1, {}}, {{'x', 0, 0, 0, 'y', 0, 0, 0, 0, 0}, REG_MULTI_SZ, 1, {L"x", L"y"}}, // absent, odd count, no zeros
        {big, REG_BINARY, 1, {std::wstring(StrList::nMaxStoreBytes / 2, L'x')}}, {bigger, REG_BINARY, 0, {}}}; // the largest accepted
    for (const auto& c : hostile) {
        StrList list(L"L");
        ASSERT_TRUE(c.type == REG_NONE || vxtest::RawSetBin(key.sub(), L"L", c.data.data(), (DWORD)c.data.size(), c.type));
        EXPECT_EQ(Fill(list, {L"stale"}).Load(), c.result) << &c - hostile;
        EXPECT_EQ(GetLastError(), c.result ? GetLastError() : c.type ? (DWORD)ERROR_MORE_DATA : (DWORD)ERROR_FILE_NOT_FOUND) << &c - hostile;
        EXPECT_EQ(vxtest::Items(list), c.want) << &c - hostile;
    }
}

} // namespace
