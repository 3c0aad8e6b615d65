// The message box's decisions without a window: text arguments, the composed message, the
// buttons of each button flag, the icon and its size, and the button a device arrival presses.
#include <gtest/gtest.h>

#include <string>

#include "ui/MsgBoxModel.h"

using namespace MsgBoxModel;

namespace {

TEST(MsgBoxModel, ResourceIdsIncludingNegativeOnesAreToldFromTexts)
{
    EXPECT_TRUE(IsResourceId((const wchar_t*)100));
    EXPECT_TRUE(IsResourceId((const wchar_t*)(LONG_PTR)-27004));
    EXPECT_TRUE(IsResourceId((const wchar_t*)0xFFFF));
    EXPECT_FALSE(IsResourceId((const wchar_t*)0x10000));
    EXPECT_FALSE(IsResourceId(L"a real text"));
    EXPECT_EQ(-27004, ResourceIdOf((const wchar_t*)(LONG_PTR)-27004));
    EXPECT_EQ(100, ResourceIdOf((const wchar_t*)100));
}

TEST(MsgBoxModel, TheLastErrorIsAppendedOnlyWhenAskedAndPending)
{
    struct { DWORD flags, error; const wchar_t* want; } cases[] = {
        {MB_OK, 5, L"Cannot save."}, {kAppendLastError, 0, L"Cannot save."},
        {kAppendLastError, 5, L"Cannot save.\n\nAccess is denied."},
        {kAppendLastError | kHtmlErrorSeparator, 5, L"Cannot save.<br><br>Access is denied."},
    };
    for (auto& c : cases) {
        wchar_t out[128];
        EXPECT_EQ(wcslen(c.want), ComposeText(out, 128, L"Cannot save.", c.flags, c.error, L"Access is denied."));
        EXPECT_STREQ(c.want, out);
    }
    // At most kMaxText characters, however large the buffer, and never past a small one.
    const std::wstring longText(3000, L'x');
    static wchar_t big[4096];
    EXPECT_EQ(kMaxText, ComposeText(big, 4096, longText.c_str(), kAppendLastError, 5, L"more"));
    wchar_t small[8];
    EXPECT_EQ(7u, ComposeText(small, 8, longText.c_str(), 0, 0, nullptr));
}

TEST(MsgBoxModel, ButtonsOfEachFlagAndTheAnswerADismissedBoxGives)
{
    struct { DWORD flags; int answers[3]; } cases[] = {
        {MB_OK, {0, 0, IDOK}}, {MB_OKCANCEL, {IDOK, 0, IDCANCEL}}, {MB_ABORTRETRYIGNORE, {IDABORT, IDRETRY, IDIGNORE}},
        {MB_YESNOCANCEL, {IDYES, IDNO, IDCANCEL}}, {MB_YESNO, {IDYES, 0, IDNO}}, {MB_RETRYCANCEL, {IDRETRY, 0, IDCANCEL}},
        {MB_CANCELTRYCONTINUE, {IDTRYAGAIN, IDCONTINUE, IDCANCEL}},
        {MB_YESNO | MB_ICONWARNING | kAppendLastError, {IDYES, 0, IDNO}},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "flags " << std::hex << c.flags);
        const Buttons b = ButtonsFor(c.flags);
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(c.answers[i], b.place[i].nAnswer) << "place " << i;
            EXPECT_EQ(c.answers[i] != 0, b.place[i].nLabelId != 0);
        }
        EXPECT_EQ(c.answers[2], AnswerOfControl(b, kIdButtonCancel));
        EXPECT_EQ(kIdButtonCancel, ControlOfAnswer(b, c.answers[2]));
        EXPECT_EQ(0, ControlOfAnswer(b, 0)) << "an empty place answers nothing";
        EXPECT_EQ(0, AnswerOfControl(b, IDOK)) << "only the box's own controls answer";
    }
}

TEST(MsgBoxModel, IconsSizesAndTheDeviceArrivalButton)
{
    struct { UINT flags; int icon; } icons[] = {{MB_ICONERROR, IconError}, {MB_ICONQUESTION, IconQuestion},
        {MB_ICONWARNING, IconWarning}, {MB_ICONINFORMATION, IconInformation}, {MB_OK, IconInformation},
        {MB_USERICON, IconInformation}};
    for (auto& c : icons)
        EXPECT_EQ(c.icon, IconFor(c.flags)) << std::hex << c.flags;
    EXPECT_EQ(48, IconSizeFor(143));
    EXPECT_EQ(64, IconSizeFor(144));
    struct { DWORD flags; int control; } cases[] = {
        {MB_RETRYCANCEL | kPressFirstOnDevice, kIdButton1}, {MB_ABORTRETRYIGNORE | kPressFirstOnDevice, kIdButton2},
        {MB_CANCELTRYCONTINUE | kPressFirstOnDevice, kIdButton1}, {MB_RETRYCANCEL, 0},
        {MB_OKCANCEL | kPressFirstOnDevice, 0}, {MB_YESNO | kPressFirstOnDevice, 0},
    };
    for (auto& c : cases)
        EXPECT_EQ(c.control, DeviceArrivalControl(c.flags)) << std::hex << c.flags;
}

} // namespace
