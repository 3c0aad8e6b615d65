// The service host: its status state machine through the seams (a fake service manager records
// each report, a fake engine each call), and install and removal in Wine's real service manager.
#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "base/Handle.h"
#include "engine/Engine.h"
#include "engine/ServiceHost.h"
#include "engine/ServiceSeams.h"
#include "resources/resource.h"
#include "support/Guards.h"
#include "support/TestSupport.h"
#include "ui/MsgBoxModel.h"

#define SEAM(name, ...) vxtest::ScopedValue<decltype(ServiceSeams::name)> name##_{ServiceSeams::name, __VA_ARGS__}

namespace {
template <class F> bool WaitUntil(F done, DWORD ms = 10000)
{
    for (DWORD waited = 0; !done(); waited += 20, Sleep(20))
        if (waited >= ms)
            return false;
    return true;
}

using Report = std::tuple<DWORD, DWORD, DWORD, DWORD>; // state, checkpoint, wait hint, accepted
using Call = std::tuple<DWORD, DWORD, void*, DWORD>;   // code, event type, data, thread
const DWORD kAll = SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SESSIONCHANGE; // with the fake engine's addition
std::mutex g_lock;
std::vector<Report> g_reports;
std::vector<Call> g_calls;
LPHANDLER_FUNCTION_EX g_handler;
void* g_port;
HANDLE g_gates[4]; // the fake engine waits at its code's gate: open unless a test closes it

template <class T> T Locked(const T& v) { return std::lock_guard<std::mutex>(g_lock), v; }
DWORD LastState() { return Locked(g_reports).empty() ? 0 : std::get<0>(Locked(g_reports).back()); }
DWORD LastCode() { return Locked(g_calls).empty() ? 0xFFFF : std::get<0>(Locked(g_calls).back()); }
class ServiceStateMachine : public ::testing::Test {
protected:
    SEAM(pfnRegisterServiceCtrlHandlerEx, [](const wchar_t* name, LPHANDLER_FUNCTION_EX handler, void* port) {
        EXPECT_STREQ(name, GetServiceHostName());
        g_handler = handler, g_port = port;
        return (SERVICE_STATUS_HANDLE)&g_reports;
    });
    SEAM(pfnSetServiceStatus, [](SERVICE_STATUS_HANDLE, SERVICE_STATUS* s) -> BOOL {
        std::lock_guard<std::mutex> g(g_lock);
        return g_reports.push_back({s->dwCurrentState, s->dwCheckPoint, s->dwWaitHint, s->dwControlsAccepted}), TRUE;
    });
    SEAM(pfnEngineControl, [](DWORD code, DWORD type, void* data, SERVICE_STATUS* st) -> DWORD {
        g_lock.lock(), g_calls.emplace_back(code, type, data, GetCurrentThreadId()), g_lock.unlock();
        st->dwControlsAccepted |= code == EngineInitialise ? SERVICE_ACCEPT_SESSIONCHANGE : 0;
        if (code < 4)
            WaitForSingleObject(g_gates[code], 10000);
        return 0x5000 + code;
    });
    std::thread serviceMain;
    DWORD mainThread = 0; // read after the join

