#include "monitor/CpuUsage.h"

namespace {

CpuSampler g_sampler; // one thread reads it (the monitor's, the utility's dialog)

ULONGLONG ToUll(const FILETIME& ft) { return ((ULONGLONG)ft.dwHighDateTime << 32) | ft.dwLowDateTime; }
ULONGLONG Since(ULONGLONG now, ULONGLONG before) { return now >= before ? now - before : 0; }

} // namespace

unsigned CpuSampler::Sample(MonitorSeams::GetSystemTimesFn pfn)
{
    if (!pfn)
        return 0;
    FILETIME idleFt = {}, kernelFt = {}, userFt = {};
    if (!pfn(&idleFt, &kernelFt, &userFt))
        return 0;
    const ULONGLONG idle = ToUll(idleFt), kernel = ToUll(kernelFt), user = ToUll(userFt);
    if (!idle && !kernel && !user)
        return 0;
    const unsigned __int128 total = (unsigned __int128)Since(user, ullUser) + Since(kernel, ullKernel);
    if (total == 0)
        return 0;
    const unsigned __int128 idleSpent = Since(idle, ullIdle);
    const unsigned __int128 busy = idleSpent < total ? total - idleSpent : 0;
    ullIdle = idle;
    ullKernel = kernel;
    ullUser = user;
    return (unsigned)(busy * 100 / total);
}

int CanGetCpuUsage() { return MonitorSeams::pfnGetSystemTimes != nullptr; }

unsigned GetCpuUsage() { return g_sampler.Sample(MonitorSeams::pfnGetSystemTimes); }

void ResetCpuUsage() { g_sampler.Forget(); }
