// The scenes the screenshot script photographs (scripts/screenshots.sh):
//   ui_shots.exe status <rect file>   a status window with two rich lines and links
//   ui_shots.exe msgbox <rect file>   the warning message box with bold text, a link and a live
//                                     countdown
//   ui_shots.exe schedule <rect file> the schedule editor with office hours and a selection
//   ui_shots.exe custommsg <rect file> the custom warning-message editor
//   ui_shots.exe dataloss <rect file> the data-loss warning, accepted
//   ui_shots.exe about <rect file>    the About box
//   ui_shots.exe gpobrowse <rect file> the Group Policy object path dialog, a path typed in
//   ui_shots.exe pickusers <rect file> the user and group name dialog, names typed in
//   ui_shots.exe main <rect file>      the main dialog on this computer's settings, its status
//                                     panel live (the script runs the service beforehand)
//   ui_shots.exe maingpo <rect file>   the main dialog editing a Group Policy object
//   ui_shots.exe mainpolicy <rect file> the main dialog while a policy imposes the settings
// Once a scene has settled, the program writes "left top right bottom" of its window (screen
// pixels) into the rect file, waits a few seconds for the photograph, then closes by itself.
#include <windows.h>

#include <cstdio>

#include "base/Resources.h"
#include "base/StrUtil.h"
#include "config/About.h"
#include "base/ProductInfo.h"
#include "config/DlgMain.h"
#include "config/DlgSchedule.h"
#include "engine/ServiceHost.h"
#include "config/DlgSmall.h"
#include "config/Pickers.h"
#include "resources/resource.h"
#include "ui/DMDlg.h"
#include "ui/DMStaticHTML.h"
#include "ui/MsgBox.h"

