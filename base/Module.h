#pragma once
#include <windows.h>

#include <cwchar>

// Looks up an export and gives it the caller's function type (GetProcAddress's own type is a
// placeholder; the cast through void* keeps the compiler's function-cast check quiet).
template <class Fn> inline Fn GetProcAs(HMODULE module, const char* name)
{
    return module ? reinterpret_cast<Fn>(reinterpret_cast<void*>(GetProcAddress(module, name))) : nullptr;
}

// Loads a library of the system by its full path in the system folder, never through the search
// path, so that no file of that name in the program's or the current folder is loaded instead.
// Null, with the reason in the last error, when it is not there.
inline HMODULE LoadSystemLibrary(const wchar_t* name)
{
    const size_t len = name ? wcslen(name) : 0;
    if (len == 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    wchar_t path[MAX_PATH];
    const UINT n = GetSystemDirectoryW(path, MAX_PATH);
    if (n == 0)
        return nullptr;
    if (n >= MAX_PATH || len >= MAX_PATH - 1 - n) {
        SetLastError(ERROR_FILENAME_EXCED_RANGE);
        return nullptr;
    }
    path[n] = L'\\';
    wmemcpy(path + n + 1, name, len + 1);
    return LoadLibraryW(path);
}
