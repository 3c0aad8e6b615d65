// DMWnd on real windows (Wine's null graphics driver): binding at creation, dispatch to the
// handlers with their arguments, subclassed controls, the exception barrier and teardown.
#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "WndTestSupport.h"

namespace {

// What the handlers saw, kept outside the object so that it can be read after the object is gone.
struct Log {
    std::vector<std::wstring> calls;
    bool bObjectGone = false;
    int nCallsAfterGone = 0;
    void Add(const std::wstring& s)
    {
        calls.push_back(s);
        nCallsAfterGone += bObjectGone;
    }
    bool Saw(const std::wstring& s) const { return std::find(calls.begin(), calls.end(), s) != calls.end(); }
};

std::wstring Call(const wchar_t* name, std::initializer_list<long long> args)
{
    std::wstring s = name;
    for (long long a : args)
        s += L" " + std::to_wstring(a);
    return s;
}

class RecWnd : public DMWnd {
public:
    explicit RecWnd(Log& log) : log(log) {}
    ~RecWnd() override { log.bObjectGone = true; }
    int bHandle = 1, bAcceptCreate = 1; // what the handlers answer
    bool bThrowOnSetText = false;

protected:
    const wchar_t* GetWndClassName() const override { return L"VantrelTestRecWnd"; }
    LRESULT OnMessage(UINT msg, WPARAM wp, LPARAM lp) override
    {
        if (msg == WM_SETTEXT || msg == WM_NCDESTROY)
            log.Add(msg == WM_SETTEXT ? L"settext" : L"ncdestroy");
        if (msg == WM_SETTEXT && bThrowOnSetText)
            throw std::runtime_error("handler failed");
        return DMWnd::OnMessage(msg, wp, lp);
    }
    int OnCreate(CREATESTRUCTW* pcs) override
    {
        log.Add(std::wstring(L"create ") + pcs->lpszName);
        return bAcceptCreate;
    }
    int OnCommand(WORD id, WORD code, HWND hwndCtl) override
    {
        log.Add(Call(L"command", {id, code, (long long)(INT_PTR)hwndCtl}));
        return bHandle;
    }
    int OnNotify(NMHDR* pnm, LRESULT* pResult) override
    {
        log.Add(Call(L"notify", {(long long)pnm->idFrom, (long long)(int)pnm->code}));
        *pResult = 1234;
        return bHandle;
    }
    int OnTimer(UINT_PTR id) override
    {
        log.Add(Call(L"timer", {(long long)id}));
        return bHandle;
    }
    int OnPaint() override
    {
        log.Add(L"paint");
        PAINTSTRUCT ps;
        BeginPaint(hWnd, &ps);
        EndPaint(hWnd, &ps);
        return 1;
    }
    int OnSize(UINT type, int cx, int cy) override
    {
        log.Add(Call(L"size", {type, cx, cy}));
        return bHandle;
    }
    void OnDestroy() override { log.Add(L"destroy"); }

private:
    Log& log;
};

class DMWndTest : public ::testing::Test {
protected:
    void SetUp() override { wndtest::InitControls(); }
};

TEST_F(DMWndTest, CreateBindsAtCreationAndDispatchesToTheHandlers)
{
    Log log;
    RecWnd wnd(log);
    wnd.bAcceptCreate = 0;
    EXPECT_FALSE(wnd.Create(nullptr, L"Refused", WS_OVERLAPPEDWINDOW));
    EXPECT_EQ(wnd.GetHwnd(), nullptr);
    EXPECT_TRUE(log.Saw(L"ncdestroy"));
    wnd.bAcceptCreate = 1;
    ASSERT_TRUE(wnd.Create(nullptr, L"Recorder", WS_OVERLAPPEDWINDOW));
    const HWND hwnd = wnd.GetHwnd();
    EXPECT_TRUE(log.Saw(L"create Recorder")); // WM_CREATE already reached the object
    EXPECT_EQ(DMWnd::FromHandle(hwnd), &wnd);
    SetLastError(0xdeadbeef); // a bound object refuses a second window
    EXPECT_FALSE(wnd.Create(nullptr, L"Second", WS_OVERLAPPEDWINDOW));
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_ALREADY_INITIALIZED);
    NMHDR nm = {hwnd, 9, (UINT)-12};
    struct Case { UINT msg; WPARAM wp; LPARAM lp; std::wstring expected; } cases[] = {
        {WM_COMMAND, MAKEWPARAM(42, 7), 0x1234, L"command 42 7 4660"}, {WM_NOTIFY, 9, (LPARAM)&nm, L"notify 9 -12"},
        {WM_TIMER, 3, 0, L"timer 3"}, {WM_SIZE, SIZE_MAXIMIZED, MAKELPARAM(300, 200), L"size 2 300 200"},
        {WM_PAINT, 0, 0, L"paint"},
    };
    for (const Case& c : cases) {
        log.calls.clear();
        SendMessageW(hwnd, c.msg, c.wp, c.lp);
        EXPECT_EQ(log.calls, std::vector<std::wstring>{c.expected});
    }
    // A handled notification answers the handler's result; one left to the default handling 0.
    EXPECT_EQ(SendMessageW(hwnd, WM_NOTIFY, 9, (LPARAM)&nm), 1234);
    wnd.bHandle = 0;
    EXPECT_EQ(SendMessageW(hwnd, WM_NOTIFY, 9, (LPARAM)&nm), 0);
    ASSERT_NE(wnd.StartTimer(77, 10), 0u);
    EXPECT_TRUE(wndtest::PumpUntil([&] { return log.Saw(L"timer 77"); }));
    wnd.StopTimer(77);
    log.calls.clear();
    EXPECT_TRUE(wnd.Destroy());
    EXPECT_FALSE(IsWindow(hwnd));
    EXPECT_EQ(log.calls, (std::vector<std::wstring>{L"destroy", L"ncdestroy"}));
    EXPECT_EQ(wnd.GetHwnd(), nullptr); // unbound at WM_NCDESTROY
    EXPECT_FALSE(wnd.Destroy());
    EXPECT_TRUE(wnd.Create(nullptr, L"Again", WS_OVERLAPPEDWINDOW));
}

