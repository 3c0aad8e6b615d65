// The class library's worker threads and its lock.
//
// DMThread owns one Windows thread (handle and id) that runs the object's virtual body.
// DMThreadEx runs `DoThreadEx` instead and adds the hand-over that lets a thread object outlive
// its creator: after `Start`, the creator calls `DeleteIfDone` once and forgets the pointer; from
// then on the object is deleted exactly once, by whichever side comes last:
//   - the body has already returned when DeleteIfDone is called: DeleteIfDone deletes it;
//   - DeleteIfDone comes first: the thread deletes the object as soon as the body returns.
// Neither side touches the object after the delete. The engine's session threads and its
// background thread live this way: nobody waits for them, they end on their own (a logoff, the
// quit flag) and their destructors take them off the engine's lists.
// DMThreadExAutoDelete is the base for thread classes that are only ever used like that.
//
// No exception leaves a thread: the entry catches everything and the thread ends with
// kThreadExceptionExit, still going through the hand-over.
//
// CritSec is a re-entrant lock over a CRITICAL_SECTION: the thread that holds it may enter it
// again (the engine's session-change handler holds the session list's lock while the lookups it
// calls take it once more); each Enter needs its Leave. CritSecLock holds one for a scope.
#pragma once
#include <windows.h>

#include <atomic>

// Exit code of a thread whose body let an exception escape: ERROR_UNHANDLED_EXCEPTION (574),
// which the MinGW headers do not name.
const DWORD kThreadExceptionExit = 574;

class DMThread {
public:
    DMThread();
    // Deleting an object whose thread still runs (from another thread) waits for the thread to
    // end: stop the body first. Deleting from the thread itself does not wait.
    virtual ~DMThread();
    DMThread(const DMThread&) = delete;
    DMThread& operator=(const DMThread&) = delete;

    // Creates the thread and lets it run the body. 0 with the reason in the last error when the
    // thread cannot be created, or ERROR_ALREADY_INITIALIZED when this object already has one.
    int Start();
    // Waits up to ms milliseconds for the thread to end: nonzero when it has ended (or there is
    // no thread), 0 on time-out (WAIT_TIMEOUT in the last error) or failure.
    int Wait(DWORD ms = INFINITE);
    // Nonzero while the thread exists and has not ended.
    int IsRunning() const;
    HANDLE GetHandle() const { return hThread; }
    DWORD GetThreadId() const { return dwThreadId; }
    // The thread's exit code (STILL_ACTIVE while it runs); 0 when there is no thread.
    int GetExitCode(DWORD* pdwCode) const;
    // The stack address space to reserve for the thread (0: the program's default); takes effect
    // at Start. A service with a thread per session keeps these small.
    void SetStackReserve(unsigned bytes) { nStackReserve = bytes; }

protected:
    // The thread's body; its result is the thread's exit code.
    virtual DWORD DoThread() = 0;

private:
    static unsigned __stdcall ThreadEntry(void* pParam);

    HANDLE hThread;
    DWORD dwThreadId;
    unsigned nStackReserve = 0;
};

class DMThreadEx : public DMThread {
public:
    DMThreadEx();
    ~DMThreadEx() override;

    // Hands the object over to its thread (see above). Call once, right after Start, from the
    // creator; the pointer must not be used afterwards. An object whose thread never started
    // (Start not called or failed) is deleted at once.
    void DeleteIfDone();

protected:
    // The body of the thread; its result is the thread's exit code.
    virtual DWORD DoThreadEx() = 0;

private:
    DWORD DoThread() final;

    // Bits of the hand-over: set once each, by the creator and by the thread.
    enum { kHandedOver = 1, kBodyDone = 2 };
    std::atomic<unsigned> nHandOver;
};

// A thread object that always belongs to its own thread once started: created with new,
// started, handed to DeleteIfDone, never waited for or deleted by anyone else (the engine's
// session threads).
class DMThreadExAutoDelete : public DMThreadEx {
public:
    DMThreadExAutoDelete() = default;
    ~DMThreadExAutoDelete() override = default;
};

class CritSec {
public:
    CritSec();
    ~CritSec();
    CritSec(const CritSec&) = delete;
    CritSec& operator=(const CritSec&) = delete;

    void Enter() { EnterCriticalSection(&cs); }
    void Leave() { LeaveCriticalSection(&cs); }
    // Nonzero when the lock was taken (or is already held by this thread) without waiting.
    int TryEnter() { return TryEnterCriticalSection(&cs) ? 1 : 0; }

private:
    CRITICAL_SECTION cs;
};

// Holds a CritSec from construction to the end of the scope.
class CritSecLock {
public:
    explicit CritSecLock(CritSec& lock) : critSec(lock) { critSec.Enter(); }
    ~CritSecLock() { critSec.Leave(); }
    CritSecLock(const CritSecLock&) = delete;
    CritSecLock& operator=(const CritSecLock&) = delete;

private:
    CritSec& critSec;
};
