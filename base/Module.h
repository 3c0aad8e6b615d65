#pragma once
#include <windows.h>

// Looks up an export and gives it the caller's function type (GetProcAddress's own type is a
// placeholder; the cast through void* keeps the compiler's function-cast check quiet).
template <class Fn> inline Fn GetProcAs(HMODULE module, const char* name)
{
    return module ? reinterpret_cast<Fn>(reinterpret_cast<void*>(GetProcAddress(module, name))) : nullptr;
}
