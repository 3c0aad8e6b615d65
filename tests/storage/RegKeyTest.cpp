// RegKey on the real registry. A skipped write shows as a kept type, or as a read-only key's success.
#include <gtest/gtest.h>
#include <windows.h>

#include <sddl.h>
#include <functional>

#include "storage/RegKey.h"
#include "support/TestSupport.h"

using namespace vxtest;

namespace {
// Result and last error of a call made with a sentinel in the last error.
template <class Fn> std::pair<LONG_PTR, DWORD> Try(Fn fn)
{
    SetLastError(0xdeadbeef);
    const LONG_PTR r = (LONG_PTR)fn();
    return {r, GetLastError()};
}
std::pair<LONG_PTR, DWORD> Failed(DWORD error) { return {0, error}; }

DWORD RawType(const std::wstring& sub, const wchar_t* name)
{
    DWORD type = 0;
    std::vector<BYTE> data;
    return RawGet(sub, name, &type, &data) ? type : 0xFFFFFFFF;
}

// Absence always differs (even from "" or 0); equal data stays; case and length changes write.
TEST(RegKeyValue, WritesOnlyWhenDifferent)
{
    ScopedTestKey t(L"put");
    RegKey k(t.path().c_str(), 1), ro(t.path().c_str(), 0);
    const DWORD five = 5;
    BYTE data[300], out[301];
    for (int i = 0; i < 300; ++i)
        data[i] = (BYTE)(i * 7 + 1);
    ASSERT_TRUE(RawSetBin(t.sub(), L"D", &five, 4, REG_BINARY) && RawSetStr(t.sub(), L"One", L"1"));
    ASSERT_TRUE(RawSetStr(t.sub(), L"X", L"Path", REG_EXPAND_SZ) && RawSetStr(t.sub(), L"EX", L"", REG_EXPAND_SZ));
    EXPECT_EQ(k.PutDword(L"Zero", 0, 1) + k.PutDword(L"D", 5, 1) + k.PutStr(L"E", L"", 1) + k.PutStr(L"One", L"", 1), 4);
    EXPECT_EQ(k.PutStr(L"X", L"Path", 1) + k.PutStr(L"EX", L"", 1) + k.PutBin(L"B", data, 300), 3);
    EXPECT_EQ(RawGetDword(t.sub(), L"Zero", 99), 0u) << "absence always counts as different";
    EXPECT_EQ(RawGetStr(t.sub(), L"E") + RawGetStr(t.sub(), L"One") + std::to_wstring(RawType(t.sub(), L"E")), L"1");
    EXPECT_EQ(RawType(t.sub(), L"D") * 100 + RawType(t.sub(), L"X") * 10 + RawType(t.sub(), L"EX"), 322u) << "an equal value was rewritten";
    EXPECT_TRUE(ro.PutBin(L"B", data, 300)) << "equal bytes are not written";
    for (auto write : std::vector<std::function<int()>>{[&] { return ro.PutDword(L"D", 6, 1); }, [&] { return ro.PutStr(L"X", L"path", 1); },
                                                         [&] { return ro.PutBin(L"B", data, 299); }, [&] { return ro.PutDword(L"D", 5, 0); }})
        EXPECT_EQ(Try(write), Failed(ERROR_ACCESS_DENIED)) << "a change, or no flag, must write";
    EXPECT_EQ(k.PutDwordOrDeleteIfZero(L"D", 0, 1) + k.PutStrOrDelEmpty(L"X", L"", 1), 2);
    EXPECT_FALSE(RawValueExists(t.sub(), L"D") || RawValueExists(t.sub(), L"X"));
    memset(out, 0xbd, sizeof(out));
    EXPECT_EQ(Try([&] { return k.GetBin(L"B", out, 299); }), Failed(ERROR_MORE_DATA));
    EXPECT_EQ(out[0], 0xbd) << "a value that does not fit is not read at all";
    EXPECT_TRUE(k.GetBin(L"B", out, 0, nullptr)) << "a cb of 0 accepts any size";
    EXPECT_EQ(memcmp(out, data, 300) + out[300], 0xbd);
}

// No overrun of cch, no partial read, the default only for what is absent, unterminated data cut.
TEST(RegKeyValue, GetStrFitsCchCharactersOrFallsBackToTheDefault)
{
    ScopedTestKey t(L"gs");
    const wchar_t noTerm[5] = {L'a', L'b', L'c', L'd', L'e'}; // only 4 stored; no zero follows them
    ASSERT_TRUE(RawSetStr(t.sub(), L"S", L"abcd") && RawSetStr(t.sub(), L"Empty", L"") && RawSetBin(t.sub(), L"NoTerm", noTerm, 8, REG_SZ));
    RegKey k(t.path().c_str(), 0);
    const struct { const wchar_t *name; int cch; const wchar_t *def; int result; const wchar_t* text; } rows[] = {
        {L"S", 5, nullptr, 4, L"abcd"}, {L"S", 4, nullptr, 0, L""}, {L"S", 4, L"xy", 2, L"xy"}, {L"Absent", 4, L"defaultvalue", 3, L"def"},
        {L"Empty", 8, L"def", 0, L""}, {L"NoTerm", 4, nullptr, 3, L"abc"}};
    for (const auto& r : rows) {
        wchar_t g[12]; // pre-filled, so a write past cch or a missing terminator shows
        wmemset(g, 0xbdbd, 12);
        EXPECT_EQ(k.GetStr(r.name, g, r.cch, r.def), r.result) << r.cch << " " << testing::PrintToString(std::wstring(r.name));
        EXPECT_STREQ(g, r.text);
        EXPECT_EQ(g[r.cch], 0xbdbd) << "written past cch";
    }
    EXPECT_EQ(k.GetStrSize(L"S") * 10 + k.GetStrSize(L"Empty") + k.GetStrSize(L"Absent"), 60);
}

// Partial deletion of nested trees, and DelSubKeyIfEmpty removing a key that still holds something.
TEST(RegKeyTree, DeletingTreesAndEmptyKeys)
{
    ScopedTestKey t(L"deltree");
    for (const wchar_t* level : {L"Tree", L"Tree\\L1", L"Tree\\L1\\L2"})
        ASSERT_TRUE(RawSetStr(t.sub(level), L"a", L"x") && RawSetStr(t.sub(level), nullptr, L"x") && RawCreateKey(t.sub(level) + L"\\Side"));
    ASSERT_TRUE(RawCreateKey(t.sub(L"HasSub\\Child")) && RawCreateKey(t.sub(L"Empty")) && RawSetStr(t.sub(L"HasDefault"), nullptr, L"d"));
    RegKey k(t.path().c_str(), 1);
    EXPECT_EQ(k.DelSubKey(L"Tree"), 1);
    EXPECT_EQ(k.DelSubKey(L"Tree") * 2 + RawKeyExists(t.sub(L"Tree")), 2) << "gone, and an absent subkey counts as deleted";
    EXPECT_EQ(k.DelSubKeyIfEmpty(L"HasSub") + k.DelSubKeyIfEmpty(L"HasDefault"), 0);
    EXPECT_TRUE(RawKeyExists(t.sub(L"HasSub")) && RawKeyExists(t.sub(L"HasDefault"))) << "a key holding something stays";
    EXPECT_EQ(k.DelSubKeyIfEmpty(L"Empty"), 1);
    EXPECT_EQ(k.DelSubKeyIfEmpty(L"Empty") * 2 + RawKeyExists(t.sub(L"Empty")), 2) << "gone, and an absent subkey counts as deleted";
    EXPECT_EQ(RawSetStr(t.sub(), L"v", L"x") && k.DelAll(), 1);
    EXPECT_EQ(RawCountSubKeys(t.sub()) + RawCountValues(t.sub()), 0u);
}

bool SetKeySddl(const std::wstring& sub, const wchar_t* sddl)
{
    HKEY k = nullptr;
    PSECURITY_DESCRIPTOR sd = nullptr;
    bool ok = RegOpenKeyExW(HKEY_CURRENT_USER, sub.c_str(), 0, WRITE_DAC, &k) == ERROR_SUCCESS &&
              ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl, SDDL_REVISION_1, &sd, nullptr) &&
              RegSetKeySecurity(k, DACL_SECURITY_INFORMATION, sd) == ERROR_SUCCESS;
    return LocalFree(sd), (!k || RegCloseKey(k) == ERROR_SUCCESS) && ok;
}

