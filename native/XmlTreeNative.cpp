// The native build's stand-in for XmlTreeIO.cpp's message box. There is no window to show a
// parse error in, and the settings import parses silently; a tree that is not silent here would
// have put a message box in front of the administrator, so it stops the run instead.
#include <cstdio>
#include <cstdlib>

#include "storage/XmlTree.h"

void XmlTree::ParseShowError(HWND) const
{
    if (silent)
        return;
    std::fprintf(stderr, "XmlTree: parse error %d in line %u would show a message box\n", nErrorId, nErrorLine);
    std::abort();
}
