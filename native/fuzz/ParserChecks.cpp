#include "fuzz/ParserChecks.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <string>
#include <utility>
#include <vector>

#include "base/DMList.h"
#include "fuzz/FuzzInput.h"
#include "settings/Schedule.h"
#include "storage/IniFile.h"
#include "storage/XmlTree.h"

namespace vxfuzz {

namespace {

const char* g_pszInput = "fuzzer input";

[[noreturn]] void Fail(const char* what, int line)
{
    std::fprintf(stderr, "ParserChecks.cpp:%d: rule broken: %s (%s)\n", line, what, g_pszInput);
    std::abort();
}

#define VX_CHECK(cond)                    \
    do {                                  \
        if (!(cond))                      \
            Fail(#cond, __LINE__);        \
    } while (0)

bool HasChar(const std::wstring& s, wchar_t c) { return s.find(c) != std::wstring::npos; }

// -------------------------------------------------------------------------------------------------
// INI

struct IniEvent {
    int event;
    std::wstring section, name, value;
    bool operator==(const IniEvent& o) const
    {
        return event == o.event && section == o.section && name == o.name && value == o.value;
    }
};

class RecordingIni : public IniFile {
public:
    std::vector<IniEvent> events;
    size_t nRefuseAt = (size_t)-1; // the event the handler refuses (none by default)

    unsigned ProduceText(wchar_t*) override { return 0; }

    int HandleEvent(int event, const wchar_t* section, const wchar_t* name, const wchar_t* value) override
    {
        VX_CHECK(section && name && value);
        VX_CHECK(wcslen(section) <= nMaxTextChars && wcslen(name) <= nMaxTextChars && wcslen(value) <= nMaxTextChars);
        events.push_back({event, section, name, value});
        return events.size() - 1 != nRefuseAt;
    }

    int Read(const WideText& text, unsigned len)
    {
        events.clear();
        // A file of no characters is read as the empty text, as ReadData does: a length of 0
        // means "up to the terminator", which an unterminated block does not have.
        return len || text.n ? ReadAll(text.p.get(), len) : ReadAll(L"", 0);
    }
};

// What the reader reports follows from the layout it understands (IniFile.h).
void CheckIniEvents(const std::vector<IniEvent>& events, int ok, size_t nChars)
{
    VX_CHECK(!events.empty() && events.front().event == IniFile::EvStart);
    VX_CHECK(events.size() <= nChars + 2); // every event but the first and last takes a line
    for (size_t i = 1; i < events.size(); ++i) {
        const IniEvent& e = events[i];
        VX_CHECK(!HasChar(e.section, L'\n') && !HasChar(e.section, L']'));
        VX_CHECK(!HasChar(e.name, L'\n') && !HasChar(e.value, L'\n'));
        switch (e.event) {
        case IniFile::EvComment:
            VX_CHECK(e.name.empty() || e.name[0] == L';');
            VX_CHECK(e.value.empty());
            break;
        case IniFile::EvVariable:
            VX_CHECK(!HasChar(e.name, L'='));
            VX_CHECK(e.name.empty() || (e.name.back() != L' ' && e.name[0] != L' ' && e.name[0] != L'\t' &&
                                        e.name[0] != L';' && e.name[0] != L'['));
            VX_CHECK(e.value.empty() || (e.value[0] != L' ' && e.value[0] != L'\t'));
            break;
        case IniFile::EvEnd:
            VX_CHECK(i == events.size() - 1);
            VX_CHECK(e.section.empty() && e.name.empty() && e.value.empty());
            break;
        default:
            Fail("unknown INI event", __LINE__);
        }
    }
    if (ok)
        VX_CHECK(events.back().event == IniFile::EvEnd);
}

// The variables as IniFile::WriteSec / WriteVar write them: a section line whenever the section
// changes, then "name=value".
WideText WriteIniVariables(const std::vector<IniEvent>& events)
{
    unsigned count = 0;
    wchar_t* none = nullptr;
    for (int pass = 0; pass < 2; ++pass) {
        WideText text;
        if (pass == 1) {
            text.n = count;
            text.p.reset(new wchar_t[count ? count : 1]);
        }
        wchar_t* out = pass ? text.p.get() : none;
        unsigned n = 0;
        const std::wstring* pSection = nullptr;
        for (const IniEvent& e : events) {
            if (e.event != IniFile::EvVariable)
                continue;
            if (!pSection || *pSection != e.section)
                IniFile::WriteSec(out, e.section.c_str(), n);
            pSection = &e.section;
            IniFile::WriteVar(out, e.name.c_str(), e.value.c_str(), n);
        }
        if (pass == 0) {
            count = n;
        } else {
            VX_CHECK(n == count && out == text.p.get() + count); // the sizing and the filling agree
            return text;
        }
    }
    return WideText();
}

std::vector<IniEvent> Variables(const std::vector<IniEvent>& events)
{
    std::vector<IniEvent> v;
    for (const IniEvent& e : events)
        if (e.event == IniFile::EvVariable)
            v.push_back(e);
    return v;
}

// -------------------------------------------------------------------------------------------------
// XML

bool SameText(const wchar_t* a, const wchar_t* b)
{
    if (!a || !b)
        return a == b;
    return wcscmp(a, b) == 0;
}

// The rendering of the tree: the sizing call and the filling call agree, and the text ends at its
// one terminating zero.
std::vector<wchar_t> Render(XmlTree& tree)
{
    wchar_t* none = nullptr;
    unsigned count = tree.Put(none);
    VX_CHECK(count >= 1 && count < (1u << 28));
    std::vector<wchar_t> text(count);
    wchar_t* out = text.data();
    VX_CHECK(tree.Put(out) == count);
    VX_CHECK(out == text.data() + count);
    VX_CHECK(text[count - 1] == 0 && wcslen(text.data()) == count - 1);
    return text;
}

unsigned CountItems(const XmlTree& tree)
{
    unsigned n = 0;
    std::vector<const XmlTree*> todo{&tree};
    while (!todo.empty()) {
        const XmlTree* t = todo.back();
        todo.pop_back();
        for (XmlPos pos = t->GetHeadPosition(); pos; pos = pos->pNext) {
            ++n;
            if (pos->pChild)
                todo.push_back(pos->pChild);
        }
    }
    return n;
}

// Element by element: names, texts, attributes in order, children. Walked with a list, not by
// recursion, since documents may nest 512 levels.
bool SameTree(const XmlTree& a, const XmlTree& b)
{
    std::vector<std::pair<const XmlTree*, const XmlTree*>> todo{{&a, &b}};
    while (!todo.empty()) {
        auto [ta, tb] = todo.back();
        todo.pop_back();
        if (ta->GetCount() != tb->GetCount())
            return false;
        XmlPos pa = ta->GetHeadPosition(), pb = tb->GetHeadPosition();
        for (; pa && pb; pa = pa->pNext, pb = pb->pNext) {
            const XmlTreeItem* ia = pa->pItem;
            const XmlTreeItem* ib = pb->pItem;
            if (!SameText(ia->GetName(), ib->GetName()) || !SameText(ia->GetBody(), ib->GetBody()))
                return false;
            const DMList& la = ia->GetListAttr();
            const DMList& lb = ib->GetListAttr();
            if (la.GetCount() != lb.GetCount())
                return false;
            for (DMPos qa = la.GetHeadPosition(), qb = lb.GetHeadPosition(); qa && qb;) {
                auto* xa = static_cast<const XmlAttrib*>(la.GetNext(qa));
                auto* xb = static_cast<const XmlAttrib*>(lb.GetNext(qb));
                if (!SameText(xa->name, xb->name) || !SameText(xa->value, xb->value))
                    return false;
            }
            if (!pa->pChild != !pb->pChild)
                return false;
            if (pa->pChild)
                todo.push_back({pa->pChild, pb->pChild});
        }
        if (pa || pb)
            return false;
    }
    return true;
}

// Known fault, kept out of the round trip until the parser is fixed: the prolog scan looks past
// "<" through white space and comments for a name, so a comment opened on a prolog line may be
// closed on the first element's line, as in "< <!--" LF "<a>--></a>". The prolog keeps only the
// opening; rendered, the closing "-->" becomes "--&gt;", and reading the rendering back stops at
// the prolog with 21902 (unclosed comment). Matches exactly that: 21902 inside the rendered prolog.
bool IsKnownPrologFault(const XmlTree& tree, const XmlTree& back, const wchar_t* rendered, const wchar_t* stop)
{
    const wchar_t* prolog = tree.GetProlog();
    return prolog && back.GetErrorId() == XmlTree::IdsUnclosedComment && stop >= rendered &&
           stop < rendered + wcslen(prolog) && wcsstr(prolog, L"<!--") != nullptr;
}

// The rendering of tree (parsed, or built up to a parse error) read back: it parses, with as many
// elements; a document that parsed comes back as the same tree and renders the same text.
void CheckReadBack(const XmlTree& tree, int ok, const std::vector<wchar_t>& rendered)
{
    // Known fault, kept out of the round trip until the parser is fixed: Get skips one leading
    // U+FEFF as the byte-order mark and Put writes the prolog as it is, so a prolog that itself
    // begins with U+FEFF (the text began with two) loses it on the way back, and the line behind
    // it may then read as an element: "\uFEFF\uFEFF<x>" LF "<a/>" parses, its rendering does not.
    if (rendered[0] == 0xFEFF)
        return;
    XmlTree back;
    back.silent = 1;
    const wchar_t* q = rendered.data();
    int bBack = back.Get(nullptr, q);
    if (!bBack && IsKnownPrologFault(tree, back, rendered.data(), q))
        return;
    if (!bBack) {
        std::fprintf(stderr, "rendered tree does not parse: error %d in line %u at \"%ls\"\n", back.GetErrorId(),
                     back.GetErrorLine(), back.GetErrorContext());
        Fail("a rendered tree parses again", __LINE__);
    }
    VX_CHECK(CountItems(back) == CountItems(tree));
    if (ok) {
        VX_CHECK(SameTree(tree, back));
        std::vector<wchar_t> again = Render(back);
        VX_CHECK(again == rendered);
    }
}

// The look-ups the settings code makes on a parsed document, over every element.
void CheckLookups(const XmlTree& tree)
{
    std::vector<const XmlTree*> todo{&tree};
    while (!todo.empty()) {
        const XmlTree* t = todo.back();
        todo.pop_back();
        for (XmlPos pos = t->GetHeadPosition(); pos; pos = pos->pNext) {
            const XmlTreeItem* item = pos->pItem;
            VX_CHECK(item && item->GetName() && *item->GetName());
            VX_CHECK(t->FindItemPos(item->GetName()) != nullptr);
            const DMList& attrs = item->GetListAttr();
            if (DMPos first = attrs.GetHeadPosition()) {
                auto* a = static_cast<const XmlAttrib*>(attrs.GetAt(first));
                VX_CHECK(item->FindAttrib(a->name) == a); // the first of that name, case ignored
                VX_CHECK(t->FindItem(item->GetName(), a->name, a->value) != nullptr);
                wchar_t buf[4];
                wmemset(buf, (wchar_t)0xbdbd, 4);
                unsigned n = item->GetAttrib(a->name, buf, 4);
                VX_CHECK(n <= 3 && buf[n] == 0 && wcsncmp(buf, a->value, n) == 0);
                item->GetAttribInt(a->name);
            }
            if (pos->pChild)
                todo.push_back(pos->pChild);
        }
    }
}

// -------------------------------------------------------------------------------------------------
// Schedule

const int kSecondsPerDay = 86400;

struct Minutes {
    int start, end; // minutes from midnight; an end of 24:00 is 1440
    int day;
};

SYSTEMTIME Moment(int day, int minuteOfDay, uint64_t r)
{
    SYSTEMTIME st{};
    // 2024-01-07 was a Sunday: the date matches the day of the week.
    st.wYear = 2024;
    st.wMonth = 1;
    st.wDayOfWeek = (WORD)day;
    st.wDay = (WORD)(7 + day);
    st.wHour = (WORD)(minuteOfDay / 60);
    st.wMinute = (WORD)(minuteOfDay % 60);
    st.wSecond = (WORD)(r % 60);
    st.wMilliseconds = (WORD)((r / 60) % 1000);
    return st;
}

uint64_t Mix(uint64_t h)
{
    h ^= h >> 33;
    h *= 0xff51afd7ed558ccdull;
    h ^= h >> 33;
    return h;
}

} // namespace

void SetInputName(const char* name) { g_pszInput = name ? name : "fuzzer input"; }

// -------------------------------------------------------------------------------------------------

IniOutcome CheckIni(const uint8_t* data, size_t size)
{
    // As ReadData reads a file: its code units and their number.
    WideText units = Utf16LeUnits(data, size);
    RecordingIni ini;
    int ok = ini.Read(units, (unsigned)units.n);
    CheckIniEvents(ini.events, ok, units.n);
    std::vector<IniEvent> events = ini.events;

    // The same text up to a terminating zero, the length left to the reader: the events are the
    // same, since a zero character ends the text either way.
    WideText terminated = Terminated(units.p.get(), units.n);
    RecordingIni byZero;
    VX_CHECK(byZero.Read(terminated, 0) == ok);
    VX_CHECK(byZero.events == events);

    // A handler that refuses one event stops the reading there, with false.
    RecordingIni refusing;
    refusing.nRefuseAt = (size_t)(HashBytes(data, size) % events.size());
    VX_CHECK(refusing.Read(units, (unsigned)units.n) == 0);
    VX_CHECK(refusing.events.size() == refusing.nRefuseAt + 1);
    VX_CHECK(std::equal(refusing.events.begin(), refusing.events.end(), events.begin()));

    // What the writer makes of the variables reads back as the same variables.
    std::vector<IniEvent> vars = Variables(events);
    WideText written = WriteIniVariables(events);
    RecordingIni back;
    VX_CHECK(back.Read(written, (unsigned)written.n) == 1);
    VX_CHECK(Variables(back.events) == vars);

    return {ok, (unsigned)vars.size()};
}

int CheckXml(const uint8_t* data, size_t size)
{
    WideText text = DecodeFileText(data, size);
    const wchar_t* begin = text.p.get();
    const wchar_t* end = begin + wcslen(begin);

    XmlTree tree;
    tree.silent = 1;
    const wchar_t* p = begin;
    int ok = tree.Get(nullptr, p);
    VX_CHECK(p >= begin && p <= end);
    if (ok) {
        VX_CHECK(p == end && tree.GetErrorId() == 0 && tree.GetCount() >= 1);
    } else {
        int id = tree.GetErrorId();
        VX_CHECK(id >= XmlTree::IdsUnclosedComment && id <= XmlTree::IdsNoData && id != XmlTree::IdsMissingName);
        const wchar_t* context = tree.GetErrorContext();
        size_t n = wcslen(context);
        VX_CHECK(n <= XmlTree::nContextChars);
        // The context is the input from where the error was found, cut to its size.
        VX_CHECK(n == std::min<size_t>(XmlTree::nContextChars, (size_t)(end - p)));
        VX_CHECK(wcsncmp(context, p, n) == 0);
        VX_CHECK(tree.GetErrorLine() >= 1);
    }

    // Whatever was built, also before an error, renders and reads back: the writer never writes
    // what the parser refuses.
    std::vector<wchar_t> rendered = Render(tree);
    if (tree.GetCount()) {
        CheckLookups(tree);
        CheckReadBack(tree, ok, rendered);
        // Taking the first element out leaves the rest as it was.
        unsigned nBefore = CountItems(tree);
        unsigned nFirst = 1 + (tree.GetHeadPosition()->pChild ? CountItems(*tree.GetHeadPosition()->pChild) : 0);
        VX_CHECK(tree.DeleteItem(tree.GetAt(tree.GetHeadPosition())) == 1);
        VX_CHECK(CountItems(tree) == nBefore - nFirst);
    }
    return ok;
}

int CheckSchedule(const uint8_t* data, size_t size)
{
    WideText text = DecodeFileText(data, size);
    Schedule schedule;
    VX_CHECK(schedule.Set(text.p.get()) == 1);
    const wchar_t* stored = schedule.Get();
    size_t len = wcslen(stored);

    DMList periods;
    const wchar_t* pError = schedule.Parse(periods);
    VX_CHECK(!pError || (pError >= stored && pError <= stored + len));

    // The periods on the half-hour grid, in minutes; and whether each day's periods come in
    // order without overlapping, where "on" is exactly "inside one of them".
    std::vector<Minutes> list;
    bool bOrdered = true;
    int lastEnd[7] = {-1, -1, -1, -1, -1, -1, -1};
    for (DMPos pos = periods.GetHeadPosition(); pos;) {
        auto* a = static_cast<Schedule::AllowedPeriod*>(periods.GetNext(pos));
        VX_CHECK(a->day >= Schedule::Sunday && a->day <= Schedule::Saturday);
        VX_CHECK(a->wStartHour <= 23 && (a->wStartMinute == 0 || a->wStartMinute == 30));
        VX_CHECK(a->wEndMinute == 0 || a->wEndMinute == 30);
        Minutes m{a->wStartHour * 60 + a->wStartMinute, a->wEndHour * 60 + a->wEndMinute, a->day};
        VX_CHECK(m.end > m.start && m.end <= 1440);
        if (m.start < lastEnd[m.day])
            bOrdered = false;
        lastEnd[m.day] = m.end;
        list.push_back(m);
    }

    // Moments: a few from the input itself, and the edges of the first periods.
    std::vector<SYSTEMTIME> moments;
    uint64_t h = HashBytes(data, size);
    for (int i = 0; i < 3; ++i, h = Mix(h + 1))
        moments.push_back(Moment((int)(h % 7), (int)((h >> 8) % 1440), h >> 24));
    for (size_t i = 0; i < list.size() && i < 6; ++i, h = Mix(h + 1)) {
        const Minutes& m = list[i];
        for (int at : {m.start - 1, m.start, m.end - 1, m.end}) {
            int day = m.day;
            if (at < 0)
                at += 1440, day = (day + 6) % 7;
            if (at >= 1440)
                at -= 1440, day = (day + 1) % 7;
            moments.push_back(Moment(day, at, h));
        }
    }
    // And one taken as it stands from the input's last bytes, which need not be a time at all.
    SYSTEMTIME raw = moments.front();
    if (size >= 8) {
        const uint8_t* b = data + size - 8;
        raw.wDayOfWeek = (WORD)(b[0] | b[1] << 8);
        raw.wHour = (WORD)(b[2] | b[3] << 8);
        raw.wMinute = (WORD)(b[4] | b[5] << 8);
        raw.wSecond = (WORD)(b[6] | b[7] << 8);
    }
    moments.push_back(raw);

    for (const SYSTEMTIME& now : moments) {
        wchar_t szError[16];
        wmemset(szError, (wchar_t)0xbdbd, 16);
        int r = schedule.GetSecondsRemaining(&now, szError, 16);
        int on = schedule.IsScheduleOn(&now);
        VX_CHECK(on == (r >= 0 || r == Schedule::nSecondsBadText));
        VX_CHECK(szError[15] == 0 || szError[15] == (wchar_t)0xbdbd);
        bool bValid = now.wDayOfWeek <= 6 && now.wHour <= 23 && now.wMinute <= 59;
        if (schedule.IsDefault()) {
            VX_CHECK(r == Schedule::nSecondsNoChange && szError[0] == 0);
        } else if (pError) {
            // The error text is the schedule from the point of failure, cut to the buffer.
            VX_CHECK(r == Schedule::nSecondsBadText);
            size_t n = std::min<size_t>(15, wcslen(pError));
            VX_CHECK(wcslen(szError) == n && wcsncmp(szError, pError, n) == 0);
        } else if (!bValid) {
            VX_CHECK(r == Schedule::nSecondsBadText && szError[0] == 0);
        } else if (list.empty()) {
            VX_CHECK(r == Schedule::nSecondsNoChange && szError[0] == 0);
        } else {
            // On: at most a chain of seven whole days; off: negative, never the bad-text answer.
            VX_CHECK(r < 7 * kSecondsPerDay && r != Schedule::nSecondsBadText && szError[0] == 0);
            if (!bOrdered)
                continue;
            int minute = now.wHour * 60 + now.wMinute;
            const Minutes* inside = nullptr;
            for (const Minutes& m : list)
                if (m.day == now.wDayOfWeek && m.start <= minute && minute < m.end)
                    inside = &m;
            VX_CHECK((r >= 0) == (inside != nullptr));
            if (inside) {
                // Whole minutes to the end (24:00 counts as 23:59), plus whole days of a chain.
                int toEnd = ((inside->end == 1440 ? 1439 : inside->end) - minute) * 60;
                if (inside->end == 1440)
                    VX_CHECK(r >= toEnd && (r - toEnd) % kSecondsPerDay == 0);
                else
                    VX_CHECK(r == toEnd);
            }
        }
    }
    return pError == nullptr;
}

} // namespace vxfuzz
