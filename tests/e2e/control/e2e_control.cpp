// The controlling program of the end-to-end runs (tests/e2e/run-e2e.sh and scripts/demo.sh): it
// plays the terminal server's side and looks at the running product from the outside, as an
// administrator would.
//
//   e2e_control reset                              empty the simulated session table and records
//   e2e_control add <id> <user> [active|connected|disconnected] [remote]
//   e2e_control state <id> <active|connected|disconnected>
//   e2e_control remove <id>
//   e2e_control records                            every record, in order (tokens, processes, logoffs, messages)
//   e2e_control count <token|logoff|message|attach> [session]
//   e2e_control settings [Name=dword...] [--empty-lists]   HKLM\SOFTWARE\Korvane\Vantrel
//   e2e_control status                             the service's status values in the registry
//   e2e_control control <code>                     a control code to the service "Vantrel"
//   e2e_control service                            the service's state (or "absent")
//   e2e_control input [count] [interval-ms]        keyboard and mouse input through SendInput
//   e2e_control box                                the warning box's countdown text (exit 1: no box)
//   e2e_control procs                              the running VXA64.EXE processes with command lines
//   e2e_control wait <what> <seconds> [args]       poll (every 100 ms) until it holds; exit 1 on time-out
//       logoff <id> | token <id> <n> | box | no-box | monitor | no-product | status-logoff <name>
//       | service <running|stopped|absent>
//   e2e_control watch <seconds> [options]          print a timeline of what happens (the demo)
//
// Output goes to standard output as UTF-8 lines; exit code 0 on success, 1 when a wait ran out or
// the thing looked for is not there, 2 on a usage error, 3 when the simulated table cannot be had.
#include <windows.h>
#include <winternl.h>
#include <tlhelp32.h>
#include <wtsapi32.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <cwctype>
#include <map>
#include <string>
#include <vector>

#include "base/StrUtil.h"
#include "common/SimShared.h"

