#include "engine/ServiceHost.h"

#include "base/Handle.h"
#include "base/ProductInfo.h"
#include "base/StrUtil.h"
#include "base/Thread.h"
#include "engine/Engine.h"
#include "engine/EventLog.h"
#include "engine/ServiceSeams.h"
#include "resources/resource.h"
#include "settings/MyOpts.h"
#include "storage/RegKey.h"
#include "ui/MsgBoxModel.h"

using namespace ServiceSeams;

namespace {

const wchar_t kProductServiceName[] = L"Vantrel";
const wchar_t kServiceExecutable[] = L"VXA64.EXE";
const wchar_t kMessageLibrary[] = L"VXDA64.DLL";

const DWORD kWaitHint = 2000;
// Creating: query and change the configuration, start (19). An existing service is also asked
// for its state (23). Removal: delete, stop, query the state (0x10024).
const DWORD kCreateAccess = SERVICE_QUERY_CONFIG | SERVICE_CHANGE_CONFIG | SERVICE_START;
const DWORD kExistingAccess = kCreateAccess | SERVICE_QUERY_STATUS;
const DWORD kRemoveAccess = DELETE | SERVICE_STOP | SERVICE_QUERY_STATUS;
// A stopping service is asked for its state this many times, this far apart, before removal
// gives up.
const int kStopPolls = 10;
const DWORD kStopPollMs = 1000;
// The service manager's limit for a binary path, which includes the " /service" switch.
const unsigned kMaxBinaryPath = 260;
// The failure box: the message, the system's text for the reason, Retry and Cancel (0x15).
const UINT kFailureBox = MB_RETRYCANCEL | MB_ICONERROR | MsgBoxModel::kAppendLastError;
// Recovery: a service whose process dies is started again a minute later, twice; a third
// failure within a day leaves it stopped rather than restarting a process that keeps failing.
// A day without failure starts the count again. Setting them needs the right to change the
// configuration, and restart actions also the right to start.
const DWORD kRecoveryAccess = SERVICE_CHANGE_CONFIG | SERVICE_START;
const DWORD kRestartDelayMs = 60 * 1000;
const DWORD kFailureResetSeconds = 24 * 60 * 60;

wchar_t g_szServiceName[257] = L"Vantrel";
wchar_t g_szFolder[MAX_PATH] = L""; // empty: the folder of this module

// The running service's shared state. The lock guards the status record and its report, so
// the handler thread and the service main never report a half-changed record or report out
// of order. The status event and the lock live as long as the process: a handler may still be
// waiting for its turn when the service main returns.
struct Host {
    CritSec lock;
    SERVICE_STATUS status = {};
    SERVICE_STATUS_HANDLE hStatus = nullptr;
    Handle statusEvent{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
};

Host& TheHost()
{
    static Host host;
    return host;
}

bool IsPending(DWORD state)
{
    return state == SERVICE_START_PENDING || state == SERVICE_STOP_PENDING || state == SERVICE_CONTINUE_PENDING ||
           state == SERVICE_PAUSE_PENDING;
}

DWORD CompletedState(DWORD state)
{
    switch (state) {
    case SERVICE_START_PENDING:
    case SERVICE_CONTINUE_PENDING:
        return SERVICE_RUNNING;
    case SERVICE_STOP_PENDING:
        return SERVICE_STOPPED;
    case SERVICE_PAUSE_PENDING:
        return SERVICE_PAUSED;
    default:
        return state;
    }
}

// The one writer of the status record: sets the state (0 keeps it) and reports the record. A
// pending state counts the checkpoint up from the steady state before it; a steady state
// zeroes it.
BOOL ReportStatus(DWORD state)
{
    Host& host = TheHost();
    CritSecLock lock(host.lock);
    if (state) {
        host.status.dwCurrentState = state;
        host.status.dwCheckPoint = IsPending(state) ? host.status.dwCheckPoint + 1 : 0;
    }
    if (!host.hStatus) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    SERVICE_STATUS copy = host.status;
    return pfnSetServiceStatus(host.hStatus, &copy);
}

DWORD CurrentState()
{
    return GetServiceHostStatus().dwCurrentState;
}

// Stop, pause and continue: refused at once when the service is already where the control
// leads; otherwise the handler waits for the pending state before to end, enters the new
// pending state and posts the code to the service main.
bool RefusesControl(DWORD dwControl, DWORD state)
{
    if (state == SERVICE_STOPPED)
        return true;
    switch (dwControl) {
    case SERVICE_CONTROL_STOP:
    case SERVICE_CONTROL_SHUTDOWN:
        return state == SERVICE_STOP_PENDING;
    case SERVICE_CONTROL_PAUSE:
        return state == SERVICE_PAUSE_PENDING || state == SERVICE_PAUSED;
    default: // SERVICE_CONTROL_CONTINUE
        return state == SERVICE_RUNNING || state == SERVICE_CONTINUE_PENDING;
    }
}

DWORD PendingStateFor(DWORD dwControl, DWORD state)
{
    switch (dwControl) {
    case SERVICE_CONTROL_PAUSE:
        return SERVICE_PAUSE_PENDING;
    case SERVICE_CONTROL_CONTINUE:
        return state == SERVICE_PAUSED ? SERVICE_CONTINUE_PENDING : SERVICE_START_PENDING;
    default:
        return SERVICE_STOP_PENDING;
    }
}

DWORD BeginPendingState(DWORD dwControl, HANDLE port)
{
    Host& host = TheHost();
    if (RefusesControl(dwControl, CurrentState()))
        return ERROR_CALL_NOT_IMPLEMENTED;
    WaitForSingleObject(host.statusEvent.Get(), INFINITE);
    {
        CritSecLock lock(host.lock);
        // The transition waited for may have led where this control leads (or to the end).
        const DWORD state = host.status.dwCurrentState;
        if (RefusesControl(dwControl, state)) {
            SetEvent(host.statusEvent.Get()); // the turn goes to the next control
            return ERROR_CALL_NOT_IMPLEMENTED;
        }
        ReportStatus(PendingStateFor(dwControl, state));
    }
    pfnPostCompletion(port, dwControl, 0);
    return NO_ERROR;
}

DWORD HandleControl(DWORD dwControl, DWORD dwEventType, LPVOID pEventData, HANDLE port)
{
    switch (dwControl) {
    case SERVICE_CONTROL_STOP:
    case SERVICE_CONTROL_SHUTDOWN:
    case SERVICE_CONTROL_PAUSE:
    case SERVICE_CONTROL_CONTINUE:
        return BeginPendingState(dwControl, port);
    case SERVICE_CONTROL_INTERROGATE:
        ReportStatus(0);
        return NO_ERROR;
    case SERVICE_CONTROL_PARAMCHANGE:
        return ERROR_CALL_NOT_IMPLEMENTED;
    case SERVICE_CONTROL_DEVICEEVENT:
    case SERVICE_CONTROL_HARDWAREPROFILECHANGE:
    case SERVICE_CONTROL_POWEREVENT:
    case SERVICE_CONTROL_SESSIONCHANGE: {
        SERVICE_STATUS status = GetServiceHostStatus();
        return pfnEngineControl(dwControl, dwEventType, pEventData, &status);
    }
    default: {
        // The user-defined controls (settings changed, release the sessions) and anything new.
        SERVICE_STATUS status = GetServiceHostStatus();
        DWORD result = pfnEngineControl(dwControl, dwEventType, pEventData, &status);
        ReportStatus(0);
        return result;
    }
    }
}

void RunServiceMain()
{
    Host& host = TheHost();
    ResetEvent(host.statusEvent.Get()); // a service main of this process may have run before
    Handle port(pfnCreateCompletionPort());
    const DWORD portError = GetLastError();
    SERVICE_STATUS_HANDLE hStatus =
        pfnRegisterServiceCtrlHandlerEx(GetServiceHostName(), ServiceControlHandler, port.Get());
    if (!hStatus)
        return; // nothing can be reported; the service manager sees the process end
    {
        CritSecLock lock(host.lock);
        host.hStatus = hStatus;
        host.status = {SERVICE_WIN32_OWN_PROCESS, SERVICE_START_PENDING, SERVICE_ACCEPT_STOP, NO_ERROR, 0, 0, kWaitHint};
    }
    if (!port || !host.statusEvent) {
        CritSecLock lock(host.lock);
        host.status.dwWin32ExitCode = port ? ERROR_NOT_ENOUGH_MEMORY : portError;
        ReportStatus(SERVICE_STOPPED);
        host.hStatus = nullptr;
        return;
    }
    ReportStatus(0);

    // The engine adds the controls it wants (session changes) to the accepted ones.
    SERVICE_STATUS status = GetServiceHostStatus();
    pfnEngineControl(EngineInitialise, 0, nullptr, &status);
    {
        CritSecLock lock(host.lock);
        host.status.dwControlsAccepted = status.dwControlsAccepted;
    }

    DWORD code = EngineStart;
    for (;;) {
        status = GetServiceHostStatus();
        pfnEngineControl(code, 0, nullptr, &status);
        const DWORD done = CompletedState(CurrentState());
        ReportStatus(done);
        SetEvent(host.statusEvent.Get());
        if (done == SERVICE_STOPPED)
            break;
        DWORD bytes = 0;
        ULONG_PTR key = 1;
        while (key != 0) {
            if (!pfnGetCompletion(port.Get(), &bytes, &key)) {
                // The port is gone: the service cannot hear controls any more, so it stops as
                // if asked to, rather than run deaf.
                WaitForSingleObject(host.statusEvent.Get(), INFINITE);
                ReportStatus(SERVICE_STOP_PENDING);
                bytes = SERVICE_CONTROL_STOP;
                key = 0;
            }
        }
        code = bytes;
    }
    CritSecLock lock(host.lock);
    host.hStatus = nullptr;
}

void Say(UINT flags, int nStringId)
{
    // A negative id names the library's own string.
    pfnMsgEx(nullptr, flags, (const wchar_t*)(LONG_PTR)-nStringId);
}

// Opens the service on the local computer with access; null with the last error on failure.
SC_HANDLE OpenOurService(ServiceHandle& scm, DWORD access)
{
    scm.Attach(pfnOpenSCManager(nullptr, nullptr, SC_MANAGER_CONNECT));
    return scm ? pfnOpenService(scm.Get(), GetServiceHostName(), access) : nullptr;
}

int CreateAndStart(const wchar_t* binaryPath)
{
    ServiceHandle scm(pfnOpenSCManager(nullptr, nullptr, SC_MANAGER_CREATE_SERVICE));
    if (!scm)
        return 0;
    ServiceHandle service(pfnCreateService(scm.Get(), GetServiceHostName(), GetServiceHostName(), kCreateAccess,
                                           SERVICE_WIN32_OWN_PROCESS, SERVICE_AUTO_START, SERVICE_ERROR_NORMAL,
                                           binaryPath));
    if (!service)
        return 0;
    return pfnStartService(service.Get()) ? 1 : 0;
}

int EnsureAutoStart(SC_HANDLE service)
{
    // A service's configuration takes at most 8 KB.
    const DWORD cb = 8192;
    HeapBuf<QUERY_SERVICE_CONFIGW> config(cb / sizeof(QUERY_SERVICE_CONFIGW) + 1);
    if (!config.p) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return 0;
    }
    DWORD needed = 0;
    if (!pfnQueryServiceConfig(service, config.p, cb, &needed))
        return 0;
    if (config.p->dwStartType == SERVICE_AUTO_START)
        return 1;
    return pfnChangeServiceStartType(service, SERVICE_AUTO_START) ? 1 : 0;
}

// The service exists already: a running one is left alone (said unless silent), any other is
// made to start automatically and started.
int StartExisting(int bSilent)
{
    if (QueryServiceState() == SERVICE_RUNNING) {
        if (!bSilent)
            Say(MB_ICONINFORMATION, IDS_SERVICE_ALREADY_STARTED);
        return 1;
    }
    ServiceHandle scm;
    ServiceHandle service(OpenOurService(scm, kExistingAccess));
    if (!service || !EnsureAutoStart(service.Get()))
        return 0;
    // A service that was starting already has what was asked for.
    return pfnStartService(service.Get()) || GetLastError() == ERROR_SERVICE_ALREADY_RUNNING;
}

int StopAndDelete()
{
    ServiceHandle scm;
    ServiceHandle service(OpenOurService(scm, kRemoveAccess));
    if (!service)
        return 0;
    SERVICE_STATUS status = {};
    if (!pfnQueryServiceStatus(service.Get(), &status))
        return 0;
    if (status.dwCurrentState != SERVICE_STOPPED) {
        if (status.dwCurrentState != SERVICE_STOP_PENDING &&
            !pfnControlService(service.Get(), SERVICE_CONTROL_STOP, &status))
            return 0;
        for (int i = 0; i < kStopPolls && status.dwCurrentState != SERVICE_STOPPED; ++i) {
            pfnSleep(kStopPollMs);
            if (!pfnQueryServiceStatus(service.Get(), &status))
                return 0;
        }
        if (status.dwCurrentState != SERVICE_STOPPED) {
            SetLastError(ERROR_SERVICE_REQUEST_TIMEOUT);
            return 0;
        }
    }
    return pfnDeleteService(service.Get()) ? 1 : 0;
}

// A computer that has never stored settings gets the defaults before the service first runs.
// The running service writes its status values into the settings key, and a key without the
// user lists reads as empty lists (on purpose: an administrator may empty them): without this,
// the default groups, Administrators excluded, would be lost the moment the service started.
void StoreDefaultSettingsOnce()
{
    if (MyOpts::HasStoredSettings())
        return; // stored before: the administrator's settings stay as they are
    MyOpts defaults;
    defaults.Reset();
    defaults.Store();
}

// Sets the recovery actions of the installed service. A service without them still runs, so a
// refusal here is ignored and does not fail the installation.
void SetRecoveryActions()
{
    ServiceHandle scm;
    ServiceHandle service(OpenOurService(scm, kRecoveryAccess));
    if (!service)
        return;
    SC_ACTION actions[] = {{SC_ACTION_RESTART, kRestartDelayMs}, {SC_ACTION_RESTART, kRestartDelayMs},
                           {SC_ACTION_NONE, 0}};
    SERVICE_FAILURE_ACTIONSW failure = {};
    failure.dwResetPeriod = kFailureResetSeconds;
    failure.cActions = sizeof(actions) / sizeof(actions[0]);
    failure.lpsaActions = actions;
    pfnChangeServiceFailureActions(service.Get(), &failure);
}

// The removal a failed installation ends with: no message, the installation's reason kept.
void RemoveAfterFailure()
{
    const DWORD err = GetLastError();
    RemoveService(1);
    SetLastError(err);
}

// "<folder><file>" into buf; 0 with ERROR_FILENAME_EXCED_RANGE when it does not fit.
int FolderFile(wchar_t* buf, unsigned cch, const wchar_t* file)
{
    wchar_t folder[MAX_PATH];
    if (!GetServiceHostFolder(folder, MAX_PATH))
        return 0;
    if (StrLen(folder) + StrLen(file) >= cch) {
        SetLastError(ERROR_FILENAME_EXCED_RANGE);
        return 0;
    }
    StrFormat(buf, cch, L"%s%s", folder, file);
    return 1;
}

} // namespace

