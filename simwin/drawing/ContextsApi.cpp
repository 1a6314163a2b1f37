#include "simwin/drawing/DrawingState.h"

#include "simwin/kernel/Call.h"
#include "simwin/kernel/Setup.h"

#include <utility>

namespace machine {

using namespace simwin;

template<typename Result>
static Result Fail(DWORD error, Result result) {
    SetError(error);
    return result;
}

static HDC AddContext(DeviceContext context) {
    const DrawingState& drawing = TheDrawing();
    context.process = CurrentProcess();
    context.font = drawing.font;
    context.brush = drawing.brush;
    context.pen = drawing.nullPen;
    const std::uint64_t handle = NewDrawingHandle();
    TheDrawing().contexts.emplace(handle, context);
    return reinterpret_cast<HDC>(handle);
}

static void Unselect(HGDIOBJ handle) {
    if (GdiObject* object = GdiFor(handle); object && object->selected > 0) {
        --object->selected;
    }
}

static void DropContext(HDC handle) {
    const DeviceContext* context = ContextFor(handle);
    for (const HGDIOBJ object : {context->bitmap, context->font, context->brush, context->pen}) {
        Unselect(object);
    }
    TheDrawing().contexts.erase(reinterpret_cast<std::uint64_t>(handle));
}

// Null with the last error set.
static DeviceContext* UseContext(HDC handle, DWORD error = 0) {
    DeviceContext* context = error ? nullptr : ContextFor(handle);
    if (!context) {
        SetError(error ? error : DWORD{ERROR_INVALID_HANDLE});
    }
    return context;
}

static HGDIOBJ* SlotOf(DeviceContext& context, GdiKind kind) {
    switch (kind) {
    case GdiKind::Pen:
        return &context.pen;
    case GdiKind::Brush:
        return &context.brush;
    case GdiKind::Font:
        return &context.font;
    case GdiKind::Bitmap:
        return context.isMemory ? &context.bitmap : nullptr;
    case GdiKind::Region:
        break;
    }
    return nullptr;
}

} // namespace machine

