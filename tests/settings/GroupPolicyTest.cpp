// Settings inside a domain Group Policy object: an in-process object keeps its machine section in
// a registry key of the test and records its saves. Also the administrative templates.
#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <string>
#include <vector>

#include "base/StrUtil.h"
#include "settings/GPObj.h"
#include "settings/MyOpts.h"
#include "support/FakeGPO.h"
#include "support/Guards.h"
#include "support/TestSupport.h"

using namespace vxtest;
using Names = std::vector<std::wstring>;
using Ints = std::vector<int>;

namespace {

std::wstring g_dataFolder;
int WINAPI TestDataFolder(wchar_t* buf) { return StrCopy(buf, MAX_PATH, g_dataFolder.c_str()), 1; }

class GroupPolicy : public ::testing::Test {
protected:
    void SetUp() override { g_state = FakeState(), g_state.section = section.sub(), g_dataFolder = temp.file(L"Vantrel"); }
    void TearDown() override { EXPECT_EQ(g_state.live, 0) << "every object is released"; }
    std::wstring Pol(const std::wstring& rel = L"") const
    {
        return section.sub(L"SOFTWARE\\Policies\\Korvane\\Vantrel") + (rel.empty() ? L"" : L"\\" + rel);
    }
    std::wstring Cache() const { return g_dataFolder + L"\\GPOcache\\" + kName; }
    static MyOpts& Point(MyOpts& o) { return StrCopy(o.szGPOPath, L"LDAP://cn={6AC1786C},cn=policies,DC=corp"), o; }

