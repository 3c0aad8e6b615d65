#include <windows.h>

#include "base/Resources.h"

// The library keeps its module handle: resources (strings, dialogs, the event message table)
// are loaded from it, not from the host executable.
HINSTANCE g_hDllInstance = nullptr;

BOOL WINAPI DllMain(HINSTANCE hInst, DWORD reason, LPVOID)
{
    if (reason == DLL_PROCESS_ATTACH) {
        g_hDllInstance = hInst;
        SetResourceModule(hInst);
        DisableThreadLibraryCalls(hInst);
    }
    return TRUE;
}
