// The simulated terminal server the engine tests run against: it must answer like the terminal
// server (through WtsApi32, as the engine sees it), notify like the service manager, record what
// the product asked for, fail on demand, and stay consistent under concurrent use.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "base/Handle.h"
#include "base/Thread.h"
#include "engine/Seams.h"
#include "engine/WtsApi32.h"
#include "support/SimTerminalServer.h"

using simts::SimSession;

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
        sim.Uninstall();
    }
    std::vector<Event> TakeEvents()
    {
        std::lock_guard<std::mutex> lock(mtx);
        return std::move(events);
    }

    // A string class of the session, as the engine reads it.
    static std::wstring QueryString(DWORD id, WTS_INFO_CLASS infoClass, DWORD* pErr = nullptr)
    {
        LPWSTR p = nullptr;
        DWORD cb = 0;
        SetLastError(0xdeadbeef);
        if (!WtsApi32::WTSQuerySessionInformationW(WTS_CURRENT_SERVER_HANDLE, id, infoClass, &p, &cb)) {
            if (pErr)
                *pErr = GetLastError();
            return L"<failed>";
        }
        std::wstring s(p);
        EXPECT_EQ((s.size() + 1) * sizeof(wchar_t), cb);
        WtsApi32::WTSFreeMemory(p);
        return s;
    }
};

TEST_F(SimTerminalServerTest, UserOperationsNotifyLikeTheServiceManager)
{
    ASSERT_EQ(1, sim.Logon(2, L"alice", L"CORP"));
    ASSERT_EQ(1, sim.Lock(2));
    SimSession s;
    ASSERT_EQ(1, sim.GetSession(2, &s));
    EXPECT_EQ(1, s.bLocked);
    EXPECT_EQ((DWORD)WTSActive, WtsApi32::GetSessionConnectState(2)) << "a locked session stays active";
    ASSERT_EQ(1, sim.Unlock(2));
    ASSERT_EQ(1, sim.Disconnect(2));
    EXPECT_EQ((DWORD)WTSDisconnected, WtsApi32::GetSessionConnectState(2));
    ASSERT_EQ(1, sim.Reconnect(2));
    EXPECT_EQ((DWORD)WTSActive, WtsApi32::GetSessionConnectState(2));
    ASSERT_EQ(1, sim.Logon(3, L"bob", L"", 1));
    ASSERT_EQ(1, sim.Disconnect(3));
    ASSERT_EQ(1, sim.Reconnect(3));
    ASSERT_EQ(1, sim.Logoff(2));
    EXPECT_EQ((DWORD)WTSInit, WtsApi32::GetSessionConnectState(2)) << "logged-off session still answers";

    std::vector<Event> want = {{WTS_SESSION_LOGON, 2},   {WTS_SESSION_LOCK, 2},       {WTS_SESSION_UNLOCK, 2},
                               {WTS_CONSOLE_DISCONNECT, 2}, {WTS_CONSOLE_CONNECT, 2}, {WTS_SESSION_LOGON, 3},
                               {WTS_REMOTE_DISCONNECT, 3}, {WTS_REMOTE_CONNECT, 3},   {WTS_SESSION_LOGOFF, 2}};
    EXPECT_EQ(want, TakeEvents());

    // Operations on sessions that do not exist (or already do) change nothing and notify nothing.
    SetLastError(0xdeadbeef);
    EXPECT_EQ(0, sim.Lock(2));
    EXPECT_EQ(simts::kErrNoSession, GetLastError());
    EXPECT_EQ(0, sim.Logoff(2));
    EXPECT_EQ(0, sim.Reconnect(99));
    SetLastError(0xdeadbeef);
    EXPECT_EQ(0, sim.Logon(3, L"eve", L""));
    EXPECT_EQ((DWORD)ERROR_ALREADY_EXISTS, GetLastError());
    EXPECT_EQ(L"bob", QueryString(3, WTSUserName));
    EXPECT_TRUE(TakeEvents().empty());
    EXPECT_EQ(1u, sim.SessionCount());
}

