#include "config/ScheduleCtrl.h"

#include <windowsx.h>

#include "base/Resources.h"
#include "base/StrUtil.h"
#include "resources/resource.h"
#include "ui/DMMenu.h"

namespace ScheduleSeams {
BOOL (*pfnMessageBeep)(UINT type) = MessageBeep;
}

namespace {

bool ValidGranularity(int n) { return n == 1 || n == 2 || n == 4; }

// A string of the product's resources, or the English text when the resources are not at hand
// (the grid's logic also runs in tests without the library).
void ResText(int id, const wchar_t* fallback, wchar_t* buf, unsigned cch)
{
    if (LoadResString(id, buf, cch) <= 0)
        StrCopy(buf, cch, fallback);
}

// Appends to a bounded buffer and counts the whole length, so one pass gives both the text that
// fits and the size the whole text needs.
struct TextSink {
    wchar_t* buf;
    unsigned cch;
    unsigned len = 0;
    void Add(const wchar_t* s)
    {
        if (buf && cch)
            StrAppend(buf, cch, s);
        len += StrLen(s);
    }
};

int Clamp(int v, int lo, int hi) { return v < lo ? lo : (v > hi ? hi : v); }

// Floor division for a possibly negative numerator and a positive divisor.
int FloorDiv(int a, int b) { return a >= 0 ? a / b : -((-a + b - 1) / b); }

} // namespace

// ---- ScheduleGrid -----------------------------------------------------------------------------

void ScheduleGrid::SetAll(bool bOn)
{
    for (auto& day : cells)
        for (BYTE& cell : day)
            cell = bOn ? 0x0F : 0;
}

bool ScheduleGrid::IsAllOn() const
{
    for (const auto& day : cells)
        for (BYTE cell : day)
            if ((cell & 0x0F) != 0x0F)
                return false;
    return true;
}

bool ScheduleGrid::IsAllHalfHoursOn() const
{
    for (int d = 0; d < kDays; ++d)
        for (int h = 0; h < kHours * 2; ++h)
            if (!IsHalfHourOn(d, h))
                return false;
    return true;
}

int ScheduleGrid::SetRange(int day, int q0, int q1, bool bOn)
{
    if (day < 0 || day >= kDays || q0 < 0 || q1 > kQuarters || q0 >= q1)
        return 0;
    for (int q = q0; q < q1; ++q) {
        const BYTE bit = (BYTE)(1u << (q % 4));
        if (bOn)
            cells[day][q / 4] |= bit;
        else
            cells[day][q / 4] &= (BYTE)~bit;
    }
    return 1;
}

bool ScheduleGrid::IsQuarterOn(int day, int q) const
{
    if (day < 0 || day >= kDays || q < 0 || q >= kQuarters)
        return false;
    return (cells[day][q / 4] >> (q % 4)) & 1;
}

BYTE ScheduleGrid::GetCell(int day, int hour) const
{
    if (day < 0 || day >= kDays || hour < 0 || hour >= kHours)
        return 0;
    return cells[day][hour];
}

bool ScheduleGrid::IsHalfHourOn(int day, int half) const
{
    // Rounded outwards: a quarter-hour marked active keeps the monitoring in its whole half-hour,
    // since the text cannot say less.
    return IsQuarterOn(day, half * 2) || IsQuarterOn(day, half * 2 + 1);
}

int ScheduleGrid::SetText(const wchar_t* text)
{
    Schedule sch;
    if (!sch.Set(text))
        return 0;
    if (sch.IsDefault()) {
        SetAll(true);
        return 1;
    }
    DMList periods;
    if (sch.Parse(periods)) {
        Schedule::Purge(periods);
        return 0;
    }
    ScheduleGrid next;
    next.SetAll(false);
    for (DMPos pos = periods.GetHeadPosition(); pos;) {
        const auto* p = static_cast<const Schedule::AllowedPeriod*>(periods.GetNext(pos));
        // The parser holds hours to 0..24 and minutes to 0 or 30, and the end after the start.
        const int q0 = p->wStartHour * 4 + p->wStartMinute / 15;
        const int q1 = p->wEndHour * 4 + p->wEndMinute / 15;
        next.SetRange((int)p->day, q0, q1, true);
    }
    Schedule::Purge(periods);
    *this = next;
    return 1;
}

