// The event-log helpers: the type each id is reported with, the insertion strings each helper
// passes, the real report needing a registered source, and the shipped power and group seams.
#include <windows.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/EventLog.h"
#include "engine/Seams.h"
#include "storage/StrList.h"
#include "support/EngineFakes.h"

using namespace vxtest;

namespace {

using Strings = std::vector<std::wstring>;

TEST(EventLog, TypeFollowsTheIdAndEachHelperPassesItsStrings)
{
    EventRecorder rec;
    LogEvent(MSG_SERVICE_STARTED);
    LogEventUser(MSG_KEPT_LAST_ACTIVE_USER, L"CORP\\alice");
    LogEventUser(MSG_LOGGED_OFF, nullptr);
    LogEventNumber(MSG_LICENSE_LIMIT, -2147483647L - 1);
    SetLastError(ERROR_ACCESS_DENIED);
    LogEventError(MSG_LOGOFF_FAILED, L"bob");
    SetLastError(0xdeadbeef); // the code as a signed decimal, alone as %1 without a user
    LogEventError(MSG_SUSPEND_FAILED, nullptr);
    LogEvent(0x00000001);

    const struct {
        DWORD id;
        WORD type;
        Strings strings;
    } expected[] = {
        {MSG_SERVICE_STARTED, EVENTLOG_INFORMATION_TYPE, {}},
        {MSG_KEPT_LAST_ACTIVE_USER, EVENTLOG_WARNING_TYPE, {L"CORP\\alice"}},
        {MSG_LOGGED_OFF, EVENTLOG_INFORMATION_TYPE, {}},
        {MSG_LICENSE_LIMIT, EVENTLOG_INFORMATION_TYPE, {L"-2147483648"}},
        {MSG_LOGOFF_FAILED, EVENTLOG_ERROR_TYPE, {L"bob", L"5"}},
        {MSG_SUSPEND_FAILED, EVENTLOG_ERROR_TYPE, {L"-559038737"}},
        {0x00000001, EVENTLOG_SUCCESS, {}},
    };
    auto events = rec.Events();
    ASSERT_EQ(events.size(), std::size(expected));
    for (size_t i = 0; i < events.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(events[i].id, expected[i].id);
        EXPECT_EQ(events[i].type, expected[i].type);
        EXPECT_EQ(events[i].strings, expected[i].strings);
    }
}

TEST(EventLog, RealReportNeedsARegisteredSource)
{
    ASSERT_EQ(Seams::pfnReportEvent, &ReportEventToSource);
    ASSERT_EQ(GetEventSource(), nullptr);
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(LogEventUser(MSG_LOGGED_OFF, L"bob"));
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_INVALID_HANDLE);

    HANDLE h = RegisterEventSourceW(nullptr, L"VantrelTest");
    ASSERT_NE(h, nullptr) << "RegisterEventSourceW error " << GetLastError();
    SetEventSource(h);
    EXPECT_TRUE(LogEventNumber(MSG_LICENSE_LIMIT, -3));
    SetEventSource(nullptr);
    DeregisterEventSource(h);
}

// Whether the process token has SeShutdownPrivilege enabled.
bool ShutdownPrivilegeEnabled()
{
    HANDLE hToken = nullptr;
    LUID luid = {};
    BYTE buf[4096];
    DWORD cb = 0;
    bool enabled = false;
    if (OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &hToken) && LookupPrivilegeValueW(nullptr, L"SeShutdownPrivilege", &luid) &&
        GetTokenInformation(hToken, TokenPrivileges, buf, sizeof buf, &cb)) {
        const auto* tp = (const TOKEN_PRIVILEGES*)buf;
        for (DWORD i = 0; i < tp->PrivilegeCount; ++i)
            if (tp->Privileges[i].Luid.LowPart == luid.LowPart && tp->Privileges[i].Luid.HighPart == luid.HighPart)
                enabled = (tp->Privileges[i].Attributes & SE_PRIVILEGE_ENABLED) != 0;
    }
    if (hToken)
        CloseHandle(hToken);
    return enabled;
}

TEST(EngineSeams, ShutdownPrivilegeAndGroupLookUps)
{
    SetLastError(ERROR_NOT_ALL_ASSIGNED); // an old error must not read as a failed adjustment
    ASSERT_EQ(Seams::pfnSetShutdownPrivilege(1), 1);
    EXPECT_TRUE(ShutdownPrivilegeEnabled());
    ASSERT_EQ(Seams::pfnSetShutdownPrivilege(0), 1);
    EXPECT_FALSE(ShutdownPrivilegeEnabled());

    // Failed look-ups leave the list empty, never with what the caller had in it.
    StrList groups;
    groups.AddTail(L"left over");
    Seams::pfnGetUserGroups(L"NOSUCHDOMAIN", L"nosuchuser", groups);
    EXPECT_EQ(groups.GetCount(), 0u);
    groups.AddTail(L"left over");
    Seams::pfnGetUserLocalGroups(L"NOSUCHDOMAIN\\nosuchuser", groups);
    EXPECT_EQ(groups.FindStrExactIgnoreCase(L"left over"), nullptr);
}

} // namespace
