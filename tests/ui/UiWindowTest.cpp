// The window library and the message box on real windows (Wine's headless driver): binding and
// dispatch, a dialog's round trip, the rich text's ink on a memory bitmap, and the box read and
// pressed by a script.
#include <windows.h>

#include <dbt.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "UiTestIds.h"
#include "base/Resources.h"
#include "resources/resource.h"
#include "ui/DMDlg.h"
#include "ui/DrawHTML.h"
#include "ui/MsgBox.h"

using namespace MsgBoxModel;

namespace {

typedef std::vector<std::wstring> Calls;
struct Step { UINT msg; WPARAM wp; int idTarget; };

// The test form: posts its steps to itself on opening, and gives up after 5 s instead of hanging.
class FormDlg : public DMDlg {
public:
    explicit FormDlg(std::vector<Step> s = {}) : DMDlg(IDD_UITEST_FORM, GetModuleHandleW(nullptr)), steps(s) {}
    int nDlgToOpts = 0, bAccept = 1;
    BOOL bChecked = TRUE; // the setting the check box shows and reads back

protected:
    BOOL OnInit() override
    {
        StartTimer(1, 5000);
        for (const Step& s : steps)
            PostMessageW(s.idTarget ? GetItem(s.idTarget) : hWnd, s.msg, s.wp, 0);
        return DMDlg::OnInit();
    }
    int OptsToDlg() override { return CheckDlgButton(hWnd, IDC_UITEST_CHECK, bChecked), 1; }
    int DlgToOpts() override
    {
        ++nDlgToOpts;
        if (bAccept)
            bChecked = IsDlgButtonChecked(hWnd, IDC_UITEST_CHECK);
        return bAccept;
    }
    int OnTimer(UINT_PTR) override { return End(-2), 1; }
    std::vector<Step> steps;
};

// Records what reaches the handlers, in a log that outlives the object.
class RecWnd : public DMWnd {
public:
    explicit RecWnd(Calls& log) : log(log) {}
    int bAccept = 1;
    bool bThrow = false;

protected:
    LRESULT OnMessage(UINT msg, WPARAM wp, LPARAM lp) override
    {
        if (msg == WM_NCDESTROY)
            log.push_back(L"ncdestroy");
        if (msg == WM_SETTEXT && bThrow)
            throw std::runtime_error("handler failed");
        return DMWnd::OnMessage(msg, wp, lp);
    }
    int OnCreate(CREATESTRUCTW*) override { return bAccept; }
    int OnCommand(WORD id, WORD code, HWND) override { return log.push_back(L"cmd " + std::to_wstring(id + code)), 1; }
    void OnDestroy() override { log.push_back(L"destroy"); }
    Calls& log;
};

TEST(DMWnd, BindsAtCreationOrByAttachingDispatchesAndLetsGoWhenTheWindowDies)
{
    Calls log;
    RecWnd wnd(log), attached(log), spare(log);
    wnd.bAccept = 0;
    EXPECT_FALSE(wnd.Create(nullptr, L"Refused", WS_OVERLAPPEDWINDOW));
    EXPECT_EQ(wnd.GetHwnd(), nullptr);
    wnd.bAccept = 1;
    ASSERT_TRUE(wnd.Create(nullptr, L"Recorder", WS_OVERLAPPEDWINDOW));
    FormDlg dlg;
    ASSERT_TRUE(dlg.Create(nullptr));
    ASSERT_TRUE(attached.Attach(dlg.GetItem(IDC_UITEST_LABEL)));
    EXPECT_EQ(DMWnd::FromHandle(dlg.GetItem(IDC_UITEST_LABEL)), &attached);
    EXPECT_EQ(DMWnd::FromHandle(wnd.GetHwnd()), &wnd);
    EXPECT_EQ(DMWnd::FromHandle(dlg.GetHwnd()), &dlg);
    struct Refusal { DMWnd* wnd; HWND hwnd; DWORD error; } refusals[] = {{&spare, nullptr, ERROR_INVALID_WINDOW_HANDLE},
        {&attached, dlg.GetHwnd(), ERROR_ALREADY_INITIALIZED}, {&spare, GetDesktopWindow(), ERROR_INVALID_THREAD_ID}};
    for (const Refusal& r : refusals) {
        SetLastError(0xdeadbeef);
        EXPECT_FALSE(r.wnd->Attach(r.hwnd));
        EXPECT_EQ(GetLastError(), r.error);
    }
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(wnd.Create(nullptr, L"Second", WS_OVERLAPPEDWINDOW));
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_ALREADY_INITIALIZED);
    for (RecWnd* w : {&wnd, &attached}) { // the handler throws; the text is stored all the same
        w->bThrow = true;
        const unsigned before = DMWnd::GetCaughtExceptionCount();
        EXPECT_TRUE(SetWindowTextW(w->GetHwnd(), L"still set"));
        EXPECT_EQ(DMWnd::GetCaughtExceptionCount(), before + 1);
        wchar_t text[16] = L"";
        w->GetText(text, 16);
        EXPECT_STREQ(text, L"still set");
    }
    log.clear();
    SendMessageW(wnd.GetHwnd(), WM_COMMAND, MAKEWPARAM(42, 7), 0);
    EXPECT_TRUE(wnd.Destroy());
    EXPECT_TRUE(dlg.Destroy()); // and the label with it
    EXPECT_EQ(log, (Calls{L"cmd 49", L"destroy", L"ncdestroy", L"destroy", L"ncdestroy"}));
    EXPECT_EQ(std::make_pair(wnd.GetHwnd(), attached.GetHwnd()), std::make_pair(HWND(), HWND()));
    EXPECT_TRUE(wnd.Create(nullptr, L"Again", WS_OVERLAPPEDWINDOW)) << "an unbound object binds again";
    for (bool bDetach : {false, true}) { // deleting the object destroys its window unless detached
        RecWnd* doomed = new RecWnd(log);
        ASSERT_TRUE(doomed->Create(nullptr, L"Doomed", WS_OVERLAPPEDWINDOW));
        const HWND h = bDetach ? doomed->Detach() : doomed->GetHwnd();
        log.clear();
        delete doomed;
        EXPECT_EQ(IsWindow(h), (BOOL)bDetach);
        EXPECT_TRUE(log.empty()) << "the handlers are not reached from the destructor";
        DestroyWindow(h);
    }
}

