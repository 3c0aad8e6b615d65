// Schedule: the weekly schedule of the settings record, the value "Schedule".
//
// The administrator lists, per weekday, the half-hour-aligned periods in which monitoring is
// active, for example "Mon 8:00-17:30, Tue 8:00-12:00". Outside those periods the schedule is
// off. No text, or "*", is the standard schedule: on all the time. The engine asks two
// questions of it: is the schedule on now (IsScheduleOn), and how many seconds remain until
// that changes (GetSecondsRemaining).
//
// Parsing and the time arithmetic use only the C library and plain structures (no system
// calls), so this file and Schedule.cpp also build outside Windows. The day table's local
// names come from the user's locale (InitCommon, in ScheduleLocale.cpp).
//
// Copying: a Schedule copies its text pointer as it is (the settings record's plain copy
// relies on that), so a copy shares the text with its source. Only the owner may free or
// replace it; a copy must not outlive its source. Settings are duplicated with Set(Get()).
#pragma once

#include <cstdint>

#ifdef _WIN32
#include <windows.h>
#else
typedef uint16_t WORD;
typedef struct _SYSTEMTIME {
    WORD wYear;
    WORD wMonth;
    WORD wDayOfWeek;
    WORD wDay;
    WORD wHour;
    WORD wMinute;
    WORD wSecond;
    WORD wMilliseconds;
} SYSTEMTIME;
#endif

#include "base/DMList.h"

class Schedule {
public:
    // Numbered like the system time's day of the week.
    enum Day : int32_t {
        NoDay = -1,
        Sunday = 0,
        Monday = 1,
        Tuesday = 2,
        Wednesday = 3,
        Thursday = 4,
        Friday = 5,
        Saturday = 6,
    };

    // One row of the shared day table.
    struct SchDay {
        wchar_t* pszLocalName;        // the locale's full day name (owned), null when unreadable
        const wchar_t* pszEnglishName; // "Monday" ...
        const wchar_t* pszAbbrev;      // "Mon" ..., the word used in the schedule text
        Day day;
    };

    // One parsed entry of the text; the lists built by Parse own these.
    struct AllowedPeriod {
        Day day;
        WORD wStartHour;   // 0..23
        WORD wStartMinute; // 0 or 30
        WORD wEndHour;     // 0..24
        WORD wEndMinute;   // 0 or 30
    };

    // The standard schedule text, "*".
    static const wchar_t* const pszStdSch;
    // GetSecondsRemaining's answer for the standard schedule: one week and a second, so the
    // state never changes within a week.
    static constexpr int nSecondsNoChange = 604801;
    // Its answer for a text that does not parse; deliberately counted as on.
    static constexpr int nSecondsBadText = -604801;

    // The seven days in the locale's week order. Before InitCommon (and in builds without the
    // locale part) the rows start with Sunday and have no local names.
    static SchDay days[7];
    static int bCanDisplayLocalDays;
    static int bInitCommonCalled;

    // Where InitCommon reads locale items from (GetLocaleInfoW for the user's default locale);
    // returns the characters written including the terminator, 0 on failure.
    typedef int (*LocaleInfoFn)(unsigned long lcType, wchar_t* pszData, int cchData);
    static LocaleInfoFn pfnGetLocaleInfo;
    static int GetUserLocaleInfo(unsigned long lcType, wchar_t* pszData, int cchData);

    Schedule() : pszSchedule(nullptr) {}
    ~Schedule() { Free(); }
    Schedule(const Schedule&) = default;            // shares the text, see above
    Schedule& operator=(const Schedule&) = default; // shares the text, see above

    // The text, or "*" when there is none.
    const wchar_t* Get() const { return pszSchedule ? pszSchedule : pszStdSch; }
    // Replaces the text with an owned copy; the very text "*" (and null) store none.
    // 0 when memory ran out (the old text is kept).
    int Set(const wchar_t* psz);
    void Free();
    // 1 for the standard schedule: no text, an empty text, or "*".
    int IsDefault() const;

    // Empties periods, then adds one AllowedPeriod per entry in text order. Null on success,
    // else where the first bad entry begins or where reading stopped (the entries before it
    // stay in the list).
    const wchar_t* Parse(DMList& periods) const;

    static Day FindDay(const wchar_t* pszAbbrev);
    static int FindDayIndex(Day day);
    static Day GetNextDay(Day day);

    // The period of day that has not ended by hour:minute (it may start later); else the
    // first period, in list order, of the next day that has any, up to the same day a week
    // on. Null when the list is empty.
    static AllowedPeriod* FindAllowedPeriod(DMList& periods, Day day, WORD wHour, WORD wMinute);
    // The period after this one in the list; the first one after the last, or when this one
    // is not in the list.
    static AllowedPeriod* FindNextAllowedPeriod(DMList& periods, AllowedPeriod* pPeriod);
    // Frees every period of the list and empties it.
    static void Purge(DMList& periods);

    int IsScheduleOn(const SYSTEMTIME* pNow) const;
    // Seconds until the schedule changes state: positive while on, negative while off
    // (see Schedule.cpp for the exact values). On a text that does not parse, error receives
    // the text from the point of failure (cut to cchError characters) and the answer is
    // nSecondsBadText.
    int GetSecondsRemaining(const SYSTEMTIME* pNow, wchar_t* pszError, unsigned cchError) const;

    // Builds the day table from the user's locale; does nothing when it has already run.
    static void InitCommon();
    // Frees the local names; a later InitCommon builds the table again.
    static void FreeCommon();
    static int CanDisplayLocalDays() { return bCanDisplayLocalDays; }

protected:
    // Reads "h:mm" or "hh:mm" at p into hours and minutes (3 characters each), advancing p.
    // Null on success, else the position of the error (p is left there as well).
    static const wchar_t* ParseTime(wchar_t* pszHours, wchar_t* pszMinutes, const wchar_t*& p);

    static void DestroyPeriod(void* pItem);

    wchar_t* pszSchedule;
};
