#include "config/StatusPanel.h"

#include "base/ProductInfo.h"
#include "base/Resources.h"
#include "base/StrUtil.h"
#include "engine/ServiceHost.h"
#include "monitor/CpuUsage.h"
#include "monitor/MonitorWnd.h"
#include "storage/RegKey.h"

namespace StatusSeams {
DWORD (*pfnQueryServiceState)() = QueryServiceState;
HWND(WINAPI* pfnFindWindowW)(LPCWSTR, LPCWSTR) = FindWindowW;
unsigned (*pfnGetCpuUsage)() = GetCpuUsage;
DWORD(WINAPI* pfnGetTickCount)() = GetTickCount;
} // namespace StatusSeams

// The string resource that tells the administrator the settings are imposed by policy.
static const int kIdsPolicyManaged = 22;

const wchar_t* const kPolicyManagedText =
    L"Use Group Policy on the server to manage the Vantrel settings on this computer.";

static const wchar_t* const kGPOModeText = L"Managing the GPO:";
static const wchar_t* const kNotRunningFormat = L"The Vantrel service is <red>NOT running</red>. %s";
static const wchar_t* const kStartLinkText = L"<a>Start the service...</a>";
static const wchar_t* const kNotEnabledFormat = L"Vantrel is <red>NOT enabled</red>. %s";
static const wchar_t* const kEnableHintText = L"Check the <b>Enable Vantrel</b> box and press <b>Apply</b>.";
static const wchar_t* const kAttentionText = L"Attention: any active user must log off and then log back on "
                                             L"in order for the new settings to apply to that user.";
static const wchar_t* const kLastLogoffFormat = L"Logged off the user '%s'.";
// The session count comes from the registry: written unsigned, so a huge stored number never
// shows as a negative one.
static const wchar_t* const kMonitoringFormat = L"Monitoring %u user session(s) on this computer. ";
static const wchar_t* const kCpuLoadFormat = L"CPU load: %u%%";
static const wchar_t* const kExcludedText =
    L"Not monitoring the current user because it's excluded in the settings.";

const wchar_t* GetActivityText(int nKind)
{
    switch (nKind) {
    case ActivityMouse: return L"Activity detected: Mouse.";
    case ActivityKeyboard: return L"Activity detected: Keyboard.";
    case ActivityCpu: return L"Activity detected: CPU.";
    case ActivitySession: return L"Activity detected: User session change.";
    default: return nullptr;
    }
}

void FormatIdleText(wchar_t* buf, unsigned cch, DWORD s)
{
    const DWORD m = s / 60, h = m / 60;
    if (h > 0)
        StrFormat(buf, cch, L"No activity for %d hours %d minutes and %d seconds.", (int)h, (int)(m - 60 * h),
                  (int)(s - 60 * m));
    else if (m > 0)
        StrFormat(buf, cch, L"No activity for %d minutes and %d seconds.", (int)m, (int)(s - 60 * m));
    else
        StrFormat(buf, cch, L"No activity for %d seconds.", (int)s);
}

BOOL StatusNeedsKey(const StatusFacts& f)
{
    return !f.bGPOMode && f.dwServiceState == SERVICE_RUNNING && f.bEnable;
}

int NoteActivity(StatusPanelState& st, int nKind, DWORD dwNow)
{
    if (!GetActivityText(nKind))
        return 0;
    st.nPendingActivity = nKind;
    st.dwActivityTime = dwNow;
    st.dwIdleThreshold = kIdleStepSeconds;
    return 1;
}

// Line 2 of a running, enabled service: a pending activity notice first, then the exclusion
// notice, then the idle clock, which is rewritten only each time it passes its threshold so the
// administrator sees it move in 5-second steps. False when the label keeps its text.
static BOOL DecideActivityLine(const StatusFacts& f, StatusPanelState& st, wchar_t* line, unsigned cch)
{
    if (const wchar_t* text = GetActivityText(st.nPendingActivity)) {
        StrCopy(line, cch, text);
        st.nPendingActivity = ActivityNone;
        return TRUE;
    }
    if (!f.bMonitorWindow) {
        StrCopy(line, cch, kExcludedText);
        return TRUE;
    }
    // Unsigned difference: correct across the tick count's wrap; s stays below 4294968, so the
    // threshold (at most s + 5) cannot overflow.
    const DWORD s = (f.dwNow - st.dwActivityTime) / 1000;
    if (s < st.dwIdleThreshold)
        return FALSE;
    FormatIdleText(line, cch, s);
    st.dwIdleThreshold += ((s - st.dwIdleThreshold) / kIdleStepSeconds + 1) * kIdleStepSeconds;
    return TRUE;
}

