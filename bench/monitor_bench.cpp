// What the in-session monitor costs, each figure against a baseline measured in the same run.
//
// 1. The hook path: SendInput events through the hook library and the monitor's callback (filter,
//    rate limit, a report a second) against the same events through an empty low-level hook.
// 2. Reports under a 10 kHz input flood driven through the monitor's callback with the real clock
//    and its real one-second timer: reports per second (at most 1, never 0 while input goes on)
//    against the input rate.
// 3. A real monitor process (this program in monitor mode, with the hook library from bin/)
//    idling for a few seconds: private memory and CPU against the same program idling without
//    the monitor. CPU per hour is extrapolated from 5 seconds measured after 1 second of start-up.
#include <windows.h>
#include <psapi.h>

#include <cstdio>
#include <cwchar>
#include <string>
#include <vector>

#include "bench/BenchClock.h"
#include "base/Handle.h"
#include "base/Module.h"
#include "base/StrUtil.h"
#include "hook/HookApi.h"
#include "monitor/Monitor.h"
#include "monitor/MonitorSeams.h"
#include "monitor/MonitorWnd.h"

namespace {

const DWORD kSession = 4242;

double Seconds(LARGE_INTEGER a, LARGE_INTEGER b)
{
    LARGE_INTEGER f;
    QueryPerformanceFrequency(&f);
    return (double)(b.QuadPart - a.QuadPart) / (double)f.QuadPart;
}

LARGE_INTEGER Now()
{
    LARGE_INTEGER t;
    QueryPerformanceCounter(&t);
    return t;
}

std::wstring BinFile(const wchar_t* name)
{
    wchar_t exe[MAX_PATH];
    DWORD n = GetModuleFileNameW(nullptr, exe, MAX_PATH);
    std::wstring path(exe, n);
    return path.substr(0, path.find_last_of(L"\\/") + 1) + name;
}

void Pump()
{
    MSG m;
    while (PeekMessageW(&m, nullptr, 0, 0, PM_REMOVE)) {
        TranslateMessage(&m);
        DispatchMessageW(&m);
    }
}

// --- 1. hook path -------------------------------------------------------------------------
volatile LONG g_hookCalls = 0;

LRESULT CALLBACK EmptyProc(int code, WPARAM wp, LPARAM lp)
{
    if (code == HC_ACTION)
        InterlockedIncrement(&g_hookCalls);
    return CallNextHookEx(nullptr, code, wp, lp);
}

void CALLBACK CountingMonitorCallback(int kind, void* context)
{
    InterlockedIncrement(&g_hookCalls);
    Monitor_Wnd::HookCallback(kind, context);
}

struct HookThread {
    bool bProduct;
    HANDLE hReady;
    DWORD dwThread;
    bool bOk;
};

DWORD WINAPI HookThreadMain(void* p)
{
    HookThread* t = static_cast<HookThread*>(p);
    MSG m;
    PeekMessageW(&m, nullptr, 0, 0, PM_NOREMOVE); // a queue before anyone posts
    ModuleHandle library;
    DoDllHookFn pfnHook = nullptr;
    HHOOK kb = nullptr, mouse = nullptr;
    Monitor_Wnd* wnd = nullptr;
    if (t->bProduct) {
        library.Attach(LoadLibraryW(BinFile(VX_HOOK_LIBRARY).c_str()));
        pfnHook = GetProcAs<DoDllHookFn>(library.Get(), VX_HOOK_EXPORT);
        wnd = new Monitor_Wnd(kSession);
        wnd->GetOpts().bEnable = wnd->GetOpts().bMonitorKB = wnd->GetOpts().bMonitorMouse = 1;
        wnd->CreateMonitorWindow();
        t->bOk = pfnHook && pfnHook(CountingMonitorCallback, wnd);
    } else {
        kb = SetWindowsHookExW(WH_KEYBOARD_LL, EmptyProc, GetModuleHandleW(nullptr), 0);
        mouse = SetWindowsHookExW(WH_MOUSE_LL, EmptyProc, GetModuleHandleW(nullptr), 0);
        t->bOk = kb && mouse;
    }
    SetEvent(t->hReady);
    while (GetMessageW(&m, nullptr, 0, 0) > 0) {
        TranslateMessage(&m);
        DispatchMessageW(&m);
    }
    if (pfnHook)
        pfnHook(nullptr, nullptr);
    delete wnd;
    if (kb)
        UnhookWindowsHookEx(kb);
    if (mouse)
        UnhookWindowsHookEx(mouse);
    return 0;
}

// Seconds per event for n key events with the hooks of one kind on a thread of their own; the
// calls the hooks saw in calls.
double TimeHookPath(bool bProduct, int n, LONG& calls)
{
    HookThread t = {bProduct, CreateEventW(nullptr, TRUE, FALSE, nullptr), 0, false};
    Handle ready(t.hReady);
    Handle thread(CreateThread(nullptr, 0, HookThreadMain, &t, 0, &t.dwThread));
    WaitForSingleObject(t.hReady, 10000);
    g_hookCalls = 0;
    INPUT in[2] = {};
    in[0].type = in[1].type = INPUT_KEYBOARD;
    in[0].ki.wVk = in[1].ki.wVk = VK_SHIFT;
    in[1].ki.dwFlags = KEYEVENTF_KEYUP;
    const LARGE_INTEGER start = Now();
    for (int i = 0; i < n / 2; ++i)
        SendInput(2, in, sizeof(INPUT));
    const double s = Seconds(start, Now());
    calls = g_hookCalls;
    PostThreadMessageW(t.dwThread, WM_QUIT, 0, 0);
    WaitForSingleObject(thread.Get(), 10000);
    return t.bOk ? s / n : -1;
}

// --- 2. flood ------------------------------------------------------------------------------
std::vector<double>* g_reportTimes = nullptr;
LARGE_INTEGER g_floodStart;

LRESULT CALLBACK UtilityProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp)
{
    static const UINT korvane = RegisterWindowMessageW(VX_KORVANE_MESSAGE);
    if (msg == korvane && wp == MonitorCode::kActivity && g_reportTimes)
        g_reportTimes->push_back(Seconds(g_floodStart, Now()));
    return DefWindowProcW(hwnd, msg, wp, lp);
}

