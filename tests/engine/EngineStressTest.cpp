// Many sessions changing at once, with real session threads: no deadlock, no lost or doubled
// session thread, and the status value agrees with the threads at the end.
#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "base/ProductInfo.h"
#include "base/StrUtil.h"
#include "engine/Engine.h"
#include "engine/VXThread.h"
#include "settings/MyOpts.h"
#include "support/EngineFakes.h"
#include "support/Guards.h"
#include "support/SimTerminalServer.h"
#include "support/TestSupport.h"

using namespace vxtest;

namespace {

// What the in-session monitor does when its session ends: it sets the session's cancel event, so
// the session's thread stops without a logoff.
void MonitorSeesSessionEnd(DWORD id)
{
    wchar_t name[128];
    VXThread::FormatEventName(name, 128, L"VantrelEventCancel-%ld", id);
    if (HANDLE h = OpenEventW(EVENT_MODIFY_STATE, FALSE, name)) {
        SetEvent(h);
        CloseHandle(h);
    }
}

TEST(EngineStress, ThreeHundredSessionsChangingFromSeveralThreads)
{
    ScopedTestKey settings(L"stress"), policy(L"stresspol");
    ScopedAppRootKey root(settings.path());
    ScopedPolicyKeys policyKeys(policy.path(), policy.path());
    ScopedEngineState state;
    RawSetDword(settings.sub(), L"Enable", 1);
    RawCreateKey(settings.sub(L"ApplyTo"));
    RawCreateKey(settings.sub(L"Exclude"));
    VirtualClock clock;
    EventRecorder events;
    FakeGroups groups;
    FakePower power;
    SimTerminalServer ts;
    ASSERT_EQ(ts.Install(), 1);
    ts.SetSink([](DWORD evt, DWORD id) {
        if (evt == WTS_SESSION_LOGOFF)
            MonitorSeesSessionEnd(id);
        WTSSESSION_NOTIFICATION n = {sizeof(n), id};
        EngineControl(EngineSessionChange, evt, &n, nullptr);
    });
    EngineControl(EngineInitialise, 0, nullptr, nullptr);
    EngineControl(EngineStart, 0, nullptr, nullptr);

    // 300 places, each holding at most one session at a time; every logon gets a new id.
    const int kPlaces = 300, kDrivers = 4;
    std::vector<std::atomic<DWORD>> place(kPlaces);
    for (auto& p : place)
        p = 0;
    std::atomic<DWORD> nextId{100};
    std::atomic<bool> stop{false};
    std::vector<std::thread> drivers;
    for (int d = 0; d < kDrivers; ++d) {
        drivers.emplace_back([&, d] {
            std::mt19937 rng(1234 + d);
            while (!stop) {
                // Each driver owns the places d, d + kDrivers, ...
                int p = d + kDrivers * (int)(rng() % (kPlaces / kDrivers));
                DWORD id = place[p];
                switch (rng() % 4) {
                case 0:
                    if (!id) {
                        id = nextId++;
                        place[p] = id;
                        ts.Logon(id, (L"u" + std::to_wstring(id)).c_str(), L"CORP");
                    }
                    break;
                case 1:
                    if (id) {
                        place[p] = 0;
                        ts.Logoff(id);
                    }
                    break;
                case 2:
                    if (id)
                        ts.Lock(id);
                    break;
                default:
                    if (id)
                        ts.Unlock(id);
                    break;
                }
            }
        });
    }
    Sleep(4000);
    stop = true;
    for (auto& t : drivers)
        t.join();

    std::set<DWORD> live;
    for (auto& p : place)
        if (p)
            live.insert(p);
    // Not an ASSERT: the engine must still be stopped below, before its fakes go.
    EXPECT_GT(live.size(), 50u) << "the storm should leave many sessions logged on";
    // Threads of ended sessions stop within a wake; then exactly the live sessions are watched.
    DWORD count = 0;
    for (int i = 0; i < 300 && (count = VXThread::GetThreadCount()) != live.size(); ++i)
        Sleep(20);
    EXPECT_EQ(count, live.size());
    for (DWORD id : live) {
        VXThread* t = nullptr;
        VXThread::FindThread(id, t);
        EXPECT_NE(t, nullptr) << "session " << id << " lost its thread";
    }
    {
        CritSecLock lock(VXThread::critSec);
        std::set<DWORD> seen;
        for (DMPos pos = VXThread::list.GetHeadPosition(); pos;) {
            VXThread* t = static_cast<VXThread*>(VXThread::list.GetNext(pos));
            EXPECT_TRUE(seen.insert(t->GetSessionId()).second) << "session " << t->GetSessionId() << " has two threads";
        }
    }
    EXPECT_EQ(EngineSessionsTotal(), live.size());
    WriteStatus();
    EXPECT_EQ(RawGetDword(settings.sub(), L"SessionsMonitoring"), (DWORD)live.size());

    EngineControl(EngineStop, 0, nullptr, nullptr);
    EXPECT_EQ(VXThread::GetThreadCount(), 0u);
    ts.SetSink(nullptr);
    ts.Uninstall();
}

} // namespace
