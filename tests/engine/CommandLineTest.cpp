// The host's command line: the mode and session of every switch, and the rules at their edges.
#include <gtest/gtest.h>

#include <climits>

#include "engine/CommandLine.h"

namespace {

// Catches a wrong mode or session: prefix, case, blank, quote, later-switch and number rules.
TEST(CommandLine, ModesAndSessionIds)
{
    const struct { const wchar_t* line; CommandMode mode; DWORD session; } cases[] = {
        {L"/CHECK4UPDATES", CmdCheckForUpdates, 0}, {L"/CHECK4UPDATESX", CmdNothing, 0},
        {L"-MONITOR=12", CmdMonitor, 12}, {L"  /monitor:3", CmdMonitor, 3}, {L"/monitor 2", CmdNothing, 0},
        {L"/monitor 2:3", CmdNothing, 0}, {L"/monitorX:3 /msg:9", CmdMonitor, 3}, {L"/monito:3", CmdNothing, 0},
        {L"+monitor:3", CmdNothing, 0}, {L"/monitor:\"7 8\" /load", CmdMonitor, 7},
        {L"/monitor:\"\t 5\"", CmdMonitor, 5}, {L"/monitor:\"x5\"", CmdMonitor, 0}, {L"/monitor:\"6", CmdMonitor, 6},
        {L"/monitor:8 9", CmdMonitor, 8}, {L"/monitor:12abc", CmdMonitor, 12}, {L"/monitor:", CmdMonitor, 0},
        {L"/monitor:+4", CmdMonitor, 4}, {L"/monitor:-1", CmdMonitor, 0xFFFFFFFF},
        {L"/monitor:\"- 4\"", CmdMonitor, 0}, {L"/monitor:2147483647", CmdMonitor, INT_MAX},
        {L"/monitor:2147483648", CmdMonitor, INT_MAX}, {L"/monitor:-2147483648", CmdMonitor, 0x80000000},
        {L"/monitor:-2147483649", CmdMonitor, 0x80000000},
        {L"/monitor:99999999999999999999999999", CmdMonitor, INT_MAX},
        {L"/monitor:-99999999999999999999999999", CmdMonitor, 0x80000000}, {L"/MSG:7", CmdMessage, 7},
        {L"-msg=6", CmdMessage, 6}, {L"/msgbox:8", CmdMessage, 8}, {L"/msg 5", CmdNothing, 0},
        {L"/uninstall-msi", CmdUninstallMsi, 0}, {L"/Load /unload", CmdLoad, 0}, {L"/load-silent", CmdLoadSilent, 0},
        {L"/unload", CmdUnload, 0}, {L"/unload-silent", CmdUnloadSilent, 0}, {L"/SERVICE", CmdService, 0},
        {L"/user-load", CmdUserLoad, 0}, {L"/user-unload", CmdUserUnload, 0}, {L"/loadx", CmdNothing, 0},
        {L"-load", CmdNothing, 0}, {L"/load:3", CmdNothing, 0}, {L"/unknown /load", CmdNothing, 0},
        {L"", CmdNothing, 0}, {nullptr, CmdNothing, 0}};
    for (const auto& c : cases) {
        const CommandLine got = ParseCommandLine(c.line);
        EXPECT_EQ(got.mode, c.mode) << c.line;
        EXPECT_EQ(got.dwSessionId, c.session) << c.line;
    }
    EXPECT_EQ(ParseIntLikeWtoi(nullptr), 0);
}

} // namespace
