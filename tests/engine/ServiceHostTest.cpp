// The service host: the state machine of the service main and the control handler, played
// through the seams (a fake service manager records every status report, a fake engine records
// every control with its thread); install, start, stop and removal against Wine's real service
// manager with a service of the test's own name running the built VXA64.EXE; and the library's
// exported entry point with the modes that touch nothing outside the test.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "base/Module.h"
#include "engine/Engine.h"
#include "engine/EventLog.h"
#include "engine/ServiceHost.h"
#include "engine/ServiceSeams.h"
#include "support/Guards.h"
#include "support/TestSupport.h"
#include "ui/MsgBoxModel.h"

using namespace vxtest;

namespace {

bool WaitUntil(const std::function<bool()>& done, DWORD ms = 10000)
{
    for (DWORD waited = 0; waited < ms; waited += 20) {
        if (done())
            return true;
        Sleep(20);
    }
    return done();
}

// ---------------------------------------------------------------------------------------------
// The fake service manager and engine.

struct Report {
    DWORD state, checkPoint, waitHint, accepted;
    bool operator==(const Report& o) const
    {
        return state == o.state && checkPoint == o.checkPoint && waitHint == o.waitHint && accepted == o.accepted;
    }
};
std::ostream& operator<<(std::ostream& os, const Report& r)
{
    return os << "{state " << r.state << ", checkpoint " << r.checkPoint << ", hint " << r.waitHint << ", accepted 0x"
              << std::hex << r.accepted << std::dec << "}";
}

struct EngineCall {
    DWORD code, eventType;
    void* eventData;
    DWORD thread;
};

const SERVICE_STATUS_HANDLE kFakeStatusHandle = (SERVICE_STATUS_HANDLE)(ULONG_PTR)0x5151;
const DWORD kEngineResultBase = 0x5000;

struct FakeManager {
    std::mutex lock;
    std::vector<Report> reports;
    std::vector<EngineCall> calls;
    LPHANDLER_FUNCTION_EX handler = nullptr;
    void* context = nullptr;
    std::wstring registeredName;
    HANDLE gates[256] = {}; // the engine waits on gates[code] when it is set

    std::vector<DWORD> States()
    {
        std::lock_guard<std::mutex> g(lock);
        std::vector<DWORD> out;
        for (const Report& r : reports)
            out.push_back(r.state);
        return out;
    }
    size_t ReportCount()
    {
        std::lock_guard<std::mutex> g(lock);
        return reports.size();
    }
    DWORD LastState()
    {
        std::lock_guard<std::mutex> g(lock);
        return reports.empty() ? 0 : reports.back().state;
    }
    bool Called(DWORD code)
    {
        std::lock_guard<std::mutex> g(lock);
        for (const EngineCall& c : calls)
            if (c.code == code)
                return true;
        return false;
    }
};
FakeManager* g_fake = nullptr;

SERVICE_STATUS_HANDLE FakeRegister(const wchar_t* name, LPHANDLER_FUNCTION_EX handler, void* context)
{
    std::lock_guard<std::mutex> g(g_fake->lock);
    g_fake->registeredName = name;
    g_fake->handler = handler;
    g_fake->context = context;
    return kFakeStatusHandle;
}

BOOL FakeSetStatus(SERVICE_STATUS_HANDLE handle, SERVICE_STATUS* st)
{
    EXPECT_EQ(handle, kFakeStatusHandle);
    EXPECT_EQ(st->dwServiceType, (DWORD)SERVICE_WIN32_OWN_PROCESS);
    EXPECT_EQ(st->dwWin32ExitCode, (DWORD)NO_ERROR);
    std::lock_guard<std::mutex> g(g_fake->lock);
    g_fake->reports.push_back({st->dwCurrentState, st->dwCheckPoint, st->dwWaitHint, st->dwControlsAccepted});
    return TRUE;
}

DWORD FakeEngine(DWORD code, DWORD eventType, void* eventData, SERVICE_STATUS* st)
{
    HANDLE gate = nullptr;
    {
        std::lock_guard<std::mutex> g(g_fake->lock);
        g_fake->calls.push_back({code, eventType, eventData, GetCurrentThreadId()});
        gate = code < 256 ? g_fake->gates[code] : nullptr;
    }
    if (code == EngineInitialise && st)
        st->dwControlsAccepted |= SERVICE_ACCEPT_SESSIONCHANGE;
    if (gate)
        WaitForSingleObject(gate, 10000);
    return kEngineResultBase + code;
}

class ServiceStateMachine : public ::testing::Test {
protected:
    FakeManager fake;
    ScopedValue<FakeManager*> current{g_fake, &fake};
    ScopedValue<decltype(ServiceSeams::pfnRegisterServiceCtrlHandlerEx)> reg{
        ServiceSeams::pfnRegisterServiceCtrlHandlerEx, FakeRegister};
    ScopedValue<decltype(ServiceSeams::pfnSetServiceStatus)> set{ServiceSeams::pfnSetServiceStatus, FakeSetStatus};
    ScopedValue<decltype(ServiceSeams::pfnEngineControl)> engine{ServiceSeams::pfnEngineControl, FakeEngine};
    std::thread serviceMain;
    std::atomic<DWORD> mainThread{0};

