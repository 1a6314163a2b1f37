#include "rehearse/events/StoryEvents.h"

#include "rehearse/machine/Adapters.h"
#include "rehearse/machine/DeviceTables.h"

#include "simwin/devices/build/Devices.h"
#include "simwin/devices/events/Events.h"
#include "simwin/kernel/Scheduler.h"

#include <utility>

namespace rehearse {

static Action StoryEvent(const TomlTable& event, Stage& stage) {
    const TomlTable& table = *event.TableOf("story");
    return [&stage, name = table.TextOf("name"), title = table.TextOf("title")] {
        stage.timeline->BeginStory(name, title);
    };
}

static void GoAgain(Stage& stage, const std::string& id) {
    if (stage.hasEnded) {
        return;
    }
    stage.timeline->Outside("pulled out:", id);
    machine::UnplugDevice(id);
}

// The device is not known before its time, as it would not be to Windows.
static Action NewcomerEvent(const TomlTable& event, Stage& stage) {
    const TomlTable& table = *event.TableOf("newcomer");
    const Socket socket{machine::TheDeviceTree().FindById(table.TextOf("hub")),
                        static_cast<unsigned>(table.NumberOf("hub_port"))};
    const std::string id = table.TextOf("id");
    return [&stage, id, devices = LikeAdapter(table.TextsOf("parts"), id, socket), staysMs = table.MsOf("stays")] {
        for (const machine::DeviceDescription& device : devices) {
            std::string wrong;
            const bool isKnown = machine::TheDeviceTree().FindById(device.id);
            if (!isKnown && !machine::AddDevice(device, &wrong)) {
                stage.timeline->Outside("cannot be plugged in: " + wrong);
                return;
            }
        }
        stage.timeline->Outside("plugged in:", id);
        machine::PlugDevice(id);
        machine::After(staysMs, [&stage, id] { GoAgain(stage, id); });
    };
}

std::span<const EventRow> StoryEventRows() {
    static constexpr EventRow Rows[] = {{"story", StoryEvent}, {"newcomer", NewcomerEvent}};
    return Rows;
}

} // namespace rehearse
