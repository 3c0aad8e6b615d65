#include "ui/DrawHTML.h"

#include <cmath>
#include <new>
#include <utility>

#include "base/Resources.h"

namespace {

// The layout's canvas over a device context. Restores the DC's font, text colour and background
// mode when it goes.
class GdiCanvas : public HtmlCanvas {
public:
    GdiCanvas(HDC hdc, const DrawHTMLTools& tools) : hdc(hdc), tools(tools), base(tools.GetStyle().font)
    {
        nOldBkMode = SetBkMode(hdc, TRANSPARENT);
        crOld = ::SetTextColor(hdc, tools.GetTextColor());
        crCurrent = tools.GetTextColor();
    }
    ~GdiCanvas() override
    {
        if (hOldFont)
            SelectObject(hdc, hOldFont); // before ownedFont goes: never delete a selected font
        ::SetTextColor(hdc, crOld);
        if (nOldBkMode)
            SetBkMode(hdc, nOldBkMode);
    }
    GdiCanvas(const GdiCanvas&) = delete;
    GdiCanvas& operator=(const GdiCanvas&) = delete;

    void SelectFont(const HtmlFont& f) override
    {
        GdiFont created;
        HFONT h = tools.GetFont();
        if (f != base || !h) {
            LOGFONTW lf = tools.GetLogFont();
            lf.lfHeight = f.nHeight;
            lf.lfWeight = f.nWeight;
            lf.lfItalic = f.bItalic ? TRUE : FALSE;
            lf.lfUnderline = f.bUnderline ? TRUE : FALSE;
            lf.lfStrikeOut = f.bStrike ? TRUE : FALSE;
            lf.lfQuality = (BYTE)f.nQuality;
            created = GdiFont(CreateFontIndirectW(&lf));
            if (!created)
                return; // the previous font stays
            h = created.Get();
        }
        HGDIOBJ prev = SelectObject(hdc, h);
        if (!prev || prev == HGDI_ERROR)
            return;
        if (!hOldFont)
            hOldFont = prev;
        ownedFont = std::move(created); // the font it replaces is no longer selected
    }

    HtmlSize MeasureText(const wchar_t* p, unsigned n) override
    {
        HtmlSize s;
        SIZE sz;
        if (n && GetTextExtentPoint32W(hdc, p, (int)n, &sz)) {
            s.cx = sz.cx;
            s.cy = sz.cy;
        }
        return s;
    }

    void DrawText(int x, int y, const wchar_t* p, unsigned n, HtmlColor color) override
    {
        if (color != crCurrent) {
            ::SetTextColor(hdc, color);
            crCurrent = color;
        }
        // Every character goes exactly where MeasureText put it: the layout placed the next blank
        // and word, the link's area and its underline after this run's measured width. Left to
        // its own advances, Wine draws small text narrower or wider than the extents it reports,
        // so blanks came out doubled ("running ,") or covered ("off:CORP"). On Windows both
        // agree and nothing moves.
        HeapBuf<INT> advances(n);
        const INT* dx = nullptr;
        SIZE extent;
        if (advances.p && GetTextExtentExPointW(hdc, p, (int)n, 0, nullptr, advances.p, &extent)) {
            for (unsigned i = n; i-- > 1;)
                advances.p[i] -= advances.p[i - 1]; // partial extents become the distances between origins
            dx = advances.p;
        }
        ExtTextOutW(hdc, x, y, 0, nullptr, p, n, dx);
    }

    HtmlSize GetIconSize() override
    {
        HtmlSize s;
        s.cx = GetSystemMetrics(SM_CXSMICON);
        s.cy = GetSystemMetrics(SM_CYSMICON);
        return s;
    }

    void DrawIcon(int x, int y, int nId) override
    {
        if (nId == 0 || nId < -65535 || nId > 65535)
            return;
        // A negative id names an icon of the library itself, a positive one the application's.
        HINSTANCE module = nId < 0 ? GetResourceModule() : GetModuleHandleW(nullptr);
        const int id = nId < 0 ? -nId : nId;
        const HtmlSize s = GetIconSize();
        IconOwner icon((HICON)LoadImageW(module, MAKEINTRESOURCEW(id), IMAGE_ICON, s.cx, s.cy, LR_DEFAULTCOLOR));
        if (icon)
            DrawIconEx(hdc, x, y, icon.Get(), s.cx, s.cy, 0, nullptr, DI_NORMAL);
    }

private:
    HDC hdc;
    const DrawHTMLTools& tools;
    const HtmlFont base;
    GdiFont ownedFont;
    HGDIOBJ hOldFont = nullptr;
    int nOldBkMode = 0;
    COLORREF crOld = 0, crCurrent = 0;
};

// The system's dialog font: the message font of the non-client metrics, else the stock GUI font.
bool GetDialogFont(LOGFONTW* plf)
{
    NONCLIENTMETRICSW ncm = {};
    ncm.cbSize = sizeof(ncm);
    if (SystemParametersInfoW(SPI_GETNONCLIENTMETRICS, sizeof(ncm), &ncm, 0)) {
        *plf = ncm.lfMessageFont;
        return true;
    }
    return GetObjectW(GetStockObject(DEFAULT_GUI_FONT), sizeof(*plf), plf) == sizeof(*plf);
}

} // namespace