unsigned ScheduleGrid::GetText(wchar_t* buf, unsigned cch) const
{
    if (buf && cch)
        buf[0] = 0;
    TextSink out{buf, cch};
    // Monday first whatever the locale, so the same grid gives the same text on every computer;
    // each day's periods in time order, so a day that ends at 24:00 is followed in the text by
    // the next day's first period (the engine chains those).
    static const Schedule::Day order[7] = {Schedule::Monday,   Schedule::Tuesday, Schedule::Wednesday,
                                           Schedule::Thursday, Schedule::Friday,  Schedule::Saturday,
                                           Schedule::Sunday};
    static const wchar_t* const abbrev[7] = {L"Sun", L"Mon", L"Tue", L"Wed", L"Thu", L"Fri", L"Sat"};
    for (Schedule::Day day : order) {
        int h = 0;
        while (h < kHours * 2) {
            if (!IsHalfHourOn(day, h)) {
                ++h;
                continue;
            }
            int e = h;
            while (e < kHours * 2 && IsHalfHourOn(day, e))
                ++e;
            wchar_t entry[32];
            StrFormat(entry, L"%s%s %d:%02d-%d:%02d", out.len ? L", " : L"", abbrev[day], h / 2, (h % 2) * 30,
                      e / 2, (e % 2) * 30);
            out.Add(entry);
            h = e;
        }
    }
    return out.len;
}

// ---- ScheduleLayout ---------------------------------------------------------------------------

int ScheduleLayout::Step() const
{
    const int g = ValidGranularity(granularity) ? granularity : 2;
    const int s = hourWidth / g;
    return s > 0 ? s : 1;
}

int ScheduleLayout::SnapHoriz(int x, bool bRoundUp) const
{
    const int steps = ScheduleGrid::kHours * granularity;
    int n = (Clamp(x, left, Right()) - left) / Step();
    if (bRoundUp)
        ++n;
    return left + Clamp(n, 0, steps) * Step();
}

int ScheduleLayout::SnapVert(int y, bool bRoundUp) const
{
    int n = (Clamp(y, top, Bottom()) - top) / (rowHeight > 0 ? rowHeight : 1);
    if (bRoundUp)
        ++n;
    return top + Clamp(n, 0, ScheduleGrid::kDays) * rowHeight;
}

int ScheduleLayout::StepAt(int x) const
{
    return Clamp(FloorDiv(x - left, Step()), 0, ScheduleGrid::kHours * granularity - 1);
}

int ScheduleLayout::RowAt(int y) const
{
    return Clamp(FloorDiv(y - top, rowHeight > 0 ? rowHeight : 1), 0, ScheduleGrid::kDays - 1);
}

// ---- ScheduleSel ------------------------------------------------------------------------------

void ScheduleSel::GetRange(int* q0, int* q1, int* r0, int* r1) const
{
    *q0 = ptStart.x < ptEnd.x ? ptStart.x : ptEnd.x;
    *q1 = ptStart.x < ptEnd.x ? ptEnd.x : ptStart.x;
    *r0 = ptStart.y < ptEnd.y ? ptStart.y : ptEnd.y;
    *r1 = ptStart.y < ptEnd.y ? ptEnd.y : ptStart.y;
}

void ScheduleSel::FromCells(const ScheduleLayout& layout, int stepAnchor, int rowAnchor, int stepNow, int rowNow)
{
    const int qps = layout.QuartersPerStep();
    // The start corner is the anchor cell's edge away from the pointer, the end corner the
    // pointer cell's far edge: both cells lie inside whichever way the mouse goes.
    if (stepNow >= stepAnchor) {
        ptStart.x = stepAnchor * qps;
        ptEnd.x = (stepNow + 1) * qps;
    } else {
        ptStart.x = (stepAnchor + 1) * qps;
        ptEnd.x = stepNow * qps;
    }
    if (rowNow >= rowAnchor) {
        ptStart.y = rowAnchor;
        ptEnd.y = rowNow + 1;
    } else {
        ptStart.y = rowAnchor + 1;
        ptEnd.y = rowNow;
    }
}

