// DMStaticHTML: a static control of a dialog template that shows rich text (the markup of
// HtmlMarkup.h) and turns its links into clickable areas.
//
// Attach it to the static control (DMWnd::Attach) and give it its text (SetHTMLText, or
// WM_SETTEXT). Over a link the cursor is a hand and the label repaints once on entering and once
// on leaving it. A click on a link reaches the parent:
//   - "<A>" carries the control's own id: the parent gets the static's usual click notification
//     (WM_COMMAND with STN_CLICKED from the control), as if the label itself had been clicked;
//   - "<A1>" ... "<A9>" carry the next ids: the parent gets WM_COMMAND with that id, posted, as if
//     a control of that id had been pressed (an "<A1>" in control 1023 arrives as command 1024).
// Space or Enter released while the label has the focus and links presses the label itself.
// Elsewhere the label is transparent to the mouse unless it has the notify style (SS_NOTIFY).
#pragma once
#include <windows.h>

#include "ui/DMWnd.h"
#include "ui/DrawHTML.h"

class DMStaticHTML : public DMWnd {
public:
    DMStaticHTML();
    ~DMStaticHTML() override;

    // Binds the static control and prepares the tools; the control's current text is kept.
    // Nonzero on success.
    int Attach(HWND hwndStatic);

    // The text: a string, or the string resource of id (a missing resource gives an empty text).
    void SetHTMLText(const wchar_t* text);
    void SetHTMLText(UINT nResourceId);
    const wchar_t* GetHTMLText() const { return pszText ? pszText : L""; }
    unsigned GetHTMLTextLength() const;
    // The text without its tags (what a reader sees), into buf of cch characters.
    unsigned GetHTMLTextStripTags(wchar_t* buf, unsigned cch) const;

    void SetTextColor(COLORREF cr);
    COLORREF GetTextColor() const { return tools.GetTextColor(); }
    void SetLinkColor(COLORREF cr);
    COLORREF GetLinkColor() const { return tools.GetLinkColor(); }
    void SetBkgColor(COLORREF cr);
    COLORREF GetBkgColor() const { return tools.GetBkgColor(); }
    void SetFixedFont(BOOL bFixed);

    // The height the text needs at the control's current width, in pixels.
    int CalcHeight();
    // Repaints with the text as it is.
    void UpdateText();
    // Wraps the control's current text (at most 253 characters) in "<a>" and "</a>".
    void MakeLink();
    // Formats the control's current text (at most 256 characters) into format ("<b>%s</b>", ...)
    // and shows the result.
    void MakeHtml(const wchar_t* format);

    // The links of the last paint, for tests and for callers that lay out around them.
    const DrawHTMLLinks& GetLinks() const { return links; }

protected:
    LRESULT OnMessage(UINT msg, WPARAM wp, LPARAM lp) override;
    virtual void OnInit();
    // Rebuilds the tools from the system settings and tells the children (none of a label's own,
    // but a derived control may have some).
    virtual void OnSystemSettingChange(WPARAM wp, LPARAM lp);
    int OnPaint() override;
    virtual LRESULT OnWndMessage(UINT msg, WPARAM wp, LPARAM lp);

private:
    // The id of the link under a client point, or 0.
    int LinkAt(int x, int y) const;
    void ReportClick(int nLinkId);
    void StoreText(const wchar_t* text);

    DrawHTML renderer;
    DrawHTMLTools tools;
    DrawHTMLLinks links;
    wchar_t* pszText = nullptr;
    int nHoverId = 0;
    bool bTracking = false;
};
