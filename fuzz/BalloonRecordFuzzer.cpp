// A record from the pipe: made safe, it can be measured and drawn whatever it holds, in both looks with own fonts.
#include "fuzz/Stage.h"

#include "balloon/BalloonLayout.h"
#include "balloon/BalloonState.h"

#include <algorithm>
#include <cstring>

namespace fuzz {

static HDC g_canvas;

static HFONT FontOf(LONG height) {
    LOGFONTA font = {};
    font.lfHeight = -height;
    return CreateFontIndirectA(&font);
}

void Prepare() {
    InitializeCriticalSection(&CS_BalloonData);
    g_canvas = CreateCompatibleDC(nullptr);
    g_balloonLook.TitleFont = FontOf(16);
    g_balloonLook.TextFont = FontOf(15);
    g_balloonLook.HorizontalMargin = 12;
    g_balloonLook.VerticalMargin = 6;
}

void TryInput(std::string_view input) {
    FreeBalloonInfo record = {};
    std::memcpy(&record, input.data(), std::min(input.size(), sizeof(record)));
    MakeRecordSafe(&record);
    Require(record.ShowTime >= 0 && record.ShowTime <= MaxPipeShowTimeMs, "the time is held");
    // A bitmap of its own for each input: what is drawn stays in it.
    const HBITMAP bitmap = CreateCompatibleBitmap(g_canvas, 100, 100);
    const HGDIOBJ before = SelectObject(g_canvas, bitmap);
    EnterCriticalSection(&CS_BalloonData);
    g_balloonInfo = record;
    for (const bool isFlat : {false, true}) {
        g_balloonLook.IsFlat = isFlat;
        const BalloonExtent measured = DrawAllTexts(g_canvas, /*isDrawing=*/false, 16);
        const BalloonExtent drawn = DrawAllTexts(g_canvas, /*isDrawing=*/true, 16);
        Require(measured.Bottom == drawn.Bottom && measured.Right == drawn.Right,
                "what is drawn has the measured size");
        Require(measured.Right >= 0 && measured.Bottom >= 0, "nothing overflows");
    }
    LeaveCriticalSection(&CS_BalloonData);
    SelectObject(g_canvas, before);
    DeleteObject(bitmap);
}

} // namespace fuzz
