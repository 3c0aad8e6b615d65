// What the benchmarks read of their own process.
#pragma once
#include <windows.h>

// CPU seconds (kernel and user) this process has used so far.
inline double ProcessCpuSeconds()
{
    FILETIME c, e, k, u;
    GetProcessTimes(GetCurrentProcess(), &c, &e, &k, &u);
    auto v = [](FILETIME f) { return (double)(((ULONGLONG)f.dwHighDateTime << 32) | f.dwLowDateTime) / 1e7; };
    return v(k) + v(u);
}
