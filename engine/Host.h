// What the engine knows about the program it runs in.
#pragma once
#include <windows.h>

// The module of the host executable given to DoWinMain: the service starts copies of it in the
// user sessions ("/monitor", "/msg"). Null means the current process's executable.
void SetHostModule(HMODULE module);
HMODULE GetHostModule();

// The licence check's yes/no questions. This edition has no limit: the computer is never
// flagged and no session is ever refused; the engine still asks, at the places where a limited
// edition would answer otherwise.
enum LicenceQuestion { LicenceComputerFlagged, LicenceSessionRefused };
int LicenceSays(LicenceQuestion question);
