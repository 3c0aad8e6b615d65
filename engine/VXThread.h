// VXThread: the service's watcher of one interactive session.
//
// It starts the in-session activity monitor as the session's user, waits for that monitor to
// report activity through the session's idle event, counts idle time, shows the warning when
// "Timeout" has passed, logs the session off when "MessageTimeout" has passed as well, and
// writes what it did to the event log. The class also keeps the process-wide list of session
// threads and marks stale sessions when there are more of them than allowed.
//
// The thread body is a loop of wakes (an event or the one-second time-out). Each wake is one
// call of Wake with what the wait returned and the current tick, so a test can play hours of a
// session's life through Begin and Wake with a virtual clock, without a thread or kernel events.
#pragma once
#include <windows.h>

#include <atomic>

#include "base/DMList.h"
#include "base/Thread.h"

class MyOpts;

class VXThread : public DMThreadExAutoDelete {
public:
    VXThread(MyOpts& opts, DWORD dwSessionId);
    ~VXThread() override;

    // The list of running session threads, in order of creation (guarded by critSec).
    static DWORD GetThreadCount();
    static void FindThread(DWORD dwSessionId, VXThread*& pFound);
    // Appends a new thread to the list; the creator does this before starting it.
    static void AddToList(VXThread* pThread);
    // Marks the least recently active sessions stale when more than nStaleCount are watched.
    static void TrimStaleSessions(int bLogoffStale, int nStaleCount);

    // What one wake of the thread saw.
    enum WakeKind { WakeIdle = 0, WakeCancel = 1, WakeTimeout = 2, WakeFailed = 3 };
    // The start of a run (events aside): copies the periods, starts the monitor. 0 when the
    // thread must end (the monitor could not be started; reported).
    int Begin(DWORD dwNow);
    // One wake; 0 when the thread ends.
    int Wake(WakeKind kind, DWORD dwNow);

    // The logoff at the end of the warning period: 0 = not now, keep watching; 1 = done.
    int TryLogoff();
    // The logoff without warning (a stale session, or idle far beyond both periods).
    void DoLogoffSession(int bStaleLogoff);

    DWORD GetSessionId() const { return dwSessionId; }
    const wchar_t* GetUserName() const { return szUserName; }
    void SetUserName(const wchar_t* name);
    int IsWarned() const { return bWarned; }
    DWORD GetLastActivity() const { return dwLastActivity; }

    // Written by the engine's session-change handler and TrimStaleSessions; read each second.
    std::atomic<int> bLocked;
    std::atomic<int> bStale;

    static DMList list;
    static CritSec critSec;
    // Guards the texts and lists of the engine's settings record while a reload replaces them
    // (numbers are plain words, read without it).
    static CritSec csOpts;
    static std::atomic<DWORD> dwSessionIdActiveUser; // 0xFFFFFFFF: none
    static std::atomic<int> bQuitAll;
    static wchar_t szLastLogOff[256];

    // The longest time in minutes that the 32-bit millisecond tick can measure (about 49.7
    // days). "Timeout", "MessageTimeout" and "ShutdownTimeout" from 0 up to this are used as
    // they are; a negative or longer time turns that action off, so an administrator's "practically
    // never" can never wrap round into a logoff within minutes.
    static const int nMaxMeasurableMinutes = 71582;
    static int IsMeasurableMinutes(int nMinutes) { return nMinutes >= 0 && nMinutes <= nMaxMeasurableMinutes; }
    // The milliseconds of a measurable number of minutes (callers check IsMeasurableMinutes).
    static DWORD MinutesToMs(int nMinutes) { return (DWORD)nMinutes * 60000u; }

    // "Global\VantrelEventIdle-%ld" and "Global\VantrelEventCancel-%ld" for a session.
    static void FormatEventName(wchar_t* buf, unsigned cch, const wchar_t* name, DWORD dwSessionId);
    // The command line that runs the host executable with switch ("/monitor", "/msg") for the
    // session: the quoted path when it holds a blank, then " %s:%ld". 0 when it does not fit.
    static int BuildCommandLine(wchar_t* buf, unsigned cch, const wchar_t* pszSwitch, DWORD dwSessionId);
    // A kernel event only service and interactive users reach: interactive users may set it
    // (or only wait on it, by rights), LocalService has full access. Null when it cannot be made
    // or already exists: an event someone else created first is never adopted.
    static HANDLE CreateSessionEvent(const wchar_t* name, BOOL bManualReset, DWORD dwUserRights);

protected:
    DWORD DoThreadEx() override;

private:
    enum TimeoutResult { TimeoutWait, TimeoutDirectLogoff };
    TimeoutResult OnTimeout(DWORD dwNow);
    void DirectLogoff(DWORD dwNow);
    void DeliverWarning();
    int StartInSession(const wchar_t* pszSwitch);
    // True when the schedule is in use and inactive at the given local time.
    int IsScheduleInactiveAt(const SYSTEMTIME& when);
    int IsScheduleInactiveIn(DWORD dwSeconds);
    void ReportScheduleOnce();

    MyOpts& opts;
    DWORD dwSessionId;
    std::atomic<DWORD> dwLastActivity;
    wchar_t szUserName[256];
    int bScheduleReported;

    // One run of the body: the periods copied at its start. bIdleLogoff is 0 when either
    // period cannot be measured; the session is then neither warned nor logged off for
    // idleness (a stale mark still logs it off).
    DWORD dwWarnMin, dwTimeoutMs, dwWarnMs;
    int bIdleLogoff;
    int bWarned, bFirstPass, bRunning;
};
