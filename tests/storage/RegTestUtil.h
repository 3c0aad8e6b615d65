// Shared pieces of the registry key tests: guarded buffers, a log-mode guard, a watchdog for
// loops that must end, and raw access to machine keys.
#pragma once
#include <windows.h>

#include <sddl.h>

#include <functional>
#include <string>

#include "storage/RegKey.h"

namespace regtest {

// A character buffer of N usable characters followed by guard characters, all pre-filled with
// 0xbdbd, so a write past N or a missing terminator shows.
template <unsigned N> struct Guarded {
    wchar_t buf[N + 4];
    Guarded() { Fill(); }
    void Fill()
    {
        for (auto& c : buf)
            c = 0xbdbd;
    }
    bool Intact() const { return buf[N] == 0xbdbd && buf[N + 1] == 0xbdbd && buf[N + 2] == 0xbdbd && buf[N + 3] == 0xbdbd; }
};

// Leaves log mode even when an assertion returns early, so one failing test cannot turn the
// writes of every later test into text.
struct LogGuard {
    ~LogGuard()
    {
        if (RegKey::bLogMode)
            RegKey::EndLog();
    }
};

// Runs fn on a thread and reports whether it finished within ms. A looping deletion would
// otherwise hang the whole test run until the runner's timeout.
inline bool FinishesWithin(DWORD ms, const std::function<void()>& fn)
{
    struct Ctx {
        std::function<void()> f;
    } ctx{fn};
    HANDLE h = CreateThread(
        nullptr, 0,
        [](void* p) -> DWORD {
            static_cast<Ctx*>(p)->f();
            return 0;
        },
        &ctx, 0, nullptr);
    if (!h)
        return false;
    bool done = WaitForSingleObject(h, ms) == WAIT_OBJECT_0;
    if (!done)
        TerminateThread(h, 1);
    CloseHandle(h);
    return done;
}

// Replaces the access rules of an existing key (HKCU or HKLM) with an SDDL descriptor.
inline bool SetKeySddl(HKEY root, const std::wstring& sub, const wchar_t* sddl)
{
    HKEY k;
    if (RegOpenKeyExW(root, sub.c_str(), 0, WRITE_DAC, &k) != ERROR_SUCCESS)
        return false;
    PSECURITY_DESCRIPTOR sd = nullptr;
    bool ok = ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl, SDDL_REVISION_1, &sd, nullptr) &&
              RegSetKeySecurity(k, DACL_SECURITY_INFORMATION, sd) == ERROR_SUCCESS;
    LocalFree(sd);
    RegCloseKey(k);
    return ok;
}

inline bool EnablePrivilege(const wchar_t* name)
{
    HANDLE tok;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, &tok))
        return false;
    TOKEN_PRIVILEGES tp{};
    tp.PrivilegeCount = 1;
    tp.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
    bool ok = LookupPrivilegeValueW(nullptr, name, &tp.Privileges[0].Luid) &&
              AdjustTokenPrivileges(tok, FALSE, &tp, 0, nullptr, nullptr) && GetLastError() == ERROR_SUCCESS;
    CloseHandle(tok);
    return ok;
}

// Raw machine-hive access for the helpers that use fixed HKLM paths.
inline bool MachineKeyExists(const std::wstring& sub)
{
    HKEY k;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, sub.c_str(), 0, KEY_READ, &k) != ERROR_SUCCESS)
        return false;
    RegCloseKey(k);
    return true;
}

inline bool MachineSetStr(const std::wstring& sub, const wchar_t* name, const std::wstring& s)
{
    HKEY k;
    if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, sub.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &k, nullptr) != ERROR_SUCCESS)
        return false;
    LONG r = RegSetValueExW(k, name, 0, REG_SZ, (const BYTE*)s.c_str(), (DWORD)((s.size() + 1) * sizeof(wchar_t)));
    RegCloseKey(k);
    return r == ERROR_SUCCESS;
}

// Type and text of a machine value; "<absent>" when it does not exist.
inline std::wstring MachineGetStr(const std::wstring& sub, const wchar_t* name, DWORD* type = nullptr)
{
    HKEY k;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, sub.c_str(), 0, KEY_READ, &k) != ERROR_SUCCESS)
        return L"<absent>";
    wchar_t buf[512] = {};
    DWORD cb = sizeof(buf) - sizeof(wchar_t), t = 0;
    LONG r = RegQueryValueExW(k, name, nullptr, &t, (BYTE*)buf, &cb);
    RegCloseKey(k);
    if (type)
        *type = t;
    return r == ERROR_SUCCESS ? std::wstring(buf) : L"<absent>";
}

inline DWORD MachineGetDword(const std::wstring& sub, const wchar_t* name, DWORD* type = nullptr)
{
    HKEY k;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, sub.c_str(), 0, KEY_READ, &k) != ERROR_SUCCESS)
        return 0xFFFFFFFF;
    DWORD v = 0xFFFFFFFF, cb = sizeof(v), t = 0;
    LONG r = RegQueryValueExW(k, name, nullptr, &t, (BYTE*)&v, &cb);
    RegCloseKey(k);
    if (type)
        *type = t;
    return r == ERROR_SUCCESS ? v : 0xFFFFFFFF;
}

inline void MachineDeleteTree(const std::wstring& sub)
{
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, sub.c_str());
    RegDeleteKeyW(HKEY_LOCAL_MACHINE, sub.c_str());
}

} // namespace regtest