    void TearDown() override
    {
        for (HANDLE& gate : fake.gates) {
            if (gate) {
                SetEvent(gate);
            }
        }
        if (serviceMain.joinable()) {
            if (fake.LastState() != SERVICE_STOPPED && fake.handler)
                Control(SERVICE_CONTROL_STOP);
            serviceMain.join();
        }
        for (HANDLE& gate : fake.gates) {
            if (gate)
                CloseHandle(gate);
        }
    }
    void Gate(DWORD code) { fake.gates[code] = CreateEventW(nullptr, TRUE, FALSE, nullptr); }
    void Open(DWORD code) { SetEvent(fake.gates[code]); }
    void StartMain()
    {
        serviceMain = std::thread([this] {
            mainThread = GetCurrentThreadId();
            ServiceMain(0, nullptr);
        });
    }
    void StartRunning()
    {
        StartMain();
        ASSERT_TRUE(WaitUntil([&] { return fake.LastState() == SERVICE_RUNNING; })) << "never reported running";
    }
    DWORD Control(DWORD code, DWORD eventType = 0, void* data = nullptr)
    {
        return fake.handler(code, eventType, data, fake.context);
    }
    void JoinMain()
    {
        ASSERT_TRUE(WaitUntil([&] { return fake.LastState() == SERVICE_STOPPED; })) << "never reported stopped";
        serviceMain.join();
    }
};

// Catches a wrong record (state, checkpoint, wait hint, accepted controls), a missing report,
// engine codes out of order or on the handler's thread, and a stop that does not end the
// service main.
TEST_F(ServiceStateMachine, StartAndStopReportExactlyTheStatesOfTheLifecycle)
{
    StartRunning();
    EXPECT_EQ(fake.registeredName, GetServiceHostName());
    ASSERT_NE(fake.context, nullptr) << "the handler's context is the completion port";
    EXPECT_EQ(Control(SERVICE_CONTROL_STOP), (DWORD)NO_ERROR);
    JoinMain();

    const DWORD all = SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SESSIONCHANGE;
    const std::vector<Report> expected = {
        {SERVICE_START_PENDING, 0, 2000, SERVICE_ACCEPT_STOP},
        {SERVICE_RUNNING, 0, 2000, all},
        {SERVICE_STOP_PENDING, 1, 2000, all},
        {SERVICE_STOPPED, 0, 2000, all},
    };
    EXPECT_EQ(fake.reports, expected);
    ASSERT_EQ(fake.calls.size(), 3u);
    const DWORD codes[] = {EngineInitialise, EngineStart, EngineStop};
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(fake.calls[i].code, codes[i]) << "call " << i;
        EXPECT_EQ(fake.calls[i].thread, mainThread.load()) << "call " << i << " runs on the service main's thread";
    }
    EXPECT_EQ(GetServiceHostStatus().dwCurrentState, (DWORD)SERVICE_STOPPED);
    EXPECT_EQ(Control(SERVICE_CONTROL_STOP), (DWORD)ERROR_CALL_NOT_IMPLEMENTED) << "a stopped service";
}

// Catches a second stop that is posted again (the engine's stop would run twice) or that waits
// for the first one instead of being refused at once; interrogate must report the record as
// it is.
TEST_F(ServiceStateMachine, ControlsWhileStoppingAreRefusedAndInterrogateReports)
{
    Gate(EngineStop);
    StartRunning();
    ASSERT_EQ(Control(SERVICE_CONTROL_STOP), (DWORD)NO_ERROR);
    ASSERT_TRUE(WaitUntil([&] { return fake.Called(EngineStop); }));
    const size_t before = fake.ReportCount();
    EXPECT_EQ(Control(SERVICE_CONTROL_STOP), (DWORD)ERROR_CALL_NOT_IMPLEMENTED);
    EXPECT_EQ(Control(SERVICE_CONTROL_SHUTDOWN), (DWORD)ERROR_CALL_NOT_IMPLEMENTED);
    EXPECT_EQ(Control(SERVICE_CONTROL_PARAMCHANGE), (DWORD)ERROR_CALL_NOT_IMPLEMENTED);
    EXPECT_EQ(fake.ReportCount(), before) << "refusals report nothing";
    EXPECT_EQ(Control(SERVICE_CONTROL_INTERROGATE), (DWORD)NO_ERROR);
    ASSERT_EQ(fake.ReportCount(), before + 1);
    EXPECT_EQ(fake.reports.back(), fake.reports[before - 1]) << "interrogate repeats the record";
    Open(EngineStop);
    JoinMain();
    EXPECT_EQ(fake.States(), (std::vector<DWORD>{SERVICE_START_PENDING, SERVICE_RUNNING, SERVICE_STOP_PENDING,
                                                 SERVICE_STOP_PENDING, SERVICE_STOPPED}));
}