namespace {

// The relative luminance of a colour (sRGB, 0..1), as contrast between colours is measured.
double Luminance(COLORREF c)
{
    auto channel = [](int v) {
        const double s = v / 255.0;
        return s <= 0.03928 ? s / 12.92 : std::pow((s + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * channel(GetRValue(c)) + 0.7152 * channel(GetGValue(c)) + 0.0722 * channel(GetBValue(c));
}

} // namespace

COLORREF DrawHTMLTools::ReadableLinkColor(COLORREF hot, COLORREF background)
{
    double a = Luminance(hot), b = Luminance(background);
    if (a < b)
        std::swap(a, b);
    return (a + 0.05) / (b + 0.05) >= 3.0 ? hot : kLinkBlue;
}

DrawHTMLTools::DrawHTMLTools() { Update(); }

int DrawHTMLTools::Update()
{
    if (!bOwnText)
        crText = GetSysColor(COLOR_WINDOWTEXT);
    if (!bOwnLink)
        crLink = GetSystemLinkColor();
    if (!bOwnBkg)
        crBkg = GetSysColor(COLOR_BTNFACE);
    return RebuildFont();
}

void DrawHTMLTools::SetTextColor(COLORREF cr)
{
    crText = cr;
    bOwnText = true;
}

void DrawHTMLTools::SetLinkColor(COLORREF cr)
{
    crLink = cr;
    bOwnLink = true;
}

void DrawHTMLTools::SetBkgColor(COLORREF cr)
{
    crBkg = cr;
    bOwnBkg = true;
}

int DrawHTMLTools::SetFixedFont(BOOL bFixed)
{
    bFixedFont = bFixed ? TRUE : FALSE;
    return RebuildFont();
}

int DrawHTMLTools::SetCustomFont(const LOGFONTW* plf)
{
    bCustomFont = plf != nullptr;
    if (plf)
        lfCustom = *plf;
    return RebuildFont();
}

int DrawHTMLTools::RebuildFont()
{
    LOGFONTW lf = {};
    if (bCustomFont) {
        lf = lfCustom;
    } else {
        if (!GetDialogFont(&lf)) {
            lf = LOGFONTW();
            lf.lfWeight = FW_NORMAL;
            lf.lfCharSet = DEFAULT_CHARSET;
        }
        if (bFixedFont) {
            lf.lfPitchAndFamily = FIXED_PITCH | FF_MODERN;
            lstrcpynW(lf.lfFaceName, L"Courier New", LF_FACESIZE);
        }
    }
    // The markup's size tags change the height's magnitude: the face's default (0) has none, so
    // it is resolved to 8 points on the screen.
    if (lf.lfHeight == 0) {
        WindowDc screen(nullptr);
        const int dpi = screen.Get() ? GetDeviceCaps(screen.Get(), LOGPIXELSY) : 96;
        lf.lfHeight = -MulDiv(8, dpi > 0 ? dpi : 96, 72);
    }
    if (lf.lfWeight == 0)
        lf.lfWeight = FW_NORMAL;
    GdiFont created(CreateFontIndirectW(&lf));
    if (!created)
        return 0;
    font = std::move(created);
    lfFont = lf;
    return 1;
}

HtmlStyle DrawHTMLTools::GetStyle() const
{
    HtmlStyle s;
    s.font.nHeight = lfFont.lfHeight;
    s.font.nWeight = lfFont.lfWeight;
    s.font.nQuality = lfFont.lfQuality;
    s.font.bItalic = lfFont.lfItalic != 0;
    s.font.bUnderline = lfFont.lfUnderline != 0;
    s.font.bStrike = lfFont.lfStrikeOut != 0;
    s.crText = crText;
    s.crLink = crLink;
    return s;
}

int DrawHTML::Draw(int nMode, HDC hdc, const RECT* prc, const wchar_t* text, unsigned length, DrawHTMLLinks* links,
                   const DrawHTMLTools* tools)
{
    if (!hdc || !prc || !tools) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    CritSecLock lock(critSec);
    try {
        GdiCanvas canvas(hdc, *tools);
        return Layout(nMode, canvas, *prc, text, length, links, tools->GetStyle());
    } catch (...) {
        // Only memory for the tag stack or the links can fail; the links may be incomplete.
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return 0;
    }
}

RECT DrawHTML::GetTextRect(const RECT& client, BOOL bBorder)
{
    RECT rc = client;
    if (bBorder)
        InflateRect(&rc, -kFrameWidth, -kFrameWidth);
    return rc;
}

int DrawHTML::OnPaint(HWND hwnd, HDC hdc, const wchar_t* text, unsigned length, BOOL bErase, BOOL bBorder,
                      DrawHTMLLinks* links, const DrawHTMLTools* tools)
{
    RECT client;
    if (!hdc || !tools || !GetClientRect(hwnd, &client)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    // Both passes under one lock: another thread's measuring pass must not replace the line
    // table between this one's passes (the lock is re-entrant, so Draw takes it again).
    CritSecLock lock(critSec);
    try {
        if (bErase) {
            GdiBrush brush(CreateSolidBrush(tools->GetBkgColor()));
            if (brush)
                FillRect(hdc, &client, brush.Get());
        }
        if (bBorder) {
            RECT frame = client;
            DrawEdge(hdc, &frame, EDGE_SUNKEN, BF_RECT);
        }
        if (!text || !length || !*text) {
            if (links)
                links->Reset();
            return 0;
        }
        const RECT rc = GetTextRect(client, bBorder);
        ClearLineHeights();
        MemoryDc memory(CreateCompatibleDC(hdc));
        if (memory) {
            Draw(kMeasure, memory.Get(), &rc, text, length, links, tools);
        } else {
            WindowDc screen(nullptr);
            if (screen.Get())
                Draw(kMeasure, screen.Get(), &rc, text, length, links, tools);
        }
        return Draw(kPaint, hdc, &rc, text, length, links, tools);
    } catch (...) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return 0;
    }
}