TEST(DMDlg, ModalEndsWithTheButtonPressedAndReadsTheControlsOnlyForAnAcceptedOK)
{
    const Step untick = {BM_SETCHECK, BST_UNCHECKED, IDC_UITEST_CHECK}, cancel = {WM_COMMAND, IDCANCEL, 0};
    struct Row { int bAccept; std::vector<Step> steps; INT_PTR result; int nDlgToOpts; BOOL bChecked; } rows[] = {
        {1, {untick, {WM_COMMAND, IDOK, 0}}, IDOK, 1, FALSE}, {1, {untick, cancel}, IDCANCEL, 0, TRUE},
        {1, {untick, {WM_CLOSE, 0, 0}}, IDCANCEL, 0, TRUE}, {0, {{WM_COMMAND, IDOK, 0}, cancel}, IDCANCEL, 1, TRUE},
        {1, {{WM_COMMAND, MAKEWPARAM(IDOK, BN_SETFOCUS), 0}, cancel}, IDCANCEL, 0, TRUE}, // no click: stays open
    };
    for (const Row& r : rows) {
        FormDlg dlg(r.steps);
        dlg.bAccept = r.bAccept;
        EXPECT_EQ(dlg.DoModal(nullptr), r.result);
        EXPECT_EQ(std::make_pair(dlg.nDlgToOpts, dlg.bChecked), std::make_pair(r.nDlgToOpts, r.bChecked));
    }
    DMDlg missing(IDD_UITEST_MISSING, GetModuleHandleW(nullptr));
    SetLastError(0xdeadbeef);
    EXPECT_EQ(missing.DoModal(nullptr), -1);
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_RESOURCE_NAME_NOT_FOUND);
}

