// StrList: the owned string lists of the settings, how they compare, and how they are kept in the
// product's per-user key.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/ProductInfo.h"
#include "storage/StrList.h"
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

void Fill(StrList& list, const Strings& items)
{
    list.RemoveAll();
    for (const auto& s : items)
        list.AddTail(s.c_str());
}

// The bytes of a literal with embedded zeros, without the literal's own terminator.
template <size_t N> std::vector<BYTE> Block(const wchar_t (&s)[N])
{
    const BYTE* p = (const BYTE*)s;
    return std::vector<BYTE>(p, p + (N - 1) * sizeof(wchar_t));
}

TEST(StrList, HoldsItsOwnCopies)
{
    StrList list;
    wchar_t buf[8] = L"Users";
    DMPos users = list.AddTail(buf);
    buf[0] = L'X';
    list.AddHead(L"Guests");
    list.AddTail(L"Users"); // duplicates are kept
    list.AddTail(nullptr);
    EXPECT_EQ(Items(list), Strings({L"Guests", L"Users", L"Users", L"<null>"}));
    EXPECT_NE(list.GetAt(users), buf);

    EXPECT_EQ(list.ReplaceAt(users, L"Remote Desktop Users"), 1);
    EXPECT_EQ(list.ReplaceAt(list.GetTailPosition(), L"Admins"), 1);
    EXPECT_EQ(list.ReplaceAt(list.GetHeadPosition(), nullptr), 1);
    EXPECT_EQ(list.ReplaceAt(nullptr, L"x"), 0);
    EXPECT_EQ(Items(list), Strings({L"<null>", L"Remote Desktop Users", L"Users", L"Admins"}));
    EXPECT_EQ(list.GetCount(), 4u);
}

TEST(StrList, FindsIgnoringCaseWholeOrByPrefix)
{
    StrList one;
    one.AddTail(L"a");
    EXPECT_EQ(one.FindStrExactIgnoreCase(L"A"), one.GetHeadPosition());
    EXPECT_EQ(one.FindStrExactIgnoreCase(L"a "), nullptr);
    EXPECT_EQ(one.FindStrExactIgnoreCase(L""), nullptr);

    StrList list;
    Fill(list, {L"Users", L"Admins", L"admins", L"Adm"});
    DMPos admins = list.FindIndex(1), lower = list.FindIndex(2), adm = list.FindIndex(3);
    EXPECT_EQ(list.FindStr(L"ad", 0, 1), admins) << "a prefix, ignoring case";
    EXPECT_EQ(list.FindStr(L"ad", 1, 1), nullptr) << "whole: no entry is \"ad\"";
    EXPECT_EQ(list.FindStr(L"ADM", 1, 1), adm);
    EXPECT_EQ(list.FindStr(L"adm", 0, 0), lower) << "a prefix, exact case";
    EXPECT_EQ(list.FindStr(L"Admins", 1, 0), admins);
    EXPECT_EQ(list.FindStr(L"ADMINS", 1, 0), nullptr);
    EXPECT_EQ(list.FindStr(L"Adminsx", 0, 1), nullptr) << "longer than every entry";
    EXPECT_EQ(list.FindStrExactIgnoreCase(L"ADMINS"), admins) << "the first of equal entries";

    // Against another list: the first string of the other list, in its order, that this one holds.
    StrList other;
    Fill(other, {L"nobody", L"ADM", L"USERS"});
    EXPECT_EQ(list.FindStrExactIgnoreCase(other), adm);
    Fill(other, {L"nobody", L"Guests"});
    EXPECT_EQ(list.FindStrExactIgnoreCase(other), nullptr);
    other.RemoveAll();
    EXPECT_EQ(list.FindStrExactIgnoreCase(other), nullptr);
}

