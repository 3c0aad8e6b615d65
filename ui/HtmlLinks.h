// The clickable links of a drawn rich text. Each link ("<A>" ... "</A>", "<A1>" ... "<A9>") keeps
// its command id, its text and one rectangle per line it covers, in coordinates relative to the
// top-left corner of the rectangle the text was drawn into. A static control keeps the list of
// its last draw and hit-tests mouse positions against it.
//
// Free of Windows calls (RECT comes from windows.h on Windows and is stood in for natively), so
// the layout code that fills these lists also builds for the sanitizer and fuzzing build.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#ifdef _WIN32
#include <windows.h>
#else
typedef struct tagRECT {
    int32_t left, top, right, bottom;
} RECT;
#endif

class DrawHTMLLinkArea {
public:
    explicit DrawHTMLLinkArea(int nCmdID = 0) : nCmdID(nCmdID) {}
    // One owner per area: the list holds it, copies would only duplicate rectangles by accident.
    DrawHTMLLinkArea(const DrawHTMLLinkArea&) = delete;
    DrawHTMLLinkArea& operator=(const DrawHTMLLinkArea&) = delete;

    int GetCmdID() const { return nCmdID; }
    // Opens a rectangle at x, y (its left and top); an open one is closed there first.
    void StartRect(int x, int y);
    // Closes the open rectangle with x, y as its right and bottom (never left of or above its
    // start); does nothing when none is open.
    void EndRect(int x, int y);
    bool IsRectOpen() const { return bOpen; }
    void AddText(const wchar_t* p, size_t n) { text.append(p, n); }
    const wchar_t* GetText() const { return text.c_str(); }
    // True when x, y lies in one of the closed rectangles (right and bottom edges excluded).
    bool IsPointOverLink(int x, int y) const;
    const std::vector<RECT>& GetRects() const { return rects; }

private:
    int nCmdID;
    std::wstring text;
    std::vector<RECT> rects;
    RECT open = {0, 0, 0, 0};
    bool bOpen = false;
};

// The links of the last draw, in the order their spans ended.
class DrawHTMLLinks {
public:
    DrawHTMLLinks() = default;
    DrawHTMLLinks(const DrawHTMLLinks&) = delete;
    DrawHTMLLinks& operator=(const DrawHTMLLinks&) = delete;

    void Reset() { areas.clear(); }
    void Add(std::unique_ptr<DrawHTMLLinkArea> area) { areas.push_back(std::move(area)); }
    size_t GetCount() const { return areas.size(); }
    const DrawHTMLLinkArea* Get(size_t i) const { return i < areas.size() ? areas[i].get() : nullptr; }
    // The first link whose rectangles hold x, y; null when none does.
    const DrawHTMLLinkArea* Find(int x, int y) const;

private:
    std::vector<std::unique_ptr<DrawHTMLLinkArea>> areas;
};