// A label draws its words one run at a time, each where the layout measured it; the line must
// come out exactly as the whole sentence drawn at the advances GDI reports. Wine, left to its own
// advances, draws small text wider or narrower than it measures, and the blanks of a label came
// out covered ("off:CORP") or doubled.
TEST(DrawHTML, ALineComesOutAsTheWholeSentenceAtItsMeasuredAdvances)
{
    const int w = 400, h = 16;
    const std::wstring text = L"Last log off: CORP\\alice at 10:42. See the event log for details.";
    DrawHTMLTools tools;
    tools.SetTextColor(RGB(0, 0, 0));
    std::vector<DWORD> pixels[2]; // the label's, the sentence's
    for (int i = 0; i < 2; ++i) {
        MemoryDc dc(CreateCompatibleDC(nullptr));
        BITMAPINFO bi = {};
        bi.bmiHeader = {sizeof(bi.bmiHeader), w, -h, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
        void* bits = nullptr;
        GdiBitmap bitmap(CreateDIBSection(dc.Get(), &bi, DIB_RGB_COLORS, &bits, nullptr, 0));
        ASSERT_TRUE(bitmap && bits);
        DcSelection selected(dc.Get(), bitmap.Get());
        memset(bits, 0xff, w * h * 4);
        if (i == 0) {
            DrawHTML html;
            const RECT rc = {0, 0, w, h}; // "L" starts at 0: only other characters are indented
            const unsigned n = (unsigned)text.size();
            html.Draw(DrawHTML::kMeasure, dc.Get(), &rc, text.c_str(), n, nullptr, &tools);
            ASSERT_GT(html.Draw(DrawHTML::kPaint, dc.Get(), &rc, text.c_str(), n, nullptr, &tools), 0);
        } else {
            DcSelection font(dc.Get(), tools.GetFont());
            std::vector<INT> dx(text.size());
            SIZE size;
            ASSERT_TRUE(GetTextExtentExPointW(dc.Get(), text.c_str(), (int)text.size(), 0, nullptr, dx.data(), &size));
            for (size_t k = dx.size(); k-- > 1;)
                dx[k] -= dx[k - 1];
            SetBkMode(dc.Get(), TRANSPARENT);
            ExtTextOutW(dc.Get(), 0, 0, 0, nullptr, text.c_str(), (UINT)text.size(), dx.data());
        }
        GdiFlush();
        pixels[i].assign(static_cast<const DWORD*>(bits), static_cast<const DWORD*>(bits) + w * h);
    }
    const long at = std::mismatch(pixels[0].begin(), pixels[0].end(), pixels[1].begin()).first - pixels[0].begin();
    EXPECT_EQ(at, (long)pixels[0].size()) << "first difference at x " << at % w << ", y " << at / w;
}

// The message box: called at every tick of the open box (0 as each opens), the script returns the
// control to press. Past 100 ticks the box is cancelled, so a broken box fails instead of hanging.
std::function<int(HWND, unsigned)> g_script;
std::atomic<unsigned> g_tick{0};
int RunScript(HWND box, unsigned, void*)
{
    const unsigned tick = g_tick++;
    return tick >= 100 ? IDC_MSGEX_CANCEL : g_script ? g_script(box, tick) : 0;
}
std::wstring TextOf(HWND box)
{
    wchar_t buf[4096];
    GetDlgItemTextW(box, IDC_MSGEX_TEXT, buf, 4096);
    return buf;
}
void AtFirstTick(std::function<void(HWND)> f, unsigned n = 100) // then cancels at tick n
{
    g_script = [f, n](HWND box, unsigned t) { return t ? (t < n ? 0 : IDC_MSGEX_CANCEL) : (f(box), 0); };
}
void Press(HWND box, LPARAM id) { SendMessageW(box, RegisterWindowMessageW(L"KorvaneMessage"), 6, id); }

class MsgBox : public ::testing::Test {
protected:
    HMODULE library = LoadLibraryW(L"VXDA64.DLL");
    HINSTANCE savedModule = GetResourceModule();
    void SetUp() override
    {
        ASSERT_NE(library, nullptr);
        SetResourceModule(library);
        MsgExSetTimerCallback(20, RunScript, nullptr);
        MsgSetPauseResumeCallback([](int bPause, void*) { g_tick = bPause ? 0u : g_tick.load(); }, nullptr);
    }
    void TearDown() override
    {
        g_script = nullptr;
        MsgExSetTimerCallback(0, nullptr, nullptr);
        MsgSetPauseResumeCallback(nullptr, nullptr);
        SetResourceModule(savedModule);
        FreeLibrary(library);
    }
};

TEST_F(MsgBox, ShowsTextAndButtonsCountsDownAndAnswersTheButtonPressedFromInOrOutside)
{
    struct Row { UINT flags; int press, answer; std::wstring shown; } rows[] = {{MB_OK, IDC_MSGEX_CANCEL, IDOK, L"001"},
        {MB_YESNO, IDC_MSGEX_BUTTON1, IDYES, L"101"}, {MB_YESNOCANCEL, IDC_MSGEX_BUTTON2, IDNO, L"111"}};
    for (const Row& r : rows) {
        std::wstring text, shown;
        g_script = [&](HWND box, unsigned) {
            text = TextOf(box);
            for (int id : {IDC_MSGEX_BUTTON1, IDC_MSGEX_BUTTON2, IDC_MSGEX_CANCEL})
                shown += IsWindowVisible(GetDlgItem(box, id)) ? L'1' : L'0';
            return r.press;
        };
        EXPECT_EQ(r.answer, MsgExFmt(nullptr, r.flags, L"<b>%s</b> is %d%%", L"Disk", 90));
        EXPECT_EQ(L"<b>Disk</b> is 90%", text);
        EXPECT_EQ(r.shown, shown) << r.flags;
    }
    std::wstring seen[3];
    g_script = [&](HWND box, unsigned tick) {
        if (tick >= 3)
            return IDC_MSGEX_BUTTON1;
        seen[tick] = TextOf(box) + (MsgExGetOpenBox() == box ? L"" : L" (not the open box)");
        return MsgExSetText(box, (L"Off in 0:" + std::to_wstring(59 - tick)).c_str()), 0;
    };
    EXPECT_EQ(IDOK, MsgEx(nullptr, MB_OKCANCEL, L"Off in 1:00"));
    EXPECT_EQ(std::wstring(L"Off in 1:00|Off in 0:58"), seen[0] + L"|" + seen[2]);
    EXPECT_EQ(MsgExGetOpenBox(), nullptr);
    EXPECT_EQ(0, MsgExSetText(GetDesktopWindow(), L"x")) << "only a box takes a text";
    g_script = [&](HWND box, unsigned) { return seen[0] = TextOf(box), IDC_MSGEX_CANCEL; };
    MsgEx(nullptr, MB_OK, (const wchar_t*)(LONG_PTR)-IDS_BUTTON_RETRY);
    EXPECT_EQ(L"&Retry", seen[0]) << "a negative id names the library's own string";
    SetLastError(ERROR_ACCESS_DENIED);
    MsgEx(nullptr, MB_OK | kAppendLastError | kHtmlErrorSeparator, L"No.");
    EXPECT_EQ(L"No.<br><br>", seen[0].substr(0, 11));
    EXPECT_GT(seen[0].size(), 11u) << "with the system's text of the error";
    AtFirstTick([](HWND box) { PostMessageW(GetFocus() ? GetFocus() : box, WM_KEYDOWN, VK_ESCAPE, 0); });
    EXPECT_EQ(IDNO, MsgEx(nullptr, MB_YESNO, L"Escape answers as the cancel place"));
    AtFirstTick([](HWND box) { Press(box, IDOK); }); // the monitor names the button by its answer
    EXPECT_EQ(IDOK, MsgEx(nullptr, MB_OKCANCEL, L"Closed by the monitor"));
    AtFirstTick([](HWND box) { SendMessageW(box, WM_DEVICECHANGE, DBT_DEVICEARRIVAL, 0); }, 3);
    EXPECT_EQ(IDRETRY, MsgEx(nullptr, MB_RETRYCANCEL | kPressFirstOnDevice, L"Insert the disk"));
}

TEST_F(MsgBox, ASecondBoxWaitsUntilTheFirstHasClosed)
{
    std::atomic<DWORD> firstClosedAt{0}, secondOpenedAt{0};
    std::atomic<int> answer{-1};
    std::thread other;
    g_script = [&](HWND box, unsigned tick) {
        if (TextOf(box) == L"Second")
            return secondOpenedAt = GetTickCount(), IDC_MSGEX_CANCEL;
        if (!other.joinable())
            other = std::thread([&] { answer = MsgEx(nullptr, MB_OK, L"Second"); });
        return tick < 10 ? 0 : (firstClosedAt = GetTickCount(), IDC_MSGEX_CANCEL);
    };
    EXPECT_EQ(IDOK, MsgEx(nullptr, MB_OK, L"First"));
    if (other.joinable())
        other.join();
    EXPECT_EQ(IDOK, answer.load());
    EXPECT_GE(secondOpenedAt.load(), firstClosedAt.load());
}

} // namespace
