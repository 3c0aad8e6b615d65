// Starting a program in a session as its user, with the session's token coming from a
// replaced WTSQueryUserToken (Wine's own hands out the caller's token for any session).
#include <windows.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/Seams.h"
#include "engine/WtsApi32.h"
#include "support/TestSupport.h"

namespace {

ULONG g_askedSession = 0xFFFFFFFF;
HANDLE g_handedToken = nullptr;

BOOL WINAPI OwnTokenForAnySession(ULONG session, PHANDLE phToken)
{
    g_askedSession = session;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS, phToken))
        return FALSE;
    g_handedToken = *phToken;
    return TRUE;
}

BOOL WINAPI NoToken(ULONG, PHANDLE phToken)
{
    *phToken = nullptr;
    SetLastError(ERROR_NO_TOKEN);
    return FALSE;
}

class SessionProcess : public ::testing::Test {
protected:
    void SetUp() override { saved = WtsApi32::fns; }
    void TearDown() override { WtsApi32::fns = saved; }
    WtsApi32Fns saved;
};

TEST_F(SessionProcess, NoTokenStartsNothing)
{
    WtsApi32::fns.pfnWTSQueryUserToken = NoToken;
    SetLastError(0xdeadbeef);
    EXPECT_EQ(Seams::pfnStartProcessInSession(3, L"cmd.exe /c exit"), 0);
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_NO_TOKEN);

    // The function missing from the system's library counts the same.
    WtsApi32::fns.pfnWTSQueryUserToken = nullptr;
    EXPECT_EQ(Seams::pfnStartProcessInSession(3, L"cmd.exe /c exit"), 0);
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_PROC_NOT_FOUND);
}

TEST_F(SessionProcess, RunsTheCommandLineWithTheSessionUsersToken)
{
    vxtest::ScopedTempDir dir;
    std::wstring marker = dir.file(L"started.txt");
    std::wstring cmd = L"cmd.exe /c echo started> \"" + marker + L"\"";

    WtsApi32::fns.pfnWTSQueryUserToken = OwnTokenForAnySession;
    ASSERT_EQ(Seams::pfnStartProcessInSession(3, cmd.c_str()), 1) << "error " << GetLastError();
    EXPECT_EQ(g_askedSession, 3u);
    // The session user's token is not kept open.
    DWORD flags = 0;
    EXPECT_FALSE(GetHandleInformation(g_handedToken, &flags));

    // The process runs on its own; the call did not wait for it.
    std::vector<BYTE> bytes;
    for (int i = 0; i < 200 && !(vxtest::ReadFileBytes(marker, &bytes) && bytes.size() >= 9); ++i)
        Sleep(50);
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()).substr(0, 7), "started");
}

} // namespace
