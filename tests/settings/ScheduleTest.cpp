#include "settings/Schedule.h"

#include <gtest/gtest.h>

#include <cstring>
#include <cwchar>
#include <string>

namespace {

typedef Schedule S;

// The low 32 bits of 2^64 / 10^7: what a wrapped 100-ns difference leaves behind.
const int kWrap = 2133437386;
const int kDay = 86400, kHour = 3600;

// 2024-01-07 was a Sunday, so the date matches the day of the week.
SYSTEMTIME At(S::Day day, WORD h, WORD m, WORD s = 0, WORD ms = 0)
{
    return SYSTEMTIME{2024, 1, (WORD)day, (WORD)(7 + day), h, m, s, ms};
}

// The periods of text as "day h:mm-h:mm|..." with the day's number, or "@offset" of the reported
// error. All parses share one list, so each must replace what the last one left.
std::wstring Parse(const wchar_t* text)
{
    static DMList list;
    S s;
    s.Set(text);
    if (const wchar_t* err = s.Parse(list))
        return L"@" + std::to_wstring(err - s.Get());
    std::wstring out;
    wchar_t buf[64];
    for (DMPos pos = list.GetHeadPosition(); pos;) {
        auto* p = static_cast<S::AllowedPeriod*>(list.GetNext(pos));
        swprintf(buf, 64, L"%ls%d %u:%02u-%u:%02u", out.empty() ? L"" : L"|", (int)p->day, p->wStartHour,
                 p->wStartMinute, p->wEndHour, p->wEndMinute);
        out += buf;
    }
    return out;
}

} // namespace

TEST(ScheduleParse, EntriesInTextOrderOrWhereTheTextGoesWrong)
{
    struct { const wchar_t* text; const wchar_t* want; } cases[] = {
        {L"mon 8:00-17:00", L"1 8:00-17:00"}, {L"MON 08:00 - 17:30", L"1 8:00-17:30"},
        {L"Mon  8:00\t- -\t17:00", L"1 8:00-17:00"}, {L"Mon 8:00-12:00;Tue 8:00-12:00", L"1 8:00-12:00|2 8:00-12:00"},
        {L" ,;Wed\t9:00-10:00\r\n, ;Mon\n8:00-9:00;\tWed 7:00-8:00", L"3 9:00-10:00|1 8:00-9:00|3 7:00-8:00"},
        {L"Mon 23:30-24:00", L"1 23:30-24:00"}, {L"Mon 24:00-1:00", L"1 0:00-1:00"}, {L"sun 24:30-1:00", L"0 0:30-1:00"},
        // the day word and wrong values: the entry's start
        {L"Monday 8:00-17:00", L"@0"}, {L"Mon8:00-9:00", L"@0"}, {L"Mon", L"@0"},
        {L"Mon 8:00-9:00, Tuesday 8:00-9:00", L"@15"}, {L"Tue 8:00-9:00 ; Mon 8:00-9:01", L"@16"},
        {L"Mon 8:15-9:00", L"@0"}, {L"Mon 25:00-26:00", L"@0"}, {L"Mon 8:00-24:30", L"@0"},
        {L"Mon 9:00-9:00", L"@0"}, {L"Mon 10:00-9:00", L"@0"}, {L"Mon 24:00-0:00", L"@0"},
        // syntax: where reading stopped
        {L"Mon 8-9", L"@5"}, {L"Mon 8:0-9:00", L"@7"}, {L"Mon 8:000-9:00", L"@8"}, {L"Mon 123:00-124:00", L"@6"},
        {L"", L""}, {L"Mon 8:00-", L"@9"}, {L"Mon 8:00-12:00Tue 8:00-12:00", L"@14"}, {L"Mon 8:00-12:00x", L"@14"},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "text: " << c.text);
        EXPECT_EQ(c.want, Parse(c.text));
    }
}

