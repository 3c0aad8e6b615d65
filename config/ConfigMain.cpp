// The configuration utility's start: it needs full access to the machine's settings, so a user
// without it is offered a restart as administrator; a second start on the same desktop brings
// the running utility to the front instead of opening a second editor of the same settings.
#include <windows.h>

#include <commctrl.h>
#include <objbase.h>
#include <shellapi.h>

#include "base/Resources.h"
#include "base/StrUtil.h"
#include "config/DlgMain.h"
#include "engine/ServiceHost.h"
#include "resources/resource.h"
#include "ui/MsgBox.h"

namespace {

const wchar_t kExecutable[] = L"VantrelA64.EXE";
const wchar_t kAppUserModelId[] = L"Korvane.Vantrel";
const UINT kInstanceTimeoutMs = 1000;

BOOL ShippedHasAdminRights()
{
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE", 0, KEY_ALL_ACCESS, &key) != ERROR_SUCCESS)
        return FALSE;
    RegCloseKey(key);
    return TRUE;
}

int ShippedGetElevationType()
{
    HANDLE token = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token))
        return 0;
    TOKEN_ELEVATION_TYPE type = TokenElevationTypeDefault;
    DWORD cb = 0;
    const BOOL ok = GetTokenInformation(token, TokenElevationType, &type, sizeof(type), &cb);
    CloseHandle(token);
    return ok ? (int)type : 0;
}

BOOL ShippedIsUserAdmin()
{
    BYTE sid[SECURITY_MAX_SID_SIZE];
    DWORD cb = sizeof(sid);
    BOOL member = FALSE;
    if (!CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, sid, &cb) ||
        !CheckTokenMembership(nullptr, sid, &member))
        return FALSE;
    return member;
}

BOOL ShippedShellExecute(HWND parent, const wchar_t* verb, const wchar_t* file, const wchar_t* params, int show)
{
    SHELLEXECUTEINFOW sei = {};
    sei.cbSize = sizeof(sei);
    sei.fMask = SEE_MASK_NOASYNC;
    sei.hwnd = parent;
    sei.lpVerb = verb;
    sei.lpFile = file;
    sei.lpParameters = params;
    sei.nShow = show;
    return ShellExecuteExW(&sei);
}

INT_PTR ShippedRunMainDialog(DlgMain& dlg) { return dlg.DoModal(nullptr); }

struct InstanceSearch {
    UINT message;
    HWND found;
};

BOOL CALLBACK FindInstanceProc(HWND hwnd, LPARAM lp)
{
    InstanceSearch& search = *reinterpret_cast<InstanceSearch*>(lp);
    wchar_t cls[16];
    if (!GetClassNameW(hwnd, cls, ARRAYSIZE(cls)) || !StrEqual(cls, L"#32770"))
        return TRUE;
    DWORD_PTR answer = 0;
    if (SendMessageTimeoutW(hwnd, search.message, kAskInstanceCode, kConfigInstanceId, SMTO_ABORTIFHUNG,
                            kInstanceTimeoutMs, &answer) &&
        answer) {
        search.found = hwnd;
        return FALSE;
    }
    return TRUE;
}

void SetAppUserModelId()
{
    // Not every system has it; the taskbar then groups by executable, which is fine too.
    typedef HRESULT(WINAPI * SetIdFn)(PCWSTR);
    HMODULE shell = GetModuleHandleW(L"shell32.dll");
    if (!shell)
        shell = LoadLibraryW(L"shell32.dll");
    SetIdFn set = shell ? reinterpret_cast<SetIdFn>(reinterpret_cast<void*>(
                              GetProcAddress(shell, "SetCurrentProcessExplicitAppUserModelID")))
                        : nullptr;
    if (set)
        set(kAppUserModelId);
}

