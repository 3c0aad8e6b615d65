#include "settings/MyOpts.h"

#include <powrprof.h>

#include "base/Resources.h"
#include "base/StrUtil.h"
#include "resources/resource.h"

const wchar_t* MyOpts::pszNotConfigured = L"NotConfigured";
const wchar_t* MyOpts::pszEnable = L"Enable";
const wchar_t* MyOpts::pszIdleTimeout = L"Timeout";
const wchar_t* MyOpts::pszMsgTimeout = L"MessageTimeout";
const wchar_t* MyOpts::pszLogoffStale = L"LogoffStale";
const wchar_t* MyOpts::pszLogoffStaleCount = L"LogoffStaleCount";
const wchar_t* MyOpts::pszKeepLastActiveUser = L"KeepLastActiveUser";
const wchar_t* MyOpts::pszFullScreen = L"FullScreen";
const wchar_t* MyOpts::pszMonitorKB = L"MonitorKB";
const wchar_t* MyOpts::pszMonitorMouse = L"MonitorMouse";
const wchar_t* MyOpts::pszMonitorCPU = L"MonitorCPU";
const wchar_t* MyOpts::pszPercentCPU = L"PercentCPU";
const wchar_t* MyOpts::pszMsgText = L"MessageText";
const wchar_t* MyOpts::pszMsgTextLocked = L"MessageTextIfLocked";
const wchar_t* MyOpts::pszUseSchedule = L"UseSchedule";
const wchar_t* MyOpts::pszSchedule = L"Schedule";
const wchar_t* MyOpts::pszInclude = L"ApplyTo";
const wchar_t* MyOpts::pszExclude = L"Exclude";
const wchar_t* MyOpts::pszShutdown = L"Shutdown";
const wchar_t* MyOpts::pszShutdownTimeout = L"ShutdownTimeout";
const wchar_t* MyOpts::pszShutdownAction = L"ShutdownAction";
const wchar_t* MyOpts::pszLicName = L"License_Name";
const wchar_t* MyOpts::pszLicLimit = L"License_Limit";
const wchar_t* MyOpts::pszLicKey = L"License_Key";
const wchar_t* MyOpts::pszLicHideKey = L"HideLicenseKey";
wchar_t MyOpts::szGPOStoragePath[260];

MyOpts::LookupWellKnownNameFn MyOpts::pfnLookupWellKnownName = MyOpts::LookupWellKnownName;
MyOpts::GetPwrCapabilitiesFn MyOpts::pfnGetPwrCapabilities = ::GetPwrCapabilities;

MyOpts::MyOpts()
    : BoolOpts(L"Options"), bReadTemp(0), bKeepLists(0), hrGPO(0), bPolicyInEffect(0), nPolicyState(0), bEnable(0),
      nTimeout(0), nMsgTimeout(0), bLogoffStale(0), nLogoffStaleCount(0), bKeepLastActiveUser(0), bFullScreen(0),
      bMonitorKB(0), bMonitorMouse(0), bMonitorCPU(0), nPercentCPU(0), bUseSchedule(0), listInclude(nullptr),
      listExclude(nullptr), bShutdown(0), nShutdownTimeout(0), nShutdownAction(0)
{
    szGPOPath[0] = 0;
    szGPODisplayName[0] = 0;
    szMsgText[0] = 0;
    szMsgTextLocked[0] = 0;
}

MyOpts::~MyOpts() {}

int MyOpts::LookupWellKnownName(WELL_KNOWN_SID_TYPE type, wchar_t* name, unsigned cch)
{
    if (!name || cch == 0)
        return 0;
    name[0] = 0;
    BYTE sid[SECURITY_MAX_SID_SIZE];
    DWORD cbSid = sizeof(sid);
    if (!CreateWellKnownSid(type, nullptr, sid, &cbSid))
        return 0;
    // The account name comes back in the installed system's language; the domain part
    // ("BUILTIN") is looked up but not kept.
    wchar_t domain[256];
    DWORD cchName = cch, cchDomain = 256;
    SID_NAME_USE use;
    if (!LookupAccountSidW(nullptr, sid, name, &cchName, domain, &cchDomain, &use)) {
        name[0] = 0;
        return 0;
    }
    return name[0] != 0;
}

void MyOpts::AddDefaultGroups()
{
    static const WELL_KNOWN_SID_TYPE include[] = {WinBuiltinUsersSid, WinBuiltinGuestsSid, WinBuiltinRemoteDesktopUsersSid};
    wchar_t name[256];
    for (WELL_KNOWN_SID_TYPE type : include)
        if (pfnLookupWellKnownName && pfnLookupWellKnownName(type, name, 256) && name[0])
            listInclude.AddTail(name);
    if (pfnLookupWellKnownName && pfnLookupWellKnownName(WinBuiltinAdministratorsSid, name, 256) && name[0])
        listExclude.AddTail(name);
}

