#include "config/About.h"

#include <winver.h>

#include <cstring>

#include "base/ProductInfo.h"
#include "base/Resources.h"
#include "base/StrUtil.h"
#include "resources/resource.h"

namespace {

// A version resource starts with its header (three WORDs), the key "VS_VERSION_INFO" with its
// terminator, and padding to a 32-bit boundary; the fixed information follows. The layout is read
// here directly, which spares the library the version API for four numbers.
const size_t kFixedInfoOffset = 40;

} // namespace

int GetModuleVersionText(HMODULE module, wchar_t* buf, unsigned cch)
{
    if (!buf || cch == 0)
        return 0;
    buf[0] = 0;
    HRSRC res = FindResourceW(module, MAKEINTRESOURCEW(VS_VERSION_INFO), RT_VERSION);
    HGLOBAL loaded = res ? LoadResource(module, res) : nullptr;
    const BYTE* data = loaded ? static_cast<const BYTE*>(LockResource(loaded)) : nullptr;
    const DWORD cb = res ? SizeofResource(module, res) : 0;
    if (!data || cb < kFixedInfoOffset + sizeof(VS_FIXEDFILEINFO))
        return 0;
    WORD valueLength;
    memcpy(&valueLength, data + 2, sizeof(valueLength));
    VS_FIXEDFILEINFO info;
    memcpy(&info, data + kFixedInfoOffset, sizeof(info));
    if (valueLength < sizeof(info) || info.dwSignature != 0xFEEF04BD)
        return 0;
    StrFormat(buf, cch, L"%u.%u.%u.%u", HIWORD(info.dwProductVersionMS), LOWORD(info.dwProductVersionMS),
              HIWORD(info.dwProductVersionLS), LOWORD(info.dwProductVersionLS));
    return 1;
}

DlgAbout::DlgAbout() : DMDlg(IDD_ABOUT) {}

BOOL DlgAbout::OnInit()
{
    wchar_t text[128];
    if (title.Attach(GetItem(IDC_ABOUT_TITLE))) {
        StrFormat(text, L"<h>%s</h>", ProductInfo::GetProductName());
        title.SetHTMLText(text);
    }
    wchar_t version[64], format[64];
    HMODULE module = GetResourceModule();
    if (GetModuleVersionText(module ? module : GetModuleHandleW(nullptr), version, ARRAYSIZE(version)) &&
        LoadResString(IDS_ABOUT_VERSION, format, ARRAYSIZE(format))) {
        StrFormat(text, format, version);
        SetItemText(IDC_ABOUT_VERSION, text);
    }
    return DMDlg::OnInit();
}

void DoAbout(HWND owner, BOOL bLicencePage)
{
    (void)bLicencePage; // no licence page in this edition: see the declaration
    DlgAbout dlg;
    dlg.DoModal(owner);
}
