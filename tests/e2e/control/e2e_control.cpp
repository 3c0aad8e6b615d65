// The controller of the end-to-end runs (run-e2e.sh, scripts/demo.sh): it sets the simulated
// terminal server's table and looks at the running product from outside, as an administrator would.
//   add <id> <user> [active|connected|disconnected]   state <id> <state>
//   settings Name=number...   values in HKLM\SOFTWARE\Korvane\Vantrel, with empty user lists (and
//                             the record's flag set "Options", so that an install keeps them)
//   control <code>            a control code to the service
//   input                     a mouse move there and back and a Shift press, through SendInput
//   look                      what can be seen, one line each: "service <state>", "session ...",
//       "<seq> token|logoff|message ...", "summary ...", "status ...", "monitor ...", "box ..." (one
//       per open warning box), "process ..." (or "no product process")
// Output: UTF-8 lines. Exit code 0 done, 1 refused, 2 usage, 3 no simulated table.
#include <windows.h>
#include <winternl.h>
#include <tlhelp32.h>
#include <wtsapi32.h>

#include <cstdio>
#include <map>
#include <string>

#include "common/SimShared.h"

namespace {

const wchar_t kSettingsKey[] = L"SOFTWARE\\Korvane\\Vantrel";
const wchar_t* const kStates[] = {L"active", L"connected", L"connectquery", L"shadow", L"disconnected"};
simshared::Shared g_shared;

std::wstring Fmt(const wchar_t* fmt, ...)
{
    wchar_t buf[2048];
    va_list args;
    va_start(args, fmt);
    StrFormatV(buf, 2048, fmt, args);
    va_end(args);
    return buf;
}

void Out(std::wstring line)
{
    line += L'\n';
    int n = WideCharToMultiByte(CP_UTF8, 0, line.c_str(), (int)line.size(), nullptr, 0, nullptr, nullptr);
    std::string s(n, '\0');
    WideCharToMultiByte(CP_UTF8, 0, line.c_str(), (int)line.size(), &s[0], n, nullptr, nullptr);
    fwrite(s.data(), 1, s.size(), stdout);
    fflush(stdout);
}

int Usage()
{
    Out(L"usage: e2e_control <command> [arguments]; see the head of tests/e2e/control/e2e_control.cpp");
    return 2;
}

std::wstring OneLine(const wchar_t* text)
{
    std::wstring r;
    for (; *text; text++)
        if (*text != L'\r')
            r += *text == L'\n' ? std::wstring(L" | ") : std::wstring(1, *text);
    return r;
}

// Every record of the double, by the sequence number all records share.
std::map<DWORD, std::wstring> Records(const simts::SimState& s)
{
    std::map<DWORD, std::wstring> r;
    for (DWORD i = 0; i < s.nProcesses; i++)
        r[s.processes[i].nSeq] = Fmt(L"token session=%lu error=%lu", s.processes[i].dwSession, s.processes[i].dwError);
    for (DWORD i = 0; i < s.nLogoffs; i++) {
        const simts::SimLogoff& l = s.logoffs[i];
        r[l.nSeq] = Fmt(L"logoff session=%lu wait=%d error=%lu", l.dwSession, l.bWait, l.dwError);
    }
    for (DWORD i = 0; i < s.nMessages; i++) {
        const simts::SimMessage& m = s.messages[i];
        r[m.nSeq] = Fmt(L"message session=%lu style=0x%lX error=%lu title=%s text=%s", m.dwSession, m.dwStyle,
                        m.dwError, m.szTitle, OneLine(m.szText).c_str());
    }
    return r;
}

std::wstring StatusText()
{
    std::wstring sessions = L"(absent)", last = L"(absent)";
    HKEY key;
    if (!RegOpenKeyExW(HKEY_LOCAL_MACHINE, kSettingsKey, 0, KEY_READ | KEY_WOW64_64KEY, &key)) {
        DWORD type, v, cb = sizeof v;
        if (!RegQueryValueExW(key, L"SessionsMonitoring", nullptr, &type, (BYTE*)&v, &cb) && type == REG_DWORD)
            sessions = Fmt(L"%lu", v);
        wchar_t text[512] = {};
        cb = sizeof text - sizeof(wchar_t);
        if (!RegQueryValueExW(key, L"LastLogoff", nullptr, &type, (BYTE*)text, &cb) && type == REG_SZ)
            last = text;
        RegCloseKey(key);
    }
    return L"SessionsMonitoring=" + sessions + L" LastLogoff=" + last;
}

int WriteSettings(int argc, wchar_t** argv)
{
    HKEY key, sub;
    if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, kSettingsKey, 0, nullptr, 0, KEY_ALL_ACCESS | KEY_WOW64_64KEY, nullptr,
                        &key, nullptr))
        return 1;
    int rc = 0;
    // Empty user lists watch everybody (the default lists name groups Wine's look-ups never report).
    for (const wchar_t* name : {L"ApplyTo", L"Exclude"}) {
        RegDeleteTreeW(key, name);
        if (RegCreateKeyExW(key, name, 0, nullptr, 0, KEY_ALL_ACCESS | KEY_WOW64_64KEY, nullptr, &sub, nullptr))
            rc = 1;
        else
            RegCloseKey(sub);
    }
    // Settings stored by an administrator carry the record's flag set: without it the first
    // install would replace them with the defaults.
    const DWORD noFlags = 0;
    if (RegQueryValueExW(key, L"Options", nullptr, nullptr, nullptr, nullptr) &&
        RegSetValueExW(key, L"Options", 0, REG_DWORD, (const BYTE*)&noFlags, sizeof noFlags))
        rc = 1;
    for (int i = 0; i < argc; i++) {
        const wchar_t* eq = wcschr(argv[i], L'=');
        DWORD v = eq ? wcstoul(eq + 1, nullptr, 10) : 0;
        if (!eq || RegSetValueExW(key, std::wstring(argv[i], eq - argv[i]).c_str(), 0, REG_DWORD, (const BYTE*)&v, sizeof v))
            rc = 1;
    }
    RegCloseKey(key);
    return rc;
}

