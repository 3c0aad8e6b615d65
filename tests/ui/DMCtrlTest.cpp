// The control wrappers on the real controls of the test form: values round-trip, the number
// field refuses what is not a number of its range, and a missing control answers "nothing".
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>

#include "WndTestSupport.h"
#include "ui/DMCtrl.h"

namespace {

TEST(ParseIntText, ReadsWholeDecimalNumbersOnly)
{
    struct Case { const wchar_t* text; int ok, value; } cases[] = {
        {L"12", 1, 12}, {L"  42\t", 1, 42}, {L"+7", 1, 7}, {L"-5", 1, -5}, {L"0009999", 1, 9999},
        {L"2147483647", 1, INT_MAX}, {L"-2147483648", 1, INT_MIN}, {L"2147483648", 0, INT_MAX},
        {L"-2147483649", 0, INT_MIN}, {L"99999999999999999999999", 0, INT_MAX}, {L"12abc", 0, 0}, {L"1 2", 0, 0},
        {L"- 5", 0, 0}, {L"+", 0, 0}, {L"", 0, 0}, {L"   ", 0, 0}, {L"0x10", 0, 0},
        {L"\xFF11\xFF12", 0, 0}, // full-width digits
        {L"1,000", 0, 0}, {nullptr, 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text ? c.text : L"(null)");
        int value = 0x5a5a;
        EXPECT_EQ(ParseIntText(c.text, &value), c.ok);
        EXPECT_EQ(value, c.value);
    }
    EXPECT_EQ(ParseIntText(L"3", nullptr), 1);
}

class DMCtrlTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        wndtest::InitControls();
        ASSERT_TRUE(dlg.Create(nullptr));
        hwnd = dlg.GetHwnd();
    }
    wndtest::FormDlg dlg;
    HWND hwnd = nullptr;
};