void DecideStatus(const StatusFacts& f, StatusPanelState& st, StatusLines& out)
{
    out.szLine1[0] = out.szLine2[0] = 0;
    out.bWriteLine1 = out.bWriteLine2 = TRUE;
    out.bDeleteLastLogoff = FALSE;

    if (f.bGPOMode) {
        StrCopy(out.szLine1, kStatusLineChars, kGPOModeText);
        StrFormat(out.szLine2, kStatusLineChars, L"%s", f.pszGPODisplayName ? f.pszGPODisplayName : L"");
        return;
    }

    const wchar_t* policyLine = L"";
    if (f.bPolicyManaged)
        policyLine = StrIsEmpty(f.pszPolicyText) ? kPolicyManagedText : f.pszPolicyText;

    if (f.dwServiceState != SERVICE_RUNNING || !f.bEnable) {
        // A policy-managed computer offers no action: the settings come from the server.
        if (f.dwServiceState != SERVICE_RUNNING)
            StrFormat(out.szLine1, kStatusLineChars, kNotRunningFormat, f.bPolicyManaged ? L"" : kStartLinkText);
        else
            StrFormat(out.szLine1, kStatusLineChars, kNotEnabledFormat, f.bPolicyManaged ? L"" : kEnableHintText);
        for (DWORD& c : st.adwLicence)
            c = 0;
        StrCopy(out.szLine2, kStatusLineChars, policyLine);
        return;
    }

    if (!f.bKeyOpened) {
        out.bWriteLine1 = out.bWriteLine2 = FALSE;
        return;
    }

    if (st.nAttention > 0) {
        --st.nAttention;
        StrCopy(out.szLine1, kStatusLineChars, kAttentionText);
    } else {
        BOOL bLastLogoff = !StrIsEmpty(f.pszLastLogoff);
        if (!bLastLogoff) {
            st.nLastLogoffCount = 0;
        } else if (++st.nLastLogoffCount >= kLastLogoffDeleteAt) {
            // Announced long enough: the value goes, so the next logoff is announced afresh.
            st.nLastLogoffCount = 0;
            out.bDeleteLastLogoff = TRUE;
            bLastLogoff = FALSE;
        }
        if (bLastLogoff) {
            StrFormat(out.szLine1, kStatusLineChars, kLastLogoffFormat, f.pszLastLogoff);
        } else {
            StrFormat(out.szLine1, kStatusLineChars, kMonitoringFormat, f.dwSessionsMonitoring);
            if (f.bCpuBox) {
                wchar_t cpu[32];
                StrFormat(cpu, kCpuLoadFormat, f.nCpuLoad);
                StrAppend(out.szLine1, kStatusLineChars, cpu);
            }
        }
    }
    out.bWriteLine2 = DecideActivityLine(f, st, out.szLine2, kStatusLineChars);
}

// A count the service wrote: a DWORD, or decimal text (as every integer setting may be). Anything
// else, and text too large for a DWORD, reads as 0.
static DWORD ReadCount(HKEY key, const wchar_t* name)
{
    union {
        DWORD dw;
        wchar_t sz[16];
    } v = {};
    DWORD type = 0, cb = sizeof(v) - sizeof(wchar_t);
    if (RegQueryValueExW(key, name, nullptr, &type, reinterpret_cast<BYTE*>(&v), &cb) != ERROR_SUCCESS)
        return 0;
    if (type == REG_DWORD)
        return cb == sizeof(DWORD) ? v.dw : 0;
    if (type != REG_SZ)
        return 0;
    DWORD n = 0;
    const wchar_t* p = v.sz;
    if (*p < L'0' || *p > L'9')
        return 0;
    for (; *p >= L'0' && *p <= L'9'; ++p) {
        const DWORD digit = (DWORD)(*p - L'0');
        if (n > (0xFFFFFFFFu - digit) / 10)
            return 0;
        n = n * 10 + digit;
    }
    return *p ? 0 : n;
}

StatusPanel::StatusPanel()
{
    szGPODisplayName[0] = szLine1[0] = szLine2[0] = 0;
    // The idle clock starts with the panel: the administrator's own session is at least this
    // active, since the utility was just started.
    state.dwActivityTime = StatusSeams::pfnGetTickCount();
}

