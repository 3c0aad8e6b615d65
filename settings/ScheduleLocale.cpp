// The locale half of the schedule: the shared day table with the user's own day names, in the
// order in which the user's locale lays out the week (the schedule grid shows it that way).
#include "settings/Schedule.h"

#include "base/StrUtil.h"

Schedule::LocaleInfoFn Schedule::pfnGetLocaleInfo = &Schedule::GetUserLocaleInfo;

int Schedule::GetUserLocaleInfo(unsigned long lcType, wchar_t* pszData, int cchData)
{
    return GetLocaleInfoW(LOCALE_USER_DEFAULT, (LCTYPE)lcType, pszData, cchData);
}

namespace {

// Indexed like the locale's day items: 0 is Monday (LOCALE_SDAYNAME1) ... 6 is Sunday.
struct LocaleDay {
    const wchar_t* pszEnglishName;
    const wchar_t* pszAbbrev;
    Schedule::Day day;
};
const LocaleDay localeDays[7] = {
    {L"Monday", L"Mon", Schedule::Monday},       {L"Tuesday", L"Tue", Schedule::Tuesday},
    {L"Wednesday", L"Wed", Schedule::Wednesday}, {L"Thursday", L"Thu", Schedule::Thursday},
    {L"Friday", L"Fri", Schedule::Friday},       {L"Saturday", L"Sat", Schedule::Saturday},
    {L"Sunday", L"Sun", Schedule::Sunday},
};

} // namespace

void Schedule::InitCommon()
{
    if (bInitCommonCalled)
        return;
    bInitCommonCalled = 1;
    bCanDisplayLocalDays = 1;

    // The first day of the week: "0" is Monday ... "6" is Sunday; Sunday when unknown.
    int nFirst = 6;
    wchar_t szFirst[16];
    if (pfnGetLocaleInfo(LOCALE_IFIRSTDAYOFWEEK, szFirst, 16) > 0 && szFirst[0] >= L'0' && szFirst[0] <= L'6' &&
        szFirst[1] == 0)
        nFirst = szFirst[0] - L'0';

    for (int i = 0; i < 7; ++i) {
        int n = (nFirst + i) % 7;
        SchDay& row = days[i];
        StrFree(row.pszLocalName);
        row.pszLocalName = nullptr;
        wchar_t szName[256];
        if (pfnGetLocaleInfo(LOCALE_SDAYNAME1 + n, szName, 256) > 0)
            row.pszLocalName = StrDup(szName);
        if (!row.pszLocalName)
            bCanDisplayLocalDays = 0;
        row.pszEnglishName = localeDays[n].pszEnglishName;
        row.pszAbbrev = localeDays[n].pszAbbrev;
        row.day = localeDays[n].day;
    }
}
