// The help of the configuration utility: the compiled help file "Vantrel.chm", installed beside
// the program, opened on the page about the configuration utility.
#pragma once
#include <windows.h>

// The help file's name, and its page about the configuration utility (the other page is the
// welcome page, which the file opens on by itself).
extern const wchar_t kHelpFileName[];    // "Vantrel.chm"
extern const wchar_t kHelpTopicConfig[]; // "ConfigUtility.htm"

// Opens the help file of the folder of the library that holds this code (the product's folder,
// where the configuration utility's executable is too) on the configuration utility's page.
// Nonzero when it opened. 0 after a message: the file is missing (or is a folder), or it could
// not be opened (the system's reason follows the message).
int OpenHelp(HWND owner);

namespace HelpSeams {
// Shows topic (a page of the help file) of the help file at file (a full path); nonzero when
// shown, 0 with the reason in the last error. The default: HtmlHelpW of hhctrl.ocx, loaded from
// the system folder at first use, on "<file>::/<topic>"; where that fails, the shell opens the
// file itself (at its first page).
extern int (*pfnOpenHelpFile)(HWND owner, const wchar_t* file, const wchar_t* topic);
// The folder the help file is looked for in (with or without a closing backslash); null: the
// folder of the library that holds this code.
extern const wchar_t* pszFolder;
} // namespace HelpSeams
