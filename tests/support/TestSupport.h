// Shared test helpers: a private registry key per test, and raw registry access that does not
// go through RegKey, so registry tests check what really landed in the registry.
#pragma once
#include <windows.h>

#include <string>
#include <vector>

class StrList;

namespace vxtest {

// The entries of a string list, in order.
std::vector<std::wstring> Items(const StrList& list);

// A unique key below HKCU\Software\VantrelTests, deleted (with its whole tree) on construction
// and destruction. path() is "HKCU\Software\VantrelTests\<name>"; sub() is the same without the
// root, for raw calls on HKEY_CURRENT_USER.
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

// Raw registry access on HKEY_CURRENT_USER (sub-paths without the root).
bool RawKeyExists(const std::wstring& sub);
bool RawCreateKey(const std::wstring& sub);
void RawDeleteTree(const std::wstring& sub);
bool RawSetDword(const std::wstring& sub, const wchar_t* name, DWORD v);
bool RawSetStr(const std::wstring& sub, const wchar_t* name, const std::wstring& s, DWORD type = REG_SZ);
bool RawSetBin(const std::wstring& sub, const wchar_t* name, const void* data, DWORD cb, DWORD type = REG_BINARY);
// Type and bytes of a value; false when it is absent.
bool RawGet(const std::wstring& sub, const wchar_t* name, DWORD* type, std::vector<BYTE>* data);
bool RawValueExists(const std::wstring& sub, const wchar_t* name);
DWORD RawGetDword(const std::wstring& sub, const wchar_t* name, DWORD def = 0xFFFFFFFF);
std::wstring RawGetStr(const std::wstring& sub, const wchar_t* name);
DWORD RawCountValues(const std::wstring& sub);
DWORD RawCountSubKeys(const std::wstring& sub);
// There is deliberately no last-write-time helper: Wine ignores a write of identical data and
// type without touching the key's time, so a timestamp cannot prove that a write was skipped.
// Store the equal data under another type first (DWORD as 4 binary bytes, REG_SZ as
// REG_EXPAND_SZ): a skipped write keeps that type, a rewrite replaces it.

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
