// The service host's replaceable connections to Windows: the service manager, the status
// reports, the completion port the control handler feeds, the event source, the engine callback
// and the message boxes. The shipped code sets them to the real functions; tests point them at
// fakes that play the service manager's part, so the host's state machine is tested as it
// ships. Pointers are changed only while no service main or handler runs (test set-up and
// tear-down).
#pragma once
#include <windows.h>

namespace ServiceSeams {

// Service manager.
extern SC_HANDLE (*pfnOpenSCManager)(const wchar_t* machine, const wchar_t* database, DWORD access);
extern SC_HANDLE (*pfnCreateService)(SC_HANDLE scm, const wchar_t* name, const wchar_t* displayName, DWORD access,
                                     DWORD serviceType, DWORD startType, DWORD errorControl, const wchar_t* binaryPath);
extern SC_HANDLE (*pfnOpenService)(SC_HANDLE scm, const wchar_t* name, DWORD access);
extern BOOL (*pfnStartService)(SC_HANDLE service);
extern BOOL (*pfnControlService)(SC_HANDLE service, DWORD control, SERVICE_STATUS* status);
extern BOOL (*pfnQueryServiceStatus)(SC_HANDLE service, SERVICE_STATUS* status);
// QueryServiceConfigW with the caller's buffer of cb bytes; *pcbNeeded as the system sets it.
extern BOOL (*pfnQueryServiceConfig)(SC_HANDLE service, QUERY_SERVICE_CONFIGW* config, DWORD cb, DWORD* pcbNeeded);
// ChangeServiceConfigW that changes the start type only.
extern BOOL (*pfnChangeServiceStartType)(SC_HANDLE service, DWORD startType);
extern BOOL (*pfnDeleteService)(SC_HANDLE service);
// ChangeServiceConfig2W with SERVICE_CONFIG_FAILURE_ACTIONS: what the service manager does when
// the service's process ends without the service having reported that it stopped.
extern BOOL (*pfnChangeServiceFailureActions)(SC_HANDLE service, SERVICE_FAILURE_ACTIONSW* actions);

// The running service's side.
extern BOOL (*pfnStartServiceCtrlDispatcher)(const SERVICE_TABLE_ENTRYW* table);
extern SERVICE_STATUS_HANDLE (*pfnRegisterServiceCtrlHandlerEx)(const wchar_t* name, LPHANDLER_FUNCTION_EX handler,
                                                                void* context);
extern BOOL (*pfnSetServiceStatus)(SERVICE_STATUS_HANDLE handle, SERVICE_STATUS* status);

// The completion port of the service main: created without a file, fed by the handler.
extern HANDLE (*pfnCreateCompletionPort)();
extern BOOL (*pfnPostCompletion)(HANDLE port, DWORD bytes, ULONG_PTR key);
extern BOOL (*pfnGetCompletion)(HANDLE port, DWORD* bytes, ULONG_PTR* key);

// The event source of the running service.
extern HANDLE (*pfnRegisterEventSource)(const wchar_t* source);
extern BOOL (*pfnDeregisterEventSource)(HANDLE source);

// The pause between two looks at a stopping service.
extern void (*pfnSleep)(DWORD ms);

// The engine (EngineControl).
extern DWORD (*pfnEngineControl)(DWORD control, DWORD eventType, void* eventData, SERVICE_STATUS* status);

// Every message box of the host (MsgEx: text may be a string-resource id).
extern int (*pfnMsgEx)(HWND owner, UINT flags, const wchar_t* text);

} // namespace ServiceSeams
