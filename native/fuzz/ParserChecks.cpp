#include "fuzz/ParserChecks.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <string>
#include <vector>

#include "base/DMList.h"
#include "settings/Schedule.h"
#include "storage/IniFile.h"
#include "storage/XmlTree.h"

namespace vxfuzz {
namespace {

const char* g_pszInput = "fuzzer input";

#define VX_CHECK(cond) ((cond) ? (void)0 : Fail(#cond, __LINE__))
[[noreturn]] void Fail(const char* what, int line)
{
    std::fprintf(stderr, "ParserChecks.cpp:%d: rule broken: %s (%s)\n", line, what, g_pszInput);
    std::abort();
}

typedef std::vector<std::wstring> Events; // event number, section, name and value per event

class RecordingIni : public IniFile {
public:
    Events events, vars;
    size_t nRefuseAt = (size_t)-1;
    unsigned ProduceText(wchar_t*) override { return 0; }
    int HandleEvent(int event, const wchar_t* section, const wchar_t* name, const wchar_t* value) override
    {
        VX_CHECK(section && name && value);
        VX_CHECK(wcslen(section) <= nMaxTextChars && wcslen(name) <= nMaxTextChars && wcslen(value) <= nMaxTextChars);
        VX_CHECK(event == (events.empty() ? EvStart : event) && (event != EvStart || events.empty()));
        events.push_back(std::to_wstring(event) + L"\n" + section + L"\n" + name + L"\n" + value);
        if (event == EvVariable)
            vars.insert(vars.end(), {section, name, value});
        return events.size() - 1 != nRefuseAt;
    }
    // No characters read as the empty text, as ReadData does (a length of 0 means "up to the
    // terminator", which an unterminated block lacks).
    int Read(const WideText& t, unsigned len) { return len || t.n ? ReadAll(t.p.get(), len) : ReadAll(L"", 0); }
};

// The variables as WriteSec/WriteVar write them; the sizing pass and the filling pass agree.
WideText WriteIni(const Events& vars)
{
    WideText text;
    for (int pass = 0; pass < 2; ++pass) {
        wchar_t* out = pass ? (text.p.reset(new wchar_t[text.n + 1]), text.p.get()) : nullptr;
        unsigned n = 0;
        for (size_t i = 0; i < vars.size(); i += 3) {
            if (i == 0 || vars[i - 3] != vars[i])
                IniFile::WriteSec(out, vars[i].c_str(), n);
            IniFile::WriteVar(out, vars[i + 1].c_str(), vars[i + 2].c_str(), n);
        }
        VX_CHECK(pass == 0 || (n == text.n && out == text.p.get() + n));
        text.n = n;
    }
    return text;
}

// Sizing and filling agree, and the text ends at its one terminating zero.
std::vector<wchar_t> Render(XmlTree& tree)
{
    wchar_t* none = nullptr;
    unsigned count = tree.Put(none);
    VX_CHECK(count >= 1 && count < (1u << 28));
    std::vector<wchar_t> text(count);
    wchar_t* out = text.data();
    VX_CHECK(tree.Put(out) == count && out == text.data() + count && wcslen(text.data()) == count - 1);
    return text;
}

unsigned Count(const XmlTree& t) // documents nest at most 512 levels
{
    unsigned n = 0;
    for (XmlPos pos = t.GetHeadPosition(); pos; pos = pos->pNext)
        n += 1 + (pos->pChild ? Count(*pos->pChild) : 0);
    return n;
}

SYSTEMTIME Moment(int day, int minute, uint64_t r) // 2024-01-07 was a Sunday
{
    return {2024, 1, (WORD)day, (WORD)(7 + day), (WORD)(minute / 60), (WORD)(minute % 60), (WORD)(r % 60), (WORD)(r / 60 % 1000)};
}

} // namespace

void SetInputName(const char* name) { g_pszInput = name ? name : "fuzzer input"; }

IniOutcome CheckIni(const uint8_t* data, size_t size)
{
    WideText units = Utf16LeUnits(data, size);
    RecordingIni ini, byZero, refusing, back;
    int ok = ini.Read(units, (unsigned)units.n);
    VX_CHECK(!ini.events.empty() && ini.events.size() <= units.n + 2 && (!ok || ini.events.back()[0] == L'0' + IniFile::EvEnd));
    // Up to a terminating zero instead of by length: the same events.
    VX_CHECK(byZero.Read(Terminated(units.p.get(), units.n), 0) == ok && byZero.events == ini.events);
    // A handler that refuses one event stops the reading there, with false.
    refusing.nRefuseAt = HashBytes(data, size) % ini.events.size();
    VX_CHECK(refusing.Read(units, (unsigned)units.n) == 0 && refusing.events.size() == refusing.nRefuseAt + 1);
    VX_CHECK(std::equal(refusing.events.begin(), refusing.events.end(), ini.events.begin()));
    // What the writer makes of the variables reads back as the same variables.
    WideText written = WriteIni(ini.vars);
    VX_CHECK(back.Read(written, (unsigned)written.n) == 1 && back.vars == ini.vars);
    return {ok, (unsigned)ini.vars.size() / 3};
}

int CheckXml(const uint8_t* data, size_t size)
{
    WideText text = DecodeFileText(data, size);
    const wchar_t *begin = text.p.get(), *end = begin + wcslen(begin), *p = begin;
    XmlTree tree, back;
    tree.silent = back.silent = 1;
    int ok = tree.Get(nullptr, p);
    // On an error, its context is the input from where it was found, cut to its size.
    size_t n = wcslen(tree.GetErrorContext());
    VX_CHECK(p >= begin && p <= end && (ok ? p == end && tree.GetCount() >= 1 && !tree.GetErrorId() : tree.GetErrorId() != 0));
    VX_CHECK(ok || (n == std::min<size_t>(XmlTree::nContextChars, end - p) && wcsncmp(tree.GetErrorContext(), p, n) == 0));
    // Whatever was built, also before an error, renders and parses back with as many items; a
    // parsed tree renders the same text again.
    std::vector<wchar_t> rendered = Render(tree);
    const wchar_t* q = rendered.data();
    // Known fault: Get skips one leading U+FEFF as the mark and Put writes the prolog as it is, so
    // a prolog that begins with one loses it on the way back.
    if (!tree.GetCount() || rendered[0] == 0xFEFF)
        return ok;
    if (!back.Get(nullptr, q)) {
        // Known fault: a comment opened on a prolog line and closed on a later line keeps only its
        // opening in the prolog; reading the rendering then stops in the prolog (unclosed
        // comment) or, when a later "-->" closes it there, in the elements that follow.
        const wchar_t* prolog = tree.GetProlog();
        const wchar_t* opened = prolog ? wcsstr(prolog, L"<!--") : nullptr;
        while (opened && wcsstr(opened + 4, L"<!--"))
            opened = wcsstr(opened + 4, L"<!--");
        if (!opened || wcsstr(opened + 4, L"-->")) {
            std::fprintf(stderr, "rendering does not parse: error %d at \"%ls\"\n", back.GetErrorId(), back.GetErrorContext());
            Fail("a rendered tree parses again", __LINE__);
        }
    } else {
        VX_CHECK(Count(back) == Count(tree) && (!ok || Render(back) == rendered));
    }
    XmlPos head = tree.GetHeadPosition();
    if (DMPos first = head->pItem->GetListAttr().GetHeadPosition()) {
        // An attribute read into a small buffer is cut and terminated inside it.
        auto* a = static_cast<const XmlAttrib*>(head->pItem->GetListAttr().GetAt(first));
        wchar_t buf[4] = {0xbdbd, 0xbdbd, 0xbdbd, 0xbdbd};
        unsigned got = head->pItem->GetAttrib(a->name, buf, 4);
        VX_CHECK(got <= 3 && buf[got] == 0 && wcsncmp(buf, a->value, got) == 0);
    }
    // Deleting the first element removes exactly it and its children.
    unsigned nBefore = Count(tree), nFirst = 1 + (head->pChild ? Count(*head->pChild) : 0);
    VX_CHECK(tree.DeleteItem(head->pItem) == 1 && Count(tree) == nBefore - nFirst);
    return ok;
}

int CheckSchedule(const uint8_t* data, size_t size)
{
    WideText text = DecodeFileText(data, size);
    Schedule schedule;
    VX_CHECK(schedule.Set(text.p.get()) == 1);
    DMList periods;
    const wchar_t *stored = schedule.Get(), *pError = schedule.Parse(periods);
    VX_CHECK(!pError || (pError >= stored && pError <= stored + wcslen(stored)));

    // The periods in minutes on the half-hour grid; "ordered" when no day's periods overlap or
    // run backwards, so that "on" is exactly "inside one of them".
    struct Minutes { int start, end, day; };
    std::vector<Minutes> list;
    bool bOrdered = true;
    int lastEnd[7] = {-1, -1, -1, -1, -1, -1, -1};
    for (DMPos pos = periods.GetHeadPosition(); pos;) {
        auto* a = static_cast<Schedule::AllowedPeriod*>(periods.GetNext(pos));
        Minutes m{a->wStartHour * 60 + a->wStartMinute, a->wEndHour * 60 + a->wEndMinute, a->day};
        VX_CHECK(m.day >= 0 && m.day <= 6 && a->wStartHour <= 23 && m.start % 30 == 0 && m.end % 30 == 0);
        VX_CHECK(m.end > m.start && m.end <= 1440);
        bOrdered = bOrdered && m.start >= lastEnd[m.day];
        lastEnd[m.day] = m.end;
        list.push_back(m);
    }

    // Moments: from the input's hash, at the edges of the first periods, and one taken raw from
    // the input's last bytes (which need not be a time at all).
    uint64_t h = HashBytes(data, size);
    std::vector<SYSTEMTIME> moments{Moment(h % 7, (h >> 8) % 1440, h >> 24), Moment((h >> 40) % 7, (h >> 44) % 1440, h)};
    for (size_t i = 0; i < list.size() && i < 6; ++i)
        for (int at : {list[i].start - 1, list[i].start, list[i].end - 1, list[i].end})
            moments.push_back(Moment((list[i].day + 6 + (at + 1440) / 1440) % 7, (at + 1440) % 1440, h));
    if (size >= 8) {
        const uint8_t* b = data + size - 8;
        moments.push_back({2024, 1, (WORD)(b[0] | b[1] << 8), 7, (WORD)(b[2] | b[3] << 8), (WORD)(b[4] | b[5] << 8), 0, 0});
    }

    for (const SYSTEMTIME& now : moments) {
        wchar_t szError[16];
        std::fill(szError, szError + 16, (wchar_t)0xbdbd);
        int r = schedule.GetSecondsRemaining(&now, szError, 16);
        VX_CHECK(schedule.IsScheduleOn(&now) == (r >= 0 || r == Schedule::nSecondsBadText));
        // The error text is the schedule from the point of failure, cut to the buffer.
        size_t n = pError && !schedule.IsDefault() ? std::min<size_t>(15, wcslen(pError)) : 0;
        VX_CHECK(szError[n] == 0 && wcsncmp(szError, pError ? pError : L"", n) == 0);
        bool bValid = now.wDayOfWeek <= 6 && now.wHour <= 23 && now.wMinute <= 59;
        if (schedule.IsDefault() || (!pError && bValid && list.empty()))
            VX_CHECK(r == Schedule::nSecondsNoChange);
        else if (pError || !bValid)
            VX_CHECK(r == Schedule::nSecondsBadText);
        else if (!bOrdered)
            VX_CHECK(r < 7 * 86400 && r != Schedule::nSecondsBadText);
        else {
            // On: whole minutes to the end (24:00 counts as 23:59), plus whole days of a chain.
            int minute = now.wHour * 60 + now.wMinute, end = -1;
            for (const Minutes& m : list)
                end = m.day == now.wDayOfWeek && m.start <= minute && minute < m.end ? m.end : end;
            int toEnd = (std::min(end, 1439) - minute) * 60;
            VX_CHECK(end < 0 ? r < 0 && r != Schedule::nSecondsBadText
                             : end < 1440 ? r == toEnd : r >= toEnd && r < 7 * 86400 && (r - toEnd) % 86400 == 0);
        }
    }
    return pError == nullptr;
}

} // namespace vxfuzz
