#include "settings/Schedule.h"

#include <new>

#include "base/StrUtil.h"

const wchar_t* const Schedule::pszStdSch = L"*";

// Sunday first, as InitCommon also starts when the locale cannot tell; the local names are
// filled in by InitCommon.
Schedule::SchDay Schedule::days[7] = {
    {nullptr, L"Sunday", L"Sun", Schedule::Sunday},
    {nullptr, L"Monday", L"Mon", Schedule::Monday},
    {nullptr, L"Tuesday", L"Tue", Schedule::Tuesday},
    {nullptr, L"Wednesday", L"Wed", Schedule::Wednesday},
    {nullptr, L"Thursday", L"Thu", Schedule::Thursday},
    {nullptr, L"Friday", L"Fri", Schedule::Friday},
    {nullptr, L"Saturday", L"Sat", Schedule::Saturday},
};
int Schedule::bCanDisplayLocalDays = 1;
int Schedule::bInitCommonCalled = 0;

namespace {

const int nSecondsPerDay = 86400;
// The days a chain of whole-day periods may add after today's: the rest of the week.
const int nMaxChainedDays = 6;
const unsigned long long nTicksPerSecond = 10000000; // the system time's 100-ns units

bool IsBlank(wchar_t c) { return c == L' ' || c == L'\t' || c == L'\n' || c == L'\r'; }
bool IsSeparator(wchar_t c) { return IsBlank(c) || c == L',' || c == L';'; }
bool IsDigit(wchar_t c) { return c >= L'0' && c <= L'9'; }

unsigned DigitsValue(const wchar_t* psz)
{
    unsigned n = 0;
    for (; *psz; ++psz)
        n = n * 10 + (unsigned)(*psz - L'0');
    return n;
}

// A time of today that keeps the seconds and milliseconds of now and takes only hour and
// minute from the schedule, in 100-ns units from midnight. Differences between two of them are
// therefore whole minutes: the schedule counts in minutes, not in the seconds of the clock.
unsigned long long TimeOfDay(const SYSTEMTIME& now, unsigned hour, unsigned minute)
{
    unsigned long long ms = ((hour * 60ull + minute) * 60 + now.wSecond) * 1000 + now.wMilliseconds;
    return ms * 10000;
}

// Seconds from start to now, the difference taken without sign and cut to 32 bits. While now
// is at or past start this is the plain number of seconds; before start it wraps to
// 2133437386 minus the seconds to go (the low 32 bits of 2^64 / 10^7, less the gap).
int UnsignedSecondsSince(unsigned long long now, unsigned long long start)
{
    return (int)(unsigned)((now - start) / nTicksPerSecond);
}

bool EndsAfter(const Schedule::AllowedPeriod* p, unsigned hour, unsigned minute)
{
    return p->wEndHour > hour || (p->wEndHour == hour && p->wEndMinute > minute);
}

} // namespace

int Schedule::Set(const wchar_t* psz)
{
    wchar_t* pszNew = nullptr;
    // Only the exact "*" means "standard"; other texts, whatever their case, are kept as typed.
    if (psz && !StrEqual(psz, pszStdSch)) {
        pszNew = StrDup(psz);
        if (!pszNew)
            return 0;
    }
    Free();
    pszSchedule = pszNew;
    return 1;
}

void Schedule::Free()
{
    StrFree(pszSchedule);
    pszSchedule = nullptr;
}

int Schedule::IsDefault() const
{
    return StrIsEmpty(pszSchedule) || StrEqualNoCase(pszSchedule, pszStdSch);
}

void Schedule::DestroyPeriod(void* pItem) { delete static_cast<AllowedPeriod*>(pItem); }

void Schedule::Purge(DMList& periods)
{
    // The list owns its periods from now on, so it also frees them when it is destroyed.
    periods.SetDestroy(&Schedule::DestroyPeriod);
    periods.RemoveAll();
}

const wchar_t* Schedule::ParseTime(wchar_t* pszHours, wchar_t* pszMinutes, const wchar_t*& p)
{
    pszHours[0] = 0;
    pszMinutes[0] = 0;
    unsigned n = 0;
    while (n < 2 && IsDigit(*p))
        pszHours[n++] = *p++;
    pszHours[n] = 0;
    if (n == 0 || *p != L':')
        return p;
    ++p;
    for (n = 0; n < 2; ++n) {
        if (!IsDigit(*p)) {
            pszMinutes[n] = 0;
            return p;
        }
        pszMinutes[n] = *p++;
    }
    pszMinutes[2] = 0;
    // Exactly two digits of minutes: "8:000" is not a time.
    if (IsDigit(*p))
        return p;
    return nullptr;
}