// Catches pause and continue refused in the wrong states, a continue that does not go through
// its own pending state, and posted codes that do not reach the engine's thread.
TEST_F(ServiceStateMachine, PauseAndContinueFollowTheirPendingStates)
{
    StartRunning();
    EXPECT_EQ(Control(SERVICE_CONTROL_CONTINUE), (DWORD)ERROR_CALL_NOT_IMPLEMENTED) << "running";
    ASSERT_EQ(Control(SERVICE_CONTROL_PAUSE), (DWORD)NO_ERROR);
    ASSERT_TRUE(WaitUntil([&] { return fake.LastState() == SERVICE_PAUSED; }));
    EXPECT_EQ(Control(SERVICE_CONTROL_PAUSE), (DWORD)ERROR_CALL_NOT_IMPLEMENTED) << "paused";
    ASSERT_EQ(Control(SERVICE_CONTROL_CONTINUE), (DWORD)NO_ERROR);
    ASSERT_TRUE(WaitUntil([&] { return fake.LastState() == SERVICE_RUNNING; }));
    ASSERT_EQ(Control(SERVICE_CONTROL_STOP), (DWORD)NO_ERROR);
    JoinMain();

    const std::vector<Report> tail(fake.reports.begin() + 2, fake.reports.end());
    const DWORD all = SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SESSIONCHANGE;
    const std::vector<Report> expected = {
        {SERVICE_PAUSE_PENDING, 1, 2000, all}, {SERVICE_PAUSED, 0, 2000, all},
        {SERVICE_CONTINUE_PENDING, 1, 2000, all}, {SERVICE_RUNNING, 0, 2000, all},
        {SERVICE_STOP_PENDING, 1, 2000, all}, {SERVICE_STOPPED, 0, 2000, all},
    };
    EXPECT_EQ(tail, expected);
    std::vector<DWORD> codes;
    for (const EngineCall& c : fake.calls) {
        codes.push_back(c.code);
        EXPECT_EQ(c.thread, mainThread.load()) << "code " << c.code;
    }
    EXPECT_EQ(codes, (std::vector<DWORD>{EngineInitialise, EngineStart, SERVICE_CONTROL_PAUSE, EngineStart, EngineStop}));
}

