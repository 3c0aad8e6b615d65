// What watching sessions costs the service, and how fast the decision steps run.
//
// 1. The running engine with 0, 10, 100 and 1000 simulated sessions (real session threads, each
//    waking once a second): CPU seconds of the process per session-hour, threads and private
//    memory per session, each against the same engine with no session, measured in this run.
// 2. 24 hours of 1000 sessions played through the session threads' decision steps with the
//    virtual clock (activity now and then, warnings, logoffs), against real time.
// 3. One schedule check (the question every session thread asks under the settings lock) on a
//    400 KB text of chained whole days against the same check on a 4 KB text: a check linear in
//    the text costs about 100 times as much, a quadratic one about 10,000 times.
#include <windows.h>
#include <psapi.h>
#include <tlhelp32.h>

#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bench/BenchClock.h"
#include "base/ProductInfo.h"
#include "engine/Engine.h"
#include "engine/VXThread.h"
#include "settings/MyOpts.h"
#include "settings/Schedule.h"
#include "support/EngineFakes.h"
#include "support/SimTerminalServer.h"
#include "support/TestSupport.h"

using namespace vxtest;

namespace {

DWORD ThreadCount()
{
    HANDLE snap = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 te{};
    te.dwSize = sizeof(te);
    DWORD n = 0;
    for (BOOL ok = Thread32First(snap, &te); ok; ok = Thread32Next(snap, &te))
        n += te.th32OwnerProcessID == GetCurrentProcessId();
    CloseHandle(snap);
    return n;
}

// Committed private memory of the process (thread stacks, heaps), summed over its address space:
// the process counters do not report it everywhere.
double PrivateMB() { return OwnPrivateBytes() / (1024.0 * 1024.0); }

struct Running {
    double cpuPerSecond;
    DWORD threads;
    double privateMB;
};

Running RunEngine(int sessions, DWORD seconds)
{
    ScopedTestKey settings(L"bench");
    ProductInfo::PushAppRootKey(settings.path().c_str());
    RawSetDword(settings.sub(), L"Enable", 1);
    RawSetDword(settings.sub(), L"Timeout", 9999);
    RawCreateKey(settings.sub(L"ApplyTo"));
    RawCreateKey(settings.sub(L"Exclude"));
    EventRecorder events;
    FakeGroups groups;
    SimTerminalServer ts;
    ts.Install();
    for (int i = 0; i < sessions; ++i)
        ts.AddSession(10 + i, (L"user" + std::to_wstring(i)).c_str(), L"CORP");
    EngineControl(EngineInitialise, 0, nullptr, nullptr);
    EngineControl(EngineStart, 0, nullptr, nullptr);
    Sleep(1500); // every thread started and settled
    double cpu0 = ProcessCpuSeconds();
    Sleep(seconds * 1000);
    Running r{(ProcessCpuSeconds() - cpu0) / seconds, ThreadCount(), PrivateMB()};
    EngineControl(EngineStop, 0, nullptr, nullptr);
    ts.Uninstall();
    ProductInfo::PopAppRootKey();
    VXThread::bQuitAll = 0;
    return r;
}

void BenchRunningEngine()
{
    const DWORD seconds = 5;
    Running base = RunEngine(0, seconds);
    printf("engine idle: %.4f CPU s/s, %lu threads, %.1f MB private\n", base.cpuPerSecond, (unsigned long)base.threads,
           base.privateMB);
    for (int n : {10, 100, 1000}) {
        Running r = RunEngine(n, seconds);
        double perSessionHour = (r.cpuPerSecond - base.cpuPerSecond) * 3600.0 / n;
        printf("sessions %4d: %.4f CPU s per session-hour, %.2f threads per session, %.1f KB private per session, "
               "process CPU %.4f s/s against %.4f s/s idle\n",
               n, perSessionHour, (double)(r.threads - base.threads) / n, (r.privateMB - base.privateMB) * 1024.0 / n,
               r.cpuPerSecond, base.cpuPerSecond);
    }
}

void BenchDecisionSteps()
{
    const int kSessions = 1000;
    const DWORD kSeconds = 24 * 3600;
    VirtualClock clock;
    EventRecorder events;
    SimTerminalServer ts;
    ts.Install();
    MyOpts opts;
    opts.Reset();
    opts.bEnable = 1;
    std::vector<std::unique_ptr<VXThread>> threads;
    for (int i = 0; i < kSessions; ++i) {
        ts.AddSession(10 + i, L"user", L"CORP");
        threads.emplace_back(new VXThread(opts, 10 + i));
        threads.back()->Begin(clock.Tick());
    }
    // Each user works (an input about once a minute) until a moment of the day, then leaves.
    std::mt19937 rng(7);
    std::vector<DWORD> leaves(kSessions);
    for (auto& l : leaves)
        l = rng() % kSeconds;
    DWORD start = GetTickCount(), wakes = 0, ended = 0;
    for (DWORD s = 0; s < kSeconds; ++s) {
        clock.Advance(1000);
        for (size_t i = 0; i < threads.size(); ++i) {
            auto& t = threads[i];
            if (!t)
                continue;
            ++wakes;
            bool active = s < leaves[i] && (rng() % 60) == 0;
            if (!t->Wake(active ? VXThread::WakeIdle : VXThread::WakeTimeout, clock.Tick())) {
                t.reset();
                ++ended;
            }
        }
    }
    double elapsed = (GetTickCount() - start) / 1000.0;
    printf("24 h of %d sessions through the decision steps: %.2f s (%lu wakes, %.0f ns per wake, %.0fx real time), "
           "%lu sessions logged off\n",
           kSessions, elapsed, (unsigned long)wakes, elapsed * 1e9 / wakes, elapsed > 0 ? kSeconds / elapsed : 0.0,
           (unsigned long)ended);
    threads.clear();
    ts.Uninstall();
}

double SecondsPerCheck(size_t nEntries)
{
    static const wchar_t* const days[] = {L"Sun", L"Mon", L"Tue", L"Wed", L"Thu", L"Fri", L"Sat"};
    std::wstring text;
    for (size_t i = 0; i < nEntries; ++i)
        text += std::wstring(days[i % 7]) + L" 0:00-24:00 ";
    Schedule schedule;
    schedule.Set(text.c_str());
    SYSTEMTIME now = VirtualClock::Monday(12, 0);
    LARGE_INTEGER f, a, b;
    QueryPerformanceFrequency(&f);
    int runs = 0;
    volatile int sink = 0;
    QueryPerformanceCounter(&a);
    do {
        sink = sink + schedule.GetSecondsRemaining(&now, nullptr, 0);
        ++runs;
        QueryPerformanceCounter(&b);
    } while ((double)(b.QuadPart - a.QuadPart) / f.QuadPart < 0.5 || runs < 3);
    return (double)(b.QuadPart - a.QuadPart) / f.QuadPart / runs;
}

void BenchScheduleCheck()
{
    const size_t kSmall = 300, kLarge = 30000; // about 4 KB and 400 KB of text
    double small = SecondsPerCheck(kSmall), large = SecondsPerCheck(kLarge);
    printf("schedule check: %.3f ms for 400 KB of text, %.4f ms for 4 KB, ratio %.0f (linear: about %u)\n",
           large * 1e3, small * 1e3, small > 0 ? large / small : 0.0, (unsigned)(kLarge / kSmall));
}

} // namespace

int main()
{
    BenchScheduleCheck();
    BenchDecisionSteps();
    BenchRunningEngine();
    return 0;
}
