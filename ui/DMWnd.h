// DMWnd: the base of every window of the program. An object is bound to one window at a time:
//   - Create makes a window of the object's own class (registered on first use) and binds the
//     object at WM_NCCREATE, so even WM_CREATE reaches it;
//   - Attach binds an existing window, usually a control of a dialog template, by subclassing it;
//     the rich labels of the dialogs are static controls attached this way;
//   - DMDlg (ui/DMDlg.h) binds its dialog at WM_INITDIALOG.
// Every later message goes to the virtual OnMessage, which hands the usual ones to the handlers
// below and everything else to DefaultProc (the class's own procedure for an attached window).
// The binding ends by itself at WM_NCDESTROY, after OnMessage has seen it.
//
// No exception leaves a window procedure: one thrown by a handler is caught at the procedure and
// the message gets the default handling instead.
//
// The destructor unbinds before it destroys a window the object created, so no handler of a
// half-destroyed object runs; an attached window is only unbound and lives on with its own
// procedure. Windows belong to the thread that created them: bind, unbind and delete an object
// on that thread. An object must not delete itself from inside one of its own handlers.
#pragma once
#include <windows.h>

#include <atomic>

#include "ui/UiHandles.h"

class DMWnd {
public:
    DMWnd() = default;
    virtual ~DMWnd();
    DMWnd(const DMWnd&) = delete;
    DMWnd& operator=(const DMWnd&) = delete;

    HWND GetHwnd() const { return hWnd; }
    bool IsBound() const { return hWnd != nullptr; }

    // Creates the window of this object's class with the given styles, title and place
    // (screen coordinates for a top-level window, the parent's client coordinates for a child;
    // null: the system's default place for a top-level window, an empty one for a child). id is
    // the child's control id, or the menu of a top-level window. Nonzero on success; 0 with the
    // reason in the last error (ERROR_ALREADY_INITIALIZED when the object is bound already).
    int Create(HWND hwndParent, const wchar_t* title, DWORD style, DWORD exStyle = 0, const RECT* prc = nullptr,
               UINT_PTR id = 0);
    // Binds an existing window of this thread by subclassing it. Nonzero on success; 0 with
    // ERROR_INVALID_WINDOW_HANDLE, ERROR_INVALID_THREAD_ID (another thread's window),
    // ERROR_ALREADY_INITIALIZED (already bound) or the subclassing's failure.
    int Attach(HWND hwnd);
    // Ends the binding without destroying the window and hands the window back; from then on
    // its messages no longer reach the object (a window the object created is the caller's now).
    HWND Detach();
    // Destroys the bound window (its handlers run, down to WM_NCDESTROY). Nonzero on success.
    // A modal dialog is ended with DMDlg::End instead.
    int Destroy();

    // The object bound to hwnd by any of the three ways, or null.
    static DMWnd* FromHandle(HWND hwnd);
    // How many exceptions the window procedures caught since the program started.
    static unsigned GetCaughtExceptionCount() { return nCaughtExceptions.load(); }

    // Small conveniences on the bound window.
    LRESULT Send(UINT msg, WPARAM wp = 0, LPARAM lp = 0) const { return SendMessageW(hWnd, msg, wp, lp); }
    BOOL Post(UINT msg, WPARAM wp = 0, LPARAM lp = 0) const { return PostMessageW(hWnd, msg, wp, lp); }
    HWND GetItem(int id) const { return GetDlgItem(hWnd, id); }
    int SetText(const wchar_t* text) const { return SetWindowTextW(hWnd, text ? text : L""); }
    // Copies the window's text into buf (cch characters, always terminated); the length copied.
    unsigned GetText(wchar_t* buf, unsigned cch) const;
    // The same for any window (null or no buffer: 0 and nothing copied).
    static unsigned CopyWindowText(HWND hwnd, wchar_t* buf, unsigned cch);
    UINT_PTR StartTimer(UINT_PTR id, UINT ms) const { return SetTimer(hWnd, id, ms, nullptr); }
    BOOL StopTimer(UINT_PTR id) const { return KillTimer(hWnd, id); }

protected:
    // The window class Create registers; a derived class with a class of its own (a name other
    // windows look for, a cursor, a background) overrides both. The class's procedure is always
    // the library's, whatever OnRegisterClass sets.
    virtual const wchar_t* GetWndClassName() const { return L"VantrelWnd"; }
    virtual void OnRegisterClass(WNDCLASSEXW& wc) const { (void)wc; }

    // Every message of the bound window. The default hands the messages below to their
    // handlers; what they leave (0) and every other message goes to DefaultProc.
    virtual LRESULT OnMessage(UINT msg, WPARAM wp, LPARAM lp);
    // The handling the window would have without the object: DefWindowProc for a window the
    // object created, the control's own procedure for an attached one.
    virtual LRESULT DefaultProc(UINT msg, WPARAM wp, LPARAM lp);

    // WM_CREATE: 0 refuses the window (creation fails), nonzero goes on.
    virtual int OnCreate(CREATESTRUCTW* pcs)
    {
        (void)pcs;
        return 1;
    }
    // The handlers below return nonzero when they handled the message, 0 to leave it to the
    // default handling.
    virtual int OnCommand(WORD id, WORD code, HWND hwndCtl)
    {
        (void)id, (void)code, (void)hwndCtl;
        return 0;
    }
    // WM_NOTIFY: *pResult is the message's result when handled.
    virtual int OnNotify(NMHDR* pnm, LRESULT* pResult)
    {
        (void)pnm, (void)pResult;
        return 0;
    }
    virtual int OnTimer(UINT_PTR id)
    {
        (void)id;
        return 0;
    }
    // WM_PAINT: a handler that returns nonzero has painted (BeginPaint / EndPaint).
    virtual int OnPaint() { return 0; }
    // WM_SIZE: the size type (SIZE_RESTORED...) and the new client size.
    virtual int OnSize(UINT type, int cx, int cy)
    {
        (void)type, (void)cx, (void)cy;
        return 0;
    }
    // WM_DESTROY: the window is still whole; its children are destroyed after this.
    virtual void OnDestroy() {}

    HWND hWnd = nullptr;

private:
    friend class DMDlg;
    enum class Binding { None, Created, Subclassed, Dialog };

    static LRESULT CALLBACK WndProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp);
    static LRESULT CALLBACK SubclassProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp, UINT_PTR id, DWORD_PTR ref);
    int RegisterWndClass(HINSTANCE module);
    // OnMessage behind the exception barrier; ends the binding after WM_NCDESTROY.
    LRESULT Dispatch(UINT msg, WPARAM wp, LPARAM lp) noexcept;
    void BindDialog(HWND hwnd);
    void Unbind();

    Binding binding = Binding::None;
    WindowHandle ownedWnd; // the window Create made, destroyed with the object
    static std::atomic<unsigned> nCaughtExceptions;
};
