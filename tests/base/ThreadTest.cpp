// Worker threads and the lock: a handed-over thread object is deleted exactly once whichever side
// comes last (also when its body throws), and CritSec is re-entrant and exclusive.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "base/Thread.h"

namespace {

const int kObjects = 1000;
std::atomic<int> g_deletes[kObjects], g_total;
HANDLE g_go = CreateEventW(nullptr, TRUE, TRUE, nullptr);   // every body waits for it

// A handed-over thread that counts its deletes; its memory is poisoned when freed, so a use after
// the delete calls through a garbage vtable. Every seventh body throws.
class CountedThread : public DMThreadExAutoDelete {
public:
    explicit CountedThread(int i) : index(i) {}
    ~CountedThread() override
    {
        g_deletes[index]++;
        g_total++;
    }
    static void operator delete(void* p, size_t cb)
    {
        memset(p, 0xDD, cb);
        ::operator delete(p);
    }
    DWORD DoThreadEx() override
    {
        WaitForSingleObject(g_go, INFINITE);
        for (int i = 0; i < index % 5; i++)
            SwitchToThread();
        if (index % 7 == 3)
            throw 42;
        return 0;
    }
    int index;
};

// Waits up to 20 s for want deletes, then a little longer for any extra one; returns the count.
int SettledDeletes(int want)
{
    for (int i = 0; i < 2000 && g_total.load() < want; i++)
        Sleep(10);
    Sleep(50);
    return g_total.load();
}

// Each order of the hand-over, and a never-started object: deleted once, by the side that comes last.
TEST(DMThreadExTest, HandOverDeletesOnceByTheLastSide)
{
    g_total = 0;
    ResetEvent(g_go);
    CountedThread* running = new CountedThread(3);   // a throwing body
    ASSERT_EQ(1, running->Start());
    running->DeleteIfDone();
    EXPECT_EQ(0, g_total.load()) << "deleted while the body was still running";
    SetEvent(g_go);
    EXPECT_EQ(1, SettledDeletes(1)) << "the thread deletes it when its body ends";

    CountedThread* done = new CountedThread(1);
    ASSERT_EQ(1, done->Start());
    ASSERT_EQ(1, done->Wait(10000));   // ended: only DeleteIfDone can delete now
    EXPECT_EQ(1, g_total.load());
    done->DeleteIfDone();
    EXPECT_EQ(2, g_total.load()) << "deleted at once by the caller";
    (new CountedThread(2))->DeleteIfDone();   // never started: nobody else would delete it
    EXPECT_EQ(3, SettledDeletes(3));
}

// A thousand short threads handed over at varied timing: every object is deleted exactly once.
TEST(DMThreadExTest, ThousandShortThreadsAreEachDeletedOnce)
{
    g_total = 0;
    for (int i = 0; i < kObjects; i++) {
        g_deletes[i] = 0;
        CountedThread* p = new CountedThread(i);
        ASSERT_EQ(1, p->Start()) << "object " << i << " error " << GetLastError();
        for (int k = 0; k < i % 3; k++)
            SwitchToThread();
        p->DeleteIfDone();
    }
    EXPECT_EQ(kObjects, SettledDeletes(kObjects));
    for (int i = 0, bad = 0; i < kObjects; i++)
        if (g_deletes[i].load() != 1 && bad++ < 5)
            ADD_FAILURE() << "object " << i << " deleted " << g_deletes[i].load() << " times";
}

// Re-entrant: held until the last Leave; exclusive: a counter only the lock protects stays exact.
TEST(CritSecTest, ReentrantAndExclusive)
{
    CritSec cs;
    auto tryFromOtherThread = [&cs] {   // 1 when another thread could take it (and gave it back)
        int got = -1;
        std::thread([&] { if ((got = cs.TryEnter())) cs.Leave(); }).join();
        return got;
    };
    cs.Enter();
    EXPECT_EQ(1, cs.TryEnter()) << "the owner enters again without waiting";
    cs.Leave();
    EXPECT_EQ(0, tryFromOtherThread()) << "released before the last Leave";
    cs.Leave();
    EXPECT_EQ(1, tryFromOtherThread());

    const int kThreads = 4, kRounds = 20000;
    long counter = 0;   // deliberately not atomic: only the lock protects it
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; t++)
        threads.emplace_back([&] {
            for (int i = 0; i < kRounds; i++) {
                CritSecLock lock(cs);
                long v = counter;
                if (i % 64 == 0)
                    SwitchToThread();   // invite the others in while the value is held
                counter = v + 1;
            }
        });
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ((long)kThreads * kRounds, counter);
}

} // namespace