// Without full access: ask (when the user cannot elevate by consent) and restart elevated.
int RestartAsAdministrator(const wchar_t* cmdLine)
{
    const int type = StartupSeams::pfnGetElevationType();
    if (type == TokenElevationTypeDefault && !StartupSeams::pfnIsUserAdmin()) {
        wchar_t text[512];
        LoadResString(IDS_RESTART_AS_ADMIN, text, ARRAYSIZE(text));
        if (ConfigSeams::pfnMessage(nullptr, MB_YESNO | MB_ICONINFORMATION, nullptr, text) != IDYES)
            return 2;
    }
    wchar_t path[MAX_PATH];
    if (!GetServiceHostFolder(path, ARRAYSIZE(path)) || StrAppend(path, kExecutable) == 0 ||
        StrLen(path) + 1 >= ARRAYSIZE(path))
        return 2;
    const bool elevated =
        type == TokenElevationTypeFull || (type == TokenElevationTypeDefault && StartupSeams::pfnHasAdminRights());
    const BOOL started = StartupSeams::pfnShellExecute(FindWindowW(L"Progman", nullptr), elevated ? nullptr : L"runas",
                                                       path, cmdLine, SW_SHOWNORMAL);
    return started ? 0 : 2;
}

} // namespace

namespace StartupSeams {
BOOL (*pfnHasAdminRights)() = nullptr;
int (*pfnGetElevationType)() = nullptr;
BOOL (*pfnIsUserAdmin)() = nullptr;
BOOL (*pfnShellExecute)(HWND, const wchar_t*, const wchar_t*, const wchar_t*, int) = nullptr;
INT_PTR (*pfnRunMainDialog)(DlgMain&) = nullptr;

void Reset()
{
    pfnHasAdminRights = ShippedHasAdminRights;
    pfnGetElevationType = ShippedGetElevationType;
    pfnIsUserAdmin = ShippedIsUserAdmin;
    pfnShellExecute = ShippedShellExecute;
    pfnRunMainDialog = ShippedRunMainDialog;
}
} // namespace StartupSeams

// The shipped functions, set once before anything runs (Reset is their one list).
static const bool g_startupSeamsSet = (StartupSeams::Reset(), true);

HWND FindRunningConfigUtility()
{
    InstanceSearch search = {RegisterWindowMessageW(L"KorvaneMessage"), nullptr};
    if (search.message)
        EnumWindows(FindInstanceProc, reinterpret_cast<LPARAM>(&search));
    return search.found;
}

int RunConfigUtility(HINSTANCE hInstance, const wchar_t* cmdLine, int show)
{
    (void)hInstance, (void)show;
    if (!StartupSeams::pfnHasAdminRights())
        return RestartAsAdministrator(cmdLine ? cmdLine : L"");

    INITCOMMONCONTROLSEX icc = {sizeof(icc), ICC_WIN95_CLASSES | ICC_STANDARD_CLASSES};
    InitCommonControlsEx(&icc);
    // The Group Policy object and the object picker are apartment-threaded COM objects.
    const HRESULT hrCom = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    SetAppUserModelId();

    if (HWND running = FindRunningConfigUtility()) {
        DWORD_PTR answer = 0;
        if (!SendMessageTimeoutW(running, RegisterWindowMessageW(L"KorvaneMessage"), kActivateCode, 0,
                                 SMTO_ABORTIFHUNG, kInstanceTimeoutMs, &answer)) {
            if (IsIconic(running))
                ShowWindow(running, SW_RESTORE);
            HWND popup = GetLastActivePopup(running);
            SetForegroundWindow(popup ? popup : running);
        }
        if (SUCCEEDED(hrCom))
            CoUninitialize();
        return 0;
    }

    // The utility's boxes answer the handshake too: a second start while one is open brings it up.
    MsgExSetActivatePrevID((UINT)kConfigInstanceId);
    {
        MyOpts settings;
        LoadSettings(settings, L"");
        MyConfig config;
        config.Reset();
        config.Load();
        DlgMain dlg(settings, config);
        StartupSeams::pfnRunMainDialog(dlg);
    }
    MsgExSetActivatePrevID(0);
    if (SUCCEEDED(hrCom))
        CoUninitialize();
    return 0;
}