void Flood(double seconds)
{
    WNDCLASSW wc = {};
    wc.lpfnWndProc = UtilityProc;
    wc.hInstance = GetModuleHandleW(nullptr);
    wc.lpszClassName = VX_UTILITY_NOTIFY_CLASS;
    RegisterClassW(&wc);
    HWND utility = CreateWindowExW(0, VX_UTILITY_NOTIFY_CLASS, L"", 0, 0, 0, 1, 1, nullptr, nullptr, wc.hInstance, nullptr);
    std::vector<double> times;
    g_reportTimes = &times;
    long inputs = 0;
    {
        Monitor_Wnd wnd(kSession);
        wnd.GetOpts().bEnable = wnd.GetOpts().bMonitorKB = wnd.GetOpts().bMonitorMouse = 1;
        wnd.CreateMonitorWindow();
        g_floodStart = Now();
        for (;;) {
            const double t = Seconds(g_floodStart, Now());
            if (t >= seconds)
                break;
            // One input every 100 microseconds (10 kHz), the timer's messages in between.
            while (inputs < (long)(t * 10000)) {
                Monitor_Wnd::HookCallback(HookInputMouse, &wnd);
                ++inputs;
            }
            Pump();
        }
        Pump();
    }
    g_reportTimes = nullptr;
    DestroyWindow(utility);
    UnregisterClassW(VX_UTILITY_NOTIFY_CLASS, wc.hInstance);
    // The first input is reported at once; from then on one report a tick. Steady state: the
    // reports after the first one, counted per whole second after the first second.
    std::vector<int> perSecond((size_t)seconds, 0);
    for (double t : times)
        if (t < seconds)
            ++perSecond[(size_t)t];
    int lo = 1 << 30, hi = 0;
    for (size_t i = 1; i < perSecond.size(); ++i)
        lo = perSecond[i] < lo ? perSecond[i] : lo, hi = perSecond[i] > hi ? perSecond[i] : hi;
    const double rate = times.empty() ? 0 : (times.size() - 1) / seconds;
    printf("monitor flood: %.2f reports/s after the first under %.0f inputs/s (ratio %.6f); reports in each later second: "
           "min %d max %d (%zu in %.0f s)\n",
           rate, inputs / seconds, rate / (inputs / seconds), lo, hi, times.size(), seconds);
}

// --- 3. idle process -----------------------------------------------------------------------
// Each child measures itself (other processes' counters read 0 under Wine): a thread samples the
// process's CPU time after start-up and again kSpanSeconds later, then its committed private
// memory, writes "cpu-seconds private-KB" to the file named on its command line and ends the
// process's loop (code 301 to the monitor's window, WM_QUIT to the idle loop's thread).
const double kStartupSeconds = 1.0, kSpanSeconds = 5.0;

double OwnPrivateKB() { return OwnPrivateBytes() / 1024.0; }

struct Sampler {
    std::wstring file;
    DWORD dwMainThread;
    bool bMonitor;
};