namespace {

const wchar_t kSettingsKey[] = L"SOFTWARE\\Korvane\\Vantrel";
const wchar_t kServiceName[] = L"Vantrel";
const wchar_t kMonitorClass[] = L"VANTREL_MONITOR";
const wchar_t kProductExe[] = L"VXA64.EXE";
const int kCountdownControl = 27004;
const DWORD kPollMs = 100;

simshared::Shared g_shared;

// ---- output ---------------------------------------------------------------------------------

void Out(const std::wstring& line)
{
    int n = WideCharToMultiByte(CP_UTF8, 0, line.c_str(), (int)line.size(), nullptr, 0, nullptr, nullptr);
    std::string s(n, '\0');
    WideCharToMultiByte(CP_UTF8, 0, line.c_str(), (int)line.size(), &s[0], n, nullptr, nullptr);
    s += '\n';
    fwrite(s.data(), 1, s.size(), stdout);
    fflush(stdout);
}

std::wstring Fmt(const wchar_t* fmt, ...)
{
    wchar_t buf[2048];
    va_list args;
    va_start(args, fmt);
    StrFormatV(buf, 2048, fmt, args);
    va_end(args);
    return buf;
}

// Control characters of a window text shown on one line.
std::wstring OneLine(const std::wstring& s)
{
    std::wstring r;
    for (wchar_t c : s) {
        if (c == L'\r')
            continue;
        if (c == L'\n')
            r += L" | ";
        else
            r += c;
    }
    return r;
}

int Usage()
{
    Out(L"usage: e2e_control <command> [arguments]; see the head of tests/e2e/control/e2e_control.cpp");
    return 2;
}

// ---- the simulated table ----------------------------------------------------------------------

bool OpenTable()
{
    if (g_shared.Open())
        return true;
    Out(Fmt(L"error: the simulated session table cannot be opened (error %lu)", GetLastError()));
    return false;
}

bool ParseState(const wchar_t* s, WTS_CONNECTSTATE_CLASS& state)
{
    if (!_wcsicmp(s, L"active"))
        state = WTSActive;
    else if (!_wcsicmp(s, L"connected"))
        state = WTSConnected;
    else if (!_wcsicmp(s, L"disconnected"))
        state = WTSDisconnected;
    else
        return false;
    return true;
}

const wchar_t* StateName(int state)
{
    switch (state) {
    case WTSActive:
        return L"active";
    case WTSConnected:
        return L"connected";
    case WTSDisconnected:
        return L"disconnected";
    default:
        return L"other";
    }
}

// The computer's own name as the domain of a local account, as Windows reports it.
std::wstring ComputerName()
{
    wchar_t name[MAX_COMPUTERNAME_LENGTH + 1];
    DWORD n = MAX_COMPUTERNAME_LENGTH + 1;
    return GetComputerNameW(name, &n) ? name : L"";
}

// One line per record, in the order the records were made.
struct Record {
    DWORD nSeq;
    std::wstring text;
};

std::vector<Record> AllRecords(const simshared::Block& b)
{
    std::vector<Record> r;
    const simts::SimState& s = b.state;
    for (DWORD i = 0; i < b.nTokenRequests; i++) {
        const simshared::TokenRequest& t = b.tokenRequests[i];
        r.push_back({t.nSeq, Fmt(L"token session=%lu pid=%lu error=%lu", t.dwSession, t.dwPid, t.dwError)});
    }
    for (DWORD i = 0; i < b.nAttaches; i++) {
        const simshared::Attach& a = b.attaches[i];
        r.push_back({a.nSeq, Fmt(L"attach pid=%lu detached=%d registered=%lu registrations=%lu cmdline=%s", a.dwPid,
                                 a.bDetached, a.nRegistered, a.nRegistrations, a.szCmdLine)});
    }
    for (DWORD i = 0; i < s.nLogoffs; i++) {
        const simts::SimLogoff& l = s.logoffs[i];
        r.push_back({l.nSeq, Fmt(L"logoff session=%lu wait=%d error=%lu", l.dwSession, l.bWait, l.dwError)});
    }
    for (DWORD i = 0; i < s.nMessages; i++) {
        const simts::SimMessage& m = s.messages[i];
        r.push_back({m.nSeq, Fmt(L"message session=%lu style=0x%lX timeout=%lu wait=%d error=%lu title=%s text=%s",
                                 m.dwSession, m.dwStyle, m.dwTimeout, m.bWait, m.dwError, m.szTitle,
                                 OneLine(m.szText).c_str())});
    }
    std::sort(r.begin(), r.end(), [](const Record& x, const Record& y) { return x.nSeq < y.nSeq; });
    return r;
}

DWORD CountRecords(const simshared::Block& b, const wchar_t* kind, DWORD session, bool any)
{
    DWORD n = 0;
    if (!_wcsicmp(kind, L"token")) {
        for (DWORD i = 0; i < b.nTokenRequests; i++)
            if ((any || b.tokenRequests[i].dwSession == session) && !b.tokenRequests[i].dwError)
                n++;
    } else if (!_wcsicmp(kind, L"logoff")) {
        for (DWORD i = 0; i < b.state.nLogoffs; i++)
            if ((any || b.state.logoffs[i].dwSession == session) && !b.state.logoffs[i].dwError)
                n++;
    } else if (!_wcsicmp(kind, L"message")) {
        for (DWORD i = 0; i < b.state.nMessages; i++)
            if (any || b.state.messages[i].dwSession == session)
                n++;
    } else if (!_wcsicmp(kind, L"attach")) {
        n = b.nAttaches;
    } else {
        return 0xFFFFFFFF;
    }
    return n;
}

// ---- registry ---------------------------------------------------------------------------------

struct Status {
    bool bHasSessions = false;
    DWORD dwSessions = 0;
    bool bHasLastLogoff = false;
    std::wstring lastLogoff;
};

Status ReadStatus()
{
    Status st;
    HKEY key;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kSettingsKey, 0, KEY_READ | KEY_WOW64_64KEY, &key) != ERROR_SUCCESS)
        return st;
    DWORD type = 0, cb = sizeof st.dwSessions;
    if (RegQueryValueExW(key, L"SessionsMonitoring", nullptr, &type, (BYTE*)&st.dwSessions, &cb) == ERROR_SUCCESS &&
        type == REG_DWORD)
        st.bHasSessions = true;
    wchar_t text[512] = {};
    cb = sizeof text - sizeof(wchar_t);
    if (RegQueryValueExW(key, L"LastLogoff", nullptr, &type, (BYTE*)text, &cb) == ERROR_SUCCESS && type == REG_SZ) {
        st.bHasLastLogoff = true;
        st.lastLogoff = text;
    }
    RegCloseKey(key);
    return st;
}

std::wstring StatusText(const Status& st)
{
    return Fmt(L"SessionsMonitoring=%s LastLogoff=%s",
               st.bHasSessions ? Fmt(L"%lu", st.dwSessions).c_str() : L"(absent)",
               st.bHasLastLogoff ? st.lastLogoff.c_str() : L"(absent)");
}

