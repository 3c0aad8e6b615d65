// Shared pieces of the monitor's window tests: the settings and strings a monitor reads, private
// names for the session's kernel events, the utility's notification window, a monitor running on
// a thread of its own, and the helper programs beside the test.
#pragma once
#include <windows.h>

#include <functional>
#include <string>
#include <vector>

#include "monitor/Monitor.h"
#include "monitor/MonitorSeams.h"
#include "monitor/MonitorWnd.h"
#include "support/Guards.h"
#include "support/TestSupport.h"

namespace montest {

// A file beside the test executable (the build's bin/ folder).
std::wstring BinFile(const wchar_t* name);
// Runs a program of bin/ with arguments; its exit code, or -1 when it did not run or end in 20 s.
int RunHelper(const wchar_t* exe, const wchar_t* args);
// Pumps this thread's messages until done() or ms have passed; done() at the end.
bool PumpUntil(const std::function<bool()>& done, DWORD ms);

// A named event with the test's private prefix ("VantrelEventIdle-%ld"...): created here, as the
// service creates it.
HANDLE CreateTestEvent(const wchar_t* name, DWORD dwSessionId, BOOL bManualReset);
bool IsSet(HANDLE event);

// The configuration utility's notification window: records the activity types of code 303.
class UtilityWindow {
public:
    UtilityWindow();
    ~UtilityWindow();
    std::vector<int> types;
    HWND hwnd = nullptr;
};

// The settings a monitor reads (a private key), its strings (VXDA64.DLL) and private event names.
class MonitorEnv {
public:
    MonitorEnv();
    vxtest::ScopedTestKey settings{L"monitor"};
    vxtest::ScopedTestKey policy{L"monitorpol"};
    vxtest::ScopedAppRootKey root{settings.path()};
    vxtest::ScopedPolicyKeys policyKeys{policy.path(), policy.path()};
    vxtest::ScopedResourceModule strings{L"VXDA64.DLL"};
    vxtest::ScopedValue<const wchar_t*> prefix;
    void SetDword(const wchar_t* name, DWORD v) { vxtest::RawSetDword(settings.sub(), name, v); }
    void SetText(const wchar_t* name, const wchar_t* v) { vxtest::RawSetStr(settings.sub(), name, v); }
};

// MonitorMain on a thread of its own.
class MonitorThread {
public:
    explicit MonitorThread(DWORD dwSessionId);
    ~MonitorThread(); // ends a monitor still running (code 301) and waits for it
    // The monitor's exit code, or -1 while it is still running after ms.
    int Wait(DWORD ms);
    // The monitor's window once it exists (null after 5 s without one).
    HWND WaitForWindow();

private:
    static DWORD WINAPI Run(void* self);
    DWORD dwSessionId;
    HANDLE hThread = nullptr;
    int result = -1;
};

// The registered message of the product's windows.
inline UINT KorvaneMessage() { return RegisterWindowMessageW(L"KorvaneMessage"); }

} // namespace montest
