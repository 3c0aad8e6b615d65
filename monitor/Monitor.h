// The in-session activity monitor ("/monitor:N") and the warning display ("/msg:N").
#pragma once
#include <windows.h>
// Runs the monitor of session dwSessionId; the process's exit code (0, 1 hook library missing, 2 broken).
int MonitorMain(DWORD dwSessionId);
// Shows the idle warning of the session from this process (no monitor window found). 0.
int ShowIdleWarning(DWORD dwSessionId);
