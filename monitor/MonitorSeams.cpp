// The shipped defaults of the monitor's seams (monitor/MonitorSeams.h).
#include "monitor/MonitorSeams.h"

#include <ctime>

#include "base/Module.h"

namespace {

long long RealTime() { return (long long)time(nullptr); }

MonitorSeams::GetSystemTimesFn LookUpGetSystemTimes()
{
    return GetProcAs<MonitorSeams::GetSystemTimesFn>(GetModuleHandleW(L"KERNEL32.DLL"), "GetSystemTimes");
}

} // namespace

namespace MonitorSeams {

long long (*pfnTime)() = RealTime;
GetSystemTimesFn pfnGetSystemTimes = LookUpGetSystemTimes();
const wchar_t* pszHookLibrary = nullptr;
const wchar_t* pszEventPrefix = L"Global\\";

} // namespace MonitorSeams
