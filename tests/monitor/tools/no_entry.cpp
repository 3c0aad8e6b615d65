// A library with the hook library's shape but without its entry DoDllHook, as a damaged or foreign
// file of that name would be.
#include <windows.h>

extern "C" __declspec(dllexport) int NotTheHookEntry() { return 0; }
