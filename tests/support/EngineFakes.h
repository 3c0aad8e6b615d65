// Test doubles for the engine's seams: a virtual clock, an event-log recorder, power calls and
// group look-ups. Each installs itself on construction and restores the real seam on destruction.
#pragma once
#include <windows.h>

#include <map>
#include <mutex>
#include <string>
#include <vector>

class StrList;

namespace vxtest {

// The tick and the local time under the test's control. The local time advances with the tick.
class VirtualClock {
public:
    // Starts at the given local time (Monday 2026-11-23 09:00 by default) and tick.
    explicit VirtualClock(DWORD tick = 1000000, SYSTEMTIME start = Monday(9, 0));
    ~VirtualClock();
    VirtualClock(const VirtualClock&) = delete;
    VirtualClock& operator=(const VirtualClock&) = delete;
    DWORD Tick() const { return tick_; }
    void Advance(DWORD ms);
    void SetLocalTime(const SYSTEMTIME& st);
    // A local time on the week of Monday 2026-11-23 (day 0 = Sunday 2026-11-22).
    static SYSTEMTIME Monday(WORD hour, WORD minute) { return Day(1, hour, minute); }
    static SYSTEMTIME Day(int dayOfWeek, WORD hour, WORD minute);

private:
    static DWORD GetTick();
    static void GetLocal(SYSTEMTIME* st);
    static VirtualClock* current_;
    DWORD tick_;
    ULONGLONG localFileTime_; // the local time at tick_, in 100 ns units
    DWORD (*savedTick_)();
    void (*savedLocal_)(SYSTEMTIME*);
};

struct RecordedEvent {
    WORD type;
    DWORD id;
    std::vector<std::wstring> strings;
};

// Records every event the engine reports.
class EventRecorder {
public:
    EventRecorder();
    ~EventRecorder();
    EventRecorder(const EventRecorder&) = delete;
    EventRecorder& operator=(const EventRecorder&) = delete;
    std::vector<RecordedEvent> Events() const;
    std::vector<DWORD> Ids() const;
    size_t Count(DWORD id) const;
    void Clear();

private:
    static BOOL Report(WORD type, DWORD id, WORD n, const wchar_t** strings);
    static EventRecorder* current_;
    mutable std::mutex lock_;
    std::vector<RecordedEvent> events_;
    BOOL (*saved_)(WORD, DWORD, WORD, const wchar_t**);
};

// Power calls: records them and answers as told.
class FakePower {
public:
    FakePower();
    ~FakePower();
    FakePower(const FakePower&) = delete;
    FakePower& operator=(const FakePower&) = delete;
    bool privilegeOk = true;
    bool sleepOk = true, hibernateOk = true, shutdownOk = true;
    std::vector<std::string> calls; // "privilege+", "privilege-", "suspend:sleep", "suspend:hibernate", "shutdown", "abort"

private:
    static FakePower* current_;
    static BOOLEAN Suspend(BOOLEAN hibernate, BOOLEAN, BOOLEAN);
    static BOOL Shutdown(LPWSTR, LPWSTR, DWORD, BOOL, BOOL, DWORD);
    static BOOL Abort(LPWSTR);
    static int Privilege(int enable);
    BOOLEAN (*savedSuspend_)(BOOLEAN, BOOLEAN, BOOLEAN);
    BOOL (*savedShutdown_)(LPWSTR, LPWSTR, DWORD, BOOL, BOOL, DWORD);
    BOOL (*savedAbort_)(LPWSTR);
    int (*savedPrivilege_)(int);
};

// Group membership by user: domain groups keyed by "DOMAIN\user", local groups by the full name.
class FakeGroups {
public:
    FakeGroups();
    ~FakeGroups();
    FakeGroups(const FakeGroups&) = delete;
    FakeGroups& operator=(const FakeGroups&) = delete;
    std::map<std::wstring, std::vector<std::wstring>> domainGroups, localGroups;
    std::vector<std::wstring> asked; // "domain:DOMAIN\user", "local:name"

private:
    static FakeGroups* current_;
    static void Domain(const wchar_t* domain, const wchar_t* user, StrList& groups);
    static void Local(const wchar_t* name, StrList& groups);
    void (*savedDomain_)(const wchar_t*, const wchar_t*, StrList&);
    void (*savedLocal_)(const wchar_t*, StrList&);
};

// The engine's process-wide session state: no active user and no quit request while the guard
// lives, the values found before back on destruction, so a test that ends early (or sets them
// itself) cannot leave a quitting engine or a stale active user to the next test.
class ScopedEngineState {
public:
    ScopedEngineState();
    ~ScopedEngineState();
    ScopedEngineState(const ScopedEngineState&) = delete;
    ScopedEngineState& operator=(const ScopedEngineState&) = delete;

private:
    DWORD savedActiveUser_;
    int savedQuitAll_;
};

} // namespace vxtest