TEST(ScheduleSeconds, ThroughAWeek)
{
    // Fri evening chains into all of Saturday and, across the week's end, into Sunday morning.
    const wchar_t* week = L"Mon 8:00-17:00; Wed 9:30-12:00; Fri 20:00-24:00; Sat 0:00-24:00; Sun 0:00-6:00";
    const wchar_t* twoTue = L"Tue 14:00-16:00, Tue 8:00-10:00";
    struct { const wchar_t* text; SYSTEMTIME now; int seconds; } cases[] = {
        {week, At(S::Monday, 8, 0), 9 * kHour},
        {week, At(S::Monday, 16, 59, 30, 500), 60}, // seconds of the clock are not counted
        {week, At(S::Monday, 7, 0), kHour - kWrap}, // later today: wrapped
        {week, At(S::Monday, 17, 0), -(7 + 24 + 9) * kHour - 1800},
        {week, At(S::Wednesday, 12, 0), -2 * kDay - (kWrap - 8 * kHour)}, // later day, later time of day
        {week, At(S::Friday, 21, 0), 2 * kHour + 59 * 60 + 2 * kDay},
        {week, At(S::Saturday, 10, 0), 13 * kHour + 59 * 60 + kDay}, // not 20 hours: the chain's last counts whole
        {week, At(S::Saturday, 23, 59, 59, 999), kDay}, {week, At(S::Sunday, 1, 0), 5 * kHour},
        {L"Sun 9:00-10:00", At(S::Saturday, 22, 0), -11 * kHour},
        {L"Wed 10:00-11:00", At(S::Wednesday, 12, 0), -(7 * kDay - 2 * kHour)}, // next week
        // the first of the day in the text still to end counts, not the earliest or the one holding now
        {twoTue, At(S::Monday, 15, 0), -23 * kHour}, {twoTue, At(S::Tuesday, 9, 0), 5 * kHour - kWrap},
        // chaining needs the very next entry, on the next day, from 0:00
        {L"Mon 22:00-24:00, Tue 0:30-3:00", At(S::Monday, 23, 0), 59 * 60},
        {L"Mon 22:00-24:00, Mon 8:00-9:00, Tue 0:00-3:00", At(S::Monday, 23, 0), 59 * 60},
        {L"Tue 0:00-3:00, Mon 22:00-24:00", At(S::Monday, 23, 0), 59 * 60 + kDay},
        {L"Mon 0:00-24:00", At(S::Monday, 12, 0), 11 * kHour + 59 * 60},
        {L"Sun 0:00-24:00 Mon 0:00-24:00 Tue 0:00-24:00 Wed 0:00-24:00 Thu 0:00-24:00 Fri 0:00-24:00 Sat 0:00-24:00",
         At(S::Wednesday, 12, 0), 11 * kHour + 59 * 60 + 6 * kDay},
        // the whole week written twice reads as written once: a chain never passes the week
        {L"Sun 0:00-24:00 Mon 0:00-24:00 Tue 0:00-24:00 Wed 0:00-24:00 Thu 0:00-24:00 Fri 0:00-24:00 Sat 0:00-24:00 "
         L"Sun 0:00-24:00 Mon 0:00-24:00 Tue 0:00-24:00 Wed 0:00-24:00 Thu 0:00-24:00 Fri 0:00-24:00 Sat 0:00-24:00",
         At(S::Sunday, 0, 0), 23 * kHour + 59 * 60 + 6 * kDay},
        {nullptr, At(S::Monday, 3, 0), 604801}, {L"*", At(S::Monday, 3, 0), 604801}, {L" ; ", At(S::Monday, 3, 0), 604801},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "case " << &c - cases);
        S s;
        s.Set(c.text);
        wchar_t err[16];
        EXPECT_EQ(c.seconds, s.GetSecondsRemaining(&c.now, err, 16));
        EXPECT_STREQ(L"", err);
        // On while the count is not negative.
        EXPECT_EQ(c.seconds >= 0, s.IsScheduleOn(&c.now));
    }
}

TEST(ScheduleSeconds, ThousandsOfChainedDaysStayOnAndBelowAWeek)
{
    // About 25,000 whole days in a row: counted without a limit they overflow an int and the
    // schedule that is on all week would read as off.
    std::wstring text;
    const wchar_t* days[] = {L"Sun", L"Mon", L"Tue", L"Wed", L"Thu", L"Fri", L"Sat"};
    for (int i = 0; i < 25000; ++i)
        text += std::wstring(days[i % 7]) + L" 0:00-24:00 ";
    S s;
    s.Set(text.c_str());
    for (S::Day d : {S::Sunday, S::Wednesday, S::Saturday}) {
        SYSTEMTIME now = At(d, 12, 0);
        SCOPED_TRACE(testing::Message() << "day " << d);
        EXPECT_EQ(11 * kHour + 59 * 60 + 6 * kDay, s.GetSecondsRemaining(&now, nullptr, 0));
        EXPECT_EQ(1, s.IsScheduleOn(&now));
    }
}

TEST(ScheduleSeconds, BrokenTextReportsItsTail)
{
    S s;
    s.Set(L"Mon 8:00-9:00, Tue 8:15-9:00");
    SYSTEMTIME now = At(S::Monday, 8, 30);
    wchar_t err[32];
    EXPECT_EQ(-604801, s.GetSecondsRemaining(&now, err, 32));
    EXPECT_STREQ(L"Tue 8:15-9:00", err);
    memset(err, 0xbd, sizeof err);
    EXPECT_EQ(-604801, s.GetSecondsRemaining(&now, err, 5));
    EXPECT_EQ(std::wstring(L"Tue \0\xbdbd", 6), std::wstring(err, 6)) << "cut, terminated, nothing beyond";
    EXPECT_EQ(-604801, s.GetSecondsRemaining(&now, nullptr, 0));
    EXPECT_EQ(1, s.IsScheduleOn(&now)) << "a broken schedule never stops the monitoring";
}

TEST(ScheduleText, SetGetAndTheStandardSchedule)
{
    S s;
    wchar_t text[] = L"mon 8:00-9:00";
    EXPECT_EQ(1, s.Set(text));
    text[0] = L'X'; // an owned copy
    EXPECT_EQ(1, s.Set(s.Get())); // how settings are duplicated
    EXPECT_STREQ(L"mon 8:00-9:00", s.Get());
    EXPECT_EQ(0, s.IsDefault());
    s.Set(L"*");
    EXPECT_EQ(S::pszStdSch, s.Get()) << "none stored";
    EXPECT_EQ(1, s.IsDefault());
}
