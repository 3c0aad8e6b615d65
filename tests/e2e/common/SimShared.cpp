#include "common/SimShared.h"

#include <cstring>

#include "base/StrUtil.h"

namespace simshared {

namespace {

const wchar_t kMutexName[] = L"Global\\VantrelSimTerminalLock";
const wchar_t kFileName[] = L"\\Temp\\VantrelSimTerminal.bin";

void Clear(Block& b, DWORD dwResets)
{
    memset(&b, 0, sizeof b);
    simts::Reset(b.state);
    b.dwMagic = kMagic;
    b.dwVersion = kVersion;
    b.cbBlock = sizeof(Block);
    b.dwResets = dwResets;
}

// Everyone may use the table: the service runs as another account than the controller on
// Windows, and the mutex and file must serve both.
SECURITY_ATTRIBUTES* OpenToAll()
{
    static SECURITY_DESCRIPTOR sd;
    static SECURITY_ATTRIBUTES sa;
    static bool ready = false;
    if (!ready) {
        InitializeSecurityDescriptor(&sd, SECURITY_DESCRIPTOR_REVISION);
        SetSecurityDescriptorDacl(&sd, TRUE, nullptr, FALSE);
        sa.nLength = sizeof sa;
        sa.lpSecurityDescriptor = &sd;
        sa.bInheritHandle = FALSE;
        ready = true;
    }
    return &sa;
}

} // namespace

Shared::Shared() : hFile(INVALID_HANDLE_VALUE), hMapping(nullptr), hMutex(nullptr), pBlock(nullptr) {}

Shared::~Shared()
{
    if (pBlock)
        UnmapViewOfFile(pBlock);
    if (hMapping)
        CloseHandle(hMapping);
    if (hFile != INVALID_HANDLE_VALUE)
        CloseHandle(hFile);
    if (hMutex)
        CloseHandle(hMutex);
}

int Shared::GetPath(wchar_t* path, unsigned cch)
{
    wchar_t windows[MAX_PATH];
    UINT n = GetSystemWindowsDirectoryW(windows, MAX_PATH);
    if (!n || n >= MAX_PATH)
        return 0;
    StrCopy(path, cch, windows);
    StrAppend(path, cch, kFileName);
    return 1;
}

int Shared::Open()
{
    if (pBlock)
        return 1;
    if (!hMutex) {
        hMutex = CreateMutexW(OpenToAll(), FALSE, kMutexName);
        if (!hMutex)
            return 0;
    }
    wchar_t path[MAX_PATH + 64];
    if (!GetPath(path, MAX_PATH + 64)) {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return 0;
    }
    Locked lock(*this);
    if (!lock) {
        SetLastError(ERROR_TIMEOUT);
        return 0;
    }
    hFile = CreateFileW(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                        OpenToAll(), OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (hFile == INVALID_HANDLE_VALUE)
        return 0;
    hMapping = CreateFileMappingW(hFile, OpenToAll(), PAGE_READWRITE, 0, sizeof(Block), nullptr);
    if (!hMapping)
        return 0;
    pBlock = (Block*)MapViewOfFile(hMapping, FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, sizeof(Block));
    if (!pBlock)
        return 0;
    // A new file is all zeros; a file from another build of the double is set up again.
    if (pBlock->dwMagic != kMagic || pBlock->dwVersion != kVersion || pBlock->cbBlock != sizeof(Block))
        Clear(*pBlock, 0);
    return 1;
}

int Shared::Lock(DWORD timeoutMs)
{
    DWORD w = WaitForSingleObject(hMutex, timeoutMs);
    return w == WAIT_OBJECT_0 || w == WAIT_ABANDONED;
}

void Shared::Unlock()
{
    ReleaseMutex(hMutex);
}

void Shared::ResetAll()
{
    Clear(*pBlock, pBlock->dwResets + 1);
}

} // namespace simshared
