#include "config/Pickers.h"

#include <prsht.h>

#include <gpedit.h>

#include <cstddef>
#include <cwchar>

#include "base/Handle.h"
#include "base/Module.h"
#include "base/Resources.h"
#include "base/StrUtil.h"
#include "resources/resource.h"
#include "ui/MsgBox.h"

namespace {

const wchar_t kLdapPrefix[] = L"LDAP://";
const unsigned kLdapPrefixChars = ARRAYSIZE(kLdapPrefix) - 1;
// The longest name a list entry may hold: the settings read a list back only up to the first
// entry longer than 512 bytes with its terminator, so a longer one would cut the list there.
const unsigned kMaxNameChars = 255;
// Characters no user or group name can hold (besides control characters and the backslash,
// which separates the domain from the user).
const wchar_t kBadNameChars[] = L"\"/[]:;|=,+*?<>";
// How much of a refused line its message repeats.
const unsigned kShownLineChars = 64;

// The product's string id as a text argument of the message functions.
const wchar_t* ResText(int id) { return reinterpret_cast<const wchar_t*>((LONG_PTR)-id); }

bool IsBlank(wchar_t c) { return c == L' ' || c == L'\t'; }

// The span [*pBegin, *pBegin + result) of [begin, end) without leading and trailing blanks.
unsigned Trim(const wchar_t* begin, const wchar_t* end, const wchar_t** pBegin)
{
    while (begin < end && IsBlank(*begin))
        ++begin;
    while (end > begin && IsBlank(end[-1]))
        --end;
    *pBegin = begin;
    return (unsigned)(end - begin);
}

// ---- Names of picked objects

struct Span {
    const wchar_t* p = nullptr;
    unsigned n = 0;
};

// Appends span to out (cch characters, *pLen used), dropping the backslash of "\x" when
// bUnescape is set. False when it does not fit with a terminator.
bool AppendSpan(wchar_t* out, unsigned cch, unsigned* pLen, const Span& s, bool bUnescape)
{
    for (unsigned i = 0; i < s.n; ++i) {
        wchar_t c = s.p[i];
        if (bUnescape && c == L'\\' && i + 1 < s.n)
            c = s.p[++i];
        if (*pLen + 1 >= cch)
            return false;
        out[(*pLen)++] = c;
    }
    out[*pLen] = 0;
    return true;
}

// A path of "/"-separated components ("CORP/PC01/alice,user"): the last component without its
// ",class" suffix, and the one before it.
void ReadSlashPath(const wchar_t* p, Span* last, Span* prev)
{
    while (*p) {
        const wchar_t* end = p;
        while (*end && *end != L'/')
            ++end;
        if (end > p) {
            *prev = *last;
            last->p = p;
            last->n = (unsigned)(end - p);
        }
        p = *end ? end + 1 : end;
    }
    for (unsigned i = 0; i < last->n; ++i)
        if (last->p[i] == L',') {
            last->n = i;
            break;
        }
}

// Whether [p, p + n) is the attribute type name (ignoring case and blanks around it).
bool IsAttributeType(const wchar_t* p, unsigned n, const wchar_t* name)
{
    const wchar_t* b;
    const unsigned len = Trim(p, p + n, &b);
    return len == StrLen(name) && StrCompareNoCaseN(b, name, len) == 0;
}

// A distinguished name, optionally after "server/": the value of its first component (the
// object itself) and of its first "DC=" component (the top of its domain). Backslashes escape
// the next character everywhere.
void ReadDistinguishedName(const wchar_t* p, Span* object, Span* domain)
{
    for (const wchar_t* q = p; *q; ++q) {
        if (*q == L'\\' && q[1]) {
            ++q;
            continue;
        }
        if (*q == L'/') {
            p = q + 1; // a server or domain name came first
            break;
        }
    }
    bool first = true;
    while (*p) {
        const wchar_t* end = p;
        const wchar_t* equal = nullptr;
        for (; *end && *end != L','; ++end) {
            if (*end == L'\\' && end[1])
                ++end;
            else if (*end == L'=' && !equal)
                equal = end;
        }
        if (equal) {
            Span value;
            value.n = Trim(equal + 1, end, &value.p);
            if (first)
                *object = value;
            else if (!domain->n && IsAttributeType(p, (unsigned)(equal - p), L"DC"))
                *domain = value;
        }
        first = false;
        p = *end ? end + 1 : end;
    }
}

// ---- The name list

// Adds name to names unless the list holds it already (ignoring case). "<this computer>\user"
// goes in as "user": the service names a local account without its computer.
void AddName(StrList& names, const wchar_t* name)
{
    wchar_t computer[MAX_COMPUTERNAME_LENGTH + 1];
    DWORD n = ARRAYSIZE(computer);
    if (GetComputerNameW(computer, &n) && n > 0 && n < ARRAYSIZE(computer) &&
        StrCompareNoCaseN(name, computer, n) == 0 && name[n] == L'\\' && name[n + 1])
        name += n + 1;
    if (!names.FindStrExactIgnoreCase(name))
        names.AddTail(name);
}

// 0 when [name, name + len) (trimmed, not empty) can be a user or group name; otherwise the
// string id that says why not.
int CheckAccountName(const wchar_t* name, unsigned len)
{
    if (len > kMaxNameChars)
        return IDS_NAME_TOO_LONG;
    unsigned nSlashes = 0, slashAt = 0;
    for (unsigned i = 0; i < len; ++i) {
        const wchar_t c = name[i];
        if (c < 32 || c == 127 || wcschr(kBadNameChars, c))
            return IDS_NAME_BAD_CHARACTER;
        if (c == L'\\') {
            ++nSlashes;
            slashAt = i;
        }
    }
    if (nSlashes > 1)
        return IDS_NAME_BACKSLASHES;
    if (nSlashes == 1 && (slashAt == 0 || slashAt + 1 == len))
        return IDS_NAME_EMPTY_PART;
    return 0;
}

// Calls fn(line number, name, length, offset of the name in text) for every line of text that is
// not blank, with the line trimmed, until fn returns false. Lines end at "\r\n", "\r" or "\n".
template <class Fn> void ForEachNameLine(const wchar_t* text, Fn fn)
{
    unsigned line = 0;
    for (const wchar_t* p = text;;) {
        const wchar_t* eol = p;
        while (*eol && *eol != L'\r' && *eol != L'\n')
            ++eol;
        ++line;
        const wchar_t* b;
        const unsigned len = Trim(p, eol, &b);
        if (len && !fn(line, b, len, (unsigned)(b - text)))
            return;
        if (!*eol)
            return;
        p = eol + (eol[0] == L'\r' && eol[1] == L'\n' ? 2 : 1);
    }
}

// The whole text of a control, in a buffer of its own; Get() is null when memory ran out.
class ItemText {
public:
    explicit ItemText(HWND item) : n(Length(item)), buf((size_t)n + 1)
    {
        if (!buf.p)
            return;
        buf.p[0] = 0;
        if (n)
            GetWindowTextW(item, buf.p, (int)n + 1);
    }
    const wchar_t* Get() const { return buf.p; }

private:
    static unsigned Length(HWND item)
    {
        const int len = item ? GetWindowTextLengthW(item) : 0;
        return len > 0 ? (unsigned)len : 0;
    }
    unsigned n;
    HeapBuf<wchar_t> buf;
};

// ---- The system's picker

template <class T> struct ComTraits : NullEmptyTraits<T*> {
    static void Release(T* p) { p->Release(); }
};
template <class T> using ComPtr = Owner<T*, ComTraits<T>>;

// Counts the windows the calling thread creates while it lives: whether a system dialog really
// showed. Without its hook it cannot tell, and says yes.
class WindowWatch {
public:
    WindowWatch() : hook(SetWindowsHookExW(WH_CBT, Proc, nullptr, GetCurrentThreadId())) { nCreated = 0; }
    ~WindowWatch()
    {
        if (hook)
            UnhookWindowsHookEx(hook);
    }
    WindowWatch(const WindowWatch&) = delete;
    WindowWatch& operator=(const WindowWatch&) = delete;
    bool SawWindow() const { return !hook || nCreated > 0; }

private:
    static LRESULT CALLBACK Proc(int code, WPARAM wp, LPARAM lp)
    {
        if (code == HCBT_CREATEWND)
            ++nCreated;
        return CallNextHookEx(nullptr, code, wp, lp);
    }
    static thread_local unsigned nCreated;
    HHOOK hook;
};
thread_local unsigned WindowWatch::nCreated = 0;

// Adds the objects of the picker's answer; how many were taken.
unsigned ReadSelection(IDataObject* data, StrList& names)
{
    static const CLIPFORMAT cf = (CLIPFORMAT)RegisterClipboardFormatW(CFSTR_DSOP_DS_SELECTION_LIST);
    FORMATETC fmt = {cf, nullptr, DVASPECT_CONTENT, -1, TYMED_HGLOBAL};
    STGMEDIUM medium = {};
    if (!cf || FAILED(data->GetData(&fmt, &medium)))
        return 0;
    unsigned nTaken = 0;
    const SIZE_T cb = medium.tymed == TYMED_HGLOBAL ? GlobalSize(medium.hGlobal) : 0;
    const auto* list = cb ? static_cast<const DS_SELECTION_LIST*>(GlobalLock(medium.hGlobal)) : nullptr;
    const size_t head = offsetof(DS_SELECTION_LIST, aDsSelection);
    if (list && cb >= head) {
        // The count comes with the data: never read past the block, whatever it says.
        const SIZE_T room = (cb - head) / sizeof(DS_SELECTION);
        const ULONG n = list->cItems < room ? list->cItems : (ULONG)room;
        for (ULONG i = 0; i < n; ++i) {
            const DS_SELECTION& sel = list->aDsSelection[i];
            const wchar_t* path = sel.pwzADsPath;
            // The path also comes as the attribute asked for, should the picker leave its own out.
            if (StrIsEmpty(path) && list->cFetchedAttributes >= 1 && sel.pvarFetchedAttributes &&
                sel.pvarFetchedAttributes[0].vt == VT_BSTR)
                path = sel.pvarFetchedAttributes[0].bstrVal;
            wchar_t name[kMaxNameChars + 1];
            if (ProcessSelectedObject(path, StrEqualNoCase(sel.pwzClass, L"group"), name, ARRAYSIZE(name))) {
                AddName(names, name);
                ++nTaken;
            }
        }
    }
    if (list)
        GlobalUnlock(medium.hGlobal);
    ReleaseStgMedium(&medium);
    return nTaken;
}

// Runs the system's picker: 1 when it showed its dialog (*pChosen: how many objects were
// taken), 0 when there is none or it cannot show its dialog.
int RunSystemPicker(HWND owner, StrList& names, unsigned* pChosen)
{
    *pChosen = 0;
    ComPtr<IDsObjectPicker> picker;
    if (!PickerSeams::pfnCreateObjectPicker || FAILED(PickerSeams::pfnCreateObjectPicker(picker.Receive())) ||
        !picker)
        return 0;
    // WinNT paths name the accounts as the service sees them ("CORP/alice"), in every scope.
    const ULONG kScopeFlags =
        DSOP_SCOPE_FLAG_WANT_PROVIDER_WINNT | DSOP_SCOPE_FLAG_DEFAULT_FILTER_USERS | DSOP_SCOPE_FLAG_DEFAULT_FILTER_GROUPS;
    DSOP_SCOPE_INIT_INFO scopes[2] = {};
    for (DSOP_SCOPE_INIT_INFO& s : scopes) {
        s.cbSize = sizeof(s);
        s.flScope = kScopeFlags;
        s.FilterFlags.Uplevel.flBothModes = DSOP_FILTER_USERS | DSOP_FILTER_BUILTIN_GROUPS |
                                            DSOP_FILTER_GLOBAL_GROUPS_SE | DSOP_FILTER_UNIVERSAL_GROUPS_SE |
                                            DSOP_FILTER_DOMAIN_LOCAL_GROUPS_SE;
        s.FilterFlags.flDownlevel =
            DSOP_DOWNLEVEL_FILTER_USERS | DSOP_DOWNLEVEL_FILTER_LOCAL_GROUPS | DSOP_DOWNLEVEL_FILTER_GLOBAL_GROUPS;
    }
    // The computer's own domain first, where most accounts live; then this computer, the forest
    // and the trusted domains.
    scopes[0].flType = DSOP_SCOPE_TYPE_UPLEVEL_JOINED_DOMAIN | DSOP_SCOPE_TYPE_DOWNLEVEL_JOINED_DOMAIN;
    scopes[0].flScope |= DSOP_SCOPE_FLAG_STARTING_SCOPE;
    scopes[1].flType = DSOP_SCOPE_TYPE_TARGET_COMPUTER | DSOP_SCOPE_TYPE_ENTERPRISE_DOMAIN |
                       DSOP_SCOPE_TYPE_GLOBAL_CATALOG | DSOP_SCOPE_TYPE_EXTERNAL_UPLEVEL_DOMAIN |
                       DSOP_SCOPE_TYPE_EXTERNAL_DOWNLEVEL_DOMAIN;
    PCWSTR attributes[] = {L"ADsPath"};
    DSOP_INIT_INFO init = {};
    init.cbSize = sizeof(init);
    init.cDsScopeInfos = ARRAYSIZE(scopes);
    init.aDsScopeInfos = scopes;
    init.flOptions = DSOP_FLAG_MULTISELECT;
    init.cAttributesToFetch = ARRAYSIZE(attributes);
    init.apwzAttributeNames = attributes;
    if (FAILED(picker.Get()->Initialize(&init)))
        return 0;
    ComPtr<IDataObject> data;
    HRESULT hr;
    bool bShown;
    {
        const WindowWatch watch;
        hr = picker.Get()->InvokeDialog(owner, data.Receive());
        bShown = watch.SawWindow();
    }
    // A picker that cannot show its dialog is as good as none: one that fails, and one that says
    // "cancelled" without ever having shown a window (Wine's does).
    if (hr == S_FALSE)
        return bShown ? 1 : 0;
    if (FAILED(hr) || !data)
        return 0;
    *pChosen = ReadSelection(data.Get(), names);
    return 1;
}

// ---- The shipped connections to the system

PickerSeams::GpoBrowserFn GetSystemGpoBrowser()
{
    // Loaded once and kept for the process: the browser may be asked for again at any time.
    static const HMODULE module = LoadSystemLibrary(L"gpedit.dll");
    return GetProcAs<PickerSeams::GpoBrowserFn>(module, "BrowseForGPO");
}

HRESULT CreateSystemObjectPicker(IDsObjectPicker** out)
{
    return CoCreateInstance(CLSID_DsObjectPicker, nullptr, CLSCTX_INPROC_SERVER, IID_IDsObjectPicker,
                            reinterpret_cast<void**>(out));
}

} // namespace