    void SetUp() override { for (HANDLE& gate : g_gates) gate = CreateEventW(nullptr, TRUE, TRUE, nullptr); }
    void TearDown() override
    {
        for (HANDLE gate : g_gates) SetEvent(gate);
        if (serviceMain.joinable())
            Control(SERVICE_CONTROL_STOP), serviceMain.join();
        for (HANDLE gate : g_gates) CloseHandle(gate);
    }
    DWORD Control(DWORD code, DWORD type = 0, void* data = nullptr) { return g_handler(code, type, data, g_port); }
    void WaitFor(DWORD state) { ASSERT_TRUE(WaitUntil([=] { return LastState() == state; })) << "state " << state; }
};

// Catches a wrong record, a pause overlapping the start, a control refused wrongly or posted
// twice, a direct code posted or reported wrongly, and an engine code off the service main.
TEST_F(ServiceStateMachine, TheLifecycleReportsEachStateInTurn)
{
    ResetEvent(g_gates[EngineStart]), ResetEvent(g_gates[EngineStop]);
    serviceMain = std::thread([this] { mainThread = GetCurrentThreadId(), ServiceMain(0, nullptr); });
    ASSERT_TRUE(WaitUntil([] { return LastCode() == EngineStart; }));
    std::thread pauser([&] { EXPECT_EQ(Control(SERVICE_CONTROL_PAUSE), (DWORD)NO_ERROR); });
    Sleep(300);
    EXPECT_EQ(Locked(g_reports).size(), 1u) << "the pause did not wait for the start";
    SetEvent(g_gates[EngineStart]);
    pauser.join();
    WaitFor(SERVICE_PAUSED);
    EXPECT_EQ(Control(SERVICE_CONTROL_PAUSE), (DWORD)ERROR_CALL_NOT_IMPLEMENTED) << "paused";
    ASSERT_EQ(Control(SERVICE_CONTROL_CONTINUE), (DWORD)NO_ERROR);
    WaitFor(SERVICE_RUNNING);
    EXPECT_EQ(Control(SERVICE_CONTROL_CONTINUE), (DWORD)ERROR_CALL_NOT_IMPLEMENTED) << "running";
    WTSSESSION_NOTIFICATION note = {sizeof(note), 7};
    for (DWORD code : {SERVICE_CONTROL_DEVICEEVENT, SERVICE_CONTROL_HARDWAREPROFILECHANGE, SERVICE_CONTROL_POWEREVENT,
                       SERVICE_CONTROL_SESSIONCHANGE, 128, 129, 200}) { // the last three are user codes
        EXPECT_EQ(Control(code, WTS_SESSION_LOGON, &note), 0x5000 + code);
        EXPECT_EQ(Locked(g_calls).back(), Call(code, WTS_SESSION_LOGON, &note, GetCurrentThreadId()));
    }
    ASSERT_EQ(Control(SERVICE_CONTROL_STOP), (DWORD)NO_ERROR);
    ASSERT_TRUE(WaitUntil([] { return LastCode() == EngineStop; }));
    for (DWORD code : {SERVICE_CONTROL_STOP, SERVICE_CONTROL_SHUTDOWN, SERVICE_CONTROL_PARAMCHANGE})
        EXPECT_EQ(Control(code), (DWORD)ERROR_CALL_NOT_IMPLEMENTED) << "code " << code << " while stopping";
    EXPECT_EQ(Control(SERVICE_CONTROL_INTERROGATE), (DWORD)NO_ERROR);
    SetEvent(g_gates[EngineStop]);
    WaitFor(SERVICE_STOPPED);
    serviceMain.join();
    const Report running{SERVICE_RUNNING, 0, 2000, kAll}, stopping{SERVICE_STOP_PENDING, 1, 2000, kAll};
    EXPECT_EQ(g_reports, (std::vector<Report>{{SERVICE_START_PENDING, 0, 2000, SERVICE_ACCEPT_STOP}, running,
                                              {SERVICE_PAUSE_PENDING, 1, 2000, kAll}, {SERVICE_PAUSED, 0, 2000, kAll},
                                              {SERVICE_CONTINUE_PENDING, 1, 2000, kAll}, running, running, running,
                                              running, stopping, stopping, {SERVICE_STOPPED, 0, 2000, kAll}}));
    std::vector<DWORD> codes;
    for (const Call& c : g_calls)
        if (std::get<3>(c) == mainThread)
            codes.push_back(std::get<0>(c));
    EXPECT_EQ(codes, (decltype(codes){EngineInitialise, EngineStart, SERVICE_CONTROL_PAUSE, EngineStart, EngineStop}));
    EXPECT_EQ(Control(SERVICE_CONTROL_STOP), (DWORD)ERROR_CALL_NOT_IMPLEMENTED) << "stopped";
}

using Boxes = std::vector<std::tuple<UINT, int, DWORD>>; // flags, string id, the last error it shows
Boxes g_boxes;
const UINT kInfo = MB_ICONINFORMATION, kRetryCancel = 0x15 | MsgBoxModel::kAppendLastError;
int g_services;
ServiceHandle OpenSvc(const std::wstring& name, DWORD access)
{
    ServiceHandle scm(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    return ServiceHandle(OpenServiceW(scm.Get(), name.c_str(), access));
}
// A deleted service leaves the service manager once its process has gone.
bool Gone(const std::wstring& name) { return WaitUntil([&] { return !OpenSvc(name, SERVICE_QUERY_STATUS); }, 5000); }

class ServiceInstall : public ::testing::Test {
protected:
    std::wstring name = L"VantrelTest" + std::to_wstring(GetCurrentProcessId()) + L"_" + std::to_wstring(++g_services);
    std::wstring source = L"SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\" + name;
    vxtest::ScopedTempDir dir;
    vxtest::ScopedTestKey settings{L"svc"};
    vxtest::ScopedAppRootKey root{settings.path()};
    SEAM(pfnMsgEx, [](HWND, UINT flags, const wchar_t* text) {
        const DWORD shown = flags & MsgBoxModel::kAppendLastError ? GetLastError() : 0;
        g_boxes.emplace_back(flags, -MsgBoxModel::ResourceIdOf(text), shown);
        return g_boxes.size() == 1 ? IDRETRY : IDCANCEL; // a failure box: Retry once, then Cancel
    });
    void SetUp() override
    {
        g_boxes.clear();
        wchar_t bin[MAX_PATH]; // by default, the folder of the module the host is linked into
        ASSERT_TRUE(SetServiceHostFolder(nullptr) && GetServiceHostFolder(bin, MAX_PATH));
        for (const wchar_t* file : {L"VXA64.EXE", L"VXDA64.DLL"})
            ASSERT_TRUE(CopyFileW((bin + std::wstring(file)).c_str(), dir.file(file).c_str(), FALSE)) << "in " << bin;
        ASSERT_EQ(SetServiceHostName(name.c_str()) + SetServiceHostFolder(dir.path().c_str()), 2);
        // Wine's service manager refuses starts (database locked) while it starts its own services.
        ServiceHandle scm(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_LOCK));
        WaitUntil([&] {
            SC_LOCK lock = LockServiceDatabase(scm.Get());
            return (lock && UnlockServiceDatabase(lock)) || GetLastError() != ERROR_SERVICE_DATABASE_LOCKED;
        }, 30000);
    }
    void TearDown() override
    {
        RemoveService(1), RegDeleteKeyW(HKEY_LOCAL_MACHINE, source.c_str());
        SetServiceHostName(nullptr), SetServiceHostFolder(nullptr);
        // The service's process may still be leaving; its files go with the folder once it has.
        const std::wstring exe = dir.file(L"VXA64.EXE");
        WaitUntil([&] { return DeleteFileW(exe.c_str()) || GetLastError() == ERROR_FILE_NOT_FOUND; });
    }
    std::wstring ImagePath() const { return L"\"" + dir.file(L"VXA64.EXE") + L"\" /service"; }
    bool WaitForState(DWORD state) { return WaitUntil([&] { return QueryServiceState() == state; }); }
    std::tuple<std::wstring, std::wstring, DWORD, DWORD> Config() // image path, display name, start, type
    {
        static QUERY_SERVICE_CONFIGW q[8192 / sizeof(QUERY_SERVICE_CONFIGW)];
        if (DWORD cb = 0; !QueryServiceConfigW(OpenSvc(name, SERVICE_QUERY_CONFIG).Get(), q, sizeof(q), &cb))
            return {};
        return std::make_tuple(q->lpBinaryPathName, q->lpDisplayName, q->dwStartType, q->dwServiceType & 0xFF);
    }
};

// The recovery actions each install set: "reset: type/delay ...", or "refused" when the fake
// service manager refused them. Wine's service manager keeps none (QueryServiceConfig2W answers
// ERROR_INVALID_LEVEL) and never restarts a dead service, so they are checked as written.
std::vector<std::string> g_recovery;
bool g_refuseRecovery;
BOOL RecordRecovery(SC_HANDLE, SERVICE_FAILURE_ACTIONSW* f)
{
    std::string s = std::to_string(f->dwResetPeriod) + ":";
    for (DWORD i = 0; i < f->cActions; ++i)
        s += " " + std::to_string(f->lpsaActions[i].Type) + "/" + std::to_string(f->lpsaActions[i].Delay);
    g_recovery.push_back(g_refuseRecovery ? "refused" : s);
    return g_refuseRecovery ? (SetLastError(ERROR_ACCESS_DENIED), FALSE) : TRUE;
}

// "/load" and "/unload", then "/load" of a stopped manual service: catches a wrong configuration,
// event source or recovery, a manual start kept, wrong messages, a refused recovery that fails
// the install, and a removal that leaves the service.
TEST_F(ServiceInstall, LoadRunsTheServiceAndUnloadRemovesIt)
{
    SEAM(pfnChangeServiceFailureActions, RecordRecovery);
    g_recovery.clear(), g_refuseRecovery = false;
    vxtest::RawSetDword(settings.sub(), L"SessionsMonitoring", 0); // as a service that ran writes it
    ASSERT_EQ(InstallService(0), 1) << "error " << GetLastError();
    EXPECT_NE(vxtest::RawCountValues(settings.sub(L"ApplyTo")), 0u) << "the default groups stored at the first install";
    vxtest::RawSetDword(settings.sub(), L"Timeout", 77);
    // Restart a minute after the first and second failure, then nothing; counted over a day.
    const std::string kRecovery = "86400: 1/60000 1/60000 0/0";
    EXPECT_EQ(g_recovery, std::vector<std::string>{kRecovery});
    EXPECT_EQ(Config(),
              std::make_tuple(ImagePath(), name, DWORD(SERVICE_AUTO_START), DWORD(SERVICE_WIN32_OWN_PROCESS)));
    wchar_t file[MAX_PATH] = L"";
    DWORD cb = sizeof(file);
    RegGetValueW(HKEY_LOCAL_MACHINE, source.c_str(), L"EventMessageFile", RRF_RT_REG_SZ, nullptr, file, &cb);
    EXPECT_EQ(std::wstring(file), dir.file(L"VXDA64.DLL"));
    ASSERT_TRUE(WaitForState(SERVICE_RUNNING)) << "the built host does not run: " << QueryServiceState();
    EXPECT_EQ(InstallService(0), 1) << "a running service";
    EXPECT_TRUE(SendServiceControl(EngineReloadSettings)) << "error " << GetLastError();
    EXPECT_EQ(RemoveService(0), 1) << "error " << GetLastError();
    EXPECT_TRUE(Gone(name));
    EXPECT_EQ(RemoveService(0), 1) << "no service: said, and success";
    EXPECT_EQ(g_boxes, (Boxes{{kInfo, IDS_SERVICE_STARTED, 0}, {kInfo, IDS_SERVICE_ALREADY_STARTED, 0},
                              {kInfo, IDS_SERVICE_STOPPED, 0}, {kInfo, IDS_SERVICE_ALREADY_STOPPED, 0}}));
    g_boxes.clear();
    ServiceHandle scm(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CREATE_SERVICE));
    ASSERT_TRUE(ServiceHandle(CreateServiceW(scm.Get(), name.c_str(), name.c_str(), SERVICE_ALL_ACCESS,
                                             SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL,
                                             ImagePath().c_str(), nullptr, nullptr, nullptr, nullptr, nullptr)));
    g_refuseRecovery = true;
    EXPECT_EQ(InstallService(0), 1) << "error " << GetLastError();
    EXPECT_EQ(std::get<2>(Config()), (DWORD)SERVICE_AUTO_START);
    EXPECT_EQ(vxtest::RawGetDword(settings.sub(), L"Timeout"), 77u) << "stored settings are never replaced";
    EXPECT_TRUE(WaitForState(SERVICE_RUNNING)) << "state " << QueryServiceState();
    EXPECT_EQ(g_boxes, Boxes{}) << "an existing service starts without a box";
    EXPECT_EQ(g_recovery, (std::vector<std::string>{kRecovery, kRecovery, "refused"}));
}

