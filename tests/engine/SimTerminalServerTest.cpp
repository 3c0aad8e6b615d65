// The simulated terminal server the engine tests run against: it notifies in order, records what
// the product asked for, fails on demand and stays consistent under concurrent use.
#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "engine/Seams.h"
#include "engine/WtsApi32.h"
#include "support/SimTerminalServer.h"

namespace {

typedef std::pair<DWORD, DWORD> Event;   // event type, session

struct SimTerminalServerTest : ::testing::Test {
    SimTerminalServer sim;
    std::mutex mtx;
    std::vector<Event> events;

    void SetUp() override
    {
        sim.SetSink([this](DWORD e, DWORD s) {
            std::lock_guard<std::mutex> lock(mtx);
            events.push_back(Event(e, s));
        });
        ASSERT_EQ(1, sim.Install());
    }
    void TearDown() override
    {
        // Every buffer the wrapper received was given back, and nothing foreign was freed.
        EXPECT_EQ(0, sim.OutstandingAllocations());
        EXPECT_EQ(0u, sim.BadFrees());
    }
    std::vector<Event> TakeEvents()
    {
        std::lock_guard<std::mutex> lock(mtx);
        return std::move(events);
    }
};

TEST_F(SimTerminalServerTest, UserOperationsNotifyInOrder)
{
    ASSERT_EQ(1, sim.Logon(2, L"alice", L"CORP"));
    ASSERT_EQ(1, sim.Lock(2));
    EXPECT_EQ((DWORD)WTSActive, WtsApi32::GetSessionConnectState(2)) << "a locked session stays active";
    ASSERT_EQ(1, sim.Unlock(2));
    ASSERT_EQ(1, sim.Disconnect(2));
    EXPECT_EQ((DWORD)WTSDisconnected, WtsApi32::GetSessionConnectState(2));
    ASSERT_EQ(1, sim.Reconnect(2));
    ASSERT_EQ(1, sim.Logon(3, L"bob", L"", 1));
    ASSERT_EQ(1, sim.Disconnect(3));
    ASSERT_EQ(1, sim.Logoff(2));
    std::vector<Event> want = {{WTS_SESSION_LOGON, 2},      {WTS_SESSION_LOCK, 2},    {WTS_SESSION_UNLOCK, 2},
                               {WTS_CONSOLE_DISCONNECT, 2}, {WTS_CONSOLE_CONNECT, 2}, {WTS_SESSION_LOGON, 3},
                               {WTS_REMOTE_DISCONNECT, 3},  {WTS_SESSION_LOGOFF, 2}};
    EXPECT_EQ(want, TakeEvents());

    // Operations on missing sessions, or a second logon, change and notify nothing.
    SetLastError(0xdeadbeef);
    EXPECT_EQ(0, sim.Lock(2));
    EXPECT_EQ(simts::kErrNoSession, GetLastError());
    EXPECT_EQ(0, sim.Logon(3, L"eve", L""));
    EXPECT_EQ((DWORD)ERROR_ALREADY_EXISTS, GetLastError());
    EXPECT_EQ(TakeEvents(), std::vector<Event>{});
}

// Logoffs, message boxes and process starts are recorded as asked; ordered failures hit the call,
// session, information class and count they name; a logoff is notified only when delivered.
TEST_F(SimTerminalServerTest, RecordsAndFailsAsOrdered)
{
    ASSERT_EQ(1, sim.AddSession(4, L"u4", L""));
    ASSERT_EQ(1, sim.AddSession(5, L"u5", L""));
    ASSERT_EQ(1, sim.Fail(simts::kCallEnumerate, RPC_S_SERVER_UNAVAILABLE, 1));
    SetLastError(0xdeadbeef);
    EXPECT_EQ(0u, WtsApi32::GetSessionCount());
    EXPECT_EQ((DWORD)RPC_S_SERVER_UNAVAILABLE, GetLastError());
    EXPECT_EQ(2u, WtsApi32::GetSessionCount()) << "ordered once";
    ASSERT_EQ(1, sim.Fail(simts::kCallQuery, ERROR_NOT_SUPPORTED, simts::kForever, simts::kAnySession, WTSSessionId));
    SetLastError(0xdeadbeef);
    EXPECT_EQ(0xFFFFFFFFu, WtsApi32::GetSessionID(5));
    EXPECT_EQ((DWORD)ERROR_NOT_SUPPORTED, GetLastError());
    EXPECT_EQ(0xFFFFFFFFu, WtsApi32::GetSessionID(4));
    EXPECT_EQ((DWORD)WTSActive, WtsApi32::GetSessionConnectState(5)) << "the other classes still answer";

    wchar_t title[] = L"Vantrel", text[] = L"Logging off!XXXX";   // the lengths given cover 3 and 12 characters
    DWORD response = 0xbdbdbdbd;
    ASSERT_TRUE(WtsApi32::WTSSendMessageW(WTS_CURRENT_SERVER_HANDLE, 5, title, 6, text, 24, 0x250030, 600,
                                          &response, FALSE));
    EXPECT_EQ((DWORD)IDASYNC, response) << "an answer not waited for";
    ASSERT_EQ(1, sim.Fail(simts::kCallLogoff, ERROR_ACCESS_DENIED, simts::kForever, 5));
    EXPECT_EQ(1, WtsApi32::LogoffSession(0, 4));
    SetLastError(0xdeadbeef);
    EXPECT_EQ(0, WtsApi32::LogoffSession(1, 5));
    EXPECT_EQ((DWORD)ERROR_ACCESS_DENIED, GetLastError());
    EXPECT_EQ(1, Seams::pfnStartProcessInSession(5, L"\"C:\\Vantrel\\VXA64.EXE\" /msg"));
    ASSERT_EQ(1, sim.Fail(simts::kCallStartProcess, ERROR_ACCESS_DENIED, 1));
    EXPECT_EQ(0, Seams::pfnStartProcessInSession(5, L"second"));
    EXPECT_EQ(0, Seams::pfnStartProcessInSession(4, L"third")) << "the session is logged off";

    std::vector<simts::SimMessage> m = sim.Messages();
    ASSERT_EQ(1u, m.size());
    EXPECT_STREQ(L"Van", m[0].szTitle);
    EXPECT_STREQ(L"Logging off!", m[0].szText);
    EXPECT_EQ(24u, m[0].cbText);
    EXPECT_EQ(0x250030u, m[0].dwStyle);
    EXPECT_EQ(600u, m[0].dwTimeout);
    EXPECT_EQ(0, m[0].bWait);
    std::vector<simts::SimLogoff> l = sim.Logoffs();
    ASSERT_EQ(2u, l.size());
    EXPECT_EQ(4u, l[0].dwSession);
    EXPECT_EQ(0, l[0].bWait);
    EXPECT_EQ(0u, l[0].dwError);
    EXPECT_EQ(5u, l[1].dwSession);
    EXPECT_EQ(1, l[1].bWait);
    EXPECT_EQ((DWORD)ERROR_ACCESS_DENIED, l[1].dwError);
    EXPECT_LT(m[0].nSeq, l[0].nSeq) << "one sequence orders warnings against logoffs";
    std::vector<simts::SimProcess> pr = sim.Processes();
    ASSERT_EQ(3u, pr.size());
    EXPECT_STREQ(L"\"C:\\Vantrel\\VXA64.EXE\" /msg", pr[0].szCmdLine);
    EXPECT_EQ(0u, pr[0].dwError);
    EXPECT_EQ((DWORD)ERROR_ACCESS_DENIED, pr[1].dwError);
    EXPECT_EQ(simts::kErrNoSession, pr[2].dwError);

    EXPECT_EQ(1u, sim.SessionCount()) << "a failed logoff leaves the session";
    EXPECT_EQ(TakeEvents(), std::vector<Event>{});
    EXPECT_EQ(1u, sim.DeliverPending());
    EXPECT_EQ((std::vector<Event>{{WTS_SESSION_LOGOFF, 4}}), TakeEvents());
}

// 300 sessions driven through logon-to-logoff rounds from four threads while another enumerates:
// each notification arrives once, in order per session, after the table shows the change, and
// every snapshot is consistent.
TEST_F(SimTerminalServerTest, ConcurrentDriversAndQueriesStayConsistent)
{
    const DWORD kSessions = 300, kDrivers = 4, kBase = 10, kRounds = 5;
    auto stays = [](DWORD i) { return i % 3 != 0; };   // logged on after the last round
    const DWORD cycle[] = {WTS_SESSION_LOGON,      WTS_SESSION_LOCK,    WTS_SESSION_UNLOCK,
                           WTS_REMOTE_DISCONNECT, WTS_REMOTE_CONNECT, WTS_SESSION_LOGOFF};
    std::vector<DWORD> seen(kSessions);   // notifications so far, per session
    std::atomic<int> nStale{0}, nFailed{0}, nBad{0};
    sim.SetSink([&](DWORD e, DWORD s) {
        simts::SimSession now;
        int exists = sim.GetSession(s, &now);
        nStale += exists != (e == WTS_SESSION_LOGOFF ? 0 : 1) || (exists && now.bLocked != (e == WTS_SESSION_LOCK ? 1 : 0));
        SwitchToThread();   // a sink that does work (the engine's) invites the others in
        std::lock_guard<std::mutex> lock(mtx);
        DWORD i = s - kBase;
        nBad += e != cycle[seen[i]++ % 6];
    });
    std::vector<std::thread> drivers;
    for (DWORD d = 0; d < kDrivers; d++)
        drivers.emplace_back([&, d] {
            for (DWORD r = 0; r < kRounds; r++)
                for (DWORD i = d, id = kBase + d; i < kSessions; i += kDrivers, id += kDrivers)
                    nFailed += !(sim.Logon(id, L"user", L"CORP", 1) && sim.Lock(id) && sim.Unlock(id) &&
                                 sim.Disconnect(id) && sim.Reconnect(id) &&
                                 ((r + 1 == kRounds && stays(i)) || sim.Logoff(id)));
        });
    std::atomic<bool> stop{false};
    std::thread querier([&] {
        while (!stop) {
            PWTS_SESSION_INFOW p = nullptr;
            DWORD n = 0;
            std::vector<char> listed(kSessions);
            nBad += !WtsApi32::WTSEnumerateSessionsW(WTS_CURRENT_SERVER_HANDLE, 0, 1, &p, &n) || n > kSessions;
            for (DWORD i = 0, k; i < n && i < kSessions; i++)
                nBad += (k = p[i].SessionId - kBase) >= kSessions || listed[k]++ ||
                        (p[i].State != WTSActive && p[i].State != WTSDisconnected);
            WtsApi32::WTSFreeMemory(p);
        }
    });
    for (std::thread& t : drivers)
        t.join();
    stop = true;
    querier.join();
    EXPECT_EQ(0, nFailed.load());
    EXPECT_EQ(0, nBad.load()) << "notifications out of order, or inconsistent snapshots";
    EXPECT_EQ(0, nStale.load()) << "notified before the table showed the change";
    EXPECT_EQ(200u, WtsApi32::GetSessionCount());
    for (DWORD i = 0; i < kSessions; i++)
        EXPECT_EQ(6 * kRounds - stays(i), seen[i]) << "notifications of session " << kBase + i;
}

} // namespace
