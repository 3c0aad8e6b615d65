// StrList: the owned string lists of the settings, how they compare, and how they are kept in the
// product's per-user key.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/ProductInfo.h"
#include "storage/StrList.h"
#include "support/Guards.h"
#include "support/TestSupport.h"

namespace {

typedef std::vector<std::wstring> Strings;

Strings Items(const StrList& list)
{
    Strings out;
    for (DMPos pos = list.GetHeadPosition(); pos;) {
        const wchar_t* s = list.GetNext(pos);
        out.push_back(s ? s : L"<null>");
    }
    return out;
}

StrList& Fill(StrList& list, const Strings& items)
{
    list.RemoveAll();
    for (const auto& s : items)
        list.AddTail(s == L"<null>" ? nullptr : s.c_str());
    return list;
}

// A literal with embedded zeros, without its own terminator.
template <size_t N> std::wstring Z(const wchar_t (&s)[N]) { return std::wstring(s, N - 1); }

TEST(StrList, HoldsItsOwnCopiesAndCopiesDeeply)
{
    StrList list, copy;
    wchar_t buf[8] = L"Users";
    DMPos users = list.AddTail(buf);
    buf[0] = L'X';
    list.AddHead(nullptr);
    EXPECT_EQ(Fill(copy, {L"old"}).CopyFrom(list), 1);
    EXPECT_EQ(list.ReplaceAt(users, L"changed"), 1);
    EXPECT_EQ(Items(list), Strings({L"<null>", L"changed"}));
    EXPECT_EQ(Items(copy), Strings({L"<null>", L"Users"}));
}

TEST(StrList, FindsIgnoringCaseWholeOrByPrefix)
{
    StrList list, other;
    Fill(list, {L"Users", L"Admins", L"admins", L"Adm"});
    DMPos admins = list.FindIndex(1), lower = list.FindIndex(2), adm = list.FindIndex(3);
    EXPECT_EQ(list.FindStrExactIgnoreCase(L"ADMINS"), admins) << "the first of equal entries";
    EXPECT_EQ(list.FindStr(L"ad", 0, 1), admins) << "a prefix, ignoring case";
    EXPECT_EQ(list.FindStr(L"ad", 1, 1), nullptr) << "whole: no entry is \"ad\"";
    EXPECT_EQ(list.FindStr(L"adm", 0, 0), lower) << "a prefix, exact case";
    EXPECT_EQ(list.FindStr(L"Adminsx", 0, 1), nullptr) << "longer than every entry";
    // Against another list: the first string of the other list, in its order, that this one holds.
    EXPECT_EQ(list.FindStrExactIgnoreCase(Fill(other, {L"nobody", L"ADM", L"USERS"})), adm);
    EXPECT_EQ(list.FindStrExactIgnoreCase(Fill(other, {L"nobody", L"Guests"})), nullptr);
}

TEST(StrList, ComparesInOrderOrRegardlessOfOrder)
{
    struct { Strings a, b; int different, differentIgnoreSort; } cases[] = {
        {{L"a", L"b"}, {L"A", L"b"}, 1, 1}, // case-sensitive
        {{L"a", L"b"}, {L"a", L"b"}, 0, 0}, {{L"a", L"b"}, {L"b", L"a"}, 1, 0}, {{L"a", L"b"}, {L"b", L"a", L"c"}, 1, 1},
        {{L"a", L"a", L"b"}, {L"a", L"b", L"b"}, 1, 1}, // a repeated string counts as often as it appears
        {{L"a", L"a", L"b"}, {L"b", L"a", L"a"}, 1, 0},
    };
    for (auto& c : cases) {
        StrList a, b;
        SCOPED_TRACE(&c - cases);
        EXPECT_EQ(Fill(a, c.a).IsDifferent(Fill(b, c.b)), c.different);
        EXPECT_EQ(a.IsDifferentIgnoreSort(b), c.differentIgnoreSort);
        EXPECT_EQ(b.IsDifferentIgnoreSort(a), c.differentIgnoreSort);
    }
}

// Each test points the product's per-user key at its own test key.
class StrListStore : public ::testing::Test {
protected:
    vxtest::ScopedTestKey key{L"strlist"};
    vxtest::ScopedAppRootKey root{key.path()};
    void SetUp() override { ASSERT_EQ(root.pushed(), 1); }
    DWORD type = 0;
    std::vector<BYTE> data;
};

TEST_F(StrListStore, StoresDoubleZeroBlockLoadsItBackAndSkipsUnchanged)
{
    // Without a value name nothing is read or written, not even the key created.
    EXPECT_EQ(StrList().Store() + StrList(L"").Store() + StrList(L"").Load(), 0);
    EXPECT_FALSE(vxtest::RawKeyExists(key.sub()));
    struct { Strings items; std::wstring block; Strings loaded; } cases[] = {
        {{}, std::wstring(1, L'\0'), {}}, // two zero bytes
        {{L"Admins", L"Users", L"\x00C9quipe"}, Z(L"Admins\0Users\0\x00C9quipe\0\0"), {L"Admins", L"Users", L"\x00C9quipe"}},
        // a null entry is stored as empty, so the list ends there when loaded again
        {{L"Admins", L"<null>", L"Users"}, Z(L"Admins\0\0Users\0\0"), {L"Admins"}},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(c.items.size());
        StrList list(L"Exclude"), loaded(L"Exclude");
        EXPECT_EQ(Fill(list, c.items).Store(), 1);
        ASSERT_TRUE(vxtest::RawGet(key.sub(), L"Exclude", &type, &data));
        const BYTE* want = (const BYTE*)c.block.data();
        EXPECT_EQ(data, std::vector<BYTE>(want, want + c.block.size() * 2));
        EXPECT_EQ(type, (DWORD)REG_BINARY);
        loaded.AddTail(L"stale");
        EXPECT_EQ(loaded.Load(), 1);
        EXPECT_EQ(Items(loaded), c.loaded);
        // The same bytes under another type: storing the same list again must not rewrite them.
        ASSERT_TRUE(vxtest::RawSetBin(key.sub(), L"Exclude", data.data(), (DWORD)data.size(), REG_NONE));
        EXPECT_EQ(list.Store(), 1);
        ASSERT_TRUE(vxtest::RawGet(key.sub(), L"Exclude", &type, &data));
        EXPECT_EQ(type, (DWORD)REG_NONE) << "the same list wrote again";
    }
    StrList other(L"Other");
    EXPECT_EQ(other.Load(), 0) << "absent";
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_FILE_NOT_FOUND);
}