// Catches session changes or user codes that are posted to the service main (they must run at
// once on the handler's thread), an engine result that is not passed back, lost event data, and
// a status report missing after a user code or added after a system one.
TEST_F(ServiceStateMachine, DirectCodesRunOnTheHandlerThreadWithTheirResults)
{
    StartRunning();
    WTSSESSION_NOTIFICATION note = {sizeof(note), 7};
    const struct {
        DWORD code, eventType;
        bool reports;
    } cases[] = {
        {SERVICE_CONTROL_DEVICEEVENT, 0x8000, false},
        {SERVICE_CONTROL_HARDWAREPROFILECHANGE, 1, false},
        {SERVICE_CONTROL_POWEREVENT, 4, false},
        {SERVICE_CONTROL_SESSIONCHANGE, WTS_SESSION_LOGON, false},
        {EngineReloadSettings, 0, true},
        {EngineReleaseSessions, 0, true},
        {200, 0, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE("code " + std::to_string(c.code));
        const size_t reports = fake.ReportCount();
        const size_t calls = fake.calls.size();
        EXPECT_EQ(Control(c.code, c.eventType, &note), kEngineResultBase + c.code);
        ASSERT_EQ(fake.calls.size(), calls + 1);
        const EngineCall& call = fake.calls.back();
        EXPECT_EQ(call.code, c.code);
        EXPECT_EQ(call.eventType, c.eventType);
        EXPECT_EQ(call.eventData, (void*)&note);
        EXPECT_EQ(call.thread, GetCurrentThreadId());
        ASSERT_EQ(fake.ReportCount(), reports + (c.reports ? 1 : 0));
        if (c.reports) {
            EXPECT_EQ(fake.reports.back().state, (DWORD)SERVICE_RUNNING);
        }
    }
}

// Catches a stop that overlaps the start still running: the handler must wait for the start
// to end (running reported) before it enters the stop's pending state.
TEST_F(ServiceStateMachine, APendingStateWaitsForTheOneBefore)
{
    Gate(EngineStart);
    StartMain();
    ASSERT_TRUE(WaitUntil([&] { return fake.Called(EngineStart) && fake.handler; }));
    std::atomic<bool> returned{false};
    std::atomic<DWORD> result{0xFFFFFFFF};
    std::thread stopper([&] {
        result = Control(SERVICE_CONTROL_STOP);
        returned = true;
    });
    Sleep(300);
    EXPECT_FALSE(returned.load()) << "the stop did not wait for the start";
    EXPECT_EQ(fake.States(), (std::vector<DWORD>{SERVICE_START_PENDING}));
    Open(EngineStart);
    stopper.join();
    EXPECT_EQ(result.load(), (DWORD)NO_ERROR);
    JoinMain();
    EXPECT_EQ(fake.States(),
              (std::vector<DWORD>{SERVICE_START_PENDING, SERVICE_RUNNING, SERVICE_STOP_PENDING, SERVICE_STOPPED}));
}

// "/service": catches a dispatcher given another name or service main, an event source that
// the engine cannot reach while the service runs, and a source left registered afterwards.
HANDLE g_sourceSeen = nullptr;
std::wstring g_tableName;
LPSERVICE_MAIN_FUNCTIONW g_tableMain = nullptr;
HANDLE g_deregistered = nullptr;
const HANDLE kFakeSource = (HANDLE)(ULONG_PTR)0x7373;

TEST(ServiceDispatcher, RunServiceHoldsTheEventSourceWhileTheServiceRuns)
{
    ScopedValue<decltype(ServiceSeams::pfnRegisterEventSource)> reg{
        ServiceSeams::pfnRegisterEventSource, [](const wchar_t* name) -> HANDLE {
            return std::wstring(name) == GetServiceHostName() ? kFakeSource : nullptr;
        }};
    ScopedValue<decltype(ServiceSeams::pfnDeregisterEventSource)> dereg{ServiceSeams::pfnDeregisterEventSource,
                                                                        [](HANDLE h) -> BOOL {
                                                                            g_deregistered = h;
                                                                            return TRUE;
                                                                        }};
    ScopedValue<decltype(ServiceSeams::pfnStartServiceCtrlDispatcher)> dispatch{
        ServiceSeams::pfnStartServiceCtrlDispatcher, [](const SERVICE_TABLE_ENTRYW* table) -> BOOL {
            g_tableName = table[0].lpServiceName;
            g_tableMain = table[0].lpServiceProc;
            g_sourceSeen = GetEventSource();
            return table[1].lpServiceName == nullptr && table[1].lpServiceProc == nullptr;
        }};
    EXPECT_EQ(RunService(), 1);
    EXPECT_EQ(g_tableName, std::wstring(L"Vantrel"));
    EXPECT_EQ(g_tableMain, &ServiceMain);
    EXPECT_EQ(g_sourceSeen, kFakeSource);
    EXPECT_EQ(GetEventSource(), nullptr);
    EXPECT_EQ(g_deregistered, kFakeSource);
}

// ---------------------------------------------------------------------------------------------
// Install and removal with Wine's real service manager.

struct Box {
    UINT flags;
    int id;
    DWORD lastError;
};
std::vector<Box> g_boxes;
std::vector<int> g_answers;

int RecordBox(HWND, UINT flags, const wchar_t* text)
{
    g_boxes.push_back({flags, MsgBoxModel::ResourceIdOf(text), GetLastError()});
    if (g_answers.empty())
        return IDOK;
    int answer = g_answers.front();
    g_answers.erase(g_answers.begin());
    return answer;
}

const UINT kInfo = MB_ICONINFORMATION;
const UINT kRetryCancel = 0x15 | MsgBoxModel::kAppendLastError;

std::wstring BinFolder()
{
    wchar_t path[MAX_PATH];
    DWORD n = GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring s(path, n);
    return s.substr(0, s.find_last_of(L"\\/") + 1);
}

std::wstring EventSourceKey(const std::wstring& name)
{
    return L"SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\" + name;
}

// The service's configuration as the service manager keeps it.
struct Config {
    DWORD type = 0, start = 0, errorControl = 0;
    std::wstring path, display;
    bool ok = false;
};
Config ReadConfig(const std::wstring& name)
{
    Config c;
    SC_HANDLE scm = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
    SC_HANDLE svc = scm ? OpenServiceW(scm, name.c_str(), SERVICE_QUERY_CONFIG) : nullptr;
    std::vector<BYTE> buf(8192);
    DWORD needed = 0;
    auto* q = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(buf.data());
    if (svc && QueryServiceConfigW(svc, q, (DWORD)buf.size(), &needed)) {
        c = {q->dwServiceType, q->dwStartType, q->dwErrorControl, q->lpBinaryPathName ? q->lpBinaryPathName : L"",
             q->lpDisplayName ? q->lpDisplayName : L"", true};
    }
    if (svc)
        CloseServiceHandle(svc);
    if (scm)
        CloseServiceHandle(scm);
    return c;
}

bool Exists(const std::wstring& name)
{
    SC_HANDLE scm = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
    SC_HANDLE svc = scm ? OpenServiceW(scm, name.c_str(), SERVICE_QUERY_STATUS) : nullptr;
    if (svc)
        CloseServiceHandle(svc);
    if (scm)
        CloseServiceHandle(scm);
    return svc != nullptr;
}

// A deleted service leaves the service manager once its process has gone.
bool Gone(const std::wstring& name)
{
    return WaitUntil([&] { return !Exists(name); }, 5000);
}

// Wine's service manager refuses starts (ERROR_SERVICE_DATABASE_LOCKED) while it is still
// starting the prefix's own services; the tests begin once it takes the database lock.
void WaitForServiceManager()
{
    SC_HANDLE scm = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_LOCK);
    if (!scm)
        return;
    WaitUntil(
        [&] {
            SC_LOCK lock = LockServiceDatabase(scm);
            if (lock)
                UnlockServiceDatabase(lock);
            return lock != nullptr || GetLastError() != ERROR_SERVICE_DATABASE_LOCKED;
        },
        30000);
    CloseServiceHandle(scm);
}

