// The event-log helpers and the message table of VXDA64.DLL, and the shipped power and group seams.
#include <windows.h>
#include <gtest/gtest.h>

#include <map>

#include "engine/EventLog.h"
#include "storage/StrList.h"
#include "support/EngineFakes.h"

using namespace vxtest;
using Strings = std::vector<std::wstring>;

namespace {

TEST(EventLog, TypeFollowsTheIdAndEachHelperPassesItsStrings)
{
    EventRecorder rec;
    LogEvent(MSG_SERVICE_STARTED);
    LogEventUser(MSG_KEPT_LAST_ACTIVE_USER, L"CORP\\alice");
    LogEventUser(MSG_LOGGED_OFF, nullptr);
    LogEventNumber(MSG_LICENSE_LIMIT, -2147483647L - 1);
    SetLastError(ERROR_ACCESS_DENIED);
    LogEventError(MSG_LOGOFF_FAILED, L"bob");
    SetLastError(0xdeadbeef); // the code as a signed decimal, alone without a user
    LogEventError(MSG_SUSPEND_FAILED, nullptr);
    LogEvent(0x00000001);
    const struct { DWORD id; WORD type; Strings strings; } expected[] = {
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

// The table as stored (FormatMessageW would hide a bare line feed): exactly the ids 1 to 27 with
// their severities, each text UTF-16 and ending in CR LF.
TEST(EventLog, MessageTableHoldsEveryIdWithItsSeverityAndLineEnds)
{
    HMODULE lib = LoadLibraryExW(L"VXDA64.DLL", nullptr, LOAD_LIBRARY_AS_DATAFILE);
    ASSERT_NE(lib, nullptr);
    const BYTE* base = (const BYTE*)LockResource(LoadResource(lib, FindResourceW(lib, MAKEINTRESOURCEW(1), RT_MESSAGETABLE)));
    ASSERT_NE(base, nullptr);
    std::map<DWORD, std::wstring> stored, expected;
    const auto* data = (const MESSAGE_RESOURCE_DATA*)base;
    for (DWORD b = 0; b < data->NumberOfBlocks; ++b) {
        const BYTE* p = base + data->Blocks[b].OffsetToEntries;
        for (DWORD id = data->Blocks[b].LowId; id <= data->Blocks[b].HighId; ++id, p += ((MESSAGE_RESOURCE_ENTRY*)p)->Length) {
            const auto* entry = (const MESSAGE_RESOURCE_ENTRY*)p;
            EXPECT_EQ(entry->Flags, 1) << std::hex << id;
            std::wstring text((const wchar_t*)entry->Text, (entry->Length - 4) / sizeof(wchar_t));
            stored[id] = text.substr(0, text.find(L'\0'));
        }
    }
    const char severity[] = "6666666666EAAAEEE6E6EA6EAAE"; // information 6, warning A, error E
    for (DWORD n = 1; n <= 27; ++n) {
        const DWORD id = (DWORD)(severity[n - 1] == '6' ? 6 : severity[n - 1] == 'A' ? 10 : 14) << 28 | n;
        const std::wstring& text = expected[id] = stored[id];
        EXPECT_EQ(text.size() > 2 ? text.substr(text.size() - 2) : L"", L"\r\n") << std::hex << id;
        EXPECT_EQ(text.find(L'\n'), text.size() - 1) << std::hex << id << ": a bare line feed";
    }
    EXPECT_EQ(stored.size(), expected.size());
    // The inserts are filled in, not shown literally.
    wchar_t buf[512];
    DWORD_PTR args[] = {(DWORD_PTR)L"CORP\\alice", (DWORD_PTR)L"-5"};
    ASSERT_NE(FormatMessageW(FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_ARGUMENT_ARRAY, lib, MSG_LOGOFF_FAILED, 0, buf,
                             512, (va_list*)args), 0u);
    EXPECT_STREQ(buf, L"Vantrel could not log off the user 'CORP\\alice'. (Code -5)\r\n");
    FreeLibrary(lib);
}

bool ShutdownPrivilegeEnabled()
{
    HANDLE token = nullptr;
    PRIVILEGE_SET set = {1, PRIVILEGE_SET_ALL_NECESSARY, {}};
    BOOL enabled = FALSE;
    LookupPrivilegeValueW(nullptr, L"SeShutdownPrivilege", &set.Privilege[0].Luid);
    OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token);
    PrivilegeCheck(token, &set, &enabled);
    CloseHandle(token);
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