TEST_F(DMCtrlTest, NumberFieldRefusesTextOutsideItsRange)
{
    DMEditSpin field(hwnd, IDC_UITEST_NUMBER, IDC_UITEST_NUMBER_SPIN);
    ASSERT_TRUE(field.SetRange(9999, 1)); // either order
    int lo = 0, hi = 0;
    EXPECT_TRUE(field.GetRange(&lo, &hi));
    EXPECT_EQ(lo, 1);
    EXPECT_EQ(hi, 9999);
    struct Case { const wchar_t* text; BOOL bValid; int value; } cases[] = {
        {L"12", TRUE, 12}, {L" 1 ", TRUE, 1}, {L"9999", TRUE, 9999}, {L"12abc", FALSE, 0}, {L"", FALSE, 0},
        {L"0", FALSE, 0}, {L"10000", FALSE, 10000}, {L"-5", FALSE, -5}, {L"5000000000", FALSE, INT_MAX},
        // Longer than any number: refused without being read.
        {L"                                                                  7", FALSE, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        SetDlgItemTextW(hwnd, IDC_UITEST_NUMBER, c.text);
        BOOL bValid = 0x5a;
        EXPECT_EQ(field.GetInt(&bValid), c.value);
        EXPECT_EQ(bValid, c.bValid);
    }
    // SetInt writes plain digits and moves the spin; the spin writes no grouping either, so what
    // the arrows produce reads back.
    ASSERT_TRUE(field.SetInt(1234));
    wchar_t text[16];
    EXPECT_EQ(dlg.GetItemText(IDC_UITEST_NUMBER, text, 16), 4u);
    EXPECT_STREQ(text, L"1234");
    EXPECT_EQ(SendMessageW(field.GetSpin(), UDM_GETPOS32, 0, 0), 1234);
    SendMessageW(field.GetSpin(), UDM_SETPOS32, 0, 5000);
    BOOL bValid = FALSE;
    EXPECT_EQ(field.GetInt(&bValid), 5000);
    EXPECT_TRUE(bValid);
    // A spin without a buddy gets the edit as its buddy; without a spin any int is valid.
    DMEditSpin lone(hwnd, IDC_UITEST_LONE, IDC_UITEST_LONE_SPIN);
    ASSERT_TRUE(lone.SetRange(0, 100));
    EXPECT_EQ((HWND)SendMessageW(lone.GetSpin(), UDM_GETBUDDY, 0, 0), dlg.GetItem(IDC_UITEST_LONE));
    DMEditSpin bare(hwnd, IDC_UITEST_LONE, 0);
    SetDlgItemTextW(hwnd, IDC_UITEST_LONE, L"-70000");
    EXPECT_EQ(bare.GetInt(&bValid), -70000);
    EXPECT_TRUE(bValid);
    EXPECT_FALSE(bare.SetRange(1, 2));
}

TEST_F(DMCtrlTest, ListAndComboRoundTripAndReadBounded)
{
    DMListBox list(hwnd, IDC_UITEST_LIST);
    int n = 0;
    for (const wchar_t* s : {L"Administrators", L"DOMAIN\\Guest", L"Remote Desktop Users"})
        EXPECT_EQ(list.Add(s), n++) << "Add answers the new item's index";
    EXPECT_EQ(list.GetCount(), 3);
    EXPECT_EQ(list.GetSel(), -1);
    EXPECT_EQ(list.FindExact(L"domain\\guest"), 1);
    EXPECT_EQ(list.FindExact(L"DOMAIN"), -1);
    EXPECT_TRUE(list.SetSel(1));
    EXPECT_EQ(list.GetSel(), 1);
    EXPECT_EQ(list.Delete(1), 2);
    EXPECT_EQ(list.Delete(5), -1);
    EXPECT_EQ(list.Delete(-1), -1);
    EXPECT_FALSE(list.SetSel(2));
    EXPECT_TRUE(list.SetSel(-1));
    EXPECT_EQ(list.GetSel(), -1);
    wchar_t buf[32];
    EXPECT_EQ(list.GetItemText(1, buf, 32), 20u);
    EXPECT_STREQ(buf, L"Remote Desktop Users");
    // A short buffer gets the start of the text, terminated, and nothing past its end.
    std::fill(buf, buf + 32, (wchar_t)0xbdbd);
    EXPECT_EQ(list.GetItemText(0, buf, 5), 4u);
    EXPECT_STREQ(buf, L"Admi");
    EXPECT_EQ(buf[5], (wchar_t)0xbdbd);
    EXPECT_EQ(list.GetItemText(7, buf, 32), 0u);
    EXPECT_EQ(buf[0], L'\0');
    DMComboBox combo(hwnd, IDC_UITEST_COMBO);
    EXPECT_EQ(combo.AddItem(L"Sleep", 1), 0);
    EXPECT_EQ(combo.AddItem(L"Hibernate", 2), 1);
    EXPECT_EQ(combo.AddItem(L"Shutdown", 3), 2);
    LPARAM data = 0x77;
    EXPECT_FALSE(combo.GetSelData(&data));
    EXPECT_EQ(data, 0x77);
    struct Case { LPARAM data; int index; } cases[] = {{2, 1}, {3, 2}, {1, 0}, {7, -1}, {-1, -1}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.data);
        EXPECT_EQ(combo.SelectByData(c.data), c.index);
        EXPECT_EQ(combo.GetSel(), c.index);
        data = 0x77;
        EXPECT_EQ(combo.GetSelData(&data), c.index >= 0 ? 1 : 0);
        EXPECT_EQ(data, c.index >= 0 ? c.data : 0x77);
    }
}