int SetServiceHostName(const wchar_t* name)
{
    if (StrLen(name) >= sizeof(g_szServiceName) / sizeof(g_szServiceName[0])) {
        SetLastError(ERROR_INVALID_NAME);
        return 0;
    }
    StrCopy(g_szServiceName, StrIsEmpty(name) ? kProductServiceName : name);
    return 1;
}

const wchar_t* GetServiceHostName()
{
    return g_szServiceName;
}

int SetServiceHostFolder(const wchar_t* folder)
{
    // Room for the backslash that may be added.
    if (StrLen(folder) + 1 >= MAX_PATH) {
        SetLastError(ERROR_FILENAME_EXCED_RANGE);
        return 0;
    }
    StrCopy(g_szFolder, folder);
    return 1;
}

int GetServiceHostFolder(wchar_t* buf, unsigned cch)
{
    if (!buf || !cch)
        return 0;
    buf[0] = 0;
    wchar_t path[MAX_PATH];
    if (g_szFolder[0]) {
        StrCopy(path, g_szFolder);
        const unsigned n = StrLen(path);
        if (path[n - 1] != L'\\' && path[n - 1] != L'/')
            StrAppend(path, L"\\");
    } else {
        HMODULE module = nullptr;
        if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                                (LPCWSTR)(void*)&GetServiceHostFolder, &module))
            return 0;
        const DWORD n = GetModuleFileNameW(module, path, MAX_PATH);
        if (n == 0 || n >= MAX_PATH) {
            if (n)
                SetLastError(ERROR_FILENAME_EXCED_RANGE);
            return 0;
        }
        unsigned cut = 0;
        for (unsigned i = 0; i < n; ++i)
            if (path[i] == L'\\' || path[i] == L'/')
                cut = i + 1;
        path[cut] = 0;
    }
    if (StrLen(path) >= cch) {
        SetLastError(ERROR_FILENAME_EXCED_RANGE);
        return 0;
    }
    StrCopy(buf, cch, path);
    return 1;
}

