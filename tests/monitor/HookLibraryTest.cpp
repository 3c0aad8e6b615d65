// VXHA64.DLL as the monitor uses it: input of another process reaches the callback on the thread
// that installed the hooks, 1 for the mouse and 2 for the keyboard, and nothing after the hooks
// are removed.
#include <gtest/gtest.h>

#include <algorithm>

#include "MonitorTestSupport.h"
#include "base/Module.h"
#include "hook/HookApi.h"

using namespace montest;

namespace {

struct Seen {
    std::vector<int> kinds;
    DWORD dwThread = 0;
    int nOtherThread = 0;
};

void CALLBACK Record(int kind, void* context)
{
    Seen* seen = static_cast<Seen*>(context);
    seen->kinds.push_back(kind);
    if (GetCurrentThreadId() != seen->dwThread)
        ++seen->nOtherThread;
}

TEST(HookLibrary, DeliversInputOfAnotherProcessUntilRemoved)
{
    ModuleHandle library(LoadLibraryW(BinFile(VX_HOOK_LIBRARY).c_str()));
    ASSERT_TRUE(library);
    DoDllHookFn pfnHook = GetProcAs<DoDllHookFn>(library.Get(), VX_HOOK_EXPORT);
    ASSERT_NE(nullptr, pfnHook);
    Seen seen;
    seen.dwThread = GetCurrentThreadId();
    ASSERT_TRUE(pfnHook(Record, &seen));

    auto count = [&](int kind) { return std::count(seen.kinds.begin(), seen.kinds.end(), kind); };
    ASSERT_EQ(0, RunHelper(L"monitor_send_input.exe", L"key 3"));
    EXPECT_TRUE(PumpUntil([&] { return count(HookInputKeyboard) >= 6; }, 5000)) << "3 presses and releases";
    EXPECT_EQ(0, count(HookInputMouse));
    ASSERT_EQ(0, RunHelper(L"monitor_send_input.exe", L"mouse 2"));
    EXPECT_TRUE(PumpUntil([&] { return count(HookInputMouse) >= 4; }, 5000)) << "2 moves there and back";
    EXPECT_EQ(seen.kinds.size(), (size_t)(count(HookInputMouse) + count(HookInputKeyboard)));
    EXPECT_EQ(0, seen.nOtherThread);

    ASSERT_TRUE(pfnHook(nullptr, nullptr));
    const size_t before = seen.kinds.size();
    ASSERT_EQ(0, RunHelper(L"monitor_send_input.exe", L"key 2"));
    ASSERT_EQ(0, RunHelper(L"monitor_send_input.exe", L"mouse 2"));
    PumpUntil([] { return false; }, 300);
    EXPECT_EQ(before, seen.kinds.size()) << "nothing after the hooks were removed";
}

} // namespace