TEST_F(SimTerminalServerTest, EnumerationListsTheTableInOrder)
{
    ASSERT_EQ(1, sim.AddSession(0, L"", L"", WTSDisconnected));
    ASSERT_EQ(1, sim.AddSession(5, L"carol", L"CORP", WTSActive, 1));
    ASSERT_EQ(1, sim.AddSession(1, L"dave", L"", WTSConnected));
    EXPECT_TRUE(TakeEvents().empty()) << "setting up the table notifies nothing";

    PWTS_SESSION_INFOW p = nullptr;
    DWORD n = 0;
    ASSERT_TRUE(WtsApi32::WTSEnumerateSessionsW(WTS_CURRENT_SERVER_HANDLE, 0, 1, &p, &n));
    ASSERT_EQ(3u, n);
    const DWORD ids[] = {0, 5, 1};
    const WTS_CONNECTSTATE_CLASS states[] = {WTSDisconnected, WTSActive, WTSConnected};
    const wchar_t* stations[] = {L"Console", L"RDP-Tcp#5", L"Console"};
    for (DWORD i = 0; i < n; i++) {
        SCOPED_TRACE(i);
        EXPECT_EQ(ids[i], p[i].SessionId);
        EXPECT_EQ(states[i], p[i].State);
        EXPECT_STREQ(stations[i], p[i].pWinStationName);
    }
    WtsApi32::WTSFreeMemory(p);
    EXPECT_EQ(1u, WtsApi32::GetActiveSessionID());
    EXPECT_EQ(3u, WtsApi32::GetSessionCount());
    EXPECT_EQ(1u, WtsApi32::WTSGetActiveConsoleSessionId()) << "the attached console session";

    // Only the current server, only version 1.
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(WtsApi32::WTSEnumerateSessionsW(WTS_CURRENT_SERVER_HANDLE, 0, 2, &p, &n));
    EXPECT_EQ((DWORD)ERROR_INVALID_PARAMETER, GetLastError());
    EXPECT_FALSE(WtsApi32::WTSEnumerateSessionsW((HANDLE)1, 0, 1, &p, &n));
    EXPECT_EQ((DWORD)ERROR_INVALID_HANDLE, GetLastError());

    // An ordered failure hits the next call only.
    ASSERT_EQ(1, sim.Fail(simts::kCallEnumerate, RPC_S_SERVER_UNAVAILABLE, 1));
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(WtsApi32::WTSEnumerateSessionsW(WTS_CURRENT_SERVER_HANDLE, 0, 1, &p, &n));
    EXPECT_EQ((DWORD)RPC_S_SERVER_UNAVAILABLE, GetLastError());
    EXPECT_EQ(nullptr, p);
    EXPECT_EQ(3u, WtsApi32::GetSessionCount());
}

TEST_F(SimTerminalServerTest, QueriesAnswerEveryClassTheEngineReads)
{
    // Longer than the session record's fixed fields (16 and 20 characters plus terminators).
    const wchar_t* longUser = L"a_very_long_user_name_beyond_twenty";
    const wchar_t* longDomain = L"ADOMAINOFMORETHANSEVENTEEN";
    ASSERT_EQ(1, sim.AddSession(4, longUser, longDomain, WTSActive, 1));
    EXPECT_EQ(longUser, QueryString(4, WTSUserName));
    EXPECT_EQ(longDomain, QueryString(4, WTSDomainName));
    EXPECT_EQ(L"RDP-Tcp#4", QueryString(4, WTSWinStationName));
    EXPECT_EQ(4u, WtsApi32::GetSessionID(4));

    LPWSTR p = nullptr;
    DWORD cb = 0;
    ASSERT_TRUE(WtsApi32::WTSQuerySessionInformationW(WTS_CURRENT_SERVER_HANDLE, 4, WTSSessionInfo, &p, &cb));
    ASSERT_EQ(sizeof(WTSINFOW), cb);
    const WTSINFOW* info = (const WTSINFOW*)p;
    EXPECT_EQ(WTSActive, info->State);
    EXPECT_EQ(4u, info->SessionId);
    EXPECT_EQ(std::wstring(longUser).substr(0, USERNAME_LENGTH), info->UserName);
    EXPECT_EQ(std::wstring(longDomain).substr(0, DOMAIN_LENGTH - 1), info->Domain);
    WtsApi32::WTSFreeMemory(p);

    // The logon is seen before the name: empty, no token, until the name is set.
    ASSERT_EQ(1, sim.Logon(6, L"", L""));
    EXPECT_EQ(L"", QueryString(6, WTSUserName));
    HANDLE hToken = nullptr;
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(WtsApi32::WTSQueryUserToken(6, &hToken));
    EXPECT_EQ((DWORD)ERROR_NO_TOKEN, GetLastError());
    ASSERT_EQ(1, sim.SetUser(6, L"erin", L"VM"));
    EXPECT_EQ(L"erin", QueryString(6, WTSUserName));
    EXPECT_EQ(L"VM", QueryString(6, WTSDomainName));

    // A server without the session record class: only that class fails.
    ASSERT_EQ(1, sim.Fail(simts::kCallQuery, ERROR_NOT_SUPPORTED, simts::kForever, simts::kAnySession, WTSSessionInfo));
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(WtsApi32::WTSQuerySessionInformationW(WTS_CURRENT_SERVER_HANDLE, 6, WTSSessionInfo, &p, &cb));
    EXPECT_EQ((DWORD)ERROR_NOT_SUPPORTED, GetLastError());
    EXPECT_EQ(L"erin", QueryString(6, WTSUserName));

    DWORD err = 0;
    EXPECT_EQ(L"<failed>", QueryString(8, WTSUserName, &err));
    EXPECT_EQ(simts::kErrNoSession, err);
    EXPECT_EQ(0xFFFFFFFFu, WtsApi32::GetSessionID(8));
}

