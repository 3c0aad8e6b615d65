// IniFile: what the reader reports for each layout a file may have, and the bytes the writer puts
// on disk.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "storage/IniFile.h"
#include "support/TestSupport.h"

namespace {

// Records every event as "event|section|name|value"; refuses the event numbered nRefuseAt
// (counting from 0) when it is set.
class RecordingIni : public IniFile {
public:
    using IniFile::IniFile;
    std::vector<std::wstring> events;
    int nRefuseAt = -1;
    std::wstring text; // what the producer returns
    std::vector<bool> produceCalls; // true: called with a buffer

    unsigned ProduceText(wchar_t* buffer) override
    {
        produceCalls.push_back(buffer != nullptr);
        if (buffer)
            text.copy(buffer, text.size());
        return (unsigned)text.size();
    }
    int HandleEvent(int event, const wchar_t* section, const wchar_t* name, const wchar_t* value) override
    {
        if (!section || !name || !value) {
            ADD_FAILURE() << "null string in event " << event;
            return 0;
        }
        events.push_back(std::to_wstring(event) + L"|" + section + L"|" + name + L"|" + value);
        return (int)events.size() - 1 != nRefuseAt;
    }
};

std::vector<std::wstring> Read(const std::wstring& text, int* result = nullptr)
{
    RecordingIni ini;
    int r = ini.ReadAll(text.c_str(), (unsigned)text.size());
    if (result)
        *result = r;
    return ini.events;
}

typedef std::vector<std::wstring> Events;

TEST(IniFileRead, ReportsCommentsSectionsAndVariables)
{
    const wchar_t* text =
        L"; top\n"
        L"\n"
        L"[First] trailing words\n"
        L"; about First\n"
        L"key = value ; note\n"
        L"\tname\t  =  \tv  \n"
        L"\n"
        L"  ; indented comment\n"
        L"=empty name\n"
        L"[Second]\n"
        L"a=\n"
        L"b==c\n";
    int r = 0;
    Events got = Read(text, &r);
    EXPECT_EQ(r, 1);
    Events want = {
        L"0|||",
        L"1||; top|",
        L"1|||",
        L"1|First|; about First|",
        L"2|First|key|value ; note", // no inline comments
        L"2|First|name\t|v  ",       // leading blanks skipped, trailing spaces of the name only
        L"1|First||",                // an empty line: an empty comment of the current section
        L"1|First|; indented comment|",
        L"2|First||empty name",
        L"2|Second|a|",
        L"2|Second|b|=c",
        L"3|||",
    };
    EXPECT_EQ(got, want);
}

TEST(IniFileRead, VariablesOnlyFollowASectionHeader)
{
    // The first line after the top comments is not a header: nothing but start and end.
    EXPECT_EQ(Read(L"key=value\n[sec]\nb=c\n"), Events({L"0|||", L"3|||"}));
    EXPECT_EQ(Read(L"; c\nstray\n[sec]\nb=c\n"), Events({L"0|||", L"1||; c|", L"3|||"}));
    // A header without "]" ends reading.
    EXPECT_EQ(Read(L"[sec\nb=c\n"), Events({L"0|||", L"3|||"}));
    // A line without "=" ends the variables, and as it is no header, reading.
    EXPECT_EQ(Read(L"[s]\na=1\nstray\nb=2\n[t]\nc=3\n"), Events({L"0|||", L"2|s|a|1", L"3|||"}));
    // Empty text, and text that is only a byte-order mark.
    EXPECT_EQ(Read(L""), Events({L"0|||", L"3|||"}));
    EXPECT_EQ(Read(L"\xFEFF"), Events({L"0|||", L"3|||"}));
}

TEST(IniFileRead, LineEndsByteOrderMarkAndLastLine)
{
    Events want = {L"0|||", L"1||;c|", L"2|s|a|1", L"2|s|b|2", L"3|||"};
    EXPECT_EQ(Read(L";c\n[s]\na=1\nb=2\n"), want);
    EXPECT_EQ(Read(L";c\r\n[s]\r\na=1\r\nb=2\r\n"), want) << "CR LF like LF, the CR not in the value";
    EXPECT_EQ(Read(L"\xFEFF;c\r\n[s]\r\na=1\r\nb=2"), want) << "a byte-order mark and a last line without line end";
    // Only one mark is skipped: a second one is text that is neither comment nor header.
    EXPECT_EQ(Read(L"\xFEFF\xFEFF[s]\na=1\n"), Events({L"0|||", L"3|||"}));
    // A lone CR is no line end: it stays in the value.
    EXPECT_EQ(Read(L"[s]\na=x\ry\n"), Events({L"0|||", L"2|s|a|x\ry", L"3|||"}));
    // A last line that is only blanks is not an extra empty comment.
    EXPECT_EQ(Read(L"[s]\na=1\n   "), Events({L"0|||", L"2|s|a|1", L"3|||"}));
}

TEST(IniFileRead, LengthBoundsTheText)
{
    std::wstring text = L"[s]\na=12345\nb=2\n";
    RecordingIni ini;
    EXPECT_EQ(ini.ReadAll(text.c_str(), 8), 1); // "[s]\na=12"
    EXPECT_EQ(ini.events, Events({L"0|||", L"2|s|a|12", L"3|||"}));

    RecordingIni zero;
    EXPECT_EQ(zero.ReadAll(L"[s]\na=1\n\0b=2\n", 0), 1) << "length 0: up to the terminating zero";
    EXPECT_EQ(zero.events, Events({L"0|||", L"2|s|a|1", L"3|||"}));

    // A zero inside the given length also ends the text.
    const wchar_t withZero[] = L"[s]\na=1\0b=2\n";
    RecordingIni embedded;
    EXPECT_EQ(embedded.ReadAll(withZero, (unsigned)(sizeof(withZero) / sizeof(wchar_t) - 1)), 1);
    EXPECT_EQ(embedded.events, Events({L"0|||", L"2|s|a|1", L"3|||"}));
}

TEST(IniFileRead, LongValuesAndNamesAreCut)
{
    std::wstring exact(1024, L'x');
    std::wstring longer = std::wstring(1024, L'y') + L"REST=of the line";
    std::wstring text = L"[s]\na=" + exact + L"\nb=" + longer + L"\r\nc=3\n";
    Events got = Read(text);
    ASSERT_EQ(got.size(), 5u);
    EXPECT_EQ(got[1], L"2|s|a|" + exact);
    EXPECT_EQ(got[2], L"2|s|b|" + std::wstring(1024, L'y')) << "cut at 1024 characters";
    EXPECT_EQ(got[3], L"2|s|c|3") << "the rest of the long line is skipped, the next line read";

    std::wstring longName(1500, L'n');
    got = Read(L"[" + longName + L"]\n" + longName + L"=v\n;" + longName + L"\n");
    ASSERT_EQ(got.size(), 4u);
    std::wstring cut(1024, L'n');
    EXPECT_EQ(got[1], L"2|" + cut + L"|" + cut + L"|v");
    EXPECT_EQ(got[2], L"1|" + cut + L"|;" + std::wstring(1023, L'n') + L"|");
}

TEST(IniFileRead, HandlerRefusalStopsAtEveryEvent)
{
    const std::wstring text = L";top\n[s]\n;c\na=1\n;after\n[t]\nb=2\n";
    Events all = Read(text);
    ASSERT_EQ(all.size(), 7u);
    for (int i = 0; i < (int)all.size(); ++i) {
        SCOPED_TRACE(i);
        RecordingIni ini;
        ini.nRefuseAt = i;
        EXPECT_EQ(ini.ReadAll(text.c_str(), 0), 0);
        EXPECT_EQ(ini.events, Events(all.begin(), all.begin() + i + 1)) << "nothing is reported after a refusal";
        // The object reads again normally afterwards.
        ini.events.clear();
        ini.nRefuseAt = -1;
        EXPECT_EQ(ini.ReadAll(text.c_str(), 0), 1);
        EXPECT_EQ(ini.events, all);
    }
}

TEST(IniFileWrite, SectionAndVariableLinesCountAndFill)
{
    unsigned count = 0;
    wchar_t* none = nullptr;
    IniFile::WriteSec(none, L"Sec", count);
    IniFile::WriteVar(none, L"a", L"1 2", count);
    EXPECT_EQ(count, 7u + 7u);
    EXPECT_EQ(none, nullptr);

    wchar_t buf[20];
    for (auto& c : buf)
        c = 0xbdbd;
    wchar_t* out = buf;
    count = 0;
    IniFile::WriteSec(out, L"Sec", count);
    IniFile::WriteVar(out, L"a", L"1 2", count);
    EXPECT_EQ(count, 14u);
    EXPECT_EQ(out, buf + 14);
    EXPECT_EQ(std::wstring(buf, 14), L"[Sec]\r\na=1 2\r\n");
    EXPECT_EQ(buf[14], 0xbdbd) << "no terminator is written";
}

TEST(IniFileWrite, WritesMarkAndLittleEndianTextThenReadsItBack)
{
    vxtest::ScopedTempDir dir;
    std::wstring path = dir.file(L"a.ini");
    RecordingIni ini(path.c_str());
    ini.text = L"[S]\r\nk=\x00E9\x20AC\r\n";
    EXPECT_EQ(ini.WriteData(), 1);
    EXPECT_EQ(ini.produceCalls, std::vector<bool>({false, true}));
    std::vector<BYTE> bytes;
    ASSERT_TRUE(vxtest::ReadFileBytes(path, &bytes));
    std::vector<BYTE> want = {0xFF, 0xFE, '[', 0, 'S', 0, ']', 0, '\r', 0, '\n', 0, 'k', 0, '=', 0,
                              0xE9, 0x00, 0xAC, 0x20, '\r', 0, '\n', 0};
    EXPECT_EQ(bytes, want);

    EXPECT_EQ(ini.ReadData(), 1);
    EXPECT_EQ(ini.events, Events({L"0|||", L"2|S|k|\x00E9\x20AC", L"3|||"}));

    // A read-only file is rewritten and stays read-only.
    ASSERT_TRUE(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN));
    ini.text = L"x";
    EXPECT_EQ(ini.WriteData(), 1);
    ASSERT_TRUE(vxtest::ReadFileBytes(path, &bytes));
    EXPECT_EQ(bytes, std::vector<BYTE>({0xFF, 0xFE, 'x', 0}));
    EXPECT_EQ(GetFileAttributesW(path.c_str()) & (FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN),
              (DWORD)(FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN));
    SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);

    // A producer with nothing to say deletes the file.
    ini.text.clear();
    ini.produceCalls.clear();
    EXPECT_EQ(ini.WriteData(), 1);
    EXPECT_EQ(ini.produceCalls, std::vector<bool>({false}));
    EXPECT_EQ(GetFileAttributesW(path.c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(ini.WriteData(), 1) << "deleting a missing file is no failure";

    // A folder that does not exist cannot take the file.
    RecordingIni nowhere(dir.file(L"missing\\b.ini").c_str());
    nowhere.text = L"x";
    SetLastError(0xdeadbeef);
    EXPECT_EQ(nowhere.WriteData(), 0);
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_PATH_NOT_FOUND);
}

