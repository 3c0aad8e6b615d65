#include "ui/DMWnd.h"

#include <commctrl.h>

#include <climits>

#include "base/Module.h"
#include "ui/DMDlg.h"

// The module this code is linked into (VXDA64.DLL, or a test executable): window classes are
// registered under it, so that they belong to the module whose procedure they call.
extern "C" IMAGE_DOS_HEADER __ImageBase;

namespace {

// The subclass id of an attached window; the object is the subclass's reference data.
const UINT_PTR kSubclassId = 0x56584457; // "VXDW"

HINSTANCE CodeModule()
{
    return reinterpret_cast<HINSTANCE>(&__ImageBase);
}

// GetWindowSubclass has no import entry in the toolchain's comctl32 library: it is looked up in
// the loaded comctl32 (which SetWindowSubclass brings in), by name or by its ordinal 411.
typedef BOOL(WINAPI* GetWindowSubclassFn)(HWND, SUBCLASSPROC, UINT_PTR, DWORD_PTR*);
BOOL GetSubclassRef(HWND hwnd, SUBCLASSPROC proc, UINT_PTR id, DWORD_PTR* pRef)
{
    static const GetWindowSubclassFn pfn = [] {
        HMODULE comctl = GetModuleHandleW(L"comctl32.dll");
        GetWindowSubclassFn fn = GetProcAs<GetWindowSubclassFn>(comctl, "GetWindowSubclass");
        return fn ? fn : GetProcAs<GetWindowSubclassFn>(comctl, MAKEINTRESOURCEA(411));
    }();
    return pfn && pfn(hwnd, proc, id, pRef);
}

} // namespace

std::atomic<unsigned> DMWnd::nCaughtExceptions{0};

DMWnd::~DMWnd()
{
    // Unbind first: destroying the window sends WM_DESTROY and WM_NCDESTROY, and by now the
    // derived parts of the object are gone. The window then dies with the default handling.
    WindowHandle wnd(ownedWnd.Detach());
    Unbind();
}

int DMWnd::RegisterWndClass(HINSTANCE module)
{
    const wchar_t* name = GetWndClassName();
    WNDCLASSEXW wc = {};
    wc.cbSize = sizeof(wc);
    if (GetClassInfoExW(module, name, &wc)) {
        // A class of that name that another procedure serves could never bind the object.
        if (wc.lpfnWndProc != WndProc) {
            SetLastError(ERROR_CLASS_ALREADY_EXISTS);
            return 0;
        }
        return 1;
    }
    wc = {};
    wc.cbSize = sizeof(wc);
    wc.style = CS_DBLCLKS;
    wc.hInstance = module;
    wc.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    wc.hbrBackground = reinterpret_cast<HBRUSH>(COLOR_WINDOW + 1);
    OnRegisterClass(wc);
    wc.cbSize = sizeof(wc);
    wc.lpfnWndProc = WndProc;
    wc.hInstance = module;
    wc.lpszClassName = name;
    // Two threads may register the same class at once; the loser finds it registered.
    if (!RegisterClassExW(&wc) && GetLastError() != ERROR_CLASS_ALREADY_EXISTS)
        return 0;
    return 1;
}

int DMWnd::Create(HWND hwndParent, const wchar_t* title, DWORD style, DWORD exStyle, const RECT* prc, UINT_PTR id)
{
    if (hWnd) {
        SetLastError(ERROR_ALREADY_INITIALIZED);
        return 0;
    }
    HINSTANCE module = CodeModule();
    if (!RegisterWndClass(module))
        return 0;
    int x = CW_USEDEFAULT, y = CW_USEDEFAULT, cx = CW_USEDEFAULT, cy = CW_USEDEFAULT;
    if (prc) {
        x = prc->left;
        y = prc->top;
        // Widths from 64-bit differences: a reversed or huge rectangle gives an empty window.
        const long long w = (long long)prc->right - prc->left, h = (long long)prc->bottom - prc->top;
        cx = w > 0 && w <= INT_MAX ? (int)w : 0;
        cy = h > 0 && h <= INT_MAX ? (int)h : 0;
    } else if (style & WS_CHILD) {
        x = y = cx = cy = 0;
    }
    HWND hwnd = CreateWindowExW(exStyle, GetWndClassName(), title ? title : L"", style, x, y, cx, cy, hwndParent,
                                reinterpret_cast<HMENU>(id), module, this);
    if (!hwnd)
        return 0;
    // Bound at WM_NCCREATE; a window that already died in its own creation never gets here.
    ownedWnd.Attach(hwnd);
    return 1;
}

