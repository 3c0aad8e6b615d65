// The CPU load sampler of the in-session monitor (and of the configuration utility's status line).
//
// GetCpuUsage reads the idle, kernel and user times of the system (GetSystemTimes, 100 ns units)
// and answers the load since the previous successful reading, in percent:
//   total = (user - previous user) + (kernel - previous kernel)
//   load  = (total - (idle - previous idle)) * 100 / total
// Kernel time includes idle time, which the formula relies on. The previous readings start at 0,
// so the first reading answers the average load since boot. It answers 0 and keeps the previous
// readings when GetSystemTimes is missing or fails, when all three times are 0, or when total is 0;
// only a reading that gives a load replaces them. The arithmetic is unsigned and cannot overflow:
// a time below its previous reading counts as no time passed, products are taken in 128 bits,
// and an idle time above the total gives 0.
#pragma once
#include <windows.h>

#include "monitor/MonitorSeams.h"

class CpuSampler {
public:
    unsigned Sample(MonitorSeams::GetSystemTimesFn pfnGetSystemTimes);
    void Forget() { ullIdle = ullKernel = ullUser = 0; }

private:
    ULONGLONG ullIdle = 0, ullKernel = 0, ullUser = 0;
};

// Whether the system has GetSystemTimes (looked up once).
int CanGetCpuUsage();
// The process-wide sampler over MonitorSeams::pfnGetSystemTimes.
unsigned GetCpuUsage();
// Forgets the process-wide readings: the next reading is the average since boot again.
void ResetCpuUsage();
