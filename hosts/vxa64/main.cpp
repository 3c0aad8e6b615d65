// The service host: runs the service ("/service") and the command-line modes of VXDA64.DLL.
#include "hosts/HostMain.h"

int WINAPI wWinMain(HINSTANCE hInstance, HINSTANCE, LPWSTR cmdLine, int show)
{
    return RunLibraryEntry(hInstance, cmdLine, show, "DoWinMain");
}