int ScheduleSel::MoveByKey(UINT vk, bool bCtrl, bool bShift, int quarters)
{
    int dx = 0, dy = 0;
    switch (vk) {
    case VK_LEFT: dx = -quarters; break;
    case VK_RIGHT: dx = quarters; break;
    case VK_UP: dy = -1; break;
    case VK_DOWN: dy = 1; break;
    default: return 0;
    }
    if (IsNone()) {
        ptStart = POINT{0, 0};
        ptEnd = POINT{quarters, 1};
        return 1;
    }
    const bool bMoveStart = !bCtrl, bMoveEnd = !bShift;
    if (!bMoveStart && !bMoveEnd)
        return 0;
    POINT s = ptStart, e = ptEnd;
    if (bMoveStart)
        s.x += dx, s.y += dy;
    if (bMoveEnd)
        e.x += dx, e.y += dy;
    auto inside = [](POINT p) {
        return p.x >= 0 && p.x <= ScheduleGrid::kQuarters && p.y >= 0 && p.y <= ScheduleGrid::kDays;
    };
    if (!inside(s) || !inside(e) || s.x == e.x || s.y == e.y)
        return 0;
    ptStart = s;
    ptEnd = e;
    return 1;
}

// ---- ScheduleClock ----------------------------------------------------------------------------

void ScheduleClock::Load()
{
    wchar_t buf[80];
    if (Schedule::pfnGetLocaleInfo(LOCALE_ITIME, buf, 80) > 0)
        b24Hour = buf[0] != L'0';
    if (Schedule::pfnGetLocaleInfo(LOCALE_S1159, buf, 80) > 0)
        StrCopy(szAM, buf);
    if (Schedule::pfnGetLocaleInfo(LOCALE_S2359, buf, 80) > 0)
        StrCopy(szPM, buf);
}

unsigned ScheduleClock::FormatTime(int q, wchar_t* buf, unsigned cch) const
{
    if (!buf || !cch)
        return 0;
    buf[0] = 0;
    if (q < 0 || q > ScheduleGrid::kQuarters)
        return 0;
    const int h = q / 4, m = (q % 4) * 15;
    if (b24Hour)
        return StrFormat(buf, cch, L"%d:%02d", h, m);
    const int h12 = h % 12 ? h % 12 : 12;
    wchar_t szMin[4];
    StrFormat(szMin, L"%02d", m);
    return StrFormat(buf, cch, L"%d:%s%s", h12, szMin, (h % 24) < 12 ? szAM : szPM);
}

unsigned FormatSelectionText(const ScheduleSel& sel, const ScheduleClock& clock, const wchar_t* const dayLabels[7],
                             wchar_t* buf, unsigned cch)
{
    if (!buf || !cch)
        return 0;
    if (sel.IsEmpty()) {
        ResText(IDS_SCHED_NO_SELECTION, L"Drag over the grid or use the arrow keys to select a time range.", buf,
                cch);
        return StrLen(buf);
    }
    int q0, q1, r0, r1;
    sel.GetRange(&q0, &q1, &r0, &r1);
    wchar_t szDays[160], szFrom[24], szTo[24], fmt[128];
    const wchar_t* first = dayLabels[r0] ? dayLabels[r0] : L"";
    const wchar_t* last = dayLabels[r1 - 1] ? dayLabels[r1 - 1] : L"";
    if (r1 - r0 == 1) {
        StrCopy(szDays, first);
    } else {
        ResText(IDS_SCHED_SELECTED_DAYS, L"%s to %s", fmt, 128);
        StrFormat(szDays, 160, fmt, first, last);
    }
    clock.FormatTime(q0, szFrom, 24);
    clock.FormatTime(q1, szTo, 24);
    ResText(IDS_SCHED_SELECTED_RANGE, L"Selected: %s, from %s to %s", fmt, 128);
    return StrFormat(buf, cch, fmt, szDays, szFrom, szTo);
}

