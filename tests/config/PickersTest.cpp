// The Group Policy object browser and the user and group picker (the system's, faked through their
// seams, and the plain dialogs that stand in for them), the help and the About box.
#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

#include "base/Module.h"
#include "config/About.h"
#include "config/Help.h"
#include "config/Pickers.h"
#include "resources/resource.h"
#include "support/Guards.h"
#include "support/TestSupport.h"
#include "ui/MsgBox.h"

#include <prsht.h>

#include <gpedit.h>

using namespace vxtest;

namespace {

// While it lives: answers every message box with OK, keeping its text; given a control, types text
// into it in the next dialog of this thread that has it and presses OK, then Cancel should the
// dialog stay open. Timers, so they run inside the modal loops of the code under test.
struct UiDriver {
    static inline std::vector<std::wstring> texts;
    static inline std::wstring text;
    static inline int id, nPressed;
    UINT_PTR timer;
    explicit UiDriver(int control = 0, const std::wstring& typing = L"") : timer(SetTimer(nullptr, 0, 20, Tick))
    {
        texts.clear(), id = control, text = typing, nPressed = 0;
        MsgExSetTimerCallback(20, [](HWND box, unsigned, void*) {
            wchar_t t[2048] = L"";
            GetDlgItemTextW(box, IDC_MSGEX_TEXT, t, 2048);
            texts.push_back(t);
            return (int)IDOK;
        }, nullptr);
    }
    ~UiDriver() { KillTimer(nullptr, timer), MsgExSetTimerCallback(0, nullptr, nullptr); }
    std::wstring Last() const { return texts.empty() ? L"" : texts.back(); }
    static void CALLBACK Tick(HWND, UINT, UINT_PTR, DWORD)
    {
        HWND dlg = nullptr;
        EnumThreadWindows(GetCurrentThreadId(), [](HWND h, LPARAM found) {
            return id && GetDlgItem(h, id) ? (*(HWND*)found = h, FALSE) : TRUE;
        }, (LPARAM)&dlg);
        if (!dlg || MsgExGetOpenBox())
            return;
        if (nPressed++ == 0)
            SetDlgItemTextW(dlg, id, text.c_str());
        SendMessageW(dlg, WM_COMMAND, nPressed > 1 ? IDCANCEL : IDOK, 0);
    }
};

// The system's picker, faked: what it was asked, and an answer of selected objects.
// fetched: the ADsPath attribute, or null; name: the name the list gains, or null.
struct PickedObject { const wchar_t *path, *cls, *fetched, *name; };
struct FakePicker : IDsObjectPicker, IDataObject {
    static inline FakePicker* current;
    HRESULT hrCreate = S_OK, hrInvoke = S_OK;
    bool bShowsWindow = true;
    std::vector<PickedObject> objects;
    std::vector<VARIANT> fetched;
    ULONG options = 0, scopeFlags = ~0u; // scopeFlags: those of every scope
    std::wstring attribute;
    static HRESULT Create(IDsObjectPicker** out) { return *out = SUCCEEDED(current->hrCreate) ? current : nullptr, current->hrCreate; }
    STDMETHODIMP QueryInterface(REFIID, void** out) override { return *out = nullptr, E_NOINTERFACE; }
    STDMETHODIMP_(ULONG) AddRef() override { return 1; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP Initialize(PDSOP_INIT_INFO init) override
    {
        options = init->flOptions, attribute = init->cAttributesToFetch ? init->apwzAttributeNames[0] : L"";
        for (ULONG i = 0; i < init->cDsScopeInfos; ++i)
            scopeFlags &= init->aDsScopeInfos[i].flScope;
        return S_OK;
    }
    STDMETHODIMP InvokeDialog(HWND, IDataObject** out) override
    {
        if (bShowsWindow)
            DestroyWindow(CreateWindowExW(0, L"STATIC", L"", WS_POPUP, 0, 0, 1, 1, nullptr, nullptr, nullptr, nullptr));
        return *out = hrInvoke == S_OK ? this : nullptr, hrInvoke;
    }
    STDMETHODIMP GetData(FORMATETC* fmt, STGMEDIUM* medium) override
    {
        if (fmt->cfFormat != RegisterClipboardFormatW(CFSTR_DSOP_DS_SELECTION_LIST) || !(fmt->tymed & TYMED_HGLOBAL))
            return DV_E_FORMATETC;
        // The block holds exactly the objects; its count says more, which is never believed.
        HGLOBAL block = GlobalAlloc(GMEM_ZEROINIT, offsetof(DS_SELECTION_LIST, aDsSelection) + objects.size() * sizeof(DS_SELECTION));
        auto* list = (DS_SELECTION_LIST*)block;
        list->cItems = (ULONG)objects.size() + 1000, list->cFetchedAttributes = 1;
        fetched.assign(objects.size(), VARIANT{});
        for (size_t i = 0; i < objects.size(); ++i) {
            DS_SELECTION& sel = list->aDsSelection[i];
            sel.pwzADsPath = (PWSTR)objects[i].path, sel.pwzClass = (PWSTR)objects[i].cls;
            fetched[i].vt = objects[i].fetched ? VT_BSTR : VT_EMPTY, fetched[i].bstrVal = (BSTR)objects[i].fetched;
            sel.pvarFetchedAttributes = &fetched[i];
        }
        medium->tymed = TYMED_HGLOBAL, medium->hGlobal = block, medium->pUnkForRelease = nullptr;
        return S_OK;
    }
    STDMETHODIMP GetDataHere(FORMATETC*, STGMEDIUM*) override { return E_NOTIMPL; }
    STDMETHODIMP QueryGetData(FORMATETC*) override { return E_NOTIMPL; }
    STDMETHODIMP GetCanonicalFormatEtc(FORMATETC*, FORMATETC*) override { return E_NOTIMPL; }
    STDMETHODIMP SetData(FORMATETC*, STGMEDIUM*, BOOL) override { return E_NOTIMPL; }
    STDMETHODIMP EnumFormatEtc(DWORD, IEnumFORMATETC**) override { return E_NOTIMPL; }
    STDMETHODIMP DAdvise(FORMATETC*, DWORD, IAdviseSink*, DWORD*) override { return E_NOTIMPL; }
    STDMETHODIMP DUnadvise(DWORD) override { return E_NOTIMPL; }
    STDMETHODIMP EnumDAdvise(IEnumSTATDATA**) override { return E_NOTIMPL; }
};

// The system's Group Policy object browser, faked (absent unless present): what it was asked, and
// its answer (S_FALSE: a success that chose nothing).
struct FakeGpoBrowser {
    static inline bool present;
    static inline HRESULT answer;
    static inline GPOBROWSEINFO asked;
    static PickerSeams::GpoBrowserFn Get() { return present ? Browse : nullptr; }
    static HRESULT WINAPI Browse(tag_GPOBROWSEINFO* info)
    {
        asked = *info;
        if (answer != S_FALSE)
            wcscpy(info->lpDSPath, L"LDAP://cn={1},DC=corp"), wcscpy(info->lpName, L"Default Domain Policy");
        return answer;
    }
};

} // namespace

TEST(GpoBrowser, TheSystemBrowsersChoiceOrElseATypedLdapPathThatFitsIsTakenAndNothingElse)
{
    ScopedResourceModule res(L"VXDA64.DLL");
    ScopedValue<PickerSeams::GpoBrowserFn (*)()> seam(PickerSeams::pfnGetGpoBrowser, FakeGpoBrowser::Get);
    struct Case { const wchar_t* typed; HRESULT hr; int result; const wchar_t *path, *name, *message; } cases[] = {
        {nullptr, S_OK, 1, L"LDAP://cn={1},DC=corp", L"Default Domain Policy", L""}, // typed null: the system's browser
        {nullptr, HRESULT_FROM_WIN32(ERROR_CANCELLED), 0, L"old", L"old", L""},
        {nullptr, S_FALSE, 0, L"old", L"old", L""},
        {nullptr, E_ACCESSDENIED, -1, L"old", L"old", L"Cannot show the Group Policy object browser."},
        {L"\\\\corp\\sysvol", S_OK, 0, L"old", L"old", L"The path of a Group Policy object starts with LDAP://"},
        {L"LDAP://", S_OK, 0, L"old", L"old", L"The path of a Group Policy object starts with LDAP://"},
        {L"LDAP://cn={1},cn=policies,DC=com", S_OK, 0, L"old", L"old", L"The path is too long: it may have at most 31 characters."},
        {L"  ldap://cn={1},cn=policies,DC=co\t", S_OK, 1, L"ldap://cn={1},cn=policies,DC=co", L"", L""}, // 31 characters
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.typed ? c.typed : L"(the system's browser)");
        UiDriver ui(IDC_GPO_PATH_EDIT, c.typed ? c.typed : L"");
        FakeGpoBrowser::present = !c.typed, FakeGpoBrowser::answer = c.hr;
        wchar_t path[32] = L"old", name[32] = L"old";
        EXPECT_EQ(BrowseForGPO(nullptr, path, ARRAYSIZE(path), name, ARRAYSIZE(name)), c.result);
        EXPECT_STREQ(path, c.path);
        EXPECT_STREQ(name, c.name);
        EXPECT_EQ(ui.Last().substr(0, wcslen(c.message)), c.message);
        EXPECT_EQ(ui.texts.size(), *c.message ? 1u : 0u);
    }
    EXPECT_EQ(FakeGpoBrowser::asked.dwFlags, (DWORD)(GPO_BROWSE_NOCOMPUTERS | GPO_BROWSE_OPENBUTTON | GPO_BROWSE_INITTOALL));
    EXPECT_EQ(FakeGpoBrowser::asked.dwDSPathSize, 32u);
    EXPECT_EQ(FakeGpoBrowser::asked.dwNameSize, 32u);
}