TEST_F(StrListStore, HostileDataIsNeverReadPastItsEnd)
{
    std::vector<BYTE> big(StrList::nMaxStoreBytes, 0), bigger(StrList::nMaxStoreBytes + 1, 'x');
    for (size_t i = 0; i < big.size(); i += 2)
        big[i] = 'x';
    struct { const char* what; std::vector<BYTE> data; DWORD type; int result; Strings want; } cases[] = {
        {"odd byte count", {'a', 0, 0, 0, 'b', 0, 'c'}, REG_BINARY, 1, {L"a", L"b"}},
        {"no zeros at all", {'a', 0, 'b', 0}, REG_BINARY, 1, {L"ab"}},
        {"empty first string", {0, 0, 'a', 0, 0, 0}, REG_BINARY, 1, {}},
        {"one byte", {'a'}, REG_BINARY, 1, {}}, {"zero bytes", {}, REG_BINARY, 1, {}},
        {"multi-string type", {'x', 0, 0, 0, 'y', 0, 0, 0, 0, 0}, REG_MULTI_SZ, 1, {L"x", L"y"}},
        {"largest accepted, no zeros", big, REG_BINARY, 1, {std::wstring(StrList::nMaxStoreBytes / 2, L'x')}},
        {"one byte more is refused", bigger, REG_BINARY, 0, {}},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(c.what);
        ASSERT_TRUE(vxtest::RawSetBin(key.sub(), L"L", c.data.data(), (DWORD)c.data.size(), c.type));
        StrList list(L"L");
        list.AddTail(L"stale");
        SetLastError(0xdeadbeef);
        EXPECT_EQ(list.Load(), c.result);
        EXPECT_EQ(Items(list), c.want);
        if (!c.result) {
            EXPECT_EQ(GetLastError(), (DWORD)ERROR_MORE_DATA);
        }
    }
}

} // namespace