int WriteSettings(int argc, wchar_t** argv)
{
    HKEY key;
    if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, kSettingsKey, 0, nullptr, 0, KEY_ALL_ACCESS | KEY_WOW64_64KEY, nullptr,
                        &key, nullptr) != ERROR_SUCCESS) {
        Out(L"error: cannot create the settings key");
        return 1;
    }
    int rc = 0;
    for (int i = 0; i < argc; i++) {
        if (!wcscmp(argv[i], L"--empty-lists")) {
            // Empty user lists: the product applies to everybody (its default lists name groups
            // that Wine's account look-ups never report).
            for (const wchar_t* sub : {L"ApplyTo", L"Exclude"}) {
                RegDeleteTreeW(key, sub);
                HKEY h;
                if (RegCreateKeyExW(key, sub, 0, nullptr, 0, KEY_ALL_ACCESS | KEY_WOW64_64KEY, nullptr, &h, nullptr) ==
                    ERROR_SUCCESS)
                    RegCloseKey(h);
                else
                    rc = 1;
            }
            continue;
        }
        std::wstring a = argv[i];
        size_t eq = a.find(L'=');
        if (eq == std::wstring::npos) {
            Out(L"error: settings take Name=number");
            rc = 2;
            continue;
        }
        DWORD v = (DWORD)wcstoul(a.c_str() + eq + 1, nullptr, 10);
        if (RegSetValueExW(key, a.substr(0, eq).c_str(), 0, REG_DWORD, (const BYTE*)&v, sizeof v) != ERROR_SUCCESS)
            rc = 1;
    }
    RegCloseKey(key);
    return rc;
}

// ---- the service ------------------------------------------------------------------------------

// The service's state, or 0 when it does not exist.
DWORD ServiceState()
{
    SC_HANDLE scm = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
    if (!scm)
        return 0;
    DWORD state = 0;
    if (SC_HANDLE svc = OpenServiceW(scm, kServiceName, SERVICE_QUERY_STATUS)) {
        SERVICE_STATUS st;
        if (QueryServiceStatus(svc, &st))
            state = st.dwCurrentState;
        CloseServiceHandle(svc);
    }
    CloseServiceHandle(scm);
    return state;
}

const wchar_t* ServiceStateName(DWORD state)
{
    switch (state) {
    case 0:
        return L"absent";
    case SERVICE_STOPPED:
        return L"stopped";
    case SERVICE_START_PENDING:
        return L"start-pending";
    case SERVICE_STOP_PENDING:
        return L"stop-pending";
    case SERVICE_RUNNING:
        return L"running";
    default:
        return L"other";
    }
}

int SendControl(DWORD code)
{
    SC_HANDLE scm = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
    if (!scm) {
        Out(Fmt(L"error: service manager: %lu", GetLastError()));
        return 1;
    }
    int rc = 1;
    if (SC_HANDLE svc = OpenServiceW(scm, kServiceName, SERVICE_USER_DEFINED_CONTROL | SERVICE_QUERY_STATUS)) {
        SERVICE_STATUS st;
        if (ControlService(svc, code, &st))
            rc = 0;
        else
            Out(Fmt(L"error: control %lu: %lu", code, GetLastError()));
        CloseServiceHandle(svc);
    } else {
        Out(Fmt(L"error: open service: %lu", GetLastError()));
    }
    CloseServiceHandle(scm);
    return rc;
}

// ---- processes --------------------------------------------------------------------------------

// Another process's command line, read from its process parameters.
std::wstring CommandLineOf(DWORD pid)
{
    HANDLE h = OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ, FALSE, pid);
    if (!h)
        return L"?";
    std::wstring result = L"?";
    PROCESS_BASIC_INFORMATION pbi = {};
    ULONG cb = 0;
    if (NtQueryInformationProcess(h, ProcessBasicInformation, &pbi, sizeof pbi, &cb) == 0 && pbi.PebBaseAddress) {
        PEB peb;
        RTL_USER_PROCESS_PARAMETERS params;
        SIZE_T got = 0;
        if (ReadProcessMemory(h, pbi.PebBaseAddress, &peb, sizeof peb, &got) &&
            ReadProcessMemory(h, peb.ProcessParameters, &params, sizeof params, &got) &&
            params.CommandLine.Length && params.CommandLine.Length < 8192) {
            std::wstring text(params.CommandLine.Length / sizeof(wchar_t), L'\0');
            if (ReadProcessMemory(h, params.CommandLine.Buffer, &text[0], params.CommandLine.Length, &got))
                result = text;
        }
    }
    CloseHandle(h);
    return result;
}

struct Proc {
    DWORD pid;
    std::wstring cmdLine;
};

