#include "settings/Schedule.h"

#include <gtest/gtest.h>

#include <cstring>
#include <cwchar>
#include <string>

namespace {

typedef Schedule S;

// The low 32 bits of 2^64 / 10^7: what a wrapped 100-ns difference leaves behind.
const int kWrap = 2133437386;
static_assert((unsigned)(~0ull / 10000000ull) == (unsigned)kWrap, "wrap constant");
const int kDay = 86400, kHour = 3600;

// 2024-01-07 was a Sunday, so the date matches the day of the week.
SYSTEMTIME At(S::Day day, WORD h, WORD m, WORD s = 0, WORD ms = 0)
{
    SYSTEMTIME st = {2024, 1, (WORD)day, (WORD)(7 + day), h, m, s, ms};
    return st;
}

std::wstring Dump(DMList& list)
{
    static const wchar_t* names[] = {L"Sun", L"Mon", L"Tue", L"Wed", L"Thu", L"Fri", L"Sat"};
    std::wstring out;
    wchar_t buf[64];
    for (DMPos pos = list.GetHeadPosition(); pos;) {
        auto* p = static_cast<S::AllowedPeriod*>(list.GetNext(pos));
        swprintf(buf, 64, L"%ls%ls %u:%02u-%u:%02u", out.empty() ? L"" : L"|", names[p->day], p->wStartHour,
                 p->wStartMinute, p->wEndHour, p->wEndMinute);
        out += buf;
    }
    return out;
}

// Parses text into list; -1 on success, else the offset of the reported position.
long ParseAt(const wchar_t* text, DMList& list)
{
    S s;
    s.Set(text);
    const wchar_t* err = s.Parse(list);
    return err ? (long)(err - s.Get()) : -1;
}

} // namespace

TEST(ScheduleParse, AcceptsEntriesInTextOrder)
{
    struct { const wchar_t* text; const wchar_t* periods; } cases[] = {
        {L"mon 8:00-17:00", L"Mon 8:00-17:00"}, {L"MON 08:00 - 17:30", L"Mon 8:00-17:30"},
        {L"Mon 8:00 17:00", L"Mon 8:00-17:00"}, {L"Mon  8:00\t- -\t17:00", L"Mon 8:00-17:00"},
        {L"Mon 8:00-12:00;Tue 8:00-12:00", L"Mon 8:00-12:00|Tue 8:00-12:00"},
        {L" ,;Mon\t8:00-9:00\r\n, ;Tue\n9:00-10:00;\t", L"Mon 8:00-9:00|Tue 9:00-10:00"},
        {L"Wed 9:00-10:00 Mon 8:00-9:00 Wed 7:00-8:00", L"Wed 9:00-10:00|Mon 8:00-9:00|Wed 7:00-8:00"},
        {L"Mon 23:30-24:00", L"Mon 23:30-24:00"}, {L"Mon 24:00-1:00", L"Mon 0:00-1:00"},
        {L"sun 24:30-1:00", L"Sun 0:30-1:00"}, {L"Sat 24:00-24:00", L"Sat 0:00-24:00"},
        {L"", L""}, {L" ;, ", L""},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "text: " << c.text);
        DMList list;
        EXPECT_EQ(-1, ParseAt(c.text, list));
        EXPECT_EQ(c.periods, Dump(list));
    }
}

TEST(ScheduleParse, ReportsWhereTheTextGoesWrong)
{
    struct { const wchar_t* text; long at; const wchar_t* before; } cases[] = {
        // the day word: three letters and white space, English abbreviations only
        {L"Monday 8:00-17:00", 0, L""}, {L"Mo 8:00-9:00", 0, L""}, {L"Mon8:00-9:00", 0, L""},
        {L"Montag 8:00-9:00", 0, L""}, {L"Xyz 8:00-9:00", 0, L""}, {L"Mon", 0, L""},
        {L" *", 1, L""},
        {L"Mon 8:00-9:00, Tuesday 8:00-9:00", 15, L"Mon 8:00-9:00"},
        // values: the entry's start
        {L"Mon 8:15-9:00", 0, L""}, {L"Mon 8:00-9:45", 0, L""}, {L"Tue 8:00-9:00 ; Mon 8:00-9:01", 16, L"Tue 8:00-9:00"},
        {L"Mon 25:00-26:00", 0, L""}, {L"Mon 8:00-24:30", 0, L""}, {L"Mon 8:00-25:00", 0, L""},
        {L"Mon 9:00-9:00", 0, L""}, {L"Mon 10:00-9:00", 0, L""}, {L"Mon 9:30-9:00", 0, L""},
        {L"Mon 24:00-0:00", 0, L""},
        // syntax: where reading stopped
        {L"Mon 8-9", 5, L""}, {L"Mon :00-9:00", 4, L""}, {L"Mon 8:0-9:00", 7, L""},
        {L"Mon 8:000-9:00", 8, L""}, {L"Mon 123:00-124:00", 6, L""}, {L"Mon 8.00-9:00", 5, L""},
        {L"Mon 8:00-", 9, L""}, {L"Mon 8:00,9:00", 8, L""},
        {L"Mon 8:00-12:00Tue 8:00-12:00", 14, L"Mon 8:00-12:00"}, {L"Mon 8:00-12:00x", 14, L"Mon 8:00-12:00"},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "text: " << c.text);
        DMList list;
        EXPECT_EQ(c.at, ParseAt(c.text, list));
        EXPECT_EQ(c.before, Dump(list));
    }
}

