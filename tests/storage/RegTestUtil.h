// Shared pieces of the registry key tests: guarded buffers, a log-mode guard, a watchdog for
// loops that must end, and raw access to keys of either hive.
#pragma once
#include <windows.h>

#include <sddl.h>

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "storage/RegKey.h"
#include "support/TestSupport.h"

namespace regtest {

// N usable characters followed by guards, all pre-filled with 0xbdbd, so a write past N or a
// missing terminator shows.
template <unsigned N> struct Guarded {
    wchar_t buf[N + 4];
    Guarded() { wmemset(buf, 0xbdbd, N + 4); }
};

// What a call answered and the last error it left. Try sets a sentinel first, so a failure
// path that sets no last error shows 0xdeadbeef; a failed comparison prints both numbers.
struct Outcome {
    LONG_PTR result;
    DWORD error;
    bool operator==(const Outcome& o) const { return result == o.result && error == o.error; }
};
inline void PrintTo(const Outcome& o, std::ostream* os)
{
    *os << "{result " << o.result << ", last error " << o.error << " (0x" << std::hex << o.error << std::dec << ")}";
}
template <class Fn> Outcome Try(Fn fn)
{
    SetLastError(0xdeadbeef);
    const LONG_PTR r = (LONG_PTR)fn();
    return {r, GetLastError()};
}
// A failure that reports error.
inline Outcome Failed(DWORD error) { return {0, error}; }

// Leaves log mode even when an assertion returns early, so later tests really write.
struct LogGuard {
    ~LogGuard() { RegKey::bLogMode && RegKey::EndLog(); }
};

// Runs fn on a thread; false when it did not finish within ms (a looping deletion would
// otherwise hang the whole run).
inline bool FinishesWithin(DWORD ms, std::function<void()> fn)
{
    auto run = [](void* p) -> DWORD { return (*static_cast<std::function<void()>*>(p))(), 0; };
    HANDLE h = CreateThread(nullptr, 0, run, &fn, 0, nullptr);
    bool done = h && WaitForSingleObject(h, ms) == WAIT_OBJECT_0;
    if (h && !done)
        TerminateThread(h, 1);
    return (h && CloseHandle(h)) && done;
}

// Replaces the access rules of an existing key with an SDDL descriptor.
inline bool SetKeySddl(HKEY root, const std::wstring& sub, const wchar_t* sddl)
{
    HKEY k = nullptr;
    PSECURITY_DESCRIPTOR sd = nullptr;
    bool ok = RegOpenKeyExW(root, sub.c_str(), 0, WRITE_DAC, &k) == ERROR_SUCCESS &&
              ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl, SDDL_REVISION_1, &sd, nullptr) &&
              RegSetKeySecurity(k, DACL_SECURITY_INFORMATION, sd) == ERROR_SUCCESS;
    LocalFree(sd);
    return (!k || RegCloseKey(k) == ERROR_SUCCESS) && ok;
}

inline bool EnablePrivilege(const wchar_t* name)
{
    HANDLE tok = nullptr;
    TOKEN_PRIVILEGES tp{1, {{{0, 0}, SE_PRIVILEGE_ENABLED}}};
    bool ok = OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES, &tok) && LookupPrivilegeValueW(nullptr, name, &tp.Privileges[0].Luid) &&
              AdjustTokenPrivileges(tok, FALSE, &tp, 0, nullptr, nullptr) && GetLastError() == ERROR_SUCCESS;
    return (!tok || CloseHandle(tok)) && ok;
}

// Type of a user-hive value; 0xFFFFFFFF when absent.
inline DWORD RawType(const std::wstring& sub, const wchar_t* name)
{
    DWORD type = 0;
    std::vector<BYTE> data;
    return vxtest::RawGet(sub, name, &type, &data) ? type : 0xFFFFFFFF;
}

inline bool KeyExists(HKEY root, const std::wstring& sub)
{
    HKEY k;
    return RegOpenKeyExW(root, sub.c_str(), 0, KEY_READ, &k) == ERROR_SUCCESS && RegCloseKey(k) == ERROR_SUCCESS;
}

// Text and type of a machine value; "<absent>" when it does not exist.
inline std::wstring MachineGetStr(const std::wstring& sub, const wchar_t* name, DWORD* type = nullptr)
{
    wchar_t buf[512] = {};
    DWORD cb = sizeof(buf);
    return RegGetValueW(HKEY_LOCAL_MACHINE, sub.c_str(), name, RRF_RT_ANY, type, buf, &cb) == ERROR_SUCCESS ? buf : L"<absent>";
}

inline void MachineDeleteTree(const std::wstring& sub)
{
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, sub.c_str());
    RegDeleteKeyW(HKEY_LOCAL_MACHINE, sub.c_str());
}

} // namespace regtest
