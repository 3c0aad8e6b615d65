// The power countdown of the background thread, played with a virtual clock and fake power calls.
#include <gtest/gtest.h>

#include <climits>

#include "engine/EventLog.h"
#include "engine/VXThreadBkg.h"
#include "settings/MyOpts.h"
#include "support/EngineFakes.h"

using namespace vxtest;

namespace {

const DWORD kMinute = 60000;

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
        opts.bShutdown = 1;
        opts.nShutdownTimeout = 30;
        opts.nShutdownAction = 1;
    }
    void RunMinutes(DWORD minutes)
    {
        for (DWORD s = 0; s < minutes * 60; ++s) {
            clock.Advance(1000);
            bkg.OnTick(clock.Tick());
        }
    }
};

TEST_F(PowerCountdown, FiresOnceAfterTheTimeoutAndRearmsAfterWakeUp)
{
    bkg.BeginDelayedShutdown();
    ASSERT_TRUE(bkg.IsShutdownArmed());
    RunMinutes(29);
    EXPECT_EQ(power.calls, std::vector<std::string>{});
    RunMinutes(1);
    EXPECT_EQ(power.calls, (std::vector<std::string>{"privilege+", "suspend:sleep", "privilege-"}));
    EXPECT_EQ(events.Ids(), std::vector<DWORD>{MSG_SUSPEND_STARTED});
    // Woken up again: the same wake arms the full timeout once more, and it fires once.
    EXPECT_TRUE(bkg.IsShutdownArmed());
    EXPECT_EQ(bkg.dwShutdownAt, clock.Tick() + 30 * kMinute);
    RunMinutes(30);
    EXPECT_EQ(events.Count(MSG_SUSPEND_STARTED), 2u);
}

// A time the tick can measure is kept exactly; a negative or longer one turns the power action
// off instead of wrapping round into one within minutes. The same rule holds after a wake-up.
TEST_F(PowerCountdown, TimesTheTickCannotMeasureTurnTheActionOff)
{
    struct { int minutes; bool armed; } cases[] = {{0, true}, {71582, true}, {71583, false}, {-5, false}, {INT_MIN, false}};
    for (auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "ShutdownTimeout " << c.minutes);
        opts.nShutdownTimeout = c.minutes;
        bkg.dwShutdownAt = 0;
        bkg.BeginDelayedShutdown();
        EXPECT_EQ(c.armed, bkg.IsShutdownArmed() != 0);
        if (c.armed) {
            EXPECT_EQ(bkg.dwShutdownAt, clock.Tick() + (DWORD)c.minutes * kMinute);
        }
        bkg.dwShutdownAt = 0;
        bkg.bResumed = 1;
        bkg.OnTick(clock.Tick());
        EXPECT_EQ(c.armed, bkg.IsShutdownArmed() != 0) << "after a wake-up";
    }
}

TEST_F(PowerCountdown, NothingWhenShutdownIsOff)
{
    opts.bShutdown = 0;
    bkg.BeginDelayedShutdown();
    EXPECT_FALSE(bkg.IsShutdownArmed());
    // A countdown armed earlier finds the setting off when it fires: nothing happens.
    opts.bShutdown = 1;
    bkg.BeginDelayedShutdown();
    opts.bShutdown = 0;
    RunMinutes(31);
    EXPECT_EQ(power.calls, std::vector<std::string>{});
    EXPECT_EQ(events.Ids(), std::vector<DWORD>{});
}

TEST_F(PowerCountdown, LogonDisarmsAndStopsAShutdownUnderWay)
{
    bkg.CancelDelayedShutdown();
    EXPECT_EQ(power.calls, std::vector<std::string>{}) << "nothing to abort when nothing is armed";
    bkg.BeginDelayedShutdown();
    RunMinutes(10);
    bkg.CancelDelayedShutdown();
    EXPECT_EQ(power.calls, std::vector<std::string>{"abort"});
    RunMinutes(40);
    EXPECT_EQ(power.calls.size(), 1u) << "a disarmed countdown never fires";
}

TEST_F(PowerCountdown, HibernateFallsBackToSleepThenToShutdown)
{
    opts.nShutdownAction = 2;
    power.hibernateOk = false;
    bkg.BeginDelayedShutdown();
    RunMinutes(30);
    EXPECT_EQ(power.calls, (std::vector<std::string>{"privilege+", "suspend:hibernate", "suspend:sleep", "privilege-"}));
    EXPECT_EQ(events.Ids(), std::vector<DWORD>{MSG_SUSPEND_STARTED});

    // Neither works: both failures are written and the computer shuts down instead.
    power.calls.clear();
    events.Clear();
    power.sleepOk = false;
    bkg.bResumed = 0;
    bkg.BeginDelayedShutdown();
    RunMinutes(30);
    EXPECT_EQ(power.calls, (std::vector<std::string>{"privilege+", "suspend:hibernate", "suspend:sleep",
                                                     "shutdown:local,none,1,0,0,80000000", "privilege-"}));
    EXPECT_EQ(events.Ids(), (std::vector<DWORD>{MSG_SUSPEND_FAILED, MSG_SHUTDOWN_STARTED}));
    EXPECT_EQ(events.Events()[0].strings, std::vector<std::wstring>{L"50"}) << "the code of the failed suspend";
    RunMinutes(60);
    EXPECT_EQ(events.Count(MSG_SHUTDOWN_STARTED), 1u) << "not re-armed after a shutdown";
}

TEST_F(PowerCountdown, ShutdownActionAndItsFailures)
{
    opts.nShutdownAction = 3;
    power.shutdownOk = false;
    bkg.BeginDelayedShutdown();
    RunMinutes(30);
    EXPECT_EQ(power.calls, (std::vector<std::string>{"privilege+", "shutdown:local,none,1,0,0,80000000"}));
    ASSERT_EQ(events.Ids(), std::vector<DWORD>{MSG_SHUTDOWN_FAILED});
    EXPECT_EQ(events.Events()[0].strings, std::vector<std::wstring>{L"5"});

    // Without the shutdown privilege nothing is tried and nothing reported.
    power.calls.clear();
    events.Clear();
    power.privilegeOk = false;
    bkg.BeginDelayedShutdown();
    RunMinutes(30);
    EXPECT_EQ(power.calls, std::vector<std::string>{"privilege+"});
    EXPECT_EQ(events.Ids(), std::vector<DWORD>{});
}

} // namespace