TEST(ScheduleParse, RepeatedParseReplacesTheList)
{
    DMList list;
    ParseAt(L"Mon 8:00-9:00 Tue 8:00-9:00 Wed 8:00-9:00", list);
    EXPECT_EQ(-1, ParseAt(L"Fri 1:00-2:00", list));
    EXPECT_EQ(L"Fri 1:00-2:00", Dump(list));
}

TEST(ScheduleFind, CurrentOrNextPeriodAndFollowingPeriod)
{
    DMList list, single, none;
    ASSERT_EQ(-1, ParseAt(L"Mon 13:00-14:00, Mon 8:00-9:00, Wed 10:00-11:00, Wed 7:00-8:00", list));
    auto at = [&](unsigned i) { return (S::AllowedPeriod*)list.GetAt(list.FindIndex(i)); };
    // The first period of the day still to end wins, even over one holding the time.
    EXPECT_EQ(at(0), S::FindAllowedPeriod(list, S::Monday, 8, 30));
    // Later days: the first period of that day in the text, not its earliest.
    EXPECT_EQ(at(2), S::FindAllowedPeriod(list, S::Monday, 14, 0));
    EXPECT_EQ(at(0), S::FindAllowedPeriod(list, S::Wednesday, 11, 0));
    EXPECT_EQ(nullptr, S::FindAllowedPeriod(list, (S::Day)7, 0, 0));
    EXPECT_EQ(at(2), S::FindNextAllowedPeriod(list, at(1)));
    EXPECT_EQ(at(0), S::FindNextAllowedPeriod(list, at(3)));
    S::AllowedPeriod stranger = {S::Monday, 1, 0, 2, 0};
    EXPECT_EQ(at(0), S::FindNextAllowedPeriod(list, &stranger));

    ASSERT_EQ(-1, ParseAt(L"Mon 8:00-9:00", single));
    auto* only = (S::AllowedPeriod*)single.GetAt(single.GetHeadPosition());
    EXPECT_EQ(only, S::FindAllowedPeriod(single, S::Monday, 10, 0)); // the same day a week on
    EXPECT_EQ(nullptr, S::FindAllowedPeriod(none, S::Monday, 10, 0));
}

TEST(ScheduleSeconds, ThroughAWeek)
{
    // Fri evening chains into all of Saturday and, across the week's end, into Sunday morning.
    const wchar_t* week = L"Mon 8:00-17:00; Wed 9:30-12:00; Fri 20:00-24:00; Sat 0:00-24:00; Sun 0:00-6:00";
    struct { const wchar_t* text; SYSTEMTIME now; int seconds; } cases[] = {
        {week, At(S::Monday, 8, 0), 9 * kHour},
        {week, At(S::Monday, 16, 59, 30, 500), 60}, // seconds of the clock are not counted
        {week, At(S::Monday, 7, 0), kHour - kWrap}, // later today: wrapped
        {week, At(S::Monday, 17, 0), -(7 + 24 + 9) * kHour - 1800},
        {week, At(S::Wednesday, 12, 0), -2 * kDay - (kWrap - 8 * kHour)}, // later day, later time of day
        {week, At(S::Friday, 19, 30), 1800 - kWrap},
        {week, At(S::Friday, 21, 0), 2 * kHour + 59 * 60 + 2 * kDay},
        {week, At(S::Friday, 23, 59, 59), 2 * kDay},
        {week, At(S::Saturday, 10, 0), 13 * kHour + 59 * 60 + kDay}, // not 20 hours: the chain's last counts whole
        {week, At(S::Sunday, 1, 0), 5 * kHour},
        {week, At(S::Sunday, 6, 0), -kDay - (kWrap - 2 * kHour)},
        {week, At(S::Sunday, 23, 0), -9 * kHour},
        {L"Sun 9:00-10:00", At(S::Saturday, 22, 0), -11 * kHour},
        {L"Wed 10:00-11:00", At(S::Wednesday, 12, 0), -(7 * kDay - 2 * kHour)}, // next week
        {L"Wed 10:00-11:00", At(S::Wednesday, 9, 0), kHour - kWrap},
        // several entries for one day: the first in the text counts
        {L"Tue 14:00-16:00, Tue 8:00-10:00", At(S::Monday, 15, 0), -23 * kHour},
        {L"Tue 14:00-16:00, Tue 8:00-10:00", At(S::Monday, 12, 0), -kDay - (kWrap - 2 * kHour)},
        {L"Tue 14:00-16:00, Tue 8:00-10:00", At(S::Tuesday, 9, 0), 5 * kHour - kWrap},
        // chaining needs the very next entry, on the next day, from 0:00
        {L"Mon 22:00-24:00, Wed 0:00-3:00", At(S::Monday, 23, 0), 59 * 60},
        {L"Mon 22:00-24:00, Tue 0:30-3:00", At(S::Monday, 23, 0), 59 * 60},
        {L"Mon 22:00-24:00, Mon 8:00-9:00, Tue 0:00-3:00", At(S::Monday, 23, 0), 59 * 60},
        {L"Tue 0:00-3:00, Mon 22:00-24:00", At(S::Monday, 23, 0), 59 * 60 + kDay},
        {L"Mon 0:00-24:00", At(S::Monday, 12, 0), 11 * kHour + 59 * 60},
        {L"Sun 0:00-24:00 Mon 0:00-24:00 Tue 0:00-24:00 Wed 0:00-24:00 Thu 0:00-24:00 Fri 0:00-24:00 Sat 0:00-24:00",
         At(S::Wednesday, 12, 0), 11 * kHour + 59 * 60 + 6 * kDay},
        // the standard schedule and texts without periods never change
        {nullptr, At(S::Monday, 3, 0), 604801}, {L"*", At(S::Monday, 3, 0), 604801},
        {L"", At(S::Monday, 3, 0), 604801}, {L" ; ", At(S::Monday, 3, 0), 604801},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "text: " << (c.text ? c.text : L"(none)") << " day "
                                        << c.now.wDayOfWeek << " " << c.now.wHour << ":" << c.now.wMinute);
        S s;
        s.Set(c.text);
        wchar_t err[16];
        EXPECT_EQ(c.seconds, s.GetSecondsRemaining(&c.now, err, 16));
        EXPECT_STREQ(L"", err);
    }
}