// The service "Vantrel" opened for the given access (svc is null when it is not installed).
struct Service {
    SC_HANDLE scm = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
    SC_HANDLE svc;
    explicit Service(DWORD access) : svc(scm ? OpenServiceW(scm, L"Vantrel", access) : nullptr) {}
    ~Service()
    {
        if (svc)
            CloseServiceHandle(svc);
        if (scm)
            CloseServiceHandle(scm);
    }
};

std::wstring ServiceState()
{
    const wchar_t* const names[] = {L"absent", L"stopped", L"start-pending", L"stop-pending", L"running"};
    Service s(SERVICE_QUERY_STATUS);
    SERVICE_STATUS st;
    DWORD state = s.svc && QueryServiceStatus(s.svc, &st) ? st.dwCurrentState : 0;
    return state < 5 ? names[state] : Fmt(L"state %lu", state);
}

// Another process's command line, from its process parameters.
std::wstring CommandLineOf(DWORD pid)
{
    std::wstring r = L"?";
    HANDLE h = OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ, FALSE, pid);
    PROCESS_BASIC_INFORMATION pbi = {};
    PEB peb;
    RTL_USER_PROCESS_PARAMETERS pp;
    if (h && !NtQueryInformationProcess(h, ProcessBasicInformation, &pbi, sizeof pbi, nullptr) &&
        ReadProcessMemory(h, pbi.PebBaseAddress, &peb, sizeof peb, nullptr) &&
        ReadProcessMemory(h, peb.ProcessParameters, &pp, sizeof pp, nullptr) && pp.CommandLine.Length < 8192) {
        r.assign(pp.CommandLine.Length / sizeof(wchar_t), L'\0');
        if (!ReadProcessMemory(h, pp.CommandLine.Buffer, &r[0], pp.CommandLine.Length, nullptr))
            r = L"?";
    }
    if (h)
        CloseHandle(h);
    return r;
}

// The product's processes, or "no product process".
void ProductProcesses()
{
    bool any = false;
    HANDLE snap = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    PROCESSENTRY32W pe = {};
    pe.dwSize = sizeof pe;
    for (BOOL ok = Process32FirstW(snap, &pe); ok; ok = Process32NextW(snap, &pe)) {
        const wchar_t* base = wcsrchr(pe.szExeFile, L'\\');
        if (!_wcsicmp(base ? base + 1 : pe.szExeFile, L"VXA64.EXE") && (any = true))
            Out(Fmt(L"process pid=%lu %s", pe.th32ProcessID, CommandLineOf(pe.th32ProcessID).c_str()));
    }
    CloseHandle(snap);
    if (!any)
        Out(L"no product process");
}