TEST_F(DMCtrlTest, StaticButtonAndStateHelpers)
{
    DMStatic label(hwnd, IDC_UITEST_LABEL);
    wchar_t text[64];
    EXPECT_TRUE(label.SetTextRes(IDS_UITEST_LABEL));
    EXPECT_EQ(label.GetText(text, 64), 24u);
    EXPECT_STREQ(text, L"Label from the resources");
    EXPECT_TRUE(label.SetText(nullptr));
    EXPECT_EQ(label.GetTextLength(), 0u);
    // A click reaches the dialog as the button's command; a disabled or hidden one does not.
    // (Other controls' notifications, the edit that takes the focus over, are not counted.)
    DMButton button(hwnd, IDC_UITEST_BUTTON);
    auto clicks = [&] { return std::count(dlg.commands.begin(), dlg.commands.end(), IDC_UITEST_BUTTON); };
    EXPECT_TRUE(button.Click());
    EXPECT_EQ(clicks(), 1);
    EXPECT_TRUE(button.Enable(FALSE));
    EXPECT_FALSE(button.Click());
    EXPECT_TRUE(button.Enable(TRUE));
    EXPECT_TRUE(button.Show(FALSE));
    EXPECT_FALSE(button.Click());
    EXPECT_EQ(clicks(), 1);
    DMCheckBox box(hwnd, IDC_UITEST_CHECK);
    for (BOOL b : {FALSE, TRUE}) {
        box.SetChecked(b);
        EXPECT_EQ(IsDlgButtonChecked(hwnd, IDC_UITEST_CHECK), b ? (UINT)BST_CHECKED : (UINT)BST_UNCHECKED);
        EXPECT_EQ(box.IsChecked(), b);
    }
    dlg.EnableItems({IDC_UITEST_CHECK, IDC_UITEST_LIST}, FALSE);
    EXPECT_FALSE(IsWindowEnabled(dlg.GetItem(IDC_UITEST_CHECK)));
    EXPECT_FALSE(IsWindowEnabled(dlg.GetItem(IDC_UITEST_LIST)));
    EXPECT_TRUE(IsWindowEnabled(dlg.GetItem(IDC_UITEST_COMBO)));
    dlg.EnableAllItems(FALSE);
    for (HWND c = GetWindow(hwnd, GW_CHILD); c; c = GetWindow(c, GW_HWNDNEXT))
        EXPECT_FALSE(IsWindowEnabled(c));
    EXPECT_FALSE(dlg.EnableItem(4242, FALSE));
}

TEST_F(DMCtrlTest, DisablingTheFocusedControlMovesTheFocusOn)
{
    ShowWindow(hwnd, SW_SHOW);
    SetForegroundWindow(hwnd);
    DMButton button(hwnd, IDC_UITEST_BUTTON);
    ASSERT_TRUE(button.SetFocus());
    if (GetFocus() != button.GetHwnd())
        GTEST_SKIP() << "the test process has no keyboard focus to move";
    button.Enable(FALSE);
    EXPECT_NE(GetFocus(), button.GetHwnd());
    EXPECT_TRUE(IsChild(hwnd, GetFocus()));
}

TEST_F(DMCtrlTest, MissingControlAnswersNothing)
{
    const int kNone = 4242;
    wchar_t buf[8];
    std::fill(buf, buf + 8, (wchar_t)0xbdbd);
    BOOL bValid = TRUE;
    LPARAM data = 5;
    EXPECT_FALSE(DMStatic(hwnd, kNone).SetText(L"x"));
    EXPECT_EQ(DMStatic(hwnd, kNone).GetText(buf, 8), 0u);
    EXPECT_EQ(buf[0], L'\0');
    EXPECT_FALSE(DMButton(hwnd, kNone).Click());
    EXPECT_EQ(DMEditSpin(hwnd, kNone, kNone).GetInt(&bValid), 0);
    EXPECT_FALSE(bValid);
    EXPECT_FALSE(DMEditSpin(hwnd, kNone, kNone).SetInt(3));
    EXPECT_EQ(DMListBox(hwnd, kNone).Add(L"x"), -1);
    EXPECT_EQ(DMListBox(hwnd, kNone).GetSel(), -1);
    EXPECT_EQ(DMComboBox(hwnd, kNone).AddItem(L"x", 1), -1);
    EXPECT_EQ(DMComboBox(hwnd, kNone).SelectByData(1), -1);
    EXPECT_FALSE(DMComboBox(hwnd, kNone).GetSelData(&data));
    EXPECT_EQ(data, 5);
}

} // namespace
