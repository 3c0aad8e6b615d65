#pragma once
#include <windows.h>

// The folder for Vantrel's shared data: "<common application data>\Vantrel". buf holds at
// least 260 characters. Returns 0 with an empty buffer when the folder cannot be had.
extern "C" int WINAPI GetDataFolder(wchar_t* buf);