namespace {

const wchar_t* g_pszRectFile = nullptr;

void WriteRect(HWND hwnd)
{
    RECT r;
    if (!g_pszRectFile || !GetWindowRect(hwnd, &r))
        return;
    // Written under another name and renamed, so the script never reads half a file.
    wchar_t temp[MAX_PATH];
    StrFormat(temp, L"%s.part", g_pszRectFile);
    FILE* f = _wfopen(temp, L"w");
    if (!f)
        return;
    fprintf(f, "%ld %ld %ld %ld\n", r.left, r.top, r.right, r.bottom);
    fclose(f);
    MoveFileExW(temp, g_pszRectFile, MOVEFILE_REPLACE_EXISTING);
}

// A dialog scene: photographed once it has settled, then closed.
template <class Dialog> class Scene : public Dialog {
public:
    using Dialog::Dialog;

protected:
    // Timer ids of their own: the dialogs keep theirs (the main dialog's status refresh).
    enum { kPhotoTimer = 0x5C1, kCloseTimer = 0x5C2 };
    void PhotographSoon(UINT ms = 1500)
    {
        this->StartTimer(kPhotoTimer, ms);
        this->StartTimer(kCloseTimer, ms + 4500);
    }
    int OnTimer(UINT_PTR id) override
    {
        if (id == kPhotoTimer)
            WriteRect(this->GetHwnd());
        else if (id == kCloseTimer)
            this->End(IDOK);
        else
            return Dialog::OnTimer(id);
        return 1;
    }
};

class StatusScene : public Scene<DMDlg> {
public:
    StatusScene() : Scene<DMDlg>(100, GetModuleHandleW(nullptr)) {}

protected:
    BOOL OnInit() override
    {
        line1.Attach(GetItem(1023));
        line1.SetHTMLText(L"<b>Vantrel service:</b> <green>running</green>, monitoring 3 sessions. <a>Refresh now</a>");
        line2.Attach(GetItem(1024));
        line2.SetHTMLText(L"Last log off: <b>CORP\\alice</b> at 10:42. See <a1>the event log</a1> for details.");
        PhotographSoon();
        return TRUE;
    }

private:
    DMStaticHTML line1, line2;
};

int Countdown(HWND box, unsigned tick, void*)
{
    const int left = 5 * 60 - 1 - (int)tick;
    wchar_t text[1024];
    StrFormat(text,
              L"Press OK to keep your session active. Otherwise, you will be logged off in less than "
              L"<b>%d:%02d</b> and any unsaved work will be discarded!<br><br>"
              L"<a>Why am I seeing this?</a>",
              left / 60, left % 60);
    MsgExSetText(box, text);
    if (tick == 2)
        WriteRect(box);
    return tick >= 8 ? IDOK : 0;
}

// The schedule editor on a working week, with Tuesday to Thursday afternoons selected.
class ScheduleScene : public Scene<DlgSchedule> {
public:
    explicit ScheduleScene(Schedule& sch) : Scene<DlgSchedule>(sch) {}

protected:
    BOOL OnInit() override
    {
        const BOOL result = DlgSchedule::OnInit();
        POINT pt;
        const ScheduleLayout& l = GetGrid().GetLayout();
        const Schedule::Day tuesday = Schedule::Tuesday;
        int row = 0;
        Schedule::Day days[7];
        GetGrid().GetDisplayDays(days);
        while (row < 6 && days[row] != tuesday)
            ++row;
        HWND grid = GetGrid().GetHwnd();
        pt = {l.XOfQuarter(13 * 4) + 1, l.YOfRow(row) + 2};
        SendMessageW(grid, WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(pt.x, pt.y));
        pt = {l.XOfQuarter(16 * 4 + 2) + 1, l.YOfRow(row + 2) + 2};
        SendMessageW(grid, WM_MOUSEMOVE, MK_LBUTTON, MAKELPARAM(pt.x, pt.y));
        SendMessageW(grid, WM_LBUTTONUP, 0, MAKELPARAM(pt.x, pt.y));
        PhotographSoon();
        return result;
    }
};

// The small dialogs as they open (the data-loss warning with its box ticked).
template <class Dialog> class OpenScene : public Scene<Dialog> {
public:
    using Scene<Dialog>::Scene;

protected:
    BOOL OnInit() override
    {
        const BOOL result = Scene<Dialog>::OnInit();
        if (HWND accept = GetDlgItem(this->GetHwnd(), IDC_DATA_LOSS_ACCEPT))
            SendMessageW(accept, BM_CLICK, 0, 0);
        this->PhotographSoon();
        return result;
    }
};

// The main dialog as it opens; the live panel gets a few refreshes before the photograph.
class MainScene : public Scene<DlgMain> {
public:
    using Scene<DlgMain>::Scene;

protected:
    BOOL OnInit() override
    {
        const BOOL result = Scene<DlgMain>::OnInit();
        PhotographSoon(3500);
        return result;
    }
};

// Settings an administrator might have: office hours, two exceptions, the computer put to sleep.
void SampleSettings(MyOpts& o)
{
    o.Reset();
    o.bEnable = 1;
    o.nTimeout = 30;
    o.nMsgTimeout = 5;
    o.bUseSchedule = 1;
    o.SetSchedule(L"Mon-Fri 7:00-19:00");
    o.bLogoffStale = 1;
    o.nLogoffStaleCount = 2;
    o.bKeepLastActiveUser = 1;
    o.listExclude.RemoveAll();
    o.listExclude.AddTail(L"CORP\\helpdesk");
    o.listExclude.AddTail(L"Kiosk Operators");
    o.bShutdown = 1;
    o.nShutdownTimeout = 120;
    o.nShutdownAction = 1;
}

int RunMainScene(const wchar_t* mode)
{
    DMApp app(L"HKLM\\SOFTWARE\\Korvane\\Vantrel");
    MyOpts settings;
    SampleSettings(settings);
    MyConfig config;
    config.Reset();
    config.SetAll(kCfgDataLossAccepted);
    if (StrEqual(mode, L"main")) {
        settings.Store(); // what the running service reads, at once
        SendServiceControl(kServiceReloadControl);
        settings.Reset();
        settings.Load();
    } else if (StrEqual(mode, L"maingpo")) {
        StrCopy(settings.szGPOPath, L"LDAP://cn={31B2F340-016D-11D2-945F-00C04FB984F9},cn=policies,cn=system,DC=corp,DC=example");
        StrCopy(settings.szGPODisplayName, L"Branch offices");
        settings.nPolicyState = 1;
    } else {
        settings.bPolicyInEffect = 1;
    }
    MainScene scene(settings, config);
    return scene.DoModal(nullptr) == IDOK ? 0 : 1;
}

// A plain chooser as the administrator has filled it in.
template <class Dialog> class TypedScene : public Scene<Dialog> {
public:
    template <class... Args>
    TypedScene(int idEdit, const wchar_t* typed, Args&&... args) : Scene<Dialog>(args...), idEdit(idEdit), typed(typed)
    {
    }

protected:
    BOOL OnInit() override
    {
        const BOOL result = Scene<Dialog>::OnInit();
        SetDlgItemTextW(this->GetHwnd(), idEdit, typed);
        // The caret after the text, as after typing (posted: the dialog's focus selects it all).
        PostMessageW(this->GetItem(idEdit), EM_SETSEL, 0x7FFFFFFF, 0x7FFFFFFF);
        this->PhotographSoon();
        return result;
    }

private:
    int idEdit;
    const wchar_t* typed;
};

} // namespace

