// IniFile: reads and writes INI-style text files through callbacks instead of a stored model.
//
// Reading walks the text once and reports every comment, section and variable to the virtual
// handler; writing asks the virtual producer for the whole text and writes it as UTF-16
// little-endian with a byte-order mark. A subclass implements both: a reader's producer may
// return 0 only if deleting the file on WriteData is what it means.
//
// The parsing (ReadAll, Parser) uses only wchar_t and the C library, so it also builds outside
// Windows for sanitizer and fuzzing runs; the file functions live in IniFileIO.cpp.
//
// Layout understood by ReadAll:
//   ; comment lines and empty lines at the top
//   [section]            anything after "]" is ignored
//   name = value         no inline comments: "a = b ; c" has the value "b ; c"
//   ; comments after a variable belong to the current section
// Variables are read only after a section header; reading stops at the first line that is
// neither a section header, a variable, a comment nor empty. Lines end in LF or CR LF.
#pragma once

class IniFile {
public:
    // Handler events.
    enum Event {
        EvStart = 0,   // start of the text
        EvComment = 1, // a comment or empty line: its text (with the ";") in name
        EvVariable = 2,
        EvEnd = 3,
    };
    static const unsigned nPathChars = 260;
    // Section names, variable names, values and comment texts are cut at this many characters;
    // the rest of their line is skipped.
    static const unsigned nMaxTextChars = 1024;

    // The cursor over the text being read: inside the text while its character is not zero and
    // it lies before the end.
    class Parser {
    public:
        Parser(const wchar_t* text, const wchar_t* end) : p(text), pEnd(end) {}
        int IsIn() const { return p < pEnd && *p; }
        // The current character, 0 outside the text.
        wchar_t Peek() const { return IsIn() ? *p : 0; }
        // True at LF, at CR LF, or outside the text.
        int AtLineEnd() const;
        // Spaces and tabs.
        void SkipBlanks();
        // Past the LF or CR LF at the cursor (nothing when not at one).
        void SkipLineEnd();
        // Past the end of the current line.
        void SkipLine();
        // Copies the text up to the end of the line, or up to stop when it is not 0, into buf
        // (cut at cch - 1 characters, always terminated); the cursor stops at the line end or
        // on stop. Returns the characters copied.
        unsigned CopyUntil(wchar_t* buf, unsigned cch, wchar_t stop);

        const wchar_t* p;    // the current position
        const wchar_t* pEnd; // the end of the text
    };

    IniFile();
    explicit IniFile(const wchar_t* path);
    virtual ~IniFile();
    IniFile(const IniFile&) = delete;
    IniFile& operator=(const IniFile&) = delete;

    // Returns the number of characters of the whole file text; called with null to learn the
    // size, then with a zeroed buffer of that many characters to fill.
    virtual unsigned ProduceText(wchar_t* buffer) = 0;
    // One event; section, name and value are never null (empty where nothing applies). Returns
    // nonzero to go on reading.
    virtual int HandleEvent(int event, const wchar_t* section, const wchar_t* name, const wchar_t* value) = 0;

    // A longer path is cut at 259 characters.
    void SetPath(const wchar_t* path);
    const wchar_t* GetPath() const { return szPath; }

    // False when no path is set, the file cannot be opened or is empty; else ReadAll's result.
    int ReadData();
    // Parses text of len characters (0: up to its terminating zero) and reports it to HandleEvent.
    // False as soon as the handler refuses an event, else the handler's answer to EvEnd.
    int ReadAll(const wchar_t* text, unsigned len);
    // Writes the producer's text; a text of 0 characters deletes the file (true).
    int WriteData();
    // Append "[name]" CR LF / "name=value" CR LF at out (when out is not null, advancing it) and
    // add their characters to count: a producer serves its sizing and its filling call alike.
    static void WriteSec(wchar_t*& out, const wchar_t* name, unsigned& count);
    static void WriteVar(wchar_t*& out, const wchar_t* name, const wchar_t* value, unsigned& count);
    // Points the path at the file name in the Windows boot folder when that file exists and is
    // not a folder; false (path unchanged) otherwise.
    int FindBootFile(const wchar_t* name);

protected:
    void DeleteParser();

    wchar_t szPath[nPathChars];
    Parser* pParser;

private:
    // The comment lines at the cursor, each reported with the current section.
    int ReadComments(const wchar_t* section);
    int ReadAllParsed();
};