int DMWnd::Attach(HWND hwnd)
{
    if (!hwnd || !IsWindow(hwnd)) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return 0;
    }
    if (hWnd) {
        SetLastError(ERROR_ALREADY_INITIALIZED);
        return 0;
    }
    // Subclassing is per thread: the window's messages run on its own thread.
    if (GetWindowThreadProcessId(hwnd, nullptr) != GetCurrentThreadId()) {
        SetLastError(ERROR_INVALID_THREAD_ID);
        return 0;
    }
    hWnd = hwnd;
    binding = Binding::Subclassed;
    if (!SetWindowSubclass(hwnd, SubclassProc, kSubclassId, reinterpret_cast<DWORD_PTR>(this))) {
        hWnd = nullptr;
        binding = Binding::None;
        if (GetLastError() == ERROR_SUCCESS)
            SetLastError(ERROR_OUTOFMEMORY);
        return 0;
    }
    return 1;
}

HWND DMWnd::Detach()
{
    HWND hwnd = hWnd;
    ownedWnd.Detach();
    Unbind();
    return hwnd;
}

int DMWnd::Destroy()
{
    if (!hWnd) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return 0;
    }
    return DestroyWindow(hWnd) ? 1 : 0;
}

DMWnd* DMWnd::FromHandle(HWND hwnd)
{
    if (!hwnd || !IsWindow(hwnd))
        return nullptr;
    DWORD_PTR ref = 0;
    if (GetSubclassRef(hwnd, SubclassProc, kSubclassId, &ref))
        return reinterpret_cast<DMWnd*>(ref);
    // User data means the object only where the library's own procedure serves the window.
    const bool bOurs = GetWindowLongPtrW(hwnd, GWLP_WNDPROC) == reinterpret_cast<LONG_PTR>(WndProc) ||
                       DMDlg::IsLibraryDialog(hwnd);
    return bOurs ? reinterpret_cast<DMWnd*>(GetWindowLongPtrW(hwnd, GWLP_USERDATA)) : nullptr;
}

unsigned DMWnd::CopyWindowText(HWND hwnd, wchar_t* buf, unsigned cch)
{
    if (!buf || cch == 0)
        return 0;
    buf[0] = 0;
    if (!hwnd)
        return 0;
    int n = GetWindowTextW(hwnd, buf, cch > INT_MAX ? INT_MAX : (int)cch);
    return n > 0 ? (unsigned)n : 0;
}

unsigned DMWnd::GetText(wchar_t* buf, unsigned cch) const { return CopyWindowText(hWnd, buf, cch); }

LRESULT DMWnd::OnMessage(UINT msg, WPARAM wp, LPARAM lp)
{
    switch (msg) {
    case WM_CREATE:
        return OnCreate(reinterpret_cast<CREATESTRUCTW*>(lp)) ? 0 : -1;
    case WM_COMMAND:
        if (OnCommand(LOWORD(wp), HIWORD(wp), reinterpret_cast<HWND>(lp)))
            return 0;
        break;
    case WM_NOTIFY: {
        LRESULT result = 0;
        if (lp && OnNotify(reinterpret_cast<NMHDR*>(lp), &result))
            return result;
        break;
    }
    case WM_TIMER:
        if (OnTimer(wp))
            return 0;
        break;
    case WM_PAINT:
        if (OnPaint())
            return 0;
        break;
    case WM_SIZE:
        if (OnSize((UINT)wp, LOWORD(lp), HIWORD(lp)))
            return 0;
        break;
    case WM_DESTROY:
        OnDestroy();
        break;
    }
    return DefaultProc(msg, wp, lp);
}