int RunService()
{
    HANDLE source = pfnRegisterEventSource(GetServiceHostName());
    SetEventSource(source);
    SERVICE_TABLE_ENTRYW table[] = {{g_szServiceName, ServiceMain}, {nullptr, nullptr}};
    const BOOL ran = pfnStartServiceCtrlDispatcher(table);
    const DWORD err = GetLastError();
    SetEventSource(nullptr);
    if (source)
        pfnDeregisterEventSource(source);
    SetLastError(err);
    return ran ? 1 : 0;
}

void WINAPI ServiceMain(DWORD, LPWSTR*)
{
    try {
        RunServiceMain();
    } catch (...) {
        // Nothing may escape into the dispatcher; the administrator reads about it.
        LogEventNumber(MSG_ENGINE_ERROR, (long)EngineStart);
    }
}

DWORD WINAPI ServiceControlHandler(DWORD dwControl, DWORD dwEventType, LPVOID pEventData, LPVOID pContext)
{
    try {
        return HandleControl(dwControl, dwEventType, pEventData, (HANDLE)pContext);
    } catch (...) {
        return ERROR_EXCEPTION_IN_SERVICE;
    }
}

SERVICE_STATUS GetServiceHostStatus()
{
    Host& host = TheHost();
    CritSecLock lock(host.lock);
    return host.status;
}

