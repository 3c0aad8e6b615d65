// The options framework: flag sets, and records loaded from and stored to their registry key.
#include <gtest/gtest.h>

#include <string>

#include "base/ProductInfo.h"
#include "base/StrUtil.h"
#include "settings/DMOpts.h"
#include "storage/RegKey.h"
#include "support/Guards.h"
#include "support/TestSupport.h"

using namespace vxtest;

namespace {

// A small record as the product declares them: fields, defaults and the two hooks.
class SampleOpts : public BoolOpts {
public:
    SampleOpts() : BoolOpts(L"Options") { Reset(); }
    void Reset() override
    {
        BoolOpts::Reset();
        SetAll(0x10);
        nCount = 7;
        StrCopy(szName, L"default");
        ++nResets;
    }
    void OnLoad(RegKey& key) override
    {
        key.ProcessEntry(RegKey::OpRead, L"Count", nCount);
        key.ProcessEntry(RegKey::OpRead, L"Name", szName, 64);
        if (!szName[0])
            StrCopy(szName, L"default");
    }
    void OnStore(RegKey& key) override
    {
        key.ProcessEntry(RegKey::OpWriteAlways, L"Count", nCount);
        key.ProcessEntry(RegKey::OpWrite, L"Name", szName, 64);
    }
    int nCount = 0;
    wchar_t szName[64] = L"";
    int nResets = 0;
};

// Points the product's records at a private key for the duration of a test.
struct RecordKey {
    ScopedTestKey key{L"opts"};
    vxtest::ScopedAppRootKey root{key.path()};
};

TEST(DMOpts, FlagOperations)
{
    DMOpts o;
    EXPECT_EQ(o.GetAll(), 0u);
    o.SetAll(0x5);
    o.SetBits(0x6, 0x2);
    EXPECT_EQ(o.GetAll(), 0x3u);
    EXPECT_EQ(o.GetBits(0x6), 0x2u);
    EXPECT_EQ(o.IsOn(0x8 | 0x1), 1);
    EXPECT_EQ(o.IsOn(0xC), 0);
    o.Set(0xC, 1);
    EXPECT_EQ((unsigned)o, 0xFu);
    o.Set(0x3, 0);
    EXPECT_EQ(o.GetAll(), 0xCu);
    int out = -1;
    o.Get(0x4, out);
    EXPECT_EQ(out, 1);
    o.Get(0x1, out);
    EXPECT_EQ(out, 0);
    *o.GetPtrAll() = 0x40;
    EXPECT_EQ(o.GetAll(), 0x40u);
    EXPECT_EQ(DMOpts::GetAllOf(nullptr), 0u);

    DMOpts a, b;
    a.SetAll(1);
    EXPECT_EQ(a.IsDifferent(&b), 1);
    b = a;
    EXPECT_EQ(a.IsDifferent(&b), 0);

    // A copied record owns its flag set: changing the copy leaves the source alone.
    SampleOpts src;
    src.SetAll(0x21);
    SampleOpts copy(src);
    copy.Set(0x100, 1);
    EXPECT_EQ(src.GetAll(), 0x21u);
    EXPECT_EQ(copy.GetAll(), 0x121u);
}

TEST(BoolOpts, LoadOfAMissingKeyKeepsDefaults)
{
    RecordKey rk;
    SampleOpts o;
    o.SetAll(0xFFFF);
    o.nCount = 99;
    StrCopy(o.szName, L"changed");
    int resets = o.nResets;
    EXPECT_EQ(o.Load(), 0);
    EXPECT_EQ(o.nResets, resets + 1) << "every load starts from the defaults";
    EXPECT_EQ(o.GetAll(), 0x10u);
    EXPECT_EQ(o.nCount, 7);
    EXPECT_STREQ(o.szName, L"default");
    EXPECT_FALSE(RawKeyExists(rk.key.sub())) << "loading never creates the key";
}

TEST(BoolOpts, StoreAndLoadRoundTrip)
{
    RecordKey rk;
    SampleOpts o;
    o.SetAll(0x25);
    o.nCount = 0;
    StrCopy(o.szName, L"Remote users");
    ASSERT_EQ(o.Store(), 1);
    EXPECT_EQ(RawGetDword(rk.key.sub(), L"Options"), 0x25u);
    EXPECT_EQ(RawGetDword(rk.key.sub(), L"Count"), 0u) << "an explicit zero is stored";
    EXPECT_EQ(RawGetStr(rk.key.sub(), L"Name"), L"Remote users");

    SampleOpts back;
    ASSERT_EQ(back.Load(), 1);
    EXPECT_EQ(back.GetAll(), 0x25u);
    EXPECT_EQ(back.nCount, 0);
    EXPECT_STREQ(back.szName, L"Remote users");
    EXPECT_EQ(back.IsDifferent(&o), 0);

    // Storing the same record again rewrites nothing that only-if-different guards: equal values
    // left under another type keep it (a rewrite would restore REG_SZ and REG_DWORD).
    DWORD flags = 0x25;
    ASSERT_TRUE(RawSetBin(rk.key.sub(), L"Options", &flags, 4, REG_BINARY));
    ASSERT_TRUE(RawSetStr(rk.key.sub(), L"Name", L"Remote users", REG_EXPAND_SZ));
    ASSERT_EQ(o.Store(), 1);
    DWORD type = 0;
    ASSERT_TRUE(RawGet(rk.key.sub(), L"Options", &type, nullptr));
    EXPECT_EQ(type, (DWORD)REG_BINARY);
    ASSERT_TRUE(RawGet(rk.key.sub(), L"Name", &type, nullptr));
    EXPECT_EQ(type, (DWORD)REG_EXPAND_SZ);
}

TEST(BoolOpts, FlagSetMustBeFourBytesAndNotText)
{
    RecordKey rk;
    const std::wstring& sub = rk.key.sub();
    struct Case {
        const char* what;
        DWORD type;
        std::vector<BYTE> data;
        unsigned expected;
    } cases[] = {
        {"dword", REG_DWORD, {0x03, 0, 0, 0}, 0x3u},
        {"four binary bytes", REG_BINARY, {0x09, 0, 0, 0}, 0x9u},
        {"two bytes", REG_BINARY, {0x03, 0}, 0x10u},
        {"eight bytes", REG_QWORD, {1, 0, 0, 0, 0, 0, 0, 0}, 0x10u},
        {"one-character text", REG_SZ, {'5', 0, 0, 0}, 0x10u},
        {"longer text", REG_SZ, {'1', 0, '2', 0, 0, 0}, 0x10u},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        ASSERT_TRUE(RawSetBin(sub, L"Options", c.data.data(), (DWORD)c.data.size(), c.type));
        SampleOpts o;
        o.SetAll(0xABC);
        ASSERT_EQ(o.Load(), 1);
        EXPECT_EQ(o.GetAll(), c.expected);
    }
}

TEST(BoolOpts, TempShadowLeavesTheLiveRecordAlone)
{
    RecordKey rk;
    SampleOpts live;
    live.SetAll(0x1);
    live.nCount = 3;
    StrCopy(live.szName, L"live");
    ASSERT_EQ(live.Store(), 1);

    SampleOpts staged;
    staged.SetAll(0x2);
    staged.nCount = 4;
    StrCopy(staged.szName, L"staged");
    Sleep(20);
    ASSERT_EQ(staged.StoreTemp(), 1);
    EXPECT_EQ(RawGetStr(rk.key.sub(L"Temp"), L"Name"), L"staged");
    EXPECT_EQ(RawGetStr(rk.key.sub(), L"Name"), L"live");
    EXPECT_EQ(RawGetDword(rk.key.sub(), L"Options"), 0x1u);
    EXPECT_EQ(RawCountValues(rk.key.sub()), 3u);

    SampleOpts fromTemp;
    ASSERT_EQ(fromTemp.LoadTemp(), 1);
    EXPECT_EQ(fromTemp.GetAll(), 0x2u);
    EXPECT_EQ(fromTemp.nCount, 4);
    EXPECT_STREQ(fromTemp.szName, L"staged");

    SampleOpts fromLive;
    ASSERT_EQ(fromLive.Load(), 1);
    EXPECT_STREQ(fromLive.szName, L"live");

    EXPECT_EQ(staged.DelTemp(), 1);
    EXPECT_FALSE(RawKeyExists(rk.key.sub(L"Temp")));
    EXPECT_EQ(RawGetStr(rk.key.sub(), L"Name"), L"live");
    EXPECT_EQ(RawGetDword(rk.key.sub(), L"Count"), 3u);

    // Without a shadow, loading it fails and leaves the defaults.
    SampleOpts none;
    EXPECT_EQ(none.LoadTemp(), 0);
    EXPECT_STREQ(none.szName, L"default");
}

TEST(BoolOpts, DelTempNeedsTheRecordKey)
{
    RecordKey rk;
    SampleOpts o;
    EXPECT_EQ(o.DelTemp(), 0) << "no record key, nothing to open";
    ASSERT_TRUE(RawCreateKey(rk.key.sub()));
    EXPECT_EQ(o.DelTemp(), 1) << "an absent shadow counts as deleted";
}

TEST(BoolOpts, StoreInLogModeOnlyDescribesTheRecord)
{
    RecordKey rk;
    SampleOpts o;
    o.SetAll(0x5);
    o.nCount = 12;
    StrCopy(o.szName, L"logged");

    RegKey::StartLog(nullptr);
    ASSERT_EQ(o.Store(), 1);
    unsigned need = RegKey::EndLog();
    ASSERT_GT(need, 0u);

    std::wstring buf(need, L'\xbdbd');
    RegKey::StartLog(&buf[0]);
    ASSERT_EQ(o.Store(), 1);
    EXPECT_EQ(RegKey::EndLog(), need);

    // The record's values come before the flag set; the terminator is counted.
    std::wstring expected = L"[" + rk.key.path() + L"]\r\nCount=dword:0000000C\r\nName=logged\r\nOptions=dword:00000005\r\n";
    EXPECT_EQ(need, expected.size() + 1);
    EXPECT_EQ(std::wstring(buf.c_str()), expected);
    EXPECT_FALSE(RawKeyExists(rk.key.sub())) << "log mode must not touch the registry";
}

} // namespace
