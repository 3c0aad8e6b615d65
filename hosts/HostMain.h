// The whole of a host executable: load VXDA64.DLL from the executable's own folder (by full
// path, never a search of other folders), hand one of its entry points the instance, the command
// line and the show flag, and return what it returns; exit code 3 when the library or the entry
// point is missing.
#pragma once
#include <windows.h>

inline int RunLibraryEntry(HINSTANCE hInstance, LPWSTR cmdLine, int show, const char* entryName)
{
    typedef int(WINAPI * EntryPoint)(HINSTANCE, const wchar_t*, int);
    wchar_t path[MAX_PATH + 16];
    DWORD n = GetModuleFileNameW(nullptr, path, MAX_PATH);
    if (n == 0 || n >= MAX_PATH)
        return 3;
    while (n > 0 && path[n - 1] != L'\\' && path[n - 1] != L'/')
        --n;
    lstrcpynW(path + n, L"VXDA64.DLL", 16);
    HMODULE library = LoadLibraryExW(path, nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
    if (!library)
        return 3;
    EntryPoint entry = reinterpret_cast<EntryPoint>(reinterpret_cast<void*>(GetProcAddress(library, entryName)));
    int result = entry ? entry(hInstance, cmdLine, show) : 3;
    FreeLibrary(library);
    return result;
}
