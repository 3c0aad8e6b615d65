// The warning's text rule and its countdown, without a window: placeholders, indentation of
// replacements of several lines, "%%" and other percent signs as the one expander treats them, the
// 512-character limit, and the countdown from "MessageTimeout":00 down to its deadline.
#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "monitor/WarningText.h"

namespace {

std::wstring Format(const std::wstring& text, const wchar_t* value, unsigned cch = kWarningTextMax)
{
    wchar_t out[1024];
    wmemset(out, 0xbd, 1024);
    const unsigned n = FormatWarningText(out, cch, text.c_str(), value);
    EXPECT_EQ(n, wcslen(out));
    return out;
}

TEST(WarningText, Rule)
{
    struct Case {
        const wchar_t* text;
        const wchar_t* value;
        const wchar_t* expected;
    } cases[] = {
        {L"Logging off in %d", L"10:00", L"Logging off in 10:00"},
        {L"%d left, %d left", L"0:05", L"0:05 left, 0:05 left"},
        // An indented placeholder indents every line of its replacement.
        {L"  %d", L"a\r\nb\nc\rd", L"  a\r\n  b\n  c\r  d"},
        {L"Title\r\n\t %d end", L"a\nb", L"Title\r\n\t a\n\t b end"},
        {L"  %d and %d", L"a\nb", L"  a\n  b and a\nb"},
        {L"Line one\n%d", L"a\nb", L"Line one\na\nb"},
        // A placeholder after other text is not indented.
        {L"  x %d", L"a\nb", L"  x a\nb"},
        // Percent signs as the base expander treats them: "%%" is "%", the rest is copied.
        {L"100%% sure in %d", L"1:00", L"100% sure in 1:00"},
        {L"  %%d", L"a\nb", L"  %d"},
        {L"%s %x %", L"1:00", L"%s %x %"},
        {L"", L"1:00", L""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "text \"" << testing::PrintToString(std::wstring(c.text)) << "\"");
        EXPECT_EQ(std::wstring(c.expected), Format(c.text, c.value));
    }
}

TEST(WarningText, LimitsAndCuts)
{
    const std::wstring longText(700, L'a');
    EXPECT_EQ(std::wstring(511, L'a'), Format(longText, L"x")) << "512 characters with the terminator";
    EXPECT_EQ(std::wstring(511, L'a'), Format(L"%d" + longText, L"")) << "an empty value";
    EXPECT_EQ(L"aaaa", Format(longText, L"x", 5)) << "a smaller buffer";
    EXPECT_EQ(std::wstring(511, L'1'), Format(L"%d%d%d", std::wstring(300, L'1').c_str()));
    // An indented replacement is cut as well.
    std::wstring lines;
    for (int i = 0; i < 200; ++i)
        lines += L"ab\n";
    const std::wstring out = Format(L"    %d", lines.c_str());
    ASSERT_EQ(511u, out.size());
    EXPECT_EQ(L"    ab\n    ab\n", out.substr(0, 14));
}

TEST(WarningText, Countdown)
{
    struct Case {
        unsigned seconds;
        const wchar_t* text;
    } cases[] = {{0, L"0:00"}, {59, L"0:59"}, {61, L"1:01"}, {600, L"10:00"}, {71582u * 60, L"71582:00"}};
    for (const Case& c : cases) {
        wchar_t out[32];
        FormatCountdown(out, 32, c.seconds);
        EXPECT_EQ(std::wstring(c.text), out) << c.seconds;
    }
}

TEST(WarningCountdown, CountsDownToTheDeadlineAndThenStays)
{
    const long long t0 = 1780000000;
    WarningCountdown c;
    c.Start(L"Logging off in %d", 10, t0);
    EXPECT_EQ(std::wstring(L"Logging off in 10:00"), c.GetText());
    struct Step {
        long long at;
        bool rebuilt;
        const wchar_t* text;
    } steps[] = {
        {t0, true, L"Logging off in 10:00"},   {t0 + 1, true, L"Logging off in 9:59"},
        {t0 + 75, true, L"Logging off in 8:45"}, {t0 - 100, true, L"Logging off in 10:00"}, // clock set back
        {t0 + 599, true, L"Logging off in 0:01"}, {t0 + 600, false, L"Logging off in 0:01"},
        {t0 + 100000, false, L"Logging off in 0:01"},
    };
    for (const Step& s : steps) {
        EXPECT_EQ(s.rebuilt, c.Update(s.at)) << s.at - t0;
        EXPECT_EQ(std::wstring(s.text), c.GetText()) << s.at - t0;
    }
}

TEST(WarningCountdown, MinutesTheEngineCannotMeasureShowNoCountdown)
{
    struct Case {
        int minutes;
        const wchar_t* open;
        bool counting;
    } cases[] = {
        {0, L"in 0:00", false}, {1, L"in 1:00", true}, {71582, L"in 71582:00", true},
        {71583, L"in --:--", false}, {-1, L"in --:--", false}, {INT_MAX, L"in --:--", false}, {INT_MIN, L"in --:--", false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.minutes);
        WarningCountdown w;
        w.Start(L"in %d", c.minutes, 1000);
        EXPECT_EQ(std::wstring(c.open), w.GetText());
        EXPECT_EQ(c.counting, w.Update(1000));
        EXPECT_EQ(c.counting, w.Update(1001));
        if (!c.counting) {
            EXPECT_EQ(std::wstring(c.open), w.GetText());
        }
    }
    // A clock at its very end saturates the deadline instead of wrapping into the past.
    WarningCountdown w;
    w.Start(L"%d", 10, LLONG_MAX - 5);
    EXPECT_TRUE(w.Update(LLONG_MAX - 5));
    EXPECT_EQ(std::wstring(L"0:05"), w.GetText());
    EXPECT_FALSE(w.Update(LLONG_MAX));
}

} // namespace