const wchar_t* Schedule::Parse(DMList& periods) const
{
    Purge(periods);
    const wchar_t* p = pszSchedule ? pszSchedule : L"";
    while (IsSeparator(*p))
        ++p;
    while (*p) {
        const wchar_t* pEntry = p;

        // The day word: exactly three characters and white space. Local day names and full
        // English names are refused here, so a text means the same in every locale.
        wchar_t szDay[4];
        unsigned n = 0;
        while (n < 3 && p[n]) {
            szDay[n] = p[n];
            ++n;
        }
        szDay[n] = 0;
        if (n < 3 || !IsBlank(p[3]))
            return pEntry;
        Day day = FindDay(szDay);
        if (day == NoDay)
            return pEntry;
        p += 3;
        while (IsBlank(*p))
            ++p;

        wchar_t szStartHour[3], szStartMinute[3], szEndHour[3], szEndMinute[3];
        if (const wchar_t* pError = ParseTime(szStartHour, szStartMinute, p))
            return pError;
        while (IsBlank(*p) || *p == L'-')
            ++p;
        if (const wchar_t* pError = ParseTime(szEndHour, szEndMinute, p))
            return pError;

        // Half-hour grain; a start of 24:xx is the next day's midnight hour, read as 0.
        unsigned startHour = DigitsValue(szStartHour), startMinute = DigitsValue(szStartMinute);
        unsigned endHour = DigitsValue(szEndHour), endMinute = DigitsValue(szEndMinute);
        if ((startMinute != 0 && startMinute != 30) || (endMinute != 0 && endMinute != 30))
            return pEntry;
        if (startHour > 24)
            return pEntry;
        if (startHour == 24)
            startHour = 0;
        if (endHour > 24 || (endHour == 24 && endMinute != 0) || endHour < startHour)
            return pEntry;
        if (endHour * 60 + endMinute <= startHour * 60 + startMinute)
            return pEntry;

        AllowedPeriod* pPeriod = new (std::nothrow) AllowedPeriod;
        if (!pPeriod)
            return pEntry;
        pPeriod->day = day;
        pPeriod->wStartHour = (WORD)startHour;
        pPeriod->wStartMinute = (WORD)startMinute;
        pPeriod->wEndHour = (WORD)endHour;
        pPeriod->wEndMinute = (WORD)endMinute;
        if (!periods.AddTail(pPeriod)) {
            delete pPeriod;
            return pEntry;
        }

        // At least one separator before the next entry: "Mon 8:00-12:00Tue 8:00-12:00" is
        // refused where the second entry begins.
        if (*p && !IsSeparator(*p))
            return p;
        while (IsSeparator(*p))
            ++p;
    }
    return nullptr;
}

Schedule::Day Schedule::FindDay(const wchar_t* pszAbbrev)
{
    if (!pszAbbrev)
        return NoDay;
    for (const SchDay& row : days)
        if (StrEqualNoCase(pszAbbrev, row.pszAbbrev))
            return row.day;
    return NoDay;
}

int Schedule::FindDayIndex(Day day)
{
    for (int i = 0; i < 7; ++i)
        if (days[i].day == day)
            return i;
    return -1;
}

Schedule::Day Schedule::GetNextDay(Day day)
{
    if (day < Sunday || day > Saturday)
        return NoDay;
    return day == Saturday ? Sunday : (Day)(day + 1);
}

Schedule::AllowedPeriod* Schedule::FindAllowedPeriod(DMList& periods, Day day, WORD wHour, WORD wMinute)
{
    for (DMPos pos = periods.GetHeadPosition(); pos;) {
        AllowedPeriod* p = static_cast<AllowedPeriod*>(periods.GetNext(pos));
        if (p->day == day && EndsAfter(p, wHour, wMinute))
            return p;
    }
    // The next day that has any period gives its first period in the order of the text, which
    // is not necessarily its earliest one. The search ends with the same day a week on.
    Day next = day;
    for (int i = 0; i < 7; ++i) {
        next = GetNextDay(next);
        if (next == NoDay)
            break;
        for (DMPos pos = periods.GetHeadPosition(); pos;) {
            AllowedPeriod* p = static_cast<AllowedPeriod*>(periods.GetNext(pos));
            if (p->day == next)
                return p;
        }
    }
    return nullptr;
}

