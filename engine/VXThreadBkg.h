// VXThreadBkg: the service's one background thread. It re-reads the settings when Group Policy
// changes, re-scans the sessions when an earlier scan could not be completed, and puts the
// computer to sleep, into hibernation or shuts it down when nobody has logged on for
// "ShutdownTimeout" minutes.
//
// As with the session threads, each wake is one call (OnPolicyChange, OnTick with the tick), so
// tests play the countdown with a virtual clock.
#pragma once
#include <windows.h>

#include <atomic>

#include "base/Thread.h"

class MyOpts;

class VXThreadBkg : public DMThreadEx {
public:
    explicit VXThreadBkg(MyOpts& opts);
    ~VXThreadBkg() override;

    // A full re-scan in this many seconds.
    void RefreshDelayed(unsigned seconds);
    // Arms the countdown when "Shutdown" is on.
    void BeginDelayedShutdown();
    // Disarms an armed countdown (and stops a shutdown that may already be under way).
    void CancelDelayedShutdown();
    int IsShutdownArmed() const { return dwShutdownAt != 0; }

    // One wake: Group Policy was applied.
    void OnPolicyChange();
    // One wake on the one-second time-out.
    void OnTick(DWORD dwNow);

    static std::atomic<VXThreadBkg*> pThreadBkg;

    std::atomic<DWORD> dwRescanAt;   // tick of the due full re-scan; 0 = none
    std::atomic<DWORD> dwShutdownAt; // tick of the due power action; 0 = no countdown
    std::atomic<int> bResumed;       // set after a suspend started here

protected:
    DWORD DoThreadEx() override;
    int DoShutdown();

private:
    // Starts the "ShutdownTimeout" countdown from dwNow when "Shutdown" is on.
    void ArmShutdown(DWORD dwNow);

    MyOpts& opts;
};