// ---- ScheduleCtrl -----------------------------------------------------------------------------

ScheduleCtrl::ScheduleCtrl()
{
    Schedule::InitCommon();
    for (int i = 0; i < 7; ++i)
        displayDays[i] = Schedule::days[i].day;
    ResText(IDS_SCHED_ON, L"On", szActive, 64);
    ResText(IDS_SCHED_OFF, L"Off", szInactive, 64);
    clock.Load();
    szSelText[0] = 0;
    UpdateSelectionText();
}

ScheduleCtrl::~ScheduleCtrl() = default;

void ScheduleCtrl::OnRegisterClass(WNDCLASSEXW& wc) const
{
    wc.hbrBackground = reinterpret_cast<HBRUSH>(COLOR_BTNFACE + 1);
    wc.style |= CS_HREDRAW | CS_VREDRAW;
}

int ScheduleCtrl::OnCreate(CREATESTRUCTW* pcs)
{
    UpdateTools();
    if (pcs && !StrIsEmpty(pcs->lpszName))
        grid.SetText(pcs->lpszName);
    return 1;
}

void ScheduleCtrl::UpdateTools()
{
    penSolid.Attach(CreatePen(PS_SOLID, 1, RGB(128, 128, 128)));
    penDotted.Attach(CreatePen(PS_DOT, 1, RGB(128, 128, 128)));
    brActiveSel.Attach(CreateSolidBrush(RGB(0, 128, 0)));
    brActive.Attach(CreateSolidBrush(RGB(0, 192, 0)));
    brInactive.Attach(CreateSolidBrush(RGB(240, 240, 240)));
    brFace.Attach(CreateSolidBrush(GetSysColor(COLOR_BTNFACE)));
    Recalc();
}

void ScheduleCtrl::Recalc()
{
    HFONT hf = static_cast<HFONT>(GetStockObject(DEFAULT_GUI_FONT));
    WindowDc dc(hWnd);
    int widest = 0;
    if (dc.Get()) {
        DcSelection sel(dc.Get(), hf);
        TEXTMETRICW tm;
        if (GetTextMetricsW(dc.Get(), &tm))
            cyText = tm.tmHeight;
        for (int row = 0; row < 7; ++row) {
            const wchar_t* label = GetDayLabel(row);
            SIZE sz;
            if (label && GetTextExtentPoint32W(dc.Get(), label, (int)StrLen(label), &sz) && sz.cx > widest)
                widest = sz.cx;
        }
    }
    cxLabels = widest + 2 * cxMargin;
    layout.rowHeight = cyText + 2 * cyMargin;
    layout.left = cxLabels;
    layout.top = layout.rowHeight;
    layout.hourWidth = nZoom * 10;
}

void ScheduleCtrl::Invalidate() const
{
    if (hWnd)
        InvalidateRect(hWnd, nullptr, FALSE);
}

int ScheduleCtrl::SetSchedule(const wchar_t* text)
{
    if (!grid.SetText(text))
        return 0;
    Invalidate();
    return 1;
}

void ScheduleCtrl::SetScheduleAll(bool bOn)
{
    grid.SetAll(bOn);
    Invalidate();
}

int ScheduleCtrl::SetGranularity(int n)
{
    if (!ValidGranularity(n))
        return 0;
    layout.granularity = n;
    DeselectAll();
    return 1;
}

int ScheduleCtrl::SetZoomFactor(int zoom)
{
    if (zoom < 1 || zoom > 10)
        return 0;
    nZoom = zoom;
    Recalc();
    Invalidate();
    return 1;
}

int ScheduleCtrl::SetLabelMargins(int cx, int cy)
{
    if (cx < 0 || cx > 50 || cy < 0 || cy > 50)
        return 0;
    cxMargin = cx;
    cyMargin = cy;
    Recalc();
    Invalidate();
    return 1;
}