std::vector<Proc> ProductProcesses()
{
    std::vector<Proc> r;
    HANDLE snap = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    if (snap == INVALID_HANDLE_VALUE)
        return r;
    PROCESSENTRY32W pe = {};
    pe.dwSize = sizeof pe;
    for (BOOL ok = Process32FirstW(snap, &pe); ok; ok = Process32NextW(snap, &pe)) {
        const wchar_t* base = wcsrchr(pe.szExeFile, L'\\');
        base = base ? base + 1 : pe.szExeFile;
        if (!_wcsicmp(base, kProductExe))
            r.push_back({pe.th32ProcessID, CommandLineOf(pe.th32ProcessID)});
    }
    CloseHandle(snap);
    return r;
}

// ---- windows ----------------------------------------------------------------------------------

struct Box {
    HWND hwnd = nullptr;
    DWORD pid = 0;
    std::wstring title;
    std::wstring text;
};

BOOL CALLBACK FindBoxProc(HWND hwnd, LPARAM lParam)
{
    HWND text = GetDlgItem(hwnd, kCountdownControl);
    if (!text || !IsWindowVisible(hwnd))
        return TRUE;
    Box* box = (Box*)lParam;
    box->hwnd = hwnd;
    GetWindowThreadProcessId(hwnd, &box->pid);
    wchar_t buf[1024] = {};
    // Across processes: the system copies the text of WM_GETTEXT between them.
    SendMessageTimeoutW(hwnd, WM_GETTEXT, 256, (LPARAM)buf, SMTO_ABORTIFHUNG, 2000, nullptr);
    box->title = buf;
    buf[0] = 0;
    SendMessageTimeoutW(text, WM_GETTEXT, 1024, (LPARAM)buf, SMTO_ABORTIFHUNG, 2000, nullptr);
    box->text = buf;
    return FALSE;
}

// The warning box: a visible top-level window that has the countdown text control.
Box FindBox()
{
    Box box;
    EnumWindows(FindBoxProc, (LPARAM)&box);
    return box;
}

// The countdown "m:ss" in the box's text as seconds, or -1.
int CountdownSeconds(const std::wstring& text)
{
    for (size_t i = 0; i + 3 < text.size(); i++) {
        if (!iswdigit(text[i]) || (i > 0 && iswdigit(text[i - 1])))
            continue;
        size_t j = i;
        int minutes = 0;
        while (j < text.size() && iswdigit(text[j]))
            minutes = minutes * 10 + (text[j++] - L'0');
        if (j + 2 < text.size() + 0 && text[j] == L':' && iswdigit(text[j + 1]) && iswdigit(text[j + 2]) &&
            (j + 3 == text.size() || !iswdigit(text[j + 3])))
            return minutes * 60 + (text[j + 1] - L'0') * 10 + (text[j + 2] - L'0');
    }
    return -1;
}

HWND MonitorWindow(DWORD* pid)
{
    HWND h = FindWindowW(kMonitorClass, nullptr);
    if (h && pid)
        GetWindowThreadProcessId(h, pid);
    return h;
}

// ---- input ------------------------------------------------------------------------------------

// One mouse movement there and back and one Shift key press: activity that changes nothing on
// the screen and presses no button of a box.
UINT InjectInput()
{
    INPUT in[4] = {};
    in[0].type = INPUT_MOUSE;
    in[0].mi.dx = 3;
    in[0].mi.dy = 2;
    in[0].mi.dwFlags = MOUSEEVENTF_MOVE;
    in[1] = in[0];
    in[1].mi.dx = -3;
    in[1].mi.dy = -2;
    in[2].type = INPUT_KEYBOARD;
    in[2].ki.wVk = VK_SHIFT;
    in[3] = in[2];
    in[3].ki.dwFlags = KEYEVENTF_KEYUP;
    return SendInput(4, in, sizeof(INPUT));
}

// ---- waiting ----------------------------------------------------------------------------------

// Evaluates one condition of "wait"; -1 for an unknown condition.
int Holds(const std::wstring& what, int argc, wchar_t** argv, std::wstring& detail)
{
    if (what == L"logoff" || what == L"token") {
        if (argc < 1 || !OpenTable())
            return -1;
        DWORD session = wcstoul(argv[0], nullptr, 10);
        DWORD need = what == L"token" && argc > 1 ? wcstoul(argv[1], nullptr, 10) : 1;
        simshared::Locked lock(g_shared);
        DWORD n = CountRecords(*g_shared.Get(), what.c_str(), session, false);
        detail = Fmt(L"%s records for session %lu: %lu", what.c_str(), session, n);
        return n >= need;
    }
    if (what == L"box" || what == L"no-box") {
        Box b = FindBox();
        detail = b.hwnd ? Fmt(L"box pid=%lu title=%s text=%s", b.pid, b.title.c_str(), OneLine(b.text).c_str())
                        : L"no box";
        return (b.hwnd != nullptr) == (what == L"box");
    }
    if (what == L"monitor") {
        DWORD pid = 0;
        HWND h = MonitorWindow(&pid);
        detail = h ? Fmt(L"monitor window of pid %lu: %s", pid, CommandLineOf(pid).c_str()) : L"no monitor window";
        return h != nullptr;
    }
    if (what == L"no-product") {
        std::vector<Proc> procs = ProductProcesses();
        detail.clear();
        for (const Proc& p : procs)
            detail += Fmt(L"pid=%lu %s; ", p.pid, p.cmdLine.c_str());
        if (procs.empty())
            detail = L"no product process";
        return procs.empty();
    }
    if (what == L"status-logoff") {
        if (argc < 1)
            return -1;
        Status st = ReadStatus();
        detail = StatusText(st);
        return st.bHasLastLogoff && st.lastLogoff == argv[0];
    }
    if (what == L"service") {
        if (argc < 1)
            return -1;
        const wchar_t* now = ServiceStateName(ServiceState());
        detail = Fmt(L"service %s", now);
        return !_wcsicmp(now, argv[0]);
    }
    return -1;
}

