// Test doubles for the engine's seams: a virtual clock, an event recorder, power calls and group
// look-ups. Each installs itself on construction and puts the previous seam back on destruction.
#pragma once
#include <windows.h>

#include <algorithm>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "engine/Seams.h"
#include "engine/VXThread.h"
#include "storage/StrList.h"
#include "support/Guards.h"

namespace vxtest {

// The tick and the local time under the test's control; the local time moves with the tick.
class VirtualClock {
public:
    // Monday 2026-11-23 09:00 unless told.
    explicit VirtualClock(DWORD tick = 1000000, SYSTEMTIME start = Monday(9, 0)) : tick_(tick)
    {
        SetLocalTime(start);
        current_ = this;
    }
    DWORD Tick() const { return tick_; }
    void Advance(DWORD ms) { tick_ += ms, local_ += ms * 10000ull; }
    void SetLocalTime(const SYSTEMTIME& st)
    {
        FILETIME ft;
        SystemTimeToFileTime(&st, &ft);
        local_ = ((ULONGLONG)ft.dwHighDateTime << 32) | ft.dwLowDateTime;
    }
    static SYSTEMTIME Monday(WORD hour, WORD minute) { return {2026, 11, 1, 23, hour, minute, 0, 0}; }

private:
    inline static VirtualClock* current_;
    DWORD tick_;
    ULONGLONG local_; // the local time at tick_, in 100 ns units
    ScopedValue<DWORD (*)()> tickSeam_{Seams::pfnGetTickCount, [] { return current_->tick_; }};
    ScopedValue<void (*)(SYSTEMTIME*)> timeSeam_{Seams::pfnGetLocalTime, [](SYSTEMTIME* st) {
        FILETIME ft = {(DWORD)current_->local_, (DWORD)(current_->local_ >> 32)};
        FileTimeToSystemTime(&ft, st);
    }};
};

struct RecordedEvent {
    WORD type;
    DWORD id;
    std::vector<std::wstring> strings;
};

// Records every event the engine reports (from any thread).
class EventRecorder {
public:
    EventRecorder() { current_ = this; }
    std::vector<RecordedEvent> Events() const
    {
        std::lock_guard<std::mutex> g(lock_);
        return events_;
    }
    std::vector<DWORD> Ids() const
    {
        std::vector<DWORD> ids;
        for (const auto& e : Events())
            ids.push_back(e.id);
        return ids;
    }
    size_t Count(DWORD id) const { auto v = Ids(); return (size_t)std::count(v.begin(), v.end(), id); }
    void Clear()
    {
        std::lock_guard<std::mutex> g(lock_);
        events_.clear();
    }

private:
    inline static EventRecorder* current_;
    mutable std::mutex lock_;
    std::vector<RecordedEvent> events_;
    ScopedValue<BOOL (*)(WORD, DWORD, WORD, const wchar_t**)> seam_{
        Seams::pfnReportEvent, [](WORD type, DWORD id, WORD n, const wchar_t** s) -> BOOL {
            RecordedEvent e{type, id, {}};
            for (WORD i = 0; i < n; ++i)
                e.strings.push_back(s && s[i] ? s[i] : L"<null>");
            std::lock_guard<std::mutex> g(current_->lock_);
            current_->events_.push_back(e);
            return TRUE;
        }};
};

// Power calls, recorded as "privilege+", "privilege-", "suspend:sleep", "suspend:hibernate",
// "shutdown:<arguments>" and "abort", answering as told.
class FakePower {
public:
    FakePower() { current_ = this; }
    bool privilegeOk = true, sleepOk = true, hibernateOk = true, shutdownOk = true;
    std::vector<std::string> calls;

private:
    inline static FakePower* current_;
    static BOOL Answer(const std::string& call, bool ok, DWORD err)
    {
        current_->calls.push_back(call);
        SetLastError(ok ? 0 : err);
        return ok;
    }
    ScopedValue<BOOLEAN (*)(BOOLEAN, BOOLEAN, BOOLEAN)> suspend_{Seams::pfnSetSuspendState, [](BOOLEAN h, BOOLEAN, BOOLEAN) {
        return (BOOLEAN)Answer(h ? "suspend:hibernate" : "suspend:sleep", h ? current_->hibernateOk : current_->sleepOk,
                               ERROR_NOT_SUPPORTED);
    }};
    ScopedValue<BOOL (*)(LPWSTR, LPWSTR, DWORD, BOOL, BOOL, DWORD)> shutdown_{
        Seams::pfnInitiateSystemShutdownEx, [](LPWSTR machine, LPWSTR msg, DWORD timeout, BOOL force, BOOL reboot, DWORD why) {
            char buf[96];
            snprintf(buf, sizeof(buf), "shutdown:%s,%s,%lu,%d,%d,%08lX", machine ? "machine" : "local", msg ? "msg" : "none",
                     (unsigned long)timeout, force, reboot, (unsigned long)why);
            return Answer(buf, current_->shutdownOk, ERROR_ACCESS_DENIED);
        }};
    ScopedValue<BOOL (*)(LPWSTR)> abort_{Seams::pfnAbortSystemShutdown, [](LPWSTR) { return Answer("abort", true, 0); }};
    ScopedValue<int (*)(int)> privilege_{Seams::pfnSetShutdownPrivilege, [](int on) {
        return (int)Answer(on ? "privilege+" : "privilege-", current_->privilegeOk, ERROR_NOT_ALL_ASSIGNED);
    }};
};

// Group membership: domain groups keyed by "DOMAIN\user", local groups by the full name.
class FakeGroups {
public:
    FakeGroups() { current_ = this; }
    std::map<std::wstring, std::vector<std::wstring>> domainGroups, localGroups;
    std::vector<std::wstring> asked; // "domain:DOMAIN\user", "local:name"

private:
    inline static FakeGroups* current_;
    static void Fill(std::vector<std::wstring>& from, const std::wstring& asked, StrList& groups)
    {
        current_->asked.push_back(asked);
        groups.RemoveAll();
        for (const auto& g : from)
            groups.AddTail(g.c_str());
    }
    ScopedValue<void (*)(const wchar_t*, const wchar_t*, StrList&)> domain_{
        Seams::pfnGetUserGroups, [](const wchar_t* d, const wchar_t* u, StrList& g) {
            std::wstring key = std::wstring(d) + L"\\" + u;
            Fill(current_->domainGroups[key], L"domain:" + key, g);
        }};
    ScopedValue<void (*)(const wchar_t*, StrList&)> local_{Seams::pfnGetUserLocalGroups, [](const wchar_t* n, StrList& g) {
        Fill(current_->localGroups[n], std::wstring(L"local:") + n, g);
    }};
};

// No active user and no quit request while the guard lives; the values found are back afterwards.
class ScopedEngineState {
public:
    ScopedEngineState() { VXThread::dwSessionIdActiveUser = 0xFFFFFFFF, VXThread::bQuitAll = 0; }
    ~ScopedEngineState() { VXThread::dwSessionIdActiveUser = user_, VXThread::bQuitAll = quit_; }
    VX_NO_COPY(ScopedEngineState);

private:
    DWORD user_ = VXThread::dwSessionIdActiveUser;
    int quit_ = VXThread::bQuitAll;
};

} // namespace vxtest
