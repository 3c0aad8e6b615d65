#include "monitor/ActivityGate.h"

#include "settings/MyOpts.h"

ActivityFilter ActivityFilter::From(const MyOpts& opts) { return {opts.bEnable, opts.bMonitorKB, opts.bMonitorMouse}; }

bool ActivityFilter::Counts(int type) const
{
    if (!bEnable)
        return false;
    if (type == ActivityMouse)
        return bMonitorMouse != 0;
    if (type == ActivityKeyboard)
        return bMonitorKB != 0;
    return false; // the hook library reports nothing else
}

int ActivityGate::OnInput(int type, DWORD dwNow, const ActivityFilter& filter)
{
    if (!filter.Counts(type) || nPending)
        return ActivityNone;
    if (!bEnding && (!bReported || dwNow - dwLastReport >= kMinIntervalMs)) {
        Reported(dwNow);
        return type;
    }
    nPending = type;
    return ActivityNone;
}

int ActivityGate::OnTick(DWORD dwNow)
{
    if (bEnding || !nPending)
        return ActivityNone;
    const int type = nPending;
    nPending = ActivityNone;
    Reported(dwNow);
    return type;
}

void ActivityGate::Reported(DWORD dwNow)
{
    bReported = 1;
    dwLastReport = dwNow;
}

bool IsCpuActivity(const MyOpts& opts, unsigned nLoad)
{
    return opts.bMonitorCPU && opts.nPercentCPU >= 1 && nLoad >= (unsigned)opts.nPercentCPU;
}
