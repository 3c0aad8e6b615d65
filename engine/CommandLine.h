// The command line of the host executables: which mode DoWinMain runs. Plain text work with no
// calls to Windows, so every rule can be checked from a table.
//
// Only the first switch counts; the text after it is ignored, except the value of "/monitor"
// and "/msg". Names compare ignoring case.
//   "/CHECK4UPDATES", "/uninstall-msi", "/load", "/load-silent", "/unload", "/unload-silent",
//   "/service", "/user-load", "/user-unload": the first switch (up to a blank) is the name.
//   "/monitor" and "/msg": '/' or '-', then the name compared over its own length (so
//   "/monitorX:3" is a monitor switch), then anything up to ':' or '=' and the value after it.
//   The value is a double-quoted string (its text up to and including the closing quote) or
//   runs to the next blank; it reads as a number the way _wtoi does (a leading number, 0 when
//   there is none). Without ':' or '=' before the first blank the switch does nothing.
#pragma once
#include <windows.h>

enum CommandMode {
    CmdNothing = 0,         // anything else, or a "/monitor" or "/msg" without a value: exit code 0
    CmdCheckForUpdates,     // "/CHECK4UPDATES": served elsewhere, exit code 0
    CmdMonitor,             // "/monitor:N": the in-session activity monitor of session N
    CmdMessage,             // "/msg:N": the idle warning of session N
    CmdUninstallMsi,        // "/uninstall-msi": the running service releases every session
    CmdLoad,                // "/load": install and start the service, with messages
    CmdLoadSilent,          // "/load-silent"
    CmdUnload,              // "/unload": stop and remove the service, with messages
    CmdUnloadSilent,        // "/unload-silent"
    CmdService,             // "/service": run as the service
    CmdUserLoad,            // "/user-load": accepted, nothing to do
    CmdUserUnload,          // "/user-unload": accepted, nothing to do
};

struct CommandLine {
    CommandMode mode;
    DWORD dwSessionId; // "/monitor" and "/msg" only
};

// A null command line is an empty one.
CommandLine ParseCommandLine(const wchar_t* cmdLine);

// The leading number of text as _wtoi reads it: blanks, a sign, digits; 0 without digits, the
// int limits on overflow.
int ParseIntLikeWtoi(const wchar_t* text);