TEST(ScheduleSeconds, BrokenTextReportsItsTail)
{
    S s;
    s.Set(L"Mon 8:00-9:00, Tue 8:15-9:00");
    SYSTEMTIME now = At(S::Monday, 8, 30);
    wchar_t err[32];
    memset(err, 0xbd, sizeof err);
    EXPECT_EQ(-604801, s.GetSecondsRemaining(&now, err, 32));
    EXPECT_STREQ(L"Tue 8:15-9:00", err);
    memset(err, 0xbd, sizeof err);
    EXPECT_EQ(-604801, s.GetSecondsRemaining(&now, err, 5));
    EXPECT_STREQ(L"Tue ", err);
    wchar_t fill;
    memset(&fill, 0xbd, sizeof fill);
    EXPECT_EQ(fill, err[5]);
    EXPECT_EQ(-604801, s.GetSecondsRemaining(&now, err, 0));
    EXPECT_EQ(-604801, s.GetSecondsRemaining(&now, nullptr, 0));
}

TEST(ScheduleOn, SignOfTheSecondsAndBrokenTextsAreOn)
{
    const wchar_t* week = L"Mon 8:00-17:00; Fri 20:00-24:00; Sat 0:00-24:00";
    struct { const wchar_t* text; SYSTEMTIME now; int on; } cases[] = {
        {nullptr, At(S::Sunday, 3, 0), 1}, {L"Mon 8:00-9:00 Tuesday 1:00-2:00", At(S::Sunday, 3, 0), 1},
        {week, At(S::Monday, 8, 0), 1}, {week, At(S::Monday, 17, 0), 0}, {week, At(S::Monday, 7, 59), 0},
        {week, At(S::Thursday, 21, 0), 0}, {week, At(S::Sunday, 7, 0), 0}, {week, At(S::Saturday, 23, 59, 59, 999), 1},
        {L"Tue 14:00-16:00, Tue 8:00-10:00", At(S::Tuesday, 9, 0), 0},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "text: " << (c.text ? c.text : L"(none)") << " day "
                                        << c.now.wDayOfWeek << " " << c.now.wHour << ":" << c.now.wMinute);
        S s;
        s.Set(c.text);
        EXPECT_EQ(c.on, s.IsScheduleOn(&c.now));
    }
}

TEST(ScheduleText, SetGetAndTheStandardSchedule)
{
    S s;
    EXPECT_EQ(S::pszStdSch, s.Get());
    EXPECT_STREQ(L"*", s.Get());
    wchar_t text[] = L"mon 8:00-9:00";
    EXPECT_EQ(1, s.Set(text));
    text[0] = L'X'; // an owned copy
    EXPECT_EQ(1, s.Set(s.Get())); // its own text
    EXPECT_STREQ(L"mon 8:00-9:00", s.Get());
    EXPECT_EQ(0, s.IsDefault());
    s.Set(L"*");
    EXPECT_EQ(S::pszStdSch, s.Get()); // none stored
    s.Set(L" *");
    EXPECT_EQ(0, s.IsDefault());
    s.Set(L"");
    EXPECT_EQ(1, s.IsDefault());
    s.Free();
    EXPECT_EQ(S::pszStdSch, s.Get());
}