int ScheduleCtrl::SetDisplayDays(const Schedule::Day days[7])
{
    if (!days)
        return 0;
    int seen = 0;
    for (int i = 0; i < 7; ++i) {
        if (days[i] < Schedule::Sunday || days[i] > Schedule::Saturday || (seen >> days[i]) & 1)
            return 0;
        seen |= 1 << days[i];
    }
    for (int i = 0; i < 7; ++i)
        displayDays[i] = days[i];
    Recalc();
    UpdateSelectionText();
    Invalidate();
    return 1;
}

void ScheduleCtrl::GetDisplayDays(Schedule::Day days[7]) const
{
    for (int i = 0; i < 7; ++i)
        days[i] = displayDays[i];
}

const wchar_t* ScheduleCtrl::GetDayLabel(int row) const
{
    if (row < 0 || row >= 7)
        return nullptr;
    const int i = Schedule::FindDayIndex(displayDays[row]);
    if (i < 0)
        return nullptr;
    const Schedule::SchDay& d = Schedule::days[i];
    return Schedule::CanDisplayLocalDays() && d.pszLocalName ? d.pszLocalName : d.pszEnglishName;
}

void ScheduleCtrl::SetLegendText(const wchar_t* active, const wchar_t* inactive)
{
    StrCopy(szActive, active);
    StrCopy(szInactive, inactive);
    Invalidate();
}

void ScheduleCtrl::SetClock(const ScheduleClock& c)
{
    clock = c;
    UpdateSelectionText();
    Invalidate();
}

void ScheduleCtrl::SelectAll()
{
    sel.ptStart = POINT{0, 0};
    sel.ptEnd = POINT{ScheduleGrid::kQuarters, ScheduleGrid::kDays};
    UpdateSelectionText();
    Invalidate();
}

void ScheduleCtrl::DeselectAll()
{
    sel.Clear();
    UpdateSelectionText();
    Invalidate();
}

int ScheduleCtrl::ParseSelection(int* q0, int* q1, int* r0, int* r1) const
{
    if (sel.IsEmpty())
        return 0;
    sel.GetRange(q0, q1, r0, r1);
    return 1;
}

int ScheduleCtrl::SetSelection(bool bActive)
{
    int q0, q1, r0, r1;
    if (!ParseSelection(&q0, &q1, &r0, &r1))
        return 0;
    for (int r = r0; r < r1; ++r)
        grid.SetRange(RowDay(r), q0, q1, bActive);
    Invalidate();
    return 1;
}

void ScheduleCtrl::UpdateSelectionText()
{
    const wchar_t* labels[7];
    for (int i = 0; i < 7; ++i)
        labels[i] = GetDayLabel(i);
    FormatSelectionText(sel, clock, labels, szSelText, 256);
}

void ScheduleCtrl::StartSelection(POINT pt)
{
    ptAnchor = POINT{layout.StepAt(pt.x), layout.RowAt(pt.y)};
    sel.FromCells(layout, ptAnchor.x, ptAnchor.y, ptAnchor.x, ptAnchor.y);
    bSelecting = true;
    SetCapture(hWnd);
    // The pointer stays over the cells while the button is down.
    RECT rc;
    GetScheduleClientRect(&rc);
    MapWindowPoints(hWnd, nullptr, reinterpret_cast<POINT*>(&rc), 2);
    ClipCursor(&rc);
    UpdateSelectionText();
    Invalidate();
}

void ScheduleCtrl::UpdateSelection(POINT pt)
{
    if (!bSelecting)
        return;
    sel.FromCells(layout, ptAnchor.x, ptAnchor.y, layout.StepAt(pt.x), layout.RowAt(pt.y));
    UpdateSelectionText();
    Invalidate();
}

void ScheduleCtrl::EndSelection(POINT pt)
{
    if (!bSelecting)
        return;
    UpdateSelection(pt);
    bSelecting = false; // before the release: it reports the capture change back to us
    ClipCursor(nullptr);
    if (GetCapture() == hWnd)
        ReleaseCapture();
}

