// Worker threads and the lock of the class library: the body runs on its own thread, a
// handed-over thread object is deleted exactly once whichever side finishes first, no exception
// escapes a thread, and CritSec is re-entrant and exclusive.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <new>

#include "base/Handle.h"
#include "base/Thread.h"

namespace {

// Runs a function as the body of an owned (never handed-over) thread.
class FnThread : public DMThread {
public:
    explicit FnThread(std::function<DWORD()> f) : fn(std::move(f)) {}
    ~FnThread() override { Wait(); }

protected:
    DWORD DoThread() override { return fn(); }

private:
    std::function<DWORD()> fn;
};

const int kObjects = 1000;
std::atomic<int> g_deletes[kObjects];
std::atomic<DWORD> g_deleterThread[kObjects];
std::atomic<int> g_totalDeletes;

void ResetCounts()
{
    for (int i = 0; i < kObjects; i++) {
        g_deletes[i] = 0;
        g_deleterThread[i] = 0;
    }
    g_totalDeletes = 0;
}

// A handed-over thread that counts its deletes. Its memory is poisoned when it is freed, so a
// thread that used its object after the delete would call through a garbage vtable.
class CountedThread : public DMThreadExAutoDelete {
public:
    CountedThread(int i, HANDLE go = nullptr, int spin = 0, bool bThrow = false)
        : index(i), hGo(go), nSpin(spin), bThrowInBody(bThrow)
    {
    }
    ~CountedThread() override
    {
        g_deleterThread[index] = GetCurrentThreadId();
        g_deletes[index]++;
        g_totalDeletes++;
    }
    static void operator delete(void* p, size_t cb)
    {
        memset(p, 0xDD, cb);
        ::operator delete(p);
    }

protected:
    DWORD DoThreadEx() override
    {
        if (hGo)
            WaitForSingleObject(hGo, INFINITE);
        for (int i = 0; i < nSpin; i++)
            SwitchToThread();
        if (bThrowInBody)
            throw 42;
        return (DWORD)index;
    }

private:
    int index;
    HANDLE hGo;
    int nSpin;
    bool bThrowInBody;
};

// Polls until want objects have been deleted (at most 20 s).
bool WaitForDeletes(int want)
{
    for (int i = 0; i < 2000 && g_totalDeletes.load() < want; i++)
        Sleep(10);
    return g_totalDeletes.load() >= want;
}

TEST(DMThreadTest, BodyRunsOnItsOwnThreadAndGivesItsExitCode)
{
    Handle go(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    std::atomic<DWORD> bodyThread{0};
    FnThread t([&]() -> DWORD {
        bodyThread = GetCurrentThreadId();
        WaitForSingleObject(go, INFINITE);
        return 1234;
    });
    EXPECT_EQ(0, t.IsRunning());
    ASSERT_EQ(1, t.Start());
    ASSERT_NE(nullptr, t.GetHandle());

    SetLastError(0xdeadbeef);
    EXPECT_EQ(0, t.Wait(50));
    EXPECT_EQ((DWORD)WAIT_TIMEOUT, GetLastError());
    EXPECT_EQ(1, t.IsRunning());
    SetLastError(0xdeadbeef);
    EXPECT_EQ(0, t.Start());
    EXPECT_EQ((DWORD)ERROR_ALREADY_INITIALIZED, GetLastError());

    SetEvent(go);
    EXPECT_EQ(1, t.Wait(10000));
    EXPECT_EQ(0, t.IsRunning());
    EXPECT_EQ(t.GetThreadId(), bodyThread.load());
    EXPECT_NE(GetCurrentThreadId(), bodyThread.load());
    DWORD code = 0;
    ASSERT_EQ(1, t.GetExitCode(&code));
    EXPECT_EQ(1234u, code);
}

TEST(DMThreadTest, ExceptionEndsTheThreadWithItsExitCode)
{
    FnThread t([]() -> DWORD { throw 7; });
    ASSERT_EQ(1, t.Start());
    ASSERT_EQ(1, t.Wait(10000));
    DWORD code = 0;
    ASSERT_EQ(1, t.GetExitCode(&code));
    EXPECT_EQ(kThreadExceptionExit, code);
}

TEST(DMThreadExTest, HandOverFirstThreadDeletesItself)
{
    ResetCounts();
    Handle go(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    CountedThread* p = new CountedThread(0, go);
    ASSERT_EQ(1, p->Start());
    DWORD worker = p->GetThreadId();
    p->DeleteIfDone();
    EXPECT_EQ(0, g_deletes[0].load()) << "deleted while the body was still running";
    SetEvent(go);
    ASSERT_TRUE(WaitForDeletes(1));
    Sleep(50);
    EXPECT_EQ(1, g_deletes[0].load());
    EXPECT_EQ(worker, g_deleterThread[0].load());
}

TEST(DMThreadExTest, BodyDoneFirstDeleteIfDoneDeletes)
{
    ResetCounts();
    CountedThread* p = new CountedThread(0);
    ASSERT_EQ(1, p->Start());
    ASSERT_EQ(1, p->Wait(10000));   // the thread has ended: only DeleteIfDone can delete now
    EXPECT_EQ(0, g_deletes[0].load());
    p->DeleteIfDone();
    EXPECT_EQ(1, g_deletes[0].load());
    EXPECT_EQ(GetCurrentThreadId(), g_deleterThread[0].load());

    // Never started: nothing else would ever delete it.
    CountedThread* q = new CountedThread(1);
    q->DeleteIfDone();
    EXPECT_EQ(1, g_deletes[1].load());
}

TEST(DMThreadExTest, ThrowingBodyIsStillDeletedOnce)
{
    ResetCounts();
    Handle go(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    CountedThread* p = new CountedThread(0, go, 0, true);
    ASSERT_EQ(1, p->Start());
    p->DeleteIfDone();
    SetEvent(go);
    ASSERT_TRUE(WaitForDeletes(1));
    Sleep(50);
    EXPECT_EQ(1, g_totalDeletes.load());
}

// Both orders mixed at random timing: every object is deleted exactly once.
TEST(DMThreadExTest, ThousandShortThreadsAreEachDeletedOnce)
{
    ResetCounts();
    int started = 0;
    for (int i = 0; i < kObjects; i++) {
        CountedThread* p = new CountedThread(i, nullptr, i % 5);
        ASSERT_EQ(1, p->Start()) << "object " << i << " error " << GetLastError();
        started++;
        for (int k = 0; k < i % 3; k++)
            SwitchToThread();
        p->DeleteIfDone();
    }
    ASSERT_TRUE(WaitForDeletes(started)) << g_totalDeletes.load() << " of " << started;
    Sleep(100);
    EXPECT_EQ(started, g_totalDeletes.load());
    int bad = 0;
    for (int i = 0; i < kObjects; i++)
        if (g_deletes[i].load() != 1 && bad++ < 5)
            ADD_FAILURE() << "object " << i << " deleted " << g_deletes[i].load() << " times";
}

// Tries the lock from another thread: 1 when it could be taken (it is released again).
int TryFromOtherThread(CritSec& cs)
{
    std::atomic<int> got{-1};
    FnThread t([&]() -> DWORD {
        got = cs.TryEnter();
        if (got)
            cs.Leave();
        return 0;
    });
    if (!t.Start() || !t.Wait(10000))
        return -1;
    return got.load();
}

TEST(CritSecTest, ReentrantAndHeldUntilTheLastLeave)
{
    CritSec cs;
    cs.Enter();
    cs.Enter();
    EXPECT_EQ(1, cs.TryEnter());   // the owner may enter a third time without waiting
    EXPECT_EQ(0, TryFromOtherThread(cs));
    cs.Leave();
    cs.Leave();
    EXPECT_EQ(0, TryFromOtherThread(cs)) << "released before the last Leave";
    cs.Leave();
    EXPECT_EQ(1, TryFromOtherThread(cs));

    {
        CritSecLock outer(cs);
        CritSecLock inner(cs);
        EXPECT_EQ(0, TryFromOtherThread(cs));
    }
    EXPECT_EQ(1, TryFromOtherThread(cs));
}

TEST(CritSecTest, ExcludesOtherThreads)
{
    CritSec cs;
    const int kThreads = 4, kRounds = 20000;
    long counter = 0;   // deliberately not atomic: only the lock protects it
    std::atomic<int> inside{0}, overlaps{0};
    FnThread* threads[kThreads];
    for (auto& t : threads) {
        t = new FnThread([&]() -> DWORD {
            for (int i = 0; i < kRounds; i++) {
                CritSecLock lock(cs);
                if (++inside != 1)
                    overlaps++;
                long v = counter;
                if (i % 64 == 0)
                    SwitchToThread();   // invite the others in while the value is held
                counter = v + 1;
                inside--;
            }
            return 0;
        });
        ASSERT_EQ(1, t->Start());
    }
    for (auto& t : threads) {
        EXPECT_EQ(1, t->Wait(60000));
        delete t;
    }
    EXPECT_EQ(0, overlaps.load());
    EXPECT_EQ((long)kThreads * kRounds, counter);
}

} // namespace
