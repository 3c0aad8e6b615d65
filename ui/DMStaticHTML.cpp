#include "ui/DMStaticHTML.h"

#include <windowsx.h>

#include "base/Resources.h"
#include "base/StrUtil.h"

namespace {

// How long the pointer rests on a link before the hover notice, in milliseconds.
const DWORD kHoverMs = 100;
// The longest text a string resource gives a label.
const unsigned kMaxResourceText = 2048;

} // namespace

DMStaticHTML::DMStaticHTML() = default;

DMStaticHTML::~DMStaticHTML() { StrRelease(pszText); }

int DMStaticHTML::Attach(HWND hwndStatic)
{
    if (!DMWnd::Attach(hwndStatic))
        return 0;
    OnInit();
    return 1;
}

void DMStaticHTML::OnInit()
{
    tools.Update();
    renderer.SetLinkCmdID(GetDlgCtrlID(hWnd));
    // The text of the dialog template is the label's first text.
    const int n = GetWindowTextLengthW(hWnd);
    if (n > 0) {
        HeapBuf<wchar_t> buf((size_t)n + 1);
        if (buf.p && GetWindowTextW(hWnd, buf.p, n + 1) >= 0)
            StoreText(buf.p);
    }
}

void DMStaticHTML::StoreText(const wchar_t* text)
{
    wchar_t* copy = StrDup(text ? text : L"");
    if (!copy)
        return; // out of memory: the label keeps its old text
    StrRelease(pszText);
    pszText = copy;
}

void DMStaticHTML::SetHTMLText(const wchar_t* text)
{
    if (hWnd)
        SetWindowTextW(hWnd, text ? text : L""); // WM_SETTEXT stores and repaints
    else
        StoreText(text);
}

void DMStaticHTML::SetHTMLText(UINT nResourceId)
{
    HeapBuf<wchar_t> buf(kMaxResourceText);
    if (!buf.p)
        return;
    if (LoadResString((int)nResourceId, buf.p, kMaxResourceText) <= 0)
        buf.p[0] = 0;
    SetHTMLText(buf.p);
}

unsigned DMStaticHTML::GetHTMLTextLength() const { return StrLen(pszText); }

unsigned DMStaticHTML::GetHTMLTextStripTags(wchar_t* buf, unsigned cch) const
{
    return DrawHTML::GetHTMLTextStripTags(GetHTMLText(), buf, cch);
}

void DMStaticHTML::SetTextColor(COLORREF cr)
{
    tools.SetTextColor(cr);
    UpdateText();
}

void DMStaticHTML::SetLinkColor(COLORREF cr)
{
    tools.SetLinkColor(cr);
    UpdateText();
}

void DMStaticHTML::SetBkgColor(COLORREF cr)
{
    tools.SetBkgColor(cr);
    UpdateText();
}

void DMStaticHTML::SetFixedFont(BOOL bFixed)
{
    tools.SetFixedFont(bFixed);
    UpdateText();
}

int DMStaticHTML::CalcHeight()
{
    RECT client;
    if (!hWnd || !GetClientRect(hWnd, &client))
        return 0;
    const RECT rc = DrawHTML::GetTextRect(client, FALSE);
    HDC dc = GetDC(hWnd);
    if (!dc)
        return 0;
    DrawHTMLLinks measured;
    int height = renderer.Draw(DrawHTML::kMeasure, dc, &rc, GetHTMLText(), GetHTMLTextLength(), &measured, &tools);
    ReleaseDC(hWnd, dc);
    return height;
}

void DMStaticHTML::UpdateText()
{
    if (hWnd)
        InvalidateRect(hWnd, nullptr, TRUE);
}

void DMStaticHTML::MakeLink()
{
    wchar_t current[254], html[262];
    StrCopy(current, GetHTMLText());
    StrFormat(html, L"<a>%s</a>", current);
    SetHTMLText(html);
}

void DMStaticHTML::MakeHtml(const wchar_t* format)
{
    wchar_t current[257], html[1024];
    StrCopy(current, GetHTMLText());
    StrFormat(html, format ? format : L"%s", current);
    SetHTMLText(html);
}

int DMStaticHTML::LinkAt(int x, int y) const
{
    RECT client;
    if (!GetClientRect(hWnd, &client))
        return 0;
    const RECT rc = DrawHTML::GetTextRect(client, FALSE);
    const DrawHTMLLinkArea* area = DrawHTML::FindLinkArea(&links, x - rc.left, y - rc.top);
    return area ? area->GetCmdID() : 0;
}

