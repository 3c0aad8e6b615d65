// The rich label on a real static control: its text, link clicks reaching the parent as the
// label's own click or as the next ids' commands, the keyboard press, the hit test that makes
// only links (or a notify label) take the mouse, and the text helpers.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ui/DMStaticHTML.h"

namespace {

typedef std::vector<std::pair<WORD, WORD>> Commands; // id, notification code

class Parent : public DMWnd {
public:
    Commands commands;

protected:
    int OnCommand(WORD id, WORD code, HWND) override { return commands.push_back({id, code}), 1; }
};

// A label with id 1023 in a parent window; markup set and painted, so that its links are known.
struct Label {
    Parent parent;
    DMStaticHTML html;
    HWND hwnd = nullptr;
    Label(DWORD style, const wchar_t* markup)
    {
        RECT rc = {0, 0, 400, 200};
        EXPECT_NE(0, parent.Create(nullptr, L"parent", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 0, &rc));
        hwnd = CreateWindowExW(0, L"STATIC", L"", WS_CHILD | WS_VISIBLE | style, 0, 0, 300, 100, parent.GetHwnd(),
                               (HMENU)(UINT_PTR)1023, nullptr, nullptr);
        EXPECT_NE(0, html.Attach(hwnd));
        html.SetHTMLText(markup);
        RedrawWindow(hwnd, nullptr, nullptr, RDW_INVALIDATE | RDW_UPDATENOW | RDW_ERASE);
    }
    LPARAM LinkPoint(size_t i)
    {
        const RECT r = html.GetLinks().Get(i)->GetRects().at(0);
        return MAKELPARAM(r.left + 1, r.top + 1);
    }
    LRESULT HitTest(LPARAM client)
    {
        POINT pt = {(short)LOWORD(client), (short)HIWORD(client)};
        ClientToScreen(hwnd, &pt);
        return SendMessageW(hwnd, WM_NCHITTEST, 0, MAKELPARAM(pt.x, pt.y));
    }
};

TEST(DMStaticHTML, LinkClicksReachTheParentAsTheLabelOrAsTheNextIds)
{
    Label l(0, L"Open <a>the status</a> or <a1>the log</a1>.");
    ASSERT_EQ(2u, l.html.GetLinks().GetCount());
    SendMessageW(l.hwnd, WM_LBUTTONDOWN, MK_LBUTTON, l.LinkPoint(0));
    SendMessageW(l.hwnd, WM_LBUTTONDOWN, MK_LBUTTON, l.LinkPoint(1));
    SendMessageW(l.hwnd, WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(299, 99)); // no link there
    MSG m;
    while (PeekMessageW(&m, nullptr, 0, 0, PM_REMOVE))
        DispatchMessageW(&m);
    EXPECT_EQ((Commands{{1023, STN_CLICKED}, {1024, BN_CLICKED}}), l.parent.commands);
    // Space released on a label with links presses the label itself.
    l.parent.commands.clear();
    SendMessageW(l.hwnd, WM_KEYUP, VK_SPACE, 0);
    SendMessageW(l.hwnd, WM_KEYUP, 'A', 0);
    EXPECT_EQ((Commands{{1023, STN_CLICKED}}), l.parent.commands);
}

TEST(DMStaticHTML, OnlyLinksOrANotifyLabelTakeTheMouse)
{
    for (DWORD style : {0ul, (DWORD)SS_NOTIFY}) {
        SCOPED_TRACE(style);
        Label l(style, L"<a>link</a> and plain text after it");
        ASSERT_EQ(1u, l.html.GetLinks().GetCount());
        EXPECT_EQ(HTCLIENT, l.HitTest(l.LinkPoint(0)));
        EXPECT_EQ(style ? HTCLIENT : HTTRANSPARENT, l.HitTest(MAKELPARAM(290, 90)));
    }
}

TEST(DMStaticHTML, TextHelpers)
{
    Label l(0, L"");
    SetWindowTextW(l.hwnd, L"<b>Bold</b> &amp; plain");
    EXPECT_STREQ(L"<b>Bold</b> &amp; plain", l.html.GetHTMLText()) << "WM_SETTEXT stores the markup";
    EXPECT_EQ(23u, l.html.GetHTMLTextLength());
    wchar_t plain[64];
    l.html.GetHTMLTextStripTags(plain, 64);
    EXPECT_STREQ(L"Bold & plain", plain);
    l.html.SetHTMLText(L"Help");
    l.html.MakeLink();
    EXPECT_STREQ(L"<a>Help</a>", l.html.GetHTMLText());
    l.html.MakeHtml(L"<b>%s</b>");
    EXPECT_STREQ(L"<b><a>Help</a></b>", l.html.GetHTMLText());
    l.html.SetHTMLText(std::wstring(300, L'x').c_str());
    l.html.MakeLink();
    EXPECT_EQ(L"<a>" + std::wstring(253, L'x') + L"</a>", l.html.GetHTMLText()) << "cut at 253";
    l.html.SetHTMLText(L"One<br>two<br>three");
    const int three = l.html.CalcHeight();
    l.html.SetHTMLText(L"One");
    EXPECT_GT(l.html.CalcHeight(), 0);
    EXPECT_GT(three, 2 * l.html.CalcHeight()) << "three lines are taller than two";
}

} // namespace
