// The custom warning-message editor and the data-loss warning, on the product's own dialogs.
#include <gtest/gtest.h>

#include <string>

#include "config/DlgSmall.h"
#include "resources/resource.h"
#include "support/Guards.h"

namespace {

TEST(CustomMessage, StoredTrimmedEmptyWhenBuiltInAndCut)
{
    const std::wstring builtIn = L"Press OK to keep your session active.";
    struct { std::wstring edited, stored; } cases[] = {
        {L"  Bye in %d \r\n", L"Bye in %d"},
        {L"\r\n" + builtIn + L" ", L""}, // the built-in text keeps applying
        {L" \t\r\n", L""},
        {std::wstring(600, L'x'), std::wstring(511, L'x')},
    };
    for (const auto& c : cases) {
        wchar_t out[512];
        MakeStoredMessage(c.edited.c_str(), builtIn.c_str(), out);
        EXPECT_EQ(std::wstring(out), c.stored) << c.edited.size();
    }
}

TEST(CustomMessage, EditorReadsBackAtOkUnlessPolicyManaged)
{
    vxtest::ScopedResourceModule res(L"VXDA64.DLL");
    for (bool policy : {false, true}) {
        DlgCustomMsg dlg(L"Old %d", policy);
        ASSERT_TRUE(dlg.Create(nullptr));
        wchar_t shown[64] = L"";
        GetDlgItemTextW(dlg.GetHwnd(), IDC_CUSTOM_MSG_TEXT, shown, 64);
        EXPECT_STREQ(shown, L"Old %d");
        EXPECT_EQ(IsWindowEnabled(GetDlgItem(dlg.GetHwnd(), IDOK)), !policy);
        SetDlgItemTextW(dlg.GetHwnd(), IDC_CUSTOM_MSG_TEXT, std::wstring(700, L'y').c_str());
        SendMessageW(dlg.GetHwnd(), WM_COMMAND, IDOK, 0);
        EXPECT_EQ(std::wstring(dlg.GetText()), policy ? L"Old %d" : std::wstring(511, L'y'));
        SendMessageW(dlg.GetHwnd(), WM_COMMAND, IDCANCEL, 0);
    }
}

TEST(DataLossWarning, OkOnlyWhileAccepted)
{
    vxtest::ScopedResourceModule res(L"VXDA64.DLL");
    DlgWarningDataLoss dlg;
    ASSERT_TRUE(dlg.Create(nullptr));
    wchar_t title[32] = L"";
    GetWindowTextW(dlg.GetHwnd(), title, 32);
    EXPECT_STREQ(title, L"WARNING");
    for (int clicks = 0; clicks < 3; ++clicks) { // unchecked at first, each click turns it over
        EXPECT_EQ(!!IsWindowEnabled(GetDlgItem(dlg.GetHwnd(), IDOK)), clicks % 2 == 1) << clicks;
        SendDlgItemMessageW(dlg.GetHwnd(), IDC_DATA_LOSS_ACCEPT, BM_CLICK, 0, 0);
    }
    SendMessageW(dlg.GetHwnd(), WM_COMMAND, IDOK, 0);
    EXPECT_EQ(dlg.GetResult(), IDOK);
}

} // namespace
