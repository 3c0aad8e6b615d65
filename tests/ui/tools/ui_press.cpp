// Presses a control of a message box from another process, as the product's other processes
// do: the registered message "KorvaneMessage" with code 6 and the control's id.
//   ui_press.exe <box window, decimal> <control id>
#include <windows.h>

#include <cwchar>
#include <cwctype>

int wmain(int argc, wchar_t** argv)
{
    if (argc != 3)
        return 2;
    HWND box = (HWND)(ULONG_PTR)wcstoull(argv[1], nullptr, 10);
    const int id = (int)wcstol(argv[2], nullptr, 10);
    if (!IsWindow(box))
        return 3;
    const UINT msg = RegisterWindowMessageW(L"KorvaneMessage");
    return PostMessageW(box, msg, 6, id) ? 0 : 1;
}