// Each warning box: a visible top-level window with the countdown label (control 27004).
BOOL CALLBACK FindBoxProc(HWND hwnd, LPARAM)
{
    HWND label = GetDlgItem(hwnd, 27004);
    if (!label || !IsWindowVisible(hwnd))
        return TRUE;
    wchar_t title[256] = {}, text[1024] = {};
    // Across processes: the system copies WM_GETTEXT's text between them.
    SendMessageTimeoutW(hwnd, WM_GETTEXT, 256, (LPARAM)title, SMTO_ABORTIFHUNG, 2000, nullptr);
    SendMessageTimeoutW(label, WM_GETTEXT, 1024, (LPARAM)text, SMTO_ABORTIFHUNG, 2000, nullptr);
    DWORD pid = 0;
    GetWindowThreadProcessId(hwnd, &pid);
    Out(Fmt(L"box pid=%lu title=%s text=%s", pid, title, OneLine(text).c_str()));
    return TRUE;
}

} // namespace

int wmain(int argc, wchar_t** argv)
{
    std::wstring cmd = argc > 1 ? argv[1] : L"";
    int n = argc - 2;
    wchar_t** a = argv + 2;
    if (!g_shared.Open()) {
        Out(Fmt(L"error: the simulated session table cannot be opened (error %lu)", GetLastError()));
        return 3;
    }
    if (cmd == L"look") {
        Out(L"service " + ServiceState());
        {
            simshared::Locked lock(g_shared);
            const simts::SimState& s = g_shared.State();
            for (DWORD i = 0; i < s.nSessions; i++)
                Out(Fmt(L"session id=%lu user=%s state=%s", s.sessions[i].dwId, s.sessions[i].szUser,
                        s.sessions[i].state < 5 ? kStates[s.sessions[i].state] : L"other"));
            for (auto& r : Records(s))
                Out(Fmt(L"%lu %s", r.first, r.second.c_str()));
            Out(Fmt(L"summary registrations=%ld allocations=%ld badfrees=%lu dropped=%lu", s.nRegistrations,
                    s.nAllocations, s.nBadFrees, s.nDropped));
        }
        Out(L"status " + StatusText());
        DWORD pid = 0;
        if (GetWindowThreadProcessId(FindWindowW(L"VANTREL_MONITOR", nullptr), &pid))
            Out(Fmt(L"monitor pid=%lu %s", pid, CommandLineOf(pid).c_str()));
        EnumWindows(FindBoxProc, 0);
        ProductProcesses();
        return 0;
    }
    if (cmd == L"add" || cmd == L"state") {
        const wchar_t* stateName = cmd == L"add" ? (n > 2 ? a[2] : L"active") : (n > 1 ? a[1] : L"");
        int state = 4;
        while (state >= 0 && _wcsicmp(stateName, kStates[state]))
            state--;
        if (n < 2 || state < 0)
            return Usage();
        DWORD id = wcstoul(a[0], nullptr, 10);
        simshared::Locked lock(g_shared);
        if (cmd == L"state") {
            simts::SimSession* p = simts::FindSession(g_shared.State(), id);
            if (p)
                p->state = (WTS_CONNECTSTATE_CLASS)state;
            return !p;
        }
        // A local account: the computer's own name is its domain.
        wchar_t domain[MAX_COMPUTERNAME_LENGTH + 1] = {};
        DWORD cch = MAX_COMPUTERNAME_LENGTH + 1;
        GetComputerNameW(domain, &cch);
        if (simts::AddSession(g_shared.State(), id, a[1], domain, (WTS_CONNECTSTATE_CLASS)state, 0))
            return 0;
        Out(Fmt(L"error: add session: %lu", GetLastError()));
        return 1;
    }
    if (cmd == L"settings")
        return WriteSettings(n, a);
    if (cmd == L"control" && n > 0) {
        Service s(SERVICE_USER_DEFINED_CONTROL);
        SERVICE_STATUS st;
        if (s.svc && ControlService(s.svc, wcstoul(a[0], nullptr, 10), &st))
            return 0;
        Out(Fmt(L"error: control %s: %lu", a[0], GetLastError()));
        return 1;
    }
    if (cmd == L"input") {
        // Activity that changes nothing on the screen and presses no button of a box.
        INPUT in[4] = {};
        in[0].type = in[1].type = INPUT_MOUSE;
        in[0].mi = {3, 2, 0, MOUSEEVENTF_MOVE, 0, 0};
        in[1].mi = {-3, -2, 0, MOUSEEVENTF_MOVE, 0, 0};
        in[2].type = in[3].type = INPUT_KEYBOARD;
        in[2].ki.wVk = in[3].ki.wVk = VK_SHIFT;
        in[3].ki.dwFlags = KEYEVENTF_KEYUP;
        UINT sent = SendInput(4, in, sizeof(INPUT));
        Out(Fmt(L"%u keyboard and mouse events injected (SendInput)", sent));
        return sent != 4;
    }
    return Usage();
}
