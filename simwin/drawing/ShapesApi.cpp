// Shapes, regions, fonts, texts and icons.
#include "simwin/drawing/DrawingState.h"

#include "simwin/kernel/Call.h"
#include "simwin/modules/Resources.h"

#include <cstdlib>
#include <cstring>

namespace machine {

using namespace simwin;

constexpr const char* IconGroups = "#14"; // the resource type of icons
constexpr const char* SystemArrow = "#32512";
constexpr int LoadedSize = 32; // of an icon that is loaded without a size
const HCURSOR ArrowCursor = reinterpret_cast<HCURSOR>(0x20001ull);

template<typename Result>
static Result Fail(DWORD error, Result result) {
    SetError(error);
    return result;
}

static DeviceContext* UseContext(HDC handle, DWORD error = 0) {
    DeviceContext* context = error ? nullptr : ContextFor(handle);
    if (!context) {
        SetError(error ? error : DWORD{ERROR_INVALID_HANDLE});
    }
    return context;
}

// One icon for each size of a group that is shared; null with the last error set.
static HICON IconOf(LPCSTR name, int width, int height, bool isShared) {
    if (ProgramResources().empty()) {
        return Fail<HICON>(ERROR_RESOURCE_TYPE_NOT_FOUND, nullptr);
    }
    const std::string id = ResourceId(name);
    if (!FindProgramResource(IconGroups, id)) {
        return Fail<HICON>(ERROR_RESOURCE_NAME_NOT_FOUND, nullptr);
    }
    const int resource = std::atoi(id.c_str() + 1);
    auto& icons = TheDrawing().icons;
    for (const auto& [handle, icon] : icons) {
        if (isShared && icon.isShared && icon.resource == resource && icon.width == width && icon.height == height) {
            return reinterpret_cast<HICON>(handle);
        }
    }
    const std::uint64_t handle = NewDrawingHandle();
    icons.emplace(handle, IconFacts{resource, width, height, isShared});
    return reinterpret_cast<HICON>(handle);
}

static const IconFacts* IconFor(HICON handle) {
    const auto& icons = TheDrawing().icons;
    const auto found = icons.find(reinterpret_cast<std::uint64_t>(handle));
    return found == icons.end() ? nullptr : &found->second;
}

} // namespace machine