LRESULT DMWnd::DefaultProc(UINT msg, WPARAM wp, LPARAM lp)
{
    switch (binding) {
    case Binding::Subclassed:
        return DefSubclassProc(hWnd, msg, wp, lp);
    case Binding::Dialog:
        return FALSE; // the dialog manager's own handling
    default:
        return DefWindowProcW(hWnd, msg, wp, lp);
    }
}

LRESULT DMWnd::Dispatch(UINT msg, WPARAM wp, LPARAM lp) noexcept
{
    const HWND hwnd = hWnd;
    const Binding how = binding;
    LRESULT result = 0;
    try {
        result = OnMessage(msg, wp, lp);
    } catch (...) {
        ++nCaughtExceptions;
        // The default handling, as if the object had not been there. hWnd may have been
        // cleared by a handler (Detach) before it threw: answer from what was bound.
        try {
            if (hWnd == hwnd)
                result = DefaultProc(msg, wp, lp);
            else if (how == Binding::Subclassed)
                result = DefSubclassProc(hwnd, msg, wp, lp);
            else if (how == Binding::Created)
                result = DefWindowProcW(hwnd, msg, wp, lp);
            else
                result = FALSE;
        } catch (...) {
            ++nCaughtExceptions;
            result = 0;
        }
    }
    if (msg == WM_NCDESTROY && hWnd == hwnd) {
        // The window is gone: nothing is left to destroy or to unbind from later.
        ownedWnd.Detach();
        Unbind();
    }
    return result;
}

void DMWnd::BindDialog(HWND hwnd)
{
    hWnd = hwnd;
    binding = Binding::Dialog;
    SetWindowLongPtrW(hwnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
}

void DMWnd::Unbind()
{
    if (hWnd) {
        if (binding == Binding::Subclassed)
            RemoveWindowSubclass(hWnd, SubclassProc, kSubclassId);
        else if (GetWindowLongPtrW(hWnd, GWLP_USERDATA) == reinterpret_cast<LONG_PTR>(this))
            SetWindowLongPtrW(hWnd, GWLP_USERDATA, 0);
    }
    hWnd = nullptr;
    binding = Binding::None;
}

LRESULT CALLBACK DMWnd::WndProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp)
{
    DMWnd* self = nullptr;
    if (msg == WM_NCCREATE) {
        const CREATESTRUCTW* pcs = reinterpret_cast<const CREATESTRUCTW*>(lp);
        self = pcs ? static_cast<DMWnd*>(pcs->lpCreateParams) : nullptr;
        if (self && !self->hWnd) {
            self->hWnd = hwnd;
            self->binding = Binding::Created;
            SetWindowLongPtrW(hwnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(self));
        } else {
            self = nullptr;
        }
    } else {
        self = reinterpret_cast<DMWnd*>(GetWindowLongPtrW(hwnd, GWLP_USERDATA));
    }
    // Messages before WM_NCCREATE (WM_GETMINMAXINFO) and after the object let go.
    if (!self || self->hWnd != hwnd)
        return DefWindowProcW(hwnd, msg, wp, lp);
    return self->Dispatch(msg, wp, lp);
}

LRESULT CALLBACK DMWnd::SubclassProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp, UINT_PTR id, DWORD_PTR ref)
{
    (void)id;
    DMWnd* self = reinterpret_cast<DMWnd*>(ref);
    if (!self || self->hWnd != hwnd)
        return DefSubclassProc(hwnd, msg, wp, lp);
    return self->Dispatch(msg, wp, lp);
}