TEST_F(SimTerminalServerTest, LogoffIsRecordedAndNotifiedWhenDelivered)
{
    ASSERT_EQ(1, sim.AddSession(4, L"u4", L""));
    ASSERT_EQ(1, sim.AddSession(5, L"u5", L""));
    ASSERT_EQ(1, sim.Fail(simts::kCallLogoff, ERROR_ACCESS_DENIED, simts::kForever, 5));

    EXPECT_EQ(1, WtsApi32::LogoffSession(0, 4));
    SetLastError(0xdeadbeef);
    EXPECT_EQ(0, WtsApi32::LogoffSession(1, 5));
    EXPECT_EQ((DWORD)ERROR_ACCESS_DENIED, GetLastError());
    EXPECT_EQ(0, WtsApi32::LogoffSession(0, 9));

    SimSession s;
    EXPECT_EQ(0, sim.GetSession(4, &s)) << "a logged-off session is gone";
    EXPECT_EQ(1, sim.GetSession(5, &s)) << "a failed logoff leaves the session";
    std::vector<simts::SimLogoff> logoffs = sim.Logoffs();
    ASSERT_EQ(3u, logoffs.size());
    EXPECT_EQ(4u, logoffs[0].dwSession);
    EXPECT_EQ(0, logoffs[0].bWait);
    EXPECT_EQ(0u, logoffs[0].dwError);
    EXPECT_EQ(5u, logoffs[1].dwSession);
    EXPECT_EQ(1, logoffs[1].bWait);
    EXPECT_EQ((DWORD)ERROR_ACCESS_DENIED, logoffs[1].dwError);
    EXPECT_EQ(9u, logoffs[2].dwSession);
    EXPECT_EQ(simts::kErrNoSession, logoffs[2].dwError);
    EXPECT_LT(logoffs[0].nSeq, logoffs[1].nSeq);

    // Only the successful logoff is notified, and only on delivery.
    EXPECT_TRUE(TakeEvents().empty());
    EXPECT_EQ(1u, sim.PendingCount());
    EXPECT_EQ(1u, sim.DeliverPending());
    EXPECT_EQ((std::vector<Event>{{WTS_SESSION_LOGOFF, 4}}), TakeEvents());
    EXPECT_EQ(0u, sim.DeliverPending());
}

