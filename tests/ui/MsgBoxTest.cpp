// The extended message box as a real dialog (Wine's headless driver): its text and buttons, the
// timer callback pressing buttons and updating a countdown, presses from another thread and from
// another process, Escape, the don't-show-again box, links, device arrivals, one box at a time
// and the activation of an open box by its instance id.
#include <windows.h>
#include <dbt.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>

#include "base/Resources.h"
#include "resources/resource.h"
#include "ui/DMStaticHTML.h"
#include "ui/MsgBox.h"
#include "ui/UiSeams.h"

using namespace MsgBoxModel;

namespace {

// A box script: called at every timer tick with the box; returns the control to press (0: none).
// After 100 ticks the box is cancelled, so a broken box fails its test instead of hanging.
std::function<int(HWND, unsigned)> g_script;
// The ticks of the box open now: the pause callback, called as each box opens, starts them at 0.
std::atomic<unsigned> g_boxTick{0};

int RunScript(HWND box, unsigned, void*)
{
    const unsigned tick = g_boxTick++;
    return tick >= 100 ? IDC_MSGEX_CANCEL : g_script ? g_script(box, tick) : 0;
}

std::wstring TextOf(HWND box)
{
    wchar_t buf[4096];
    GetDlgItemTextW(box, IDC_MSGEX_TEXT, buf, 4096);
    return buf;
}
bool Shown(HWND box, int id) { return IsWindowVisible(GetDlgItem(box, id)) != FALSE; }
// A script that does something once, at the first tick, then waits (or presses after n ticks).
std::function<int(HWND, unsigned)> AtFirstTick(std::function<void(HWND)> f, unsigned nCancelAt = 100)
{
    return [f, nCancelAt](HWND box, unsigned tick) {
        if (tick == 0)
            f(box);
        return tick >= nCancelAt ? IDC_MSGEX_CANCEL : 0;
    };
}

class MsgBox : public ::testing::Test {
protected:
    HMODULE library = LoadLibraryW(L"VXDA64.DLL");
    HINSTANCE savedModule = GetResourceModule();
    const UINT korvane = RegisterWindowMessageW(L"KorvaneMessage"); // code 6: press control lParam
    void SetUp() override
    {
        ASSERT_NE(library, nullptr);
        SetResourceModule(library);
        MsgExSetTimerCallback(20, RunScript, nullptr);
        MsgSetPauseResumeCallback([](int bPause, void*) { g_boxTick = bPause ? 0u : g_boxTick.load(); }, nullptr);
    }
    void TearDown() override
    {
        g_script = nullptr;
        MsgExSetTimerCallback(0, nullptr, nullptr);
        MsgExSetLinkCallback(nullptr, nullptr);
        MsgExSetButtonCallback(nullptr, nullptr);
        MsgSetPauseResumeCallback(nullptr, nullptr);
        MsgExSetActivatePrevID(0);
        SetResourceModule(savedModule);
        FreeLibrary(library);
    }
};

TEST_F(MsgBox, ButtonsTextAndTheAnswerOfEachButton)
{
    struct { UINT flags; int press, answer; bool shown[3]; } cases[] = {
        {MB_OK, IDC_MSGEX_CANCEL, IDOK, {false, false, true}},
        {MB_YESNO, IDC_MSGEX_BUTTON1, IDYES, {true, false, true}},
        {MB_YESNO, IDC_MSGEX_CANCEL, IDNO, {true, false, true}},
        {MB_YESNOCANCEL, IDC_MSGEX_BUTTON2, IDNO, {true, true, true}},
        {MB_RETRYCANCEL, IDC_MSGEX_BUTTON1, IDRETRY, {true, false, true}},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "flags " << c.flags << ", pressing " << c.press);
        std::wstring text;
        bool shown[3] = {};
        g_script = [&](HWND box, unsigned) {
            text = TextOf(box);
            const int ids[] = {IDC_MSGEX_BUTTON1, IDC_MSGEX_BUTTON2, IDC_MSGEX_CANCEL};
            for (int i = 0; i < 3; ++i)
                shown[i] = Shown(box, ids[i]);
            return c.press;
        };
        EXPECT_EQ(c.answer, MsgExFmt(nullptr, c.flags, L"<b>%s</b> is %d%%", L"Disk", 90));
        EXPECT_EQ(L"<b>Disk</b> is 90%", text);
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(c.shown[i], shown[i]) << "place " << i;
    }
}

TEST_F(MsgBox, TextsFromResourcesAndTheLastError)
{
    std::wstring text;
    g_script = [&](HWND box, unsigned) { return text = TextOf(box), IDC_MSGEX_CANCEL; };
    MsgEx(nullptr, MB_OK, (const wchar_t*)(LONG_PTR)-IDS_BUTTON_RETRY);
    EXPECT_EQ(L"&Retry", text) << "a negative id names the library's own string";
    MsgEx(nullptr, MB_OK, (const wchar_t*)(LONG_PTR)-31999);
    EXPECT_EQ(L"", text) << "a missing string gives an empty message";
    SetLastError(ERROR_ACCESS_DENIED);
    MsgEx(nullptr, MB_OK | kAppendLastError | kHtmlErrorSeparator, L"Cannot save.");
    ASSERT_GT(text.size(), 20u);
    EXPECT_EQ(L"Cannot save.<br><br>", text.substr(0, 20));
    MsgHRESULT(nullptr, E_OUTOFMEMORY, MB_OK, -IDS_BUTTON_OK);
    EXPECT_EQ(L"OK\n\n", text.substr(0, 4));
}

