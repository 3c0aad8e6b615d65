// The host's command line: which mode runs and with which session, for every switch and the
// rules at its edges (prefix match, '/' or '-', ':' or '=', quoted values, blanks, numbers).
#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "engine/CommandLine.h"

namespace {

struct Case {
    const wchar_t* line;
    CommandMode mode;
    DWORD session;
};

std::string Narrow(const wchar_t* s)
{
    std::string out;
    for (; s && *s; ++s)
        out += *s < 128 ? (char)*s : '?';
    return out;
}

// Catches a switch sent to the wrong mode, a session id read wrongly, a lost prefix rule, a
// value taken across a blank, a case-sensitive comparison and a later switch that counts.
TEST(CommandLine, ModesAndSessionIds)
{
    const Case cases[] = {
        {L"/CHECK4UPDATES", CmdCheckForUpdates, 0},
        {L"/check4updates", CmdCheckForUpdates, 0},
        {L"/CHECK4UPDATESX", CmdNothing, 0},
        {L"/monitor:2", CmdMonitor, 2},
        {L"-monitor:2", CmdMonitor, 2},
        {L"/monitor=2", CmdMonitor, 2},
        {L"-MONITOR=12", CmdMonitor, 12},
        {L"/monitor 2", CmdNothing, 0},
        {L"/monitor", CmdNothing, 0},
        {L"/monitor 2:3", CmdNothing, 0},
        {L"/monitorX:3", CmdMonitor, 3},
        {L"/monitor-anything=4 /msg:9", CmdMonitor, 4},
        {L"/monito:3", CmdNothing, 0},
        {L"monitor:3", CmdNothing, 0},
        {L"+monitor:3", CmdNothing, 0},
        {L"/monitor:\"7\"", CmdMonitor, 7},
        {L"/monitor:\"7 8\" /load", CmdMonitor, 7},
        {L"/monitor:\" 5\"", CmdMonitor, 5},
        {L"/monitor:\"x5\"", CmdMonitor, 0},
        {L"/monitor:\"6", CmdMonitor, 6},
        {L"/monitor:8 9", CmdMonitor, 8},
        {L"/monitor:12abc", CmdMonitor, 12},
        {L"/monitor:abc", CmdMonitor, 0},
        {L"/monitor:", CmdMonitor, 0},
        {L"/monitor:-1", CmdMonitor, 0xFFFFFFFF},
        {L"/monitor:99999999999", CmdMonitor, (DWORD)INT_MAX},
        {L"  /monitor:3", CmdMonitor, 3},
        {L"/msg:5", CmdMessage, 5},
        {L"/MSG:7", CmdMessage, 7},
        {L"-msg=6", CmdMessage, 6},
        {L"/msgbox:8", CmdMessage, 8},
        {L"/msg 5", CmdNothing, 0},
        {L"/ms:5", CmdNothing, 0},
        {L"/uninstall-msi", CmdUninstallMsi, 0},
        {L"/UNINSTALL-MSI", CmdUninstallMsi, 0},
        {L"/uninstall-msix", CmdNothing, 0},
        {L"/load", CmdLoad, 0},
        {L"/Load /unload", CmdLoad, 0},
        {L"/load-silent", CmdLoadSilent, 0},
        {L"/loadx", CmdNothing, 0},
        {L"-load", CmdNothing, 0},
        {L"/unload", CmdUnload, 0},
        {L"/unload-silent", CmdUnloadSilent, 0},
        {L"/service", CmdService, 0},
        {L"/SERVICE", CmdService, 0},
        {L"/services", CmdNothing, 0},
        {L"/user-load", CmdUserLoad, 0},
        {L"/user-unload", CmdUserUnload, 0},
        {L"/load:3", CmdNothing, 0},
        {L"/unknown /load", CmdNothing, 0},
        {L"", CmdNothing, 0},
        {nullptr, CmdNothing, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE("command line \"" + Narrow(c.line) + "\"");
        const CommandLine got = ParseCommandLine(c.line);
        EXPECT_EQ(got.mode, c.mode);
        if (c.mode == CmdMonitor || c.mode == CmdMessage) {
            EXPECT_EQ(got.dwSessionId, c.session);
        }
    }
}

// Catches a conversion that overflows, ignores the sign or blanks, or reads past the digits.
TEST(CommandLine, NumbersReadLikeWtoi)
{
    const struct {
        const wchar_t* text;
        int value;
    } cases[] = {
        {L"0", 0},           {L"42", 42},         {L"+42", 42},
        {L"-42", -42},       {L" \t42", 42},      {L"42x7", 42},
        {L"x42", 0},         {L"- 4", 0},         {L"", 0},
        {L"2147483647", INT_MAX},                 {L"2147483648", INT_MAX},
        {L"-2147483648", INT_MIN},                {L"-2147483649", INT_MIN},
        {L"99999999999999999999999999", INT_MAX}, {L"-99999999999999999999999999", INT_MIN},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE("text \"" + Narrow(c.text) + "\"");
        EXPECT_EQ(ParseIntLikeWtoi(c.text), c.value);
    }
    EXPECT_EQ(ParseIntLikeWtoi(nullptr), 0);
}

} // namespace
