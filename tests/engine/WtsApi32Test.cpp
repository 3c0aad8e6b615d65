// The run-time-loaded Terminal Services wrapper: missing functions answer 0, the session queries
// read, interpret and free the answers, and loading resolves the real library while keeping
// pointers a test put in.
#include <gtest/gtest.h>

#include <vector>

#include "engine/WtsApi32.h"
#include "support/Guards.h"

namespace {

// The fake terminal server's answers (a query's number, an enumeration's table) and what it freed.
DWORD g_answer, g_answerBytes = 4, g_infoClass;
std::vector<WTS_SESSION_INFOW> g_table;
std::vector<void*> g_freed;

BOOL WINAPI FakeQuery(HANDLE, DWORD, WTS_INFO_CLASS infoClass, LPWSTR* ppBuffer, DWORD* pBytes)
{
    g_infoClass = infoClass;
    *ppBuffer = (LPWSTR)&g_answer;
    *pBytes = g_answerBytes;
    return TRUE;
}
BOOL WINAPI FakeEnumerate(HANDLE, DWORD, DWORD, PWTS_SESSION_INFOW* pp, DWORD* pCount)
{
    *pp = g_table.data();
    *pCount = (DWORD)g_table.size();
    return TRUE;
}
void WINAPI FakeFree(PVOID p) { g_freed.push_back(p); }

// How many pointers of the table are set.
int Resolved()
{
    const WtsApi32Fns& f = WtsApi32::fns;
    return !!f.pfnWTSRegisterSessionNotification + !!f.pfnWTSUnRegisterSessionNotification +
           !!f.pfnWTSGetActiveConsoleSessionId + !!f.pfnWTSQuerySessionInformation + !!f.pfnWTSFreeMemory +
           !!f.pfnWTSLogoffSession + !!f.pfnWTSQueryUserToken + !!f.pfnWTSEnumerateSessions + !!f.pfnWTSSendMessage;
}

// Each test starts from an empty table and leaves it as it found it.
struct WtsApi32Test : ::testing::Test {
    vxtest::ScopedValue<WtsApi32Fns> table{WtsApi32::fns, WtsApi32Fns{}};
};

// A system without the library (or some of its functions): every call answers 0 and clears what
// it would hand out, so a caller that frees or closes it touches nothing.
TEST_F(WtsApi32Test, WithoutTheLibraryEveryCallAnswersZero)
{
    LPWSTR pBuffer = (LPWSTR)&g_answer;
    DWORD cb = 0xbdbdbdbd, n = 0xbdbdbdbd, response = 0xbdbdbdbd;
    PWTS_SESSION_INFOW pInfo = (PWTS_SESSION_INFOW)&g_answer;
    HANDLE hToken = (HANDLE)(ULONG_PTR)0xbdbd;
    const BOOL results[] = {
        WtsApi32::WTSQuerySessionInformationW(WTS_CURRENT_SERVER_HANDLE, 1, WTSUserName, &pBuffer, &cb),
        WtsApi32::WTSEnumerateSessionsW(WTS_CURRENT_SERVER_HANDLE, 0, 1, &pInfo, &n),
        WtsApi32::WTSQueryUserToken(1, &hToken),
        WtsApi32::WTSSendMessageW(WTS_CURRENT_SERVER_HANDLE, 1, nullptr, 0, nullptr, 0, 0, 0, &response, FALSE),
        WtsApi32::WTSRegisterSessionNotification((HWND)1, 0), WtsApi32::WTSUnRegisterSessionNotification((HWND)1),
        (BOOL)WtsApi32::WTSGetActiveConsoleSessionId(), WtsApi32::LogoffSession(1, 1),
    };
    for (size_t i = 0; i < sizeof(results) / sizeof(results[0]); i++)
        EXPECT_EQ(0, results[i]) << "call " << i;
    EXPECT_EQ(nullptr, pBuffer);
    EXPECT_EQ(0u, cb);
    EXPECT_EQ(nullptr, pInfo);
    EXPECT_EQ(0u, n);
    EXPECT_EQ(nullptr, hToken);
    EXPECT_EQ(0u, response);
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(WtsApi32::WTSLogoffSession(WTS_CURRENT_SERVER_HANDLE, 1, FALSE));
    EXPECT_EQ((DWORD)ERROR_PROC_NOT_FOUND, GetLastError());
    WtsApi32::WTSFreeMemory(&g_answer);   // nothing to call: must not crash
    EXPECT_EQ(0xFFFFFFFFu, WtsApi32::GetSessionID(1));
    EXPECT_EQ(9u, WtsApi32::GetSessionConnectState(1)) << "WTSInit";
    EXPECT_EQ(0u, WtsApi32::GetSessionCount());
    EXPECT_EQ(0xFFFFFFFFu, WtsApi32::GetActiveSessionID());
}

// The id and state are what the server answers, from their own class, and every answer is freed;
// a too short answer gives 0xFFFFFFFF and WTSInit (9). GetActiveSessionID answers the
// position of the last active entry, not its session id: the callers rely on that quirk.
TEST_F(WtsApi32Test, QueriesInterpretAndFreeTheAnswers)
{
    WtsApi32::fns.pfnWTSQuerySessionInformation = FakeQuery;
    WtsApi32::fns.pfnWTSEnumerateSessions = FakeEnumerate;
    WtsApi32::fns.pfnWTSFreeMemory = FakeFree;
    g_answer = 77;
    EXPECT_EQ(77u, WtsApi32::GetSessionID(5));
    EXPECT_EQ((DWORD)WTSSessionId, g_infoClass);
    g_answer = WTSDisconnected;
    EXPECT_EQ((DWORD)WTSDisconnected, WtsApi32::GetSessionConnectState(6));
    EXPECT_EQ((DWORD)WTSConnectState, g_infoClass);
    // A session that answers WTSInit is told apart from one that gives no answer.
    g_answer = WTSInit;
    DWORD state = 0xbd;
    EXPECT_EQ(1, WtsApi32::QuerySessionConnectState(6, state));
    EXPECT_EQ((DWORD)WTSInit, state);
    g_answerBytes = 2;
    EXPECT_EQ(0xFFFFFFFFu, WtsApi32::GetSessionID(5));
    EXPECT_EQ(9u, WtsApi32::GetSessionConnectState(5));
    state = 0xbd;
    EXPECT_EQ(0, WtsApi32::QuerySessionConnectState(5, state));
    EXPECT_EQ(0xbdu, state) << "no answer leaves the state alone";
    EXPECT_EQ(std::vector<void*>(6, &g_answer), g_freed);

    g_table = {{3, nullptr, WTSDisconnected}, {9, nullptr, WTSActive}, {65536, nullptr, WTSListen},
               {7, nullptr, WTSActive},       {1, nullptr, WTSConnected}};
    EXPECT_EQ(3u, WtsApi32::GetActiveSessionID());
    EXPECT_EQ(5u, WtsApi32::GetSessionCount());
    g_table.resize(1);
    EXPECT_EQ(0xFFFFFFFFu, WtsApi32::GetActiveSessionID()) << "none active";
    EXPECT_EQ(9u, g_freed.size());
    EXPECT_EQ((void*)g_table.data(), g_freed.back());
}

// Wine's Terminal Services functions are canned answers: only that they resolve is checked. No
// other Load may be held in this program while this runs.
TEST_F(WtsApi32Test, RealLibraryResolvesAndUnloadClearsOnlyItsOwnPointers)
{
    {
        WtsApi32 wts;
        ASSERT_NE(nullptr, wts.GetModule());
        EXPECT_EQ(9, Resolved());
        EXPECT_EQ((void*)GetProcAddress(GetModuleHandleW(L"KERNEL32"), "WTSGetActiveConsoleSessionId"),
                  (void*)WtsApi32::fns.pfnWTSGetActiveConsoleSessionId);
    }
    EXPECT_EQ(0, Resolved()) << "the last object must clear its pointers";

    // The process-wide instance resolves once; a pointer put in afterwards survives later Loads
    // and the final Unload, and one Unload too many leaves the count right.
    ASSERT_EQ(1, WtsApi32::Load());
    EXPECT_EQ(9, Resolved());
    WtsApi32::fns.pfnWTSFreeMemory = FakeFree;
    ASSERT_EQ(1, WtsApi32::Load());
    EXPECT_EQ(FakeFree, WtsApi32::fns.pfnWTSFreeMemory) << "a second Load resolved the table again";
    WtsApi32::Unload();
    EXPECT_EQ(9, Resolved()) << "cleared while still loaded once";
    WtsApi32::Unload();
    EXPECT_EQ(FakeFree, WtsApi32::fns.pfnWTSFreeMemory);
    EXPECT_EQ(1, Resolved());
    WtsApi32::Unload();
    ASSERT_EQ(1, WtsApi32::Load());
    WtsApi32::Unload();
    EXPECT_EQ(0, Resolved()) << "the extra Unload left the count wrong";
}

} // namespace
