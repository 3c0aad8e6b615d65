// The event-log message table inside the built VXDA64.DLL: every id formats, from the library
// itself, to exactly the text the administrator is meant to read, and the generated header's
// symbolic ids are those ids.
#include <windows.h>
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "VXDA64msg.h"

namespace {

struct Message {
    DWORD symbol;
    DWORD id;
    const wchar_t* text;
};

const Message kMessages[] = {
    {MSG_SERVICE_STARTED, 0x60000001, L"Vantrel service started.\r\n"},
    {MSG_SERVICE_STOPPING, 0x60000002, L"Vantrel service initiated a stop sequence.\r\n"},
    {MSG_SERVICE_STOPPED, 0x60000003, L"Vantrel service stopped.\r\n"},
    {MSG_LICENSE_CHECKED, 0x60000004, L"Vantrel checked its license.\r\n"},
    {MSG_LICENSE_LIMIT, 0x60000005, L"Vantrel is licensed to monitor %1 sessions.\r\n"},
    {MSG_MONITOR_STARTED, 0x60000006, L"Vantrel started monitoring the user '%1'. \r\n"},
    {MSG_SKIPPED_EXCLUDED_USER, 0x60000007, L"Vantrel skipped the user '%1' from monitoring, because that user was listed in the 'Do not apply to' list. \r\n"},
    {MSG_SKIPPED_EXCLUDED_GROUP, 0x60000008, L"Vantrel skipped the user '%1' from monitoring, because the user was a member of the group '%2' listed in the 'Do not apply to' list.\r\n"},
    {MSG_SKIPPED_NOT_APPLIED, 0x60000009, L"Vantrel skipped the user '%1' from monitoring, because the 'Apply To' list was not empty, and the user was not included in it. \r\n"},
    {MSG_LOGGED_OFF, 0x6000000A, L"Vantrel logged off the user '%1'.\r\n"},
    {MSG_LOGOFF_FAILED, 0xE000000B, L"Vantrel could not log off the user '%1'. (Code %2)\r\n"},
    {MSG_NOT_ENABLED_MONITORING, 0xA000000C, L"Vantrel did not start monitoring because Vantrel was not enabled at that time.\r\n"},
    {MSG_NOT_ENABLED_LOGON, 0xA000000D, L"Vantrel did not process a logon event because Vantrel was not enabled at that time.\r\n"},
    {MSG_NOT_ENABLED_TIMEOUT, 0xA000000E, L"Vantrel did not process the idle timeout for user '%1' because Vantrel was not enabled at that time.\r\n"},
    {MSG_MONITOR_START_FAILED, 0xE000000F, L"Vantrel could not start the monitor process for the user '%1'. (Code %2)\r\n"},
    {MSG_LICENSE_EXCEEDED, 0xE0000010, L"Vantrel found that this computer exceeds its license limit.\r\n"},
    {MSG_LICENSE_LIMIT_REACHED, 0xE0000011, L"Vantrel did not start monitoring because its license limit of %1 sessions was reached.\r\n"},
    {MSG_SHUTDOWN_STARTED, 0x60000012, L"Vantrel service initiated a shutdown because no user has logged on to the computer during the shutdown timeout period.\r\n"},
    {MSG_SHUTDOWN_FAILED, 0xE0000013, L"Vantrel encountered an error returned from InitiateSystemShutdownEx().\r\n"},
    {MSG_SUSPEND_STARTED, 0x60000014, L"Vantrel service initiated a suspend because no user has logged on to the computer during the shutdown timeout period.\r\n"},
    {MSG_SUSPEND_FAILED, 0xE0000015, L"Vantrel encountered an error returned from SetSuspendState().\r\n"},
    {MSG_KEPT_LAST_ACTIVE_USER, 0xA0000016, L"Vantrel did not log off user '%1' because that user was the most recent active user.\r\n"},
    {MSG_STALE_LOGGED_OFF, 0x60000017, L"Vantrel logged off the stale session for user '%1'.\r\n"},
    {MSG_STALE_LOGOFF_FAILED, 0xE0000018, L"Vantrel could not log off the stale session for user '%1'. (Code %2)\r\n"},
    {MSG_SCHEDULE_INACTIVE, 0xA0000019, L"Vantrel did not process the idle timeout for user '%1' because according to its schedule Vantrel was set to be inactive at that time.\r\n"},
    {MSG_SETTING_OUT_OF_RANGE, 0xA000001A, L"Vantrel read the setting '%1' = %2 minutes, which is outside the range the configuration utility allows. Times up to 71582 minutes (about 49 days, the longest Vantrel can measure) are used as they are; a negative or longer time turns that action off: with 'Timeout' or 'MessageTimeout' idle sessions are neither warned nor logged off (stale sessions still are), with 'ShutdownTimeout' the computer is never put to sleep, hibernated or shut down.\r\n"},
    {MSG_ENGINE_ERROR, 0xE000001B, L"Vantrel met an unexpected error while handling the service control %1. The service goes on running; if this repeats, restart the Vantrel service.\r\n"},
};

std::string Narrow(const std::wstring& s)
{
    std::string out;
    for (wchar_t c : s)
        out += c == L'\r' ? std::string("\\r") : c == L'\n' ? std::string("\\n") : std::string(1, (char)c);
    return out;
}

// The library as the event viewer loads a message file: as data, from the tests' own folder.
class MessageTable : public ::testing::Test {
protected:
    void SetUp() override
    {
        wchar_t path[MAX_PATH];
        DWORD n = GetModuleFileNameW(nullptr, path, MAX_PATH);
        ASSERT_GT(n, 0u);
        ASSERT_LT(n, (DWORD)MAX_PATH);
        std::wstring dll(path);
        dll = dll.substr(0, dll.rfind(L'\\') + 1) + L"VXDA64.DLL";
        hLib = LoadLibraryExW(dll.c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
        ASSERT_NE(hLib, nullptr) << "LoadLibraryExW error " << GetLastError();
    }
    void TearDown() override
    {
        if (hLib)
            FreeLibrary(hLib);
    }

    // The text of id in US English; false (error in *err) when the table has no such id.
    bool Format(DWORD id, const wchar_t* arg1, const wchar_t* arg2, std::wstring* text, DWORD* err)
    {
        wchar_t buf[512];
        for (auto& c : buf)
            c = 0xbdbd;
        DWORD_PTR args[2] = {(DWORD_PTR)arg1, (DWORD_PTR)arg2};
        DWORD flags = FORMAT_MESSAGE_FROM_HMODULE | (arg1 ? FORMAT_MESSAGE_ARGUMENT_ARRAY : FORMAT_MESSAGE_IGNORE_INSERTS);
        SetLastError(0xdeadbeef);
        DWORD n = FormatMessageW(flags, hLib, id, MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US), buf, 512,
                                 arg1 ? reinterpret_cast<va_list*>(args) : nullptr);
        *err = GetLastError();
        if (!n)
            return false;
        EXPECT_EQ(buf[n], 0) << "no terminator after " << n << " characters";
        *text = std::wstring(buf, n);
        return true;
    }