TEST_F(SimTerminalServerTest, MessageBoxesAreRecordedAsGiven)
{
    ASSERT_EQ(1, sim.AddSession(3, L"u3", L""));
    wchar_t title[] = L"Vantrel";
    wchar_t text[] = L"Logging off in 10 minutes!XXXX";   // the length given covers 26 characters
    DWORD response = 0xbdbdbdbd;
    ASSERT_TRUE(WtsApi32::WTSSendMessageW(WTS_CURRENT_SERVER_HANDLE, 3, title, 14, text, 52, 0x250030, 600,
                                          &response, FALSE));
    EXPECT_EQ((DWORD)IDASYNC, response) << "an answer not waited for";
    sim.SetMessageResponse(IDTIMEOUT);
    ASSERT_TRUE(WtsApi32::WTSSendMessageW(WTS_CURRENT_SERVER_HANDLE, 3, title, 6, text, 4, MB_OK, 0, &response, TRUE));
    EXPECT_EQ((DWORD)IDTIMEOUT, response);
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(
        WtsApi32::WTSSendMessageW(WTS_CURRENT_SERVER_HANDLE, 8, title, 14, text, 52, MB_OK, 0, &response, FALSE));
    EXPECT_EQ(simts::kErrNoSession, GetLastError());

    std::vector<simts::SimMessage> m = sim.Messages();
    ASSERT_EQ(3u, m.size());
    EXPECT_EQ(3u, m[0].dwSession);
    EXPECT_STREQ(L"Vantrel", m[0].szTitle);
    EXPECT_STREQ(L"Logging off in 10 minutes!", m[0].szText);
    EXPECT_EQ(14u, m[0].cbTitle);
    EXPECT_EQ(52u, m[0].cbText);
    EXPECT_EQ(0x250030u, m[0].dwStyle);
    EXPECT_EQ(600u, m[0].dwTimeout);
    EXPECT_EQ(0, m[0].bWait);
    EXPECT_EQ(0u, m[0].dwError);
    EXPECT_STREQ(L"Van", m[1].szTitle);
    EXPECT_STREQ(L"Lo", m[1].szText);
    EXPECT_EQ(1, m[1].bWait);
    EXPECT_EQ(simts::kErrNoSession, m[2].dwError);
}

TEST_F(SimTerminalServerTest, TokensAreRealAndFailOnDemand)
{
    ASSERT_EQ(1, sim.AddSession(2, L"u2", L""));
    HANDLE h = nullptr;
    ASSERT_TRUE(WtsApi32::WTSQueryUserToken(2, &h));
    Handle token(h);
    TOKEN_TYPE type = TokenImpersonation;
    DWORD cb = 0;
    ASSERT_TRUE(GetTokenInformation(token, TokenType, &type, sizeof(type), &cb));
    EXPECT_EQ(TokenPrimary, type) << "processes are started with it";
    EXPECT_EQ(1u, sim.TokensIssued());

    ASSERT_EQ(1, sim.Fail(simts::kCallQueryUserToken, ERROR_PRIVILEGE_NOT_HELD, 1, 2));
    h = (HANDLE)(ULONG_PTR)0xbdbd;
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(WtsApi32::WTSQueryUserToken(2, &h));
    EXPECT_EQ((DWORD)ERROR_PRIVILEGE_NOT_HELD, GetLastError());
    EXPECT_EQ(nullptr, h);
    ASSERT_TRUE(WtsApi32::WTSQueryUserToken(2, &h));
    CloseHandle(h);
    EXPECT_EQ(2u, sim.TokensIssued());

    // Notification registration is counted (the in-session monitor registers and unregisters).
    HWND wnd = (HWND)(ULONG_PTR)0x10;
    EXPECT_TRUE(WtsApi32::WTSRegisterSessionNotification(wnd, NOTIFY_FOR_THIS_SESSION));
    EXPECT_EQ(1, sim.Registrations());
    EXPECT_TRUE(WtsApi32::WTSUnRegisterSessionNotification(wnd));
    EXPECT_EQ(0, sim.Registrations());
}

