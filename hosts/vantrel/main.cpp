// The configuration utility's host.
#include "hosts/HostMain.h"

int WINAPI wWinMain(HINSTANCE hInstance, HINSTANCE, LPWSTR cmdLine, int show)
{
    return RunLibraryEntry(hInstance, cmdLine, show, "DoWinMainCFG");
}