int Wait(int argc, wchar_t** argv)
{
    if (argc < 2)
        return Usage();
    std::wstring what = argv[0];
    double seconds = _wtof(argv[1]);
    DWORD start = GetTickCount();
    std::wstring detail;
    for (;;) {
        int h = Holds(what, argc - 2, argv + 2, detail);
        if (h < 0)
            return Usage();
        double waited = (GetTickCount() - start) / 1000.0;
        if (h) {
            Out(Fmt(L"ok after %.1f s: %s", waited, detail.c_str()));
            return 0;
        }
        if (waited >= seconds) {
            Out(Fmt(L"timed out after %.1f s: %s", waited, detail.c_str()));
            return 1;
        }
        Sleep(kPollMs);
    }
}

// ---- the timeline -----------------------------------------------------------------------------

// Event ids and their meaning, as the product's message table words them.
const wchar_t* EventName(DWORD id)
{
    switch (id) {
    case 0x60000001: return L"service started";
    case 0x60000002: return L"stop sequence initiated";
    case 0x60000003: return L"service stopped";
    case 0x60000006: return L"started monitoring";
    case 0x60000007: return L"skipped (listed in 'Do not apply to')";
    case 0x60000008: return L"skipped (group in 'Do not apply to')";
    case 0x60000009: return L"skipped (not in 'Apply To')";
    case 0x6000000A: return L"logged off";
    case 0xE000000B: return L"could not log off";
    case 0xE000000F: return L"could not start the monitor";
    case 0xA0000016: return L"kept the most recent active user";
    case 0x60000017: return L"logged off a stale session";
    default: return L"event";
    }
}

// Reads the Wine trace of the service's event reports as it grows: "fixme:advapi:ReportEventW
// (handle,type,category,id,...)" then one ":eventlog:ReportEventW L\"text\"" line per insertion
// string, both prefixed with the reporting thread's id.
class TraceReader {
public:
    explicit TraceReader(const wchar_t* path) : file(INVALID_HANDLE_VALUE), offset(0)
    {
        if (path)
            file = CreateFileW(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                               OPEN_EXISTING, 0, nullptr);
    }
    ~TraceReader()
    {
        if (file != INVALID_HANDLE_VALUE)
            CloseHandle(file);
    }
    // Complete events seen so far, in the order of the trace (Flush hands out the rest).
    void Poll(std::vector<std::wstring>& events)
    {
        if (file == INVALID_HANDLE_VALUE)
            return;
        char buf[65536];
        DWORD got = 0;
        LARGE_INTEGER pos;
        pos.QuadPart = offset;
        SetFilePointerEx(file, pos, nullptr, FILE_BEGIN);
        while (ReadFile(file, buf, sizeof buf, &got, nullptr) && got) {
            offset += got;
            pending.append(buf, got);
        }
        // An event's strings follow its first line at once, in the same call: an event already
        // open before this read is complete.
        std::vector<std::string> done;
        for (auto& e : open)
            done.push_back(e.first);
        size_t nl;
        while ((nl = pending.find('\n')) != std::string::npos) {
            Line(pending.substr(0, nl), completed);
            pending.erase(0, nl + 1);
        }
        for (const std::string& tid : done) {
            auto it = open.find(tid);
            if (it != open.end() && it->second.generation < generation) {
                completed.push_back({it->second.serial, it->second.text});
                open.erase(it);
            }
        }
        // In the order of the events' first lines: a complete event waits for every earlier one
        // that is still open.
        unsigned firstOpen = ~0u;
        for (auto& e : open)
            firstOpen = std::min(firstOpen, e.second.serial);
        std::sort(completed.begin(), completed.end());
        size_t n = 0;
        while (n < completed.size() && completed[n].first < firstOpen)
            events.push_back(completed[n++].second);
        completed.erase(completed.begin(), completed.begin() + n);
        generation++;
    }
    void Flush(std::vector<std::wstring>& events)
    {
        for (auto& e : open)
            completed.push_back({e.second.serial, e.second.text});
        open.clear();
        std::sort(completed.begin(), completed.end());
        for (auto& e : completed)
            events.push_back(e.second);
        completed.clear();
    }

private:
    void Line(const std::string& line, std::vector<std::pair<unsigned, std::wstring>>& events)
    {
        size_t colon = line.find(':');
        if (colon == std::string::npos)
            return;
        std::string tid = line.substr(0, colon);
        size_t p = line.find("ReportEventW (");
        if (p != std::string::npos && line.find("advapi") != std::string::npos) {
            auto it = open.find(tid);
            if (it != open.end()) {
                events.push_back({it->second.serial, it->second.text});
                open.erase(it);
            }
            // (handle,type,category,id,...
            std::string args = line.substr(p + 14);
            int field = 0;
            size_t start = 0;
            DWORD id = 0;
            for (size_t i = 0; i <= args.size(); i++) {
                if (i == args.size() || args[i] == ',') {
                    std::string f = args.substr(start, i - start);
                    if (field == 3) {
                        id = strtoul(f.c_str(), nullptr, 16);
                        break;
                    }
                    field++;
                    start = i + 1;
                }
            }
            open[tid] = {Fmt(L"event 0x%08lX %s", id, EventName(id)), generation, serial++};
            return;
        }
        p = line.find(":eventlog:ReportEventW ");
        if (p != std::string::npos) {
            auto it = open.find(tid);
            if (it == open.end())
                return;
            std::string text = line.substr(p + 23);
            std::wstring w(text.begin(), text.end());
            it->second.text += L" " + w;
        }
    }

