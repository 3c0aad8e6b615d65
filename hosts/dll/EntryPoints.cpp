// The library's entry points for the host executables. DoWinMain runs the mode the command line
// names (engine/CommandLine.h) and returns the host's exit code; the work of each mode lives in
// the engine and the monitor, this file only connects them.
#include <windows.h>

#include "base/ProductInfo.h"
#include "config/DlgMain.h"
#include "engine/CommandLine.h"
#include "engine/Engine.h"
#include "engine/Host.h"
#include "engine/ServiceHost.h"
#include "monitor/Monitor.h"
#include "ui/MsgBox.h"

namespace {

// The monitor of a session owns a window of this class on the session's desktop.
const wchar_t kMonitorWindowClass[] = L"VANTREL_MONITOR";
const wchar_t kProductMessage[] = L"KorvaneMessage";
// "KorvaneMessage" code that asks the monitor to show its session's warning.
const WPARAM kShowWarning = 304;

// "/msg:N": the session's monitor shows the warning when it runs; otherwise this process does.
int ShowWarning(DWORD dwSessionId)
{
    if (HWND monitor = FindWindowW(kMonitorWindowClass, nullptr)) {
        PostMessageW(monitor, RegisterWindowMessageW(kProductMessage), kShowWarning, (LPARAM)dwSessionId);
        return 0;
    }
    return ShowIdleWarning(dwSessionId);
}

int Run(const wchar_t* cmdLine)
{
    const CommandLine command = ParseCommandLine(cmdLine);
    switch (command.mode) {
    case CmdMonitor:
        return MonitorMain(command.dwSessionId);
    case CmdMessage:
        ShowWarning(command.dwSessionId);
        return 0;
    case CmdUninstallMsi:
        return SendServiceControl(EngineReleaseSessions) ? 1 : 0;
    case CmdLoad:
    case CmdLoadSilent:
        return InstallService(command.mode == CmdLoadSilent) ? 0 : 1;
    case CmdUnload:
    case CmdUnloadSilent:
        return RemoveService(command.mode == CmdUnloadSilent) ? 0 : 1;
    case CmdService:
        RunService();
        return 0;
    default: // "/CHECK4UPDATES" (served elsewhere), "/user-load", "/user-unload", anything else
        return 0;
    }
}

} // namespace

extern "C" int WINAPI DoWinMain(HINSTANCE hInstance, const wchar_t* cmdLine, int)
{
    try {
        // Every session command line the service builds starts with the host's own path.
        SetHostModule(hInstance);
        DMApp app(L"HKLM\\SOFTWARE\\Korvane\\Vantrel");
        return Run(cmdLine);
    } catch (...) {
        return 1;
    }
}

extern "C" int WINAPI DoWinMainCFG(HINSTANCE hInstance, const wchar_t* cmdLine, int show)
{
    try {
        SetHostModule(hInstance);
        DMApp app(L"HKLM\\SOFTWARE\\Korvane\\Vantrel");
        return RunConfigUtility(hInstance, cmdLine, show);
    } catch (...) {
        return 1;
    }
}