    ScopedTestKey local{L"local"}, section{L"gpo"};
    ScopedAppRootKey root{local.path()};
    ScopedTempDir temp;
    ScopedValue<GPObj::CreateFn> create{GPObj::pfnCreate, CreateFake};
    ScopedValue<MyOpts::DataFolderFn> folder{MyOpts::pfnGetDataFolder, TestDataFolder};
};

TEST_F(GroupPolicy, LoadFollowsThePolicyStateWithThePolicyRanges)
{
    MyOpts cached;
    cached.Reset(), cached.nTimeout = 33, cached.listInclude.RemoveAll();
    ASSERT_TRUE(CreateDirectoryW(g_dataFolder.c_str(), nullptr) && CreateDirectoryW((g_dataFolder + L"\\GPOcache").c_str(), nullptr));
    ASSERT_EQ(cached.Export(nullptr, Cache().c_str()), 1);
    // Not Configured (no key, or no "Enable": markers only) and Disabled read the cache file.
    for (int enable : {-2, -1, 0}) {
        if (enable == -1)
            RawSetStr(Pol(), L"**del.Enable", L" ");
        if (enable == 0)
            RawSetDword(Pol(), L"Enable", 0), RawSetDword(Pol(), L"Timeout", 44); // ignored
        MyOpts o;
        ASSERT_EQ(Point(o).Load(), 1);
        EXPECT_EQ(Ints({(int)o.hrGPO, o.nPolicyState, o.nTimeout, (int)o.listInclude.GetCount()}),
                  Ints({S_OK, enable == 0 ? 2 : 0, 33, 0})) << enable;
        EXPECT_STREQ(o.szGPODisplayName, L"Branch offices");
        EXPECT_EQ(g_state.openFlags, (DWORD)GPO_OPEN_LOAD_REGISTRY);
    }
    // Enabled: each value only when present, with the ranges of a policy.
    struct { const wchar_t* name; int stored; int MyOpts::*field; int loaded; } cases[] = {
        {L"Timeout", 0, &MyOpts::nTimeout, 10}, {L"MessageTimeout", 0, &MyOpts::nMsgTimeout, 0},
        {L"LogoffStaleCount", 10000, &MyOpts::nLogoffStaleCount, 5}, {L"ShutdownTimeout", -5, &MyOpts::nShutdownTimeout, 10},
        {L"ShutdownAction", 4, &MyOpts::nShutdownAction, 1}, {L"PercentCPU", 500, &MyOpts::nPercentCPU, 500},
        {L"FullScreen", 1, &MyOpts::bFullScreen, 1}, {L"Enable", 1, &MyOpts::bEnable, 1}};
    for (const auto& c : cases)
        RawSetDword(Pol(), c.name, (DWORD)c.stored);
    RawSetStr(Pol(), L"MessageText", L"Bye in %d");
    RawSetStr(Pol(L"ApplyTo"), L"**delvals.", L" "), RawSetStr(Pol(L"ApplyTo"), L"1", L"Kiosk");
    MyOpts o;
    ASSERT_EQ(Point(o).Load(), 1);
    for (const auto& c : cases)
        EXPECT_EQ(o.*c.field, c.loaded) << c.name << " stored as " << c.stored;
    EXPECT_EQ(Ints({o.nPolicyState, o.bMonitorMouse, o.bPolicyInEffect}), Ints({1, 1, 0}));
    EXPECT_STREQ(o.szMsgText, L"Bye in %d");
    EXPECT_EQ(Items(o.listInclude), Names{L"Kiosk"});
    EXPECT_TRUE(o.listExclude.IsEmpty());
    RawSetDword(Pol(), L"MessageTimeout", 10000);
    EXPECT_EQ((Point(o).Load(), o.nMsgTimeout), 5);
}

TEST_F(GroupPolicy, AFailedOpenIsReportedAndWritesNothing)
{
    struct { HRESULT FakeState::*hr; HRESULT value; GROUP_POLICY_OBJECT_TYPE type; HRESULT reported; } cases[] = {
        {&FakeState::hrCreate, REGDB_E_CLASSNOTREG, GPOTypeDS, REGDB_E_CLASSNOTREG},
        {&FakeState::hrOpen, HRESULT_FROM_WIN32(ERROR_DS_NO_SUCH_OBJECT), GPOTypeDS, HRESULT_FROM_WIN32(ERROR_DS_NO_SUCH_OBJECT)},
        {&FakeState::hrOpen, S_OK, GPOTypeLocal, S_OK}, // not a domain object
        {&FakeState::hrKey, E_ACCESSDENIED, GPOTypeDS, E_ACCESSDENIED}};
    RawSetDword(Pol(), L"Enable", 1), RawSetDword(Pol(), L"Timeout", 30);
    for (const auto& c : cases) {
        g_state.*c.hr = c.value, g_state.type = c.type;
        MyOpts o;
        StrCopy(o.szGPODisplayName, L"stale"), o.hrGPO = E_UNEXPECTED;
        Point(o).Load();
        EXPECT_EQ(Ints({(int)o.hrGPO, o.nTimeout, (int)g_state.live}), Ints({c.reported, 10, 0})) << c.reported;
        EXPECT_STREQ(o.szGPODisplayName, L"");
        o.nPolicyState = 1, o.nTimeout = 20, o.Store();
        EXPECT_EQ(Ints({(int)o.hrGPO, (int)g_state.saves.size(), (int)RawGetDword(Pol(), L"Timeout")}), Ints({c.reported, 0, 30}));
        g_state.*c.hr = S_OK, g_state.type = GPOTypeDS;
    }
}

TEST_F(GroupPolicy, StoreWritesValuesOrRemovalMarkersAndAlwaysTheCacheFile)
{
    MyOpts o;
    o.Reset(), o.nPolicyState = 1, o.bEnable = 1, o.nTimeout = 25;
    o.listInclude.RemoveAll(), o.listInclude.AddTail(L"Kiosk");
    RawSetStr(Pol(), L"**del.Timeout", L" "); // from an earlier Not Configured store
    ASSERT_EQ(Point(o).Store(), 1);
    EXPECT_EQ(Ints({(int)o.hrGPO, (int)RawGetDword(Pol(), L"Timeout")}), Ints({S_OK, 25}));
    EXPECT_FALSE(RawValueExists(Pol(), L"**del.Timeout"));
    EXPECT_EQ(RawGetStr(Pol(), L"Schedule"), L"*");
    EXPECT_EQ(RawGetStr(Pol(L"ApplyTo"), L"**delvals.") + RawGetStr(Pol(L"ApplyTo"), L"1"), L" Kiosk");
    EXPECT_EQ(g_state.saves, Names{L"1,1,{35378EAC-683F-11D2-A89A-00C04FBBCFA2},{0F6B957E-509E-11D1-A7CC-0000F87571E3}"});
    MyOpts back;
    Point(back).Load();
    EXPECT_EQ(back.IsDifferent(&o), 0) << "what was stored loads back";

    // Not Configured: every value gives way to its removal marker; the file keeps the settings.
    o.nPolicyState = 0, o.nTimeout = 35;
    ASSERT_EQ(o.Store(), 1);
    for (const wchar_t* name : {L"Enable", L"Timeout", L"UseSchedule", L"Schedule", L"MessageTextIfLocked"})
        EXPECT_EQ(RawGetStr(Pol(), name) + RawGetStr(Pol(), (std::wstring(L"**del.") + name).c_str()), L"<absent> ") << name;
    EXPECT_EQ(RawCountValues(Pol(L"ApplyTo")), 1u) << "only the marker that empties the clients' list";
    Point(back).Load();
    EXPECT_EQ(Ints({back.nPolicyState, back.nTimeout, (int)g_state.saves.size()}), Ints({0, 35, 2}));
    g_state.hrSave = E_ACCESSDENIED;
    EXPECT_EQ((o.Store(), o.hrGPO), E_ACCESSDENIED);
    g_state.badKey = true; // what cannot be written is not saved half-way
    o.nPolicyState = 1;
    EXPECT_EQ(Ints({(o.Store(), (int)o.hrGPO), (int)g_state.saves.size()}), Ints({E_FAIL, 3}));
    g_state.badKey = false;

    GPObj gpo; // the whole object back to Not Configured, another product's policy kept
    RawSetDword(section.sub(L"SOFTWARE\\Policies\\Korvane\\Other"), L"Keep", 1);
    ASSERT_EQ(gpo.Open(L"LDAP://x", GPObj::ScopeMachine, 1) + gpo.SetAllNotConfigured(GPObj::ScopeMachine), 2);
    EXPECT_EQ(Ints({gpo.IsNotConfigured(), RawKeyExists(Pol()), (int)RawGetDword(section.sub(L"SOFTWARE\\Policies\\Korvane\\Other"), L"Keep")}),
              Ints({1, 0, 1}));
}

TEST_F(GroupPolicy, CachePathIsMadeOnlyWhereItCanBe)
{
    GPObj gpo;
    ASSERT_EQ(gpo.Open(L"LDAP://x", GPObj::ScopeMachine, 1), 1);
    const std::wstring cacheDir = g_dataFolder + L"\\GPOcache";
    EXPECT_EQ(MyOpts::GetGPOStoragePath(&gpo, 0), Cache());
    EXPECT_EQ(GetFileAttributesW(cacheDir.c_str()), INVALID_FILE_ATTRIBUTES) << "created only when asked";
    MyOpts::GetGPOStoragePath(&gpo, 1);
    EXPECT_TRUE(GetFileAttributesW(cacheDir.c_str()) & FILE_ATTRIBUTE_DIRECTORY);
    // A file where the folder belongs stays a file; the object is still written and saved.
    ASSERT_TRUE(RemoveDirectoryW(cacheDir.c_str()) && WriteFileBytes(cacheDir, "x", 1));
    MyOpts o;
    o.Reset(), o.nPolicyState = 1;
    Point(o).Store();
    EXPECT_EQ(Ints({(int)(GetFileAttributesW(cacheDir.c_str()) & FILE_ATTRIBUTE_DIRECTORY), (int)g_state.saves.size()}), Ints({0, 1}));
    DeleteFileW(cacheDir.c_str());
    // A path too long for the buffer is no path rather than a cut one.
    g_dataFolder = L"C:\\" + std::wstring(259 - 3 - 10 - 38, L'd');
    EXPECT_EQ(MyOpts::GetGPOStoragePath(&gpo, 0), g_dataFolder + L"\\GPOcache\\" + kName);
    g_dataFolder += L"d";
    EXPECT_STREQ(MyOpts::GetGPOStoragePath(&gpo, 0), L"");
}

// The system's own object: a round trip through the test object named by VX_TEST_GPO.
TEST(GroupPolicySystem, RoundTripThroughTheSystemObject)
{
    IGroupPolicyObject* obj = nullptr;
    if (SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)) && GPObj::CreateSystemObject(&obj) == REGDB_E_CLASSNOTREG)
        GTEST_SKIP() << "this system has no Group Policy object class (Wine has none)";
    obj->Release();
    wchar_t path[260];
    if (!GetEnvironmentVariableW(L"VX_TEST_GPO", path, 260))
        GTEST_SKIP() << "set VX_TEST_GPO to the LDAP path of a Group Policy object made for this test";
    MyOpts o, back;
    o.Reset(), o.nPolicyState = 1, o.bEnable = 1, o.nTimeout = 23;
    StrCopy(o.szGPOPath, path), StrCopy(back.szGPOPath, path);
    ASSERT_EQ(o.Store(), 1);
    ASSERT_EQ(o.hrGPO, S_OK);
    ASSERT_EQ(back.Load(), 1);
    EXPECT_EQ(back.IsDifferent(&o), 0);
}

