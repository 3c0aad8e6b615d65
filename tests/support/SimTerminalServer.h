// A simulated terminal server for the engine's tests. The test sets the session table and plays
// what users do; each change reaches the sink as the service manager's notification would.
// Install() puts it behind WtsApi32 and the process-start seam, so the unmodified engine sees these
// sessions and its logoffs, message boxes and process starts are recorded instead of done. Two
// locks: one around the table, one around an operation and its notification, so the sink sees
// changes in order and runs without the table lock (the engine's threads keep querying).
#pragma once
#include <functional>
#include <memory>
#include <vector>

#include "base/StrUtil.h"
#include "base/Thread.h"
#include "engine/Seams.h"
#include "engine/WtsApi32.h"
#include "support/SimTerminalCore.h"

class SimTerminalServer {
    // A core function as a Terminal Services entry point of the installed simulator.
    template <auto F> static auto Forward()
    {
        return [](auto... args) {
            CritSecLock lock(installed_->table_);
            return F(*installed_->state_, args...);
        };
    }

public:
    typedef std::function<void(DWORD dwEvent, DWORD dwSession)> Sink;

    SimTerminalServer() { simts::Reset(*state_); }
    ~SimTerminalServer() { Uninstall(); }
    SimTerminalServer(const SimTerminalServer&) = delete;
    SimTerminalServer& operator=(const SimTerminalServer&) = delete;

    void SetSink(Sink sink)
    {
        CritSecLock lock(delivery_);
        sink_ = std::move(sink);
    }
    // f(state) under the table lock.
    template <class F> auto With(F f)
    {
        CritSecLock lock(table_);
        return f(*state_);
    }

    // The table as the service finds it at start, without notifications.
    int AddSession(DWORD id, const wchar_t* user, const wchar_t* domain, WTS_CONNECTSTATE_CLASS state = WTSActive)
    {
        return With([&](simts::SimState& s) { return simts::AddSession(s, id, user, domain, state, 0); });
    }
    int SetState(DWORD id, WTS_CONNECTSTATE_CLASS state)
    {
        return Change(id, [&](simts::SimSession& p) { p.state = state; });
    }
    // Completes the user of a session that was logged on before its name was known.
    int SetUser(DWORD id, const wchar_t* user, const wchar_t* domain)
    {
        return Change(id, [&](simts::SimSession& p) { StrCopy(p.szUser, user), StrCopy(p.szDomain, domain); });
    }

    // What users do, each with its notification; 0 and no notification for a session that does
    // not exist (for Logon: one that already does).
    int Logon(DWORD id, const wchar_t* user, const wchar_t* domain)
    {
        return Operate(WTS_SESSION_LOGON, id, [&] { return AddSession(id, user, domain); });
    }
    int Logoff(DWORD id)
    {
        return Operate(WTS_SESSION_LOGOFF, id, [&] { return With([&](simts::SimState& s) { return simts::RemoveSession(s, id); }); });
    }
    int Lock(DWORD id) { return Operate(WTS_SESSION_LOCK, id, [&] { return Change(id, [](simts::SimSession& p) { p.bLocked = 1; }); }); }
    int Unlock(DWORD id) { return Operate(WTS_SESSION_UNLOCK, id, [&] { return Change(id, [](simts::SimSession& p) { p.bLocked = 0; }); }); }
    // Any notification, as the service manager could send it (e.g. after a logoff the product asked for).
    void Notify(DWORD dwEvent, DWORD id)
    {
        Operate(dwEvent, id, [] { return 1; });
    }

    // Makes nCount calls (or all: simts::kForever) of one kind fail with dwError, for one session
    // or all, for kCallQuery also for one information class only.
    int Fail(simts::SimCall call, DWORD dwError, int nCount = simts::kForever, DWORD session = simts::kAnySession,
             int infoClass = simts::kAnyInfoClass)
    {
        return With([&](simts::SimState& s) { return simts::AddFailRule(s, call, dwError, nCount, session, infoClass); });
    }
    void ClearRecords()
    {
        With([](simts::SimState& s) { s.nLogoffs = s.nMessages = s.nProcesses = 0; });
    }
    std::vector<simts::SimLogoff> Logoffs() { return Copy(&simts::SimState::logoffs, &simts::SimState::nLogoffs); }
    std::vector<simts::SimMessage> Messages() { return Copy(&simts::SimState::messages, &simts::SimState::nMessages); }
    std::vector<simts::SimProcess> Processes() { return Copy(&simts::SimState::processes, &simts::SimState::nProcesses); }

    // Puts the simulator behind WtsApi32::fns and Seams::pfnStartProcessInSession. The
    // process-wide WtsApi32 is loaded first, so the engine's own later Load keeps these pointers.
    int Install()
    {
        if (installed_)
            return 0;
        WtsApi32::Load();
        saved_ = WtsApi32::fns;
        savedStart_ = Seams::pfnStartProcessInSession;
        installed_ = this;
        WtsApi32::fns = {Forward<simts::RegisterSessionNotification>(), Forward<simts::UnRegisterSessionNotification>(),
                         nullptr, Forward<simts::QuerySessionInformation>(), Forward<simts::FreeMemory>(),
                         Forward<simts::LogoffSession>(), Forward<simts::QueryUserToken>(),
                         Forward<simts::EnumerateSessions>(), Forward<simts::SendMessageBox>()};
        Seams::pfnStartProcessInSession = Forward<simts::StartProcessInSession>();
        return 1;
    }
    void Uninstall()
    {
        if (installed_ != this)
            return;
        WtsApi32::fns = saved_;
        Seams::pfnStartProcessInSession = savedStart_;
        installed_ = nullptr;
        WtsApi32::Unload();
    }

private:
    template <class C> int Change(DWORD id, C change)
    {
        return With([&](simts::SimState& s) {
            simts::SimSession* p = simts::FindSession(s, id);
            if (p)
                change(*p);
            else
                SetLastError(simts::kErrNoSession);
            return p ? 1 : 0;
        });
    }
    template <class C> int Operate(DWORD dwEvent, DWORD id, C change)
    {
        CritSecLock lock(delivery_);
        if (!change())
            return 0;
        if (sink_)
            sink_(dwEvent, id);
        return 1;
    }
    template <class R, size_t N> std::vector<R> Copy(R (simts::SimState::*table)[N], DWORD simts::SimState::*count)
    {
        return With([&](simts::SimState& s) { return std::vector<R>(s.*table, s.*table + s.*count); });
    }

    inline static SimTerminalServer* installed_;
    std::unique_ptr<simts::SimState> state_{new simts::SimState};
    CritSec table_, delivery_;
    Sink sink_;
    WtsApi32Fns saved_{};
    int (*savedStart_)(DWORD, const wchar_t*) = nullptr;
};
