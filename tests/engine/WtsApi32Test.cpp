// The run-time-loaded Terminal Services wrapper, and starting a program in a session.
#include <gtest/gtest.h>

#include "engine/Seams.h"
#include "engine/WtsApi32.h"
#include "support/Guards.h"
#include "support/TestSupport.h"

namespace {

// The fake server's answer to a query and to an enumeration, and what it was asked and freed.
DWORD g_answer, g_answerBytes, g_infoClass;
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
    return !!f.pfnWTSRegisterSessionNotification + !!f.pfnWTSUnRegisterSessionNotification + !!f.pfnWTSGetActiveConsoleSessionId +
           !!f.pfnWTSQuerySessionInformation + !!f.pfnWTSFreeMemory + !!f.pfnWTSLogoffSession + !!f.pfnWTSQueryUserToken +
           !!f.pfnWTSEnumerateSessions + !!f.pfnWTSSendMessage;
}

// Each test starts from an empty table and leaves it as it found it.
struct WtsApi32Test : ::testing::Test {
    vxtest::ScopedValue<WtsApi32Fns> table{WtsApi32::fns, WtsApi32Fns{}};
};

// Without the library every call answers 0 and clears what it would hand out, so a caller that
// frees or closes it touches nothing.
TEST_F(WtsApi32Test, WithoutTheLibraryEveryCallAnswersZero)
{
    LPWSTR pBuffer = (LPWSTR)&g_answer;
    DWORD cb = 1, n = 1, response = 1;
    PWTS_SESSION_INFOW pInfo = (PWTS_SESSION_INFOW)&g_answer;
    HANDLE token = (HANDLE)1;
    SetLastError(0xdeadbeef);
    EXPECT_EQ(0, WtsApi32::WTSQuerySessionInformationW(WTS_CURRENT_SERVER_HANDLE, 1, WTSUserName, &pBuffer, &cb) +
                     WtsApi32::WTSEnumerateSessionsW(WTS_CURRENT_SERVER_HANDLE, 0, 1, &pInfo, &n) +
                     WtsApi32::WTSQueryUserToken(1, &token) +
                     WtsApi32::WTSSendMessageW(WTS_CURRENT_SERVER_HANDLE, 1, nullptr, 0, nullptr, 0, 0, 0, &response, FALSE) +
                     WtsApi32::WTSRegisterSessionNotification((HWND)1, 0) + WtsApi32::WTSUnRegisterSessionNotification((HWND)1) +
                     WtsApi32::LogoffSession(1, 1));
    EXPECT_EQ((DWORD)ERROR_PROC_NOT_FOUND, GetLastError());
    EXPECT_TRUE(!pBuffer && !cb && !pInfo && !n && !token && !response);
    WtsApi32::WTSFreeMemory(&g_answer); // nothing to call: must not crash
    EXPECT_EQ(9u, WtsApi32::GetSessionConnectState(1)) << "WTSInit";
    EXPECT_EQ(0u, WtsApi32::GetSessionCount());
}

// The state comes from its own class and every answer is freed; a short answer reads as none,
// which is told apart from a session that answers WTSInit.
TEST_F(WtsApi32Test, QueriesInterpretAndFreeTheAnswers)
{
    WtsApi32::fns.pfnWTSQuerySessionInformation = FakeQuery;
    WtsApi32::fns.pfnWTSEnumerateSessions = FakeEnumerate;
    WtsApi32::fns.pfnWTSFreeMemory = FakeFree;
    g_freed.clear();
    DWORD state = 0xbd;
    g_answer = WTSInit, g_answerBytes = 4;
    EXPECT_EQ(1, WtsApi32::QuerySessionConnectState(6, state));
    EXPECT_EQ((DWORD)WTSInit, state);
    EXPECT_EQ((DWORD)WTSConnectState, g_infoClass);
    g_answerBytes = 3;
    state = 0xbd;
    EXPECT_EQ(0, WtsApi32::QuerySessionConnectState(5, state));
    EXPECT_EQ(0xbdu, state) << "no answer leaves the state alone";
    g_table = {{3, nullptr, WTSDisconnected}, {9, nullptr, WTSActive}, {7, nullptr, WTSActive}, {1, nullptr, WTSConnected}};
    EXPECT_EQ(4u, WtsApi32::GetSessionCount());
    EXPECT_EQ((std::vector<void*>{&g_answer, &g_answer, g_table.data()}), g_freed);
}

// The last object clears only the pointers it set; Load and Unload count, and one Unload too many
// leaves the count right. No other Load may be held in this program while this runs.
TEST_F(WtsApi32Test, RealLibraryResolvesAndUnloadClearsOnlyItsOwnPointers)
{
    {
        WtsApi32 wts;
        ASSERT_NE(nullptr, wts.GetModule());
        EXPECT_EQ(9, Resolved());
    }
    EXPECT_EQ(0, Resolved());
    ASSERT_EQ(1, WtsApi32::Load());
    WtsApi32::fns.pfnWTSFreeMemory = FakeFree;
    ASSERT_EQ(1, WtsApi32::Load());
    EXPECT_EQ(FakeFree, WtsApi32::fns.pfnWTSFreeMemory) << "a second Load resolved the table again";
    WtsApi32::Unload();
    EXPECT_EQ(9, Resolved()) << "cleared while still loaded once";
    WtsApi32::Unload();
    EXPECT_EQ(1, Resolved()) << "a pointer put in afterwards survives";
    WtsApi32::Unload(); // one too many
    ASSERT_EQ(1, WtsApi32::Load());
    ASSERT_EQ(1, WtsApi32::Load());
    WtsApi32::Unload();
    EXPECT_EQ(9, Resolved()) << "the extra Unload left the count wrong";
    WtsApi32::Unload();
    EXPECT_EQ(0, Resolved());
}

ULONG g_askedSession;
HANDLE g_handedToken;

BOOL WINAPI OwnTokenForAnySession(ULONG session, PHANDLE phToken)
{
    g_askedSession = session;
    return OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS, phToken) && (g_handedToken = *phToken);
}

// Started as the session's user (Wine's own WTSQueryUserToken answers for any session), without
// waiting for it; nothing starts without a token.
TEST_F(WtsApi32Test, StartsTheCommandAsTheSessionUserOrNothingWithoutAToken)
{
    SetLastError(0xdeadbeef);
    EXPECT_EQ(0, Seams::pfnStartProcessInSession(3, L"cmd.exe /c exit"));
    EXPECT_EQ((DWORD)ERROR_PROC_NOT_FOUND, GetLastError());
    vxtest::ScopedTempDir dir;
    std::wstring marker = dir.file(L"started.txt");
    WtsApi32::fns.pfnWTSQueryUserToken = OwnTokenForAnySession;
    ASSERT_EQ(1, Seams::pfnStartProcessInSession(3, (L"cmd.exe /c echo started> \"" + marker + L"\"").c_str()));
    EXPECT_EQ(3u, g_askedSession);
    DWORD flags = 0;
    EXPECT_FALSE(GetHandleInformation(g_handedToken, &flags)) << "the user's token is not kept open";
    std::vector<BYTE> bytes;
    for (int i = 0; i < 200 && !(vxtest::ReadFileBytes(marker, &bytes) && bytes.size() >= 7); ++i)
        Sleep(50);
    EXPECT_EQ("started", std::string(bytes.begin(), bytes.end()).substr(0, 7));
}

} // namespace
