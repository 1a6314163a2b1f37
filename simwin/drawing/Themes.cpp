// Visual styles: the class TOOLTIP of whatever theme the user has.
#include "simwin/drawing/DrawingState.h"

#include "simwin/kernel/Call.h"
#include "simwin/kernel/Optional.h"
#include "simwin/kernel/Setup.h"
#include "simwin/kernel/Text.h"

namespace machine {

using namespace simwin;

const HTHEME ToolTipTheme = reinterpret_cast<HTHEME>(0x60001ull);
constexpr HRESULT NoTheme = static_cast<HRESULT>(0x80070006), NoPart = static_cast<HRESULT>(0x80070490);
constexpr unsigned FirstVersion = 0x0501;
constexpr int StandardPart = 1, BalloonPart = 3, TitlePart = 4, ClosePart = 5;
constexpr LONG BalloonDiameter = 7;
constexpr LONG BrokenExtent = 10'000; // what a broken theme measures
constexpr LONG FontPoints = 9, PointsPerInch = 72;

static std::string Narrow(LPCWSTR text, int count) {
    std::u16string wide;
    for (int i = 0; count < 0 ? text[i] != 0 : i < count; ++i) {
        wide += static_cast<char16_t>(text[i]);
    }
    return AnsiFromUtf16(wide);
}

static LONG FontHeight() {
    return (FontPoints * TheSetup().dpi + PointsPerInch / 2) / PointsPerInch;
}

// 0, or the error of the call.
static HRESULT CheckPart(HTHEME theme, HDC context, int part) {
    if (theme != ToolTipTheme || !ContextFor(context)) {
        return NoTheme;
    }
    return part >= StandardPart && part <= ClosePart ? 0 : NoPart;
}

} // namespace machine

namespace simwin {

using namespace machine;

static HTHEME OpenThemeData(HWND window, LPCWSTR classes) {
    SIM_CALL("OpenThemeData", "", ERROR_NOT_FOUND);
    const bool isKnown = !window || WindowFor(window);
    if (simCall.error || !isKnown || !HasTheme() || !EqualNoCase(Narrow(classes, -1), "TOOLTIP")) {
        machine::SetError(ERROR_NOT_FOUND);
        return nullptr;
    }
    return ToolTipTheme;
}

static BOOL IsThemeActive() {
    SIM_CALL("IsThemeActive", "");
    return HasTheme();
}

static HRESULT DrawThemeBackground(HTHEME theme, HDC handle, int part, int state, const RECT* rect, const RECT*) {
    SIM_CALL("DrawThemeBackground", "");
    if (const HRESULT wrong = CheckPart(theme, handle, part)) {
        return wrong;
    }
    DrawnItem item;
    item.kind = DrawnKind::Theme;
    item.place = *rect;
    item.part = part;
    item.state = state;
    item.colour = TheAppearance().infoBack;
    item.diameter = part == BalloonPart ? BalloonDiameter : 0;
    if (part == BalloonPart) {
        DrawFill(*ContextFor(handle), std::move(item));
    } else {
        Draw(*ContextFor(handle), std::move(item));
    }
    return 0;
}

static void CheckFormat(const char* call, DWORD format) {
    if (format & ~(DT_RIGHT | DT_NOPREFIX | DT_RTLREADING)) {
        NotModelled(call, "this format");
    }
}

static HRESULT DrawThemeText(HTHEME theme, HDC handle, int part, int state, LPCWSTR text, int count, DWORD format,
                             DWORD more, const RECT* rect) {
    SIM_CALL("DrawThemeText", "");
    CheckFormat("DrawThemeText", format);
    if (more) {
        NotModelled("DrawThemeText", "a text that is greyed");
    }
    if (const HRESULT wrong = CheckPart(theme, handle, part)) {
        return wrong;
    }
    DrawnItem item;
    item.kind = DrawnKind::Text;
    item.text = Narrow(text, count);
    item.part = part;
    item.state = state;
    item.endsRight = (format & DT_RIGHT) != 0;
    item.fontHeight = FontHeight();
    item.isBold = part == TitlePart;
    item.colour = TheAppearance().infoText;
    const SIZE size = TextSize(item.text, item.fontHeight);
    const LONG left = item.endsRight ? rect->right - size.cx : rect->left;
    item.place = {left, rect->top, left + size.cx, rect->top + size.cy};
    Draw(*ContextFor(handle), std::move(item));
    return 0;
}

static HRESULT GetThemeTextExtent(HTHEME theme, HDC handle, int part, int, LPCWSTR text, int count, DWORD format,
                                  const RECT* bounds, RECT* extent) {
    SIM_CALL("GetThemeTextExtent", "");
    CheckFormat("GetThemeTextExtent", format & ~DWORD{DT_CALCRECT}); // it measures anyway
    if (const HRESULT wrong = CheckPart(theme, handle, part)) {
        return wrong;
    }
    SIZE size = TextSize(Narrow(text, count), FontHeight());
    if (TheAppearance().theme == Appearance::Theme::Broken) {
        size = {BrokenExtent, BrokenExtent};
    }
    const LONG left = bounds ? bounds->left : 0, top = bounds ? bounds->top : 0;
    *extent = {left, top, left + size.cx, top + size.cy};
    return 0;
}

void InitCommonControls() {
    SIM_CALL("InitCommonControls", "");
}

static const OptionalOperation Optional[] = {
    {"uxtheme.dll", "OpenThemeData", AsProc(OpenThemeData), FirstVersion},
    {"uxtheme.dll", "IsThemeActive", AsProc(IsThemeActive), FirstVersion},
    {"uxtheme.dll", "DrawThemeBackground", AsProc(DrawThemeBackground), FirstVersion},
    {"uxtheme.dll", "DrawThemeText", AsProc(DrawThemeText), FirstVersion},
    {"uxtheme.dll", "GetThemeTextExtent", AsProc(GetThemeTextExtent), FirstVersion},
    {"comctl32.dll", "InitCommonControls", AsProc(InitCommonControls), 0x0500},
};

} // namespace simwin
