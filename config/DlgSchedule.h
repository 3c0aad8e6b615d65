// DlgSchedule: the schedule editor (dialog 105). It shows the week grid (ScheduleCtrl) with the
// schedule it is given, lets the administrator set the selected range active or inactive, and
// at OK writes the grid back into that schedule. A week active all the time is written as the
// empty schedule, which means "always".
#pragma once
#include <windows.h>

#include "config/ScheduleCtrl.h"
#include "settings/Schedule.h"
#include "ui/DMDlg.h"

class DlgSchedule : public DMDlg {
public:
    // The schedule is read at start and written at OK only; it must outlive the dialog.
    explicit DlgSchedule(Schedule& schedule);

    ScheduleCtrl& GetGrid() { return grid; }

protected:
    BOOL OnInit() override;
    int OptsToDlg() override;
    int DlgToOpts() override;
    int OnCommand(WORD id, WORD code, HWND hwndCtl) override;

private:
    Schedule& schedule;
    ScheduleCtrl grid;
};

// The text a grid is stored as: empty when every half-hour is active, else the grid's text.
// Nonzero on success; 0 (schedule unchanged) with ERROR_INVALID_DATA for a grid without any
// active half-hour (no text can say "never": the empty one means "always"), or
// ERROR_OUTOFMEMORY.
int StoreGridSchedule(const ScheduleGrid& grid, Schedule& schedule);
