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

// Committed private memory of this process in bytes (thread stacks, heaps), summed over its
// address space: the process counters do not report it everywhere (Wine reads them as 0).
inline double OwnPrivateBytes()
{
    SIZE_T total = 0;
    MEMORY_BASIC_INFORMATION mbi;
    for (BYTE* p = nullptr; VirtualQuery(p, &mbi, sizeof(mbi)) == sizeof(mbi); p = (BYTE*)mbi.BaseAddress + mbi.RegionSize) {
        if (mbi.State == MEM_COMMIT && mbi.Type == MEM_PRIVATE)
            total += mbi.RegionSize;
        if ((BYTE*)mbi.BaseAddress + mbi.RegionSize < p)
            break;
    }
    return (double)total;
}
