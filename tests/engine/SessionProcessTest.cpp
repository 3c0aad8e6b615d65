// Starting a program in a session as its user, with the session's token coming from a
// replaced WTSQueryUserToken (Wine's own hands out the caller's token for any session).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/Seams.h"
#include "engine/WtsApi32.h"
#include "support/Guards.h"
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

TEST(SessionProcess, StartsTheCommandAsTheSessionUserOrNothingWithoutAToken)
{
    vxtest::ScopedValue<WtsApi32Fns> table(WtsApi32::fns);
    WtsApi32::fns.pfnWTSQueryUserToken = nullptr;   // no token for the session: nothing starts
    SetLastError(0xdeadbeef);
    EXPECT_EQ(0, Seams::pfnStartProcessInSession(3, L"cmd.exe /c exit"));
    EXPECT_EQ((DWORD)ERROR_PROC_NOT_FOUND, GetLastError());

    vxtest::ScopedTempDir dir;
    std::wstring marker = dir.file(L"started.txt");
    std::wstring cmd = L"cmd.exe /c echo started> \"" + marker + L"\"";
    WtsApi32::fns.pfnWTSQueryUserToken = OwnTokenForAnySession;
    ASSERT_EQ(1, Seams::pfnStartProcessInSession(3, cmd.c_str())) << "error " << GetLastError();
    EXPECT_EQ(3u, g_askedSession);
    DWORD flags = 0;
    EXPECT_FALSE(GetHandleInformation(g_handedToken, &flags)) << "the user's token is not kept open";
    // The process runs on its own; the call did not wait for it.
    std::vector<BYTE> bytes;
    for (int i = 0; i < 200 && !(vxtest::ReadFileBytes(marker, &bytes) && bytes.size() >= 9); ++i)
        Sleep(50);
    EXPECT_EQ("started", std::string(bytes.begin(), bytes.end()).substr(0, 7));
}

} // namespace