TEST(IniFileRead, DataNeedsAPathAndANonEmptyFile)
{
    vxtest::ScopedTempDir dir;
    RecordingIni noPath;
    SetLastError(0xdeadbeef);
    EXPECT_EQ(noPath.ReadData(), 0);
    EXPECT_NE(GetLastError(), 0xdeadbeefu);
    EXPECT_TRUE(noPath.events.empty());

    RecordingIni missing(dir.file(L"none.ini").c_str());
    SetLastError(0xdeadbeef);
    EXPECT_EQ(missing.ReadData(), 0);
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_FILE_NOT_FOUND);

    std::wstring path = dir.file(L"e.ini");
    ASSERT_TRUE(vxtest::WriteFileBytes(path, "", 0));
    RecordingIni empty(path.c_str());
    EXPECT_EQ(empty.ReadData(), 0);
    EXPECT_TRUE(empty.events.empty());

    // A file without a mark, with an odd last byte: the half character is not read.
    const BYTE odd[] = {'[', 0, 's', 0, ']', 0, '\n', 0, 'a', 0, '=', 0, '1', 0, '2'};
    ASSERT_TRUE(vxtest::WriteFileBytes(path, odd, sizeof(odd)));
    EXPECT_EQ(empty.ReadData(), 1);
    EXPECT_EQ(empty.events, Events({L"0|||", L"2|s|a|1", L"3|||"}));

    // The handler's refusal comes back from ReadData.
    RecordingIni refusing(path.c_str());
    refusing.nRefuseAt = 1;
    EXPECT_EQ(refusing.ReadData(), 0);
}

