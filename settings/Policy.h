// Policy: reads and writes settings values under one registry key, by default the product's
// policy keys (machine "HKLM\SOFTWARE\Policies\Korvane\Vantrel", user "HKCU\SOFTWARE\Policies\...").
// The settings loader also points it at the local settings key or the "Temp" staging key
// (OpenAltRegKey), so every settings value is read and written with the same type rules:
// integers may be stored as DWORDs or as decimal text (and text stays text when rewritten), and
// user and group lists are subkeys holding one string value per entry, named "1", "2", ...
#pragma once
#include "storage/RegKey.h"

class StrList;

class Policy {
public:
    enum Scope { ScopeUser = 0, ScopeMachine = 1 }; // any value other than 1 is the user scope

    Policy();
    virtual ~Policy();
    Policy(const Policy&) = delete;
    Policy& operator=(const Policy&) = delete;

    // Opens the policy key of the scope (created when bCreate is set); the key stays open for
    // later calls until CloseRegKey.
    int OpenRegKey(int scope, int bCreate);
    void CloseRegKey();
    // Works on another key instead (full path, root first), until CloseRegKey.
    int OpenAltRegKey(const wchar_t* path, int bCreate);
    int IsRegKeyReady() const { return key.IsReady(); }

    // The value as an integer; -1 when the key cannot be opened, the value is missing, has no
    // type or does not hold a number. A stored -1 therefore reads like a missing value.
    int GetInt(const wchar_t* name, int scope);
    int GetIntUser(const wchar_t* name) { return GetInt(name, ScopeUser); }
    int GetIntComp(const wchar_t* name) { return GetInt(name, ScopeMachine); }
    int IsOn(const wchar_t* name, int scope);
    int IsOnUser(const wchar_t* name) { return IsOn(name, ScopeUser); }
    int IsOnComp(const wchar_t* name) { return IsOn(name, ScopeMachine); }

    // Length of the text read into buf (cch characters); 0 and an empty buffer when absent or
    // too long for the buffer.
    int GetStr(wchar_t* buf, unsigned cch, const wchar_t* name, int scope);
    int GetStrUser(wchar_t* buf, unsigned cch, const wchar_t* name) { return GetStr(buf, cch, name, ScopeUser); }
    int GetStrComp(wchar_t* buf, unsigned cch, const wchar_t* name) { return GetStr(buf, cch, name, ScopeMachine); }
    // Characters needed for the text with its terminator; 0 when absent or empty.
    int GetStrSizeChars(const wchar_t* name, int scope);
    int Find(const wchar_t* name, int scope);

    // Integers are written as DWORDs, written only when different; a value that an administrator
    // stored as text is rewritten as text ("%d") so it keeps its type.
    int SetBool(int value, const wchar_t* name, int scope) { return SetInt(value ? 1 : 0, name, scope); }
    int SetInt(int value, const wchar_t* name, int scope);
    int SetStr(const wchar_t* name, const wchar_t* text, int scope);

    // Lists: the subkey name holds one REG_SZ value per entry, "1", "2", ... in list order.
    // Reading stops at the first missing, empty or oversized (over 512 bytes) entry; a missing
    // subkey gives an empty list and 0.
    int GetStrList(StrList& list, const wchar_t* name, int scope);
    // Writes the entries in order (each only when different) and removes everything else from
    // the subkey; 0 at the first entry that cannot be written, the entries before it kept.
    int SetStrList(StrList& list, const wchar_t* name, int scope);
    int FindStrList(const wchar_t* name, int scope);

    // The most bytes an integer stored as text may take.
    static const unsigned nMaxIntTextBytes = 128;
    // The most bytes one list entry may take.
    static const unsigned nMaxListEntryBytes = 512;

protected:
    // Makes sure a key is open: for reading, or for writing when bWrite is set.
    int Ready(int scope, int bWrite);
    // Writes the entries as "1", "2", ... (each only when different); 0 at the first failure.
    static int PutListEntries(RegKey& sub, StrList& list);

    RegKey key;
    int bWritable;
    int bAlt;
};

// Parses a whole decimal integer (optional blanks and sign); false for anything else.
int ParseDecimalInt(const wchar_t* text, int* out);
