// Bounded strings (every buffer limit rests on them), the list, the handle owner, hand-over threads.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include "base/DMList.h"
#include "base/Handle.h"
#include "base/StrUtil.h"
#include "base/Thread.h"

namespace {
// Each case writes into a buffer pre-filled with 0xbdbd and may use only the first cch characters.
TEST(StrUtil, CopyAppendAndFormatCutAndTerminateAtTheLimit)
{
    const struct { int op; unsigned cch; const wchar_t *start, *arg; unsigned result; const wchar_t* text; } cases[] = {
        {0, 5, L"", L"abcdefgh", 4, L"abcd"}, {0, 5, L"", L"abcd", 4, L"abcd"}, {0, 1, L"", L"abc", 0, L""},
        {1, 6, L"ab", L"cd", 4, L"abcd"}, {1, 6, L"abcd", L"efgh", 5, L"abcde"}, {1, 4, L"xxxx", L"y", 3, L"xxx"}, // unterminated: cut
        {2, 8, L"", L"HKLM\\Software", 7, L"HKLM\\So"}, {2, 4, L"", L"abcd", 3, L"abc"}, // exactly full is a cut too
        {3, 8, L"", L"abcdef", 3, L"abc"}};
    for (const auto& c : cases) {
        wchar_t b[9];
        wmemset(b, 0xbdbd, 9);
        wmemcpy(b, c.start, wcslen(c.start) + (c.op != 1 || wcslen(c.start) < c.cch));
        const unsigned n = c.op == 0 ? StrCopy(b, c.cch, c.arg) : c.op == 1 ? StrAppend(b, c.cch, c.arg)
                         : c.op == 2 ? StrFormat(b, c.cch, L"%s", c.arg) : StrCopyN(b, c.cch, c.arg, 3);
        EXPECT_EQ(n, c.result) << &c - cases;
        EXPECT_STREQ(b, c.text) << &c - cases;
        EXPECT_EQ(b[c.cch], 0xbdbd) << "written past the size: " << &c - cases;
    }
    wchar_t b[64] = L"kept";
    EXPECT_EQ(StrCopy(b, 0, L"abc"), 0u);
    EXPECT_STREQ(b, L"kept") << "a zero-size buffer is not touched";
    EXPECT_EQ(StrFormat(b, L"%s=dword:%08X", L"Timeout", 0xABCu), 22u) << "%s takes a wide string";
    EXPECT_STREQ(b, L"Timeout=dword:00000ABC");
}

TEST(StrUtil, ComparisonsTreatNullAsEmpty)
{
    EXPECT_TRUE(StrEqual(nullptr, L"") && !StrEqual(L"a", L"A") && !StrEqualNoCase(L"abc", L"abcd") && StrEqualNoCase(L"\u00e9t\u00e9", L"\u00c9T\u00c9"));
    EXPECT_TRUE(StrCompareNoCase(L"abc", L"ABD") < 0 && StrCompareNoCase(L"b", L"A") > 0 && !StrCompareNoCaseN(L"HKLMx", L"hklmY", 4));
    EXPECT_TRUE(StrStartsWith(L"Admins", L"ad", true) && StrStartsWith(L"Admins", L"", false) && !StrStartsWith(L"Admins", L"ad", false));
    EXPECT_FALSE(StrStartsWith(L"Ad", L"Admins", true));
}

// An administrator's text: only "%d" and "%%" are formats; a long result is cut, even mid-number.
TEST(StrUtil, ExpandNumberReplacesOnlyItsPlaceholder)
{
    const struct { const wchar_t* text; unsigned cch; const wchar_t* want; } cases[] = {
        {L"In %d min, %d!", 64, L"In 12 min, 12!"}, {L"100%% %s %x %", 64, L"100% %s %x %"}, {L"%%d stays", 64, L"%d stays"},
        {L"Go %d", 5, L"Go 1"}, {nullptr, 4, L""}};
    for (const auto& c : cases) {
        wchar_t out[65];
        wmemset(out, 0xbdbd, 65);
        EXPECT_EQ(StrExpandNumber(out, c.cch, c.text, L"12"), wcslen(c.want));
        EXPECT_STREQ(out, c.want);
        EXPECT_EQ(out[c.cch], (wchar_t)0xbdbd) << "written past the size";
    }
}

std::vector<int> g_destroyed; // what the destroy callback freed, in order
void DestroyInt(void* p) { g_destroyed.push_back(*(int*)p), delete (int*)p; }

// Links stay consistent on removal at each place (walked both ways), owned items freed exactly once.
TEST(DMList, RemovalKeepsLinksAndDestroysOnce)
{
    g_destroyed.clear();
    {
        DMList list(DestroyInt);
        std::vector<DMPos> pos;
        for (int i = 1; i <= 5; ++i)
            pos.push_back(list.AddTail(new int(i)));
        list.RemoveAt(pos[2]), list.RemoveAt(pos[0]), list.RemoveAt(pos[4]); // middle, head, tail
        DMPos head = list.GetHeadPosition(), tail = list.GetTailPosition();
        ASSERT_EQ(*(int*)list.GetNext(head) * 10 + *(int*)list.GetPrev(tail), 24); // stop before broken links do harm
        ASSERT_TRUE(head == list.GetTailPosition() && tail == list.GetHeadPosition() && list.GetCount() == 2);
        list.RemoveAt(pos[3]), list.RemoveAt(pos[1]); // the last node takes head and tail with it
        ASSERT_TRUE(list.GetHeadPosition() == nullptr && list.GetTailPosition() == nullptr);
        list.AddTail(new int(6)), list.AddHead(new int(7)), list.RemoveAll(), list.AddHead(new int(8));
    }
    EXPECT_EQ(g_destroyed, std::vector<int>({3, 1, 5, 4, 2, 7, 6, 8})) << "the destructor frees what is left";
}

// Released once, handed over on move, the old handle released by Receive, the last error kept.
TEST(Owner, ReleasesOnceKeepsTheLastErrorAndMovesOwnership)
{
    auto isOpen = [](HANDLE h) { DWORD flags; return GetHandleInformation(h, &flags) != 0; };
    HANDLE raw = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    Handle a(raw), b(std::move(a)), h(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    EXPECT_TRUE(!a.IsValid() && b.Get() == raw);
    SetLastError(0xdeadbeef);
    b.Close();
    EXPECT_EQ(GetLastError(), 0xdeadbeefu) << "a release keeps the reason of an earlier failure";
    EXPECT_FALSE(isOpen(raw));
    HANDLE first = h.Get(), *slot = h.Receive();
    EXPECT_FALSE(isOpen(first));
    *slot = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    HANDLE second = h.Detach();
    EXPECT_TRUE(!h.IsValid() && isOpen(second) && CloseHandle(second));
    EXPECT_FALSE(Handle(INVALID_HANDLE_VALUE).IsValid()) << "what CreateFile answers for no handle";
}

std::atomic<int> g_total;
HANDLE g_go = CreateEventW(nullptr, TRUE, TRUE, nullptr); // every body waits for it
// Counts its deletes; freed memory is poisoned, so a use after delete crashes. Some bodies throw.
struct CountedThread : DMThreadExAutoDelete {
    explicit CountedThread(int i) : index(i) {}
    ~CountedThread() override { g_total++; }
    static void operator delete(void* p, size_t cb) { memset(p, 0xDD, cb), ::operator delete(p); }
    DWORD DoThreadEx() override { return WaitForSingleObject(g_go, INFINITE), index % 7 == 3 ? throw 42 : 0; }
    int index;
};
int SettledDeletes(int want) // waits up to 20 s for want deletes, then briefly for an extra one
{
    for (int i = 0; i < 2000 && g_total.load() < want; i++)
        Sleep(10);
    return Sleep(50), g_total.load();
}

// Deleted exactly once, by whichever side of the hand-over comes last; never while running.
TEST(DMThreadEx, HandOverDeletesOnceByTheLastSide)
{
    ResetEvent(g_go);
    CountedThread *running = new CountedThread(3), *done = new CountedThread(1);
    ASSERT_EQ(running->Start(), 1);
    running->DeleteIfDone();
    ASSERT_EQ(g_total.load(), 0) << "deleted while the body was still running";
    SetEvent(g_go);
    ASSERT_EQ(done->Start(), 1);
    ASSERT_EQ(done->Wait(10000), 1);
    EXPECT_EQ(SettledDeletes(1), 1) << "the thread deletes it when its body ends, and only it";
    done->DeleteIfDone();
    EXPECT_EQ(g_total.load(), 2) << "an ended thread is deleted at once by the caller";
    (new CountedThread(2))->DeleteIfDone(); // never started: nobody else would delete it
    EXPECT_EQ(SettledDeletes(3), 3);
    for (int i = 0; i < 300; i++) { // varied timing: deleted exactly once (twice crashes on the poison)
        CountedThread* p = new CountedThread(i);
        ASSERT_EQ(p->Start(), 1) << i;
        for (int k = 0; k < i % 3; k++)
            SwitchToThread();
        p->DeleteIfDone();
    }
    EXPECT_EQ(SettledDeletes(303), 303);
}

} // namespace