    struct Open {
        std::wstring text;
        unsigned generation;   // the read that found its first line
        unsigned serial;       // its place in the trace
    };
    HANDLE file;
    LONGLONG offset;
    unsigned generation = 0;
    unsigned serial = 0;
    std::string pending;
    std::map<std::string, Open> open;   // by the reporting thread's id
    std::vector<std::pair<unsigned, std::wstring>> completed;   // by serial, not handed out yet
};

double NowSeconds()
{
    FILETIME ft;
    GetSystemTimeAsFileTime(&ft);
    ULONGLONG t = ((ULONGLONG)ft.dwHighDateTime << 32) | ft.dwLowDateTime;
    return (double)(t - 116444736000000000ULL) / 1e7;   // seconds since 1970, as the shell's date +%s
}

// watch <seconds> [--since <epoch seconds>] [--trace <file>] [--input-every <s>] [--input-until <s>]
//       [--until-logoffs <n>] [--until-event <hex id>]
// Prints what happens, one line per change, with the time since --since (default: now).
int Watch(int argc, wchar_t** argv)
{
    if (argc < 1 || !OpenTable())
        return Usage();
    double limit = _wtof(argv[0]);
    double since = NowSeconds();
    const wchar_t* trace = nullptr;
    double inputEvery = 0, inputUntil = -1;
    DWORD untilLogoffs = 0;
    DWORD untilEvent = 0;
    for (int i = 1; i + 1 < argc; i += 2) {
        std::wstring o = argv[i];
        if (o == L"--since")
            since = _wtof(argv[i + 1]);
        else if (o == L"--trace")
            trace = argv[i + 1];
        else if (o == L"--input-every")
            inputEvery = _wtof(argv[i + 1]);
        else if (o == L"--input-until")
            inputUntil = _wtof(argv[i + 1]);
        else if (o == L"--until-logoffs")
            untilLogoffs = wcstoul(argv[i + 1], nullptr, 10);
        else if (o == L"--until-event")
            untilEvent = wcstoul(argv[i + 1], nullptr, 16);
        else
            return Usage();
    }
    auto at = [&]() { return NowSeconds() - since; };
    auto say = [&](const std::wstring& s) { Out(Fmt(L"%6.1f s  %s", at(), s.c_str())); };

    TraceReader reader(trace);
    DWORD seenSeq = 0;
    std::map<DWORD, std::wstring> users;   // the user of each session, as last seen in the table
    std::map<DWORD, int> states;
    {
        // The table as it stands is the caller's starting point: only its changes are news.
        simshared::Locked lock(g_shared);
        const simts::SimState& s = g_shared.Get()->state;
        for (DWORD i = 0; i < s.nSessions; i++) {
            users[s.sessions[i].dwId] = s.sessions[i].szUser;
            states[s.sessions[i].dwId] = s.sessions[i].state;
        }
    }
    Status lastStatus = ReadStatus();
    HWND lastBox = nullptr;
    int lastCountdownShown = -1;
    DWORD lastMonitorPid = 0;
    double lastInput = -1e9;
    double watchStart = at();
    DWORD logoffsSeen = 0;
    bool eventSeen = false;
    std::vector<std::wstring> events;

    for (;;) {
        double now = at();
        // Input first, so that it is on the timeline before what it causes.
        if (inputEvery > 0 && now < inputUntil && now - lastInput >= inputEvery) {
            UINT n = InjectInput();
            lastInput = now;
            say(Fmt(L"input      %u keyboard and mouse events injected (SendInput)", n));
        }
        {
            simshared::Locked lock(g_shared);
            simshared::Block& b = *g_shared.Get();
            for (DWORD i = 0; i < b.state.nSessions; i++) {
                const simts::SimSession& s = b.state.sessions[i];
                users[s.dwId] = s.szUser;
                auto it = states.find(s.dwId);
                if (it == states.end() || it->second != s.state) {
                    states[s.dwId] = s.state;
                    say(Fmt(L"table      session %lu (%s) is %s", s.dwId, s.szUser, StateName(s.state)));
                }
            }
            for (const Record& r : AllRecords(b)) {
                if (r.nSeq <= seenSeq)
                    continue;
                seenSeq = r.nSeq;
                std::wstring t = r.text;
                DWORD session = 0;
                if (swscanf(t.c_str(), L"logoff session=%lu", &session) == 1) {
                    logoffsSeen++;
                    say(Fmt(L"LOGOFF     session %lu (%s) logged off through WTSLogoffSession", session,
                            users[session].c_str()));
                } else if (swscanf(t.c_str(), L"token session=%lu", &session) == 1) {
                    say(Fmt(L"token      the service took the user token of session %lu to start a program in it",
                            session));
                } else if (t.compare(0, 7, L"message") == 0) {
                    say(L"MESSAGE    " + t);
                } else if (t.compare(0, 6, L"attach") == 0) {
                    size_t c = t.find(L"cmdline=");
                    say(L"process    started and loaded the terminal services library: " +
                        (c == std::wstring::npos ? t : t.substr(c + 8)));
                }
            }
        }
        DWORD monitorPid = 0;
        MonitorWindow(&monitorPid);
        if (monitorPid != lastMonitorPid) {
            if (monitorPid)
                say(Fmt(L"monitor    window VANTREL_MONITOR belongs to %s (pid %lu)", CommandLineOf(monitorPid).c_str(),
                        monitorPid));
            else
                say(L"monitor    no VANTREL_MONITOR window");
            lastMonitorPid = monitorPid;
        }
        Box box = FindBox();
        if (box.hwnd != lastBox) {
            if (box.hwnd) {
                say(Fmt(L"WARNING    box \"%s\" shown by pid %lu: %s", box.title.c_str(), box.pid,
                        OneLine(box.text).c_str()));
                lastCountdownShown = CountdownSeconds(box.text);
            } else {
                say(L"WARNING    box closed");
            }
            lastBox = box.hwnd;
        } else if (box.hwnd) {
            int left = CountdownSeconds(box.text);
            // Every 15 seconds of countdown is enough for a reader.
            if (left >= 0 && lastCountdownShown - left >= 15) {
                say(Fmt(L"countdown  %d:%02d left in the box", left / 60, left % 60));
                lastCountdownShown = left;
            }
        }
        Status st = ReadStatus();
        if (st.bHasSessions != lastStatus.bHasSessions || st.dwSessions != lastStatus.dwSessions ||
            st.bHasLastLogoff != lastStatus.bHasLastLogoff || st.lastLogoff != lastStatus.lastLogoff) {
            say(L"status     " + StatusText(st));
            lastStatus = st;
        }
        events.clear();
        reader.Poll(events);
        for (const std::wstring& e : events) {
            say(L"EVENTLOG   " + e);
            if (untilEvent && e.find(Fmt(L"0x%08lX", untilEvent)) != std::wstring::npos)
                eventSeen = true;
        }
        if (untilLogoffs && logoffsSeen >= untilLogoffs)
            break;
        if (eventSeen)
            break;
        if (at() - watchStart >= limit) {
            events.clear();
            reader.Flush(events);
            for (const std::wstring& e : events)
                say(L"EVENTLOG   " + e);
            say(L"watch      time is up");
            return 1;
        }
        Sleep(250);
    }
    Sleep(300);
    events.clear();
    reader.Poll(events);
    reader.Flush(events);
    for (const std::wstring& e : events)
        say(L"EVENTLOG   " + e);
    return 0;
}

} // namespace