namespace PickerSeams {
GpoBrowserFn (*pfnGetGpoBrowser)() = GetSystemGpoBrowser;
HRESULT (*pfnCreateObjectPicker)(IDsObjectPicker** out) = CreateSystemObjectPicker;
} // namespace PickerSeams

int ProcessSelectedObject(const wchar_t* adsPath, bool bGroup, wchar_t* out, unsigned cch)
{
    if (!out || cch == 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    out[0] = 0;
    if (!adsPath)
        return 0;
    const wchar_t* p = adsPath;
    bool bDistinguished = false;
    if (const wchar_t* sep = wcsstr(adsPath, L"://")) {
        const unsigned n = (unsigned)(sep - adsPath);
        bDistinguished = (n == 4 && StrCompareNoCaseN(adsPath, L"LDAP", 4) == 0) ||
                         (n == 2 && StrCompareNoCaseN(adsPath, L"GC", 2) == 0);
        p = sep + 3;
    }
    // The object and what holds it: its container (a domain or computer), or its domain.
    Span object, holder;
    if (bDistinguished)
        ReadDistinguishedName(p, &object, &holder);
    else
        ReadSlashPath(p, &object, &holder);
    if (object.n == 0 || (!bGroup && holder.n == 0))
        return 0;
    unsigned len = 0;
    bool bFits = true;
    if (!bGroup)
        bFits = AppendSpan(out, cch, &len, holder, bDistinguished) && AppendSpan(out, cch, &len, {L"\\", 1}, false);
    bFits = bFits && AppendSpan(out, cch, &len, object, bDistinguished);
    if (!bFits) {
        out[0] = 0;
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    return 1;
}

DlgGpoPath::DlgGpoPath(wchar_t* path, unsigned cchPath) : DMDlg(IDD_GPO_PATH), pszPath(path), cchPath(cchPath) {}

BOOL DlgGpoPath::OnInit()
{
    // A path pasted in whole: one too long for the caller is refused with a message at OK, never
    // cut short without a word.
    SendDlgItemMessageW(hWnd, IDC_GPO_PATH_EDIT, EM_LIMITTEXT, 0x7FFFFFFE, 0);
    return DMDlg::OnInit();
}

int DlgGpoPath::DlgToOpts()
{
    HWND edit = GetItem(IDC_GPO_PATH_EDIT);
    const ItemText text(edit);
    if (!text.Get())
        return 0; // out of memory: the dialog stays open
    const wchar_t* b;
    const unsigned len = Trim(text.Get(), text.Get() + StrLen(text.Get()), &b);
    int result = 0;
    if (len <= kLdapPrefixChars || StrCompareNoCaseN(b, kLdapPrefix, kLdapPrefixChars) != 0)
        Msg(hWnd, MB_OK | MB_ICONERROR, ResText(IDS_GPO_PATH_NOT_LDAP));
    else if (len >= cchPath)
        MsgFmt(hWnd, MB_OK | MB_ICONERROR, ResText(IDS_GPO_PATH_TOO_LONG), cchPath - 1);
    else {
        StrCopyN(pszPath, cchPath, b, len);
        result = 1;
    }
    if (!result) {
        SendMessageW(hWnd, WM_NEXTDLGCTL, (WPARAM)edit, TRUE);
        SendMessageW(edit, EM_SETSEL, 0, -1);
    }
    return result;
}

DlgPickNames::DlgPickNames(StrList& names) : DMDlg(IDD_PICK_NAMES), names(names) {}

BOOL DlgPickNames::OnInit()
{
    SendDlgItemMessageW(hWnd, IDC_PICK_NAMES_EDIT, EM_LIMITTEXT, 0x7FFFFFFE, 0);
    return DMDlg::OnInit();
}

int DlgPickNames::DlgToOpts()
{
    HWND edit = GetItem(IDC_PICK_NAMES_EDIT);
    const ItemText text(edit);
    if (!text.Get())
        return 0; // out of memory: the dialog stays open
    // Every line is checked before any is added, so a refused line leaves the list as it was.
    bool bRefused = false;
    ForEachNameLine(text.Get(), [&](unsigned line, const wchar_t* name, unsigned len, unsigned offset) {
        const int why = CheckAccountName(name, len);
        if (!why)
            return true;
        wchar_t shown[kShownLineChars + 4], reason[256];
        StrCopyN(shown, ARRAYSIZE(shown), name, len < kShownLineChars ? len : kShownLineChars);
        if (len > kShownLineChars)
            StrAppend(shown, L"...");
        LoadResString(why, reason, ARRAYSIZE(reason));
        MsgFmt(hWnd, MB_OK | MB_ICONERROR, ResText(IDS_NAME_REFUSED), line, shown, reason);
        SendMessageW(hWnd, WM_NEXTDLGCTL, (WPARAM)edit, TRUE);
        SendMessageW(edit, EM_SETSEL, offset, offset + len);
        SendMessageW(edit, EM_SCROLLCARET, 0, 0);
        bRefused = true;
        return false;
    });
    if (!bRefused) {
        nChosen = 0;
        ForEachNameLine(text.Get(), [&](unsigned, const wchar_t* name, unsigned len, unsigned) {
            wchar_t one[kMaxNameChars + 1];
            StrCopyN(one, ARRAYSIZE(one), name, len);
            AddName(names, one);
            ++nChosen;
            return true;
        });
    }
    return bRefused ? 0 : 1;
}

int BrowseForGPO(HWND owner, wchar_t* path, unsigned cchPath, wchar_t* name, unsigned cchName)
{
    if (!path || cchPath == 0 || (!name && cchName)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return -1;
    }
    const PickerSeams::GpoBrowserFn browse = PickerSeams::pfnGetGpoBrowser ? PickerSeams::pfnGetGpoBrowser() : nullptr;
    if (!browse) {
        DlgGpoPath dlg(path, cchPath);
        const INT_PTR r = dlg.DoModal(owner);
        if (r == IDOK) {
            if (cchName)
                name[0] = 0; // the plain dialog knows no display name
            return 1;
        }
        if (r == -1) {
            MsgLastError(owner, MB_OK | MB_ICONERROR, -IDS_GPO_BROWSER_FAILED);
            return -1;
        }
        return 0;
    }
    // The browser writes into buffers of its own, so the caller's change only with a choice.
    HeapBuf<wchar_t> dsPath(cchPath), displayName(cchName);
    if (!dsPath.p || !displayName.p) {
        SetLastError(ERROR_OUTOFMEMORY);
        MsgLastError(owner, MB_OK | MB_ICONERROR, -IDS_GPO_BROWSER_FAILED);
        return -1;
    }
    dsPath.p[0] = 0;
    displayName.p[0] = 0;
    GPOBROWSEINFO info = {};
    info.dwSize = sizeof(info);
    info.dwFlags = GPO_BROWSE_NOCOMPUTERS | GPO_BROWSE_OPENBUTTON | GPO_BROWSE_INITTOALL;
    info.hwndOwner = owner;
    info.lpDSPath = dsPath.p;
    info.dwDSPathSize = cchPath;
    info.lpName = cchName ? displayName.p : nullptr;
    info.dwNameSize = cchName;
    const HRESULT hr = browse(&info);
    if (hr == HRESULT_FROM_WIN32(ERROR_CANCELLED))
        return 0;
    if (FAILED(hr)) {
        MsgHRESULT(owner, hr, MB_OK | MB_ICONERROR, -IDS_GPO_BROWSER_FAILED);
        return -1;
    }
    dsPath.p[cchPath - 1] = 0;
    if (!dsPath.p[0])
        return 0; // nothing chosen after all
    StrCopy(path, cchPath, dsPath.p);
    if (cchName) {
        displayName.p[cchName - 1] = 0;
        StrCopy(name, cchName, displayName.p);
    }
    return 1;
}

int PickUsersGroups(HWND owner, StrList& names)
{
    unsigned nChosen = 0;
    if (!RunSystemPicker(owner, names, &nChosen)) {
        DlgPickNames dlg(names);
        if (dlg.DoModal(owner) != IDOK)
            return 0;
        nChosen = dlg.GetChosenCount();
    }
    return nChosen ? 1 : 0;
}
