// The day table under real locale data. Wine takes a process's locale from its Unix
// environment at start-up (child processes inherit the parent's), so the look-up is pointed at
// GetLocaleInfoW for a chosen locale instead of relaunching the tests.
#include "settings/Schedule.h"

#include <gtest/gtest.h>

namespace {

typedef Schedule S;

LCID gLcid = 0x0409;
unsigned long gFailItem = 0; // this item's look-up fails

int FakeLocaleInfo(unsigned long item, wchar_t* buf, int cch)
{
    if (item == gFailItem) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    return GetLocaleInfoW(gLcid, item, buf, cch);
}

class ScheduleLocale : public testing::Test {
protected:
    void SetUp() override
    {
        saved = S::pfnGetLocaleInfo;
        S::FreeCommon();
        S::pfnGetLocaleInfo = &FakeLocaleInfo;
        gLcid = 0x0409;
        gFailItem = 0;
    }
    void TearDown() override
    {
        S::pfnGetLocaleInfo = saved;
        S::FreeCommon();
    }
    // Row i holds day (first + i) % 7; local names as given (null: not checked).
    void ExpectTable(S::Day first, const wchar_t* const* local)
    {
        static const wchar_t* const english[] = {L"Sunday", L"Monday", L"Tuesday", L"Wednesday", L"Thursday", L"Friday", L"Saturday"};
        static const wchar_t* const abbrev[] = {L"Sun", L"Mon", L"Tue", L"Wed", L"Thu", L"Fri", L"Sat"};
        for (int i = 0; i < 7; ++i) {
            SCOPED_TRACE(testing::Message() << "row " << i);
            int d = (first + i) % 7;
            EXPECT_EQ(d, S::days[i].day);
            EXPECT_STREQ(english[d], S::days[i].pszEnglishName);
            EXPECT_STREQ(abbrev[d], S::days[i].pszAbbrev);
            EXPECT_EQ(i, S::FindDayIndex((S::Day)d));
            if (local) {
                EXPECT_STREQ(local[i], S::days[i].pszLocalName);
            }
        }
    }
    S::LocaleInfoFn saved;
};

} // namespace

TEST_F(ScheduleLocale, WeekOrderAndNamesOfTheLocale)
{
    const wchar_t* en[] = {L"Sunday", L"Monday", L"Tuesday", L"Wednesday", L"Thursday", L"Friday", L"Saturday"};
    S::InitCommon();
    ExpectTable(S::Sunday, en);
    EXPECT_EQ(1, S::CanDisplayLocalDays());
    EXPECT_EQ(-1, S::FindDayIndex(S::NoDay));

    S::FreeCommon();
    gLcid = 0x0407; // de-DE
    const wchar_t* de[] = {L"Montag", L"Dienstag", L"Mittwoch", L"Donnerstag", L"Freitag", L"Samstag", L"Sonntag"};
    S::InitCommon();
    ExpectTable(S::Monday, de);
    EXPECT_EQ(1, S::CanDisplayLocalDays());
}

TEST_F(ScheduleLocale, FailedLookUps)
{
    // A day name that cannot be read: no local names shown, the table still serves parsing.
    gFailItem = LOCALE_SDAYNAME3; // Wednesday
    S::InitCommon();
    EXPECT_EQ(0, S::CanDisplayLocalDays());
    ExpectTable(S::Sunday, nullptr);
    EXPECT_EQ(nullptr, S::days[3].pszLocalName);
    EXPECT_STREQ(L"Thursday", S::days[4].pszLocalName);
    S s;
    s.Set(L"wed 8:00-9:00");
    DMList list;
    EXPECT_EQ(nullptr, s.Parse(list));

    // No first day of the week: Sunday first.
    S::FreeCommon();
    gLcid = 0x0407;
    gFailItem = LOCALE_IFIRSTDAYOFWEEK;
    S::InitCommon();
    const wchar_t* de[] = {L"Sonntag", L"Montag", L"Dienstag", L"Mittwoch", L"Donnerstag", L"Freitag", L"Samstag"};
    ExpectTable(S::Sunday, de);
    EXPECT_EQ(1, S::CanDisplayLocalDays());
}

TEST_F(ScheduleLocale, BuiltOnceUntilFreed)
{
    gLcid = 0x0407;
    S::InitCommon();
    gLcid = 0x0409;
    gFailItem = LOCALE_SDAYNAME1;
    S::InitCommon(); // already built: nothing changes
    EXPECT_STREQ(L"Montag", S::days[0].pszLocalName);
    EXPECT_EQ(1, S::CanDisplayLocalDays());

    S::FreeCommon();
    for (auto& row : S::days)
        EXPECT_EQ(nullptr, row.pszLocalName);
    S::InitCommon();
    EXPECT_EQ(0, S::CanDisplayLocalDays());
    S::FreeCommon();
    gFailItem = 0;
    S::InitCommon();
    EXPECT_EQ(1, S::CanDisplayLocalDays());
    EXPECT_STREQ(L"Monday", S::days[1].pszLocalName);
}

TEST_F(ScheduleLocale, DefaultLookUpFollowsTheUserLocale)
{
    S::pfnGetLocaleInfo = saved;
    wchar_t name[LOCALE_NAME_MAX_LENGTH];
    ASSERT_GT(GetUserDefaultLocaleName(name, LOCALE_NAME_MAX_LENGTH), 0);
    S::InitCommon();
    if (!lstrcmpW(name, L"en-US")) {
        EXPECT_EQ(S::Sunday, S::days[0].day);
        EXPECT_STREQ(L"Sunday", S::days[0].pszLocalName);
    } else if (!lstrcmpW(name, L"de-DE")) {
        EXPECT_EQ(S::Monday, S::days[0].day);
        EXPECT_STREQ(L"Montag", S::days[0].pszLocalName);
    } else {
        GTEST_SKIP() << "no expectations for the locale " << name;
    }
}