    HMODULE hLib = nullptr;
};

TEST_F(MessageTable, EveryIdFormatsToItsExactText)
{
    for (const Message& m : kMessages) {
        SCOPED_TRACE(testing::Message() << std::hex << "id 0x" << m.id);
        EXPECT_EQ(m.symbol, m.id) << "generated header";
        std::wstring text;
        DWORD err = 0;
        ASSERT_TRUE(Format(m.id, nullptr, nullptr, &text, &err)) << "error " << err;
        EXPECT_EQ(Narrow(text), Narrow(m.text));

        // With real insertion strings: %1 and %2 are inserts, not literal text.
        std::wstring expected(m.text);
        for (auto [mark, value] : {std::pair<std::wstring, std::wstring>{L"%1", L"CORP\\alice"}, {L"%2", L"-559038737"}}) {
            size_t at = expected.find(mark);
            if (at != std::wstring::npos)
                expected.replace(at, 2, value);
        }
        ASSERT_TRUE(Format(m.id, L"CORP\\alice", L"-559038737", &text, &err)) << "error " << err;
        EXPECT_EQ(Narrow(text), Narrow(expected));
    }
}

// The table as stored, without FormatMessageW's help (it turns a bare line feed into CR LF):
// exactly these ids, each text in UTF-16 ending in CR LF. Another id, a wrong severity or a
// message file saved with plain line feeds shows up here.
TEST_F(MessageTable, StoresExactlyTheseIdsAndTexts)
{
    HRSRC hRes = FindResourceW(hLib, MAKEINTRESOURCEW(1), RT_MESSAGETABLE);
    ASSERT_NE(hRes, nullptr);
    const BYTE* base = (const BYTE*)LockResource(LoadResource(hLib, hRes));
    ASSERT_NE(base, nullptr);
    const auto* data = (const MESSAGE_RESOURCE_DATA*)base;
    std::map<DWORD, std::wstring> stored;
    for (DWORD b = 0; b < data->NumberOfBlocks; ++b) {
        const MESSAGE_RESOURCE_BLOCK& block = data->Blocks[b];
        const BYTE* p = base + block.OffsetToEntries;
        for (DWORD id = block.LowId; id <= block.HighId; ++id) {
            const auto* entry = (const MESSAGE_RESOURCE_ENTRY*)p;
            EXPECT_EQ(entry->Flags, 1) << std::hex << "not UTF-16: id 0x" << id;
            // The text fills the entry, padded with zeros.
            std::wstring text((const wchar_t*)entry->Text, (entry->Length - 4) / sizeof(wchar_t));
            stored[id] = text.substr(0, text.find(L'\0'));
            p += entry->Length;
        }
    }
    std::map<DWORD, std::wstring> expected;
    for (const Message& m : kMessages)
        expected[m.id] = m.text;
    EXPECT_EQ(stored.size(), expected.size());
    for (const auto& [id, text] : stored) {
        SCOPED_TRACE(testing::Message() << std::hex << "id 0x" << id);
        auto it = expected.find(id);
        ASSERT_NE(it, expected.end()) << "unexpected id";
        EXPECT_EQ(Narrow(text), Narrow(it->second));
    }
}

} // namespace
