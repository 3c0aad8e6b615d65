// The scenes the screenshot script photographs (scripts/screenshots.sh):
//   ui_shots.exe status <rect file>   a status window with two rich lines and links
//   ui_shots.exe msgbox <rect file>   the warning message box with bold text, a link and a live
//                                     countdown
// Once a scene has settled, the program writes "left top right bottom" of its window (screen
// pixels) into the rect file, waits a few seconds for the photograph, then closes by itself.
#include <windows.h>

#include <cstdio>

#include "base/Resources.h"
#include "base/StrUtil.h"
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

class StatusScene : public DMDlg {
public:
    StatusScene() : DMDlg(100, GetModuleHandleW(nullptr)) {}

protected:
    BOOL OnInit() override
    {
        line1.Attach(GetItem(1023));
        line1.SetHTMLText(L"<b>Vantrel service:</b> <green>running</green>, monitoring 3 sessions. <a>Refresh now</a>");
        line2.Attach(GetItem(1024));
        line2.SetHTMLText(L"Last log off: <b>CORP\\alice</b> at 10:42. See <a1>the event log</a1> for details.");
        StartTimer(1, 1500);
        StartTimer(2, 6000);
        return TRUE;
    }
    int OnTimer(UINT_PTR id) override
    {
        if (id == 1)
            WriteRect(hWnd);
        else
            End(IDOK);
        return 1;
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
    return 2;
}
