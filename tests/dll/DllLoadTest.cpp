// The shipped library loads on Windows as it is and exposes its entry points.
#include <windows.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "base/Module.h"
#include "resources/resource.h"

namespace {

struct Library {
    HMODULE h = LoadLibraryW(L"VXDA64.DLL");
    ~Library()
    {
        if (h)
            FreeLibrary(h);
    }
};

TEST(Dll, LoadsAndExportsItsEntryPoints)
{
    Library lib;
    ASSERT_NE(lib.h, nullptr) << "LoadLibraryW error " << GetLastError();
    EXPECT_NE(GetProcAddress(lib.h, "GetDataFolder"), nullptr);
    // Nothing else leaks out as an undecorated C++ symbol.
    EXPECT_EQ(GetProcAddress(lib.h, "DllMain"), nullptr);
}

TEST(Dll, DataFolderIsCommonAppDataVantrel)
{
    Library lib;
    ASSERT_NE(lib.h, nullptr);
    using Fn = int(WINAPI*)(wchar_t*);
    auto getDataFolder = GetProcAs<Fn>(lib.h, "GetDataFolder");
    ASSERT_NE(getDataFolder, nullptr);

    wchar_t buf[300];
    for (auto& c : buf)
        c = 0xbdbd;
    ASSERT_EQ(getDataFolder(buf), 1);
    std::wstring got(buf);
    ASSERT_GE(got.size(), 8u);
    EXPECT_EQ(got.substr(got.size() - 8), L"\\Vantrel");
    // The parent is the machine-wide application data folder, as the environment names it.
    wchar_t expected[MAX_PATH];
    DWORD n = GetEnvironmentVariableW(L"ProgramData", expected, MAX_PATH);
    if (n && n < MAX_PATH) {
        EXPECT_EQ(_wcsicmp(got.substr(0, got.size() - 8).c_str(), expected), 0) << "got " << std::string(got.begin(), got.end());
    }
    EXPECT_EQ(buf[got.size() + 1], 0xbdbd) << "wrote past the terminator";
}

// "/msg:N" asks the session's monitor to show the warning (code 304 with the session), or shows
// the box itself when no monitor runs.
std::vector<std::pair<WPARAM, LPARAM>> g_asked;
LRESULT CALLBACK FakeMonitorProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp)
{
    if (msg == RegisterWindowMessageW(L"KorvaneMessage"))
        g_asked.emplace_back(wp, lp);
    return DefWindowProcW(hwnd, msg, wp, lp);
}

TEST(Dll, WarningGoesToTheMonitorOrShowsItself)
{
    Library lib;
    using Fn = int(WINAPI*)(HINSTANCE, const wchar_t*, int);
    auto doWinMain = GetProcAs<Fn>(lib.h, "DoWinMain");
    ASSERT_NE(doWinMain, nullptr);
    WNDCLASSW wc = {0, FakeMonitorProc, 0, 0, GetModuleHandleW(nullptr), nullptr, nullptr, nullptr, nullptr, L"VANTREL_MONITOR"};
    RegisterClassW(&wc);
    HWND monitor = CreateWindowExW(0, wc.lpszClassName, L"", 0, 0, 0, 1, 1, nullptr, nullptr, wc.hInstance, nullptr);
    ASSERT_NE(monitor, nullptr);
    EXPECT_EQ(doWinMain(nullptr, L"/msg:7", 0), 0);
    MSG m;
    while (PeekMessageW(&m, nullptr, 0, 0, PM_REMOVE))
        DispatchMessageW(&m);
    EXPECT_EQ(g_asked, (std::vector<std::pair<WPARAM, LPARAM>>{{304, 7}}));
    DestroyWindow(monitor);

    static Fn run = doWinMain;
    HANDLE thread = CreateThread(nullptr, 0, [](void*) -> DWORD { return (DWORD)run(nullptr, L"/msg:7", 0); }, nullptr, 0, nullptr);
    HWND box = nullptr;
    for (int i = 0; i < 100 && !(box = FindWindowW(L"#32770", L"Vantrel")); ++i)
        Sleep(50);
    ASSERT_NE(box, nullptr) << "no warning box of its own";
    wchar_t text[512] = {};
    GetDlgItemTextW(box, IDC_MSGEX_TEXT, text, 512);
    EXPECT_NE(wcsstr(text, L"5:00"), nullptr) << "the countdown of the default warning time";
    PostMessageW(box, RegisterWindowMessageW(L"KorvaneMessage"), 6, IDOK);
    EXPECT_EQ(WaitForSingleObject(thread, 5000), WAIT_OBJECT_0);
    CloseHandle(thread);
}

} // namespace