// A stopped service of the given start type, created without the host.
bool CreateStopped(const std::wstring& name, const std::wstring& binaryPath, DWORD startType)
{
    SC_HANDLE scm = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CREATE_SERVICE);
    SC_HANDLE svc = scm ? CreateServiceW(scm, name.c_str(), name.c_str(), SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                                         startType, SERVICE_ERROR_NORMAL, binaryPath.c_str(), nullptr, nullptr,
                                         nullptr, nullptr, nullptr)
                        : nullptr;
    if (svc)
        CloseServiceHandle(svc);
    if (scm)
        CloseServiceHandle(scm);
    return svc != nullptr;
}

class ServiceInstall : public ::testing::Test {
protected:
    std::wstring name;
    ScopedTempDir dir;
    ScopedValue<decltype(ServiceSeams::pfnMsgEx)> boxes{ServiceSeams::pfnMsgEx, RecordBox};

    void SetUp() override
    {
        static int counter = 0;
        name = L"VantrelTest" + std::to_wstring(GetCurrentProcessId()) + L"_" + std::to_wstring(++counter);
        g_boxes.clear();
        g_answers.clear();
        ASSERT_EQ(SetServiceHostName(name.c_str()), 1);
        ASSERT_EQ(SetServiceHostFolder(dir.path().c_str()), 1);
        for (const wchar_t* file : {L"VXA64.EXE", L"VXDA64.DLL"}) {
            ASSERT_TRUE(CopyFileW((BinFolder() + file).c_str(), dir.file(file).c_str(), FALSE))
                << "the built " << std::string(file, file + wcslen(file)) << " beside the tests";
        }
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, EventSourceKey(name).c_str());
        WaitForServiceManager();
    }
    void TearDown() override
    {
        RemoveService(1);
        RegDeleteKeyW(HKEY_LOCAL_MACHINE, EventSourceKey(name).c_str());
        SetServiceHostName(nullptr);
        SetServiceHostFolder(nullptr);
        // The service's process may still be leaving; its files go with the folder once it has.
        WaitUntil([&] { return DeleteFileW(dir.file(L"VXA64.EXE").c_str()) || GetLastError() == ERROR_FILE_NOT_FOUND; },
                  3000);
    }
    std::wstring ImagePath() const { return L"\"" + dir.file(L"VXA64.EXE") + L"\" /service"; }
    bool WaitForState(DWORD state)
    {
        return WaitUntil([&] { return QueryServiceState() == state; });
    }
    void ExpectBoxes(std::initializer_list<Box> expected)
    {
        ASSERT_EQ(g_boxes.size(), expected.size());
        size_t i = 0;
        for (const Box& b : expected) {
            EXPECT_EQ(g_boxes[i].flags, b.flags) << "box " << i;
            EXPECT_EQ(g_boxes[i].id, b.id) << "box " << i;
            ++i;
        }
    }
};