DWORD WINAPI SampleSelf(void* p)
{
    Sampler* s = static_cast<Sampler*>(p);
    Sleep((DWORD)(kStartupSeconds * 1000));
    const double cpu0 = ProcessCpuSeconds();
    Sleep((DWORD)(kSpanSeconds * 1000));
    const double cpu = ProcessCpuSeconds() - cpu0, kb = OwnPrivateKB();
    if (FILE* f = _wfopen(s->file.c_str(), L"w")) {
        fprintf(f, "%.6f %.1f\n", cpu, kb);
        fclose(f);
    }
    if (s->bMonitor) {
        if (HWND wnd = FindWindowW(VX_MONITOR_CLASS, nullptr))
            PostMessageW(wnd, RegisterWindowMessageW(VX_KORVANE_MESSAGE), MonitorCode::kQuit, 0);
    } else {
        PostThreadMessageW(s->dwMainThread, WM_QUIT, 0, 0);
    }
    return 0;
}

int RunChild(bool bMonitor, const wchar_t* file)
{
    Sampler s = {file, GetCurrentThreadId(), bMonitor};
    MSG m;
    PeekMessageW(&m, nullptr, 0, 0, PM_NOREMOVE);
    Handle sampler(CreateThread(nullptr, 0, SampleSelf, &s, 0, nullptr));
    int code = 0;
    if (bMonitor) {
        code = MonitorMain(4243);
    } else {
        // The baseline: the same program waiting in a message loop.
        while (GetMessageW(&m, nullptr, 0, 0) > 0)
            DispatchMessageW(&m);
    }
    WaitForSingleObject(sampler.Get(), 20000);
    return code;
}

bool Measure(const wchar_t* mode, double& cpu, double& kb)
{
    wchar_t temp[MAX_PATH], file[MAX_PATH];
    GetTempPathW(MAX_PATH, temp);
    GetTempFileNameW(temp, L"vxb", 0, file);
    std::wstring line = L"\"" + BinFile(L"monitor_bench.exe") + L"\" " + mode + L" \"" + file + L"\"";
    STARTUPINFOW si = {};
    si.cb = sizeof(si);
    PROCESS_INFORMATION pi = {};
    bool ok = false;
    if (CreateProcessW(nullptr, &line[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &si, &pi)) {
        Handle process(pi.hProcess), thread(pi.hThread);
        if (WaitForSingleObject(pi.hProcess, 30000) == WAIT_OBJECT_0)
            if (FILE* f = _wfopen(file, L"r")) {
                ok = fscanf(f, "%lf %lf", &cpu, &kb) == 2;
                fclose(f);
            }
        if (!ok)
            TerminateProcess(pi.hProcess, 9);
    }
    DeleteFileW(file);
    return ok;
}

void IdleProcesses()
{
    double mCpu = 0, mKB = 0, iCpu = 0, iKB = 0;
    if (!Measure(L"--monitor", mCpu, mKB) || !Measure(L"--idle", iCpu, iKB)) {
        printf("monitor idle: not measured (a child did not report)\n");
        return;
    }
    printf("monitor idle private memory: %.0f KB, %.2f x the same program idling without the monitor (%.0f KB)\n", mKB,
           mKB / iKB, iKB);
    const double mh = mCpu / kSpanSeconds * 3600, ih = iCpu / kSpanSeconds * 3600;
    printf("monitor idle CPU: %.2f s per hour (measured over %.0f s after start-up, extrapolated), %.2f s per hour for "
           "the same program idling (ratio %s; 0 means below the resolution of the process times)\n",
           mh, kSpanSeconds, ih, ih > 0 ? std::to_string(mh / ih).c_str() : "n/a: the baseline used no measurable CPU");
}

} // namespace

int wmain(int argc, wchar_t** argv)
{
    if (argc == 3 && (wcscmp(argv[1], L"--monitor") == 0 || wcscmp(argv[1], L"--idle") == 0))
        return RunChild(wcscmp(argv[1], L"--monitor") == 0, argv[2]);
    // A private name for the idle event, so reports really happen without touching a service's.
    wchar_t prefix[64];
    StrFormat(prefix, L"Global\\VxMonBench%lu-", GetCurrentProcessId());
    MonitorSeams::pszEventPrefix = prefix;
    wchar_t idleName[128];
    FormatMonitorEventName(idleName, 128, L"VantrelEventIdle-%ld", kSession);
    Handle idle(CreateEventW(nullptr, FALSE, FALSE, idleName));

    const int n = 4000;
    LONG emptyCalls = 0, productCalls = 0;
    const double empty = TimeHookPath(false, n, emptyCalls);
    const double product = TimeHookPath(true, n, productCalls);
    if (empty <= 0 || product <= 0 || emptyCalls < n || productCalls < n)
        printf("monitor hook path: not measured (hooks saw %ld and %ld of %d events)\n", emptyCalls, productCalls, n);
    else
        printf("monitor hook path: %.1f us per input event, %.2f x an empty low-level hook (%.1f us)\n", product * 1e6,
               product / empty, empty * 1e6);
    Flood(5.0);
    IdleProcesses();
    return 0;
}
