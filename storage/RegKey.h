// RegKey: the one class through which Vantrel reads and writes the Windows registry.
//
// It owns one open key handle, opens keys from full paths ("HKLM\SOFTWARE\Korvane\Vantrel"),
// reads and writes typed values (by default writing only when the stored value differs, so
// unchanged settings never touch the registry), enumerates, deletes, copies and renames trees.
// A process-wide log mode turns value writes into text lines instead of registry changes, so
// the code that applies settings can also describe them.
//
// Copy hazard: copying a RegKey copies the handle as it is, and each copy's destructor closes
// it. Copies are only made of keys whose lifetime the caller controls (Detach one of them).
#pragma once
#include <windows.h>

class RegKey {
public:
    // One call site serves reading, writing, deleting and comparing a record's values.
    // The numbers are fixed: settings code passes them through.
    enum Op {
        OpCheck = 0,         // true when the stored value equals the given one (case-sensitive)
        OpDelete = 1,        // delete the value
        OpWrite = 2,         // write when different (a DWORD 0 deletes the value)
        OpRead = 3,          // read into the caller's buffer or variable
        OpCheckAbsent = 4,   // true when the value does not exist
        OpCheckNoCase = 5,   // as OpCheck, ignoring case for strings
        OpWriteAlways = 6,   // write without comparing (a DWORD 0 is written)
    };
    // Only deletions and writes need a writable key; OpWriteAlways deliberately opens read-only.
    static int IsWritable(Op op) { return op == OpDelete || op == OpWrite; }

    RegKey();
    RegKey(const wchar_t* path, int bCreate);
    RegKey(const wchar_t* path, Op op);
    RegKey(const wchar_t* path1, const wchar_t* path2, int bCreate);
    RegKey(RegKey& parent, const wchar_t* subkey, int bCreate);
    RegKey(RegKey& parent, const wchar_t* subkey, Op op);
    RegKey(const RegKey& other);            // shares the handle: see the copy hazard above
    RegKey& operator=(const RegKey& other); // likewise; does not close the handle held before
    virtual ~RegKey();

    // The Open members store the new handle without closing one already held: close first.
    int Open(const wchar_t* path, int bCreate);
    int Open(const wchar_t* path, Op op);
    int Open(const wchar_t* path1, const wchar_t* path2, int bCreate);
    int Open(RegKey& parent, const wchar_t* subkey, int bCreate);
    int Open(RegKey& parent, const wchar_t* subkey, Op op);
    int OpenParent(const wchar_t* path, int bCreate, int nLevels);
    static HKEY OpenKey(const wchar_t* path, int bCreate, int nLevels);
    static HKEY OpenKey(HKEY parent, const wchar_t* subkey, int bCreate);

    int Attach(HKEY key, int = 0);
    HKEY Detach();
    void Close();
    HKEY GetKey() const { return hKey; }
    operator HKEY() const { return hKey; }
    int IsReady() const { return hKey != nullptr; }
    int Flush();

    // Values.
    int GetInt(const wchar_t* name, int def);
    DWORD GetDword(const wchar_t* name, DWORD def);
    int PutInt(const wchar_t* name, int v);
    int PutDword(const wchar_t* name, DWORD v, int bOnlyIfDifferent = 1);
    int PutDwordOrDeleteIfZero(const wchar_t* name, DWORD v, int bOnlyIfDifferent = 1);
    int GetStr(const wchar_t* name, wchar_t* buf, int cch, const wchar_t* def);
    int GetStrSize(const wchar_t* name);
    int PutStr(const wchar_t* name, const wchar_t* s, int bOnlyIfDifferent = 1);
    int PutStrOrDelEmpty(const wchar_t* name, const wchar_t* s, int bOnlyIfDifferent = 1);
    unsigned GetBinSize(const wchar_t* name);
    int GetBin(const wchar_t* name, BYTE* buf, unsigned cb, DWORD* pType = nullptr);
    int PutBin(const wchar_t* name, const BYTE* data, unsigned cb, DWORD type = REG_BINARY);
    DWORD GetValueType(const wchar_t* name);
    int FindValue(const wchar_t* name);
    int DelValue(const wchar_t* name);
    int DelValuesStartingWith(const wchar_t* prefix, int bIgnoreCase);
    int CopyValueTo(RegKey& dst, const wchar_t* name);