TEST(UserPicker, ChosenObjectsBecomeNamesOnceAndAPickerThatCannotShowGivesWayToThePlainDialog)
{
    ScopedResourceModule res(L"VXDA64.DLL");
    wchar_t computer[MAX_COMPUTERNAME_LENGTH + 1];
    DWORD cch = ARRAYSIZE(computer);
    const std::wstring local = GetComputerNameW(computer, &cch) ? L"WinNT://WORKGROUP/" + std::wstring(computer) + L"/frank" : L"";
    const std::wstring longest = L"CORP\\" + std::wstring(250, L'n'), longer = longest + L"n"; // 255, 256 characters
    const std::wstring longestPath = L"WinNT://CORP/" + longest.substr(5), longerPath = longestPath + L"n";
    FakePicker picker;
    FakePicker::current = &picker;
    ScopedValue<HRESULT (*)(IDsObjectPicker**)> seam(PickerSeams::pfnCreateObjectPicker, FakePicker::Create);
    picker.objects = {
        {L"WinNT://CORP/alice", L"user", nullptr, L"CORP\\alice"},
        {L"WinNT://CORP/Domain Admins", L"group", nullptr, L"Domain Admins"},
        {L"winnt://CORP/PC01//bob,user/", L"user", nullptr, L"PC01\\bob"}, // empty components skipped
        {L"", L"user", L"WinNT://CORP/carol", L"CORP\\carol"}, // the path only as the attribute asked for
        {L"LDAP://dc1.corp.example.com/CN=Sales\\, East,OU=Groups,DC=corp,DC=com", L"group", nullptr, L"Sales, East"},
        {L"LDAP://CN=dave, CN=Users, DC=corp,DC=example,DC=com", L"user", nullptr, L"corp\\dave"},
        {L"GC://CN=a\\/b,OU=x", L"group", nullptr, L"a/b"},
        {local.c_str(), L"user", nullptr, L"frank"}, // this computer's own account: its bare name
        {longestPath.c_str(), L"user", nullptr, longest.c_str()},
        {longerPath.c_str(), L"user", nullptr, nullptr}, // too long to be listed
        {L"WinNT://CORP", L"user", nullptr, nullptr},    // a user needs its domain or computer
        {L"LDAP://CN=eve,OU=Users", L"user", nullptr, nullptr},
        {L"WinNT://", L"group", nullptr, nullptr},
        {nullptr, L"group", nullptr, nullptr},
        {L"WinNT://corp/ALICE", L"user", nullptr, nullptr}, // already chosen (ignoring case)
    };
    StrList names;
    names.AddTail(L"Existing");
    std::vector<std::wstring> expected = {L"Existing"};
    for (const PickedObject& o : picker.objects)
        if (o.name)
            expected.push_back(o.name);
    EXPECT_EQ(PickUsersGroups(nullptr, names), 1);
    EXPECT_EQ(Items(names), expected);
    EXPECT_TRUE(picker.options & DSOP_FLAG_MULTISELECT);
    EXPECT_TRUE(picker.scopeFlags & DSOP_SCOPE_FLAG_WANT_PROVIDER_WINNT);
    EXPECT_EQ(picker.attribute, L"ADsPath");

    picker.hrInvoke = S_FALSE; // cancelled in the system's dialog
    EXPECT_EQ(PickUsersGroups(nullptr, names), 0);
    EXPECT_EQ(Items(names), expected);

    // A picker not registered, or one that cannot show its dialog: the plain dialog, which names
    // the first refused line and adds nothing until every line is a name.
    // message: its start. create, invoke, window: what the system's picker does.
    struct Case { std::wstring typed, message; HRESULT create = REGDB_E_CLASSNOTREG, invoke = S_OK; bool window = true; } cases[] = {
        {L"CORP\\alice\r\n\r\nbad:name\r\nx*y", L"Line 3, <T>bad:name</T>:\n\n<T>A name cannot contain"},
        {L"tab\there", L"Line 1, <T>tab\there</T>:\n\n<T>A name cannot contain"},
        {L"ok\nCORP\\a\\b", L"Line 2, <T>CORP\\a\\b</T>:\n\nA name holds at most one backslash"},
        {L"CORP\\ ", L"Line 1, <T>CORP\\</T>:\n\nWrite both the domain and the user"},
        {L"\\alice", L"Line 1, <T>\\alice</T>:\n\nWrite both the domain and the user"},
        {longer, L"Line 1, <T>" + longer.substr(0, 64) + L"...</T>:\n\nA name has at most 255 characters."},
        {L" CORP\\alice \r\n\r\nEXISTING\n" + longest, L""}, // names held already count
        {L"Sales", L"", S_OK, E_NOTIMPL},
        {L"Guests", L"", S_OK, S_FALSE, false}, // Wine's: "cancelled" without a window
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.typed.substr(0, 20));
        picker.hrCreate = c.create, picker.hrInvoke = c.invoke, picker.bShowsWindow = c.window;
        UiDriver ui(IDC_PICK_NAMES_EDIT, c.typed);
        EXPECT_EQ(PickUsersGroups(nullptr, names), c.message.empty() ? 1 : 0);
        EXPECT_EQ(ui.Last().substr(0, c.message.size()), c.message);
        EXPECT_EQ(ui.texts.size(), c.message.empty() ? 0u : 1u);
    }
    expected.insert(expected.end(), {L"Sales", L"Guests"});
    EXPECT_EQ(Items(names), expected);
}