TEST_F(MsgBox, CountdownUpdatesTheTextAndPressesItsButton)
{
    std::wstring seen[3];
    g_script = [&](HWND box, unsigned tick) {
        if (tick >= 3)
            return IDC_MSGEX_BUTTON1;
        seen[tick] = TextOf(box);
        MsgExSetText(box, (L"Logging off in <b>0:" + std::to_wstring(59 - tick) + L"</b>").c_str());
        return 0;
    };
    EXPECT_EQ(IDOK, MsgEx(nullptr, MB_OKCANCEL, L"Logging off in <b>1:00</b>"));
    EXPECT_EQ(L"Logging off in <b>1:00</b>", seen[0]);
    EXPECT_EQ(L"Logging off in <b>0:59</b>", seen[1]);
    EXPECT_EQ(L"Logging off in <b>0:58</b>", seen[2]);
    EXPECT_EQ(0, MsgExSetText(GetDesktopWindow(), L"x")) << "only a box takes a text";
}

TEST_F(MsgBox, PressedFromOutsideByEscapeAndByADeviceArrival)
{
    // From another thread, as another process does.
    std::atomic<bool> stop{false};
    std::thread presser([&] {
        for (; !stop; Sleep(30))
            if (HWND box = MsgExGetOpenBox())
                PostMessageW(box, korvane, 6, IDC_MSGEX_BUTTON2);
    });
    EXPECT_EQ(IDNO, MsgEx(nullptr, MB_YESNOCANCEL, L"Pressed from outside"));
    stop = true;
    presser.join();
    // From another process: the presser program beside the tests.
    DWORD exitCode = 99;
    g_script = AtFirstTick([&](HWND box) {
        wchar_t line[128];
        swprintf(line, 128, L"ui_press.exe %llu %d", (unsigned long long)(ULONG_PTR)box, IDC_MSGEX_BUTTON1);
        STARTUPINFOW si = {};
        si.cb = sizeof(si);
        PROCESS_INFORMATION pi = {};
        if (CreateProcessW(nullptr, line, nullptr, nullptr, FALSE, 0, nullptr, nullptr, &si, &pi)) {
            WaitForSingleObject(pi.hProcess, 10000);
            GetExitCodeProcess(pi.hProcess, &exitCode);
            CloseHandle(pi.hThread);
            CloseHandle(pi.hProcess);
        }
    }, 50);
    EXPECT_EQ(IDYES, MsgEx(nullptr, MB_YESNO, L"Pressed by another process"));
    EXPECT_EQ(0u, exitCode);
    // Escape goes through the box's accelerators: it closes as the cancel place answers; so does
    // the accelerators' close command.
    g_script = AtFirstTick([](HWND box) { PostMessageW(GetFocus() ? GetFocus() : box, WM_KEYDOWN, VK_ESCAPE, 0); });
    EXPECT_EQ(IDNO, MsgEx(nullptr, MB_YESNO, L"Escape"));
    g_script = AtFirstTick([](HWND box) { SendMessageW(box, WM_COMMAND, MAKEWPARAM((WORD)IDM_MSGEX_CLOSE, 1), 0); });
    EXPECT_EQ(IDCANCEL, MsgEx(nullptr, MB_YESNOCANCEL, L"Close command"));
    // Code 6 may name the button by its answer: the monitor closes its warning with IDOK.
    g_script = AtFirstTick([](HWND box) {
        SendMessageW(box, RegisterWindowMessageW(L"KorvaneMessage"), 6, IDOK);
    });
    EXPECT_EQ(IDOK, MsgEx(nullptr, MB_OKCANCEL, L"Closed by the monitor"));
    // A device arriving presses the retry button, only when the box asked for it.
    for (UINT flags : {(UINT)(MB_RETRYCANCEL | kPressFirstOnDevice), (UINT)MB_RETRYCANCEL}) {
        g_script = AtFirstTick([](HWND box) { SendMessageW(box, WM_DEVICECHANGE, DBT_DEVICEARRIVAL, 0); }, 3);
        EXPECT_EQ((flags & kPressFirstOnDevice) ? IDRETRY : IDCANCEL, MsgEx(nullptr, flags, L"Insert the disk"));
    }
}

