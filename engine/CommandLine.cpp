#include "engine/CommandLine.h"

#include <climits>

#include "base/StrUtil.h"

namespace {

bool IsBlank(wchar_t c) { return c == L' ' || c == L'\t'; }

// The switches that are compared whole, in the order they are tried.
struct NamedSwitch {
    const wchar_t* name;
    CommandMode mode;
};
const NamedSwitch kNamedSwitches[] = {
    {L"/uninstall-msi", CmdUninstallMsi}, {L"/load", CmdLoad},
    {L"/load-silent", CmdLoadSilent},     {L"/unload", CmdUnload},
    {L"/unload-silent", CmdUnloadSilent}, {L"/service", CmdService},
    {L"/user-load", CmdUserLoad},         {L"/user-unload", CmdUserUnload},
};

// The length of the first switch: up to the first blank.
unsigned SwitchLength(const wchar_t* s)
{
    unsigned n = 0;
    while (s[n] && !IsBlank(s[n]))
        ++n;
    return n;
}

bool SwitchIs(const wchar_t* s, unsigned len, const wchar_t* name)
{
    return StrLen(name) == len && StrCompareNoCaseN(s, name, len) == 0;
}

// "/name" or "-name" with a value: true and the session id when the switch is there and has
// ':' or '=' before the first blank. The name is compared over its own length only.
bool SessionSwitch(const wchar_t* s, const wchar_t* name, bool* pHasValue, DWORD* pSessionId)
{
    *pHasValue = false;
    if (s[0] != L'/' && s[0] != L'-')
        return false;
    const unsigned n = StrLen(name);
    if (StrCompareNoCaseN(s + 1, name, n) != 0)
        return false;
    const wchar_t* p = s + 1 + n;
    while (*p && !IsBlank(*p) && *p != L':' && *p != L'=')
        ++p;
    if (*p != L':' && *p != L'=')
        return true; // the switch without a value does nothing
    ++p;
    // The value as the switch gives it, cut to a bounded buffer: a quoted one up to and
    // including its closing quote, which ends the number; a plain one up to the next blank.
    wchar_t value[256];
    if (*p == L'"') {
        ++p;
        unsigned len = 0;
        while (p[len] && p[len] != L'"')
            ++len;
        if (p[len] == L'"')
            ++len;
        StrCopyN(value, 256, p, len);
    } else {
        StrCopyN(value, 256, p, SwitchLength(p));
    }
    *pHasValue = true;
    *pSessionId = (DWORD)ParseIntLikeWtoi(value);
    return true;
}

} // namespace

int ParseIntLikeWtoi(const wchar_t* text)
{
    if (!text)
        return 0;
    const wchar_t* p = text;
    while (*p == L' ' || (*p >= L'\t' && *p <= L'\r'))
        ++p;
    bool negative = false;
    if (*p == L'+' || *p == L'-')
        negative = *p++ == L'-';
    // Accumulated as a negative number, whose range is one larger, and held at the limit.
    long long v = 0;
    for (; *p >= L'0' && *p <= L'9'; ++p) {
        v = v * 10 - (*p - L'0');
        if (v < (long long)INT_MIN - 1)
            v = (long long)INT_MIN - 1;
    }
    if (negative)
        return v < INT_MIN ? INT_MIN : (int)v;
    return -v > INT_MAX ? INT_MAX : (int)-v;
}

CommandLine ParseCommandLine(const wchar_t* cmdLine)
{
    CommandLine result = {CmdNothing, 0};
    const wchar_t* s = cmdLine ? cmdLine : L"";
    while (IsBlank(*s))
        ++s;
    const unsigned len = SwitchLength(s);
    if (SwitchIs(s, len, L"/CHECK4UPDATES")) {
        result.mode = CmdCheckForUpdates;
        return result;
    }
    bool bHasValue = false;
    if (SessionSwitch(s, L"monitor", &bHasValue, &result.dwSessionId)) {
        result.mode = bHasValue ? CmdMonitor : CmdNothing;
        return result;
    }
    if (SessionSwitch(s, L"msg", &bHasValue, &result.dwSessionId)) {
        result.mode = bHasValue ? CmdMessage : CmdNothing;
        return result;
    }
    for (const NamedSwitch& sw : kNamedSwitches) {
        if (SwitchIs(s, len, sw.name)) {
            result.mode = sw.mode;
            return result;
        }
    }
    return result;
}