TEST(Help, OpensTheConfigurationPageOfTheBuiltFileBesideTheProgramOrSaysWhatIsWrong)
{
    ScopedResourceModule res(L"VXDA64.DLL");
    static std::wstring opened; // by the system's help viewer
    static int answer;
    ScopedValue<int (*)(HWND, const wchar_t*, const wchar_t*)> seam(HelpSeams::pfnOpenHelpFile,
        [](HWND, const wchar_t* file, const wchar_t* topic) {
            opened = std::wstring(file) + L"::" + topic;
            return answer;
        });
    wchar_t exe[MAX_PATH];
    GetModuleFileNameW(nullptr, exe, MAX_PATH);
    wcscpy(wcsrchr(exe, L'\\') + 1, kHelpFileName);
    const std::wstring file = exe; // the built file beside the program
    ScopedTempDir empty, folder; // folder: one where the help file's name is a folder
    CreateDirectoryW(folder.file(kHelpFileName).c_str(), nullptr);
    struct Case { const wchar_t* folder; int answer, result; std::wstring message; } cases[] = { // message: its start
        {nullptr, 1, 1, L""},
        {nullptr, 0, 0, L"Cannot open the help file <T>" + file + L"</T>."},
        {empty.path().c_str(), 1, 0, L"The help file is missing:\n\n<T>" + empty.file(kHelpFileName) + L"</T>"},
        {folder.path().c_str(), 1, 0, L"The help file is missing:\n\n<T>" + folder.file(kHelpFileName) + L"</T>"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.message);
        UiDriver ui;
        ScopedValue<const wchar_t*> seamFolder(HelpSeams::pszFolder, c.folder);
        opened = L"(not opened)", answer = c.answer;
        EXPECT_EQ(OpenHelp(nullptr), c.result);
        EXPECT_EQ(opened, c.folder ? L"(not opened)" : file + L"::" + kHelpTopicConfig);
        EXPECT_EQ(ui.Last().substr(0, c.message.size()), c.message);
        EXPECT_EQ(ui.texts.size(), c.message.empty() ? 0u : 1u);
    }
    // The file built beside the program holds both pages.
    std::vector<BYTE> chm;
    ASSERT_TRUE(ReadFileBytes(file, &chm)) << "build the vx_help target";
    const std::string bytes(chm.begin(), chm.end());
    EXPECT_EQ(bytes.substr(0, 4), "ITSF");
    for (std::wstring page : {std::wstring(kHelpTopicConfig), std::wstring(L"Welcome.htm")})
        EXPECT_NE(bytes.find("/" + std::string(page.begin(), page.end())), std::string::npos) << page;
}

