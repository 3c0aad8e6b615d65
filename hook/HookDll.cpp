// VXHA64.DLL: low-level keyboard and mouse hooks that report input to one callback (hook/HookApi.h).
//
// Low-level hooks are called in the context of the thread that installed them, from that
// thread's message loop, so the callback runs on the monitor's own thread and the state below is
// only touched there. The hook procedures stay short: the system drops a low-level hook that
// keeps input waiting too long.
#include <windows.h>

#include "hook/HookApi.h"

namespace {

HINSTANCE g_module = nullptr;
HHOOK g_keyboard = nullptr;
HHOOK g_mouse = nullptr;
DllHookCallback g_callback = nullptr;
void* g_context = nullptr;

void Notify(int kind) noexcept
{
    DllHookCallback callback = g_callback;
    if (!callback)
        return;
    try {
        callback(kind, g_context);
    } catch (...) {
        // Nothing crosses the hook procedure; the input goes on to the next hook regardless.
    }
}

LRESULT CALLBACK KeyboardProc(int nCode, WPARAM wp, LPARAM lp)
{
    if (nCode == HC_ACTION)
        Notify(HookInputKeyboard);
    return CallNextHookEx(nullptr, nCode, wp, lp);
}

LRESULT CALLBACK MouseProc(int nCode, WPARAM wp, LPARAM lp)
{
    if (nCode == HC_ACTION)
        Notify(HookInputMouse);
    return CallNextHookEx(nullptr, nCode, wp, lp);
}

void RemoveHooks()
{
    const DWORD err = GetLastError();
    if (g_keyboard)
        UnhookWindowsHookEx(g_keyboard);
    if (g_mouse)
        UnhookWindowsHookEx(g_mouse);
    g_keyboard = g_mouse = nullptr;
    g_callback = nullptr;
    g_context = nullptr;
    SetLastError(err);
}

} // namespace

extern "C" BOOL WINAPI DoDllHook(DllHookCallback pfnCallback, void* pContext)
{
    if (!pfnCallback) {
        RemoveHooks();
        return TRUE;
    }
    if (!g_keyboard)
        g_keyboard = SetWindowsHookExW(WH_KEYBOARD_LL, KeyboardProc, g_module, 0);
    if (g_keyboard && !g_mouse)
        g_mouse = SetWindowsHookExW(WH_MOUSE_LL, MouseProc, g_module, 0);
    if (!g_keyboard || !g_mouse) {
        RemoveHooks(); // all or nothing
        return FALSE;
    }
    g_callback = pfnCallback;
    g_context = pContext;
    return TRUE;
}

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved)
{
    if (reason == DLL_PROCESS_ATTACH) {
        g_module = instance;
        DisableThreadLibraryCalls(instance);
    } else if (reason == DLL_PROCESS_DETACH && !reserved) {
        // Freed while still hooked: the hook procedures are about to vanish with the library.
        RemoveHooks();
    }
    return TRUE;
}