// The failure box; the answer (IDRETRY tries again). The reason stays in the last error.
int AskRetry(int nStringId)
{
    const DWORD err = GetLastError();
    const int answer = pfnMsgEx(nullptr, kFailureBox, (const wchar_t*)(LONG_PTR)-nStringId);
    SetLastError(err);
    return answer;
}

int InstallService(int bSilent)
{
    wchar_t exe[MAX_PATH] = L"", library[MAX_PATH] = L"", binaryPath[kMaxBinaryPath + 1];
    int bPaths = FolderFile(exe, MAX_PATH, kServiceExecutable) && FolderFile(library, MAX_PATH, kMessageLibrary);
    if (bPaths && StrFormat(binaryPath, kMaxBinaryPath + 1, L"\"%s\" /service", exe) >= kMaxBinaryPath) {
        SetLastError(ERROR_FILENAME_EXCED_RANGE);
        bPaths = 0;
    }
    if (!bPaths) {
        // Nothing was tried: the service manager would have started a cut path. Retrying
        // cannot help, so the box only informs.
        if (!bSilent)
            Say(MB_OK | MB_ICONERROR | MsgBoxModel::kAppendLastError, IDS_CANNOT_REGISTER_SERVICE);
        return 0;
    }

    StoreDefaultSettingsOnce();
    for (;;) {
        if (CreateAndStart(binaryPath)) {
            if (!bSilent)
                Say(MB_ICONINFORMATION, IDS_SERVICE_STARTED);
            break;
        }
        if (GetLastError() == ERROR_SERVICE_EXISTS && StartExisting(bSilent))
            break;
        if (bSilent || AskRetry(IDS_CANNOT_REGISTER_SERVICE) != IDRETRY) {
            RemoveAfterFailure();
            return 0;
        }
    }
    SetRecoveryActions();
    // The event log reads the message texts from the library beside the service.
    RegisterEventSourceFile(GetServiceHostName(), library);
    return 1;
}