    // Prefixed names: "%s%s" of prefix and name, formatted into 256 characters.
    int GetIntPrefix(const wchar_t* prefix, const wchar_t* name, int def);
    DWORD GetDwordPrefix(const wchar_t* prefix, const wchar_t* name, DWORD def);
    int PutIntPrefix(const wchar_t* prefix, const wchar_t* name, int v);
    int PutDwordPrefix(const wchar_t* prefix, const wchar_t* name, DWORD v);
    int GetStrPrefix(const wchar_t* prefix, const wchar_t* name, wchar_t* buf, int cch, const wchar_t* def);
    int PutStrPrefix(const wchar_t* prefix, const wchar_t* name, const wchar_t* s);
    unsigned GetBinSizePrefix(const wchar_t* prefix, const wchar_t* name);
    int GetBinPrefix(const wchar_t* prefix, const wchar_t* name, BYTE* buf, unsigned cb);
    int PutBinPrefix(const wchar_t* prefix, const wchar_t* name, const BYTE* data, unsigned cb);
    int DelValuePrefix(const wchar_t* prefix, const wchar_t* name);

    int ProcessEntry(Op op, const wchar_t* name, wchar_t* str, unsigned cch);
    int ProcessEntry(Op op, const wchar_t* name, DWORD& v);
    int ProcessEntry(Op op, const wchar_t* name, int& v);
    int ProcessSubKey(Op op, const wchar_t* name);

    // Enumeration; name buffers of cch characters. True unless the system says no more items.
    int GetFirstSubKey(wchar_t* buf, unsigned cch);
    int GetNextSubKey(wchar_t* buf, unsigned cch);
    int GetSubKeyByIndex(DWORD index, wchar_t* buf, unsigned cch);
    int GetFirstValue(wchar_t* buf, unsigned cch);
    int GetNextValue(wchar_t* buf, unsigned cch);
    int GetValueByIndex(DWORD index, wchar_t* buf, unsigned cch);

    // Trees.
    int IsKeyEmpty();
    int DelSubKey(const wchar_t* name);
    int DelSubKeyIfEmpty(const wchar_t* name);
    int DelAll();
    int CopyTo(RegKey& dst);
    int RenameSubkey(const wchar_t* oldName, const wchar_t* newName);

    // Hives and files.
    static int SaveKey(HKEY key, const wchar_t* file, SECURITY_ATTRIBUTES* sa);
    int Save(const wchar_t* file);
    static int LoadKey(HKEY key, const wchar_t* subkey, const wchar_t* file);
    static int UnLoadKey(HKEY key, const wchar_t* subkey);

    // Path helpers.
    static int GetParentSubkeyName(const wchar_t* path, wchar_t* buf, unsigned cch);
    static const wchar_t* FindLastSubkeyName(const wchar_t* path);

    // Log mode (process-wide, one thread at a time).
    static void StartLog(wchar_t* buffer);
    static unsigned EndLog();

    static int bLogMode;
    static unsigned int nLogSizeChars;
    static wchar_t* pszLog;
    static const wchar_t* pszFmtPrefix;
    static long lError;

protected:
    HKEY hKey;
    DWORD dwIndex; // enumeration cursor of GetFirst.../GetNext...
};

// Free helpers built on RegKey.
int RegGetRect(RegKey& key, RECT* rc, const wchar_t* prefix);
int RegPutRect(RegKey& key, RECT* rc, const wchar_t* prefix);
int RegGetLogFont(RegKey& key, const wchar_t* name, LOGFONTW*& p);
int RegPutLogFont(RegKey& key, const wchar_t* name, LOGFONTW* p);
LOGFONTW* RegNewLogFont(LOGFONTW*& p);
void RegDelLogFont(LOGFONTW*& p);
int ProcessHomeFolder(RegKey::Op op, const wchar_t* product, wchar_t* buf, unsigned cch);
int GetHomeFolder(const wchar_t* product, wchar_t* buf);
int Restricted(const wchar_t* product, const wchar_t* name);
int MoveLegacyKey(int bUser, const wchar_t* product);
int RegisterEventSourceFile(const wchar_t* source, const wchar_t* messageFile);