TEST_F(DMWndTest, DeletingTheObjectDestroysItsWindowUnlessDetached)
{
    for (bool bDetach : {false, true}) {
        Log log;
        RecWnd* wnd = new RecWnd(log);
        ASSERT_TRUE(wnd->Create(nullptr, L"Doomed", WS_OVERLAPPEDWINDOW));
        HWND hwnd = wnd->GetHwnd();
        if (bDetach) {
            EXPECT_EQ(wnd->Detach(), hwnd);
            EXPECT_EQ(wnd->GetHwnd(), nullptr);
            EXPECT_EQ(DMWnd::FromHandle(hwnd), nullptr);
        }
        log.calls.clear();
        SendMessageW(hwnd, WM_COMMAND, 1, 0);
        EXPECT_EQ(log.calls.size(), bDetach ? 0u : 1u);
        log.calls.clear();
        delete wnd;
        EXPECT_EQ(IsWindow(hwnd), (BOOL)bDetach);
        EXPECT_TRUE(log.calls.empty()) << "the handlers are not reached from the destructor";
        EXPECT_EQ(log.nCallsAfterGone, 0);
        DestroyWindow(hwnd);
    }
}

// A static control of a dialog template, subclassed: the shape of the rich labels.
TEST_F(DMWndTest, AttachedControlsGetTheirMessagesUntilDestroyedOrDeleted)
{
    wndtest::FormDlg dlg;
    ASSERT_TRUE(dlg.Create(nullptr));
    const HWND hwndLabel = dlg.GetItem(IDC_UITEST_LABEL), hwndButton = dlg.GetItem(IDC_UITEST_BUTTON);
    Log log;
    RecWnd label(log);
    ASSERT_TRUE(label.Attach(hwndLabel));
    EXPECT_EQ(DMWnd::FromHandle(hwndLabel), &label);
    EXPECT_EQ(DMWnd::FromHandle(dlg.GetHwnd()), &dlg);
    // The object sees the message first, the static's own procedure still stores the text.
    SetWindowTextW(hwndLabel, L"<b>Status</b>");
    EXPECT_TRUE(log.Saw(L"settext"));
    wchar_t text[32];
    EXPECT_EQ(label.GetText(text, 32), 13u);
    EXPECT_STREQ(text, L"<b>Status</b>");
    // Binding refusals, each with its reason.
    std::atomic<HWND> foreign{nullptr};
    HANDLE hDone = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    std::thread other([&] {
        foreign = CreateWindowW(L"STATIC", L"", WS_POPUP, 0, 0, 10, 10, nullptr, nullptr, nullptr, nullptr);
        WaitForSingleObject(hDone, 5000);
        DestroyWindow(foreign);
    });
    // No ASSERT while the thread runs: it must be joined on every path.
    EXPECT_TRUE(wndtest::PumpUntil([&] { return foreign.load() != nullptr; }));
    Log otherLog;
    RecWnd spare(otherLog);
    struct Refusal { DMWnd* wnd; HWND hwnd; DWORD error; } refusals[] = {
        {&spare, nullptr, ERROR_INVALID_WINDOW_HANDLE},
        {&spare, (HWND)(INT_PTR)0x7FFF0000, ERROR_INVALID_WINDOW_HANDLE},
        {&label, hwndButton, ERROR_ALREADY_INITIALIZED},
        {&spare, foreign.load(), ERROR_INVALID_THREAD_ID},
    };
    for (const Refusal& r : refusals) {
        SetLastError(0xdeadbeef);
        EXPECT_FALSE(r.wnd->Attach(r.hwnd));
        EXPECT_EQ(GetLastError(), r.error);
    }
    SetEvent(hDone);
    other.join();
    CloseHandle(hDone);
    // Deleting an attached object removes the subclass and keeps the control.
    Log buttonLog;
    RecWnd* button = new RecWnd(buttonLog);
    ASSERT_TRUE(button->Attach(hwndButton));
    delete button;
    EXPECT_EQ(DMWnd::FromHandle(hwndButton), nullptr);
    buttonLog.calls.clear();
    SetWindowTextW(hwndButton, L"after");
    EXPECT_EQ(buttonLog.nCallsAfterGone, 0);
    GetWindowTextW(hwndButton, text, 32);
    EXPECT_STREQ(text, L"after");
    // Destroying the dialog destroys the label: the object sees WM_NCDESTROY and lets go.
    log.calls.clear();
    EXPECT_TRUE(dlg.Destroy());
    EXPECT_TRUE(log.Saw(L"ncdestroy"));
    EXPECT_EQ(label.GetHwnd(), nullptr);
    EXPECT_EQ(dlg.GetHwnd(), nullptr);
}

// An exception thrown by a handler stops at the procedure; the message gets the default handling
// (here: the text is stored), for every way of binding.
TEST_F(DMWndTest, ExceptionInAHandlerFallsBackToTheDefaultHandling)
{
    wndtest::FormDlg dlg;
    ASSERT_TRUE(dlg.Create(nullptr));
    Log log;
    RecWnd created(log), attached(log);
    ASSERT_TRUE(created.Create(nullptr, L"", WS_OVERLAPPEDWINDOW));
    ASSERT_TRUE(attached.Attach(dlg.GetItem(IDC_UITEST_LABEL)));
    for (RecWnd* w : {&created, &attached}) {
        w->bThrowOnSetText = true;
        const unsigned before = DMWnd::GetCaughtExceptionCount();
        EXPECT_TRUE(SetWindowTextW(w->GetHwnd(), L"still set"));
        EXPECT_EQ(DMWnd::GetCaughtExceptionCount(), before + 1);
        wchar_t text[16] = L"";
        w->GetText(text, 16);
        EXPECT_STREQ(text, L"still set");
    }
}

} // namespace
