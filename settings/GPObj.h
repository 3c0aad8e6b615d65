// GPObj: one domain Group Policy object opened through the system's IGroupPolicyObject, for the
// configuration utility that edits the settings inside it. The values live in the object's
// machine registry section, under the product's policy key, with the same type rules as every
// other settings key (see Policy). Writing with bSet zero marks a value as removed instead
// ("**del.<name>"), which is how a Not Configured setting is taken away from the clients; a list
// always starts with "**delvals." so that the clients' list is replaced, never merged.
//
// COM must be initialised on the calling thread. Nothing is written to the directory until Save.
#pragma once
#include <windows.h>

#include <prsht.h>

#include <gpedit.h>

#include "settings/Policy.h"

class StrList;

class GPObj : protected Policy {
public:
    enum Scope { ScopeUser = 0, ScopeMachine = 1 }; // the settings use the machine section only

    GPObj();
    ~GPObj() override;

    // Creates the object, opens the directory object at path (with its registry when
    // bLoadRegistry is set), checks that it is a directory object and attaches the section's
    // registry root; the policy key below it is opened for reading when it exists. Nonzero on
    // success; on failure everything is released and GetResult tells why (a wrong type keeps the
    // success code of the open).
    int Open(const wchar_t* path, int scope, int bLoadRegistry);
    void Close();
    // Saves the section, adding the registry extension and the Administrative Templates snap-in
    // of that side to the object. Nonzero on success.
    int Save(int scope);
    HRESULT GetResult() const { return hrLast; }

    // Names of the open object; 0 and an empty buffer when there is none.
    int GetDisplayName(wchar_t* buf, unsigned cch);
    int GetName(wchar_t* buf, unsigned cch);

    // Removes the product's policy key from the section: every setting becomes Not Configured.
    int SetAllNotConfigured(int scope);
    // 1 when the section holds no product policy key (or an empty one).
    int IsNotConfigured();
    int IsRegKeyReady() const { return key.IsReady(); }

    int GetInt(const wchar_t* name) { return Policy::GetInt(name, ScopeMachine); }
    int SetInt(int value, const wchar_t* name, int bSet);
    int GetStr(wchar_t* buf, unsigned cch, const wchar_t* name) { return Policy::GetStr(buf, cch, name, ScopeMachine); }
    int SetStr(const wchar_t* name, const wchar_t* text, int bSet);
    int GetStrList(StrList& list, const wchar_t* name) { return Policy::GetStrList(list, name, ScopeMachine); }
    int SetStrList(StrList& list, const wchar_t* name, int bSet);
    int GetStrSizeChars(const wchar_t* name) { return Policy::GetStrSizeChars(name, ScopeMachine); }
    int Find(const wchar_t* name) { return Policy::Find(name, ScopeMachine); }
    // Size in bytes of a value and its type (REG_NONE and 0 when missing).
    unsigned GetBinSize(const wchar_t* name, int* type);
    int GetBin(BYTE* buf, unsigned cb, const wchar_t* name);
    int SetBin(const BYTE* data, unsigned cb, const wchar_t* name, int bSet);

    // The registry-policy removal markers.
    static const wchar_t* pszDelVals; // "**delvals."
    // "**del.<name>" into buf; 0 when it does not fit.
    static int MakeDelName(wchar_t* buf, unsigned cch, const wchar_t* name);

    // Creates the system's Group Policy object; tests put an in-process object of their own here.
    typedef HRESULT (*CreateFn)(IGroupPolicyObject** out);
    static CreateFn pfnCreate;
    static HRESULT CreateSystemObject(IGroupPolicyObject** out);

    // The extension and snap-in that a save adds to the object.
    static const GUID guidRegistryExtension;  // {35378EAC-683F-11D2-A89A-00C04FBBCFA2}
    static const GUID guidMachineAdminSnapIn; // {0F6B957E-509E-11D1-A7CC-0000F87571E3}

private:
    // One of the object's names into buf.
    int GetText(HRESULT (STDMETHODCALLTYPE IGroupPolicyObject::*get)(LPOLESTR, int), wchar_t* buf, unsigned cch);
    // The policy key below the section root, created and opened for writing.
    int ReadyToWrite();
    // Writes the value with bSet, or removes it and writes its removal marker without.
    template <typename Write> int SetOrMark(const wchar_t* name, int bSet, Write write);

    HRESULT hrLast;
    IGroupPolicyObject* pGPO;
    RegKey keyRoot; // the section's root; the policy key is Policy's own
};
