// The background thread's power countdown, with virtual time and fake power calls.
#include <gtest/gtest.h>

#include <climits>

#include "engine/EventLog.h"
#include "engine/VXThreadBkg.h"
#include "settings/MyOpts.h"
#include "support/EngineFakes.h"

using namespace vxtest;
using Calls = std::vector<std::string>;

namespace {

const DWORD kMinute = 60000;
const char kShutdown[] = "shutdown:local,none,1,0,0,80000000"; // one second, no force, no restart, planned

class PowerCountdown : public ::testing::Test {
protected:
    VirtualClock clock;
    EventRecorder events;
    FakePower power;
    MyOpts opts;
    VXThreadBkg bkg{opts};
    void SetUp() override
    {
        opts.Reset();
        opts.bShutdown = 1, opts.nShutdownTimeout = 30, opts.nShutdownAction = 1;
    }
    // Arms the countdown and plays the given minutes a second at a time.
    void Play(DWORD minutes, bool arm = true)
    {
        if (arm)
            bkg.BeginDelayedShutdown();
        for (DWORD s = 0; s < minutes * 60; ++s)
            clock.Advance(1000), bkg.OnTick(clock.Tick());
    }
};

TEST_F(PowerCountdown, FiresOnceAfterTheTimeoutAndRearmsAfterWakeUp)
{
    Play(29);
    EXPECT_EQ(power.calls, Calls{});
    Play(1, false);
    EXPECT_EQ(power.calls, (Calls{"privilege+", "suspend:sleep", "privilege-"}));
    EXPECT_EQ(events.Ids(), std::vector<DWORD>{MSG_SUSPEND_STARTED});
    EXPECT_EQ(bkg.dwShutdownAt, clock.Tick() + 30 * kMinute) << "the wake-up arms the full time again";
    Play(30, false);
    EXPECT_EQ(events.Count(MSG_SUSPEND_STARTED), 2u);
}

// A time the tick can measure is kept exactly, also after a wake-up; a negative or longer one
// turns the action off instead of wrapping round into one within minutes.
TEST_F(PowerCountdown, TimesTheTickCannotMeasureTurnTheActionOff)
{
    for (int minutes : {0, 71582, 71583, -5, INT_MIN}) {
        SCOPED_TRACE(minutes);
        const DWORD expected = minutes >= 0 && minutes <= 71582 ? clock.Tick() + (DWORD)minutes * kMinute : 0;
        opts.nShutdownTimeout = minutes;
        bkg.dwShutdownAt = 0;
        bkg.BeginDelayedShutdown();
        EXPECT_EQ(bkg.dwShutdownAt, expected);
        bkg.dwShutdownAt = 0;
        bkg.bResumed = 1;
        bkg.OnTick(clock.Tick());
        EXPECT_EQ(bkg.dwShutdownAt, expected) << "after a wake-up";
    }
}

TEST_F(PowerCountdown, NothingWhenShutdownIsOff)
{
    opts.bShutdown = 0;
    bkg.BeginDelayedShutdown();
    EXPECT_FALSE(bkg.IsShutdownArmed());
    opts.bShutdown = 1;
    bkg.BeginDelayedShutdown();
    opts.bShutdown = 0; // turned off while armed: nothing happens when it fires
    Play(31, false);
    EXPECT_EQ(power.calls, Calls{});
    EXPECT_EQ(events.Ids(), std::vector<DWORD>{});
}

TEST_F(PowerCountdown, LogonDisarmsAndStopsAShutdownUnderWay)
{
    bkg.CancelDelayedShutdown();
    EXPECT_EQ(power.calls, Calls{}) << "nothing to abort when nothing is armed";
    Play(10);
    bkg.CancelDelayedShutdown();
    Play(40, false);
    EXPECT_EQ(power.calls, Calls{"abort"});
}

// Hibernation falls back to sleep, then to a shutdown; a failed shutdown is reported, and
// without the privilege nothing is tried.
TEST_F(PowerCountdown, FallbacksAndFailures)
{
    struct { int action; bool hibernate, sleep, shutdown, privilege; Calls calls; std::vector<DWORD> ids; } cases[] = {
        {2, false, true, true, true, {"privilege+", "suspend:hibernate", "suspend:sleep", "privilege-"}, {MSG_SUSPEND_STARTED}},
        {2, false, false, true, true, {"privilege+", "suspend:hibernate", "suspend:sleep", kShutdown, "privilege-"},
         {MSG_SUSPEND_FAILED, MSG_SHUTDOWN_STARTED}},
        {3, true, true, false, true, {"privilege+", kShutdown}, {MSG_SHUTDOWN_FAILED}},
        {3, true, true, true, false, {"privilege+"}, {}},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        power.calls.clear();
        events.Clear();
        opts.nShutdownAction = c.action, bkg.bResumed = 0;
        power.hibernateOk = c.hibernate, power.sleepOk = c.sleep, power.shutdownOk = c.shutdown, power.privilegeOk = c.privilege;
        Play(30);
        EXPECT_EQ(power.calls, c.calls);
        EXPECT_EQ(events.Ids(), c.ids);
        if (c.ids == std::vector<DWORD>{MSG_SUSPEND_STARTED})
            continue;
        if (!c.ids.empty() && !events.Events().empty()) {
            EXPECT_EQ(events.Events()[0].strings, std::vector<std::wstring>{c.action == 2 ? L"50" : L"5"}) << "the error code";
        }
        Play(60, false);
        EXPECT_EQ(events.Ids(), c.ids) << "not armed again";
    }
}

} // namespace
