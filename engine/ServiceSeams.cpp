// The shipped defaults of the service host's connections to Windows (engine/ServiceSeams.h).
#include "engine/ServiceSeams.h"

#include "engine/Engine.h"
#include "ui/MsgBox.h"

namespace {

SC_HANDLE RealOpenSCManager(const wchar_t* machine, const wchar_t* database, DWORD access)
{
    return OpenSCManagerW(machine, database, access);
}

SC_HANDLE RealCreateService(SC_HANDLE scm, const wchar_t* name, const wchar_t* displayName, DWORD access,
                            DWORD serviceType, DWORD startType, DWORD errorControl, const wchar_t* binaryPath)
{
    // No load-order group, tag, dependencies or account: the service runs as LocalSystem.
    return CreateServiceW(scm, name, displayName, access, serviceType, startType, errorControl, binaryPath, nullptr,
                          nullptr, nullptr, nullptr, nullptr);
}

SC_HANDLE RealOpenService(SC_HANDLE scm, const wchar_t* name, DWORD access)
{
    return OpenServiceW(scm, name, access);
}

BOOL RealStartService(SC_HANDLE service)
{
    return StartServiceW(service, 0, nullptr);
}

BOOL RealControlService(SC_HANDLE service, DWORD control, SERVICE_STATUS* status)
{
    return ControlService(service, control, status);
}

BOOL RealQueryServiceStatus(SC_HANDLE service, SERVICE_STATUS* status)
{
    return QueryServiceStatus(service, status);
}

BOOL RealQueryServiceConfig(SC_HANDLE service, QUERY_SERVICE_CONFIGW* config, DWORD cb, DWORD* pcbNeeded)
{
    return QueryServiceConfigW(service, config, cb, pcbNeeded);
}

BOOL RealChangeServiceStartType(SC_HANDLE service, DWORD startType)
{
    return ChangeServiceConfigW(service, SERVICE_NO_CHANGE, startType, SERVICE_NO_CHANGE, nullptr, nullptr, nullptr,
                                nullptr, nullptr, nullptr, nullptr);
}

BOOL RealDeleteService(SC_HANDLE service)
{
    return DeleteService(service);
}

BOOL RealChangeServiceFailureActions(SC_HANDLE service, SERVICE_FAILURE_ACTIONSW* actions)
{
    return ChangeServiceConfig2W(service, SERVICE_CONFIG_FAILURE_ACTIONS, actions);
}

BOOL RealStartServiceCtrlDispatcher(const SERVICE_TABLE_ENTRYW* table)
{
    return StartServiceCtrlDispatcherW(table);
}

SERVICE_STATUS_HANDLE RealRegisterServiceCtrlHandlerEx(const wchar_t* name, LPHANDLER_FUNCTION_EX handler,
                                                       void* context)
{
    return RegisterServiceCtrlHandlerExW(name, handler, context);
}

BOOL RealSetServiceStatus(SERVICE_STATUS_HANDLE handle, SERVICE_STATUS* status)
{
    return SetServiceStatus(handle, status);
}

HANDLE RealCreateCompletionPort()
{
    return CreateIoCompletionPort(INVALID_HANDLE_VALUE, nullptr, 0, 1);
}

BOOL RealPostCompletion(HANDLE port, DWORD bytes, ULONG_PTR key)
{
    return PostQueuedCompletionStatus(port, bytes, key, nullptr);
}

BOOL RealGetCompletion(HANDLE port, DWORD* bytes, ULONG_PTR* key)
{
    OVERLAPPED* overlapped = nullptr;
    return GetQueuedCompletionStatus(port, bytes, key, &overlapped, INFINITE);
}

HANDLE RealRegisterEventSource(const wchar_t* source)
{
    return RegisterEventSourceW(nullptr, source);
}

BOOL RealDeregisterEventSource(HANDLE source)
{
    return DeregisterEventSource(source);
}

void RealSleep(DWORD ms)
{
    Sleep(ms);
}

DWORD RealEngineControl(DWORD control, DWORD eventType, void* eventData, SERVICE_STATUS* status)
{
    return EngineControl(control, eventType, eventData, status);
}

} // namespace

namespace ServiceSeams {

SC_HANDLE (*pfnOpenSCManager)(const wchar_t*, const wchar_t*, DWORD) = RealOpenSCManager;
SC_HANDLE (*pfnCreateService)(SC_HANDLE, const wchar_t*, const wchar_t*, DWORD, DWORD, DWORD, DWORD,
                              const wchar_t*) = RealCreateService;
SC_HANDLE (*pfnOpenService)(SC_HANDLE, const wchar_t*, DWORD) = RealOpenService;
BOOL (*pfnStartService)(SC_HANDLE) = RealStartService;
BOOL (*pfnControlService)(SC_HANDLE, DWORD, SERVICE_STATUS*) = RealControlService;
BOOL (*pfnQueryServiceStatus)(SC_HANDLE, SERVICE_STATUS*) = RealQueryServiceStatus;
BOOL (*pfnQueryServiceConfig)(SC_HANDLE, QUERY_SERVICE_CONFIGW*, DWORD, DWORD*) = RealQueryServiceConfig;
BOOL (*pfnChangeServiceStartType)(SC_HANDLE, DWORD) = RealChangeServiceStartType;
BOOL (*pfnDeleteService)(SC_HANDLE) = RealDeleteService;
BOOL (*pfnChangeServiceFailureActions)(SC_HANDLE, SERVICE_FAILURE_ACTIONSW*) = RealChangeServiceFailureActions;

BOOL (*pfnStartServiceCtrlDispatcher)(const SERVICE_TABLE_ENTRYW*) = RealStartServiceCtrlDispatcher;
SERVICE_STATUS_HANDLE (*pfnRegisterServiceCtrlHandlerEx)(const wchar_t*, LPHANDLER_FUNCTION_EX,
                                                         void*) = RealRegisterServiceCtrlHandlerEx;
BOOL (*pfnSetServiceStatus)(SERVICE_STATUS_HANDLE, SERVICE_STATUS*) = RealSetServiceStatus;

HANDLE (*pfnCreateCompletionPort)() = RealCreateCompletionPort;
BOOL (*pfnPostCompletion)(HANDLE, DWORD, ULONG_PTR) = RealPostCompletion;
BOOL (*pfnGetCompletion)(HANDLE, DWORD*, ULONG_PTR*) = RealGetCompletion;

HANDLE (*pfnRegisterEventSource)(const wchar_t*) = RealRegisterEventSource;
BOOL (*pfnDeregisterEventSource)(HANDLE) = RealDeregisterEventSource;

void (*pfnSleep)(DWORD) = RealSleep;

DWORD (*pfnEngineControl)(DWORD, DWORD, void*, SERVICE_STATUS*) = RealEngineControl;

int (*pfnMsgEx)(HWND, UINT, const wchar_t*) = MsgEx;

} // namespace ServiceSeams