int RemoveService(int bSilent)
{
    for (;;) {
        if (StopAndDelete()) {
            if (!bSilent)
                Say(MB_ICONINFORMATION, IDS_SERVICE_STOPPED);
            return 1;
        }
        const DWORD err = GetLastError();
        if (err == ERROR_SERVICE_DOES_NOT_EXIST || err == ERROR_SERVICE_MARKED_FOR_DELETE) {
            if (!bSilent)
                Say(MB_ICONINFORMATION, err == ERROR_SERVICE_DOES_NOT_EXIST ? IDS_SERVICE_ALREADY_STOPPED
                                                                           : IDS_SERVICE_STOPS_AFTER_RESTART);
            SetLastError(err);
            return 1;
        }
        if (bSilent || AskRetry(IDS_CANNOT_UNREGISTER_SERVICE) != IDRETRY)
            return 0;
    }
}

BOOL SendServiceControl(DWORD dwControl)
{
    ServiceHandle scm;
    ServiceHandle service(
        OpenOurService(scm, dwControl >= 128 ? SERVICE_USER_DEFINED_CONTROL : SERVICE_PAUSE_CONTINUE));
    if (!service)
        return FALSE;
    SERVICE_STATUS status = {};
    return pfnControlService(service.Get(), dwControl, &status);
}

DWORD QueryServiceState()
{
    ServiceHandle scm;
    ServiceHandle service(OpenOurService(scm, SERVICE_QUERY_STATUS));
    SERVICE_STATUS status = {};
    if (!service || !pfnQueryServiceStatus(service.Get(), &status))
        return 0;
    return status.dwCurrentState;
}
