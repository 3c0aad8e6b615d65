#include "MonitorTestSupport.h"

#include "base/Handle.h"
#include "base/StrUtil.h"
#include "engine/Seams.h"

namespace montest {

namespace {

std::vector<int>* g_types = nullptr;

LRESULT CALLBACK UtilityProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp)
{
    if (msg == KorvaneMessage() && wp == MonitorCode::kActivity && g_types)
        g_types->push_back((int)lp);
    return DefWindowProcW(hwnd, msg, wp, lp);
}

const wchar_t* PrivatePrefix()
{
    static wchar_t prefix[64];
    StrFormat(prefix, L"Global\\VxMonTest%lu-", GetCurrentProcessId());
    return prefix;
}

} // namespace

std::wstring BinFile(const wchar_t* name)
{
    wchar_t exe[MAX_PATH];
    DWORD n = GetModuleFileNameW(nullptr, exe, MAX_PATH);
    std::wstring path(exe, n);
    return path.substr(0, path.find_last_of(L"\\/") + 1) + name;
}

int RunHelper(const wchar_t* exe, const wchar_t* args)
{
    std::wstring line = L"\"" + BinFile(exe) + L"\" " + args;
    STARTUPINFOW si = {};
    si.cb = sizeof(si);
    PROCESS_INFORMATION pi = {};
    if (!CreateProcessW(nullptr, &line[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &si, &pi))
        return -1;
    Handle process(pi.hProcess), thread(pi.hThread);
    // The helper's input must reach this thread's hooks: keep pumping while it runs.
    bool ended = PumpUntil([&] { return WaitForSingleObject(pi.hProcess, 0) == WAIT_OBJECT_0; }, 20000);
    DWORD code = (DWORD)-1;
    if (!ended || !GetExitCodeProcess(pi.hProcess, &code))
        return -1;
    return (int)code;
}

bool PumpUntil(const std::function<bool()>& done, DWORD ms)
{
    const DWORD start = GetTickCount();
    while (!done()) {
        if (GetTickCount() - start >= ms)
            return done();
        MSG m;
        while (PeekMessageW(&m, nullptr, 0, 0, PM_REMOVE)) {
            TranslateMessage(&m);
            DispatchMessageW(&m);
        }
        MsgWaitForMultipleObjects(0, nullptr, FALSE, 10, QS_ALLINPUT);
    }
    return true;
}

HANDLE CreateTestEvent(const wchar_t* name, DWORD dwSessionId, BOOL bManualReset)
{
    wchar_t full[128];
    FormatMonitorEventName(full, 128, name, dwSessionId);
    return CreateEventW(nullptr, bManualReset, FALSE, full);
}

bool IsSet(HANDLE event) { return WaitForSingleObject(event, 0) == WAIT_OBJECT_0; }

UtilityWindow::UtilityWindow()
{
    WNDCLASSW wc = {};
    wc.lpfnWndProc = UtilityProc;
    wc.hInstance = GetModuleHandleW(nullptr);
    wc.lpszClassName = VX_UTILITY_NOTIFY_CLASS;
    RegisterClassW(&wc);
    g_types = &types;
    hwnd = CreateWindowExW(0, VX_UTILITY_NOTIFY_CLASS, L"", 0, 0, 0, 1, 1, nullptr, nullptr, wc.hInstance, nullptr);
}

UtilityWindow::~UtilityWindow()
{
    DestroyWindow(hwnd);
    g_types = nullptr;
    UnregisterClassW(VX_UTILITY_NOTIFY_CLASS, GetModuleHandleW(nullptr));
}

MonitorEnv::MonitorEnv() : prefix(MonitorSeams::pszEventPrefix, PrivatePrefix())
{
    SetDword(L"Enable", 1);
    SetDword(L"MonitorKB", 1);
    SetDword(L"MonitorMouse", 1);
}

MonitorThread::MonitorThread(DWORD id) : dwSessionId(id)
{
    hThread = CreateThread(nullptr, 0, Run, this, 0, nullptr);
}

MonitorThread::~MonitorThread()
{
    if (Wait(0) == -1) {
        if (HWND wnd = FindWindowW(VX_MONITOR_CLASS, nullptr))
            PostMessageW(wnd, KorvaneMessage(), MonitorCode::kQuit, 0);
        Wait(10000);
    }
    CloseHandleKeepError(hThread);
}

int MonitorThread::Wait(DWORD ms)
{
    if (!hThread)
        return -2;
    if (WaitForSingleObject(hThread, ms) != WAIT_OBJECT_0)
        return -1;
    return result;
}

HWND MonitorThread::WaitForWindow()
{
    HWND wnd = nullptr;
    PumpUntil([&] { return (wnd = FindWindowW(VX_MONITOR_CLASS, nullptr)) != nullptr || Wait(0) != -1; }, 5000);
    return wnd;
}

DWORD WINAPI MonitorThread::Run(void* self)
{
    MonitorThread* t = static_cast<MonitorThread*>(self);
    t->result = MonitorMain(t->dwSessionId);
    return 0;
}

} // namespace montest
