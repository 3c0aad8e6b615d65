// ScheduleCtrl: the week grid of the schedule editor, on which the administrator paints when
// monitoring is active. One row per day (in the locale's week order), one column per hour; every
// hour holds four quarter-hours, of which the granularity (1, 2 or 4 parts an hour) says how
// finely the mouse and the arrow keys select. The grid reads and writes the schedule text of the
// settings ("Mon 8:00-17:30, ..."), whose grain is half an hour.
//
// The decisions live in plain pieces that work without a window, so they are tested directly:
//   ScheduleGrid    the 7 x 24 cells and their round trip with the schedule text;
//   ScheduleLayout  pixels to grid units (snapping) and back;
//   ScheduleSel     the selection in grid units and its arrow-key moves;
//   ScheduleClock   the locale's 12/24-hour clock and the time labels.
// ScheduleCtrl itself only draws, dispatches the mouse, keys and menu, and keeps them together.
#pragma once
#include <windows.h>

#include "settings/Schedule.h"
#include "ui/DMWnd.h"
#include "ui/GdiOwner.h"

// The grid's replaceable connection to the speaker: a refused arrow key beeps through it.
namespace ScheduleSeams {
extern BOOL (*pfnMessageBeep)(UINT type);
}

// Context-menu commands of the grid.
enum ScheduleCmd : UINT {
    kCmdSetActive = 901,
    kCmdSetInactive = 902,
    kCmdSelectAll = 903,
    kCmdClearSelection = 904,
};

// The cells: per day (numbered like Schedule::Day, 0 = Sunday) and hour one byte whose low four
// bits are the quarter-hours, set meaning active. Quarter-hours are counted from midnight:
// 0..95, and 96 is the end of the day.
class ScheduleGrid {
public:
    static constexpr int kDays = 7;
    static constexpr int kHours = 24;
    static constexpr int kQuarters = kHours * 4;

    ScheduleGrid() { SetAll(true); } // a new grid is active all the time

    void SetAll(bool bOn);
    // Every quarter-hour active.
    bool IsAllOn() const;
    // Every half-hour as the schedule text sees it active (see GetText): the text would be "always".
    bool IsAllHalfHoursOn() const;
    // Sets quarter-hours [q0, q1) of day on or off. 0 (nothing changed) for a bad day or range.
    int SetRange(int day, int q0, int q1, bool bOn);
    bool IsQuarterOn(int day, int q) const;
    BYTE GetCell(int day, int hour) const;
    // A half-hour (0..47) counts as active in the text when any of its quarter-hours is.
    bool IsHalfHourOn(int day, int half) const;

    // Reads a schedule text: no text, an empty one or "*" is active all the time. Nonzero on
    // success; 0 for a text that does not parse, and the grid is left as it was.
    int SetText(const wchar_t* text);
    // Writes the grid as schedule text, days from Monday to Sunday, each day's periods in time
    // order ("Mon 0:00-24:00, Tue 8:00-12:00"); an inactive week is the empty text. Returns the
    // length of the whole text; buf (cch characters, may be null) gets as much as fits,
    // terminated.
    unsigned GetText(wchar_t* buf, unsigned cch) const;

private:
    BYTE cells[kDays][kHours];
};

// Where the grid lies in the control, in pixels, and the snapping of a point to it.
struct ScheduleLayout {
    int left = 0, top = 0;   // the grid's top-left corner (the cells, without labels)
    int hourWidth = 10;      // zoom x 10
    int rowHeight = 17;      // label text height plus twice the vertical margin
    int granularity = 2;     // selectable parts of an hour: 1, 2 or 4

    // A step: the hour width divided by the granularity (integer division), at least 1. The
    // columns are drawn Step() x granularity wide, so steps and hours always line up.
    int Step() const;
    int ColumnWidth() const { return Step() * granularity; }
    int Right() const { return left + ColumnWidth() * ScheduleGrid::kHours; }
    int Bottom() const { return top + rowHeight * ScheduleGrid::kDays; }
    // Quarter-hours per step: 4, 2 or 1.
    int QuartersPerStep() const { return 4 / granularity; }