namespace simwin {

using namespace machine;

HDC GetDC(HWND window) {
    SIM_CALL("GetDC", "", ERROR_INVALID_WINDOW_HANDLE, ERROR_NOT_ENOUGH_MEMORY);
    const bool isKnown = !window || window == DesktopWindow || WindowFor(window);
    if (simCall.error || !isKnown) {
        return Fail<HDC>(simCall.error ? simCall.error : DWORD{ERROR_INVALID_WINDOW_HANDLE}, nullptr);
    }
    DeviceContext context;
    context.window = window == DesktopWindow ? nullptr : window;
    return AddContext(context);
}

int ReleaseDC(HWND, HDC handle) {
    SIM_CALL("ReleaseDC", "");
    const DeviceContext* context = UseContext(handle);
    if (!context || context->isMemory) {
        return 0;
    }
    DropContext(handle);
    return 1;
}

int GetDeviceCaps(HDC handle, int index) {
    SIM_CALL("GetDeviceCaps", "");
    if (!UseContext(handle)) {
        return 0;
    }
    switch (index) {
    case HORZRES:
        return TheSetup().screenWidth;
    case VERTRES:
        return TheSetup().screenHeight;
    case LOGPIXELSX:
        return TheSetup().dpi;
    default:
        NotModelled("GetDeviceCaps", "indices other than those that are declared");
    }
}

HDC CreateCompatibleDC(HDC like) {
    SIM_CALL("CreateCompatibleDC", "", ERROR_NOT_ENOUGH_MEMORY, ERROR_INVALID_HANDLE);
    const DeviceContext* model = like ? UseContext(like, simCall.error) : nullptr;
    if (simCall.error || (like && !model)) {
        return Fail<HDC>(simCall.error ? simCall.error : DWORD{ERROR_INVALID_HANDLE}, nullptr);
    }
    DeviceContext context;
    context.isMemory = true;
    context.bitmap = TheDrawing().bitmap;
    context.layout = model ? model->layout : 0;
    return AddContext(context);
}

BOOL DeleteDC(HDC handle) {
    SIM_CALL("DeleteDC", "");
    if (!UseContext(handle)) {
        return FALSE;
    }
    DropContext(handle);
    return TRUE;
}

HBITMAP CreateCompatibleBitmap(HDC like, int width, int height) {
    SIM_CALL("CreateCompatibleBitmap", "", ERROR_NOT_ENOUGH_MEMORY);
    if (!UseContext(like, simCall.error)) {
        return nullptr;
    }
    if (width < 0 || height < 0) {
        return Fail<HBITMAP>(ERROR_INVALID_PARAMETER, nullptr);
    }
    GdiObject bitmap{GdiKind::Bitmap};
    bitmap.size = {width, height};
    return static_cast<HBITMAP>(AddGdi(std::move(bitmap)));
}

HGDIOBJ SelectObject(HDC handle, HGDIOBJ object) {
    SIM_CALL("SelectObject", "", ERROR_INVALID_HANDLE);
    DeviceContext* context = UseContext(handle, simCall.error);
    GdiObject* selected = context ? GdiFor(object) : nullptr;
    HGDIOBJ* slot = selected ? SlotOf(*context, selected->kind) : nullptr;
    const bool isElsewhere =
        slot && selected->kind == GdiKind::Bitmap && selected->process && selected->selected > 0 && *slot != object;
    if (!slot || isElsewhere) {
        return Fail<HGDIOBJ>(ERROR_INVALID_HANDLE, nullptr);
    }
    const HGDIOBJ before = *slot;
    Unselect(before);
    ++selected->selected;
    *slot = object;
    return before;
}

BOOL DeleteObject(HGDIOBJ handle) {
    SIM_CALL("DeleteObject", "");
    const GdiObject* object = GdiFor(handle);
    if (!object || object->selected > 0) {
        return FALSE;
    }
    if (object->process) { // what belongs to the system stays
        TheDrawing().objects.erase(reinterpret_cast<std::uint64_t>(handle));
    }
    return TRUE;
}

HGDIOBJ GetStockObject(int index) {
    SIM_CALL("GetStockObject", "");
    if (index != NULL_PEN) {
        NotModelled("GetStockObject", "anything but the null pen");
    }
    return TheDrawing().nullPen;
}

HBRUSH CreateSolidBrush(COLORREF colour) {
    SIM_CALL("CreateSolidBrush", "", ERROR_NOT_ENOUGH_MEMORY);
    if (simCall.error) {
        return Fail<HBRUSH>(simCall.error, nullptr);
    }
    GdiObject brush{GdiKind::Brush};
    brush.colour = colour & 0xFFFFFF;
    return static_cast<HBRUSH>(AddGdi(std::move(brush)));
}

COLORREF SetTextColor(HDC handle, COLORREF colour) {
    SIM_CALL("SetTextColor", "");
    DeviceContext* context = UseContext(handle);
    return context ? std::exchange(context->textColour, colour & 0xFFFFFF) : COLORREF{CLR_INVALID};
}

COLORREF SetBkColor(HDC handle, COLORREF colour) {
    SIM_CALL("SetBkColor", "");
    DeviceContext* context = UseContext(handle);
    return context ? std::exchange(context->backColour, colour & 0xFFFFFF) : COLORREF{CLR_INVALID};
}

int SetBkMode(HDC handle, int mode) {
    SIM_CALL("SetBkMode", "");
    DeviceContext* context = UseContext(handle);
    return context ? std::exchange(context->backMode, mode) : 0;
}

UINT SetTextAlign(HDC handle, UINT align) {
    SIM_CALL("SetTextAlign", "");
    if (align & ~TA_RTLREADING) {
        NotModelled("SetTextAlign", "anything but the reading direction");
    }
    DeviceContext* context = UseContext(handle);
    return context ? std::exchange(context->align, align) : UINT{GDI_ERROR};
}

DWORD SetLayout(HDC handle, DWORD layout) {
    SIM_CALL("SetLayout", "");
    if (layout & ~LAYOUT_RTL) {
        NotModelled("SetLayout", "layouts other than from left to right and from right to left");
    }
    DeviceContext* context = UseContext(handle);
    return context ? std::exchange(context->layout, layout) : DWORD{GDI_ERROR};
}

BOOL SetProcessDefaultLayout(DWORD layout) {
    SIM_CALL("SetProcessDefaultLayout", "");
    if (layout != 0) {
        NotModelled("SetProcessDefaultLayout", "a mirrored layout");
    }
    return TRUE;
}

BOOL BitBlt(HDC to, int, int, int, int, HDC from, int fromX, int fromY, DWORD operation) {
    SIM_CALL("BitBlt", "", ERROR_INVALID_HANDLE);
    if (operation != SRCCOPY || fromX != 0 || fromY != 0) {
        NotModelled("BitBlt", "anything but a copy from the corner");
    }
    const DeviceContext* target = UseContext(to, simCall.error);
    const DeviceContext* source = target ? UseContext(from) : nullptr;
    const GdiObject* bitmap = source && source->isMemory ? GdiFor(source->bitmap) : nullptr;
    if (!bitmap) {
        return Fail(ERROR_INVALID_HANDLE, FALSE);
    }
    if (target->isMemory) {
        GdiFor(target->bitmap)->drawn = bitmap->drawn;
    } else if (machine::Window* window = WindowFor(target->window); window && ShowsDrawing(*window)) {
        ShowOnWindow(*window, bitmap->drawn);
    }
    return TRUE;
}

BOOL UpdateLayeredWindow(HWND handle, HDC, POINT* place, SIZE* size, HDC from, POINT*, COLORREF, BLENDFUNCTION* blend,
                         DWORD flags) {
    SIM_CALL("UpdateLayeredWindow", "", ERROR_INVALID_WINDOW_HANDLE, ERROR_INVALID_PARAMETER, ERROR_NOT_ENOUGH_MEMORY);
    if (flags != ULW_ALPHA) {
        NotModelled("UpdateLayeredWindow", "flags other than ULW_ALPHA");
    }
    machine::Window* window = simCall.error ? nullptr : WindowFor(handle);
    if (!window) {
        return Fail(simCall.error ? simCall.error : DWORD{ERROR_INVALID_WINDOW_HANDLE}, FALSE);
    }
    if (!(window->extendedStyle & WS_EX_LAYERED) || window->hasAttributes || (from && !size)) {
        return Fail(ERROR_INVALID_PARAMETER, FALSE);
    }
    const DeviceContext* source = from ? UseContext(from) : nullptr;
    const GdiObject* bitmap = source && source->isMemory ? GdiFor(source->bitmap) : nullptr;
    if (from && !bitmap) {
        return Fail(ERROR_INVALID_HANDLE, FALSE);
    }
    if (blend) {
        window->alpha = blend->SourceConstantAlpha;
    }
    const LONG left = place ? place->x : window->rect.left, top = place ? place->y : window->rect.top;
    const LONG width = size ? size->cx : window->rect.right - window->rect.left;
    const LONG height = size ? size->cy : window->rect.bottom - window->rect.top;
    SetPlace(*window, {left, top, left + width, top + height});
    if (bitmap) {
        ShowOnWindow(*window, bitmap->drawn);
    } else {
        TellChange(*window, WindowChange::Drawn);
    }
    return TRUE;
}

BOOL SetLayeredWindowAttributes(HWND handle, COLORREF, BYTE alpha, DWORD flags) {
    SIM_CALL("SetLayeredWindowAttributes", "", ERROR_INVALID_WINDOW_HANDLE, ERROR_INVALID_PARAMETER);
    if (flags != LWA_ALPHA) {
        NotModelled("SetLayeredWindowAttributes", "flags other than LWA_ALPHA");
    }
    machine::Window* window = simCall.error ? nullptr : WindowFor(handle);
    if (!window) {
        return Fail(simCall.error ? simCall.error : DWORD{ERROR_INVALID_WINDOW_HANDLE}, FALSE);
    }
    if (!(window->extendedStyle & WS_EX_LAYERED)) {
        return Fail(ERROR_INVALID_PARAMETER, FALSE);
    }
    window->hasAttributes = true;
    window->alpha = alpha;
    TellChange(*window, WindowChange::Drawn);
    return TRUE;
}

} // namespace simwin