// The whole road of "/load" and "/unload": catches a wrong configuration (quoted image path,
// automatic start, own process, normal error control, display name), missing or wrong
// event-source values, a service that does not run the built host, wrong messages, a removal
// that leaves the service, and 1060 not taken as success.
TEST_F(ServiceInstall, LoadRunsTheServiceAndUnloadRemovesIt)
{
    ASSERT_EQ(InstallService(0), 1) << "error " << GetLastError();
    ExpectBoxes({{kInfo, -12, 0}});
    const Config c = ReadConfig(name);
    ASSERT_TRUE(c.ok);
    EXPECT_EQ(c.path, ImagePath());
    EXPECT_EQ(c.start, (DWORD)SERVICE_AUTO_START);
    EXPECT_EQ(c.type & 0xFF, (DWORD)SERVICE_WIN32_OWN_PROCESS);
    EXPECT_EQ(c.errorControl, (DWORD)SERVICE_ERROR_NORMAL);
    EXPECT_EQ(c.display, name);

    DWORD types = 0, cb = sizeof(types);
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, EventSourceKey(name).c_str(), L"TypesSupported", RRF_RT_REG_DWORD,
                           nullptr, &types, &cb),
              ERROR_SUCCESS);
    EXPECT_EQ(types, 7u);
    wchar_t file[MAX_PATH] = L"";
    cb = sizeof(file);
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, EventSourceKey(name).c_str(), L"EventMessageFile", RRF_RT_REG_SZ,
                           nullptr, file, &cb),
              ERROR_SUCCESS);
    EXPECT_EQ(std::wstring(file), dir.file(L"VXDA64.DLL"));

    ASSERT_TRUE(WaitForState(SERVICE_RUNNING)) << "state " << QueryServiceState();
    EXPECT_EQ(InstallService(0), 1) << "a running service";
    ExpectBoxes({{kInfo, -12, 0}, {kInfo, -9, 0}});
    EXPECT_TRUE(SendServiceControl(EngineReloadSettings)) << "error " << GetLastError();

    EXPECT_EQ(RemoveService(0), 1) << "error " << GetLastError();
    EXPECT_TRUE(Gone(name));
    SetLastError(0xdeadbeef);
    EXPECT_EQ(QueryServiceState(), 0u);
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_SERVICE_DOES_NOT_EXIST);
    EXPECT_EQ(RemoveService(0), 1) << "no service: said, and success";
    EXPECT_EQ(RemoveService(1), 1);
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(SendServiceControl(EngineReleaseSessions));
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_SERVICE_DOES_NOT_EXIST);
    ExpectBoxes({{kInfo, -12, 0}, {kInfo, -9, 0}, {kInfo, -13, 0}, {kInfo, -10, 0}});
}

// Catches an existing service left on manual start, not started, or reported with a box.
TEST_F(ServiceInstall, AStoppedManualServiceBecomesAutomaticAndStartsWithoutABox)
{
    ASSERT_TRUE(CreateStopped(name, ImagePath(), SERVICE_DEMAND_START));
    ASSERT_EQ(QueryServiceState(), (DWORD)SERVICE_STOPPED);
    EXPECT_EQ(InstallService(0), 1) << "error " << GetLastError();
    EXPECT_EQ(ReadConfig(name).start, (DWORD)SERVICE_AUTO_START);
    EXPECT_TRUE(WaitForState(SERVICE_RUNNING)) << "state " << QueryServiceState();
    EXPECT_EQ(RemoveService(1), 1);
    EXPECT_TRUE(Gone(name));
    ExpectBoxes({});
}

// A service that cannot start (no executable in its folder): catches a silent install that
// shows a box or keeps the service, a Retry that does not try again, a Cancel that keeps the
// service, and a box without the reason.
TEST_F(ServiceInstall, AFailedStartAsksRetryOrCancelAndRemovesTheService)
{
    ScopedTempDir empty;
    ASSERT_EQ(SetServiceHostFolder(empty.path().c_str()), 1);
    for (int silent = 1; silent >= 0; --silent) {
        SCOPED_TRACE(silent ? "silent" : "with messages");
        g_boxes.clear();
        g_answers = {IDRETRY, IDCANCEL};
        SetLastError(0);
        EXPECT_EQ(InstallService(silent), 0);
        const DWORD err = GetLastError();
        EXPECT_NE(err, 0u);
        EXPECT_TRUE(Gone(name)) << "the service went with the failure";
        if (silent) {
            ExpectBoxes({});
        } else {
            ExpectBoxes({{kRetryCancel, -7, 0}, {kRetryCancel, -7, 0}});
            for (const Box& b : g_boxes)
                EXPECT_EQ(b.lastError, err) << "the box shows the reason";
        }
    }
}