    // A position snapped down to the grid's left edge plus whole steps (the top plus whole
    // rows); with bRoundUp one step (row) more. Positions outside the grid are held to its edges.
    int SnapHoriz(int x, bool bRoundUp) const;
    int SnapVert(int y, bool bRoundUp) const;
    // The step (0..) and row (0..6) under a point, held to the grid.
    int StepAt(int x) const;
    int RowAt(int y) const;
    // The pixel position of a quarter-hour boundary and of a row boundary.
    int XOfQuarter(int q) const { return left + q * ColumnWidth() / 4; }
    int YOfRow(int row) const { return top + row * rowHeight; }
};

// The selection: two corners in grid units, x in quarter-hours (0..96) and y in rows (0..7).
// The start is where it began (the mouse press, the first arrow key), the end is the corner
// that follows the pointer. None when both corners are equal; empty (nothing selected) when they
// share a column or a row.
struct ScheduleSel {
    POINT ptStart = {0, 0};
    POINT ptEnd = {0, 0};

    bool IsNone() const { return ptStart.x == ptEnd.x && ptStart.y == ptEnd.y; }
    bool IsEmpty() const { return ptStart.x == ptEnd.x || ptStart.y == ptEnd.y; }
    void Clear() { ptStart = ptEnd = POINT{0, 0}; }
    // The normalised range: quarter-hours [q0, q1) and rows [r0, r1).
    void GetRange(int* q0, int* q1, int* r0, int* r1) const;

    // The selection from the cell (step, row) where the press was to the cell under the pointer:
    // both cells and all between them are inside.
    void FromCells(const ScheduleLayout& layout, int stepAnchor, int rowAnchor, int stepNow, int rowNow);
    // The arrow-key rule: with no selection, any arrow selects the grid's first cell. Otherwise
    // Left/Right move by one step (quarters), Up/Down by one row; the start corner moves unless
    // bCtrl, the end unless bShift. A move that would leave the grid or make the selection empty
    // (or move nothing) is refused: 0 and the selection as it was. Nonzero when it moved.
    int MoveByKey(UINT vk, bool bCtrl, bool bShift, int quarters);
};

// The clock the hour labels use: the locale's 12/24-hour setting and its AM and PM designators
// (at most 9 characters each).
struct ScheduleClock {
    bool b24Hour = true;
    wchar_t szAM[10] = L"AM";
    wchar_t szPM[10] = L"PM";

    // Reads the user's locale through Schedule's locale seam; what cannot be read keeps its value.
    void Load();
    // The time of quarter-hour q (0..96, 96 being the end of the day): "%d:%02d" on the 24-hour
    // clock ("0:00" ... "24:00"), else the hour with its designator ("%d:%s%s": "12:00AM",
    // "8:30AM", "12:00PM"; the end of the day is "12:00AM"). The length written.
    unsigned FormatTime(int q, wchar_t* buf, unsigned cch) const;
};

// Words for the selected range under the grid, for example "Selected: Monday to Friday, from
// 8:00 to 17:30"; the hint to select when there is no selection.
unsigned FormatSelectionText(const ScheduleSel& sel, const ScheduleClock& clock, const wchar_t* const dayLabels[7],
                             wchar_t* buf, unsigned cch);

class ScheduleCtrl : public DMWnd {
public:
    ScheduleCtrl();
    ~ScheduleCtrl() override;

    // Reads a schedule text into the grid and repaints; 0 (grid unchanged) when it does not parse.
    int SetSchedule(const wchar_t* text);
    // The grid as schedule text: the length of the whole text; buf may be null (length needed).
    unsigned GetSchedule(wchar_t* buf, unsigned cch) const { return grid.GetText(buf, cch); }
    void SetScheduleAll(bool bOn);
    bool IsAllOn() const { return grid.IsAllOn(); }
    const ScheduleGrid& GetGrid() const { return grid; }