// The image path stays under 260 characters: catches a cut path handed over or a fitting one
// refused; then, with nothing to start: a silent box, no retry, a service kept, a reason lost.
TEST_F(ServiceInstall, TheImagePathLimitAndAFailedStart)
{
    EXPECT_EQ(SetServiceHostName(std::wstring(257, L'n').c_str()), 0) << "a name past the service manager's limit";
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_INVALID_NAME);
    EXPECT_EQ(SetServiceHostFolder(std::wstring(MAX_PATH - 1, L'y').c_str()), 0) << "no room for the backslash";
    ASSERT_EQ(SetServiceHostFolder((L"C:\\" + std::wstring(236, L'x')).c_str()), 1); // a path of 260
    EXPECT_EQ(InstallService(0), 0);
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_FILENAME_EXCED_RANGE);
    EXPECT_FALSE(OpenSvc(name, SERVICE_QUERY_STATUS)) << "the name was kept and nothing was created";
    EXPECT_EQ(g_boxes, (Boxes{{MB_OK | MB_ICONERROR | MsgBoxModel::kAppendLastError, IDS_CANNOT_REGISTER_SERVICE,
                               ERROR_FILENAME_EXCED_RANGE}}));
    ASSERT_EQ(SetServiceHostFolder((L"C:\\" + std::wstring(235, L'x')).c_str()), 1); // 259
    for (int silent = 1; silent >= 0; --silent) {
        g_boxes.clear(), SetLastError(0);
        EXPECT_EQ(InstallService(silent), 0);
        const DWORD err = GetLastError();
        EXPECT_TRUE(err != 0 && err != ERROR_FILENAME_EXCED_RANGE) << "error " << err;
        EXPECT_TRUE(Gone(name)) << "the service went with the failure";
        EXPECT_EQ(g_boxes, silent ? Boxes{} : Boxes(2, {kRetryCancel, IDS_CANNOT_REGISTER_SERVICE, err}));
    }
}

