// The event-log helpers: the type each id is reported with and the insertion strings each
// helper passes, recorded through the report seam; the real report without and with a
// registered source; the shutdown privilege and the group look-ups of the shipped seams.
#include <windows.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/EventLog.h"
#include "engine/Seams.h"
#include "storage/StrList.h"

namespace {

struct Report {
    WORD type;
    DWORD id;
    std::vector<std::wstring> strings;
};

std::vector<Report> g_reports;
BOOL g_result = TRUE;

BOOL RecordReport(WORD type, DWORD id, WORD nStrings, const wchar_t** strings)
{
    Report r{type, id, {}};
    for (WORD i = 0; i < nStrings; ++i)
        r.strings.push_back(strings[i] ? strings[i] : L"<null>");
    g_reports.push_back(r);
    return g_result;
}

class EventLog : public ::testing::Test {
protected:
    void SetUp() override
    {
        saved = Seams::pfnReportEvent;
        Seams::pfnReportEvent = RecordReport;
        g_reports.clear();
        g_result = TRUE;
    }
    void TearDown() override { Seams::pfnReportEvent = saved; }

    // The only report made since the last call.
    Report Taken()
    {
        EXPECT_EQ(g_reports.size(), 1u);
        Report r = g_reports.empty() ? Report{0xFFFF, 0, {}} : g_reports.back();
        g_reports.clear();
        return r;
    }

    BOOL (*saved)(WORD, DWORD, WORD, const wchar_t**) = nullptr;
};

using Strings = std::vector<std::wstring>;

TEST_F(EventLog, TypeFollowsTheSeverityOfTheId)
{
    const struct {
        DWORD id;
        WORD type;
    } cases[] = {{MSG_SERVICE_STARTED, EVENTLOG_INFORMATION_TYPE}, {MSG_NOT_ENABLED_LOGON, EVENTLOG_WARNING_TYPE},
                 {MSG_SHUTDOWN_FAILED, EVENTLOG_ERROR_TYPE}, {0x00000001, EVENTLOG_SUCCESS}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << std::hex << "id 0x" << c.id);
        EXPECT_TRUE(LogEvent(c.id));
        Report r = Taken();
        EXPECT_EQ(r.id, c.id);
        EXPECT_EQ(r.type, c.type);
        EXPECT_EQ(r.strings, Strings{});
    }
}

TEST_F(EventLog, UserAndNumberAreTheOnlyInsertionString)
{
    EXPECT_TRUE(LogEventUser(MSG_MONITOR_STARTED, L"CORP\\alice"));
    Report r = Taken();
    EXPECT_EQ(r.type, EVENTLOG_INFORMATION_TYPE);
    EXPECT_EQ(r.strings, Strings{L"CORP\\alice"});

    EXPECT_TRUE(LogEventUser(MSG_KEPT_LAST_ACTIVE_USER, nullptr));
    r = Taken();
    EXPECT_EQ(r.type, EVENTLOG_WARNING_TYPE);
    EXPECT_EQ(r.strings, Strings{});

    const struct {
        long n;
        const wchar_t* text;
    } numbers[] = {{0, L"0"}, {25, L"25"}, {-1, L"-1"}, {2147483647L, L"2147483647"}, {-2147483647L - 1, L"-2147483648"}};
    for (const auto& c : numbers) {
        EXPECT_TRUE(LogEventNumber(MSG_LICENSE_LIMIT, c.n));
        r = Taken();
        EXPECT_EQ(r.id, MSG_LICENSE_LIMIT);
        EXPECT_EQ(r.strings, Strings{c.text});
    }

    // The report's own result comes back to the caller.
    g_result = FALSE;
    EXPECT_FALSE(LogEventUser(MSG_LOGGED_OFF, L"bob"));
    EXPECT_FALSE(LogEventNumber(MSG_LICENSE_LIMIT, 1));
}

TEST_F(EventLog, ErrorReportsTheLastErrorAsSignedDecimal)
{
    SetLastError(ERROR_ACCESS_DENIED);
    EXPECT_TRUE(LogEventError(MSG_LOGOFF_FAILED, L"CORP\\alice"));
    Report r = Taken();
    EXPECT_EQ(r.type, EVENTLOG_ERROR_TYPE);
    EXPECT_EQ(r.strings, (Strings{L"CORP\\alice", L"5"}));

    // Without a user the code is %1.
    SetLastError(0xdeadbeef);
    EXPECT_TRUE(LogEventError(MSG_SUSPEND_FAILED, nullptr));
    r = Taken();
    EXPECT_EQ(r.id, MSG_SUSPEND_FAILED);
    EXPECT_EQ(r.strings, Strings{L"-559038737"});

    SetLastError(ERROR_SUCCESS);
    LogEventError(MSG_STALE_LOGOFF_FAILED, L"bob");
    EXPECT_EQ(Taken().strings, (Strings{L"bob", L"0"}));
}

TEST(EventLogSource, RealReportNeedsARegisteredSource)
{
    ASSERT_EQ(Seams::pfnReportEvent, &ReportEventToSource);
    ASSERT_EQ(GetEventSource(), nullptr);
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(LogEventUser(MSG_LOGGED_OFF, L"bob"));
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_INVALID_HANDLE);

    HANDLE h = RegisterEventSourceW(nullptr, L"VantrelTest");
    ASSERT_NE(h, nullptr) << "RegisterEventSourceW error " << GetLastError();
    SetEventSource(h);
    EXPECT_EQ(GetEventSource(), h);
    EXPECT_TRUE(LogEvent(MSG_SERVICE_STARTED));
    SetLastError(ERROR_ACCESS_DENIED);
    EXPECT_TRUE(LogEventError(MSG_LOGOFF_FAILED, L"bob"));
    EXPECT_TRUE(LogEventNumber(MSG_LICENSE_LIMIT, -3));
    SetEventSource(nullptr);
    DeregisterEventSource(h);
    EXPECT_FALSE(LogEvent(MSG_SERVICE_STOPPED));
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

TEST(EngineSeams, ShutdownPrivilegeIsEnabledAndDisabledAgain)
{
    SetLastError(ERROR_NOT_ALL_ASSIGNED); // an old error must not read as a failed adjustment
    ASSERT_EQ(Seams::pfnSetShutdownPrivilege(1), 1);
    EXPECT_TRUE(ShutdownPrivilegeEnabled());
    ASSERT_EQ(Seams::pfnSetShutdownPrivilege(0), 1);
    EXPECT_FALSE(ShutdownPrivilegeEnabled());
}

TEST(EngineSeams, GroupLookUpsReplaceTheListAndFailuresLeaveItEmpty)
{
    StrList groups;
    groups.AddTail(L"left over");
    Seams::pfnGetUserGroups(L"NOSUCHDOMAIN", L"nosuchuser", groups);
    EXPECT_EQ(groups.GetCount(), 0u);

    groups.AddTail(L"left over");
    Seams::pfnGetUserLocalGroups(L"NOSUCHDOMAIN\\nosuchuser", groups);
    EXPECT_EQ(groups.FindStrExactIgnoreCase(L"left over"), nullptr);
}

} // namespace
