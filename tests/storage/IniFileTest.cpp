// IniFile: what the reader reports for each layout a file may have, and the bytes the writer puts
// on disk.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "storage/IniFile.h"
#include "support/TestSupport.h"

namespace {

typedef std::vector<std::wstring> Events;

// Records every event as "event|section|name|value"; refuses the event numbered nRefuseAt.
class RecordingIni : public IniFile {
public:
    using IniFile::IniFile;
    Events events;
    int nRefuseAt = -1;
    const wchar_t* pszValue = nullptr; // the producer writes "[S]" and "k=" this; null: nothing

    unsigned ProduceText(wchar_t* buffer) override
    {
        unsigned count = 0;
        if (pszValue) {
            IniFile::WriteSec(buffer, L"S", count);
            IniFile::WriteVar(buffer, L"k", pszValue, count);
        }
        return count;
    }
    int HandleEvent(int event, const wchar_t* section, const wchar_t* name, const wchar_t* value) override
    {
        events.push_back(std::to_wstring(event) + L"|" + section + L"|" + name + L"|" + value);
        return (int)events.size() - 1 != nRefuseAt;
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
    // A byte-order mark, CR LF and LF line ends, and a last line without a line end.
    const wchar_t* text = L"\xFEFF; top\r\n\n[First] trailing words\n; about First\nkey = value ; note\r\n"
                          L"\tname\t  =  \tv  \n\n  ; indented\n=empty name\n[Second]\na=x\ry\nb==c";
    EXPECT_EQ(Read(text), Events({
        L"0|||", L"1||; top|", L"1|||", L"1|First|; about First|",
        L"2|First|key|value ; note", // no inline comments
        L"2|First|name\t|v  ",       // only the name's trailing spaces go
        L"1|First||",                // an empty line is an empty comment of the section
        L"1|First|; indented|", L"2|First||empty name", L"2|Second|a|x\ry", // a lone CR is no line end
        L"2|Second|b|=c", L"3|||",
    }));
}

TEST(IniFileRead, StopsAtALineThatIsNeitherHeaderNorVariable)
{
    std::wstring y(1024, L'y'), n(1500, L'n'), cut(1024, L'n');
    struct { std::wstring text; Events want; } cases[] = {
        {L"key=value\n[sec]\nb=c\n", {L"0|||", L"3|||"}}, // variables only after a header
        {L"[sec\nb=c\n", {L"0|||", L"3|||"}},            // a header without "]"
        {L"[s]\na=1\nstray\nb=2\n[t]\nc=3\n", {L"0|||", L"2|s|a|1", L"3|||"}},
        {L"\xFEFF\xFEFF[s]\na=1\n", {L"0|||", L"3|||"}}, // only one mark is skipped
        // long section and variable names, values and comments are cut; the rest of the line skipped
        {L"[" + n + L"]\n" + n + L"=" + y + L"REST=of the line\r\nc=3\n;" + n + L"\n",
         {L"0|||", L"2|" + cut + L"|" + cut + L"|" + y, L"2|" + cut + L"|c|3",
          L"1|" + cut + L"|;" + std::wstring(1023, L'n') + L"|", L"3|||"}},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        EXPECT_EQ(Read(c.text), c.want);
    }
    // The length bounds the text; 0 means up to the terminating zero.
    EXPECT_EQ(Read(L"[s]\na=12345\nb=2\n", 8), Events({L"0|||", L"2|s|a|12", L"3|||"}));
    EXPECT_EQ(Read(std::wstring(L"[s]\na=1\n\0b=2\n", 13), 0), Events({L"0|||", L"2|s|a|1", L"3|||"}));
}

TEST(IniFileRead, HandlerRefusalStopsAtEveryEvent)
{
    const std::wstring text = L";top\n[s]\n;c\na=1\n;after\n[t]\nb=2\n";
    Events all = Read(text);
    for (int i = 0; i < (int)all.size(); ++i) {
        SCOPED_TRACE(i);
        RecordingIni ini;
        ini.nRefuseAt = i;
        EXPECT_EQ(ini.ReadAll(text.c_str(), 0), 0);
        EXPECT_EQ(ini.events, Events(all.begin(), all.begin() + i + 1)) << "nothing reported after a refusal";
    }
}

TEST(IniFileWrite, MarkAndLittleEndianTextReadOnlyKeptEmptyDeletes)
{
    vxtest::ScopedTempDir dir;
    std::wstring path = dir.file(L"a.ini");
    RecordingIni ini(path.c_str());
    ini.pszValue = L"\x00E9\x20AC";
    EXPECT_EQ(ini.WriteData(), 1);
    std::vector<BYTE> bytes;
    ASSERT_TRUE(vxtest::ReadFileBytes(path, &bytes));
    EXPECT_EQ(bytes, std::vector<BYTE>({0xFF, 0xFE, '[', 0, 'S', 0, ']', 0, '\r', 0, '\n', 0, 'k', 0, '=', 0,
                                        0xE9, 0x00, 0xAC, 0x20, '\r', 0, '\n', 0}));
    EXPECT_EQ(ini.ReadData(), 1);
    EXPECT_EQ(ini.events, Events({L"0|||", L"2|S|k|\x00E9\x20AC", L"3|||"}));

    // A read-only hidden file is rewritten and keeps its attributes.
    const DWORD attrs = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN;
    ASSERT_TRUE(SetFileAttributesW(path.c_str(), attrs));
    ini.pszValue = L"";
    EXPECT_EQ(ini.WriteData(), 1);
    ASSERT_TRUE(vxtest::ReadFileBytes(path, &bytes));
    EXPECT_EQ(bytes.size(), 2u + 2 * 9);
    EXPECT_EQ(GetFileAttributesW(path.c_str()) & attrs, attrs);
    SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);

    // A producer with nothing to say deletes the file.
    ini.pszValue = nullptr;
    EXPECT_EQ(ini.WriteData(), 1);
    EXPECT_EQ(GetFileAttributesW(path.c_str()), INVALID_FILE_ATTRIBUTES);

    RecordingIni nowhere(dir.file(L"missing\\b.ini").c_str());
    nowhere.pszValue = L"x";
    EXPECT_EQ(nowhere.WriteData(), 0);
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_PATH_NOT_FOUND);
}

TEST(IniFileRead, DataNeedsAPathAndANonEmptyFile)
{
    vxtest::ScopedTempDir dir;
    RecordingIni missing(dir.file(L"none.ini").c_str());
    EXPECT_EQ(RecordingIni().ReadData(), 0) << "no path";
    EXPECT_EQ(missing.ReadData(), 0);
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_FILE_NOT_FOUND);
    std::wstring path = dir.file(L"e.ini");
    ASSERT_TRUE(vxtest::WriteFileBytes(path, "", 0));
    EXPECT_EQ(RecordingIni(path.c_str()).ReadData(), 0) << "empty file";
    // A path longer than its buffer is cut.
    EXPECT_EQ(wcslen(RecordingIni(std::wstring(300, L'p').c_str()).GetPath()), 259u);
}

} // namespace
