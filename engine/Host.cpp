#include "engine/Host.h"

static HMODULE g_hHostModule = nullptr;

void SetHostModule(HMODULE module) { g_hHostModule = module; }

HMODULE GetHostModule() { return g_hHostModule; }

int LicenceSays(LicenceQuestion) { return 0; }
