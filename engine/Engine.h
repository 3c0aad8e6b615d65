// The engine's reaction to the service manager and to session changes: start and stop, the
// session scan, admission of each session ("Enable", "Exclude", "ApplyTo"), the last active user,
// the shutdown countdown, and the status values the configuration utility shows.
#pragma once
#include <windows.h>

class MyOpts;

// The codes the service host passes to the engine: the service manager's own numbers where there
// is one, the product's user-defined controls above 127 (the configuration utility sends 128,
// "/uninstall-msi" sends 129).
enum EngineCode : DWORD {
    EngineInitialise = 0,      // before the service reports running: names, notifications, quit event
    EngineStop = 1,            // SERVICE_CONTROL_STOP
    EngineStart = 3,           // the service is running: scan the sessions
    EngineSessionChange = 14,  // SERVICE_CONTROL_SESSIONCHANGE; event data: WTSSESSION_NOTIFICATION
    EngineReloadSettings = 128, // the settings changed: full refresh
    EngineReleaseSessions = 129, // stop watching every session; the service keeps running
};

// The service host's one callback, with an EngineCode. Always 0.
DWORD EngineControl(DWORD dwControl, DWORD dwEventType, LPVOID pEventData, SERVICE_STATUS* pStatus);

// Admits the session when the rules allow; 1 when it is watched afterwards.
int MonitorSession(DWORD dwSessionId);
// Reloads the settings (full: from scratch; else only when they changed) and scans the sessions.
void RefreshSessions(int bFull);
// Ends every session thread and the background thread (waits at most 5 seconds).
void StopMonitoring();
// Writes "SessionsMonitoring" and "LastLogoff" when they differ from what is stored.
void WriteStatus();

// The engine's state, for the service and for tests.
MyOpts& EngineOpts();
DWORD EngineSessionsTotal();
HANDLE EngineQuitEvent();
const wchar_t* EngineComputerName();
// The number of sessions in the state WTSActive (0 when the enumeration fails).
DWORD CountActiveSessions();
