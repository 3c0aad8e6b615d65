// The Group Policy object browser, the user and group picker (the system's, faked through their
// seams, and the plain dialogs that stand in for them), the About box and the help.
#include <gtest/gtest.h>

#include <cstddef>
#include <regex>
#include <string>
#include <vector>

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

// Answers every message box with OK while it lives; the boxes' texts, "(none)" before any.
struct MessageRecorder {
    static inline std::vector<std::wstring> texts;
    MessageRecorder()
    {
        texts.clear();
        MsgExSetTimerCallback(20, [](HWND box, unsigned, void*) {
            wchar_t t[2048] = L"";
            GetDlgItemTextW(box, IDC_MSGEX_TEXT, t, 2048);
            texts.push_back(t);
            return (int)IDOK;
        }, nullptr);
    }
    ~MessageRecorder() { MsgExSetTimerCallback(0, nullptr, nullptr); }
    std::wstring Last() const { return texts.empty() ? L"(none)" : texts.back(); }
};

// Types text into control id of the next dialog of this thread that has one, and presses OK: a
// thread timer, so it runs inside the modal loop of the dialog the code under test opens.
struct ModalDriver {
    static inline int id;
    static inline std::wstring text;
    ModalDriver(int control, const wchar_t* typed)
    {
        id = control, text = typed;
        timer = SetTimer(nullptr, 0, 20, Tick);
    }
    ~ModalDriver() { KillTimer(nullptr, timer); } // a dialog that never came
    UINT_PTR timer;
    static void CALLBACK Tick(HWND, UINT, UINT_PTR timer, DWORD)
    {
        HWND dlg = nullptr;
        EnumThreadWindows(GetCurrentThreadId(), [](HWND h, LPARAM found) {
            return GetDlgItem(h, id) ? (*(HWND*)found = h, FALSE) : TRUE;
        }, (LPARAM)&dlg);
        if (!dlg || MsgExGetOpenBox())
            return;
        KillTimer(nullptr, timer);
        SetDlgItemTextW(dlg, id, text.c_str());
        SendMessageW(dlg, WM_COMMAND, IDOK, 0);
    }
};

std::wstring ExeFolder()
{
    wchar_t exe[MAX_PATH];
    GetModuleFileNameW(nullptr, exe, MAX_PATH);
    return std::wstring(exe, wcsrchr(exe, L'\\') + 1);
}

// ---- The system's picker, faked: what it was asked, and an answer of selected objects.
struct PickedObject {
    const wchar_t *path, *cls, *fetched; // fetched: the ADsPath attribute, or null
};

