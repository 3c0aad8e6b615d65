#include "ui/HtmlLinks.h"

void DrawHTMLLinkArea::StartRect(int x, int y)
{
    if (bOpen)
        EndRect(x, y);
    open.left = x;
    open.top = y;
    open.right = x;
    open.bottom = y;
    bOpen = true;
}

void DrawHTMLLinkArea::EndRect(int x, int y)
{
    if (!bOpen)
        return;
    open.right = x < open.left ? open.left : x;
    open.bottom = y < open.top ? open.top : y;
    rects.push_back(open);
    bOpen = false;
}

bool DrawHTMLLinkArea::IsPointOverLink(int x, int y) const
{
    for (const RECT& r : rects)
        if (x >= r.left && x < r.right && y >= r.top && y < r.bottom)
            return true;
    return false;
}

const DrawHTMLLinkArea* DrawHTMLLinks::Find(int x, int y) const
{
    for (const auto& area : areas)
        if (area->IsPointOverLink(x, y))
            return area.get();
    return nullptr;
}
