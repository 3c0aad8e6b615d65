// The shipped defaults of the engine's connections to Windows (engine/Seams.h). Each default is
// a small function around the real call, so the pointer types stay the engine's own.
// pfnStartProcessInSession has its default beside the procedure, in SessionProcess.cpp.
#include "engine/Seams.h"

#include <lm.h>
#include <powrprof.h>

#include "base/Handle.h"
#include "base/StrUtil.h"
#include "engine/EventLog.h"
#include "storage/StrList.h"

namespace {

// Buffers the network-account functions hand back.
template <class T> struct NetApiMemoryTraits : NullEmptyTraits<T*> {
    static void Release(T* p) { NetApiBufferFree(p); }
};
template <class T> using NetApiPtr = Owner<T*, NetApiMemoryTraits<T>>;

DWORD RealGetTickCount()
{
    return GetTickCount();
}

void RealGetLocalTime(SYSTEMTIME* st)
{
    GetLocalTime(st);
}

BOOLEAN RealSetSuspendState(BOOLEAN bHibernate, BOOLEAN bForce, BOOLEAN bWakeupEventsDisabled)
{
    return SetSuspendState(bHibernate, bForce, bWakeupEventsDisabled);
}

BOOL RealInitiateSystemShutdownEx(LPWSTR machine, LPWSTR message, DWORD timeout, BOOL bForce, BOOL bReboot, DWORD reason)
{
    return InitiateSystemShutdownExW(machine, message, timeout, bForce, bReboot, reason);
}

BOOL RealAbortSystemShutdown(LPWSTR machine)
{
    return AbortSystemShutdownW(machine);
}

int RealSetShutdownPrivilege(int bEnable)
{
    HANDLE hToken = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, &hToken))
        return 0;
    Handle token(hToken);
    TOKEN_PRIVILEGES tp = {};
    if (!LookupPrivilegeValueW(nullptr, L"SeShutdownPrivilege", &tp.Privileges[0].Luid))
        return 0;
    tp.PrivilegeCount = 1;
    tp.Privileges[0].Attributes = bEnable ? SE_PRIVILEGE_ENABLED : 0;
    // AdjustTokenPrivileges succeeds even when the account does not hold the privilege; only
    // the last error (ERROR_NOT_ALL_ASSIGNED) tells. It is cleared first so that an older error
    // cannot pass for a failure.
    SetLastError(ERROR_SUCCESS);
    if (!AdjustTokenPrivileges(token.Get(), FALSE, &tp, 0, nullptr, nullptr))
        return 0;
    return GetLastError() == ERROR_SUCCESS;
}

void RealGetUserGroups(const wchar_t* domain, const wchar_t* user, StrList& groups)
{
    groups.RemoveAll();
    // The groups live on a domain controller of the user's domain; when none answers, this
    // computer is asked instead (it may be the domain controller itself).
    wchar_t szServer[MAX_PATH] = L"";
    NetApiPtr<wchar_t> dc;
    if (NetGetAnyDCName(nullptr, domain, (LPBYTE*)dc.Receive()) == NERR_Success && dc) {
        StrCopy(szServer, dc.Get());
    } else {
        wchar_t szComputer[MAX_COMPUTERNAME_LENGTH + 1] = L"";
        DWORD cch = MAX_COMPUTERNAME_LENGTH + 1;
        GetComputerNameW(szComputer, &cch);
        StrFormat(szServer, L"\\\\%s", szComputer);
    }
    dc.Close();

    NetApiPtr<GROUP_USERS_INFO_0> info;
    DWORD nRead = 0, nTotal = 0;
    NET_API_STATUS status =
        NetUserGetGroups(szServer, user, 0, (LPBYTE*)info.Receive(), MAX_PREFERRED_LENGTH, &nRead, &nTotal);
    if (status == NERR_Success && info) {
        for (DWORD i = 0; i < nRead; ++i)
            groups.AddTail(info.Get()[i].grui0_name);
    }
}

void RealGetUserLocalGroups(const wchar_t* fullName, StrList& groups)
{
    groups.RemoveAll();
    NetApiPtr<LOCALGROUP_USERS_INFO_0> info;
    DWORD nRead = 0, nTotal = 0;
    NET_API_STATUS status = NetUserGetLocalGroups(nullptr, fullName, 0, LG_INCLUDE_INDIRECT, (LPBYTE*)info.Receive(),
                                                  MAX_PREFERRED_LENGTH, &nRead, &nTotal);
    if (status == NERR_Success && info) {
        for (DWORD i = 0; i < nRead; ++i)
            groups.AddTail(info.Get()[i].lgrui0_name);
    }
}

} // namespace

namespace Seams {

DWORD (*pfnGetTickCount)() = RealGetTickCount;
void (*pfnGetLocalTime)(SYSTEMTIME* st) = RealGetLocalTime;

BOOL (*pfnReportEvent)(WORD type, DWORD id, WORD nStrings, const wchar_t** strings) = ReportEventToSource;

BOOLEAN (*pfnSetSuspendState)(BOOLEAN bHibernate, BOOLEAN bForce, BOOLEAN bWakeupEventsDisabled) = RealSetSuspendState;
BOOL (*pfnInitiateSystemShutdownEx)(LPWSTR machine, LPWSTR message, DWORD timeout, BOOL bForce, BOOL bReboot,
                                    DWORD reason) = RealInitiateSystemShutdownEx;
BOOL (*pfnAbortSystemShutdown)(LPWSTR machine) = RealAbortSystemShutdown;
int (*pfnSetShutdownPrivilege)(int bEnable) = RealSetShutdownPrivilege;

void (*pfnGetUserGroups)(const wchar_t* domain, const wchar_t* user, StrList& groups) = RealGetUserGroups;
void (*pfnGetUserLocalGroups)(const wchar_t* fullName, StrList& groups) = RealGetUserLocalGroups;

} // namespace Seams