namespace simwin {

using namespace machine;

BOOL RoundRect(HDC handle, int left, int top, int right, int bottom, int width, int) {
    SIM_CALL("RoundRect", "", ERROR_INVALID_HANDLE);
    const DeviceContext* context = UseContext(handle, simCall.error);
    if (!context) {
        return FALSE;
    }
    if (context->pen != TheDrawing().nullPen) {
        NotModelled("RoundRect", "a pen other than the null pen");
    }
    DrawnItem item;
    item.kind = DrawnKind::Fill;
    item.place = {left, top, right, bottom};
    item.colour = GdiFor(context->brush)->colour;
    item.diameter = width;
    DrawFill(*context, std::move(item));
    return TRUE;
}

HRGN CreateRoundRectRgn(int left, int top, int right, int bottom, int width, int) {
    SIM_CALL("CreateRoundRectRgn", "", ERROR_NOT_ENOUGH_MEMORY);
    if (simCall.error) {
        return Fail<HRGN>(simCall.error, nullptr);
    }
    GdiObject region{GdiKind::Region};
    region.shape = {{left, top, right - 1, bottom - 1}, width}; // one pixel less than was asked for, as on Windows
    return static_cast<HRGN>(AddGdi(std::move(region)));
}

BOOL FrameRgn(HDC handle, HRGN region, HBRUSH brush, int, int) {
    SIM_CALL("FrameRgn", "", ERROR_INVALID_HANDLE);
    const DeviceContext* context = UseContext(handle, simCall.error);
    const GdiObject* shape = GdiFor(region, GdiKind::Region);
    const GdiObject* colour = GdiFor(brush, GdiKind::Brush);
    if (!context || !shape || !colour) {
        return Fail(ERROR_INVALID_HANDLE, FALSE);
    }
    DrawnItem item;
    item.kind = DrawnKind::Frame;
    item.place = shape->shape.rect;
    item.diameter = shape->shape.diameter;
    item.colour = colour->colour;
    Draw(*context, std::move(item));
    return TRUE;
}

HFONT CreateFontIndirectA(const LOGFONTA* font) {
    SIM_CALL("CreateFontIndirectA", font->lfFaceName, ERROR_NOT_ENOUGH_MEMORY);
    if (simCall.error) {
        return Fail<HFONT>(simCall.error, nullptr);
    }
    if (font->lfHeight >= 0) {
        NotModelled("CreateFontIndirectA", "a height that is not negative");
    }
    GdiObject object{GdiKind::Font};
    object.fontHeight = -font->lfHeight;
    object.isBold = font->lfWeight >= FW_BOLD;
    return static_cast<HFONT>(AddGdi(std::move(object)));
}

int DrawTextA(HDC handle, LPCSTR text, int count, LPRECT rect, UINT format) {
    SIM_CALL("DrawTextA", "", ERROR_INVALID_HANDLE);
    if (format & ~(DT_RIGHT | DT_CALCRECT | DT_NOPREFIX | DT_RTLREADING) || !(format & (DT_NOPREFIX | DT_CALCRECT))) {
        NotModelled("DrawTextA", "this format");
    }
    const DeviceContext* context = UseContext(handle, simCall.error);
    if (!context) {
        return 0;
    }
    const GdiObject& font = SelectedFont(*context);
    DrawnItem item;
    item.kind = DrawnKind::Text;
    item.text = count < 0 ? std::string(text) : std::string(text, static_cast<std::size_t>(count));
    const SIZE size = TextSize(item.text, font.fontHeight);
    if (format & DT_CALCRECT) {
        rect->right = rect->left + size.cx;
        rect->bottom = rect->top + size.cy;
        return size.cy;
    }
    item.endsRight = (format & DT_RIGHT) != 0;
    const LONG left = item.endsRight ? rect->right - size.cx : rect->left;
    item.place = {left, rect->top, left + size.cx, rect->top + size.cy};
    item.colour = context->textColour;
    item.fontHeight = font.fontHeight;
    item.isBold = font.isBold;
    Draw(*context, std::move(item));
    return size.cy;
}

HICON LoadIconA(HINSTANCE instance, LPCSTR name) {
    SIM_CALL("LoadIconA", ResourceId(name), ERROR_RESOURCE_TYPE_NOT_FOUND, ERROR_RESOURCE_NAME_NOT_FOUND);
    if (!instance) {
        NotModelled("LoadIconA", "the system's own icons");
    }
    if (simCall.error) {
        return Fail<HICON>(simCall.error, nullptr);
    }
    return IconOf(name, LoadedSize, LoadedSize, /*isShared=*/true);
}

HCURSOR LoadCursorA(HINSTANCE instance, LPCSTR name) {
    SIM_CALL("LoadCursorA", ResourceId(name));
    if (instance || ResourceId(name) != SystemArrow) {
        NotModelled("LoadCursorA", "anything but the system's arrow");
    }
    return ArrowCursor;
}

HANDLE LoadImageA(HINSTANCE instance, LPCSTR name, UINT kind, int width, int height, UINT flags) {
    SIM_CALL("LoadImageA", ResourceId(name), ERROR_RESOURCE_TYPE_NOT_FOUND, ERROR_RESOURCE_NAME_NOT_FOUND);
    if (!instance || kind != IMAGE_ICON || (flags & ~LR_SHARED)) {
        NotModelled("LoadImageA", "anything but an icon of the program");
    }
    if (simCall.error) {
        return Fail<HANDLE>(simCall.error, nullptr);
    }
    return IconOf(name, width, height, (flags & LR_SHARED) != 0);
}

BOOL DestroyIcon(HICON icon) {
    SIM_CALL("DestroyIcon", "");
    const IconFacts* facts = IconFor(icon);
    if (!facts) {
        return Fail(ERROR_INVALID_CURSOR_HANDLE, FALSE);
    }
    if (!facts->isShared) {
        TheDrawing().icons.erase(reinterpret_cast<std::uint64_t>(icon));
    }
    return TRUE;
}

BOOL DrawIconEx(HDC handle, int x, int y, HICON icon, int width, int height, UINT, HBRUSH, UINT flags) {
    SIM_CALL("DrawIconEx", "", ERROR_INVALID_HANDLE);
    if (flags != DI_NORMAL) {
        NotModelled("DrawIconEx", "flags other than DI_NORMAL");
    }
    const DeviceContext* context = UseContext(handle, simCall.error);
    const IconFacts* facts = IconFor(icon);
    if (!context || !facts) {
        return Fail(context ? DWORD{ERROR_INVALID_CURSOR_HANDLE} : DWORD{ERROR_INVALID_HANDLE}, FALSE);
    }
    DrawnItem item;
    item.kind = DrawnKind::Icon;
    item.place = {x, y, x + width, y + height};
    item.resource = facts->resource;
    Draw(*context, std::move(item));
    return TRUE;
}

BOOL DrawFrameControl(HDC handle, LPRECT rect, UINT kind, UINT state) {
    SIM_CALL("DrawFrameControl", "", ERROR_INVALID_HANDLE);
    if (kind != DFC_CAPTION || (state & ~DFCS_FLAT) != DFCS_CAPTIONCLOSE) {
        NotModelled("DrawFrameControl", "anything but a caption's close mark");
    }
    const DeviceContext* context = UseContext(handle, simCall.error);
    if (!context) {
        return FALSE;
    }
    DrawnItem item;
    item.kind = DrawnKind::Control;
    item.place = *rect;
    Draw(*context, std::move(item));
    return TRUE;
}

} // namespace simwin