TEST_F(SimTerminalServerTest, InstallReplacesAndUninstallRestoresThePointers)
{
    ASSERT_EQ(1, sim.AddSession(3, L"u3", L""));
    EXPECT_EQ(1, Seams::pfnStartProcessInSession(3, L"\"C:\\Vantrel\\VXA64.EXE\" /msg"));
    ASSERT_EQ(1, sim.Fail(simts::kCallStartProcess, ERROR_ACCESS_DENIED, 1));
    SetLastError(0xdeadbeef);
    EXPECT_EQ(0, Seams::pfnStartProcessInSession(3, L"second"));
    EXPECT_EQ((DWORD)ERROR_ACCESS_DENIED, GetLastError());
    EXPECT_EQ(0, Seams::pfnStartProcessInSession(7, L"third"));
    std::vector<simts::SimProcess> p = sim.Processes();
    ASSERT_EQ(3u, p.size());
    EXPECT_EQ(3u, p[0].dwSession);
    EXPECT_STREQ(L"\"C:\\Vantrel\\VXA64.EXE\" /msg", p[0].szCmdLine);
    EXPECT_EQ(0u, p[0].dwError);
    EXPECT_EQ((DWORD)ERROR_ACCESS_DENIED, p[1].dwError);
    EXPECT_EQ(simts::kErrNoSession, p[2].dwError);

    // One simulator at a time.
    SimTerminalServer other;
    SetLastError(0xdeadbeef);
    EXPECT_EQ(0, other.Install());
    EXPECT_EQ((DWORD)ERROR_BUSY, GetLastError());
    EXPECT_EQ(&sim, SimTerminalServer::Installed());

    sim.Uninstall();
    WtsApi32Fns before = WtsApi32::fns;
    auto startBefore = Seams::pfnStartProcessInSession;
    ASSERT_EQ(1, other.Install());
    EXPECT_NE(0, memcmp(&before, &WtsApi32::fns, sizeof(before)));
    EXPECT_EQ(SimTerminalServer::SimStartProcessInSession, Seams::pfnStartProcessInSession);
    other.Uninstall();
    EXPECT_EQ(0, memcmp(&before, &WtsApi32::fns, sizeof(before)));
    EXPECT_EQ(startBefore, Seams::pfnStartProcessInSession);
    ASSERT_EQ(1, sim.Install());
}

