#include "engine/VXThreadBkg.h"

#include <reason.h>
#include <userenv.h>

#include "base/Handle.h"
#include "engine/Engine.h"
#include "engine/EventLog.h"
#include "engine/Seams.h"
#include "engine/VXThread.h"
#include "settings/MyOpts.h"

std::atomic<VXThreadBkg*> VXThreadBkg::pThreadBkg{nullptr};

VXThreadBkg::VXThreadBkg(MyOpts& o) : dwRescanAt(0), dwShutdownAt(0), bResumed(0), opts(o) {}

VXThreadBkg::~VXThreadBkg()
{
    if (pThreadBkg == this)
        pThreadBkg = nullptr;
}

void VXThreadBkg::RefreshDelayed(unsigned seconds) { dwRescanAt = Seams::Now() + seconds * 1000; }

void VXThreadBkg::BeginDelayedShutdown() { ArmShutdown(Seams::Now()); }

void VXThreadBkg::ArmShutdown(DWORD dwNow)
{
    // A time the tick cannot measure (negative, or beyond about 49.7 days) turns the power
    // action off rather than wrapping round into one within minutes.
    const int nMinutes = opts.nShutdownTimeout;
    if (opts.bShutdown && VXThread::IsMeasurableMinutes(nMinutes))
        dwShutdownAt = dwNow + VXThread::MinutesToMs(nMinutes);
}

void VXThreadBkg::CancelDelayedShutdown()
{
    if (dwShutdownAt) {
        Seams::pfnAbortSystemShutdown(nullptr);
        dwShutdownAt = 0;
    }
}

void VXThreadBkg::OnPolicyChange() { RefreshSessions(0); }

void VXThreadBkg::OnTick(DWORD dwNow)
{
    // Plain comparisons of tick values: a countdown spanning the tick's wrap (every 49.7 days)
    // fires early, which is accepted.
    if (dwRescanAt && dwNow >= dwRescanAt) {
        dwRescanAt = 0;
        RefreshSessions(1);
    }
    if (dwShutdownAt && dwNow >= dwShutdownAt) {
        dwShutdownAt = 0;
        DoShutdown();
    }
    if (bResumed) {
        bResumed = 0;
        ArmShutdown(dwNow);
    }
}

int VXThreadBkg::DoShutdown()
{
    if (!opts.bShutdown)
        return 1;
    if (!Seams::pfnSetShutdownPrivilege(1))
        return 0;
    const int action = opts.nShutdownAction;
    if (action == 1 || action == 2) {
        if (Seams::pfnSetSuspendState(action == 2, FALSE, FALSE) || Seams::pfnSetSuspendState(action != 2, FALSE, FALSE)) {
            LogEvent(MSG_SUSPEND_STARTED);
            bResumed = 1;
            Seams::pfnSetShutdownPrivilege(0);
            return 0;
        }
        // A computer that cannot sleep is shut down instead.
        LogEventError(MSG_SUSPEND_FAILED, nullptr);
    }
    // One second of notice, no forced close of applications, no restart; a planned shutdown.
    if (Seams::pfnInitiateSystemShutdownEx(nullptr, nullptr, 1, FALSE, FALSE, SHTDN_REASON_FLAG_PLANNED)) {
        LogEvent(MSG_SHUTDOWN_STARTED);
        Seams::pfnSetShutdownPrivilege(0);
    } else {
        LogEventError(MSG_SHUTDOWN_FAILED, nullptr);
    }
    return 0;
}

DWORD VXThreadBkg::DoThreadEx()
{
    Handle policyApplied(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    BOOL registered = policyApplied.IsValid() && RegisterGPNotification(policyApplied.Get(), TRUE);
    while (!VXThread::bQuitAll) {
        DWORD w = policyApplied.IsValid() ? WaitForSingleObject(policyApplied.Get(), 1000) : (Sleep(1000), WAIT_TIMEOUT);
        if (VXThread::bQuitAll)
            break;
        if (w == WAIT_OBJECT_0)
            OnPolicyChange();
        else if (w == WAIT_TIMEOUT)
            OnTick(Seams::Now());
        else
            Sleep(100);
    }
    if (registered)
        UnregisterGPNotification(policyApplied.Get());
    return 0;
}
