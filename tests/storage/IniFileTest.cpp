// IniFile: what the reader reports for each layout a file may have, and the bytes the writer puts on disk.
#include <gtest/gtest.h>

#include "storage/IniFile.h"
#include "support/TestSupport.h"

namespace {
typedef std::vector<std::wstring> Events;

// Records every event as "event|section|name|value" (refusals are the native fuzzers' check).
struct RecordingIni : IniFile {
    using IniFile::IniFile;
    Events events;
    const wchar_t* pszValue = nullptr; // the producer writes "[S]" and "k=" this; null: nothing
    unsigned ProduceText(wchar_t* buffer) override
    {
        unsigned count = 0;
        if (pszValue)
            IniFile::WriteSec(buffer, L"S", count), IniFile::WriteVar(buffer, L"k", pszValue, count);
        return count;
    }
    int HandleEvent(int event, const wchar_t* sec, const wchar_t* name, const wchar_t* value) override
    {
        return events.push_back(std::to_wstring(event) + L"|" + sec + L"|" + name + L"|" + value), 1;
    }
};

Events Read(const std::wstring& text, unsigned len = ~0u)
{
    RecordingIni ini;
    EXPECT_EQ(ini.ReadAll(text.c_str(), len == ~0u ? (unsigned)text.size() : len), 1);
    return ini.events;
}

TEST(IniFileRead, ReportsCommentsSectionsAndVariables)
{
    const std::wstring y(1024, L'y'), n(1500, L'n'), cut(1024, L'n');
    const struct { std::wstring text; Events want; } cases[] = {
        // a byte-order mark, CR LF and LF line ends, a last line without a line end
        {L"\xFEFF; top\r\n\n[First] trailing\nkey = value ; note\r\n\tname\t  =  \tv  \n=empty\n[Second]\na=x\ry\nb==c",
         {L"0|||", L"1||; top|", L"1|||", L"2|First|key|value ; note", L"2|First|name\t|v  ", L"2|First||empty", L"2|Second|a|x\ry",
          L"2|Second|b|=c", L"3|||"}},
        {L"key=value\n[sec]\nb=c\n", {L"0|||", L"3|||"}}, {L"[sec\nb=c\n", {L"0|||", L"3|||"}}, // no header yet; no "]"
        {L"[s]\na=1\nstray\nb=2\n", {L"0|||", L"2|s|a|1", L"3|||"}}, {L"\xFEFF\xFEFF[s]\na=1\n", {L"0|||", L"3|||"}}, // one mark skipped
        // long names, values and comments are cut; the rest of the line is skipped
        {L"[" + n + L"]\n" + n + L"=" + y + L"REST\r\nc=3\n;" + n + L"\n",
         {L"0|||", L"2|" + cut + L"|" + cut + L"|" + y, L"2|" + cut + L"|c|3", L"1|" + cut + L"|;" + std::wstring(1023, L'n') + L"|", L"3|||"}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(Read(c.text), c.want) << &c - cases;
    EXPECT_EQ(Read(L"[s]\na=12345\nb=2\n", 8), Events({L"0|||", L"2|s|a|12", L"3|||"})) << "the length bounds the text";
}

// Exact bytes; a read-only file stays so; nothing to write deletes; bad files get the system's error.
TEST(IniFileFile, WritesMarkedLittleEndianTextAndRefusesBadFiles)
{
    vxtest::ScopedTempDir dir;
    const std::wstring path = dir.file(L"a.ini");
    const DWORD attrs = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN;
    RecordingIni ini(path.c_str()), missing(dir.file(L"none.ini").c_str()), nowhere(dir.file(L"no\\b.ini").c_str());
    std::vector<BYTE> bytes;
    for (const wchar_t* value : {L"", L"\x00E9\x20AC"}) {
        ini.pszValue = value;
        EXPECT_EQ(ini.WriteData(), 1);
        EXPECT_EQ(GetFileAttributesW(path.c_str()) & attrs, *value ? attrs : 0) << "a read-only file keeps its attributes";
        SetFileAttributesW(path.c_str(), attrs);
    }
    ASSERT_TRUE(vxtest::ReadFileBytes(path, &bytes) && ini.ReadData());
    EXPECT_EQ(bytes, std::vector<BYTE>({0xFF, 0xFE, '[', 0, 'S', 0, ']', 0, '\r', 0, '\n', 0, 'k', 0, '=', 0, 0xE9, 0x00, 0xAC, 0x20, '\r', 0, '\n', 0}));
    EXPECT_EQ(ini.events, Events({L"0|||", L"2|S|k|\x00E9\x20AC", L"3|||"}));
    ini.pszValue = nullptr;
    EXPECT_EQ(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL) && ini.WriteData(), 1);
    EXPECT_EQ(GetFileAttributesW(path.c_str()), INVALID_FILE_ATTRIBUTES) << "nothing to say deletes the file";
    ASSERT_TRUE(vxtest::WriteFileBytes(path, "", 0));
    EXPECT_EQ(ini.ReadData() + RecordingIni().ReadData(), 0) << "an empty file, no path";
    nowhere.pszValue = L"x";
    EXPECT_EQ(missing.ReadData(), 0);
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(nowhere.WriteData(), 0);
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(wcslen(RecordingIni(std::wstring(300, L'p').c_str()).GetPath()), 259u) << "a long path is cut to its buffer";
}

} // namespace