// 300 sessions driven through several logon-to-logoff rounds from four threads while two others
// enumerate and query: every notification arrives exactly once and in order per session, every
// snapshot is consistent, and the table ends as the last round left it.
TEST_F(SimTerminalServerTest, ConcurrentDriversAndQueriesStayConsistent)
{
    const DWORD kSessions = 300, kDrivers = 4, kQueriers = 2, kBase = 10, kRounds = 5;
    std::vector<std::vector<DWORD>> perSession(kSessions);
    std::atomic<unsigned> nCalls{0};
    sim.SetSink([&](DWORD e, DWORD s) {
        if (++nCalls % 8 == 0)
            SwitchToThread();   // a sink that does work (the engine's) invites the others in
        std::lock_guard<std::mutex> lock(mtx);
        if (s >= kBase && s < kBase + kSessions)
            perSession[s - kBase].push_back(e);
    });

    class Worker : public DMThread {
    public:
        explicit Worker(std::function<DWORD()> f) : fn(std::move(f)) {}
        ~Worker() override { Wait(); }

    protected:
        DWORD DoThread() override { return fn(); }

    private:
        std::function<DWORD()> fn;
    };

    // Each session: logon, lock, unlock, disconnect, reconnect, logoff; the last round leaves
    // two sessions of three logged on.
    auto lastRound = [&](DWORD i) { return i % 3 == 0 ? kRounds : kRounds - 1; };
    volatile LONG stop = 0;
    std::vector<Worker*> threads;
    for (DWORD d = 0; d < kDrivers; d++) {
        threads.push_back(new Worker([&, d]() -> DWORD {
            DWORD failures = 0;
            for (DWORD r = 0; r < kRounds; r++) {
                for (DWORD i = d; i < kSessions; i += kDrivers) {
                    DWORD id = kBase + i;
                    std::wstring user = L"user" + std::to_wstring(id);
                    failures += !sim.Logon(id, user.c_str(), L"CORP", i % 2);
                    failures += !sim.Lock(id);
                    failures += !sim.Unlock(id);
                    failures += !sim.Disconnect(id);
                    failures += !sim.Reconnect(id);
                    if (r < lastRound(i))
                        failures += !sim.Logoff(id);
                }
            }
            return failures;
        }));
    }
    for (DWORD q = 0; q < kQueriers; q++) {
        threads.push_back(new Worker([&]() -> DWORD {
            DWORD bad = 0;
            std::vector<char> seen(kSessions);
            while (!stop) {
                PWTS_SESSION_INFOW p = nullptr;
                DWORD n = 0;
                if (!WtsApi32::WTSEnumerateSessionsW(WTS_CURRENT_SERVER_HANDLE, 0, 1, &p, &n) || n > kSessions) {
                    bad++;
                    continue;
                }
                std::fill(seen.begin(), seen.end(), 0);
                for (DWORD i = 0; i < n; i++) {
                    DWORD k = p[i].SessionId - kBase;
                    if (k >= kSessions || seen[k]++ || (p[i].State != WTSActive && p[i].State != WTSDisconnected) ||
                        !p[i].pWinStationName[0])
                        bad++;
                }
                if (n) {
                    DWORD id = p[n / 2].SessionId;   // may be gone by now: then it answers nothing
                    DWORD got = WtsApi32::GetSessionID(id);
                    if (got != id && got != 0xFFFFFFFF)
                        bad++;
                }
                WtsApi32::WTSFreeMemory(p);
            }
            return bad;
        }));
    }
    for (Worker* t : threads)
        ASSERT_EQ(1, t->Start());
    for (DWORD d = 0; d < kDrivers; d++)
        ASSERT_EQ(1, threads[d]->Wait(120000));
    InterlockedExchange(&stop, 1);
    for (Worker* t : threads) {
        ASSERT_EQ(1, t->Wait(120000));
        DWORD code = 0xbdbdbdbd;
        t->GetExitCode(&code);
        EXPECT_EQ(0u, code) << "failed operations or inconsistent snapshots";
        delete t;
    }

    DWORD loggedOn = 0;
    for (DWORD i = 0; i < kSessions; i++) {
        SCOPED_TRACE(i);
        bool remote = i % 2;
        std::vector<DWORD> want;
        for (DWORD r = 0; r < kRounds; r++) {
            want.insert(want.end(), {WTS_SESSION_LOGON, WTS_SESSION_LOCK, WTS_SESSION_UNLOCK,
                                     remote ? (DWORD)WTS_REMOTE_DISCONNECT : (DWORD)WTS_CONSOLE_DISCONNECT,
                                     remote ? (DWORD)WTS_REMOTE_CONNECT : (DWORD)WTS_CONSOLE_CONNECT});
            if (r < lastRound(i))
                want.push_back(WTS_SESSION_LOGOFF);
        }
        EXPECT_EQ(want, perSession[i]);
        SimSession s;
        bool on = lastRound(i) < kRounds;
        loggedOn += on;
        EXPECT_EQ(on ? 1 : 0, sim.GetSession(kBase + i, &s));
    }
    EXPECT_EQ(loggedOn, sim.SessionCount());
    EXPECT_EQ(loggedOn, WtsApi32::GetSessionCount());

    // Several threads locking and unlocking the same sessions: when the sink hears of a change,
    // the table shows that change, not a later one (the engine reads the table on notifications),
    // and the last notification matches the state the table kept. The sink may query the table.
    for (auto& v : perSession)
        v.clear();
    std::atomic<int> nStale{0};
    sim.SetSink([&](DWORD e, DWORD s) {
        SimSession now;
        if (!sim.GetSession(s, &now) || now.bLocked != (e == WTS_SESSION_LOCK ? 1 : 0))
            nStale++;
        SwitchToThread();
        std::lock_guard<std::mutex> lock(mtx);
        perSession[s - kBase].push_back(e);
    });
    threads.clear();
    for (DWORD d = 0; d < kDrivers; d++) {
        threads.push_back(new Worker([&, d]() -> DWORD {
            for (DWORD k = 0; k < 50; k++)
                for (DWORD i = 1; i < kSessions; i += 3)
                    ((k + d) % 2 ? sim.Lock(kBase + i) : sim.Unlock(kBase + i));
            return 0;
        }));
        ASSERT_EQ(1, threads.back()->Start());
    }
    for (Worker* t : threads)
        delete t;   // waits
    EXPECT_EQ(0, nStale.load());
    for (DWORD i = 1; i < kSessions; i += 3) {
        SCOPED_TRACE(i);
        SimSession s;
        ASSERT_EQ(1, sim.GetSession(kBase + i, &s));
        ASSERT_EQ(kDrivers * 50, perSession[i].size());
        EXPECT_EQ(s.bLocked ? (DWORD)WTS_SESSION_LOCK : (DWORD)WTS_SESSION_UNLOCK, perSession[i].back());
    }
}

} // namespace