// False when fn did not finish within ms (a looping deletion would otherwise hang the run).
bool FinishesWithin(DWORD ms, std::function<void()> fn)
{
    HANDLE h = CreateThread(nullptr, 0, [](void* p) -> DWORD { return (*(std::function<void()>*)p)(), 0; }, &fn, 0, nullptr);
    const bool done = h && WaitForSingleObject(h, ms) == WAIT_OBJECT_0;
    return (done || !h || TerminateThread(h, 1)) && h && CloseHandle(h) && done;
}

// A past hang: a subkey the system refuses to delete (deny-all, with a child) is stepped past.
TEST(RegKeyTree, DeletionStepsPastASubkeyItCannotDelete)
{
    ScopedTestKey t(L"refused");
    for (const wchar_t* n : {L"Parent\\A_ok", L"Parent\\B_locked\\Inner", L"Parent\\C_ok"})
        ASSERT_TRUE(RawCreateKey(t.sub(n)));
    ASSERT_TRUE(SetKeySddl(t.sub(L"Parent\\B_locked"), L"D:(D;;KA;;;WD)"));
    struct Unlock { // access comes back even on an early return, so the test key can go
        std::wstring sub;
        ~Unlock() { SetKeySddl(sub, L"D:(A;;KA;;;WD)"); }
    } unlock{t.sub(L"Parent\\B_locked")};
    RegKey k(t.path().c_str(), 1);
    std::pair<LONG_PTR, DWORD> result{-1, 0};
    ASSERT_TRUE(FinishesWithin(10000, [&] { result = Try([&] { return k.DelSubKey(L"Parent"); }); })) << "DelSubKey loops";
    EXPECT_EQ(result, Failed(ERROR_ACCESS_DENIED)) << "the parent cannot go while the refused subkey remains";
    EXPECT_EQ(RawCountSubKeys(t.sub(L"Parent")), 1u) << "the siblings on both sides go";
    ASSERT_TRUE(RawCreateKey(t.sub(L"Parent\\D_ok")));
    RegKey parent(t.path(L"Parent").c_str(), 1);
    EXPECT_TRUE(FinishesWithin(10000, [&] { parent.DelAll(); })) << "DelAll loops";
    EXPECT_EQ(RawCountSubKeys(t.sub(L"Parent")), 1u);
}