TEST(StrList, ComparesInOrderOrRegardlessOfOrder)
{
    StrList a, b;
    Fill(a, {L"a", L"b"});
    Fill(b, {L"A", L"b"});
    EXPECT_EQ(a.IsDifferent(b), 1) << "case-sensitive";
    EXPECT_EQ(a.IsDifferentIgnoreSort(b), 1) << "case-sensitive";
    Fill(b, {L"a", L"b"});
    EXPECT_EQ(a.IsDifferent(b), 0);
    EXPECT_EQ(a.IsDifferentIgnoreSort(b), 0);
    Fill(b, {L"b", L"a"});
    EXPECT_EQ(a.IsDifferent(b), 1);
    EXPECT_EQ(a.IsDifferentIgnoreSort(b), 0);
    Fill(b, {L"b", L"a", L"c"});
    EXPECT_EQ(a.IsDifferent(b), 1);
    EXPECT_EQ(a.IsDifferentIgnoreSort(b), 1);
    EXPECT_EQ(b.IsDifferentIgnoreSort(a), 1);
    Fill(b, {L"a"});
    EXPECT_EQ(a.IsDifferent(b), 1);
    EXPECT_EQ(a.IsDifferentIgnoreSort(b), 1);

    // Repeated strings count as often as they appear.
    Fill(a, {L"a", L"a", L"b"});
    Fill(b, {L"a", L"b", L"b"});
    EXPECT_EQ(a.IsDifferentIgnoreSort(b), 1);
    EXPECT_EQ(b.IsDifferentIgnoreSort(a), 1);
    Fill(b, {L"b", L"a", L"a"});
    EXPECT_EQ(a.IsDifferentIgnoreSort(b), 0);

    StrList e1, e2;
    EXPECT_EQ(e1.IsDifferent(e2), 0);
    EXPECT_EQ(e1.IsDifferentIgnoreSort(e2), 0);
}

TEST(StrList, CopyFromMakesADeepCopy)
{
    StrList src, dst;
    Fill(src, {L"x", L"y", L"x"});
    Fill(dst, {L"old"});
    EXPECT_EQ(dst.CopyFrom(src), 1);
    EXPECT_EQ(Items(dst), Strings({L"x", L"y", L"x"}));
    src.ReplaceAt(src.GetHeadPosition(), L"changed");
    src.RemoveAt(src.GetTailPosition());
    EXPECT_EQ(Items(dst), Strings({L"x", L"y", L"x"}));
    EXPECT_EQ(dst.CopyFrom(dst), 1);
    EXPECT_EQ(Items(dst), Strings({L"x", L"y", L"x"}));
    StrList empty;
    EXPECT_EQ(dst.CopyFrom(empty), 1);
    EXPECT_TRUE(dst.IsEmpty());
}

// Each test points the product's per-user key at its own test key.
class StrListStore : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(ProductInfo::PushAppRootKey(key.path().c_str()), 1); }
    void TearDown() override { ProductInfo::PopAppRootKey(); }
    std::vector<BYTE> Stored(const wchar_t* name, DWORD* type = nullptr)
    {
        std::vector<BYTE> data;
        DWORD t = 0;
        EXPECT_TRUE(vxtest::RawGet(key.sub(), name, &t, &data)) << "value missing";
        if (type)
            *type = t;
        return data;
    }
    vxtest::ScopedTestKey key{L"strlist"};
};

TEST_F(StrListStore, EmptyListIsTwoZeroBytes)
{
    StrList list(L"ApplyTo");
    EXPECT_EQ(list.Store(), 1);
    DWORD type = 0;
    EXPECT_EQ(Stored(L"ApplyTo", &type), std::vector<BYTE>({0, 0}));
    EXPECT_EQ(type, (DWORD)REG_BINARY);

    StrList loaded(L"ApplyTo");
    loaded.AddTail(L"stale");
    EXPECT_EQ(loaded.Load(), 1);
    EXPECT_TRUE(loaded.IsEmpty());
}

TEST_F(StrListStore, StoresDoubleZeroBlockAndLoadsItBack)
{
    StrList list(L"Exclude");
    Fill(list, {L"Administrators", L"Users", L"\x00C9quipe"});
    EXPECT_EQ(list.Store(), 1);
    EXPECT_EQ(Stored(L"Exclude"), Block(L"Administrators\0Users\0\x00C9quipe\0\0"));

    StrList loaded(L"Exclude");
    loaded.AddTail(L"stale");
    EXPECT_EQ(loaded.Load(), 1);
    EXPECT_EQ(Items(loaded), Items(list));

    // A null entry is stored as empty, so the list ends there when loaded again.
    list.ReplaceAt(list.FindIndex(1), nullptr);
    EXPECT_EQ(list.Store(), 1);
    EXPECT_EQ(Stored(L"Exclude"), Block(L"Administrators\0\0\x00C9quipe\0\0"));
    EXPECT_EQ(loaded.Load(), 1);
    EXPECT_EQ(Items(loaded), Strings({L"Administrators"}));

    // Another value name is another value of the same key.
    StrList other(L"Other");
    EXPECT_EQ(other.Load(), 0) << "absent";
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_FILE_NOT_FOUND);
    ASSERT_EQ(other.SetValueName(L"Exclude"), 1);
    EXPECT_EQ(other.Load(), 1);
    EXPECT_EQ(other.GetCount(), 1u);
}

