#include "support/TestSupport.h"

#include <shellapi.h>

#include "storage/StrList.h"

namespace vxtest {

std::vector<std::wstring> Items(const StrList& list)
{
    std::vector<std::wstring> out;
    for (DMPos pos = list.GetHeadPosition(); pos;)
        out.push_back(list.GetNext(pos));
    return out;
}

static const wchar_t kTestRoot[] = L"Software\\VantrelTests";

ScopedTestKey::ScopedTestKey(const wchar_t* hint)
{
    static LONG counter = 0;
    wchar_t name[128];
    _snwprintf(name, 127, L"%s_%lu_%ld", hint, GetCurrentProcessId(), InterlockedIncrement(&counter));
    name[127] = 0;
    sub_ = std::wstring(kTestRoot) + L"\\" + name;
    path_ = L"HKCU\\" + sub_;
    RawDeleteTree(sub_);
}

ScopedTestKey::~ScopedTestKey() { RawDeleteTree(sub_); }

bool RawKeyExists(const std::wstring& sub)
{
    HKEY k;
    if (RegOpenKeyExW(HKEY_CURRENT_USER, sub.c_str(), 0, KEY_READ, &k) != ERROR_SUCCESS)
        return false;
    RegCloseKey(k);
    return true;
}

bool RawCreateKey(const std::wstring& sub)
{
    HKEY k;
    if (RegCreateKeyExW(HKEY_CURRENT_USER, sub.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &k, nullptr) != ERROR_SUCCESS)
        return false;
    RegCloseKey(k);
    return true;
}

void RawDeleteTree(const std::wstring& sub)
{
    RegDeleteTreeW(HKEY_CURRENT_USER, sub.c_str());
    RegDeleteKeyW(HKEY_CURRENT_USER, sub.c_str());
}

static bool RawSet(const std::wstring& sub, const wchar_t* name, DWORD type, const void* data, DWORD cb)
{
    HKEY k;
    if (RegCreateKeyExW(HKEY_CURRENT_USER, sub.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &k, nullptr) != ERROR_SUCCESS)
        return false;
    LONG r = RegSetValueExW(k, name, 0, type, (const BYTE*)data, cb);
    RegCloseKey(k);
    return r == ERROR_SUCCESS;
}

bool RawSetDword(const std::wstring& sub, const wchar_t* name, DWORD v) { return RawSet(sub, name, REG_DWORD, &v, 4); }

bool RawSetStr(const std::wstring& sub, const wchar_t* name, const std::wstring& s, DWORD type)
{
    return RawSet(sub, name, type, s.c_str(), (DWORD)((s.size() + 1) * sizeof(wchar_t)));
}

bool RawSetBin(const std::wstring& sub, const wchar_t* name, const void* data, DWORD cb, DWORD type)
{
    return RawSet(sub, name, type, data, cb);
}

bool RawGet(const std::wstring& sub, const wchar_t* name, DWORD* type, std::vector<BYTE>* data)
{
    HKEY k;
    if (RegOpenKeyExW(HKEY_CURRENT_USER, sub.c_str(), 0, KEY_READ, &k) != ERROR_SUCCESS)
        return false;
    DWORD t = 0, cb = 0;
    LONG r = RegQueryValueExW(k, name, nullptr, &t, nullptr, &cb);
    if (r == ERROR_SUCCESS) {
        std::vector<BYTE> buf(cb);
        r = RegQueryValueExW(k, name, nullptr, &t, buf.empty() ? nullptr : buf.data(), &cb);
        buf.resize(cb);
        if (data)
            *data = buf;
        if (type)
            *type = t;
    }
    RegCloseKey(k);
    return r == ERROR_SUCCESS;
}

bool RawValueExists(const std::wstring& sub, const wchar_t* name) { return RawGet(sub, name, nullptr, nullptr); }

DWORD RawGetDword(const std::wstring& sub, const wchar_t* name, DWORD def)
{
    std::vector<BYTE> d;
    DWORD t;
    if (!RawGet(sub, name, &t, &d) || d.size() != 4)
        return def;
    return *(DWORD*)d.data();
}

std::wstring RawGetStr(const std::wstring& sub, const wchar_t* name)
{
    std::vector<BYTE> d;
    DWORD t;
    if (!RawGet(sub, name, &t, &d))
        return L"<absent>";
    std::wstring s((const wchar_t*)d.data(), d.size() / 2);
    while (!s.empty() && s.back() == 0)
        s.pop_back();
    return s;
}

static bool QueryInfo(const std::wstring& sub, DWORD* subkeys, DWORD* values, FILETIME* ft)
{
    HKEY k;
    if (RegOpenKeyExW(HKEY_CURRENT_USER, sub.c_str(), 0, KEY_READ, &k) != ERROR_SUCCESS)
        return false;
    LONG r = RegQueryInfoKeyW(k, nullptr, nullptr, nullptr, subkeys, nullptr, nullptr, values, nullptr, nullptr, nullptr, ft);
    RegCloseKey(k);
    return r == ERROR_SUCCESS;
}

DWORD RawCountValues(const std::wstring& sub)
{
    DWORD n = 0;
    return QueryInfo(sub, nullptr, &n, nullptr) ? n : 0xFFFFFFFF;
}

DWORD RawCountSubKeys(const std::wstring& sub)
{
    DWORD n = 0;
    return QueryInfo(sub, &n, nullptr, nullptr) ? n : 0xFFFFFFFF;
}

ScopedTempDir::ScopedTempDir()
{
    static LONG counter = 0;
    wchar_t tmp[MAX_PATH + 1];
    DWORD n = GetTempPathW(MAX_PATH, tmp);
    tmp[n] = 0;
    wchar_t name[64];
    _snwprintf(name, 63, L"vxtest_%lu_%ld", GetCurrentProcessId(), InterlockedIncrement(&counter));
    name[63] = 0;
    path_ = std::wstring(tmp) + name;
    CreateDirectoryW(path_.c_str(), nullptr);
}

ScopedTempDir::~ScopedTempDir()
{
    // Double-zero-terminated list for the shell's recursive delete.
    std::wstring from = path_;
    from.push_back(0);
    SHFILEOPSTRUCTW op{};
    op.wFunc = FO_DELETE;
    op.pFrom = from.c_str();
    op.fFlags = FOF_NO_UI;
    SHFileOperationW(&op);
}

bool ReadFileBytes(const std::wstring& path, std::vector<BYTE>* out)
{
    HANDLE h = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    if (h == INVALID_HANDLE_VALUE)
        return false;
    DWORD size = GetFileSize(h, nullptr), got = 0;
    out->resize(size);
    BOOL ok = size == 0 || ReadFile(h, out->data(), size, &got, nullptr);
    CloseHandle(h);
    return ok && got == size;
}

bool WriteFileBytes(const std::wstring& path, const void* data, size_t cb)
{
    HANDLE h = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE)
        return false;
    DWORD put = 0;
    BOOL ok = cb == 0 || WriteFile(h, data, (DWORD)cb, &put, nullptr);
    CloseHandle(h);
    return ok && put == cb;
}

} // namespace vxtest
