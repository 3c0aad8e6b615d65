#include "base/Resources.h"

static HINSTANCE g_hResModule = nullptr;

HINSTANCE GetResourceModule() { return g_hResModule; }

void SetResourceModule(HINSTANCE module) { g_hResModule = module; }

int LoadResString(int id, wchar_t* buf, unsigned cch)
{
    if (!buf || cch == 0)
        return 0;
    buf[0] = 0;
    int n = LoadStringW(g_hResModule, (UINT)id, buf, (int)cch);
    if (n <= 0) {
        buf[0] = 0;
        return 0;
    }
    return n;
}
