// The rate limit and the input filters between the hook library and the idle event, played with a
// virtual millisecond tick, and the CPU check of a timer tick.
#include <gtest/gtest.h>

#include <vector>

#include "monitor/ActivityGate.h"
#include "settings/MyOpts.h"

namespace {

const ActivityFilter kAll = {1, 1, 1};

struct Report {
    DWORD at;
    int type;
};

// Input of type every inputMs for durationMs from start, timer ticks every 1000 ms from
// firstTick; the reports in order.
std::vector<Report> Play(ActivityGate& gate, int type, DWORD start, DWORD durationMs, DWORD inputMs, DWORD firstTick,
                         const ActivityFilter& filter = kAll)
{
    std::vector<Report> out;
    DWORD nextTick = firstTick;
    for (DWORD elapsed = 0; elapsed < durationMs; elapsed += inputMs) {
        const DWORD t = start + elapsed;
        while (t - nextTick < 0x80000000u) { // nextTick <= t, across the wrap too
            if (int r = gate.OnTick(nextTick))
                out.push_back({nextTick, r});
            nextTick += 1000;
        }
        if (int r = gate.OnInput(type, t, filter))
            out.push_back({t, r});
    }
    return out;
}

TEST(ActivityGate, ContinuousInputGivesAboutOneReportASecondAndNoGapLongerThanATick)
{
    struct Case {
        DWORD start, inputMs, tickPhase;
    } cases[] = {{1000000, 1, 500}, {1000000, 10, 1}, {1000000, 100, 999}, {0xFFFFF000u, 7, 300}};
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "start " << c.start << ", input every " << c.inputMs << " ms");
        ActivityGate gate;
        const DWORD seconds = 20;
        std::vector<Report> reports = Play(gate, ActivityMouse, c.start, seconds * 1000, c.inputMs, c.start + c.tickPhase);
        // The first input at once, then one report at each of the 20 ticks (or 19 when the last
        // tick lies beyond the end).
        ASSERT_GE(reports.size(), (size_t)seconds);
        EXPECT_LE(reports.size(), (size_t)seconds + 1);
        EXPECT_EQ(reports[0].at, c.start) << "the first input is reported at once";
        for (size_t i = 1; i < reports.size(); ++i) {
            // Input that follows a report waits at most for the next tick.
            EXPECT_LE(reports[i].at - reports[i - 1].at, 1000u + c.inputMs) << "report " << i;
            EXPECT_EQ(ActivityMouse, reports[i].type);
        }
    }
}

TEST(ActivityGate, InputAfterAReportWaitsForTheNextTickAndIsNeverLost)
{
    ActivityGate gate;
    EXPECT_EQ(ActivityKeyboard, gate.OnInput(ActivityKeyboard, 50000, kAll));
    // A keystroke 300 ms later: not now, but pending for the tick.
    EXPECT_EQ(ActivityNone, gate.OnInput(ActivityKeyboard, 50300, kAll));
    EXPECT_EQ(ActivityKeyboard, gate.GetPending());
    // More input meanwhile changes nothing: the pending one stands for it.
    EXPECT_EQ(ActivityNone, gate.OnInput(ActivityMouse, 50400, kAll));
    EXPECT_EQ(ActivityKeyboard, gate.OnTick(50700));
    EXPECT_EQ(ActivityNone, gate.OnTick(51700)) << "delivered once";
    // The tick counts as a report: input 999 ms after it waits, input 1000 ms after it does not.
    EXPECT_EQ(ActivityNone, gate.OnInput(ActivityMouse, 51699, kAll));
    EXPECT_EQ(ActivityMouse, gate.OnTick(51700));
    EXPECT_EQ(ActivityMouse, gate.OnInput(ActivityMouse, 52700, kAll));
    // A CPU report at a tick restarts the limit as well.
    gate.Reported(60000);
    EXPECT_EQ(ActivityNone, gate.OnInput(ActivityKeyboard, 60999, kAll));
    EXPECT_EQ(ActivityKeyboard, gate.OnTick(61000));
}

TEST(ActivityGate, FiltersBySettings)
{
    struct Case {
        ActivityFilter filter;
        int type;
        int reported;
    } cases[] = {
        {{1, 1, 1}, ActivityMouse, ActivityMouse},     {{1, 1, 1}, ActivityKeyboard, ActivityKeyboard},
        {{1, 0, 1}, ActivityKeyboard, ActivityNone},   {{1, 0, 1}, ActivityMouse, ActivityMouse},
        {{1, 1, 0}, ActivityMouse, ActivityNone},      {{1, 1, 0}, ActivityKeyboard, ActivityKeyboard},
        {{0, 1, 1}, ActivityMouse, ActivityNone},      {{0, 1, 1}, ActivityKeyboard, ActivityNone},
        {{1, 1, 1}, ActivityCpu, ActivityNone},        {{1, 1, 1}, 0, ActivityNone},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "Enable " << c.filter.bEnable << " KB " << c.filter.bMonitorKB << " Mouse "
                                        << c.filter.bMonitorMouse << ", input " << c.type);
        ActivityGate gate;
        EXPECT_EQ(c.reported, gate.OnInput(c.type, 10000, c.filter));
        // Within the second: counted input waits for the tick, ignored input is not kept.
        EXPECT_EQ(ActivityNone, gate.OnInput(c.type, 10100, c.filter));
        EXPECT_EQ(c.reported, gate.OnTick(10500));
    }
}

TEST(ActivityGate, SessionChangeIsDeliveredAtTheTickAndEndingStopsEverything)
{
    ActivityGate gate;
    EXPECT_EQ(ActivityNone, gate.OnTick(5000)) << "nothing pending";
    gate.OnInput(ActivityMouse, 5000, kAll);
    gate.OnInput(ActivityMouse, 5100, kAll);
    gate.SetPending(ActivitySession); // an unlock replaces what was pending
    EXPECT_EQ(ActivitySession, gate.OnTick(5500));

    gate.SetPending(ActivitySession);
    gate.End();
    EXPECT_EQ(ActivityNone, gate.OnTick(9000));
    EXPECT_EQ(ActivityNone, gate.OnInput(ActivityKeyboard, 20000, kAll));
    EXPECT_EQ(ActivityNone, gate.OnTick(21000));
}

TEST(ActivityGate, CpuLoadAtOrAbovePercentCpuCounts)
{
    struct Case {
        int bMonitorCPU, nPercentCPU;
        unsigned load;
        bool counts;
    } cases[] = {
        {1, 25, 25, true}, {1, 25, 24, false}, {1, 25, 100, true}, {0, 25, 100, false},
        {1, 100, 100, true}, {1, 101, 100, false}, {1, 0, 0, false}, {1, -5, 50, false}, {1, 1, 0, false},
    };
    MyOpts opts;
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "MonitorCPU " << c.bMonitorCPU << " PercentCPU " << c.nPercentCPU << " load " << c.load);
        opts.bMonitorCPU = c.bMonitorCPU;
        opts.nPercentCPU = c.nPercentCPU;
        EXPECT_EQ(c.counts, IsCpuActivity(opts, c.load));
    }
}

} // namespace
