// The in-session monitor's replaceable connections to Windows, in the engine's seam style
// (namespace pointers set to the real thing by default). The millisecond tick is the engine's own
// (Seams::pfnGetTickCount, engine/Seams.h); these are the monitor's additions. Tests change them
// only while no monitor is running.
#pragma once
#include <windows.h>

namespace MonitorSeams {

// The wall clock in seconds (time()): the warning's deadline.
extern long long (*pfnTime)();
// GetSystemTimes from KERNEL32, looked up once when the program starts; null where the system
// lacks it.
typedef BOOL(WINAPI* GetSystemTimesFn)(FILETIME* idle, FILETIME* kernel, FILETIME* user);
extern GetSystemTimesFn pfnGetSystemTimes;
// The hook library's full path; null: VXHA64.DLL in the folder of the process's executable.
extern const wchar_t* pszHookLibrary;
// What the named events' names start with: "Global\" (tests use a private prefix, so that they
// never touch the events of a service running on the same machine).
extern const wchar_t* pszEventPrefix;

} // namespace MonitorSeams