// A too long folder: catches a cut image path handed to the service manager.
TEST_F(ServiceInstall, AFolderTooLongForTheImagePathIsRefusedBeforeAnythingIsCreated)
{
    const std::wstring longFolder = L"C:\\" + std::wstring(245, L'x');
    ASSERT_EQ(SetServiceHostFolder(longFolder.c_str()), 1);
    EXPECT_EQ(InstallService(0), 0);
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_FILENAME_EXCED_RANGE);
    EXPECT_FALSE(Exists(name));
    ExpectBoxes({{MB_OK | MB_ICONERROR | MsgBoxModel::kAppendLastError, -7, 0}});
    EXPECT_EQ(SetServiceHostFolder(std::wstring(MAX_PATH, L'y').c_str()), 0) << "longer than a path";
}

// The removal's polling, with a service that says it keeps running: catches a wrong number of
// looks or pauses, a deletion of a service that has not stopped, and the failure box.
int g_sleeps = 0;
TEST_F(ServiceInstall, ARemovalGivesUpAfterTenSecondsOfAServiceThatDoesNotStop)
{
    ASSERT_TRUE(CreateStopped(name, ImagePath(), SERVICE_DEMAND_START));
    ScopedValue<decltype(ServiceSeams::pfnQueryServiceStatus)> query{
        ServiceSeams::pfnQueryServiceStatus, [](SC_HANDLE, SERVICE_STATUS* st) -> BOOL {
            *st = {SERVICE_WIN32_OWN_PROCESS, SERVICE_RUNNING, SERVICE_ACCEPT_STOP, 0, 0, 0, 0};
            return TRUE;
        }};
    ScopedValue<decltype(ServiceSeams::pfnControlService)> control{
        ServiceSeams::pfnControlService, [](SC_HANDLE, DWORD code, SERVICE_STATUS* st) -> BOOL {
            EXPECT_EQ(code, (DWORD)SERVICE_CONTROL_STOP);
            *st = {SERVICE_WIN32_OWN_PROCESS, SERVICE_STOP_PENDING, 0, 0, 0, 1, 2000};
            return TRUE;
        }};
    ScopedValue<decltype(ServiceSeams::pfnSleep)> sleep{ServiceSeams::pfnSleep, [](DWORD ms) {
                                                            EXPECT_EQ(ms, 1000u);
                                                            ++g_sleeps;
                                                        }};
    g_sleeps = 0;
    EXPECT_EQ(RemoveService(1), 0);
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_SERVICE_REQUEST_TIMEOUT);
    EXPECT_EQ(g_sleeps, 10);
    EXPECT_TRUE(Exists(name));
    ExpectBoxes({});

    g_sleeps = 0;
    g_answers = {IDRETRY, IDCANCEL};
    EXPECT_EQ(RemoveService(0), 0);
    EXPECT_EQ(g_sleeps, 20) << "Retry polls again";
    EXPECT_TRUE(Exists(name));
    ExpectBoxes({{kRetryCancel, -8, 0}, {kRetryCancel, -8, 0}});
    EXPECT_EQ(g_boxes[0].lastError, (DWORD)ERROR_SERVICE_REQUEST_TIMEOUT);
}

// What a refused deletion means: catches 1072 not taken as success (with message 11), other
// errors taken as success, and boxes in silent mode.
DWORD g_deleteError = 0;
TEST_F(ServiceInstall, RemovalResultsFollowTheDeletionError)
{
    ASSERT_TRUE(CreateStopped(name, ImagePath(), SERVICE_DEMAND_START));
    ScopedValue<decltype(ServiceSeams::pfnDeleteService)> del{ServiceSeams::pfnDeleteService, [](SC_HANDLE) -> BOOL {
                                                                  SetLastError(g_deleteError);
                                                                  return FALSE;
                                                              }};
    const struct {
        DWORD error;
        int silent, result, box;
        UINT flags;
    } cases[] = {
        {ERROR_SERVICE_MARKED_FOR_DELETE, 0, 1, -11, kInfo},
        {ERROR_SERVICE_MARKED_FOR_DELETE, 1, 1, 0, 0},
        {ERROR_ACCESS_DENIED, 1, 0, 0, 0},
        {ERROR_ACCESS_DENIED, 0, 0, -8, kRetryCancel},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE("error " + std::to_string(c.error) + (c.silent ? " silent" : ""));
        g_deleteError = c.error;
        g_boxes.clear();
        g_answers = {IDCANCEL};
        EXPECT_EQ(RemoveService(c.silent), c.result);
        EXPECT_EQ(GetLastError(), c.error);
        if (c.box) {
            ExpectBoxes({{c.flags, c.box, 0}});
        } else {
            ExpectBoxes({});
        }
    }
}

