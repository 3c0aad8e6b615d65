// The decisions between the hook library's input reports and the session's idle event, without a
// window or a clock of their own: which input counts ("Enable", "MonitorKB", "MonitorMouse"),
// and the rate limit, so that input is reported at most about once a second however fast it
// arrives, and never lost for longer than one timer tick.
//
//   - Input when an activity is already pending is dropped (the pending one stands for it).
//   - Input at least 1000 ms after the last report (or before any report) is reported at once.
//   - Other input becomes the pending activity; the next one-second timer tick reports it.
//   - A session change (unlock, reconnect) is always made pending, replacing what was pending.
//   - Once the session is ending nothing is reported any more.
// Every report, from the hook, the tick or the CPU check, restarts the one-second limit. Ticks
// are 32-bit milliseconds compared by unsigned difference, so the tick's wrap does no harm.
#pragma once
#include <windows.h>

class MyOpts;

// Activity types: what the idle report and the configuration utility's notice carry.
enum ActivityType { ActivityNone = 0, ActivityMouse = 1, ActivityKeyboard = 2, ActivityCpu = 3, ActivitySession = 4 };

// The settings the hook input is filtered by.
struct ActivityFilter {
    int bEnable;
    int bMonitorKB;
    int bMonitorMouse;
    static ActivityFilter From(const MyOpts& opts);
    bool Counts(int type) const;
};

class ActivityGate {
public:
    static const DWORD kMinIntervalMs = 1000;

    // Input of the hook library: the type to report now, or ActivityNone (ignored or pending).
    int OnInput(int type, DWORD dwNow, const ActivityFilter& filter);
    // The one-second timer: the pending activity to report now (cleared), or ActivityNone. When
    // it answers none and the session is not ending, the caller may report the CPU load.
    int OnTick(DWORD dwNow);
    // A report made at a tick for another reason (the CPU load).
    void Reported(DWORD dwNow);
    void SetPending(int type) { nPending = type; }
    void End() { bEnding = 1; }
    int IsEnding() const { return bEnding; }
    int GetPending() const { return nPending; }

private:
    int nPending = ActivityNone;
    int bEnding = 0;
    int bReported = 0;
    DWORD dwLastReport = 0;
};

// The CPU check of a tick: "MonitorCPU" on and the load at or above "PercentCPU". A "PercentCPU"
// below 1 turns the check off: every reading, a failed one (0) included, would count as activity
// and no session would ever be logged off.
bool IsCpuActivity(const MyOpts& opts, unsigned nLoad);
