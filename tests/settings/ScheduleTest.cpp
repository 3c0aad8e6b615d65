#include "settings/Schedule.h"

#include <gtest/gtest.h>

#include <cwchar>
#include <string>

#include "support/Guards.h"

namespace {

typedef Schedule S;
const int kWrap = 2133437386; // the low 32 bits of 2^64 / 10^7: a wrapped 100-ns difference
const int kDay = 86400, kHour = 3600;

// 2024-01-07 was a Sunday, so the date matches the day of the week.
SYSTEMTIME At(int day, WORD h, WORD m, WORD s = 0, WORD ms = 0) { return {2024, 1, (WORD)day, (WORD)(7 + day), h, m, s, ms}; }

// "day h:mm-h:mm|..." per period, or "@offset" of the reported error. One shared list: each parse
// must replace what the last one left.
std::wstring Parse(const wchar_t* text)
{
    static DMList list;
    S s;
    s.Set(text);
    if (const wchar_t* err = s.Parse(list))
        return L"@" + std::to_wstring(err - s.Get());
    std::wstring out;
    for (DMPos pos = list.GetHeadPosition(); pos;) {
        auto* p = static_cast<S::AllowedPeriod*>(list.GetNext(pos));
        wchar_t buf[64];
        swprintf(buf, 64, L"%d %u:%02u-%u:%02u|", (int)p->day, p->wStartHour, p->wStartMinute, p->wEndHour, p->wEndMinute);
        out += buf;
    }
    return out;
}

LCID gLcid;
unsigned long gFailItem; // this item's look-up fails
int FakeLocaleInfo(unsigned long item, wchar_t* buf, int cch) { return item == gFailItem ? 0 : GetLocaleInfoW(gLcid, item, buf, cch); }

} // namespace

TEST(ScheduleParse, EntriesInTextOrderOrWhereTheTextGoesWrong)
{
    struct { const wchar_t* text; const wchar_t* want; } cases[] = {
        {L"MON 08:00 - 17:30", L"1 8:00-17:30|"}, {L"Mon 23:30-24:00", L"1 23:30-24:00|"}, {L"sun 24:30-1:00", L"0 0:30-1:00|"},
        {L" ,;Wed\t9:00-10:00\r\n, ;Mon\n8:00-9:00;\tWed 7:00-8:00", L"3 9:00-10:00|1 8:00-9:00|3 7:00-8:00|"},
        // the day word and wrong values: the entry's start
        {L"Monday 8:00-17:00", L"@0"}, {L"Mon8:00-9:00", L"@0"}, {L"Mon", L"@0"}, {L"Tue 8:00-9:00 ; Mon 8:00-9:01", L"@16"},
        {L"Mon 8:15-9:00", L"@0"}, {L"Mon 25:00-26:00", L"@0"}, {L"Mon 8:00-24:30", L"@0"}, {L"Mon 9:00-9:00", L"@0"},
        {L"Mon 10:00-9:00", L"@0"}, {L"Mon 9:30-9:00", L"@0"}, {L"Mon 24:00-0:00", L"@0"},
        // syntax: where reading stopped
        {L"Mon 8-9", L"@5"}, {L"Mon 8:0-9:00", L"@7"}, {L"Mon 8:000-9:00", L"@8"}, {L"Mon 123:00-124:00", L"@6"},
        {L"", L""}, {L"Mon 8:00-", L"@9"}, {L"Mon 8:00-12:00Tue 8:00-12:00", L"@14"},
    };
    for (auto& c : cases)
        EXPECT_EQ(c.want, Parse(c.text)) << "text: " << testing::PrintToString(std::wstring(c.text));
}