void DMStaticHTML::ReportClick(int nLinkId)
{
    const int own = GetDlgCtrlID(hWnd);
    HWND parent = GetParent(hWnd);
    if (!parent)
        return;
    if (nLinkId == own)
        SendMessageW(parent, WM_COMMAND, MAKEWPARAM(own, STN_CLICKED), (LPARAM)hWnd);
    else
        PostMessageW(parent, WM_COMMAND, MAKEWPARAM(nLinkId, BN_CLICKED), (LPARAM)hWnd);
}

void DMStaticHTML::OnSystemSettingChange(WPARAM wp, LPARAM lp)
{
    for (HWND child = GetWindow(hWnd, GW_CHILD); child; child = GetWindow(child, GW_HWNDNEXT))
        SendMessageW(child, WM_SETTINGCHANGE, wp, lp);
    tools.Update();
    UpdateText();
}

int DMStaticHTML::OnPaint()
{
    PAINTSTRUCT ps;
    HDC dc = BeginPaint(hWnd, &ps);
    if (!dc)
        return 1;
    renderer.OnPaint(hWnd, dc, GetHTMLText(), GetHTMLTextLength(), TRUE, FALSE, &links, &tools);
    if (GetFocus() == hWnd && links.GetCount()) {
        RECT client;
        GetClientRect(hWnd, &client);
        DrawFocusRect(dc, &client);
    }
    EndPaint(hWnd, &ps);
    return 1;
}

LRESULT DMStaticHTML::OnWndMessage(UINT msg, WPARAM wp, LPARAM lp) { return DMWnd::OnMessage(msg, wp, lp); }

LRESULT DMStaticHTML::OnMessage(UINT msg, WPARAM wp, LPARAM lp)
{
    switch (msg) {
    case WM_NCHITTEST: {
        POINT pt = {GET_X_LPARAM(lp), GET_Y_LPARAM(lp)};
        ScreenToClient(hWnd, &pt);
        const int id = LinkAt(pt.x, pt.y);
        if (id != nHoverId) {
            nHoverId = id;
            UpdateText(); // once on entering a link, once on leaving it
        }
        if (id) {
            if (!bTracking) {
                TRACKMOUSEEVENT tme = {sizeof(tme), TME_LEAVE | TME_HOVER, hWnd, kHoverMs};
                bTracking = TrackMouseEvent(&tme) != 0;
            }
            return HTCLIENT; // a link is always clickable
        }
        return (GetWindowLongW(hWnd, GWL_STYLE) & SS_NOTIFY) ? HTCLIENT : HTTRANSPARENT;
    }
    case WM_MOUSELEAVE:
        bTracking = false;
        if (nHoverId) {
            nHoverId = 0;
            UpdateText();
        }
        return 0;
    case WM_SETCURSOR:
        if (nHoverId) {
            SetCursor(LoadCursorW(nullptr, IDC_HAND));
            return TRUE;
        }
        break;
    case WM_LBUTTONDOWN:
    case WM_LBUTTONDBLCLK:
        if (const int id = LinkAt(GET_X_LPARAM(lp), GET_Y_LPARAM(lp))) {
            ReportClick(id);
            return 0;
        }
        break;
    case WM_KEYUP:
        if ((wp == VK_SPACE || wp == VK_RETURN) && links.GetCount()) {
            ReportClick(GetDlgCtrlID(hWnd));
            return 0;
        }
        break;
    case WM_GETDLGCODE: {
        LRESULT code = DefaultProc(msg, wp, lp);
        const MSG* m = reinterpret_cast<const MSG*>(lp);
        if (links.GetCount() && m && (m->wParam == VK_SPACE || m->wParam == VK_RETURN))
            code |= DLGC_WANTMESSAGE;
        return code;
    }
    case WM_SETTEXT: {
        StoreText(reinterpret_cast<const wchar_t*>(lp));
        LRESULT r = DefaultProc(msg, wp, lp);
        UpdateText();
        return r;
    }
    case WM_SETFOCUS:
    case WM_KILLFOCUS:
        UpdateText();
        break;
    case WM_SETTINGCHANGE:
    case WM_SYSCOLORCHANGE:
        OnSystemSettingChange(wp, lp);
        break;
    case WM_ERASEBKGND:
        return 1; // the paint fills the background itself, without flicker
    default:
        break;
    }
    return OnWndMessage(msg, wp, lp);
}
