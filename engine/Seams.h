// The engine's replaceable connections to Windows. Every call that decides about time, the
// terminal server, the event log, power, group membership or starting processes in a session
// goes through one of these pointers. The shipped code sets them to the real functions; tests
// point them at a virtual clock, a simulated terminal server and recorders, so the code that
// ships is the code that is tested.
#pragma once
#include <windows.h>

class StrList;

namespace Seams {

// Time: the 32-bit millisecond tick and the local time.
extern DWORD (*pfnGetTickCount)();
extern void (*pfnGetLocalTime)(SYSTEMTIME* st);
inline DWORD Now() { return pfnGetTickCount(); }
inline void LocalTime(SYSTEMTIME* st) { pfnGetLocalTime(st); }

// Event log: one report with its type and insertion strings (ReportEventW on the source the
// service registered; nothing when no source is registered).
extern BOOL (*pfnReportEvent)(WORD type, DWORD id, WORD nStrings, const wchar_t** strings);

// Power.
extern BOOLEAN (*pfnSetSuspendState)(BOOLEAN bHibernate, BOOLEAN bForce, BOOLEAN bWakeupEventsDisabled);
extern BOOL (*pfnInitiateSystemShutdownEx)(LPWSTR machine, LPWSTR message, DWORD timeout, BOOL bForce, BOOL bReboot, DWORD reason);
extern BOOL (*pfnAbortSystemShutdown)(LPWSTR machine);
// Enables (or disables again) the shutdown privilege of the process; 0 when that fails.
extern int (*pfnSetShutdownPrivilege)(int bEnable);

// Group membership: fills groups with the names; failures give an empty list.
// Domain groups of user (bare name) in domain; the domain controller look-up is inside.
extern void (*pfnGetUserGroups)(const wchar_t* domain, const wchar_t* user, StrList& groups);
// Local groups (direct and indirect) of the full user name on this computer.
extern void (*pfnGetUserLocalGroups)(const wchar_t* fullName, StrList& groups);

// Starts cmdLine in the session as the session's user; nonzero on success (last error set on
// failure).
extern int (*pfnStartProcessInSession)(DWORD session, const wchar_t* cmdLine);

} // namespace Seams
