// The idle warning's text and countdown, as plain functions a test calls without a window.
//
// The text is the administrator's "MessageText" (or the built-in string 100) with every "%d"
// replaced by the time left, "m:ss", through the one placeholder expander (StrExpandNumber):
// "%d" takes the time, "%%" becomes "%", every other character is copied as it is, so a stray
// "%s" in an administrator's text does no harm. When a "%d" stands after blanks (spaces or tabs)
// at the start of its line, every line break inside its replacement is followed by those same
// blanks, so a replacement of several lines keeps the text's indentation. The result fits a
// buffer of kWarningTextMax characters, its terminator included.
#pragma once
#include <windows.h>

const unsigned kWarningTextMax = 512;

// text with every "%d" replaced by value by the rule above; at most cch - 1 and kWarningTextMax - 1
// characters. The length written.
unsigned FormatWarningText(wchar_t* out, unsigned cch, const wchar_t* text, const wchar_t* value);

// "m:ss" ("%d:%02d" of minutes and seconds).
unsigned FormatCountdown(wchar_t* out, unsigned cch, unsigned seconds);

// The countdown of one warning. "MessageTimeout" minutes from 0 to the engine's measurable
// limit (VXThread::nMaxMeasurableMinutes) count down from "minutes:00" to the deadline; at and
// after the deadline the text stays as it was last shown. Any other value (negative, or too long
// for the engine to measure) means the engine will not log the session off for idleness, so
// there is no deadline to count to: every "%d" shows kNoCountdown and the text never changes.
class WarningCountdown {
public:
    static const wchar_t* const kNoCountdown; // "--:--"

    // Starts at now (seconds); text is the template (copied).
    void Start(const wchar_t* text, int nMinutes, long long llNow);
    // Rebuilds the text for now: true when the countdown still runs (now before the deadline)
    // and the text was rebuilt; false, with the text unchanged, otherwise.
    bool Update(long long llNow);
    const wchar_t* GetText() const { return szText; }
    bool IsCounting() const { return bCounting; }

private:
    wchar_t szTemplate[1024] = {};
    wchar_t szText[kWarningTextMax] = {};
    unsigned long long ullTotal = 0; // the warning period in seconds
    long long llDeadline = 0;
    bool bCounting = false;
};