TEST(IniFilePath, IsCutToItsBuffer)
{
    std::wstring longPath(300, L'p');
    RecordingIni ini(longPath.c_str());
    EXPECT_EQ(std::wstring(ini.GetPath()), longPath.substr(0, 259));
    ini.SetPath(L"C:\\x.ini");
    EXPECT_STREQ(ini.GetPath(), L"C:\\x.ini");
    ini.SetPath(nullptr);
    EXPECT_STREQ(ini.GetPath(), L"");
}

// Sets HKLM\...\Setup "BootDir" for the test and puts the original back afterwards.
class BootDirValue {
public:
    BootDirValue()
    {
        RegCreateKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &hKey, nullptr);
        DWORD cb = sizeof(saved);
        bHad = hKey && RegQueryValueExW(hKey, L"BootDir", nullptr, &savedType, saved, &cb) == ERROR_SUCCESS;
        savedSize = cb;
    }
    ~BootDirValue()
    {
        if (!hKey)
            return;
        if (bHad)
            RegSetValueExW(hKey, L"BootDir", 0, savedType, saved, savedSize);
        else
            RegDeleteValueW(hKey, L"BootDir");
        RegCloseKey(hKey);
    }
    bool Set(const std::wstring& dir)
    {
        return hKey && RegSetValueExW(hKey, L"BootDir", 0, REG_SZ, (const BYTE*)dir.c_str(), (DWORD)(dir.size() + 1) * 2) == ERROR_SUCCESS;
    }

