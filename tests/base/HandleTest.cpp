// The one owner of handles and system buffers: it releases exactly once, hands a handle over on
// move, releases the old handle before receiving a new one, and never disturbs the last error.
#include <gtest/gtest.h>

#include "base/Handle.h"

namespace {

bool IsOpen(HANDLE h)
{
    DWORD flags = 0;
    return GetHandleInformation(h, &flags) != 0;
}

TEST(Owner, ReleasesOnceKeepsTheLastErrorAndMovesOwnership)
{
    HANDLE raw = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    ASSERT_NE(raw, nullptr);
    {
        Handle a(raw);
        Handle b(std::move(a));
        EXPECT_FALSE(a.IsValid());
        EXPECT_EQ(b.Get(), raw);
        SetLastError(0xdeadbeef);
        b.Close();
        EXPECT_EQ(GetLastError(), 0xdeadbeefu) << "a release keeps the reason of an earlier failure";
        EXPECT_FALSE(IsOpen(raw));
        b.Close(); // a second close releases nothing
    }

    // Receive releases the handle held before; Detach gives it up without releasing.
    Handle h(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    HANDLE first = h.Get();
    HANDLE* slot = h.Receive();
    EXPECT_FALSE(IsOpen(first));
    *slot = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    HANDLE second = h.Detach();
    EXPECT_FALSE(h.IsValid());
    EXPECT_TRUE(IsOpen(second));
    CloseHandle(second);

    // INVALID_HANDLE_VALUE is "no handle" for kernel handles, as CreateFile answers.
    Handle file(INVALID_HANDLE_VALUE);
    EXPECT_FALSE(file.IsValid());
    Handle other;
    other = std::move(file);
    EXPECT_FALSE(other.IsValid());
}

TEST(Owner, RegistryKeysAndLocalMemory)
{
    RegKeyHandle key;
    ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, L"Software", 0, KEY_READ, key.Receive()), ERROR_SUCCESS);
    HKEY raw = key.Get();
    key.Close();
    DWORD n = 0;
    EXPECT_EQ(RegQueryInfoKeyW(raw, nullptr, nullptr, nullptr, &n, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                               nullptr),
              ERROR_INVALID_HANDLE)
        << "the key was closed";

    LocalPtr<wchar_t> text;
    ASSERT_NE(FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                             nullptr, ERROR_ACCESS_DENIED, 0, (LPWSTR)text.Receive(), 0, nullptr),
              0u);
    EXPECT_TRUE(text.IsValid());
    EXPECT_NE(LocalSize(text.Get()), 0u);
}

} // namespace
