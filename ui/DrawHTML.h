// DrawHTML: the renderer of every rich text in the program's windows (status lines, links in
// labels, message boxes, the about page), drawing the markup of HtmlMarkup.h with GDI.
//
// A static control that shows such a text keeps one DrawHTML, one DrawHTMLTools and one
// DrawHTMLLinks, and:
// - paints with OnPaint(its window, the paint DC, text, length, erase, border, &links, &tools);
// - sets its own control id as the link base (SetLinkCmdID) so that "<A>" is its own click and
//   "<A1>".."<A9>" are the ids after it;
// - hit-tests mouse positions (client coordinates minus the frame, see GetTextRect) with
//   IsLinkArea / GetLinkAreaID / FindLinkArea against the links of the last paint;
// - measures its height for a width with Draw(kMeasure, ...) on any DC;
// - calls tools.Update() when the system settings change.
#pragma once
#include <windows.h>

#include "base/Thread.h"
#include "ui/GdiOwner.h"
#include "ui/HtmlLayout.h"

// The drawing tools handed to every draw: colours and the font. Colours follow the system until
// the owner sets them; Update then leaves the owner's colours alone.
class DrawHTMLTools {
public:
    // The default link colour: the system's hyperlink colour (COLOR_HOTLIGHT), the blue that
    // Windows itself uses for links, so links look alike in every window of the system; but
    // only while it stands out from the background: some colour schemes give it a pale grey
    // that would make links all but invisible, and then the classic link blue is used.
    static COLORREF GetSystemLinkColor() { return ReadableLinkColor(GetSysColor(COLOR_HOTLIGHT), GetSysColor(COLOR_BTNFACE)); }
    // hot when its contrast with the background is at least 3:1 (the least that text needs to be
    // told apart), else kLinkBlue.
    static COLORREF ReadableLinkColor(COLORREF hot, COLORREF background);
    static constexpr COLORREF kLinkBlue = RGB(0, 102, 204);

    DrawHTMLTools();
    DrawHTMLTools(const DrawHTMLTools&) = delete; // owns its font
    DrawHTMLTools& operator=(const DrawHTMLTools&) = delete;

    // Rebuilds the font and the colours that follow the system: the dialog font (the system's
    // message font), the window text colour, the dialog background and the hyperlink colour.
    // 0 when no font could be made (the previous one, if any, stays).
    int Update();

    void SetTextColor(COLORREF cr);
    COLORREF GetTextColor() const { return crText; }
    void SetLinkColor(COLORREF cr);
    COLORREF GetLinkColor() const { return crLink; }
    void SetBkgColor(COLORREF cr);
    COLORREF GetBkgColor() const { return crBkg; }

    HFONT GetFont() const { return font.Get(); }
    // The description of GetFont (its height is never 0: the face's default is resolved).
    const LOGFONTW& GetLogFont() const { return lfFont; }
    // A fixed-pitch face of the same size, for texts laid out in columns.
    int SetFixedFont(BOOL bFixed);
    BOOL IsFixedFont() const { return bFixedFont; }
    // A font of the owner's choice instead of the system's; null goes back to the system's.
    int SetCustomFont(const LOGFONTW* plf);

    // What a draw starts with.
    HtmlStyle GetStyle() const;

private:
    int RebuildFont();

    COLORREF crText = 0, crLink = 0, crBkg = 0;
    bool bOwnText = false, bOwnLink = false, bOwnBkg = false;
    BOOL bFixedFont = FALSE;
    bool bCustomFont = false;
    LOGFONTW lfCustom = {};
    LOGFONTW lfFont = {};
    GdiFont font;
};

class DrawHTML : public HtmlLayout {
public:
    static constexpr int kFrameWidth = 2;

    DrawHTML() = default;

    // Draws (kPaint) or only measures (kMeasure) length characters of text into *prc on hdc with
    // the tools' font and colours; links receives the links (may be null). Returns the height
    // used; 0 on bad arguments (ERROR_INVALID_PARAMETER) or when memory ran out.
    int Draw(int nMode, HDC hdc, const RECT* prc, const wchar_t* text, unsigned length, DrawHTMLLinks* links,
             const DrawHTMLTools* tools);

    // Paints a whole control: the background in the tools' colour when bErase, a sunken
    // 2-pixel frame when bBorder, then the text inside the frame (measured on a memory DC
    // compatible with hdc first, so that every line knows its height before its first word).
    // Returns the text's height, 0 when there was no text or nothing could be drawn.
    int OnPaint(HWND hwnd, HDC hdc, const wchar_t* text, unsigned length, BOOL bErase, BOOL bBorder,
                DrawHTMLLinks* links, const DrawHTMLTools* tools);

    // The rectangle the text of a control is drawn into (link coordinates are relative to its
    // top-left corner).
    static RECT GetTextRect(const RECT& client, BOOL bBorder);

private:
    CritSec critSec; // one draw at a time: the line table and the tag stack are the renderer's
};
