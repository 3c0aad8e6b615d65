// The simulated terminal server's state (support/SimTerminalCore.h) in a file mapping of the Wine
// prefix (C:\windows\Temp\VantrelSimTerminal.bin), shared by the wtsapi32.dll double inside the
// product's processes and the controller. A named mutex serialises every call over it.
#pragma once
#include <windows.h>

#include <cstring>

#include "base/StrUtil.h"
#include "support/SimTerminalCore.h"

namespace simshared {

const DWORD kMagic = 0x56534D32;

struct Block {
    DWORD dwMagic;
    DWORD cbBlock;
    simts::SimState state;
};

class Shared {
public:
    // Maps the block, set up on first use; 0 with the reason in the last error.
    int Open()
    {
        if (pBlock)
            return 1;
        // Open to everyone: on Windows the service runs under another account than the controller.
        SECURITY_DESCRIPTOR sd;
        InitializeSecurityDescriptor(&sd, SECURITY_DESCRIPTOR_REVISION);
        SetSecurityDescriptorDacl(&sd, TRUE, nullptr, FALSE);
        SECURITY_ATTRIBUTES sa = {sizeof sa, &sd, FALSE};
        wchar_t path[MAX_PATH + 32];
        UINT n = GetSystemWindowsDirectoryW(path, MAX_PATH);
        hMutex = CreateMutexW(&sa, FALSE, L"Global\\VantrelSimTerminalLock");
        if (!n || n >= MAX_PATH || !hMutex || !Lock())
            return 0;
        StrAppend(path, L"\\Temp\\VantrelSimTerminal.bin");
        HANDLE hFile = CreateFileW(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &sa,
                                   OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
        HANDLE hMap = hFile == INVALID_HANDLE_VALUE
                          ? nullptr : CreateFileMappingW(hFile, &sa, PAGE_READWRITE, 0, sizeof(Block), nullptr);
        pBlock = hMap ? (Block*)MapViewOfFile(hMap, FILE_MAP_ALL_ACCESS, 0, 0, sizeof(Block)) : nullptr;
        DWORD err = GetLastError();
        if (pBlock && (pBlock->dwMagic != kMagic || pBlock->cbBlock != sizeof(Block))) {
            memset(pBlock, 0, sizeof(Block));   // a new file, or one of another build
            simts::Reset(pBlock->state);
            pBlock->dwMagic = kMagic;
            pBlock->cbBlock = sizeof(Block);
        }
        if (hMap)   // the view keeps the mapping
            CloseHandle(hMap);
        if (hFile != INVALID_HANDLE_VALUE)
            CloseHandle(hFile);
        Unlock();
        SetLastError(err);
        return pBlock != nullptr;
    }
    simts::SimState& State() { return pBlock->state; }
    // An abandoned mutex counts as taken: a process killed halfway leaves a valid record.
    int Lock(DWORD ms = 10000)
    {
        DWORD w = WaitForSingleObject(hMutex, ms);
        return w == WAIT_OBJECT_0 || w == WAIT_ABANDONED;
    }
    void Unlock() { ReleaseMutex(hMutex); }

private:
    HANDLE hMutex = nullptr;
    Block* pBlock = nullptr;
};

// Holds the mutex for a scope.
struct Locked {
    explicit Locked(Shared& s) : shared(s), bLocked(s.Lock()) {}
    ~Locked()
    {
        if (bLocked)
            shared.Unlock();
    }
    Shared& shared;
    const int bLocked;
};

} // namespace simshared
