#include "simwin/drawing/DrawingState.h"

#include <algorithm>

namespace machine {

using namespace simwin;

static DrawingState* g_drawing;
constexpr LONG SystemFontHeight = 12;

static HGDIOBJ AddSystemObject(GdiKind kind) {
    const std::uint64_t handle = NewDrawingHandle();
    GdiObject object{kind};
    object.fontHeight = SystemFontHeight;
    object.colour = 0xFFFFFF;
    object.size = {1, 1};
    g_drawing->objects.emplace(handle, std::move(object));
    return reinterpret_cast<HGDIOBJ>(handle);
}

static void DropOf(Process& process) {
    if (!g_drawing) {
        return; // the machine is being taken down
    }
    std::erase_if(g_drawing->objects, [&](const auto& entry) { return entry.second.process == &process; });
    std::erase_if(g_drawing->contexts, [&](const auto& entry) { return entry.second.process == &process; });
}

RoomPtr MakeDrawing() {
    RoomPtr room = MakeRoom(g_drawing);
    g_drawing->nullPen = AddSystemObject(GdiKind::Pen);
    g_drawing->brush = AddSystemObject(GdiKind::Brush);
    g_drawing->font = AddSystemObject(GdiKind::Font);
    g_drawing->bitmap = AddSystemObject(GdiKind::Bitmap);
    OnProcessEnd(DropOf);
    return room;
}

// The list that a context draws on, and its width; null for the screen and for a layered window.
static DisplayList* TargetOf(const DeviceContext& context, LONG* width, LONG* height) {
    if (context.isMemory) {
        GdiObject* bitmap = GdiFor(context.bitmap);
        *width = bitmap->size.cx;
        *height = bitmap->size.cy;
        return &bitmap->drawn;
    }
    Window* window = WindowFor(context.window);
    if (!window || !ShowsDrawing(*window)) {
        return nullptr;
    }
    *width = window->rect.right - window->rect.left;
    *height = window->rect.bottom - window->rect.top;
    return &window->drawn;
}

static void AddItem(const DeviceContext& context, DrawnItem item, bool isFill) {
    LONG width = 0, height = 0;
    DisplayList* drawn = TargetOf(context, &width, &height);
    if (!drawn) {
        return;
    }
    if (context.layout & LAYOUT_RTL) {
        const RECT place = item.place;
        item.place.left = width - place.right;
        item.place.right = width - place.left;
    }
    if (isFill && item.place.left <= 0 && item.place.top <= 0 && item.place.right >= width &&
        item.place.bottom >= height) {
        drawn->clear();
    }
    drawn->push_back(std::move(item));
    if (const Window* window = context.isMemory ? nullptr : WindowFor(context.window)) {
        TellChange(*window, WindowChange::Drawn);
    }
}

DrawingState& TheDrawing() {
    return *g_drawing;
}

std::uint64_t NewDrawingHandle() {
    const std::uint64_t handle = g_drawing->next;
    g_drawing->next += 4;
    return handle;
}

GdiObject* GdiFor(HGDIOBJ handle) {
    const auto found = g_drawing->objects.find(reinterpret_cast<std::uint64_t>(handle));
    return found == g_drawing->objects.end() ? nullptr : &found->second;
}

GdiObject* GdiFor(HGDIOBJ handle, GdiKind kind) {
    GdiObject* object = GdiFor(handle);
    return object && object->kind == kind ? object : nullptr;
}

DeviceContext* ContextFor(HDC handle) {
    const auto found = g_drawing->contexts.find(reinterpret_cast<std::uint64_t>(handle));
    return found == g_drawing->contexts.end() ? nullptr : &found->second;
}

HGDIOBJ AddGdi(GdiObject object) {
    object.process = CurrentProcess();
    const std::uint64_t handle = NewDrawingHandle();
    g_drawing->objects.emplace(handle, std::move(object));
    return reinterpret_cast<HGDIOBJ>(handle);
}

const GdiObject& SelectedFont(const DeviceContext& context) {
    const GdiObject* font = GdiFor(context.font, GdiKind::Font);
    return font ? *font : g_drawing->objects.at(reinterpret_cast<std::uint64_t>(g_drawing->font));
}

void Draw(const DeviceContext& context, DrawnItem item) {
    AddItem(context, std::move(item), /*isFill=*/false);
}

void DrawFill(const DeviceContext& context, DrawnItem item) {
    AddItem(context, std::move(item), /*isFill=*/true);
}

bool ShowsDrawing(const Window& window) {
    return !(window.extendedStyle & WS_EX_LAYERED) || window.hasAttributes;
}

void ShowOnWindow(Window& window, DisplayList drawn) {
    window.drawn = std::move(drawn);
    TellChange(window, WindowChange::Drawn);
}

// A region that a window takes over no longer belongs to the program.
LRESULT GiveRegion(HWND handle, HRGN region) {
    Window* window = WindowFor(handle);
    if (!window) {
        return 0;
    }
    if (!region) {
        window->region.reset();
        return 1;
    }
    const GdiObject* object = GdiFor(region, GdiKind::Region);
    if (!object) {
        CurrentThread()->lastError = ERROR_INVALID_HANDLE;
        return 0;
    }
    window->region = object->shape;
    g_drawing->objects.erase(reinterpret_cast<std::uint64_t>(static_cast<HGDIOBJ>(region)));
    return 1;
}

SIZE TextSize(const std::string& text, LONG fontHeight) {
    const LONG charWidth = (fontHeight + 1) / 2, lineHeight = fontHeight * 4 / 3;
    SIZE size = {0, 0};
    std::size_t start = 0;
    while (start < text.size()) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        std::size_t length = end - start;
        if (length > 0 && text[end - 1] == '\r') {
            --length;
        }
        size.cx = std::max(size.cx, static_cast<LONG>(length) * charWidth);
        size.cy += lineHeight;
        start = end + 1;
    }
    return size;
}

} // namespace machine