// A service that never stops, then refused deletions: catches a wrong count or length of pauses
// before giving up, a deletion before the stop, a Retry that does not retry, a service marked
// for deletion not taken as success or another error taken as one, and boxes when silent.
int g_sleeps;
DWORD g_state, g_deleteError;
TEST_F(ServiceInstall, RemovalFailures)
{
    // Every call reaches a fake; the "service" handle is a connection that only needs closing.
    SEAM(pfnOpenService, [](SC_HANDLE, const wchar_t*, DWORD) { return OpenSCManagerW(nullptr, nullptr, 0); });
    SEAM(pfnQueryServiceStatus, [](SC_HANDLE, SERVICE_STATUS* st) { return st->dwCurrentState = g_state, TRUE; });
    SEAM(pfnControlService, [](SC_HANDLE, DWORD, SERVICE_STATUS* st) { return st->dwCurrentState = 3, TRUE; });
    SEAM(pfnSleep, [](DWORD ms) { g_sleeps += ms == 1000 ? 1 : 100; });
    SEAM(pfnDeleteService, [](SC_HANDLE) { return SetLastError(g_deleteError), FALSE; });
    const DWORD kTimeout = ERROR_SERVICE_REQUEST_TIMEOUT, kMarked = ERROR_SERVICE_MARKED_FOR_DELETE;
    const struct { DWORD state, error; int silent, result, sleeps; size_t retries; } cases[] = {
        {SERVICE_RUNNING, kTimeout, 1, 0, 10, 0}, {SERVICE_RUNNING, kTimeout, 0, 0, 20, 2},
        {SERVICE_STOPPED, kMarked, 0, 1, 0, 0},   {SERVICE_STOPPED, kMarked, 1, 1, 0, 0},
        {SERVICE_STOPPED, ERROR_ACCESS_DENIED, 1, 0, 0, 0}, {SERVICE_STOPPED, ERROR_ACCESS_DENIED, 0, 0, 0, 2}};
    for (const auto& c : cases) {
        SCOPED_TRACE("case " + std::to_string(&c - cases));
        g_state = c.state, g_deleteError = c.error, g_sleeps = 0, g_boxes.clear();
        EXPECT_EQ(RemoveService(c.silent), c.result);
        EXPECT_EQ(GetLastError(), c.error);
        EXPECT_EQ(g_sleeps, c.sleeps);
        const Boxes retried(c.retries, {kRetryCancel, IDS_CANNOT_UNREGISTER_SERVICE, c.error});
        EXPECT_EQ(g_boxes, (c.result && !c.silent ? Boxes{{kInfo, IDS_SERVICE_STOPS_AFTER_RESTART, 0}} : retried));
    }
}

} // namespace