void ScheduleCtrl::GetScheduleClientRect(RECT* prc) const
{
    prc->left = layout.left;
    prc->top = layout.top;
    prc->right = layout.Right();
    prc->bottom = layout.Bottom();
}

SIZE ScheduleCtrl::GetIdealSize() const
{
    // Labels and grid, then the legend and the selection text, one row each.
    return SIZE{layout.Right() + cxMargin, layout.Bottom() + 2 * layout.rowHeight + 2 * cyMargin};
}

int ScheduleCtrl::DoCommand(UINT id)
{
    switch (id) {
    case kCmdSetActive: return SetSelection(true), 1;
    case kCmdSetInactive: return SetSelection(false), 1;
    case kCmdSelectAll: return SelectAll(), 1;
    case kCmdClearSelection: return DeselectAll(), 1;
    default: return 0;
    }
}

int ScheduleCtrl::OnCommand(WORD id, WORD code, HWND hwndCtl)
{
    (void)code, (void)hwndCtl;
    return DoCommand(id);
}

void ScheduleCtrl::ShowContextMenu(POINT pt)
{
    DMMenu menu;
    if (!menu.CreatePopup())
        return;
    if (!sel.IsEmpty()) {
        wchar_t fmt[128], text[256];
        ResText(IDS_SCHED_SET_SELECTED, L"Set selected to %s", fmt, 128);
        StrFormat(text, fmt, szActive);
        menu.Append(kCmdSetActive, text);
        StrFormat(text, fmt, szInactive);
        menu.Append(kCmdSetInactive, text);
        ResText(IDS_SCHED_CLEAR_SELECTION, L"Clear selection", text, 256);
        menu.Append(kCmdClearSelection, text);
        menu.AppendSeparator();
    }
    wchar_t text[128];
    ResText(IDS_SCHED_SELECT_ALL, L"Select all", text, 128);
    menu.Append(kCmdSelectAll, text);
    ClientToScreen(hWnd, &pt);
    DoCommand(menu.Track(hWnd, pt.x, pt.y, TPM_LEFTALIGN | TPM_TOPALIGN | TPM_RIGHTBUTTON));
}

void ScheduleCtrl::OnKey(UINT vk)
{
    const bool bCtrl = GetKeyState(VK_CONTROL) < 0, bShift = GetKeyState(VK_SHIFT) < 0;
    if (!sel.MoveByKey(vk, bCtrl, bShift, layout.QuartersPerStep())) {
        ScheduleSeams::pfnMessageBeep(MB_OK);
        return;
    }
    UpdateSelectionText();
    Invalidate();
}

LRESULT ScheduleCtrl::OnMessage(UINT msg, WPARAM wp, LPARAM lp)
{
    switch (msg) {
    case WM_GETDLGCODE:
        return DLGC_WANTARROWS;
    case WM_SETTEXT:
        return SetSchedule(reinterpret_cast<const wchar_t*>(lp)) ? TRUE : FALSE;
    case WM_GETTEXTLENGTH:
        return GetSchedule(nullptr, 0);
    case WM_GETTEXT: {
        wchar_t* buf = reinterpret_cast<wchar_t*>(lp);
        const unsigned cch = wp > 0xFFFFFFFFu ? 0xFFFFFFFFu : (unsigned)wp;
        if (!buf || !cch)
            return 0;
        return StrLen((GetSchedule(buf, cch), buf));
    }
    case WM_LBUTTONDOWN: {
        SetFocus(hWnd);
        const POINT pt = {GET_X_LPARAM(lp), GET_Y_LPARAM(lp)};
        RECT rc;
        GetScheduleClientRect(&rc);
        if (PtInRect(&rc, pt))
            StartSelection(pt);
        return 0;
    }
    case WM_MOUSEMOVE:
        if (bSelecting)
            UpdateSelection(POINT{GET_X_LPARAM(lp), GET_Y_LPARAM(lp)});
        return 0;
    case WM_LBUTTONUP:
        EndSelection(POINT{GET_X_LPARAM(lp), GET_Y_LPARAM(lp)});
        return 0;
    case WM_CAPTURECHANGED:
        // Capture taken away (another window, a menu): the selection stays as it is.
        if (bSelecting) {
            bSelecting = false;
            ClipCursor(nullptr);
        }
        return 0;
    case WM_CONTEXTMENU: {
        POINT pt = {GET_X_LPARAM(lp), GET_Y_LPARAM(lp)};
        if (lp == -1) { // from the keyboard: at the grid's top-left corner
            pt = POINT{layout.left, layout.top};
        } else {
            ScreenToClient(hWnd, &pt);
        }
        ShowContextMenu(pt);
        return 0;
    }
    case WM_KEYDOWN:
        if (wp == VK_LEFT || wp == VK_RIGHT || wp == VK_UP || wp == VK_DOWN) {
            OnKey((UINT)wp);
            return 0;
        }
        break;
    case WM_SETFOCUS:
    case WM_KILLFOCUS:
        Invalidate();
        break;
    case WM_SETTINGCHANGE:
    case WM_SYSCOLORCHANGE:
        UpdateTools();
        Invalidate();
        break;
    case WM_ERASEBKGND:
        return 1; // painted whole in WM_PAINT
    default:
        break;
    }
    return DMWnd::OnMessage(msg, wp, lp);
}