// ---------------------------------------------------------------------------------------------
// The library's entry point and the host executables.

struct Library {
    HMODULE h = LoadLibraryW(L"VXDA64.DLL");
    ~Library()
    {
        if (h)
            FreeLibrary(h);
    }
};
using EntryPoint = int(WINAPI*)(HINSTANCE, const wchar_t*, int);

UINT g_posted = 0;
WPARAM g_wParam = 0;
LPARAM g_lParam = 0;

// Catches modes that do something when they must not, wrong exit codes, and a "/msg" that
// shows the warning itself although the session's monitor window is there.
TEST(EntryPoint, ModesThatTouchNothingAndTheWarningGoesToTheMonitorWindow)
{
    Library lib;
    ASSERT_NE(lib.h, nullptr) << "LoadLibraryW error " << GetLastError();
    auto doWinMain = GetProcAs<EntryPoint>(lib.h, "DoWinMain");
    ASSERT_NE(doWinMain, nullptr);
    EXPECT_NE(GetProcAddress(lib.h, "DoWinMainCFG"), nullptr);
    for (const wchar_t* line : {L"/user-load", L"/user-unload", L"/CHECK4UPDATES", L"/monitor 2", L"/msg", L"/bogus", L""})
        EXPECT_EQ(doWinMain(GetModuleHandleW(nullptr), line, SW_SHOWNORMAL), 0);

    WNDCLASSW wc = {};
    wc.lpfnWndProc = [](HWND h, UINT m, WPARAM w, LPARAM l) -> LRESULT {
        if (m == RegisterWindowMessageW(L"KorvaneMessage")) {
            ++g_posted;
            g_wParam = w;
            g_lParam = l;
            return 0;
        }
        return DefWindowProcW(h, m, w, l);
    };
    wc.hInstance = GetModuleHandleW(nullptr);
    wc.lpszClassName = L"VANTREL_MONITOR";
    ASSERT_NE(RegisterClassW(&wc), 0);
    HWND monitor = CreateWindowExW(0, wc.lpszClassName, L"", WS_POPUP, 0, 0, 1, 1, nullptr, nullptr, wc.hInstance, nullptr);
    ASSERT_NE(monitor, nullptr);
    EXPECT_EQ(doWinMain(GetModuleHandleW(nullptr), L"/msg:5", SW_SHOWNORMAL), 0);
    MSG m;
    while (PeekMessageW(&m, nullptr, 0, 0, PM_REMOVE))
        DispatchMessageW(&m);
    EXPECT_EQ(g_posted, 1u);
    EXPECT_EQ(g_wParam, (WPARAM)304);
    EXPECT_EQ(g_lParam, (LPARAM)5);
    DestroyWindow(monitor);
    UnregisterClassW(wc.lpszClassName, wc.hInstance);
}

DWORD RunHost(const std::wstring& exe, const std::wstring& args)
{
    std::wstring line = L"\"" + exe + L"\" " + args;
    STARTUPINFOW si = {};
    si.cb = sizeof(si);
    PROCESS_INFORMATION pi = {};
    if (!CreateProcessW(exe.c_str(), &line[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &si, &pi))
        return 0xFFFFFFFF;
    WaitForSingleObject(pi.hProcess, 20000);
    DWORD code = 0xFFFFFFFE;
    GetExitCodeProcess(pi.hProcess, &code);
    CloseHandle(pi.hThread);
    CloseHandle(pi.hProcess);
    return code;
}

// Catches a host that does not pass its command line through, or that does something other
// than exit code 3 without its library.
TEST(HostExecutable, PassesTheCommandLineAndNeedsItsLibrary)
{
    EXPECT_EQ(RunHost(BinFolder() + L"VXA64.EXE", L"/user-load"), 0u);
    ScopedTempDir alone;
    ASSERT_TRUE(CopyFileW((BinFolder() + L"VXA64.EXE").c_str(), alone.file(L"VXA64.EXE").c_str(), FALSE));
    ASSERT_TRUE(CopyFileW((BinFolder() + L"VantrelA64.EXE").c_str(), alone.file(L"VantrelA64.EXE").c_str(), FALSE));
    EXPECT_EQ(RunHost(alone.file(L"VXA64.EXE"), L"/user-load"), 3u);
    EXPECT_EQ(RunHost(alone.file(L"VantrelA64.EXE"), L""), 3u);
}

} // namespace