    int GetGranularity() const { return layout.granularity; }
    // 1, 2 or 4 (0 and nothing changed otherwise); drops the selection, which may not fit.
    int SetGranularity(int n);
    // Hour columns of zoom x 10 pixels (1..10; 0 and nothing changed otherwise).
    int SetZoomFactor(int zoom);
    int GetZoomFactor() const { return nZoom; }
    // Margins around the day and hour label texts, in pixels (0..50).
    int SetLabelMargins(int cxMargin, int cyMargin);
    // The rows' days, top to bottom: a permutation of the seven days (0 and nothing changed
    // otherwise). The default is the locale's week order.
    int SetDisplayDays(const Schedule::Day days[7]);
    void GetDisplayDays(Schedule::Day days[7]) const;
    // The label of row (the locale's day name, or the English one): null for a bad row.
    const wchar_t* GetDayLabel(int row) const;
    // The texts of the two states ("On" and "Off" until set).
    void SetLegendText(const wchar_t* active, const wchar_t* inactive);
    const wchar_t* GetLegendText(bool bActive) const { return bActive ? szActive : szInactive; }
    const ScheduleClock& GetClock() const { return clock; }
    void SetClock(const ScheduleClock& c);

    // Selection.
    const ScheduleSel& GetSelection() const { return sel; }
    void SelectAll();
    void DeselectAll();
    // Sets the selected quarter-hours active or inactive; 0 when nothing is selected.
    int SetSelection(bool bActive);
    // The mouse's selection, in client pixels.
    void StartSelection(POINT pt);
    void UpdateSelection(POINT pt);
    void EndSelection(POINT pt);
    bool IsSelecting() const { return bSelecting; }
    // The selected range: quarter-hours [q0, q1) and display rows [r0, r1); 0 when none.
    int ParseSelection(int* q0, int* q1, int* r0, int* r1) const;
    int SetSelectionState(bool bActive) { return SetSelection(bActive); }
    const wchar_t* GetSelectionText() const { return szSelText; }
    void UpdateSelectionText();

    int SnapHoriz(int x, bool bRoundUp) const { return layout.SnapHoriz(x, bRoundUp); }
    int SnapVert(int y, bool bRoundUp) const { return layout.SnapVert(y, bRoundUp); }
    POINT SnapPos(POINT pt, bool bRoundUp) const { return POINT{SnapHoriz(pt.x, bRoundUp), SnapVert(pt.y, bRoundUp)}; }
    // The cells' rectangle in client pixels.
    void GetScheduleClientRect(RECT* prc) const;
    const ScheduleLayout& GetLayout() const { return layout; }
    // The size the whole control needs (labels, grid, legend, selection text).
    SIZE GetIdealSize() const;
    // Shows the context menu at a client point and carries out the command chosen.
    void ShowContextMenu(POINT pt);
    // Carries out a menu command (901..904); 0 for another id.
    int DoCommand(UINT id);

protected:
    const wchar_t* GetWndClassName() const override { return L"VantrelScheduleCtrl"; }
    void OnRegisterClass(WNDCLASSEXW& wc) const override;
    LRESULT OnMessage(UINT msg, WPARAM wp, LPARAM lp) override;
    int OnCreate(CREATESTRUCTW* pcs) override;
    int OnPaint() override;
    int OnCommand(WORD id, WORD code, HWND hwndCtl) override;

private:
    void UpdateTools();
    void Recalc();
    void DrawSelection(HDC dc) const;
    void Draw(HDC dc, const RECT& rcClient) const;
    void Invalidate() const;
    void OnKey(UINT vk);
    int RowDay(int row) const { return displayDays[row]; }

    ScheduleGrid grid;
    ScheduleLayout layout;
    ScheduleSel sel;
    ScheduleClock clock;
    Schedule::Day displayDays[7];
    POINT ptAnchor = {0, 0}; // the cell (step, row) where the mouse press was
    bool bSelecting = false;
    int nZoom = 1;
    int cxMargin = 4, cyMargin = 2;
    int cxLabels = 0;  // width of the day label column
    int cyText = 13;   // height of the label font
    wchar_t szActive[64];
    wchar_t szInactive[64];
    wchar_t szSelText[256];

    typedef Owner<HPEN, GdiTraits<HPEN>> PenOwner;
    PenOwner penSolid, penDotted;
    GdiBrush brActive, brActiveSel, brInactive, brFace;
};
