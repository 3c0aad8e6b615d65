// The day table under real locale data. Wine takes a process's locale from its Unix
// environment at start-up, so the look-up is pointed at GetLocaleInfoW for a chosen locale
// instead of relaunching the tests.
#include "settings/Schedule.h"

#include <gtest/gtest.h>

#include "support/Guards.h"

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
    vxtest::ScopedValue<S::LocaleInfoFn> lookup{S::pfnGetLocaleInfo, &FakeLocaleInfo};
    // The day table is built once per process: drop the one this locale built.
    void TearDown() override { S::FreeCommon(); }
};

} // namespace

TEST_F(ScheduleLocale, WeekOrderAndNamesOfTheLocale)
{
    static const wchar_t* const english[] = {L"Sunday", L"Monday", L"Tuesday", L"Wednesday", L"Thursday", L"Friday", L"Saturday"};
    struct { LCID lcid; unsigned long failItem; int canDisplay; const wchar_t* local[7]; } cases[] = {
        {0x0409, 0, 1, {L"Sunday", L"Monday", L"Tuesday", L"Wednesday", L"Thursday", L"Friday", L"Saturday"}},
        {0x0407, 0, 1, {L"Montag", L"Dienstag", L"Mittwoch", L"Donnerstag", L"Freitag", L"Samstag", L"Sonntag"}},
        // no first day of the week: Sunday first
        {0x0407, LOCALE_IFIRSTDAYOFWEEK, 1, {L"Sonntag", L"Montag", L"Dienstag", L"Mittwoch", L"Donnerstag", L"Freitag", L"Samstag"}},
        // a day name that cannot be read: no local names shown, the table still serves parsing
        {0x0409, LOCALE_SDAYNAME3, 0, {L"Sunday", L"Monday", L"Tuesday", nullptr, L"Thursday", L"Friday", L"Saturday"}},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        S::FreeCommon();
        gLcid = c.lcid;
        gFailItem = c.failItem;
        S::InitCommon();
        EXPECT_EQ(c.canDisplay, S::CanDisplayLocalDays());
        int first = c.lcid == 0x0407 && !c.failItem ? S::Monday : S::Sunday;
        for (int i = 0; i < 7; ++i) {
            int d = (first + i) % 7;
            EXPECT_EQ(d, S::days[i].day);
            EXPECT_STREQ(english[d], S::days[i].pszEnglishName);
            EXPECT_EQ(std::wstring(english[d], 3), S::days[i].pszAbbrev);
            EXPECT_STREQ(c.local[i], S::days[i].pszLocalName) << "row " << i;
            EXPECT_EQ(i, S::FindDayIndex((S::Day)d));
        }
        S s;
        s.Set(L"wed 8:00-9:00");
        DMList list;
        EXPECT_EQ(nullptr, s.Parse(list));
    }
    // Built once until freed: another locale changes nothing.
    gLcid = 0x0407;
    S::InitCommon();
    EXPECT_STREQ(L"Sunday", S::days[0].pszLocalName);
}