int wmain(int argc, wchar_t** argv)
{
    if (argc != 3)
        return 2;
    g_pszRectFile = argv[2];
    HMODULE library = LoadLibraryW(L"VXDA64.DLL");
    if (!library)
        return 3;
    SetResourceModule(library);
    if (StrEqual(argv[1], L"status")) {
        StatusScene scene;
        return scene.DoModal(nullptr) == IDOK ? 0 : 1;
    }
    if (StrEqual(argv[1], L"msgbox")) {
        MsgExSetTimerCallback(1000, Countdown, nullptr);
        return MsgEx(nullptr, MB_OKCANCEL | MB_ICONWARNING | MB_SETFOREGROUND,
                     L"Press OK to keep your session active. Otherwise, you will be logged off in less than "
                     L"<b>5:00</b> and any unsaved work will be discarded!<br><br><a>Why am I seeing this?</a>") > 0
                   ? 0
                   : 1;
    }
    if (StrEqual(argv[1], L"schedule")) {
        Schedule sch;
        sch.Set(L"Mon 7:30-18:00, Tue 7:30-18:00, Wed 7:30-18:00, Thu 7:30-18:00, Fri 7:30-16:00, Sat 9:00-13:00");
        ScheduleScene scene(sch);
        return scene.DoModal(nullptr) == IDOK ? 0 : 1;
    }
    if (StrEqual(argv[1], L"custommsg")) {
        OpenScene<DlgCustomMsg> scene(L"Your session has been idle for a while. Vantrel logs it off in %d minutes: "
                                      L"save your work now, or press OK to stay.",
                                      false);
        return scene.DoModal(nullptr) == IDOK ? 0 : 1;
    }
    if (StrEqual(argv[1], L"main") || StrEqual(argv[1], L"maingpo") || StrEqual(argv[1], L"mainpolicy"))
        return RunMainScene(argv[1]);
    if (StrEqual(argv[1], L"dataloss")) {
        OpenScene<DlgWarningDataLoss> scene;
        return scene.DoModal(nullptr) == IDOK ? 0 : 1;
    }
    if (StrEqual(argv[1], L"about")) {
        OpenScene<DlgAbout> scene;
        return scene.DoModal(nullptr) == IDOK ? 0 : 1;
    }
    if (StrEqual(argv[1], L"gpobrowse")) {
        wchar_t path[260] = L"";
        TypedScene<DlgGpoPath> scene(IDC_GPO_PATH_EDIT,
                                     L"LDAP://cn={31B2F340-016D-11D2-945F-00C04FB984F9},cn=policies,cn=system,"
                                     L"DC=corp,DC=example,DC=com",
                                     path, 260u);
        return scene.DoModal(nullptr) == IDOK ? 0 : 1;
    }
    if (StrEqual(argv[1], L"pickusers")) {
        StrList names;
        TypedScene<DlgPickNames> scene(IDC_PICK_NAMES_EDIT, L"CORP\\alice\r\nCORP\\bob\r\nHelpdesk Staff\r\nKIOSK-07\\visitor", names);
        return scene.DoModal(nullptr) == IDOK ? 0 : 1;
    }
    return 2;
}
