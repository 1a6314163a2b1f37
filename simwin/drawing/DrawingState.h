// The room's own state: drawing objects, device contexts and icons. Used by the room's sources only.
#pragma once

#include "simwin/desktop/DesktopState.h"
#include "simwin/drawing/api.h"
#include "simwin/kernel/Room.h"

#include <map>
#include <memory>
#include <string>

namespace machine {

enum class GdiKind : std::uint8_t { Pen, Brush, Font, Bitmap, Region };

struct GdiObject {
    GdiKind kind;
    Process* process = nullptr;  // null: the system's own, for everybody
    simwin::COLORREF colour = 0; // of a brush
    simwin::LONG fontHeight = 0;
    bool isBold = false;
    simwin::SIZE size{}; // of a bitmap
    DisplayList drawn{}; // on a bitmap
    RoundShape shape{};  // of a region
    unsigned selected = 0;
};

struct DeviceContext {
    Process* process = nullptr;
    simwin::HWND window = nullptr; // null: the screen's, or in memory
    bool isMemory = false;
    simwin::HGDIOBJ bitmap = nullptr, font = nullptr, brush = nullptr, pen = nullptr;
    simwin::COLORREF textColour = 0, backColour = 0xFFFFFF;
    int backMode = 2; // OPAQUE
    simwin::UINT align = 0;
    simwin::DWORD layout = 0;
};

struct IconFacts {
    int resource;
    int width, height;
    bool isShared;
};

struct DrawingState {
    std::map<std::uint64_t, GdiObject> objects;
    std::map<std::uint64_t, DeviceContext> contexts;
    std::map<std::uint64_t, IconFacts> icons;
    std::uint64_t next = 0x50010;
    simwin::HGDIOBJ nullPen = nullptr, brush = nullptr, font = nullptr, bitmap = nullptr; // what a context begins with
};

DrawingState& TheDrawing();
std::uint64_t NewDrawingHandle();
GdiObject* GdiFor(simwin::HGDIOBJ handle);                   // null if there is none
GdiObject* GdiFor(simwin::HGDIOBJ handle, GdiKind kind);     // null also for another kind
DeviceContext* ContextFor(simwin::HDC handle);               // null if there is none
simwin::HGDIOBJ AddGdi(GdiObject object);                    // of the running process
const GdiObject& SelectedFont(const DeviceContext& context); // always one

// Adds an item to what the context draws on, mirrored where its layout says so, and notifies the window's watchers.
void Draw(const DeviceContext& context, DrawnItem item);
// Fills the whole surface: what was there before is no longer visible.
void DrawFill(const DeviceContext& context, DrawnItem item);
// Replaces what a window shows by a list.
void ShowOnWindow(Window& window, DisplayList drawn);
// A window shows what is drawn on it; a layered one shows the whole picture that it was given.
bool ShowsDrawing(const Window& window);

RoomPtr MakeDrawing();

} // namespace machine