int ScheduleCtrl::OnPaint()
{
    PAINTSTRUCT ps;
    HDC dc = BeginPaint(hWnd, &ps);
    if (!dc)
        return 1;
    RECT rc;
    GetClientRect(hWnd, &rc);
    // Drawn into memory first, so the grid does not flicker while the mouse drags.
    MemoryDc mem(CreateCompatibleDC(dc));
    GdiBitmap bmp(mem ? CreateCompatibleBitmap(dc, rc.right > 0 ? rc.right : 1, rc.bottom > 0 ? rc.bottom : 1)
                      : nullptr);
    if (mem && bmp) {
        DcSelection selBmp(mem.Get(), bmp.Get());
        Draw(mem.Get(), rc);
        BitBlt(dc, 0, 0, rc.right, rc.bottom, mem.Get(), 0, 0, SRCCOPY);
    } else {
        Draw(dc, rc);
    }
    EndPaint(hWnd, &ps);
    return 1;
}

void ScheduleCtrl::Draw(HDC dc, const RECT& rcClient) const
{
    FillRect(dc, &rcClient, brFace.Get() ? brFace.Get() : GetSysColorBrush(COLOR_BTNFACE));
    DcSelection selFont(dc, GetStockObject(DEFAULT_GUI_FONT));
    SetBkMode(dc, TRANSPARENT);
    SetTextColor(dc, GetSysColor(COLOR_BTNTEXT));

    // Hour labels: every n-th hour, n the smallest that leaves room for the widest label.
    int widest = 0;
    wchar_t text[256];
    for (int h = 0; h < ScheduleGrid::kHours; ++h) {
        SIZE sz;
        const unsigned n = clock.FormatTime(h * 4, text, 32);
        if (GetTextExtentPoint32W(dc, text, (int)n, &sz) && sz.cx > widest)
            widest = sz.cx;
    }
    static const int every[] = {1, 2, 3, 4, 6, 12};
    int nEvery = 12;
    for (int n : every)
        if (n * layout.ColumnWidth() >= widest + 4) {
            nEvery = n;
            break;
        }
    for (int h = 0; h < ScheduleGrid::kHours; h += nEvery) {
        const unsigned n = clock.FormatTime(h * 4, text, 32);
        const int x = layout.XOfQuarter(h * 4);
        SIZE sz;
        if (GetTextExtentPoint32W(dc, text, (int)n, &sz) && x + sz.cx > rcClient.right)
            break;
        TextOutW(dc, x + 1, cyMargin, text, (int)n);
    }

    // Day labels and cells.
    int q0 = 0, q1 = 0, r0 = 0, r1 = 0;
    const bool bSel = ParseSelection(&q0, &q1, &r0, &r1) != 0;
    for (int row = 0; row < ScheduleGrid::kDays; ++row) {
        const wchar_t* label = GetDayLabel(row);
        const int y = layout.YOfRow(row);
        if (label)
            TextOutW(dc, cxMargin, y + cyMargin, label, (int)StrLen(label));
        for (int q = 0; q < ScheduleGrid::kQuarters; ++q) {
            const bool bOn = grid.IsQuarterOn(RowDay(row), q);
            const bool bIn = bSel && row >= r0 && row < r1 && q >= q0 && q < q1;
            RECT cell = {layout.XOfQuarter(q), y, layout.XOfQuarter(q + 1), y + layout.rowHeight};
            HBRUSH br = bOn ? (bIn ? brActiveSel.Get() : brActive.Get())
                            : (bIn ? GetSysColorBrush(COLOR_BTNSHADOW) : brInactive.Get());
            FillRect(dc, &cell, br);
        }
    }

    // Lines: solid between hours and days, dotted between the selectable parts of an hour.
    {
        DcSelection selPen(dc, penDotted.Get());
        for (int s = 0; s < ScheduleGrid::kHours * layout.granularity; ++s) {
            if (s % layout.granularity == 0)
                continue;
            const int x = layout.left + s * layout.Step();
            MoveToEx(dc, x, layout.top, nullptr);
            LineTo(dc, x, layout.Bottom());
        }
    }
    {
        DcSelection selPen(dc, penSolid.Get());
        for (int h = 0; h <= ScheduleGrid::kHours; ++h) {
            const int x = layout.XOfQuarter(h * 4);
            MoveToEx(dc, x, layout.top, nullptr);
            LineTo(dc, x, layout.Bottom() + 1);
        }
        for (int row = 0; row <= ScheduleGrid::kDays; ++row) {
            const int y = layout.YOfRow(row);
            MoveToEx(dc, layout.left, y, nullptr);
            LineTo(dc, layout.Right() + 1, y);
        }
    }
    DrawSelection(dc);

    // Legend, then the words for the selection.
    int y = layout.Bottom() + cyMargin + 2;
    int x = cxMargin;
    SIZE sz;
    ResText(IDS_SCHED_LEGEND, L"Legend:", text, 64);
    TextOutW(dc, x, y + cyMargin, text, (int)StrLen(text));
    if (GetTextExtentPoint32W(dc, text, (int)StrLen(text), &sz))
        x += sz.cx + 8;
    for (int i = 0; i < 2; ++i) {
        const wchar_t* legend = i == 0 ? szActive : szInactive;
        RECT swatch = {x, y + cyMargin + 1, x + cyText - 2, y + cyMargin + cyText - 1};
        FillRect(dc, &swatch, i == 0 ? brActive.Get() : brInactive.Get());
        FrameRect(dc, &swatch, static_cast<HBRUSH>(GetStockObject(GRAY_BRUSH)));
        x = swatch.right + 4;
        TextOutW(dc, x, y + cyMargin, legend, (int)StrLen(legend));
        if (GetTextExtentPoint32W(dc, legend, (int)StrLen(legend), &sz))
            x += sz.cx + 12;
    }
    y += layout.rowHeight;
    RECT rcText = {cxMargin, y + cyMargin, rcClient.right - cxMargin, rcClient.bottom};
    DrawTextW(dc, szSelText, -1, &rcText, DT_LEFT | DT_SINGLELINE | DT_END_ELLIPSIS | DT_NOPREFIX);

    if (GetFocus() == hWnd) {
        RECT rcFocus = rcClient;
        DrawFocusRect(dc, &rcFocus);
    }
}

void ScheduleCtrl::DrawSelection(HDC dc) const
{
    int q0, q1, r0, r1;
    if (!ParseSelection(&q0, &q1, &r0, &r1))
        return;
    RECT rc = {layout.XOfQuarter(q0), layout.YOfRow(r0), layout.XOfQuarter(q1) + 1, layout.YOfRow(r1) + 1};
    HBRUSH black = static_cast<HBRUSH>(GetStockObject(BLACK_BRUSH));
    FrameRect(dc, &rc, black);
    InflateRect(&rc, -1, -1);
    FrameRect(dc, &rc, black);
}