TEST_F(StrListStore, UnchangedListIsNotRewritten)
{
    StrList list(L"ApplyTo");
    Fill(list, {L"Users", L"Guests"});
    ASSERT_EQ(list.Store(), 1);
    // The same bytes under another type: a rewrite would make the value REG_BINARY again.
    DWORD type = 0;
    std::vector<BYTE> data;
    ASSERT_TRUE(vxtest::RawGet(key.sub(), L"ApplyTo", &type, &data));
    ASSERT_TRUE(vxtest::RawSetBin(key.sub(), L"ApplyTo", data.data(), (DWORD)data.size(), REG_NONE));
    EXPECT_EQ(list.Store(), 1);
    ASSERT_TRUE(vxtest::RawGet(key.sub(), L"ApplyTo", &type, &data));
    EXPECT_EQ(type, (DWORD)REG_NONE) << "the same list wrote again";

    // A changed list is written.
    list.AddTail(L"Remote Desktop Users");
    EXPECT_EQ(list.Store(), 1);
    ASSERT_TRUE(vxtest::RawGet(key.sub(), L"ApplyTo", &type, &data));
    EXPECT_EQ(type, (DWORD)REG_BINARY);
}

TEST_F(StrListStore, NoValueNameDoesNothing)
{
    StrList list;
    list.AddTail(L"Users");
    EXPECT_EQ(list.Store(), 0);
    EXPECT_EQ(list.Load(), 0);
    EXPECT_TRUE(list.IsEmpty()) << "Load empties the list first";
    EXPECT_FALSE(vxtest::RawKeyExists(key.sub())) << "not even the key is created";
    StrList empty(L"");
    EXPECT_EQ(empty.Store(), 0);
    EXPECT_FALSE(vxtest::RawKeyExists(key.sub()));
    EXPECT_EQ(empty.Load(), 0) << "missing key";
}

TEST_F(StrListStore, HostileDataIsNeverReadPastItsEnd)
{
    struct Case {
        const char* what;
        std::vector<BYTE> data;
        DWORD type;
        int result;
        Strings want;
    };
    const Case cases[] = {
        {"odd byte count", {'a', 0, 0, 0, 'b', 0, 'c'}, REG_BINARY, 1, {L"a", L"b"}},
        {"odd byte in a string", {'a', 0, 'b'}, REG_BINARY, 1, {L"a"}},
        {"no zeros at all", {'a', 0, 'b', 0}, REG_BINARY, 1, {L"ab"}},
        {"one zero, no closing zero", {'a', 0, 0, 0, 'b', 0}, REG_BINARY, 1, {L"a", L"b"}},
        {"empty first string", {0, 0, 'a', 0, 0, 0}, REG_BINARY, 1, {}},
        {"one byte", {'a'}, REG_BINARY, 1, {}},
        {"zero bytes", {}, REG_BINARY, 1, {}},
        {"multi-string type", {'x', 0, 0, 0, 'y', 0, 0, 0, 0, 0}, REG_MULTI_SZ, 1, {L"x", L"y"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        ASSERT_TRUE(vxtest::RawSetBin(key.sub(), L"L", c.data.data(), (DWORD)c.data.size(), c.type));
        StrList list(L"L");
        list.AddTail(L"stale");
        EXPECT_EQ(list.Load(), c.result);
        EXPECT_EQ(Items(list), c.want);
    }

    // The largest accepted value, without a single zero: one long string.
    std::vector<BYTE> big(StrList::nMaxStoreBytes, 'x');
    for (size_t i = 1; i < big.size(); i += 2)
        big[i] = 0;
    ASSERT_TRUE(vxtest::RawSetBin(key.sub(), L"L", big.data(), (DWORD)big.size()));
    StrList list(L"L");
    EXPECT_EQ(list.Load(), 1);
    ASSERT_EQ(list.GetCount(), 1u);
    EXPECT_EQ(std::wstring(list.GetAt(list.GetHeadPosition())), std::wstring(StrList::nMaxStoreBytes / 2, L'x'));

    // One byte more is refused, leaving an empty list.
    big.push_back('x');
    ASSERT_TRUE(vxtest::RawSetBin(key.sub(), L"L", big.data(), (DWORD)big.size()));
    SetLastError(0xdeadbeef);
    EXPECT_EQ(list.Load(), 0);
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_MORE_DATA);
    EXPECT_TRUE(list.IsEmpty());
}

} // namespace