void MyOpts::Reset()
{
    BoolOpts::Reset();
    nPolicyState = 0;
    bEnable = 0;
    nTimeout = 10;
    nMsgTimeout = 5;
    bLogoffStale = 0;
    nLogoffStaleCount = 5;
    bKeepLastActiveUser = 0;
    bFullScreen = 0;
    bMonitorKB = 1;
    bMonitorMouse = 1;
    bMonitorCPU = 0;
    nPercentCPU = 25;
    szMsgText[0] = 0;
    szMsgTextLocked[0] = 0;
    bUseSchedule = 0;
    schedule.Free();
    listInclude.RemoveAll();
    listExclude.RemoveAll();
    AddDefaultGroups();
    bShutdown = 0;
    nShutdownTimeout = 10;
    nShutdownAction = 1;
}

void MyOpts::CopyFrom(BoolOpts* other)
{
    if (!other)
        return;
    opts.SetAll(other->GetAll());
    MyOpts* o = dynamic_cast<MyOpts*>(other);
    if (!o || o == this)
        return;
    nPolicyState = o->nPolicyState;
    bEnable = o->bEnable;
    nTimeout = o->nTimeout;
    nMsgTimeout = o->nMsgTimeout;
    bLogoffStale = o->bLogoffStale;
    nLogoffStaleCount = o->nLogoffStaleCount;
    bKeepLastActiveUser = o->bKeepLastActiveUser;
    bFullScreen = o->bFullScreen;
    bMonitorKB = o->bMonitorKB;
    bMonitorMouse = o->bMonitorMouse;
    bMonitorCPU = o->bMonitorCPU;
    nPercentCPU = o->nPercentCPU;
    bShutdown = o->bShutdown;
    nShutdownTimeout = o->nShutdownTimeout;
    nShutdownAction = o->nShutdownAction;
    bUseSchedule = o->bUseSchedule;
    schedule.Set(o->schedule.Get()); // an absent schedule arrives as "*", which stores none
    StrCopy(szMsgText, o->szMsgText);
    StrCopy(szMsgTextLocked, o->szMsgTextLocked);
    listInclude.CopyFrom(o->listInclude);
    listExclude.CopyFrom(o->listExclude);
}

void MyOpts::CopyGPOFrom(MyOpts* other)
{
    if (!other)
        return;
    StrCopy(szGPOPath, other->szGPOPath);
    StrCopy(szGPODisplayName, other->szGPODisplayName);
    bPolicyInEffect = other->bPolicyInEffect;
}

int MyOpts::IsDifferent(BoolOpts* other)
{
    if (!other)
        return 1;
    if (opts.GetAll() != other->GetAll())
        return 1;
    MyOpts* o = dynamic_cast<MyOpts*>(other);
    if (!o)
        return 1;
    if (nPolicyState != o->nPolicyState || bEnable != o->bEnable || nTimeout != o->nTimeout ||
        nMsgTimeout != o->nMsgTimeout || bKeepLastActiveUser != o->bKeepLastActiveUser ||
        bLogoffStale != o->bLogoffStale || nLogoffStaleCount != o->nLogoffStaleCount || bFullScreen != o->bFullScreen ||
        bMonitorKB != o->bMonitorKB || bMonitorMouse != o->bMonitorMouse || bMonitorCPU != o->bMonitorCPU ||
        nPercentCPU != o->nPercentCPU || bShutdown != o->bShutdown || nShutdownTimeout != o->nShutdownTimeout ||
        nShutdownAction != o->nShutdownAction || bUseSchedule != o->bUseSchedule)
        return 1;
    // The schedule's words are matched without regard to case, so its text compares that way too;
    // the messages are shown to users as they are written.
    if (!StrEqualNoCase(schedule.Get(), o->schedule.Get()))
        return 1;
    if (!StrEqual(szMsgText, o->szMsgText) || !StrEqual(szMsgTextLocked, o->szMsgTextLocked))
        return 1;
    if (listInclude.IsDifferent(o->listInclude) || listExclude.IsDifferent(o->listExclude))
        return 1;
    return 0;
}

void MyOpts::FormatUserMsg(wchar_t* out, unsigned cchOut, int bLocked, unsigned a, unsigned b)
{
    if (!out || cchOut == 0)
        return;
    wchar_t builtIn[1024];
    const wchar_t* text = bLocked ? szMsgTextLocked : szMsgText;
    if (!text[0]) {
        LoadResString(bLocked ? IDS_WARNING_TEXT_LOCKED : IDS_WARNING_TEXT, builtIn, 1024);
        text = builtIn;
    }
    wchar_t time[24];
    StrFormat(time, L"%u:%02u", a, b);
    StrExpandNumber(out, cchOut, text, time);
}

int MyOpts::CanDoShutdownAction(int action)
{
    if (action == 3)
        return 1;
    if (action != 1 && action != 2)
        return 0;
    SYSTEM_POWER_CAPABILITIES caps{};
    if (!pfnGetPwrCapabilities || !pfnGetPwrCapabilities(&caps))
        return 0;
    if (action == 1)
        return caps.SystemS1 || caps.SystemS2 || caps.SystemS3;
    return caps.HiberFilePresent ? 1 : 0;
}

const wchar_t* MyOpts::GetShutdownActionText(int action)
{
    switch (action) {
    case 1:
        return L"Sleep";
    case 2:
        return L"Hibernate";
    case 3:
        return L"Shutdown";
    default:
        return L"";
    }
}