// Both the picker and the data object of its answer.
struct FakePicker : IDsObjectPicker, IDataObject {
    static inline FakePicker* current;
    HRESULT hrCreate = S_OK, hrInvoke = S_OK;
    bool bShowsWindow = true;
    std::vector<PickedObject> objects;
    std::vector<VARIANT> fetched;
    ULONG options = 0, scopeFlags = 0;
    std::wstring attribute;
    static HRESULT Create(IDsObjectPicker** out)
    {
        *out = SUCCEEDED(current->hrCreate) ? current : nullptr;
        return current->hrCreate;
    }
    STDMETHODIMP QueryInterface(REFIID, void** out) override { return *out = nullptr, E_NOINTERFACE; }
    STDMETHODIMP_(ULONG) AddRef() override { return 1; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP Initialize(PDSOP_INIT_INFO init) override
    {
        options = init->flOptions;
        for (ULONG i = 0; i < init->cDsScopeInfos; ++i)
            scopeFlags |= init->aDsScopeInfos[i].flScope;
        attribute = init->cAttributesToFetch ? init->apwzAttributeNames[0] : L"";
        return S_OK;
    }
    STDMETHODIMP InvokeDialog(HWND, IDataObject** out) override
    {
        if (bShowsWindow)
            DestroyWindow(CreateWindowExW(0, L"STATIC", L"", WS_POPUP, 0, 0, 1, 1, nullptr, nullptr, nullptr, nullptr));
        *out = hrInvoke == S_OK ? this : nullptr;
        return hrInvoke;
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

// The system's Group Policy object browser, faked: what it was asked, and its answer.
struct FakeGpoBrowser {
    static inline HRESULT answer;
    static inline GPOBROWSEINFO asked;
    static HRESULT WINAPI Browse(tag_GPOBROWSEINFO* info)
    {
        asked = *info;
        wcscpy(info->lpDSPath, L"LDAP://cn={1},cn=policies,DC=corp");
        wcscpy(info->lpName, L"Default Domain Policy");
        return answer;
    }
};

} // namespace

TEST(PickedObjectName, UsersTakeTheirContainerGroupsOnlyTheirNameAndWhatDoesNotFitIsRefused)
{
    struct Case { const wchar_t* path; bool group; unsigned cch; int ok; const wchar_t* name; } cases[] = {
        {L"WinNT://CORP/alice", false, 260, 1, L"CORP\\alice"},
        {L"WinNT://CORP/alice", true, 260, 1, L"alice"},
        {L"WinNT://CORP/PC01/bob,user", false, 260, 1, L"PC01\\bob"},
        {L"winnt://CORP//Domain Admins/", true, 260, 1, L"Domain Admins"},
        {L"LDAP://dc1.corp.example.com/CN=Sales\\, East,OU=Groups,DC=corp,DC=example,DC=com", true, 260, 1, L"Sales, East"},
        {L"LDAP://CN=alice, CN=Users, DC=corp,DC=example,DC=com", false, 260, 1, L"corp\\alice"},
        {L"GC://CN=a\\/b,OU=x", true, 260, 1, L"a/b"},
        {L"WinNT://alice", false, 260, 0, L""},       // a user needs its domain or computer
        {L"WinNT://", true, 260, 0, L""},
        {L"LDAP://CN=alice,OU=Users", false, 260, 0, L""}, // no domain component
        {nullptr, true, 260, 0, L""},
        {L"WinNT://CORP/alice", false, 11, 1, L"CORP\\alice"},
        {L"WinNT://CORP/alice", false, 10, 0, L""},   // one character short of the terminator
        {L"WinNT://CORP/alice", true, 5, 0, L""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path ? c.path : L"(null)");
        wchar_t out[16 + 260];
        wmemset(out, 0xbdbd, ARRAYSIZE(out));
        EXPECT_EQ(ProcessSelectedObject(c.path, c.group, out, c.cch), c.ok);
        EXPECT_STREQ(out, c.name);
        EXPECT_EQ(out[c.cch], 0xbdbd) << "nothing written past the buffer";
    }
}

TEST(GpoBrowser, TheSystemBrowserIsAskedForADomainObjectAndItsAnswerCopiedOnlyWhenChosen)
{
    ScopedResourceModule res(L"VXDA64.DLL");
    ScopedValue<PickerSeams::GpoBrowserFn (*)()> seam(PickerSeams::pfnGetGpoBrowser, [] {
        return FakeGpoBrowser::Browse;
    });
    struct Case { HRESULT hr; int result; const wchar_t* path; const wchar_t* name; bool message; } cases[] = {
        {S_OK, 1, L"LDAP://cn={1},cn=policies,DC=corp", L"Default Domain Policy", false},
        {HRESULT_FROM_WIN32(ERROR_CANCELLED), 0, L"old", L"old", false},
        {E_ACCESSDENIED, -1, L"old", L"old", true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.result);
        MessageRecorder boxes;
        FakeGpoBrowser::answer = c.hr;
        wchar_t path[260] = L"old", name[260] = L"old";
        EXPECT_EQ(BrowseForGPO(nullptr, path, 260, name, 260), c.result);
        EXPECT_STREQ(path, c.path);
        EXPECT_STREQ(name, c.name);
        EXPECT_EQ(boxes.texts.size(), c.message ? 1u : 0u);
        const GPOBROWSEINFO& asked = FakeGpoBrowser::asked;
        EXPECT_EQ(asked.dwFlags, (DWORD)(GPO_BROWSE_NOCOMPUTERS | GPO_BROWSE_OPENBUTTON | GPO_BROWSE_INITTOALL));
        EXPECT_EQ(asked.dwDSPathSize, 260u);
        EXPECT_EQ(asked.dwNameSize, 260u);
    }
}

TEST(GpoBrowser, WithoutTheSystemBrowserThePlainDialogTakesATypedLdapPathThatFits)
{
    ScopedResourceModule res(L"VXDA64.DLL");
    struct Case { const wchar_t *typed, *message; } cases[] = {
        {L"\\\\corp\\sysvol", L"starts with LDAP://"},
        {L"LDAP://", L"starts with LDAP://"},
        {L"LDAP://cn={1},cn=policies,DC=com", L"at most 31 characters"}, // 32: no room for the terminator
        {L"  ldap://cn={1},cn=policies,DC=co\t", nullptr},
    };
    wchar_t path[32] = L"old";
    for (const Case& c : cases) {
        SCOPED_TRACE(c.typed);
        MessageRecorder boxes;
        DlgGpoPath dlg(path, ARRAYSIZE(path));
        ASSERT_TRUE(dlg.Create(nullptr));
        SetDlgItemTextW(dlg.GetHwnd(), IDC_GPO_PATH_EDIT, c.typed);
        SendMessageW(dlg.GetHwnd(), WM_COMMAND, IDOK, 0);
        EXPECT_EQ(dlg.IsBound(), c.message != nullptr) << "a refused path keeps the dialog open";
        if (c.message) {
            EXPECT_NE(boxes.Last().find(c.message), std::wstring::npos) << boxes.Last();
        }
        EXPECT_STREQ(path, c.message ? L"old" : L"ldap://cn={1},cn=policies,DC=co");
    }
    // Where the system has no browser, BrowseForGPO opens that dialog; it knows no display name.
    ScopedValue<PickerSeams::GpoBrowserFn (*)()> seam(PickerSeams::pfnGetGpoBrowser, [] {
        return (PickerSeams::GpoBrowserFn) nullptr;
    });
    ModalDriver typing(IDC_GPO_PATH_EDIT, L"LDAP://cn=typed");
    wchar_t name[260] = L"old";
    EXPECT_EQ(BrowseForGPO(nullptr, path, ARRAYSIZE(path), name, 260), 1);
    EXPECT_STREQ(path, L"LDAP://cn=typed");
    EXPECT_STREQ(name, L"");
}

TEST(UserPicker, ThePlainDialogNamesTheFirstRefusedLineAndAddsNothingUntilAllAreNames)
{
    ScopedResourceModule res(L"VXDA64.DLL");
    StrList names;
    names.AddTail(L"Existing");
    struct Case { std::wstring typed, line, reason; } cases[] = {
        {L"CORP\\alice\r\n\r\nbad:name\r\nx*y", L"Line 3", L"cannot contain"},
        {L"tab\there", L"Line 1", L"cannot contain"},
        {L"ok\nCORP\\a\\b", L"Line 2", L"at most one backslash"},
        {L"CORP\\ ", L"Line 1", L"both the domain and the user"},
        {L"\\alice", L"Line 1", L"both the domain and the user"},
        {std::wstring(256, L'n'), L"Line 1", L"at most 255 characters"},
        {L"CORP\\" + std::wstring(250, L'n'), L"", L""}, // 255 characters
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.typed.substr(0, 20));
        MessageRecorder boxes;
        DlgPickNames dlg(names);
        ASSERT_TRUE(dlg.Create(nullptr));
        SetDlgItemTextW(dlg.GetHwnd(), IDC_PICK_NAMES_EDIT, c.typed.c_str());
        SendMessageW(dlg.GetHwnd(), WM_COMMAND, IDOK, 0);
        if (c.line.empty()) {
            EXPECT_FALSE(dlg.IsBound());
            EXPECT_EQ(Items(names).back(), c.typed);
            continue;
        }
        EXPECT_TRUE(dlg.IsBound()) << "the dialog stays open";
        EXPECT_NE(boxes.Last().find(c.line + L","), std::wstring::npos) << boxes.Last();
        EXPECT_NE(boxes.Last().find(c.reason), std::wstring::npos) << boxes.Last();
        EXPECT_EQ(names.GetCount(), 1u);
        SendMessageW(dlg.GetHwnd(), WM_COMMAND, IDCANCEL, 0);
    }
}

TEST(UserPicker, ChosenObjectsBecomeNamesOnceAndAPickerThatCannotShowGivesWayToThePlainDialog)
{
    ScopedResourceModule res(L"VXDA64.DLL");
    wchar_t computer[MAX_COMPUTERNAME_LENGTH + 1];
    DWORD cch = ARRAYSIZE(computer);
    GetComputerNameW(computer, &cch);
    const std::wstring local = L"WinNT://WORKGROUP/" + std::wstring(computer) + L"/bob";
    FakePicker picker;
    FakePicker::current = &picker;
    ScopedValue<HRESULT (*)(IDsObjectPicker**)> seam(PickerSeams::pfnCreateObjectPicker, FakePicker::Create);
    picker.objects = {
        {L"WinNT://CORP/alice", L"user", nullptr},
        {L"WinNT://CORP/Domain Admins", L"group", nullptr},
        {L"", L"user", L"WinNT://CORP/carol"},   // the path only as the attribute asked for
        {L"WinNT://CORP", L"user", nullptr},     // too few components: left out
        {local.c_str(), L"user", nullptr},       // this computer's own account: its bare name
        {L"WinNT://corp/ALICE", L"user", nullptr}, // already chosen (ignoring case)
    };
    StrList names;
    names.AddTail(L"Existing");
    EXPECT_EQ(PickUsersGroups(nullptr, names), 1);
    EXPECT_EQ(Items(names), (std::vector<std::wstring>{L"Existing", L"CORP\\alice", L"Domain Admins", L"CORP\\carol", L"bob"}));
    EXPECT_TRUE(picker.options & DSOP_FLAG_MULTISELECT);
    EXPECT_TRUE(picker.scopeFlags & DSOP_SCOPE_FLAG_WANT_PROVIDER_WINNT);
    EXPECT_EQ(picker.attribute, L"ADsPath");

    picker.hrInvoke = S_FALSE; // cancelled in the system's dialog
    EXPECT_EQ(PickUsersGroups(nullptr, names), 0);
    EXPECT_EQ(names.GetCount(), 5u);

    // No picker registered, or one that cannot show its dialog: the plain dialog.
    struct Fallback { HRESULT create, invoke; bool window; const wchar_t* typed; } fallbacks[] = {
        {REGDB_E_CLASSNOTREG, S_OK, true, L"Staff"},
        {S_OK, E_NOTIMPL, true, L"Sales"},
        {S_OK, S_FALSE, false, L"Guests"}, // Wine's: "cancelled" without a window
    };
    for (const Fallback& f : fallbacks) {
        SCOPED_TRACE(f.typed);
        picker.hrCreate = f.create, picker.hrInvoke = f.invoke, picker.bShowsWindow = f.window;
        ModalDriver typing(IDC_PICK_NAMES_EDIT, f.typed);
        EXPECT_EQ(PickUsersGroups(nullptr, names), 1);
        EXPECT_EQ(Items(names).back(), f.typed);
    }
}

TEST(Help, OpensTheConfigurationPageOfTheBuiltFileBesideTheProgramOrSaysWhatIsWrong)
{
    ScopedResourceModule res(L"VXDA64.DLL");
    static std::wstring file, topic;
    static int answer;
    ScopedValue<int (*)(HWND, const wchar_t*, const wchar_t*)> seam(HelpSeams::pfnOpenHelpFile,
        [](HWND, const wchar_t* f, const wchar_t* t) {
            file = f, topic = t;
            SetLastError(ERROR_ACCESS_DENIED);
            return answer;
        });
    ScopedTempDir empty;
    struct Case { const wchar_t* folder; int answer, result; std::wstring message; } cases[] = { // message: its start
        {nullptr, 1, 1, L""},
        {nullptr, 0, 0, L"Cannot open the help file"},
        {empty.path().c_str(), 1, 0, L"The help file is missing:\n\n<T>" + empty.file(kHelpFileName)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.message);
        MessageRecorder boxes;
        ScopedValue<const wchar_t*> folder(HelpSeams::pszFolder, c.folder);
        file = topic = L"(not opened)", answer = c.answer;
        EXPECT_EQ(OpenHelp(nullptr), c.result);
        EXPECT_EQ(file, c.folder ? L"(not opened)" : ExeFolder() + kHelpFileName);
        EXPECT_EQ(topic, c.folder ? L"(not opened)" : kHelpTopicConfig);
        EXPECT_EQ(boxes.Last().substr(0, c.message.size()), c.message);
        EXPECT_EQ(boxes.texts.empty(), c.message.empty());
    }
    // The file built beside the program holds both pages.
    std::vector<BYTE> chm;
    ASSERT_TRUE(ReadFileBytes(ExeFolder() + kHelpFileName, &chm)) << "build the vx_help target";
    const std::string bytes(chm.begin(), chm.end());
    EXPECT_EQ(bytes.substr(0, 4), "ITSF");
    for (std::wstring page : {std::wstring(kHelpTopicConfig), std::wstring(L"Welcome.htm")})
        EXPECT_NE(bytes.find("/" + std::string(page.begin(), page.end())), std::string::npos) << page;
}

TEST(About, ShowsTheProductAndTheLibrarysVersion)
{
    ScopedResourceModule res(L"VXDA64.DLL");
    DlgAbout dlg;
    ASSERT_TRUE(dlg.Create(nullptr));
    wchar_t version[128] = L"", title[128] = L"";
    GetDlgItemTextW(dlg.GetHwnd(), IDC_ABOUT_VERSION, version, 128);
    GetDlgItemTextW(dlg.GetHwnd(), IDC_ABOUT_TITLE, title, 128);
    EXPECT_TRUE(std::regex_match(version, std::wregex(L"Version [0-9]+\\.[0-9]+\\.[0-9]+\\.[0-9]+"))) << version;
    EXPECT_STREQ(title, L"<h>Vantrel</h>");
}
