// Sends keyboard or mouse input with SendInput, from a process of its own, as a user would type
// or move the mouse in the session.
//   monitor_send_input.exe key|mouse [count]
// key: the Shift key pressed and released; mouse: one pixel right and back. Exit code 0 when every
// event was taken, 1 when some were refused, 2 for bad arguments.
#include <windows.h>

#include <cwchar>

int wmain(int argc, wchar_t** argv)
{
    if (argc < 2 || argc > 3)
        return 2;
    const bool key = wcscmp(argv[1], L"key") == 0;
    if (!key && wcscmp(argv[1], L"mouse") != 0)
        return 2;
    const long count = argc == 3 ? wcstol(argv[2], nullptr, 10) : 1;
    if (count < 1 || count > 100000)
        return 2;
    INPUT in[2] = {};
    for (int i = 0; i < 2; ++i) {
        if (key) {
            in[i].type = INPUT_KEYBOARD;
            in[i].ki.wVk = VK_SHIFT;
            in[i].ki.dwFlags = i ? KEYEVENTF_KEYUP : 0;
        } else {
            in[i].type = INPUT_MOUSE;
            in[i].mi.dx = i ? -1 : 1;
            in[i].mi.dwFlags = MOUSEEVENTF_MOVE;
        }
    }
    for (long n = 0; n < count; ++n)
        if (SendInput(2, in, sizeof(INPUT)) != 2)
            return 1;
    return 0;
}
