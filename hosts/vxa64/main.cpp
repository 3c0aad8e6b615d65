// The service host: runs the service ("/service") and the command-line modes of VXDA64.DLL.
// It only loads the library from its own folder and hands over its instance and command line;
// exit code 3 when the library is missing.
#include <windows.h>

typedef int(WINAPI* EntryPoint)(HINSTANCE, const wchar_t*, int);

int WINAPI wWinMain(HINSTANCE hInstance, HINSTANCE, LPWSTR cmdLine, int show)
{
    // The full path of the library beside this executable, never a search of other folders.
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
    EntryPoint entry = reinterpret_cast<EntryPoint>(reinterpret_cast<void*>(GetProcAddress(library, "DoWinMain")));
    int result = entry ? entry(hInstance, cmdLine, show) : 3;
    FreeLibrary(library);
    return result;
}
