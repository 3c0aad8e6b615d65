#include "support/EngineFakes.h"

#include "engine/Seams.h"
#include "engine/VXThread.h"
#include "storage/StrList.h"

namespace vxtest {

VirtualClock* VirtualClock::current_ = nullptr;

SYSTEMTIME VirtualClock::Day(int dayOfWeek, WORD hour, WORD minute)
{
    SYSTEMTIME st{};
    st.wYear = 2026;
    st.wMonth = 11;
    st.wDay = (WORD)(22 + dayOfWeek); // Sunday 2026-11-22
    st.wDayOfWeek = (WORD)dayOfWeek;
    st.wHour = hour;
    st.wMinute = minute;
    return st;
}

VirtualClock::VirtualClock(DWORD tick, SYSTEMTIME start)
    : tick_(tick), localFileTime_(0), savedTick_(Seams::pfnGetTickCount), savedLocal_(Seams::pfnGetLocalTime)
{
    SetLocalTime(start);
    current_ = this;
    Seams::pfnGetTickCount = GetTick;
    Seams::pfnGetLocalTime = GetLocal;
}

VirtualClock::~VirtualClock()
{
    Seams::pfnGetTickCount = savedTick_;
    Seams::pfnGetLocalTime = savedLocal_;
    current_ = nullptr;
}

void VirtualClock::Advance(DWORD ms)
{
    tick_ += ms;
    localFileTime_ += (ULONGLONG)ms * 10000;
}

void VirtualClock::SetLocalTime(const SYSTEMTIME& st)
{
    FILETIME ft;
    SystemTimeToFileTime(&st, &ft);
    localFileTime_ = ((ULONGLONG)ft.dwHighDateTime << 32) | ft.dwLowDateTime;
}

DWORD VirtualClock::GetTick() { return current_->tick_; }

void VirtualClock::GetLocal(SYSTEMTIME* st)
{
    FILETIME ft;
    ft.dwLowDateTime = (DWORD)current_->localFileTime_;
    ft.dwHighDateTime = (DWORD)(current_->localFileTime_ >> 32);
    FileTimeToSystemTime(&ft, st);
}

EventRecorder* EventRecorder::current_ = nullptr;

EventRecorder::EventRecorder() : saved_(Seams::pfnReportEvent)
{
    current_ = this;
    Seams::pfnReportEvent = Report;
}

EventRecorder::~EventRecorder()
{
    Seams::pfnReportEvent = saved_;
    current_ = nullptr;
}

BOOL EventRecorder::Report(WORD type, DWORD id, WORD n, const wchar_t** strings)
{
    RecordedEvent e{type, id, {}};
    for (WORD i = 0; i < n; ++i)
        e.strings.push_back(strings && strings[i] ? strings[i] : L"<null>");
    std::lock_guard<std::mutex> g(current_->lock_);
    current_->events_.push_back(e);
    return TRUE;
}

std::vector<RecordedEvent> EventRecorder::Events() const
{
    std::lock_guard<std::mutex> g(lock_);
    return events_;
}

std::vector<DWORD> EventRecorder::Ids() const
{
    std::lock_guard<std::mutex> g(lock_);
    std::vector<DWORD> ids;
    for (const auto& e : events_)
        ids.push_back(e.id);
    return ids;
}

size_t EventRecorder::Count(DWORD id) const
{
    std::lock_guard<std::mutex> g(lock_);
    size_t n = 0;
    for (const auto& e : events_)
        n += e.id == id;
    return n;
}

void EventRecorder::Clear()
{
    std::lock_guard<std::mutex> g(lock_);
    events_.clear();
}

FakePower* FakePower::current_ = nullptr;

FakePower::FakePower()
    : savedSuspend_(Seams::pfnSetSuspendState), savedShutdown_(Seams::pfnInitiateSystemShutdownEx),
      savedAbort_(Seams::pfnAbortSystemShutdown), savedPrivilege_(Seams::pfnSetShutdownPrivilege)
{
    current_ = this;
    Seams::pfnSetSuspendState = Suspend;
    Seams::pfnInitiateSystemShutdownEx = Shutdown;
    Seams::pfnAbortSystemShutdown = Abort;
    Seams::pfnSetShutdownPrivilege = Privilege;
}

FakePower::~FakePower()
{
    Seams::pfnSetSuspendState = savedSuspend_;
    Seams::pfnInitiateSystemShutdownEx = savedShutdown_;
    Seams::pfnAbortSystemShutdown = savedAbort_;
    Seams::pfnSetShutdownPrivilege = savedPrivilege_;
    current_ = nullptr;
}

BOOLEAN FakePower::Suspend(BOOLEAN hibernate, BOOLEAN, BOOLEAN)
{
    current_->calls.push_back(hibernate ? "suspend:hibernate" : "suspend:sleep");
    if (!(hibernate ? current_->hibernateOk : current_->sleepOk)) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return FALSE;
    }
    return TRUE;
}

BOOL FakePower::Shutdown(LPWSTR machine, LPWSTR message, DWORD timeout, BOOL force, BOOL reboot, DWORD reason)
{
    char buf[96];
    snprintf(buf, sizeof(buf), "shutdown:%s,%s,%lu,%d,%d,%08lX", machine ? "machine" : "local", message ? "msg" : "none",
             (unsigned long)timeout, force, reboot, (unsigned long)reason);
    current_->calls.push_back(buf);
    if (!current_->shutdownOk) {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    return TRUE;
}

BOOL FakePower::Abort(LPWSTR)
{
    current_->calls.push_back("abort");
    return TRUE;
}

int FakePower::Privilege(int enable)
{
    current_->calls.push_back(enable ? "privilege+" : "privilege-");
    return current_->privilegeOk ? 1 : 0;
}

FakeGroups* FakeGroups::current_ = nullptr;

FakeGroups::FakeGroups() : savedDomain_(Seams::pfnGetUserGroups), savedLocal_(Seams::pfnGetUserLocalGroups)
{
    current_ = this;
    Seams::pfnGetUserGroups = Domain;
    Seams::pfnGetUserLocalGroups = Local;
}

FakeGroups::~FakeGroups()
{
    Seams::pfnGetUserGroups = savedDomain_;
    Seams::pfnGetUserLocalGroups = savedLocal_;
    current_ = nullptr;
}

void FakeGroups::Domain(const wchar_t* domain, const wchar_t* user, StrList& groups)
{
    groups.RemoveAll();
    std::wstring key = std::wstring(domain) + L"\\" + user;
    current_->asked.push_back(L"domain:" + key);
    for (const auto& g : current_->domainGroups[key])
        groups.AddTail(g.c_str());
}

void FakeGroups::Local(const wchar_t* name, StrList& groups)
{
    groups.RemoveAll();
    current_->asked.push_back(std::wstring(L"local:") + name);
    for (const auto& g : current_->localGroups[name])
        groups.AddTail(g.c_str());
}

ScopedEngineState::ScopedEngineState()
    : savedActiveUser_(VXThread::dwSessionIdActiveUser), savedQuitAll_(VXThread::bQuitAll)
{
    VXThread::dwSessionIdActiveUser = 0xFFFFFFFF;
    VXThread::bQuitAll = 0;
}

ScopedEngineState::~ScopedEngineState()
{
    VXThread::dwSessionIdActiveUser = savedActiveUser_;
    VXThread::bQuitAll = savedQuitAll_;
}

} // namespace vxtest
