// Shared test helpers: a private registry key and folder per test, and raw registry access that
// bypasses RegKey, so tests check what really landed in the registry.
#pragma once
#include <windows.h>

#include <string>
#include <vector>

class StrList;

namespace vxtest {

std::vector<std::wstring> Items(const StrList& list);

// A unique key below HKCU\Software\VantrelTests, deleted with its tree before and after.
// path() starts with "HKCU\"; sub() is the same without the root, for the Raw* calls.
class ScopedTestKey {
public:
    explicit ScopedTestKey(const wchar_t* hint = L"t");
    ~ScopedTestKey();
    ScopedTestKey(const ScopedTestKey&) = delete;
    ScopedTestKey& operator=(const ScopedTestKey&) = delete;
    const std::wstring& path() const { return path_; }
    const std::wstring& sub() const { return sub_; }
    std::wstring path(const std::wstring& rel) const { return path_ + L"\\" + rel; }
    std::wstring sub(const std::wstring& rel) const { return sub_ + L"\\" + rel; }

private:
    std::wstring sub_, path_;
};

// Raw registry access on HKEY_CURRENT_USER. RawGet is false when the value is absent.
bool RawKeyExists(const std::wstring& sub);
bool RawCreateKey(const std::wstring& sub);
void RawDeleteTree(const std::wstring& sub);
bool RawSetDword(const std::wstring& sub, const wchar_t* name, DWORD v);
bool RawSetStr(const std::wstring& sub, const wchar_t* name, const std::wstring& s, DWORD type = REG_SZ);
bool RawSetBin(const std::wstring& sub, const wchar_t* name, const void* data, DWORD cb, DWORD type = REG_BINARY);
bool RawGet(const std::wstring& sub, const wchar_t* name, DWORD* type, std::vector<BYTE>* data);
bool RawValueExists(const std::wstring& sub, const wchar_t* name);
DWORD RawGetDword(const std::wstring& sub, const wchar_t* name, DWORD def = 0xFFFFFFFF);
std::wstring RawGetStr(const std::wstring& sub, const wchar_t* name); // "<absent>" when absent
DWORD RawCountValues(const std::wstring& sub);
DWORD RawCountSubKeys(const std::wstring& sub);

// A fresh empty folder under the temporary folder, removed with its files on destruction.
class ScopedTempDir {
public:
    ScopedTempDir();
    ~ScopedTempDir();
    ScopedTempDir(const ScopedTempDir&) = delete;
    ScopedTempDir& operator=(const ScopedTempDir&) = delete;
    const std::wstring& path() const { return path_; }
    std::wstring file(const wchar_t* name) const { return path_ + L"\\" + name; }

private:
    std::wstring path_;
};

bool ReadFileBytes(const std::wstring& path, std::vector<BYTE>* out);
bool WriteFileBytes(const std::wstring& path, const void* data, size_t cb);

} // namespace vxtest