int StatusPanel::Attach(HWND hDialog)
{
    hDlg = hDialog;
    if (!hDlg)
        return 0;
    const int ok1 = label1.IsBound() || label1.Attach(GetDlgItem(hDlg, kIdStatusLine1));
    const int ok2 = label2.IsBound() || label2.Attach(GetDlgItem(hDlg, kIdStatusLine2));
    return ok1 && ok2;
}

void StatusPanel::SetSettings(BOOL bEnableIn, BOOL bPolicyManagedIn, const wchar_t* pszGPOPath,
                              const wchar_t* pszGPODisplayName)
{
    bEnable = bEnableIn;
    bPolicyManaged = bPolicyManagedIn;
    bGPOMode = !StrIsEmpty(pszGPOPath);
    StrCopy(szGPODisplayName, bGPOMode ? pszGPODisplayName : L"");
}

int StatusPanel::OnActivity(int nKind) { return NoteActivity(state, nKind, StatusSeams::pfnGetTickCount()); }

void StatusPanel::SetAttention(int n)
{
    if (n >= 0)
        state.nAttention = n;
}

BOOL StatusPanel::ReadStatusValues(DWORD& dwSessions, wchar_t* pszLastLogoff, unsigned cch)
{
    pszLastLogoff[0] = 0;
    RegKey key(ProductInfo::GetAppRegKeyName(), RegKey::OpRead);
    if (!key.IsReady())
        return FALSE;
    dwSessions = ReadCount(key.GetKey(), L"SessionsMonitoring");
    // At most kLastLogoffMaxBytes are read; a longer name fails the read and counts as empty.
    DWORD type = 0, cb = kLastLogoffMaxBytes;
    if (cch * sizeof(wchar_t) < kLastLogoffMaxBytes + sizeof(wchar_t))
        return TRUE;
    if (RegQueryValueExW(key.GetKey(), L"LastLogoff", nullptr, &type, reinterpret_cast<BYTE*>(pszLastLogoff), &cb) ==
            ERROR_SUCCESS &&
        (type == REG_SZ || type == REG_EXPAND_SZ))
        pszLastLogoff[cb / sizeof(wchar_t)] = 0;
    else
        pszLastLogoff[0] = 0;
    return TRUE;
}

void StatusPanel::DeleteLastLogoff()
{
    RegKey key(ProductInfo::GetAppRegKeyName(), RegKey::OpDelete);
    if (key.IsReady())
        key.DelValue(L"LastLogoff");
}

void StatusPanel::Show(DMStaticHTML& label, const wchar_t* text)
{
    if (label.IsBound())
        label.SetHTMLText(text);
}

void StatusPanel::Refresh()
{
    StatusFacts f;
    f.bGPOMode = bGPOMode;
    f.pszGPODisplayName = szGPODisplayName;
    f.bPolicyManaged = bPolicyManaged;
    f.bEnable = bEnable;
    wchar_t szPolicy[256];
    if (bPolicyManaged && LoadResString(kIdsPolicyManaged, szPolicy, 256) > 0)
        f.pszPolicyText = szPolicy;
    // A failed query answers 0, which counts as not running.
    if (!bGPOMode)
        f.dwServiceState = StatusSeams::pfnQueryServiceState();

    wchar_t szLastLogoff[kLastLogoffMaxBytes / sizeof(wchar_t) + 1];
    szLastLogoff[0] = 0;
    if (StatusNeedsKey(f)) {
        f.bKeyOpened = ReadStatusValues(f.dwSessionsMonitoring, szLastLogoff, sizeof(szLastLogoff) / sizeof(wchar_t));
        f.pszLastLogoff = szLastLogoff;
        // Sampled on every refresh while the box is ticked, so the load shown covers the last second.
        f.bCpuBox = hDlg && IsDlgButtonChecked(hDlg, kIdMonitorCpuBox) == BST_CHECKED;
        if (f.bCpuBox)
            f.nCpuLoad = StatusSeams::pfnGetCpuUsage();
        f.bMonitorWindow = StatusSeams::pfnFindWindowW(VX_MONITOR_CLASS, nullptr) != nullptr;
        f.dwNow = StatusSeams::pfnGetTickCount();
    }

    StatusLines out;
    DecideStatus(f, state, out);
    if (out.bDeleteLastLogoff)
        DeleteLastLogoff();
    if (out.bWriteLine1) {
        StrCopy(szLine1, out.szLine1);
        Show(label1, szLine1);
    }
    if (out.bWriteLine2) {
        StrCopy(szLine2, out.szLine2);
        Show(label2, szLine2);
    }
}