// Root names, unknown leading parts and doubled backslashes skipped; only writing Ops create keys.
TEST(RegKeyPath, RootNamesAndOnlyWritingOpensCreate)
{
    for (const auto& r : {std::make_pair(L"hklm", HKEY_LOCAL_MACHINE), {L"hkey_local_machine", HKEY_LOCAL_MACHINE}, {L"HKCU", HKEY_CURRENT_USER}, {L"HKEY_CURRENT_USER", HKEY_CURRENT_USER},
                          {L"hku", HKEY_USERS}, {L"HKEY_USERS", HKEY_USERS}, {L"HKCLS", HKEY_CLASSES_ROOT}, {L"HKEY_CLASSES_ROOT", HKEY_CLASSES_ROOT}})
        EXPECT_EQ(RegKey::OpenKey(r.first, 0, 0), r.second) << testing::PrintToString(std::wstring(r.first));
    EXPECT_EQ(Try([] { return RegKey::OpenKey(L"", 0, 0); }), Failed(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(Try([] { return RegKey::OpenKey(L"Bogus", 0, 0); }), Failed(ERROR_FILE_NOT_FOUND));
    ScopedTestKey t(L"path");
    const std::wstring sub = t.sub(), last = sub.substr(sub.rfind(L'\\') + 1);
    RegKey parent((L"Bogus\\Other\\HKCU\\" + sub).c_str(), 1);
    ASSERT_EQ(parent.PutDword(L"Marker", 7, 1), 1);
    EXPECT_EQ(RawGetDword(sub, L"Marker") + RegKey((L"\\\\HKCU\\\\Software\\\\VantrelTests\\" + last + L"\\\\").c_str(), 0).GetDword(L"Marker", 0), 14u);
    for (RegKey::Op op : {RegKey::OpCheck, RegKey::OpRead, RegKey::OpCheckAbsent, RegKey::OpCheckNoCase, RegKey::OpWriteAlways}) {
        EXPECT_EQ(Try([&] { return RegKey(t.path(L"A\\B").c_str(), op).IsReady(); }), Failed(ERROR_FILE_NOT_FOUND)) << op;
        EXPECT_EQ(Try([&] { return RegKey(parent, L"A", op).IsReady(); }), Failed(ERROR_FILE_NOT_FOUND)) << op;
    }
    EXPECT_EQ(RegKey(t.path(L"A\\B").c_str(), RegKey::OpWrite).IsReady() + RegKey(parent, L"Del", RegKey::OpDelete).IsReady(), 2);
    EXPECT_TRUE(RawKeyExists(t.sub(L"A\\B")) && RawKeyExists(t.sub(L"Del")));
}

// Event sources: registration values, and removal that keeps a source key holding other values.
TEST(RegHelpers, EventSourceRegistration)
{
    const std::wstring name = L"VantrelTest_" + std::to_wstring(GetCurrentProcessId()), sub = L"SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\" + name;
    auto get = [&](const wchar_t* value) {
        wchar_t buf[64] = {};
        DWORD cb = sizeof(buf);
        return RegGetValueW(HKEY_LOCAL_MACHINE, sub.c_str(), value, RRF_RT_ANY, nullptr, buf, &cb) == ERROR_SUCCESS ? std::wstring(buf, cb / 2) : L"-";
    };
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, sub.c_str());
    EXPECT_TRUE(RegisterEventSourceFile(name.c_str(), L"C:\\VXMSG.DLL"));
    EXPECT_EQ(get(L"TypesSupported") + get(L"EventMessageFile"), std::wstring(L"\x0007\0C:\\VXMSG.DLL", 15)) << "errors, warnings, information";
    ASSERT_EQ(RegSetKeyValueW(HKEY_LOCAL_MACHINE, sub.c_str(), L"Other", REG_SZ, L"D", 4), ERROR_SUCCESS);
    EXPECT_TRUE(RegisterEventSourceFile(name.c_str(), nullptr));
    EXPECT_EQ(get(L"EventMessageFile") + get(L"TypesSupported") + get(L"Other"), std::wstring(L"--D\0", 4));
    ASSERT_EQ(RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, sub.c_str(), L"Other"), ERROR_SUCCESS);
    EXPECT_TRUE(RegisterEventSourceFile(name.c_str(), nullptr));
    EXPECT_EQ(RegDeleteKeyW(HKEY_LOCAL_MACHINE, sub.c_str()), ERROR_FILE_NOT_FOUND) << "an emptied source key goes";
}

} // namespace
