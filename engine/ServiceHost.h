// The Windows service "Vantrel": the service main and its control handler, which move the
// service status through its pending states and hand the controls to the engine
// (EngineControl); install, start, stop and removal for "/load" and "/unload"; user-defined
// controls to the running service; the event source of "/service".
//
// Two threads meet here: the service main (engine codes 0, 1 and 3 and every code that starts a
// pending state, posted to it through a completion port) and the service manager's handler
// thread (interrogate, session changes and the user-defined codes, handled at once). An
// auto-reset status event keeps two pending transitions from overlapping: a control that starts
// one waits for the end of the one before.
#pragma once
#include <windows.h>

// The name of the service, its display name and its event source: "Vantrel". Tests install
// services of their own names; null or empty restores the product's name. 0 (ERROR_INVALID_NAME)
// for a name longer than the service manager allows, which changes nothing.
int SetServiceHostName(const wchar_t* name);
const wchar_t* GetServiceHostName();

// The folder "/load" registers the service from ("VXA64.EXE" in it) and takes the event
// messages from ("VXDA64.DLL" in it): the folder of the module this code is linked into. Tests
// install from a folder of their own; null restores that default. 0
// (ERROR_FILENAME_EXCED_RANGE) for a folder too long for a path, which changes nothing.
int SetServiceHostFolder(const wchar_t* folder);
// The folder with a trailing backslash into buf (cch characters); 0 when it does not fit.
int GetServiceHostFolder(wchar_t* buf, unsigned cch);

// "/service": registers the event source for the engine's reports, runs the service until it
// has stopped, then deregisters the source. The dispatcher's result: nonzero when the service
// ran (last error set otherwise).
int RunService();

// The service main and control handler the dispatcher runs.
void WINAPI ServiceMain(DWORD argc, LPWSTR* argv);
DWORD WINAPI ServiceControlHandler(DWORD dwControl, DWORD dwEventType, LPVOID pEventData, LPVOID pContext);

// The service's status record as last reported (for the handler's decisions and for tests).
SERVICE_STATUS GetServiceHostStatus();

// "/load" (bSilent 0) and "/load-silent": installs the service for automatic start and starts
// it, or makes an existing one automatic and starts it; sets its recovery actions (restart a
// minute after the first and second failure of a day; a refusal is ignored); registers the
// event source. 1 on success, 0 on failure (last error set). Only the non-silent form shows
// message boxes.
int InstallService(int bSilent);
// "/unload" and "/unload-silent": stops the service (waiting up to 10 seconds) and deletes it.
// A missing service or one already marked for deletion counts as success. 1 or 0.
int RemoveService(int bSilent);
// Sends a control code to the running service (user-defined codes 128 to 255 need the
// user-defined-control right, the others pause-continue). Nonzero when it was delivered.
BOOL SendServiceControl(DWORD dwControl);
// The service's current state (SERVICE_RUNNING, ...); 0 when it cannot be queried (last error
// set: ERROR_SERVICE_DOES_NOT_EXIST when there is no such service).
DWORD QueryServiceState();