int wmain(int argc, wchar_t** argv)
{
    if (argc < 2)
        return Usage();
    std::wstring cmd = argv[1];
    int n = argc - 2;
    wchar_t** a = argv + 2;

    if (cmd == L"reset" || cmd == L"add" || cmd == L"state" || cmd == L"remove" || cmd == L"records" ||
        cmd == L"count") {
        if (!OpenTable())
            return 3;
        simshared::Locked lock(g_shared);
        if (!lock) {
            Out(L"error: the table stays locked");
            return 3;
        }
        simshared::Block& b = *g_shared.Get();
        if (cmd == L"reset") {
            g_shared.ResetAll();
            return 0;
        }
        if (cmd == L"add") {
            if (n < 2)
                return Usage();
            WTS_CONNECTSTATE_CLASS state = WTSActive;
            if (n > 2 && !ParseState(a[2], state))
                return Usage();
            int remote = n > 3 && !_wcsicmp(a[3], L"remote");
            std::wstring domain = ComputerName();
            if (!simts::AddSession(b.state, wcstoul(a[0], nullptr, 10), a[1], domain.c_str(), state, remote)) {
                Out(Fmt(L"error: add session: %lu", GetLastError()));
                return 1;
            }
            return 0;
        }
        if (cmd == L"state") {
            WTS_CONNECTSTATE_CLASS state;
            if (n < 2 || !ParseState(a[1], state))
                return Usage();
            simts::SimSession* s = simts::FindSession(b.state, wcstoul(a[0], nullptr, 10));
            if (!s)
                return 1;
            s->state = state;
            return 0;
        }
        if (cmd == L"remove") {
            if (n < 1)
                return Usage();
            return simts::RemoveSession(b.state, wcstoul(a[0], nullptr, 10)) ? 0 : 1;
        }
        if (cmd == L"records") {
            for (DWORD i = 0; i < b.state.nSessions; i++) {
                const simts::SimSession& s = b.state.sessions[i];
                Out(Fmt(L"session id=%lu user=%s domain=%s state=%s", s.dwId, s.szUser, s.szDomain,
                        StateName(s.state)));
            }
            for (const Record& r : AllRecords(b))
                Out(Fmt(L"%lu %s", r.nSeq, r.text.c_str()));
            Out(Fmt(L"summary tokens=%lu logoffs=%lu messages=%lu attaches=%lu registrations=%ld allocations=%ld "
                    L"badfrees=%lu dropped=%lu",
                    b.nTokenRequests, b.state.nLogoffs, b.state.nMessages, b.nAttaches, b.state.nRegistrations,
                    b.state.nAllocations, b.state.nBadFrees, b.state.nDropped));
            return 0;
        }
        // count
        if (n < 1)
            return Usage();
        DWORD c = CountRecords(b, a[0], n > 1 ? wcstoul(a[1], nullptr, 10) : 0, n < 2);
        if (c == 0xFFFFFFFF)
            return Usage();
        Out(Fmt(L"%lu", c));
        return 0;
    }
    if (cmd == L"settings")
        return WriteSettings(n, a);
    if (cmd == L"status") {
        Out(StatusText(ReadStatus()));
        return 0;
    }
    if (cmd == L"control") {
        if (n < 1)
            return Usage();
        return SendControl(wcstoul(a[0], nullptr, 10));
    }
    if (cmd == L"service") {
        Out(ServiceStateName(ServiceState()));
        return 0;
    }
    if (cmd == L"input") {
        int count = n > 0 ? _wtoi(a[0]) : 1;
        DWORD interval = n > 1 ? wcstoul(a[1], nullptr, 10) : 0;
        UINT sent = 0;
        for (int i = 0; i < count; i++) {
            if (i && interval)
                Sleep(interval);
            sent += InjectInput();
        }
        Out(Fmt(L"injected %u events", sent));
        return sent == (UINT)count * 4 ? 0 : 1;
    }
    if (cmd == L"box") {
        Box b = FindBox();
        if (!b.hwnd) {
            Out(L"no box");
            return 1;
        }
        Out(Fmt(L"box pid=%lu countdown=%d title=%s text=%s", b.pid, CountdownSeconds(b.text), b.title.c_str(),
                OneLine(b.text).c_str()));
        return 0;
    }
    if (cmd == L"procs") {
        for (const Proc& p : ProductProcesses())
            Out(Fmt(L"pid=%lu %s", p.pid, p.cmdLine.c_str()));
        return 0;
    }
    if (cmd == L"wait")
        return Wait(n, a);
    if (cmd == L"watch")
        return Watch(n, a);
    return Usage();
}