// The administrative templates: every value they write, written as the Group Policy client would,
// reaches its setting; their number limits are the loader's; their texts all exist.
std::string Template(const wchar_t* name)
{
    std::vector<BYTE> bytes;
    EXPECT_TRUE(ReadFileBytes(std::wstring(VX_POLICY_TEMPLATES) + name, &bytes)) << "missing template";
    return std::string(bytes.begin(), bytes.end());
}
std::set<std::string> Matches(const std::string& text, const std::string& pattern)
{
    std::set<std::string> found;
    const std::regex re(pattern);
    for (auto it = std::sregex_iterator(text.begin(), text.end(), re); it != std::sregex_iterator(); ++it)
        found.insert((*it)[1]);
    return found;
}

TEST(PolicyTemplates, EveryTemplateValueReachesItsSetting)
{
    const std::string admx = Template(L"Vantrel.admx"), adml = Template(L"en-US\\Vantrel.adml");
    ScopedTestKey local(L"local"), policy(L"policy");
    ScopedAppRootKey root(local.path());
    ScopedPolicyKeys keys(policy.path(), policy.path());
    const int most = MyOpts::nMaxMinutes;
    struct { const char* name; DWORD value; int MyOpts::*field; int lo, hi; /* 0, 0: no number box */ } ints[] = {
        {"Enable", 1, &MyOpts::bEnable, 0, 0}, {"Timeout", 17, &MyOpts::nTimeout, 1, most},
        {"MessageTimeout", 3, &MyOpts::nMsgTimeout, 0, most}, {"FullScreen", 1, &MyOpts::bFullScreen, 0, 0},
        {"MonitorKB", 0, &MyOpts::bMonitorKB, 0, 0}, {"MonitorMouse", 0, &MyOpts::bMonitorMouse, 0, 0},
        {"MonitorCPU", 1, &MyOpts::bMonitorCPU, 0, 0}, {"PercentCPU", 40, &MyOpts::nPercentCPU, 1, 100},
        {"LogoffStale", 1, &MyOpts::bLogoffStale, 0, 0}, {"LogoffStaleCount", 7, &MyOpts::nLogoffStaleCount, 1, most},
        {"KeepLastActiveUser", 1, &MyOpts::bKeepLastActiveUser, 0, 0}, {"Shutdown", 1, &MyOpts::bShutdown, 0, 0},
        {"ShutdownTimeout", 30, &MyOpts::nShutdownTimeout, 1, most}, {"ShutdownAction", 3, &MyOpts::nShutdownAction, 0, 0},
        {"UseSchedule", 1, &MyOpts::bUseSchedule, 0, 0}};
    std::set<std::string> names = {"Schedule", "MessageText", "MessageTextIfLocked"};
    for (const auto& c : ints) {
        names.insert(c.name);
        RawSetDword(policy.sub(), std::wstring(c.name, c.name + strlen(c.name)).c_str(), c.value);
        const std::string limits = "valueName=\"" + std::string(c.name) + "\" (minValue=\"\\d+\" maxValue=\"\\d+\")";
        EXPECT_EQ(Matches(admx, limits), c.hi ? std::set<std::string>{"minValue=\"" + std::to_string(c.lo) + "\" maxValue=\"" +
                                                                      std::to_string(c.hi) + "\""}
                                              : std::set<std::string>{}) << c.name;
    }
    EXPECT_EQ(Matches(admx, "valueName=\"(\\w+)\""), names) << "a template value the loader does not read, or the reverse";
    EXPECT_EQ(Matches(admx, "<list id=\"\\w+\" key=\"SOFTWARE\\\\Policies\\\\Korvane\\\\Vantrel\\\\(\\w+)\" valuePrefix=\"\" />"),
              (std::set<std::string>{"ApplyTo", "Exclude"}));
    EXPECT_EQ(Matches(*Matches(admx, "(<enum id=\"ShutdownAction\"[^]*?</enum>)").begin(), "<decimal value=\"(\\d+)\""),
              (std::set<std::string>{"1", "2", "3"}));
    RawSetStr(policy.sub(), L"Schedule", L"Mon 8:00-17:00");
    RawSetStr(policy.sub(), L"MessageText", L"Bye in %d"), RawSetStr(policy.sub(), L"MessageTextIfLocked", L"Locked: %d");
    RawSetStr(policy.sub(L"ApplyTo"), L"1", L"Kiosk"), RawSetStr(policy.sub(L"ApplyTo"), L"2", L"Lab");
    RawSetStr(policy.sub(L"Exclude"), L"1", L"Teachers");
    MyOpts o;
    ASSERT_EQ(o.Load(), 1) << "a policy alone, with no local settings key";
    EXPECT_EQ(o.bPolicyInEffect, 1);
    for (const auto& c : ints)
        EXPECT_EQ(o.*c.field, (int)c.value) << c.name;
    EXPECT_EQ(std::wstring(o.GetSchedule()) + L"|" + o.szMsgText + L"|" + o.szMsgTextLocked, L"Mon 8:00-17:00|Bye in %d|Locked: %d");
    EXPECT_EQ(Items(o.listInclude), (Names{L"Kiosk", L"Lab"}));
    EXPECT_EQ(Items(o.listExclude), Names{L"Teachers"});
    for (const std::string kind : {"string", "presentation"})
        for (const std::string& id : Matches(admx, "\\$\\(" + kind + "\\.(\\w+)\\)"))
            EXPECT_TRUE(Matches(adml, "<" + kind + " id=\"(\\w+)\"").count(id)) << kind << " " << id << " is not in the .adml";
    EXPECT_EQ(Matches(adml, "refId=\"(\\w+)\""), Matches(admx, "<(?:decimal|boolean|text|enum|list) id=\"(\\w+)\""));
}

} // namespace
