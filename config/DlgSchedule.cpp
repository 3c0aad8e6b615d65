#include "config/DlgSchedule.h"

#include "base/Handle.h"
#include "base/Resources.h"
#include "resources/resource.h"
#include "ui/MsgBox.h"

int StoreGridSchedule(const ScheduleGrid& grid, Schedule& schedule)
{
    if (grid.IsAllHalfHoursOn())
        return schedule.Set(L"");
    const unsigned n = grid.GetText(nullptr, 0);
    if (n == 0) {
        // No active period: the empty text would mean "always", the very opposite.
        SetLastError(ERROR_INVALID_DATA);
        return 0;
    }
    HeapBuf<wchar_t> buf((size_t)n + 1);
    if (!buf.p) {
        SetLastError(ERROR_OUTOFMEMORY);
        return 0;
    }
    grid.GetText(buf.p, n + 1);
    return schedule.Set(buf.p);
}

DlgSchedule::DlgSchedule(Schedule& schedule) : DMDlg(IDD_SCHEDULE), schedule(schedule) {}

BOOL DlgSchedule::OnInit()
{
    // The template holds a frame where the grid goes: the grid takes its place, size, id and
    // position in the tab order.
    HWND frame = GetItem(IDC_SCHEDULE_GRID);
    RECT rc = {0, 0, 0, 0};
    if (frame) {
        GetWindowRect(frame, &rc);
        MapWindowPoints(nullptr, hWnd, reinterpret_cast<POINT*>(&rc), 2);
        SetWindowLongPtrW(frame, GWLP_ID, 0);
    }
    if (grid.Create(hWnd, L"", WS_CHILD | WS_VISIBLE | WS_TABSTOP, 0, &rc, IDC_SCHEDULE_GRID)) {
        if (frame) {
            SetWindowPos(grid.GetHwnd(), frame, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE);
            DestroyWindow(frame);
        }
        wchar_t active[64], inactive[64];
        LoadResString(IDS_SCHED_ACTIVE, active, 64);
        LoadResString(IDS_SCHED_INACTIVE, inactive, 64);
        grid.SetLegendText(active, inactive);
        // Hours as wide as the frame allows, at least the smallest zoom.
        const int avail = (rc.right - rc.left) - grid.GetLayout().left - 8;
        grid.SetZoomFactor(avail >= 240 ? avail / 240 : 1);
    }
    return DMDlg::OnInit();
}

int DlgSchedule::OptsToDlg()
{
    // A text that does not parse shows the week active, as the engine treats it.
    if (!grid.SetSchedule(schedule.Get()))
        grid.SetScheduleAll(true);
    return 1;
}

int DlgSchedule::DlgToOpts()
{
    if (StoreGridSchedule(grid.GetGrid(), schedule))
        return 1;
    if (GetLastError() == ERROR_INVALID_DATA)
        Msg(hWnd, MB_OK | MB_ICONWARNING, reinterpret_cast<const wchar_t*>((INT_PTR)-IDS_SCHED_NONE_ACTIVE));
    else
        ScheduleSeams::pfnMessageBeep(MB_ICONERROR); // out of memory: the dialog stays open
    return 0;
}

int DlgSchedule::OnCommand(WORD id, WORD code, HWND hwndCtl)
{
    (void)hwndCtl;
    if (code != BN_CLICKED)
        return 0;
    switch (id) {
    case IDC_SCHEDULE_ACTIVE: return grid.SetSelection(true), 1;
    case IDC_SCHEDULE_INACTIVE: return grid.SetSelection(false), 1;
    case IDC_SCHEDULE_CLEAR: return grid.DeselectAll(), 1;
    default: return 0;
    }
}