private:
    static constexpr const wchar_t* kKey = L"Software\\Microsoft\\Windows\\CurrentVersion\\Setup";
    HKEY hKey = nullptr;
    bool bHad = false;
    DWORD savedType = 0, savedSize = 0;
    BYTE saved[1024];
};

TEST(IniFilePath, FindBootFileLooksInTheBootFolder)
{
    vxtest::ScopedTempDir dir;
    if (dir.path().size() > 38)
        GTEST_SKIP() << "the temporary folder's path is too long for an 80-byte BootDir";
    BootDirValue boot;
    ASSERT_TRUE(vxtest::WriteFileBytes(dir.file(L"boot.ini"), "\xFF\xFE", 2));
    ASSERT_TRUE(CreateDirectoryW(dir.file(L"folder.ini").c_str(), nullptr));

    RecordingIni ini(L"C:\\before.ini");
    for (const std::wstring& bootDir : {dir.path(), dir.path() + L"\\"}) {
        SCOPED_TRACE(std::string(bootDir.begin(), bootDir.end()));
        ASSERT_TRUE(boot.Set(bootDir));
        ini.SetPath(L"C:\\before.ini");
        EXPECT_EQ(ini.FindBootFile(L"absent.ini"), 0);
        EXPECT_STREQ(ini.GetPath(), L"C:\\before.ini");
        EXPECT_EQ(ini.FindBootFile(L"folder.ini"), 0) << "a folder is not a boot file";
        EXPECT_STREQ(ini.GetPath(), L"C:\\before.ini");
        EXPECT_EQ(ini.FindBootFile(L"boot.ini"), 1);
        EXPECT_EQ(std::wstring(ini.GetPath()), dir.file(L"boot.ini")) << "one backslash between folder and name";
    }
    // A BootDir longer than 80 bytes is not used.
    ASSERT_TRUE(boot.Set(dir.path() + std::wstring(50, L'\\')));
    ini.SetPath(L"C:\\before.ini");
    EXPECT_EQ(ini.FindBootFile(L"boot.ini"), 0);
    EXPECT_STREQ(ini.GetPath(), L"C:\\before.ini");
    RemoveDirectoryW(dir.file(L"folder.ini").c_str());
}

} // namespace
