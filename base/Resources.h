// The module whose resources (strings, dialogs, icons, the event message table) the product
// uses: VXDA64.DLL sets itself when it loads; tests point it at the built library.
#pragma once
#include <windows.h>

HINSTANCE GetResourceModule();
void SetResourceModule(HINSTANCE module);
// Loads string resource id into buf (cch characters); the length, 0 and an empty buffer when the
// string does not exist.
int LoadResString(int id, wchar_t* buf, unsigned cch);
