// The shipped library loads on Windows as it is and exposes its entry points.
#include <windows.h>
#include <gtest/gtest.h>

#include <string>

#include "base/Module.h"

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

} // namespace
