// The configuration utility's two choosers: the Group Policy object browser ("Manage..." >
// "GPO...") and the user and group picker (the "+" buttons of the two lists).
//
// Each uses the system's own dialog where the system has it: BrowseForGPO of gpedit.dll (loaded
// at run time: editions without the Group Policy editor lack the library) and the directory
// object picker (IDsObjectPicker, a COM class that may not be registered). Where the system has
// none, or its picker cannot show its dialog, a plain dialog of the product takes its place: the
// administrator types the object's path, or the names one per line. A picker that cannot show its
// dialog either fails, or answers "cancelled" without having made any window (Wine's picker does
// that); the calling thread's windows are watched while the picker runs, to tell the two apart
// from an administrator's real cancel.
//
// COM must be initialised on the calling thread (the configuration utility does so at start).
#pragma once
#include <windows.h>

#include <ole2.h>

#include <objsel.h>

#include "storage/StrList.h"
#include "ui/DMDlg.h"

struct tag_GPOBROWSEINFO;

// The Group Policy object browser. 1 when the administrator chose an object: path holds its
// "LDAP://..." path, name its display name (empty when unknown: the plain dialog knows none);
// 0 when cancelled; -1 on failure, with the message already shown. path and name are buffers of
// cchPath and cchName characters (name may be null when cchName is 0); they are changed only
// when the result is 1. A null path or a cchPath of 0 gives -1 with ERROR_INVALID_PARAMETER and
// no message: that is the caller's mistake, not the administrator's.
int BrowseForGPO(HWND owner, wchar_t* path, unsigned cchPath, wchar_t* name, unsigned cchName);

// The user and group picker. Appends the names chosen to names, each one only when names does not
// hold it yet (ignoring case): a user as "DOMAIN\user", a group by its bare name. A user of this
// computer's own accounts is stored by its bare name, since that is how the service names a local
// account when it applies the lists. 1 when at least one name was chosen (even one the list
// already held), 0 when cancelled or none. owner should be a window: the system's picker needs
// one.
int PickUsersGroups(HWND owner, StrList& names);

// The name stored for one object the system's picker returned, from its directory path:
//   "WinNT://CORP/alice"                         user  "CORP\alice"     group "alice"
//   "WinNT://CORP/PC01/Admins"                   user  "PC01\Admins"    group "Admins"
//   a ",class" suffix of the last component ("WinNT://CORP/alice,user") is not part of the name.
// Components are the "/"-separated parts after "<provider>://"; empty ones are skipped.
// LDAP and GC paths ("LDAP://[server/]CN=alice,CN=Users,DC=corp,DC=example,DC=com") hold a
// distinguished name: a group is the value of the object's own (first) component, "alice"; a user
// is the value of the first DC component, a backslash and that value, "corp\alice". Escaped
// characters ("\,") count as themselves, without the backslash. The picker is asked for WinNT
// paths, which name the accounts exactly; LDAP paths are read only in case one comes anyway, since
// a user's common name can be a display name ("Alice Smith") rather than the logon name.
// 1 on success; 0, with out empty, when the path has too few components (a user needs two, a
// group one) or the result and its terminator do not fit in cch characters.
int ProcessSelectedObject(const wchar_t* adsPath, bool bGroup, wchar_t* out, unsigned cch);

namespace PickerSeams {
// The system's Group Policy object browser (gpedit.dll's BrowseForGPO).
typedef HRESULT(WINAPI* GpoBrowserFn)(tag_GPOBROWSEINFO* info);
// Gives the system's browser, or null where it is not available (the plain dialog is used then).
// The default loads gpedit.dll once from the system folder. A null pointer counts as "none".
extern GpoBrowserFn (*pfnGetGpoBrowser)();
// Creates the system's object picker. A failure (REGDB_E_CLASSNOTREG where the class is not
// registered) means the plain dialog. The default is CoCreateInstance of CLSID_DsObjectPicker.
// A null pointer counts as "not registered".
extern HRESULT (*pfnCreateObjectPicker)(IDsObjectPicker** out);
} // namespace PickerSeams

// The plain dialog in which the administrator types a Group Policy object's path (dialog 120).
// At OK the path, without leading and trailing blanks, must start with "LDAP://" (in any case)
// and fit in the caller's buffer; otherwise a message says why and the dialog stays open.
class DlgGpoPath : public DMDlg {
public:
    // path: the caller's buffer of cchPath characters, written at an accepted OK only.
    DlgGpoPath(wchar_t* path, unsigned cchPath);

protected:
    BOOL OnInit() override;
    int DlgToOpts() override;

private:
    wchar_t* pszPath;
    unsigned cchPath;
};

// The plain dialog in which the administrator types user and group names, one per line
// (dialog 121). Blank lines are skipped; blanks around a name are not part of it. At OK every
// name must be a possible account name: no character that account names cannot hold
// (" / [ ] : ; | = , + * ? < > and control characters), at most one backslash with text on both
// sides, at most 255 characters (the longest entry a stored list reads back). The first line that
// is not gets a message naming it and its fault, is selected, and the dialog stays open; nothing
// is added then. Otherwise the names are appended to the list (see PickUsersGroups).
class DlgPickNames : public DMDlg {
public:
    explicit DlgPickNames(StrList& names);
    // How many names the accepted OK held (those the list already had included).
    unsigned GetChosenCount() const { return nChosen; }

protected:
    BOOL OnInit() override;
    int DlgToOpts() override;

private:
    StrList& names;
    unsigned nChosen = 0;
};
