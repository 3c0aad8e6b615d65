// The contract of the keyboard and mouse hook library VXHA64.DLL, shared by the library and the
// in-session monitor that loads it.
//
// DoDllHook(callback, context) installs low-level keyboard and mouse hooks on the calling thread;
// from then on, while that thread pumps messages, every keyboard or mouse input of the desktop
// calls callback(kind, context) on that same thread: 1 for mouse input, 2 for keyboard input.
// A second call with a callback replaces the callback and context and keeps the hooks.
// DoDllHook(nullptr, nullptr) removes the hooks; the callback is never called after it returns.
// The result is nonzero on success; 0 with the reason in the last error (nothing installed).
#pragma once
#include <windows.h>

enum HookInputKind { HookInputMouse = 1, HookInputKeyboard = 2 };

typedef void(CALLBACK* DllHookCallback)(int nKind, void* pContext);
typedef BOOL(WINAPI* DoDllHookFn)(DllHookCallback pfnCallback, void* pContext);

// The file name of the library and the name of its one export.
#define VX_HOOK_LIBRARY L"VXHA64.DLL"
#define VX_HOOK_EXPORT "DoDllHook"
