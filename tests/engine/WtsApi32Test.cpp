// The run-time-loaded Terminal Services wrapper: missing functions answer 0, the forwarders hand
// every argument on, the session queries read, interpret and free the answers, and loading
// resolves the real library while keeping pointers a test put in.
#include <gtest/gtest.h>

#include <vector>

#include "engine/WtsApi32.h"

namespace {

// The fake terminal server's answers and what it was asked.
struct FakeCalls {
    HANDLE hServer;
    DWORD dwSession;
    WTS_INFO_CLASS infoClass;
    BOOL bWait;
    DWORD dwReserved, dwVersion;
    LPWSTR pTitle, pText;
    DWORD cbTitle, cbText, dwStyle, dwTimeout;
    DWORD* pResponse;
    HWND hWnd;
    DWORD dwFlags;
    int nCalls;
};
FakeCalls g_calls;
std::vector<void*> g_freed;
BOOL g_succeed = TRUE;
DWORD g_answer = 0;        // the DWORD a query answers
DWORD g_answerBytes = 4;
std::vector<WTS_SESSION_INFOW> g_table;
DWORD g_enumBuffer[64];    // the enumeration's buffer (an address to see freed)

BOOL WINAPI FakeQuery(HANDLE hServer, DWORD dwSession, WTS_INFO_CLASS infoClass, LPWSTR* ppBuffer, DWORD* pBytes)
{
    g_calls.nCalls++;
    g_calls.hServer = hServer;
    g_calls.dwSession = dwSession;
    g_calls.infoClass = infoClass;
    if (!g_succeed) {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    *ppBuffer = (LPWSTR)&g_answer;
    *pBytes = g_answerBytes;
    return TRUE;
}

void WINAPI FakeFree(PVOID p)
{
    g_freed.push_back(p);
}

BOOL WINAPI FakeEnumerate(HANDLE hServer, DWORD dwReserved, DWORD dwVersion, PWTS_SESSION_INFOW* pp, DWORD* pCount)
{
    g_calls.nCalls++;
    g_calls.hServer = hServer;
    g_calls.dwReserved = dwReserved;
    g_calls.dwVersion = dwVersion;
    if (!g_succeed) {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    memcpy(g_enumBuffer, g_table.data(), g_table.size() * sizeof(WTS_SESSION_INFOW));
    *pp = (PWTS_SESSION_INFOW)g_enumBuffer;
    *pCount = (DWORD)g_table.size();
    return TRUE;
}

BOOL WINAPI FakeLogoff(HANDLE hServer, DWORD dwSession, BOOL bWait)
{
    g_calls.nCalls++;
    g_calls.hServer = hServer;
    g_calls.dwSession = dwSession;
    g_calls.bWait = bWait;
    if (!g_succeed)
        SetLastError(ERROR_ACCESS_DENIED);
    return g_succeed;
}

BOOL WINAPI FakeSendMessage(HANDLE hServer, DWORD dwSession, LPWSTR pTitle, DWORD cbTitle, LPWSTR pText, DWORD cbText,
                            DWORD dwStyle, DWORD dwTimeout, DWORD* pResponse, BOOL bWait)
{
    g_calls.nCalls++;
    g_calls.hServer = hServer;
    g_calls.dwSession = dwSession;
    g_calls.pTitle = pTitle;
    g_calls.cbTitle = cbTitle;
    g_calls.pText = pText;
    g_calls.cbText = cbText;
    g_calls.dwStyle = dwStyle;
    g_calls.dwTimeout = dwTimeout;
    g_calls.pResponse = pResponse;
    g_calls.bWait = bWait;
    *pResponse = IDOK;
    return TRUE;
}

BOOL WINAPI FakeQueryToken(ULONG dwSession, PHANDLE phToken)
{
    g_calls.nCalls++;
    g_calls.dwSession = dwSession;
    *phToken = (HANDLE)(ULONG_PTR)0x1234;
    return TRUE;
}

BOOL WINAPI FakeRegister(HWND hWnd, DWORD dwFlags)
{
    g_calls.nCalls++;
    g_calls.hWnd = hWnd;
    g_calls.dwFlags = dwFlags;
    return TRUE;
}

BOOL WINAPI FakeUnregister(HWND hWnd)
{
    g_calls.nCalls++;
    g_calls.hWnd = hWnd;
    return TRUE;
}

DWORD WINAPI FakeConsole()
{
    return 3;
}

// Each test starts from an empty table and a fresh fake, and leaves the table as it found it.
struct WtsApi32Test : ::testing::Test {
    WtsApi32Fns saved = WtsApi32::fns;
    void SetUp() override
    {
        WtsApi32::fns = WtsApi32Fns{};
        g_calls = FakeCalls{};
        g_freed.clear();
        g_succeed = TRUE;
        g_answer = 0;
        g_answerBytes = 4;
        g_table.clear();
    }
    void TearDown() override { WtsApi32::fns = saved; }

    static WTS_SESSION_INFOW Entry(DWORD id, WTS_CONNECTSTATE_CLASS state)
    {
        WTS_SESSION_INFOW e = {};
        e.SessionId = id;
        e.State = state;
        return e;
    }
};

TEST_F(WtsApi32Test, WithoutTheLibraryEveryCallAnswersZero)
{
    LPWSTR pBuffer = (LPWSTR)&g_answer;
    DWORD cb = 0xbdbdbdbd;
    PWTS_SESSION_INFOW pInfo = (PWTS_SESSION_INFOW)g_enumBuffer;
    DWORD n = 0xbdbdbdbd, response = 0xbdbdbdbd;
    HANDLE hToken = (HANDLE)(ULONG_PTR)0xbdbd;

    struct {
        const char* name;
        BOOL result;
    } calls[] = {
        {"Query", WtsApi32::WTSQuerySessionInformationW(WTS_CURRENT_SERVER_HANDLE, 1, WTSUserName, &pBuffer, &cb)},
        {"Enumerate", WtsApi32::WTSEnumerateSessionsW(WTS_CURRENT_SERVER_HANDLE, 0, 1, &pInfo, &n)},
        {"Logoff", WtsApi32::WTSLogoffSession(WTS_CURRENT_SERVER_HANDLE, 1, FALSE)},
        {"Token", WtsApi32::WTSQueryUserToken(1, &hToken)},
        {"SendMessage", WtsApi32::WTSSendMessageW(WTS_CURRENT_SERVER_HANDLE, 1, nullptr, 0, nullptr, 0, 0, 0,
                                                  &response, FALSE)},
        {"Register", WtsApi32::WTSRegisterSessionNotification((HWND)1, 0)},
        {"Unregister", WtsApi32::WTSUnRegisterSessionNotification((HWND)1)},
        {"Console", (BOOL)WtsApi32::WTSGetActiveConsoleSessionId()},
        {"LogoffSession", WtsApi32::LogoffSession(1, 1)},
    };
    for (auto& c : calls) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(0, c.result);
    }
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(WtsApi32::WTSLogoffSession(WTS_CURRENT_SERVER_HANDLE, 1, FALSE));
    EXPECT_EQ((DWORD)ERROR_PROC_NOT_FOUND, GetLastError());
    // Outputs are cleared, so a caller that frees or closes what it got touches nothing.
    EXPECT_EQ(nullptr, pBuffer);
    EXPECT_EQ(0u, cb);
    EXPECT_EQ(nullptr, pInfo);
    EXPECT_EQ(0u, n);
    EXPECT_EQ(nullptr, hToken);
    WtsApi32::WTSFreeMemory(g_enumBuffer);   // nothing to call: must not crash

    EXPECT_EQ(0xFFFFFFFFu, WtsApi32::GetSessionID(1));
    EXPECT_EQ((DWORD)WTSInit, WtsApi32::GetSessionConnectState(1));
    EXPECT_EQ(0u, WtsApi32::GetSessionCount());
    EXPECT_EQ(0xFFFFFFFFu, WtsApi32::GetActiveSessionID());
}

TEST_F(WtsApi32Test, ForwardersHandOnEveryArgument)
{
    WtsApi32::fns.pfnWTSLogoffSession = FakeLogoff;
    WtsApi32::fns.pfnWTSSendMessage = FakeSendMessage;
    WtsApi32::fns.pfnWTSQueryUserToken = FakeQueryToken;
    WtsApi32::fns.pfnWTSRegisterSessionNotification = FakeRegister;
    WtsApi32::fns.pfnWTSUnRegisterSessionNotification = FakeUnregister;
    WtsApi32::fns.pfnWTSGetActiveConsoleSessionId = FakeConsole;

    // LogoffSession takes (wait, session); the server call takes (server, session, wait).
    EXPECT_EQ(1, WtsApi32::LogoffSession(1, 42));
    EXPECT_EQ(WTS_CURRENT_SERVER_HANDLE, g_calls.hServer);
    EXPECT_EQ(42u, g_calls.dwSession);
    EXPECT_EQ(TRUE, g_calls.bWait);
    EXPECT_EQ(1, WtsApi32::LogoffSession(0, 7));
    EXPECT_EQ(7u, g_calls.dwSession);
    EXPECT_EQ(FALSE, g_calls.bWait);
    g_succeed = FALSE;
    SetLastError(0xdeadbeef);
    EXPECT_EQ(0, WtsApi32::LogoffSession(0, 7));
    EXPECT_EQ((DWORD)ERROR_ACCESS_DENIED, GetLastError()) << "the server's reason must reach the caller";

    wchar_t title[] = L"Vantrel", text[] = L"Logging off";
    DWORD response = 0;
    EXPECT_TRUE(WtsApi32::WTSSendMessageW((HANDLE)5, 9, title, 14, text, 22, 0x250030, 600, &response, FALSE));
    EXPECT_EQ((HANDLE)5, g_calls.hServer);
    EXPECT_EQ(9u, g_calls.dwSession);
    EXPECT_EQ(title, g_calls.pTitle);
    EXPECT_EQ(14u, g_calls.cbTitle);
    EXPECT_EQ(text, g_calls.pText);
    EXPECT_EQ(22u, g_calls.cbText);
    EXPECT_EQ(0x250030u, g_calls.dwStyle);
    EXPECT_EQ(600u, g_calls.dwTimeout);
    EXPECT_EQ(&response, g_calls.pResponse);
    EXPECT_EQ(FALSE, g_calls.bWait);
    EXPECT_EQ((DWORD)IDOK, response);

    HANDLE hToken = nullptr;
    EXPECT_TRUE(WtsApi32::WTSQueryUserToken(11, &hToken));
    EXPECT_EQ(11u, g_calls.dwSession);
    EXPECT_EQ((HANDLE)(ULONG_PTR)0x1234, hToken);

    EXPECT_TRUE(WtsApi32::WTSRegisterSessionNotification((HWND)(ULONG_PTR)0x77, NOTIFY_FOR_ALL_SESSIONS));
    EXPECT_EQ((HWND)(ULONG_PTR)0x77, g_calls.hWnd);
    EXPECT_EQ((DWORD)NOTIFY_FOR_ALL_SESSIONS, g_calls.dwFlags);
    EXPECT_TRUE(WtsApi32::WTSUnRegisterSessionNotification((HWND)(ULONG_PTR)0x78));
    EXPECT_EQ((HWND)(ULONG_PTR)0x78, g_calls.hWnd);
    EXPECT_EQ(3u, WtsApi32::WTSGetActiveConsoleSessionId());
}

TEST_F(WtsApi32Test, SessionIdAndStateComeFromTheQueryAndAreFreed)
{
    WtsApi32::fns.pfnWTSQuerySessionInformation = FakeQuery;
    WtsApi32::fns.pfnWTSFreeMemory = FakeFree;

    g_answer = 77;   // what the server says, not the id asked for
    EXPECT_EQ(77u, WtsApi32::GetSessionID(5));
    EXPECT_EQ(WTS_CURRENT_SERVER_HANDLE, g_calls.hServer);
    EXPECT_EQ(5u, g_calls.dwSession);
    EXPECT_EQ(WTSSessionId, g_calls.infoClass);
    ASSERT_EQ(1u, g_freed.size());
    EXPECT_EQ((void*)&g_answer, g_freed[0]);

    g_answer = WTSDisconnected;
    EXPECT_EQ((DWORD)WTSDisconnected, WtsApi32::GetSessionConnectState(6));
    EXPECT_EQ(6u, g_calls.dwSession);
    EXPECT_EQ(WTSConnectState, g_calls.infoClass);
    EXPECT_EQ(2u, g_freed.size());

    // An answer too short to hold the number is no answer.
    g_answerBytes = 2;
    EXPECT_EQ(0xFFFFFFFFu, WtsApi32::GetSessionID(5));
    EXPECT_EQ((DWORD)WTSInit, WtsApi32::GetSessionConnectState(5));
    EXPECT_EQ(4u, g_freed.size());
    g_answerBytes = 4;

    g_succeed = FALSE;
    EXPECT_EQ(0xFFFFFFFFu, WtsApi32::GetSessionID(5));
    EXPECT_EQ((DWORD)WTSInit, WtsApi32::GetSessionConnectState(5));
    EXPECT_EQ(4u, g_freed.size()) << "nothing was handed out, nothing to free";

    // A library without WTSFreeMemory still answers.
    g_succeed = TRUE;
    WtsApi32::fns.pfnWTSFreeMemory = nullptr;
    g_answer = 12;
    EXPECT_EQ(12u, WtsApi32::GetSessionID(12));
}

TEST_F(WtsApi32Test, ActiveSessionIsThePositionOfTheLastActiveEntry)
{
    WtsApi32::fns.pfnWTSEnumerateSessions = FakeEnumerate;
    WtsApi32::fns.pfnWTSFreeMemory = FakeFree;
    struct Case {
        std::vector<WTS_SESSION_INFOW> table;
        DWORD want;
    } cases[] = {
        {{Entry(3, WTSDisconnected), Entry(9, WTSActive)}, 1},
        {{Entry(9, WTSActive), Entry(1, WTSConnected)}, 0},
        {{Entry(0, WTSDisconnected), Entry(1, WTSActive), Entry(65536, WTSListen), Entry(7, WTSActive)}, 3},
        {{Entry(1, WTSDisconnected), Entry(2, WTSIdle)}, 0xFFFFFFFF},
        {{}, 0xFFFFFFFF},
    };
    for (size_t i = 0; i < sizeof(cases) / sizeof(cases[0]); i++) {
        SCOPED_TRACE(i);
        g_table = cases[i].table;
        g_freed.clear();
        EXPECT_EQ(cases[i].want, WtsApi32::GetActiveSessionID());
        EXPECT_EQ(WTS_CURRENT_SERVER_HANDLE, g_calls.hServer);
        EXPECT_EQ(0u, g_calls.dwReserved);
        EXPECT_EQ(1u, g_calls.dwVersion);
        EXPECT_EQ((DWORD)cases[i].table.size(), WtsApi32::GetSessionCount());
        ASSERT_EQ(2u, g_freed.size());
        EXPECT_EQ((void*)g_enumBuffer, g_freed[0]);
    }

    g_table = {Entry(1, WTSActive)};
    g_succeed = FALSE;
    EXPECT_EQ(0xFFFFFFFFu, WtsApi32::GetActiveSessionID());
    EXPECT_EQ(0u, WtsApi32::GetSessionCount());
}

// Wine's Terminal Services functions are canned answers: only that they resolve is checked.
TEST_F(WtsApi32Test, RealLibraryResolvesAndUnloadClearsOnlyItsOwnPointers)
{
    HMODULE h = LoadLibraryW(L"WTSAPI32");
    ASSERT_NE(nullptr, h);
    FreeLibrary(h);

    auto expectAllResolved = [](const char* when) {
        SCOPED_TRACE(when);
        const WtsApi32Fns& f = WtsApi32::fns;
        EXPECT_NE(nullptr, f.pfnWTSRegisterSessionNotification);
        EXPECT_NE(nullptr, f.pfnWTSUnRegisterSessionNotification);
        EXPECT_NE(nullptr, f.pfnWTSGetActiveConsoleSessionId);
        EXPECT_NE(nullptr, f.pfnWTSQuerySessionInformation);
        EXPECT_NE(nullptr, f.pfnWTSFreeMemory);
        EXPECT_NE(nullptr, f.pfnWTSLogoffSession);
        EXPECT_NE(nullptr, f.pfnWTSQueryUserToken);
        EXPECT_NE(nullptr, f.pfnWTSEnumerateSessions);
        EXPECT_NE(nullptr, f.pfnWTSSendMessage);
    };

    {
        WtsApi32 wts;
        ASSERT_NE(nullptr, wts.GetModule());
        expectAllResolved("object");
        HMODULE kernel = GetModuleHandleW(L"KERNEL32");
        EXPECT_EQ((void*)GetProcAddress(kernel, "WTSGetActiveConsoleSessionId"),
                  (void*)WtsApi32::fns.pfnWTSGetActiveConsoleSessionId);
        EXPECT_EQ((void*)GetProcAddress(wts.GetModule(), "WTSQuerySessionInformationW"),
                  (void*)WtsApi32::fns.pfnWTSQuerySessionInformation);
    }
    // Nothing else in this program keeps the library loaded: the last object clears its pointers.
    EXPECT_EQ(nullptr, WtsApi32::fns.pfnWTSLogoffSession);
    EXPECT_EQ(nullptr, WtsApi32::fns.pfnWTSGetActiveConsoleSessionId);

    // The process-wide instance: resolved once; a pointer put in afterwards survives every later
    // Load and the final Unload.
    ASSERT_EQ(1, WtsApi32::Load());
    expectAllResolved("Load");
    WtsApi32::fns.pfnWTSLogoffSession = FakeLogoff;
    ASSERT_EQ(1, WtsApi32::Load());
    EXPECT_EQ(FakeLogoff, WtsApi32::fns.pfnWTSLogoffSession) << "a second Load resolved the table again";
    WtsApi32::Unload();
    EXPECT_NE(nullptr, WtsApi32::fns.pfnWTSQueryUserToken) << "cleared while still loaded once";
    WtsApi32::Unload();
    EXPECT_EQ(nullptr, WtsApi32::fns.pfnWTSQueryUserToken);
    EXPECT_EQ(nullptr, WtsApi32::fns.pfnWTSEnumerateSessions);
    EXPECT_EQ(FakeLogoff, WtsApi32::fns.pfnWTSLogoffSession);
    WtsApi32::Unload();   // one too many: harmless
    EXPECT_EQ(FakeLogoff, WtsApi32::fns.pfnWTSLogoffSession);
}

} // namespace
