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

// "<hint>_<pid>_<n>": unique across the test programs running at once.
static std::wstring UniqueName(const wchar_t* hint)
{
    static LONG counter = 0;
    return hint + (L"_" + std::to_wstring(GetCurrentProcessId())) + L"_" + std::to_wstring(InterlockedIncrement(&counter));
}

ScopedTestKey::ScopedTestKey(const wchar_t* hint) : sub_(L"Software\\VantrelTests\\" + UniqueName(hint)), path_(L"HKCU\\" + sub_)
{
    RawDeleteTree(sub_);
}

ScopedTestKey::~ScopedTestKey() { RawDeleteTree(sub_); }

static HKEY Open(const std::wstring& sub, bool create)
{
    HKEY k = nullptr;
    LONG r = create ? RegCreateKeyExW(HKEY_CURRENT_USER, sub.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &k, nullptr)
                    : RegOpenKeyExW(HKEY_CURRENT_USER, sub.c_str(), 0, KEY_READ, &k);
    return r == ERROR_SUCCESS ? k : nullptr;
}

static bool Close(HKEY k) { return k && RegCloseKey(k) == ERROR_SUCCESS; }

bool RawKeyExists(const std::wstring& sub) { return Close(Open(sub, false)); }
bool RawCreateKey(const std::wstring& sub) { return Close(Open(sub, true)); }

void RawDeleteTree(const std::wstring& sub)
{
    RegDeleteTreeW(HKEY_CURRENT_USER, sub.c_str());
    RegDeleteKeyW(HKEY_CURRENT_USER, sub.c_str());
}

bool RawSetBin(const std::wstring& sub, const wchar_t* name, const void* data, DWORD cb, DWORD type)
{
    HKEY k = Open(sub, true);
    return (k && RegSetValueExW(k, name, 0, type, (const BYTE*)data, cb) == ERROR_SUCCESS) & Close(k);
}

bool RawSetDword(const std::wstring& sub, const wchar_t* name, DWORD v) { return RawSetBin(sub, name, &v, 4, REG_DWORD); }

bool RawSetStr(const std::wstring& sub, const wchar_t* name, const std::wstring& s, DWORD type)
{
    return RawSetBin(sub, name, s.c_str(), (DWORD)((s.size() + 1) * sizeof(wchar_t)), type);
}

bool RawGet(const std::wstring& sub, const wchar_t* name, DWORD* type, std::vector<BYTE>* data)
{
    HKEY k = Open(sub, false);
    DWORD t = 0, cb = 0;
    bool ok = k && RegQueryValueExW(k, name, nullptr, &t, nullptr, &cb) == ERROR_SUCCESS;
    std::vector<BYTE> buf(cb + 1);
    ok = ok && RegQueryValueExW(k, name, nullptr, &t, buf.data(), &cb) == ERROR_SUCCESS;
    Close(k);
    buf.resize(cb);
    if (ok && data)
        *data = buf;
    if (ok && type)
        *type = t;
    return ok;
}

bool RawValueExists(const std::wstring& sub, const wchar_t* name) { return RawGet(sub, name, nullptr, nullptr); }

DWORD RawGetDword(const std::wstring& sub, const wchar_t* name, DWORD def)
{
    std::vector<BYTE> d;
    return RawGet(sub, name, nullptr, &d) && d.size() == 4 ? *(DWORD*)d.data() : def;
}

std::wstring RawGetStr(const std::wstring& sub, const wchar_t* name)
{
    std::vector<BYTE> d;
    if (!RawGet(sub, name, nullptr, &d))
        return L"<absent>";
    std::wstring s((const wchar_t*)d.data(), d.size() / 2);
    return s.substr(0, s.find_last_not_of(L'\0') + 1);
}

static DWORD Count(const std::wstring& sub, bool values)
{
    HKEY k = Open(sub, false);
    DWORD n[2] = {};
    bool ok = k && RegQueryInfoKeyW(k, nullptr, nullptr, nullptr, &n[0], nullptr, nullptr, &n[1], nullptr, nullptr, nullptr,
                                    nullptr) == ERROR_SUCCESS;
    Close(k);
    return ok ? n[values] : 0xFFFFFFFF;
}

DWORD RawCountValues(const std::wstring& sub) { return Count(sub, true); }
DWORD RawCountSubKeys(const std::wstring& sub) { return Count(sub, false); }

ScopedTempDir::ScopedTempDir()
{
    wchar_t tmp[MAX_PATH + 1];
    tmp[GetTempPathW(MAX_PATH, tmp)] = 0;
    path_ = tmp + UniqueName(L"vxtest");
    CreateDirectoryW(path_.c_str(), nullptr);
}

ScopedTempDir::~ScopedTempDir()
{
    std::wstring from = path_ + L'\0'; // the shell wants a double-terminated list
    SHFILEOPSTRUCTW op{nullptr, FO_DELETE, from.c_str(), nullptr, FOF_NO_UI, FALSE, nullptr, nullptr};
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
    DWORD put = 0;
    BOOL ok = h != INVALID_HANDLE_VALUE && (cb == 0 || WriteFile(h, data, (DWORD)cb, &put, nullptr));
    return ok & (h != INVALID_HANDLE_VALUE && CloseHandle(h)) && put == cb;
}

} // namespace vxtest
