#include "monitor/WarningText.h"

#include <climits>

#include "base/StrUtil.h"
#include "engine/VXThread.h"

namespace {

bool IsBlank(wchar_t c) { return c == L' ' || c == L'\t'; }

// The length of the line break at p (CR LF, LF or CR), 0 when there is none.
unsigned LineBreakAt(const wchar_t* p)
{
    if (p[0] == L'\r')
        return p[1] == L'\n' ? 2 : 1;
    return p[0] == L'\n' ? 1 : 0;
}

// Appends n characters of src to out[len..] within cch; the new length.
unsigned AppendN(wchar_t* out, unsigned cch, unsigned len, const wchar_t* src, unsigned n)
{
    while (n-- && *src && len + 1 < cch)
        out[len++] = *src++;
    out[len] = 0;
    return len;
}

} // namespace

const wchar_t* const WarningCountdown::kNoCountdown = L"--:--";

unsigned FormatWarningText(wchar_t* out, unsigned cch, const wchar_t* text, const wchar_t* value)
{
    if (!out || cch == 0)
        return 0;
    if (cch > kWarningTextMax)
        cch = kWarningTextMax;
    if (!value)
        value = L"";
    out[0] = 0;
    unsigned len = 0;
    wchar_t line[kWarningTextMax];
    for (const wchar_t* p = text ? text : L""; *p && len + 1 < cch;) {
        // One line, its break included, at most as much as could still be written.
        unsigned n = 0;
        while (p[n] && !LineBreakAt(p + n))
            ++n;
        n += LineBreakAt(p + n);
        unsigned blanks = 0;
        while (blanks < n && IsBlank(p[blanks]))
            ++blanks;
        const wchar_t* rest = p;
        unsigned nRest = n;
        if (p[blanks] == L'%' && p[blanks + 1] == L'd' && blanks + 2 <= n) {
            // The indented placeholder: its blanks, then the value with the blanks after every
            // line break inside it.
            len = AppendN(out, cch, len, p, blanks);
            for (const wchar_t* v = value; *v && len + 1 < cch;) {
                if (unsigned br = LineBreakAt(v)) {
                    len = AppendN(out, cch, len, v, br);
                    len = AppendN(out, cch, len, p, blanks);
                    v += br;
                } else {
                    len = AppendN(out, cch, len, v++, 1);
                }
            }
            rest = p + blanks + 2;
            nRest = n - blanks - 2;
        }
        // The rest of the line through the one expander ("%d", "%%").
        unsigned chunk = nRest < kWarningTextMax - 1 ? nRest : kWarningTextMax - 1;
        StrCopyN(line, kWarningTextMax, rest, chunk);
        if (chunk < nRest) {
            // A line longer than the whole result could ever be: the cut keeps a "%d" or "%%"
            // whole by never splitting after a lone '%'.
            n = (unsigned)(rest - p) + chunk;
            if (chunk && line[chunk - 1] == L'%') {
                line[chunk - 1] = 0;
                --n;
            }
        }
        len += StrExpandNumber(out + len, cch - len, line, value);
        p += n;
    }
    return len;
}

unsigned FormatCountdown(wchar_t* out, unsigned cch, unsigned seconds)
{
    return StrFormat(out, cch, L"%u:%02u", seconds / 60, seconds % 60);
}

void WarningCountdown::Start(const wchar_t* text, int nMinutes, long long llNow)
{
    StrCopy(szTemplate, text);
    bCounting = VXThread::IsMeasurableMinutes(nMinutes);
    wchar_t value[32];
    if (bCounting) {
        ullTotal = (unsigned long long)nMinutes * 60;
        // A clock near its end saturates instead of wrapping into the past.
        llDeadline = llNow > LLONG_MAX - (long long)ullTotal ? LLONG_MAX : llNow + (long long)ullTotal;
        FormatCountdown(value, 32, (unsigned)ullTotal); // at most 71582 * 60
    } else {
        ullTotal = 0;
        llDeadline = 0;
        StrCopy(value, kNoCountdown);
    }
    FormatWarningText(szText, kWarningTextMax, szTemplate, value);
}

bool WarningCountdown::Update(long long llNow)
{
    if (!bCounting || llNow >= llDeadline)
        return false;
    // deadline > now, so the unsigned difference is exact; a clock set back never shows more
    // than the whole period.
    unsigned long long left = (unsigned long long)llDeadline - (unsigned long long)llNow;
    if (left > ullTotal)
        left = ullTotal;
    wchar_t value[32];
    FormatCountdown(value, 32, (unsigned)left);
    FormatWarningText(szText, kWarningTextMax, szTemplate, value);
    return true;
}
