#include "rehearse/report/BalloonReport.h"

#include "simwin/kernel/Text.h"

namespace rehearse {

using Json = nlohmann::ordered_json;
using machine::DrawnItem;
using machine::DrawnKind;

static std::string Utf8(const std::string& text) {
    return machine::Utf8FromAnsi(text);
}

static Json ItemJson(const DrawnItem& item, simwin::LONG width) {
    Json row;
    if (item.kind == DrawnKind::Text) {
        row["text"] = Utf8(item.text);
    } else if (item.kind == DrawnKind::Icon) {
        row["icon"] = item.resource;
    } else if (item.kind == DrawnKind::Theme) {
        row = {{"theme", item.part}, {"state", item.state}};
    } else if (item.kind == DrawnKind::Control) {
        row["control"] = "close";
    } else {
        row["shape"] = item.kind == DrawnKind::Fill ? "fill" : "frame";
    }
    row["x"] = item.place.left;
    row["y"] = item.place.top;
    row["width"] = item.place.right - item.place.left;
    row["height"] = item.place.bottom - item.place.top;
    row["from_right"] = width - item.place.left;
    if (item.kind == DrawnKind::Fill || item.kind == DrawnKind::Frame || item.diameter > 0) {
        row["diameter"] = item.diameter;
    }
    if (item.endsRight) {
        row["ends"] = "right";
    }
    if (item.kind != DrawnKind::Icon && item.kind != DrawnKind::Control) {
        row["colour"] = RgbOf(item.colour);
    }
    return row;
}

static Json DrawnJson(const BalloonView& view) {
    Json list = Json::array();
    for (const DrawnItem& item : view.drawn) {
        list.push_back(ItemJson(item, view.place.right - view.place.left));
    }
    return list;
}

static Json ChangesJson(const Balloon& balloon, bool areMoves) {
    Json list = Json::array();
    if (areMoves) {
        for (const BalloonMove& move : balloon.moves) {
            list.push_back({{"at_ms", move.atMs}, {"x", move.x}, {"y", move.y}});
        }
    } else {
        for (const BalloonUpdate& update : balloon.updates) {
            list.push_back({{"at_ms", update.atMs},
                            {"title", Utf8(update.title)},
                            {"text1", Utf8(update.text1)},
                            {"text2", Utf8(update.text2)}});
        }
    }
    return list;
}

static Json BalloonJson(const Balloon& balloon) {
    const BalloonView& view = balloon.first;
    return {{"at_ms", balloon.atMs},
            {"until_ms", balloon.untilMs ? Json(*balloon.untilMs) : Json(nullptr)},
            {"title", Utf8(view.title)},
            {"text1", Utf8(view.text1)},
            {"text2", Utf8(view.text2)},
            {"icon", view.icon},
            {"show_time_ms", balloon.showTimeMs},
            {"x", view.place.left},
            {"y", view.place.top},
            {"width", view.place.right - view.place.left},
            {"height", view.place.bottom - view.place.top},
            {"session", balloon.session},
            {"closed_by", balloon.closedBy},
            {"look", view.look},
            {"colours",
             {{"back", view.back},
              {"frame", view.frame},
              {"caption_colour", view.captionColour},
              {"text_colour", view.textColour}}},
            {"drawn", DrawnJson(view)},
            {"updates", ChangesJson(balloon, /*areMoves=*/false)},
            {"moves", ChangesJson(balloon, /*areMoves=*/true)}};
}

nlohmann::ordered_json BalloonsJson(const Balloons& balloons) {
    Json list = Json::array();
    for (const Balloon& balloon : balloons.All()) {
        list.push_back(BalloonJson(balloon));
    }
    return list;
}

} // namespace rehearse
