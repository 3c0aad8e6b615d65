// The CPU load sampler over a replaced GetSystemTimes: the first reading (the average since boot),
// exact integer percentages, the cases that answer 0 and keep the previous readings, and times
// too large for 64-bit sums and products.
#include <gtest/gtest.h>

#include <deque>

#include "monitor/CpuUsage.h"
#include "support/Guards.h"

namespace {

struct Reading {
    BOOL ok;
    ULONGLONG idle, kernel, user;
};
std::deque<Reading> g_readings;

FILETIME Ft(ULONGLONG v) { return {(DWORD)v, (DWORD)(v >> 32)}; }

BOOL WINAPI FakeGetSystemTimes(FILETIME* idle, FILETIME* kernel, FILETIME* user)
{
    if (g_readings.empty())
        return FALSE;
    Reading r = g_readings.front();
    g_readings.pop_front();
    *idle = Ft(r.idle);
    *kernel = Ft(r.kernel);
    *user = Ft(r.user);
    return r.ok;
}

const ULONGLONG kTop = 0xFFFFFFFFFFFFFFFFull;

TEST(CpuUsage, ReadingsInSequence)
{
    struct Step {
        Reading reading;
        unsigned load;
        const char* why;
    } steps[] = {
        {{TRUE, 600, 800, 200}, 40, "first reading: the average since boot (400 busy of 1000)"},
        {{TRUE, 650, 880, 220}, 50, "50 idle of 100"},
        {{FALSE, 0, 0, 0}, 0, "a failed call"},
        {{TRUE, 0, 0, 0}, 0, "all three times 0"},
        {{TRUE, 650, 880, 220}, 0, "no time passed (total 0)"},
        {{TRUE, 651, 881, 222}, 66, "still measured from the last good reading: 2 busy of 3, rounded down"},
        {{TRUE, 651, 890, 222}, 100, "equal idle: all busy"},
        {{TRUE, 700, 900, 222}, 0, "idle above the total gives 0, not a wrapped number"},
        {{TRUE, 700, 950, 272}, 100, "that reading was taken"},
        {{TRUE, 100, 100, 100}, 0, "times that went back count as no time passed"},
        {{TRUE, 750, 1000, 322}, 50, "measured from the last reading that gave a load"},
    };
    CpuSampler sampler;
    for (const Step& s : steps) {
        SCOPED_TRACE(s.why);
        g_readings.assign(1, s.reading);
        EXPECT_EQ(s.load, sampler.Sample(FakeGetSystemTimes));
        EXPECT_TRUE(g_readings.empty());
    }
}

TEST(CpuUsage, HugeTimesDoNotOverflow)
{
    struct Case {
        Reading reading;
        unsigned load;
    } cases[] = {
        // user + kernel = 2^64: a 64-bit total would wrap to 0.
        {{TRUE, 1ull << 63, 1ull << 63, 1ull << 63}, 50},
        // busy * 100 would overflow 64 bits.
        {{TRUE, 0, kTop, kTop}, 100},
        {{TRUE, kTop / 4, kTop / 2, kTop / 2}, 75},
    };
    for (const Case& c : cases) {
        CpuSampler sampler;
        g_readings.assign(1, c.reading);
        EXPECT_EQ(c.load, sampler.Sample(FakeGetSystemTimes)) << "idle " << c.reading.idle;
    }
}

TEST(CpuUsage, ProcessWideSamplerFollowsTheSeam)
{
    vxtest::ScopedValue<MonitorSeams::GetSystemTimesFn> seam(MonitorSeams::pfnGetSystemTimes);
    EXPECT_EQ(1, CanGetCpuUsage()) << "Wine's KERNEL32 has GetSystemTimes";
    MonitorSeams::pfnGetSystemTimes = FakeGetSystemTimes;
    ResetCpuUsage();
    g_readings = {{TRUE, 30, 80, 20}, {TRUE, 40, 100, 30}};
    EXPECT_EQ(70u, GetCpuUsage());
    EXPECT_EQ(66u, GetCpuUsage()); // 20 busy of 30
    MonitorSeams::pfnGetSystemTimes = nullptr;
    EXPECT_EQ(0, CanGetCpuUsage());
    EXPECT_EQ(0u, GetCpuUsage());
    ResetCpuUsage();
}

} // namespace
