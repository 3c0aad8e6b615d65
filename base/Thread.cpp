#include "base/Thread.h"

#include <process.h>

#include "base/Handle.h"

DMThread::DMThread() : hThread(nullptr), dwThreadId(0) {}

DMThread::~DMThread()
{
    if (hThread) {
        DWORD err = GetLastError();
        if (GetCurrentThreadId() != dwThreadId)
            WaitForSingleObject(hThread, INFINITE);
        CloseHandleKeepError(hThread);
        hThread = nullptr;
        SetLastError(err);
    }
}

int DMThread::Start()
{
    if (hThread) {
        SetLastError(ERROR_ALREADY_INITIALIZED);
        return 0;
    }
    // Created suspended, so that the handle and the id are stored before the body can run (and,
    // for a handed-over thread, delete the object).
    unsigned id = 0;
    SetLastError(0);
    uintptr_t h = _beginthreadex(nullptr, nStackReserve, ThreadEntry, this,
                                 CREATE_SUSPENDED | (nStackReserve ? STACK_SIZE_PARAM_IS_A_RESERVATION : 0), &id);
    if (!h) {
        if (!GetLastError())
            SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return 0;
    }
    hThread = (HANDLE)h;
    dwThreadId = id;
    if (ResumeThread(hThread) == (DWORD)-1) {
        DWORD err = GetLastError();
        TerminateThread(hThread, err);
        CloseHandleKeepError(hThread);
        hThread = nullptr;
        dwThreadId = 0;
        SetLastError(err);
        return 0;
    }
    return 1;
}

int DMThread::Wait(DWORD ms)
{
    if (!hThread)
        return 1;
    DWORD r = WaitForSingleObject(hThread, ms);
    if (r == WAIT_OBJECT_0)
        return 1;
    if (r == WAIT_TIMEOUT)
        SetLastError(WAIT_TIMEOUT);
    return 0;
}

int DMThread::IsRunning() const
{
    return hThread && WaitForSingleObject(hThread, 0) == WAIT_TIMEOUT;
}

int DMThread::GetExitCode(DWORD* pdwCode) const
{
    if (!hThread) {
        SetLastError(ERROR_INVALID_HANDLE);
        return 0;
    }
    return GetExitCodeThread(hThread, pdwCode) ? 1 : 0;
}

unsigned __stdcall DMThread::ThreadEntry(void* pParam)
{
    // Nothing here may use the object after DoThread returns: a handed-over DMThreadEx is gone
    // by then.
    DMThread* pThread = static_cast<DMThread*>(pParam);
    DWORD code;
    try {
        code = pThread->DoThread();
    } catch (...) {
        code = kThreadExceptionExit;
    }
    return code;
}

DMThreadEx::DMThreadEx() : nHandOver(0) {}

DMThreadEx::~DMThreadEx() = default;

DWORD DMThreadEx::DoThread()
{
    DWORD code;
    try {
        code = DoThreadEx();
    } catch (...) {
        code = kThreadExceptionExit;
    }
    // Exactly one of this and DeleteIfDone sees both bits and deletes.
    if (nHandOver.fetch_or(kBodyDone) & kHandedOver)
        delete this;
    return code;
}

void DMThreadEx::DeleteIfDone()
{
    if (!GetHandle()) {
        delete this;
        return;
    }
    if (nHandOver.fetch_or(kHandedOver) & kBodyDone)
        delete this;
}

CritSec::CritSec()
{
    InitializeCriticalSection(&cs);
}

CritSec::~CritSec()
{
    DeleteCriticalSection(&cs);
}