TEST(ScheduleSeconds, ThroughAWeek)
{
    // Fri evening chains into all of Saturday and, across the week's end, into Sunday morning.
    const wchar_t* week = L"Mon 8:00-17:00; Wed 9:30-12:00; Fri 20:00-24:00; Sat 0:00-24:00; Sun 0:00-6:00";
    const wchar_t* twoTue = L"Tue 14:00-16:00, Tue 8:00-10:00";
    std::wstring allWeek, days = L"SunMonTueWedThuFriSat";
    for (int i = 0; i < 14; ++i)
        allWeek += days.substr(i % 7 * 3, 3) + L" 0:00-24:00 ";
    struct { std::wstring text; SYSTEMTIME now; int seconds; } cases[] = {
        {week, At(1, 8, 0), 9 * kHour}, {week, At(1, 16, 59, 30, 500), 60}, // clock seconds are not counted
        {week, At(1, 7, 0), kHour - kWrap},                                 // later today: wrapped
        {week, At(1, 17, 0), -(7 + 24 + 9) * kHour - 1800},
        {week, At(3, 12, 0), -2 * kDay - (kWrap - 8 * kHour)}, // later day, later time of day
        {week, At(5, 21, 0), 2 * kHour + 59 * 60 + 2 * kDay},
        {week, At(6, 10, 0), 13 * kHour + 59 * 60 + kDay}, // the chain's last counts whole
        {L"Sun 9:00-10:00", At(6, 22, 0), -11 * kHour},
        {L"Wed 10:00-11:00", At(3, 10, 59), 60}, {L"Wed 10:00-11:00", At(3, 11, 0), -7 * kDay + kHour}, // next week
        // the first of the day in the text still to end counts, not the earliest
        {twoTue, At(1, 15, 0), -23 * kHour}, {twoTue, At(2, 9, 0), 5 * kHour - kWrap},
        // chaining needs the very next entry, on the next day, from 0:00
        {L"Mon 22:00-24:00, Tue 0:30-3:00", At(1, 23, 0), 59 * 60},
        {L"Mon 22:00-24:00, Mon 8:00-9:00, Tue 0:00-3:00", At(1, 23, 0), 59 * 60},
        {L"Tue 0:00-3:00, Mon 22:00-24:00", At(1, 23, 0), 59 * 60 + kDay},
        {allWeek, At(0, 0, 0), 23 * kHour + 59 * 60 + 6 * kDay}, // a chain never passes the week
        {L"Mon 0:00-24:00", At(1, 23, 59, 59), 0},                // 24:00 counts as 23:59: still on
        {L"*", At(1, 3, 0), 604801}, {L" ; ", At(1, 3, 0), 604801},
    };
    for (auto& c : cases) {
        S s;
        s.Set(c.text.c_str());
        wchar_t err[16];
        EXPECT_EQ(c.seconds, s.GetSecondsRemaining(&c.now, err, 16)) << "case " << &c - cases;
        EXPECT_STREQ(L"", err);
        EXPECT_EQ(c.seconds >= 0, s.IsScheduleOn(&c.now)) << "case " << &c - cases;
    }
    // Counted without a limit, 25,000 whole days overflow an int and read as off.
    for (int i = 0; i < 24986; ++i)
        allWeek += days.substr(i % 7 * 3, 3) + L" 0:00-24:00 ";
    S s;
    s.Set(allWeek.c_str());
    SYSTEMTIME now = At(3, 12, 0);
    EXPECT_EQ(11 * kHour + 59 * 60 + 6 * kDay, s.GetSecondsRemaining(&now, nullptr, 0));
}

// A text that does not parse, and a moment that is no time of the week, count as on (the rules
// of the native fuzz build check the tail reported); Set keeps its own copy.
TEST(ScheduleSeconds, BrokenTextOrMomentCountsAsOnAndTheTextIsOwned)
{
    S s;
    wchar_t text[] = L"Tue 8:15-9:00";
    s.Set(text);
    SYSTEMTIME now = At(2, 8, 30), bad = At(1, 24, 0);
    EXPECT_EQ(std::make_pair(-604801, 1), std::make_pair(s.GetSecondsRemaining(&now, nullptr, 0), s.IsScheduleOn(&now)));
    text[6] = L'3', text[7] = L'0';
    EXPECT_EQ(1, s.Set(s.Get())); // how settings are duplicated
    EXPECT_STREQ(L"Tue 8:15-9:00", s.Get()) << "an owned copy";
    s.Set(text);
    EXPECT_EQ(std::make_pair(-604801, 1), std::make_pair(s.GetSecondsRemaining(&bad, nullptr, 0), s.IsScheduleOn(&bad)));
    s.Set(L"*");
    EXPECT_EQ(S::pszStdSch, s.Get()) << "none stored";
}

// Wine fixes a process's locale at start-up, so the look-up is pointed at a chosen locale.
TEST(ScheduleLocale, WeekOrderAndNamesOfTheLocale)
{
    vxtest::ScopedValue<S::LocaleInfoFn> lookup(S::pfnGetLocaleInfo, &FakeLocaleInfo);
    struct { LCID lcid; unsigned long failItem; int first; const wchar_t* local[2]; } cases[] = {
        {0x0409, 0, S::Sunday, {L"Sunday", L"Monday"}}, {0x0407, 0, S::Monday, {L"Montag", L"Dienstag"}},
        {0x0407, LOCALE_IFIRSTDAYOFWEEK, S::Sunday, {L"Sonntag", L"Montag"}}, // unknown: Sunday first
        {0x0409, LOCALE_SDAYNAME1, S::Sunday, {L"Sunday", nullptr}},         // a name missing: none shown
    };
    for (auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        S::FreeCommon();
        gLcid = c.lcid, gFailItem = c.failItem;
        S::InitCommon();
        EXPECT_EQ(c.local[1] != nullptr, S::CanDisplayLocalDays());
        for (int i = 0; i < 7; ++i)
            EXPECT_EQ(std::make_pair(S::days[i].day, S::FindDay(S::days[i].pszAbbrev)),
                      std::make_pair((S::Day)((c.first + i) % 7), (S::Day)((c.first + i) % 7))) << i;
        EXPECT_STREQ(c.local[0], S::days[0].pszLocalName);
        EXPECT_STREQ(c.local[1], S::days[1].pszLocalName);
        EXPECT_EQ(L"3 8:00-9:00|", Parse(L"wed 8:00-9:00")) << "parsing is the same in every locale";
    }
    S::FreeCommon(); // the next look-up builds the table again
}