Schedule::AllowedPeriod* Schedule::FindNextAllowedPeriod(DMList& periods, AllowedPeriod* pPeriod)
{
    DMPos pos = periods.Find(pPeriod);
    if (pos) {
        periods.GetNext(pos);
        if (pos)
            return static_cast<AllowedPeriod*>(periods.GetAt(pos));
    }
    return static_cast<AllowedPeriod*>(periods.GetAt(periods.GetHeadPosition()));
}

int Schedule::GetSecondsRemaining(const SYSTEMTIME* pNow, wchar_t* pszError, unsigned cchError) const
{
    if (pszError && cchError)
        pszError[0] = 0;
    if (IsDefault())
        return nSecondsNoChange;

    DMList periods(&Schedule::DestroyPeriod);
    if (const wchar_t* pError = Parse(periods)) {
        if (pszError)
            StrCopy(pszError, cchError, pError);
        return nSecondsBadText;
    }
    if (!pNow || pNow->wDayOfWeek > Saturday || pNow->wHour > 23 || pNow->wMinute > 59)
        return nSecondsBadText; // a moment that is no time of the week cannot turn monitoring off

    const SYSTEMTIME& now = *pNow;
    Day today = (Day)now.wDayOfWeek;
    AllowedPeriod* p = FindAllowedPeriod(periods, today, now.wHour, now.wMinute);
    if (!p)
        return nSecondsNoChange; // only separators: nothing to change, like an empty text

    unsigned long long tNow = TimeOfDay(now, now.wHour, now.wMinute);
    unsigned long long tStart = TimeOfDay(now, p->wStartHour, p->wStartMinute);

    // Days from today to the period's day; a period of today that is over already comes
    // round again in a week.
    int nDays = 0;
    if (p->day != today || !EndsAfter(p, now.wHour, now.wMinute)) {
        Day d = today;
        do {
            d = GetNextDay(d);
            ++nDays;
        } while (d != p->day);
    }

    if (nDays > 0) {
        // Off until a later day. With today's clock past the period's start time of day this is
        // exactly minus the seconds until it starts. With the start time of day still ahead
        // the difference wraps as in the case below: the answer stays negative (off), but its
        // size means nothing.
        int nSince = UnsignedSecondsSince(tNow, tStart);
        if (tStart <= tNow)
            return -nSecondsPerDay * nDays + nSince;
        return -nSecondsPerDay * nDays - nSince;
    }

    if (tStart > tNow) {
        // Off until later today. The unsigned difference wraps: the answer is the seconds to
        // go minus 2133437386. Callers only rely on it being negative (off).
        return -UnsignedSecondsSince(tNow, tStart);
    }

    // On: seconds to the period's end. An end of 24:00 counts as 23:59 of today, and a chain
    // of periods carrying on at 0:00 of each following day adds a whole day per period, the
    // chain's last one included even when it ends before midnight.
    unsigned endHour = p->wEndHour, endMinute = p->wEndMinute;
    if (endHour == 24) {
        endHour = 23;
        endMinute = 59;
    }
    int nSeconds = (int)((TimeOfDay(now, endHour, endMinute) - tNow) / nTicksPerSecond);
    // The chain is followed by position, one step per period, and counts at most the six days
    // after today: a longer chain (the whole week written twice, say) means the schedule stays on
    // for the rest of the week, and the answer stays below a week however long the text is.
    DMPos pos = periods.Find(p);
    const AllowedPeriod* pChain = p;
    for (int nChained = 0; pos && nChained < nMaxChainedDays && pChain->wEndHour == 24; ++nChained) {
        pos = pos->pNext ? pos->pNext : periods.GetHeadPosition();
        const AllowedPeriod* pNext = static_cast<const AllowedPeriod*>(periods.GetAt(pos));
        if (pNext == p || pNext->day != GetNextDay(pChain->day) || pNext->wStartHour != 0 || pNext->wStartMinute != 0)
            break;
        nSeconds += nSecondsPerDay;
        pChain = pNext;
    }
    return nSeconds;
}

int Schedule::IsScheduleOn(const SYSTEMTIME* pNow) const
{
    if (IsDefault())
        return 1;
    wchar_t szError[256];
    int nSeconds = GetSecondsRemaining(pNow, szError, 256);
    // A text that does not parse never stops the monitoring.
    return nSeconds >= 0 || nSeconds == nSecondsBadText;
}

void Schedule::FreeCommon()
{
    for (SchDay& row : days) {
        StrFree(row.pszLocalName);
        row.pszLocalName = nullptr;
    }
    bInitCommonCalled = 0;
}