TEST_F(MsgBox, DontShowAgainLinksAndButtonCallback)
{
    int dontShow = 0;
    bool checkShown = false;
    g_script = AtFirstTick([&](HWND box) {
        checkShown = Shown(box, IDC_MSGEX_DONT_SHOW);
        SendMessageW(box, korvane, 6, IDC_MSGEX_DONT_SHOW); // ticks the box
    }, 1);
    EXPECT_EQ(IDOK, MsgExFmt(nullptr, MB_OK, &dontShow, L"Saved."));
    EXPECT_TRUE(checkShown);
    EXPECT_EQ(1, dontShow) << "the state is written back";
    g_script = AtFirstTick([&](HWND box) { checkShown = Shown(box, IDC_MSGEX_DONT_SHOW); }, 0);
    MsgEx(nullptr, MB_OK, L"No check box asked for");
    EXPECT_FALSE(checkShown);
    // A click on the second link of the message reaches the box's link callback with its number.
    static int s_link = -1;
    g_script = AtFirstTick([](HWND box) {
        HWND label = GetDlgItem(box, IDC_MSGEX_TEXT);
        UpdateWindow(label); // the links are those of the last paint
        auto* html = dynamic_cast<DMStaticHTML*>(DMWnd::FromHandle(label));
        if (html && html->GetLinks().GetCount() >= 2) {
            const RECT r = html->GetLinks().Get(1)->GetRects().at(0);
            SendMessageW(label, WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(r.left + 1, r.top + 1));
        }
    }, 5);
    auto onLink = [](HWND, int nLink, void*) { return s_link = nLink, IDC_MSGEX_BUTTON1; };
    EXPECT_EQ(IDYES, MsgExFmtLink(nullptr, MB_YESNO, onLink, nullptr, L"See <a>the guide</a> or <a2>the log</a2>."));
    EXPECT_EQ(2, s_link);
    // The button callback may keep the box open: the first press is refused, the second is not.
    static int s_presses = 0;
    MsgExSetButtonCallback([](HWND, int nAnswer, void*) -> int { return nAnswer == IDYES && ++s_presses == 1; }, nullptr);
    g_script = [&](HWND, unsigned tick) { return tick < 2 ? IDC_MSGEX_BUTTON1 : IDC_MSGEX_CANCEL; };
    EXPECT_EQ(IDYES, MsgEx(nullptr, MB_YESNO, L"Twice"));
    EXPECT_EQ(2, s_presses);
}

TEST_F(MsgBox, IconFollowsTheFlagAndTheDpi)
{
    const auto savedDpi = UiSeams::pfnGetWindowDpi;
    for (UINT dpi : {96u, 144u}) {
        static UINT s_dpi;
        s_dpi = dpi;
        UiSeams::pfnGetWindowDpi = [](HWND) -> UINT { return s_dpi; };
        RECT icon = {};
        bool hasIcon = false;
        g_script = [&](HWND box, unsigned) {
            HWND ctl = GetDlgItem(box, IDC_MSGEX_ICON);
            GetClientRect(ctl, &icon);
            hasIcon = SendMessageW(ctl, STM_GETICON, 0, 0) != 0;
            return IDC_MSGEX_CANCEL;
        };
        MsgEx(nullptr, MB_OK | MB_ICONWARNING, L"Icon");
        EXPECT_EQ(dpi >= 144 ? 64 : 48, icon.right) << dpi;
        EXPECT_EQ(dpi >= 144 ? 64 : 48, icon.bottom) << dpi;
        EXPECT_TRUE(hasIcon);
    }
    UiSeams::pfnGetWindowDpi = savedDpi;
}

TEST_F(MsgBox, OneBoxAtATimeAndAnOpenBoxOfTheSameInstanceIsActivated)
{
    // A second box asked for on another thread waits until the first has closed. Both boxes run
    // the same script, which tells them apart by their text.
    std::atomic<bool> firstOpen{false};
    std::atomic<DWORD> firstClosedAt{0}, secondOpenedAt{0};
    g_script = [&](HWND box, unsigned tick) {
        if (TextOf(box) == L"Second") {
            if (!secondOpenedAt)
                secondOpenedAt = GetTickCount();
            return IDC_MSGEX_CANCEL;
        }
        firstOpen = true;
        if (tick < 10)
            return 0;
        firstClosedAt = GetTickCount();
        return IDC_MSGEX_CANCEL;
    };
    std::atomic<int> secondAnswer{-1};
    std::thread second([&] {
        while (!firstOpen)
            Sleep(5);
        secondAnswer = MsgEx(nullptr, MB_OK, L"Second");
    });
    EXPECT_EQ(IDOK, MsgEx(nullptr, MB_OK, L"First"));
    second.join();
    EXPECT_EQ(IDOK, secondAnswer.load());
    EXPECT_NE(0u, secondOpenedAt.load());
    EXPECT_GE(secondOpenedAt.load(), firstClosedAt.load()) << "the second box opened only after the first closed";
    // With an instance id, asking again while that box is open activates it and answers 0.
    MsgExSetActivatePrevID(309);
    std::atomic<int> again{-1};
    std::thread other;
    g_script = [&](HWND, unsigned tick) {
        if (tick == 0)
            other = std::thread([&] { again = MsgEx(nullptr, MB_OK, L"Again"); });
        return again.load() != -1 ? IDC_MSGEX_CANCEL : 0;
    };
    EXPECT_EQ(IDOK, MsgEx(nullptr, MB_OK, L"Instance"));
    if (other.joinable())
        other.join();
    EXPECT_EQ(0, again.load());
}

} // namespace
