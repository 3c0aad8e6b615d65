// The monitor mode ("/monitor:N") and the warning mode ("/msg:N") of the host executable.
#include "monitor/Monitor.h"

#include "base/Handle.h"
#include "base/Module.h"
#include "base/StrUtil.h"
#include "engine/WtsApi32.h"
#include "monitor/MonitorSeams.h"
#include "monitor/MonitorWnd.h"
#include "resources/resource.h"
#include "settings/MyOpts.h"
#include "ui/MsgBox.h"

// The module this code is linked into: the monitor's window class is registered under it.
extern "C" IMAGE_DOS_HEADER __ImageBase;

namespace {

// The hook library: the seam's path, else VXHA64.DLL in the folder of the process's executable
// (never the search path, so no other folder can plant a library of that name). 0 when the
// path does not fit.
int HookLibraryPath(wchar_t* buf, unsigned cch)
{
    if (MonitorSeams::pszHookLibrary)
        return StrCopy(buf, cch, MonitorSeams::pszHookLibrary) == StrLen(MonitorSeams::pszHookLibrary);
    wchar_t exe[MAX_PATH + 1];
    const DWORD n = GetModuleFileNameW(nullptr, exe, MAX_PATH);
    if (n == 0 || n >= MAX_PATH)
        return 0;
    exe[n] = 0;
    wchar_t* slash = nullptr;
    for (wchar_t* p = exe; *p; ++p)
        if (*p == L'\\' || *p == L'/')
            slash = p;
    if (slash)
        slash[1] = 0;
    else
        exe[0] = 0;
    const unsigned len = StrFormat(buf, cch, L"%s%s", exe, VX_HOOK_LIBRARY);
    return len + 1 < cch;
}

// The message loop: waiting messages first, then a wait for the quit event (when it could be
// opened) or any input. The quit event destroys the window and ends the loop; so do code 301 and
// a failed wait.
void RunLoop(Monitor_Wnd& wnd, HANDLE hQuit)
{
    for (;;) {
        MSG m;
        while (PeekMessageW(&m, nullptr, 0, 0, PM_REMOVE)) {
            if (m.message == WM_QUIT)
                return;
            TranslateMessage(&m);
            DispatchMessageW(&m);
        }
        const DWORD nHandles = hQuit ? 1 : 0;
        const DWORD r = MsgWaitForMultipleObjects(nHandles, hQuit ? &hQuit : nullptr, FALSE, INFINITE, QS_ALLINPUT);
        if (nHandles && r == WAIT_OBJECT_0) {
            wnd.Destroy();
            PostQuitMessage(0);
        } else if (r != WAIT_OBJECT_0 + nHandles) {
            return;
        }
    }
}

int RunMonitor(DWORD dwSessionId)
{
    // One monitor per session.
    if (FindWindowW(VX_MONITOR_CLASS, nullptr))
        return 0;
    RegisterWindowMessageW(L"TaskbarCreated");
    wchar_t path[MAX_PATH + 32];
    ModuleHandle library;
    if (HookLibraryPath(path, MAX_PATH + 32))
        library.Attach(LoadLibraryW(path));
    if (!library) {
        // Ownerless: the family disables a box's owner while it is open, and the desktop must
        // never be disabled.
        MsgFmt(nullptr, MB_OK | MB_ICONERROR, (const wchar_t*)(LONG_PTR)-IDS_CANNOT_LOAD_HOOK, path);
        return 1;
    }
    // Asked to end late in a shutdown, and without a retry dialog.
    SetProcessShutdownParameters(0x100, SHUTDOWN_NORETRY);
    const DoDllHookFn pfnHook = GetProcAs<DoDllHookFn>(library.Get(), VX_HOOK_EXPORT);
    if (!pfnHook) {
        MsgFmt(nullptr, MB_OK | MB_ICONERROR, (const wchar_t*)(LONG_PTR)-IDS_CANNOT_USE_HOOK, path);
        return 2;
    }
    const int bTerminalServices = WtsApi32::Load();
    int result = 0;
    {
        Monitor_Wnd wnd(dwSessionId);
        pfnHook(&Monitor_Wnd::HookCallback, &wnd);
        if (wnd.CreateMonitorWindow()) {
            wchar_t quitName[128];
            FormatMonitorEventName(quitName, 128, L"VantrelEventQuit", 0);
            Handle quit(OpenEventW(SYNCHRONIZE, FALSE, quitName));
            RunLoop(wnd, quit.Get());
        } else {
            result = 2;
        }
        UnregisterClassW(VX_MONITOR_CLASS, reinterpret_cast<HINSTANCE>(&__ImageBase));
        pfnHook(nullptr, nullptr);
    }
    if (bTerminalServices)
        WtsApi32::Unload();
    return result;
}

} // namespace

int MonitorMain(DWORD dwSessionId)
{
    try {
        return RunMonitor(dwSessionId);
    } catch (...) {
        return 2;
    }
}

int ShowIdleWarning(DWORD dwSessionId)
{
    (void)dwSessionId; // the warning needs only this session's settings
    try {
        MyOpts opts;
        opts.Load();
        RunWarning(opts, nullptr);
    } catch (...) {
    }
    return 0;
}