TEST(About, ShowsTheProductAndTheVersionTheSystemReadsFromTheLibrary)
{
    ScopedResourceModule res(L"VXDA64.DLL");
    DlgAbout dlg;
    ASSERT_TRUE(dlg.Create(nullptr));
    wchar_t version[128] = L"", title[128] = L"", dll[MAX_PATH], expected[64];
    GetDlgItemTextW(dlg.GetHwnd(), IDC_ABOUT_VERSION, version, 128);
    GetDlgItemTextW(dlg.GetHwnd(), IDC_ABOUT_TITLE, title, 128);
    EXPECT_STREQ(title, L"<h>Vantrel</h>");
    // The same numbers as the system's version API reads them from the library.
    const HMODULE api = LoadSystemLibrary(L"version.dll");
    const auto getInfo = GetProcAs<BOOL(WINAPI*)(const wchar_t*, DWORD, DWORD, void*)>(api, "GetFileVersionInfoW");
    const auto query = GetProcAs<BOOL(WINAPI*)(const void*, const wchar_t*, void**, UINT*)>(api, "VerQueryValueW");
    BYTE block[4096];
    VS_FIXEDFILEINFO* fixed = nullptr;
    UINT cb = 0;
    ASSERT_TRUE(GetModuleFileNameW(res.module(), dll, MAX_PATH) && getInfo && getInfo(dll, 0, sizeof(block), block) && query &&
                query(block, L"\\", (void**)&fixed, &cb));
    swprintf(expected, 64, L"Version %u.%u.%u.%u", HIWORD(fixed->dwProductVersionMS), LOWORD(fixed->dwProductVersionMS),
             HIWORD(fixed->dwProductVersionLS), LOWORD(fixed->dwProductVersionLS));
    EXPECT_STREQ(version, expected);
}
