#include "config/Help.h"

#include <htmlhelp.h>
#include <shellapi.h>

#include "base/Module.h"
#include "base/StrUtil.h"
#include "resources/resource.h"
#include "ui/MsgBox.h"

const wchar_t kHelpFileName[] = L"Vantrel.chm";
const wchar_t kHelpTopicConfig[] = L"ConfigUtility.htm";

namespace {

const wchar_t* ResText(int id) { return reinterpret_cast<const wchar_t*>((LONG_PTR)-id); }

typedef HWND(WINAPI* HtmlHelpFn)(HWND caller, const wchar_t* file, UINT command, DWORD_PTR data);

int RealOpenHelpFile(HWND owner, const wchar_t* file, const wchar_t* topic)
{
    // Loaded once and kept: the help window it opens lives in this process.
    static const HMODULE hhctrl = LoadSystemLibrary(L"hhctrl.ocx");
    if (const HtmlHelpFn htmlHelp = GetProcAs<HtmlHelpFn>(hhctrl, "HtmlHelpW")) {
        wchar_t url[MAX_PATH + 64];
        if (StrFormat(url, L"%s::/%s", file, topic) + 1 < ARRAYSIZE(url) && htmlHelp(owner, url, HH_DISPLAY_TOPIC, 0))
            return 1;
    }
    // Without the HTML Help control, whatever the shell opens help files with, at the first page.
    SetLastError(ERROR_SUCCESS);
    const INT_PTR r = (INT_PTR)ShellExecuteW(owner, L"open", file, nullptr, nullptr, SW_SHOWNORMAL);
    if (r > 32)
        return 1;
    if (GetLastError() == ERROR_SUCCESS)
        SetLastError(r == SE_ERR_NOASSOC ? ERROR_NO_ASSOCIATION : ERROR_OPEN_FAILED);
    return 0;
}

// The folder of the module that holds this code, with its closing backslash, into buf (cch
// characters). Nonzero on success.
int GetCodeModuleFolder(wchar_t* buf, unsigned cch)
{
    HMODULE module = nullptr;
    if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                            reinterpret_cast<const wchar_t*>(&GetCodeModuleFolder), &module))
        return 0;
    const DWORD n = GetModuleFileNameW(module, buf, cch);
    if (n == 0 || n >= cch) {
        if (n)
            SetLastError(ERROR_FILENAME_EXCED_RANGE);
        return 0;
    }
    unsigned cut = 0;
    for (unsigned i = 0; i < n; ++i)
        if (buf[i] == L'\\' || buf[i] == L'/')
            cut = i + 1;
    buf[cut] = 0;
    return 1;
}

// The full path of the help file into buf (cch characters). Nonzero on success; 0 with
// ERROR_FILENAME_EXCED_RANGE when it does not fit.
int GetHelpFilePath(wchar_t* buf, unsigned cch)
{
    if (HelpSeams::pszFolder) {
        if (StrCopy(buf, cch, HelpSeams::pszFolder) != StrLen(HelpSeams::pszFolder)) {
            SetLastError(ERROR_FILENAME_EXCED_RANGE);
            return 0;
        }
    } else if (!GetCodeModuleFolder(buf, cch))
        return 0;
    unsigned len = StrLen(buf);
    if (len && buf[len - 1] != L'\\' && buf[len - 1] != L'/')
        len = StrAppend(buf, cch, L"\\");
    if (StrAppend(buf, cch, kHelpFileName) != len + StrLen(kHelpFileName)) {
        SetLastError(ERROR_FILENAME_EXCED_RANGE);
        return 0;
    }
    return 1;
}

} // namespace

namespace HelpSeams {
int (*pfnOpenHelpFile)(HWND owner, const wchar_t* file, const wchar_t* topic) = RealOpenHelpFile;
const wchar_t* pszFolder = nullptr;
} // namespace HelpSeams

int OpenHelp(HWND owner)
{
    wchar_t file[MAX_PATH];
    if (!GetHelpFilePath(file, ARRAYSIZE(file))) {
        MsgFmt(owner, MB_OK | MB_ICONERROR | MsgBoxModel::kAppendLastError, ResText(IDS_HELP_CANNOT_OPEN),
               kHelpFileName);
        return 0;
    }
    const DWORD attributes = GetFileAttributesW(file);
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY)) {
        const DWORD err = attributes == INVALID_FILE_ATTRIBUTES ? GetLastError() : ERROR_FILE_NOT_FOUND;
        if (err == ERROR_FILE_NOT_FOUND || err == ERROR_PATH_NOT_FOUND)
            MsgFmt(owner, MB_OK | MB_ICONERROR, ResText(IDS_HELP_MISSING), file);
        else
            MsgFmt(owner, MB_OK | MB_ICONERROR | MsgBoxModel::kAppendLastError, ResText(IDS_HELP_CANNOT_OPEN), file);
        return 0;
    }
    if (!HelpSeams::pfnOpenHelpFile || !HelpSeams::pfnOpenHelpFile(owner, file, kHelpTopicConfig)) {
        MsgFmt(owner, MB_OK | MB_ICONERROR | MsgBoxModel::kAppendLastError, ResText(IDS_HELP_CANNOT_OPEN), file);
        return 0;
    }
    return 1;
}
