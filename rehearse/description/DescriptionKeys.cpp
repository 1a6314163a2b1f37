#include "rehearse/description/DescriptionKeys.h"

#include "simwin/kernel/Text.h"

#include <fmt/format.h>

namespace rehearse {

// clang-format off
constexpr Key Keys[] = {
    {"", "title", Plain, nullptr, "\"\"", "", "the promise, or what the machine is"},
    {"", "include", HostFile | HostFiles, nullptr, "[]", "", "descriptions that this one builds on, read first"},
    {"", "registry", HostFile | HostFiles, nullptr, "[]", "", "exports of the registry editor, UTF-16 or ANSI, or hives"},
    {"", "connected", HostFile, nullptr, "all", "", "any text that holds the ids of the devices that are there"},
    {"", "properties", HostFile, nullptr, "none", "", "a line for each device: its id, its parent, its location path, with tabs between them"},
    {"", "until", Duration, nullptr, "\"1h\" after the last event", "", "the latest end"},
    {"", "windows", Table, nullptr, "", "", "the Windows of the machine"},
    {"", "quillmarch", Table, nullptr, "", "", "how the product is installed and started"},
    {"", "com_database", Table, nullptr, "", "", "the COM name database; unless given: COM numbers of exports and devices"},
    {"", "registry_values", AnyKeys, nullptr, "", "", "values by key, set after the exports"},
    {"", "device", Tables, nullptr, "", "", "a device; one with a known id amends"},
    {"", "dos_name", Tables, nullptr, "", "", "a link that no device explains; one with a known name amends"},
    {"", "files", Tables, nullptr, "", "", "a file on the machine"},
    {"", "fault", Tables, nullptr, "", "", "a call that fails or is late"},
    {"", "answer", Tables, nullptr, "", "", "how a message box is answered; others with OK at once"},
    {"", "session", Tables, nullptr, "", "", "a session at the start"},
    {"", "event", Tables, nullptr, "", "", "what happens outside"},
    {"", "stories", Texts, nullptr, "[]", "", "what else happens, made of the machine: boot, replug, sockets, storm, sleep, newcomer, or all"},
    {"", "expect", Tables, nullptr, "", "", "what must hold, judged with --check"},

    {"windows", "version", Text, nullptr, "\"10.0.19045\"", "", "5.0, 5.1, 6.1.7601, 10.0.22631 and the like"},
    {"windows", "edition", Text, "x64|x86", "\"x64\"", "", "of Windows"},
    {"windows", "uptime", Duration | Number, nullptr, "\"1h\"", "", "the tick count at the start, as a number in milliseconds"},
    {"windows", "clock", Text, nullptr, "\"2026-03-02 14:03:22\"", "", "local time at the start"},
    {"windows", "language", Number, nullptr, "0x0409", "", "of the user interface"},
    {"windows", "screen", Numbers, nullptr, "[1920, 1080]", "", "width and height"},
    {"windows", "dpi", Number, nullptr, "96", "", "of the screen"},
    {"windows", "taskbar", Table, nullptr, "", "", "the task bar, next to which balloons appear"},
    {"windows", "colours", Table, nullptr, "", "", "of tool tips"},
    {"windows", "theme", Flag | Text, "broken", "true from 5.1 on", "", "the user has a theme; \"broken\" is one that measures nonsense"},
    {"windows", "tooltip_fade", Flag, nullptr, "true", "", "tool tips fade"},
    {"windows", "first_node", Number, nullptr, "257", "", "number of the first device node"},
    {"windows", "pending_installs", Duration, nullptr, "\"0s\"", "", "device installs are pending until then"},
    {"windows", "first_install", Duration, nullptr, "\"2s\"", "",
     "how long a device that was never there keeps installs pending after its start"},
    {"windows", "kill_services_after", Duration, nullptr, "by version", "",
     "at a shutdown, how long until what still runs is ended"},
    {"windows", "boot_uptime", Duration, nullptr, "\"25s\"", "", "the tick count at which the service starts in a boot"},
    {"windows", "computer", Text, nullptr, "\"LAB-PC\"", "", "its name; a user of that domain is local"},
    {"windows", "console", Text, "none", "a session's", "", "\"none\": no session has it until an event says otherwise"},
    {"windows", "environment", AnyKeys, nullptr, "{}", "", "variables of all programs"},
    {"windows", "associations", AnyKeys, nullptr, "{}", "", "the program that opens a kind of file"},
    {"windows.taskbar", "edge", Text, "top|bottom|left|right", "\"bottom\"", "", "of the screen"},
    {"windows.taskbar", "size", Number, nullptr, "40", "", "height or width"},
    {"windows.taskbar", "rtl", Flag, nullptr, "false", "", "from right to left"},
    {"windows.taskbar", "hidden", Flag, nullptr, "false", "", "it hides itself"},
    {"windows.taskbar", "rect", Numbers, nullptr, "by edge and size", "", "another place: left, top, right, bottom"},
    {"windows.taskbar", "gone", Flag, nullptr, "false", "", "there is none"},
    {"windows.colours", "infotext", Number, nullptr, "0x000000", "", "0xRRGGBB, of texts"},
    {"windows.colours", "infobk", Number, nullptr, "0xFFFFE1", "", "0xRRGGBB, of the fill"},
    {"windows.environment", "", Text, nullptr, "", "", "a value"},
    {"windows.associations", "", Text, nullptr, "", "", "a program"},

    {"quillmarch", "role", Text, "service|debug|user", "\"service\"", "", "how it is started"},
    {"quillmarch", "edition", Text, "x64|x86", "that of Windows", "", "of the executable"},
    {"quillmarch", "account", Text, nullptr, "\"system\"", "", "or the user of a session"},
    {"quillmarch", "administrator", Flag, nullptr, "true", "", "role user: an administrator's account"},
    {"quillmarch", "consent", Flag, nullptr, "true", "", "how \"runas\" is answered"},
    {"quillmarch", "command_line", Text, nullptr, "''", "", "what follows the program's name"},
    {"quillmarch", "directory", Text, nullptr, "'C:\\Program Files\\Quillmarch'", "", "where it is installed"},
    {"quillmarch", "ini", HostFile, nullptr, "no file", "", "its configuration, a file next to the description"},
    {"quillmarch", "ini_text", Text, nullptr, "no file", "", "its configuration, verbatim"},
    {"quillmarch", "registered", Flag, nullptr, "true", "", "the service is registered with the service manager"},
    {"quillmarch", "service_state", Text, "STOPPED|RUNNING", "\"STOPPED\"", "", "role user or debug: \"RUNNING\" runs the service as well; the role begins when it runs"},
    {"quillmarch", "starts_at", Duration, nullptr, "\"0s\"", "", "when it is started"},

    {"com_database", "taken", Numbers, nullptr, "of exports and devices", "", "the numbers whose bits are set"},
    {"com_database", "size", Number, nullptr, "32", "", "bytes"},
    {"com_database", "missing", Flag, nullptr, "false", "", "there is no value"},

    {"registry_values", "", AnyKeys, nullptr, "", "", "a key, as 'HKLM\\SOFTWARE\\...', with its values"},
    {"registry_values.", "", Text | Number | Texts | Numbers, nullptr, "", "", "a text, a number, several texts, or bytes"},

    {"device", "id", Text, nullptr, "needed", "", "the instance id"},
    {"device", "parent", Text, nullptr, "the root of the enumerator", "", "must exist"},
    {"device", "kind", Text, "port|modem|controller|root-hub|hub|usb|composite|other", "by id", "", "what it is"},
    {"device", "class", Text, nullptr, "by kind", "", "setup class"},
    {"device", "class_guid", Text, nullptr, "by class", "", "in braces"},
    {"device", "service", Text, nullptr, "by kind", "", "its function driver"},
    {"device", "description", Text, nullptr, "by kind", "", "DeviceDesc"},
    {"device", "friendly_name", Text, nullptr, "by kind", "", "FriendlyName"},
    {"device", "hardware_id", Text | Texts, nullptr, "by id", "", "one or several"},
    {"device", "driver_key", Text, nullptr, "counts up by class", "", "class GUID, backslash, four digits"},
    {"device", "location", Text, nullptr, "by hub port", "", "LocationInformation"},
    {"device", "location_path", Text, nullptr, "", "", "the location path"},
    {"device", "address", Number, nullptr, "the hub port", "", "bus address"},
    {"device", "irq", Number, nullptr, "none", "", "of an on-board port"},
    {"device", "io_port", Number, nullptr, "none", "", "of an on-board port"},
    {"device", "port_name", Text, nullptr, "Windows picks one at the first installation", "", "PortName in the registry; \"\" an empty value"},
    {"device", "dos_device_name", Text, nullptr, "none", "", "DosDeviceName, for drivers that keep the name there"},
    {"device", "name_value", Text, nullptr, "\"PortName\"", "", "the value that its driver reads"},
    {"device", "name_taken", Text, "no-name|fail|take", "\"no-name\"", "", "what its driver does when the DOS name exists"},
    {"device", "kernel_name", Text | Texts, nullptr, "by service", "", "its kernel device; a list gives one for each start in turn"},
    {"device", "kernel_name_path", Text, nullptr, "its own", "", "what its interface path leads to"},
    {"device", "interfaces", Texts, nullptr, "by kind", "", "comport, modem, hub, controller, usb, serenum, or a GUID in braces"},
    {"device", "hub_port", Number, nullptr, "the lowest free", "", "on which port of its parent hub it sits"},
    {"device", "ports", Number, nullptr, "by kind", "", "a hub: how many it has"},
    {"device", "knows_in", Duration, nullptr, "\"0s\"", "", "a hub: how long after an arrival it answers for the new device"},
    {"device", "cycle_status", Number, nullptr, "0", "", "a hub: what it answers to a cycle request"},
    {"device", "plugged", Flag, nullptr, "true", "", "false: known from before, not there now"},
    {"device", "problem", Number, nullptr, "0", "", "problem number"},
    {"device", "starts_in", Duration, nullptr, "by kind", "", "what its driver needs"},
    {"device", "leaves_link", Flag, nullptr, "false", "", "its driver leaves the DOS name behind when it goes"},
    {"device", "link_goes", Duration | Text, "close", "\"0ms\"", "", "how much later the DOS name is deleted, or with the last handle to it"},
    {"device", "vetoes", Flag | Number, nullptr, "false", "", "refuses to be removed, always or this many times"},
    {"device", "refuses", Flag, nullptr, "false", "", "the class installer fails for it"},
    {"device", "held_by", Text, nullptr, "none", "", "the program that holds it open"},
    {"device", "protected", Flag, nullptr, "false", "", "its keys refuse the system account"},

    {"dos_name", "name", Text, nullptr, "needed", "", "of the link"},
    {"dos_name", "target", Text, nullptr, "needed", "", "what it leads to"},
    {"dos_name", "opens", Text, nullptr, "\"gone\"", "", "gone, no-path, no-device, busy, hangs, ok, or \"late 450ms\""},

    {"files", "path", Text, nullptr, "needed", "", "on the machine"},
    {"files", "text", Text, nullptr, "\"\"", "", "what it holds"},
    {"files", "link", Text, nullptr, "no link", "", "the path that it is a link to"},
    {"files", "names", Number, nullptr, "1", "", "how many names it has"},
    {"files", "security", Text, nullptr, "that of its folder", "", "owner and access list, \"O:BAD:(A;;FA;;;BA)\"; a path that ends in a backslash is a folder's"},
    {"files", "program", Table, nullptr, "no program", "", "what it does when it is started"},
    {"files.program", "runs", Duration | Text, "forever", "\"1s\"", "", "how long, or until its session ends"},
    {"files.program", "exit", Number, nullptr, "0", "", "ends with this code"},
    {"files.program", "holds", Text, nullptr, "none", "", "the port that it holds open"},
    {"files.program", "window", Text, nullptr, "none", "", "the title of its window"},
    {"files.program", "fails", Number, nullptr, "0", "", "the error with which it cannot be started"},
    {"files.program", "blocks", Duration, nullptr, "\"0s\"", "", "how late the call that starts it returns"},

    {"fault", "call", Text, nullptr, "needed", "", "an operation of Windows"},
    {"fault", "on", Text, nullptr, "'*'", "", "wildcard on what it is applied to"},
    {"fault", "error", Number, nullptr, "succeeds", "", "the call fails with this"},
    {"fault", "delay", Duration, nullptr, "\"0s\"", "", "how late the call is"},
    {"fault", "after", Number, nullptr, "0", "", "this many matching calls pass first"},
    {"fault", "times", Number, nullptr, "1", "", "acts this many times; 0 forever"},

    {"answer", "message", Text, nullptr, "needed", "", "a part of the box's text"},
    {"answer", "button", Text, "ok|cancel|abort|retry|ignore|yes|no", "\"ok\"", "", "which button"},
    {"answer", "after", Duration, nullptr, "\"0s\"", "", "so much later"},

    {"session", "id", Number, nullptr, "1", "", "session number"},
    {"session", "user", Text, nullptr, "none", "", "'DOMAIN\\name'"},
    {"session", "state", Text, "active|connected|connectquery|shadow|disconnected|idle|listen|reset|down|init", "\"active\"; without a user \"connected\"", "", "of the session"},
    {"session", "console", Flag, nullptr, "of the first session, unless another says true", "", "it is the console's"},
    {"session", "administrator", Flag, nullptr, "false", "", "its user is an administrator"},
    {"session", "uac", Flag, nullptr, "false", "", "its administrator works with a filtered token"},
    {"session", "shell", Flag, nullptr, "true", "", "explorer.exe runs in it while a user is logged on, with desktop and task bar"},
    {"session", "groups", Texts, nullptr, "[]", "", "of its user besides the usual ones, by name or SID"},
    {"session", "environment", AnyKeys, nullptr, "{}", "", "variables of its user's programs"},
    {"session.environment", "", Text, nullptr, "", "", "a value"},
    {"session", "foreground", Text, "free|held", "\"free\"", "", "\"held\": a user is typing, and new windows stay in the background"},
    {"session", "cursor", Numbers, nullptr, "the middle", "", "where the mouse is, x and y"},

    {"event", "at", Duration, nullptr, "needed", "*", "virtual time since the start"},
    {"event", "plug", Text, nullptr, "", "", "a device arrives, with all that hangs below it"},
    {"event", "unplug", Text, nullptr, "", "", "a device goes, with all that hangs below it"},
    {"event", "replug", Table, nullptr, "", "", "it goes and comes back"},
    {"event", "move", Table, nullptr, "", "", "it goes and comes back on another socket"},
    {"event", "problem", Table, nullptr, "", "", "a device gets a problem number, or loses it"},
    {"event", "devnodes_changed", Number, nullptr, "", "", "this many broadcasts at once"},
    {"event", "hold", Table, nullptr, "", "", "a program opens a port and keeps it"},
    {"event", "release", Text, nullptr, "", "", "the program that holds this port lets go of it"},
    {"event", "dos_name", Table, nullptr, "", "", "a DOS name is made; an empty target deletes it"},
    {"event", "calm", Flag, nullptr, "", "", "from now on no call fails, nothing refuses, no program holds a port, problems end"},
    {"event", "suspend", Flag | Text, "query|critical", "", "", "the machine goes to sleep"},
    {"event", "resume", Text | Table, "automatic|critical|suspend|standby", "", "", "the machine wakes"},
    {"event", "logon", Table, nullptr, "", "", "a user logs on"},
    {"event", "logoff", Number, nullptr, "", "", "the session of this number ends"},
    {"event", "session", Table, nullptr, "", "", "a session is disconnected, connected, or moved to the console or away from it"},
    {"event", "stop", Flag, nullptr, "", "", "the service gets the stop control"},
    {"event", "shutdown", Flag | Text, "fast", "", "", "Windows shuts down, or goes off for a fast startup"},
    {"event", "start", Flag, nullptr, "", "", "the product is started, in its role"},
    {"event", "control", Number, nullptr, "", "", "a raw service control"},
    {"event", "edit_ini", Text | Table, nullptr, "", "", "the configuration is rewritten"},
    {"event", "delete_ini", Flag, nullptr, "", "", "the configuration is deleted"},
    {"event", "set_value", Table, nullptr, "", "", "a registry value is set"},
    {"event", "run", Text, nullptr, "", "", "a user runs this command line"},
    {"event", "user", Text, nullptr, "the first session's", "run", "who runs it"},
    {"event", "notify", Table, nullptr, "", "", "a raw device event to the product alone"},
    {"event", "move_taskbar", Table, nullptr, "", "", "the task bar moves, changes or goes"},
    {"event", "tooltip", Table, nullptr, "", "", "a tool tip of another program is shown, changed or taken away"},
    {"event", "window", Table, nullptr, "", "", "a window of another program is shown, changed or taken away"},
    {"event", "click", Text | Table, "balloon", "", "", "a user clicks, with the left button in the middle of the front balloon unless given"},
    {"event", "mouse", Table, nullptr, "", "", "a user moves the mouse"},
    {"event", "pipe", Table, nullptr, "", "", "a program writes one message to the balloon's pipe"},
    {"event.replug", "device", Text, nullptr, "needed", "", "an id"},
    {"event.replug", "off", Duration, nullptr, "\"200ms\"", "", "how long it is away"},
    {"event.move", "device", Text, nullptr, "needed", "", "an id"},
    {"event.move", "hub", Text, nullptr, "needed", "", "the hub's id"},
    {"event.move", "hub_port", Number, nullptr, "needed", "", "its port there"},
    {"event.problem", "device", Text, nullptr, "needed", "", "an id"},
    {"event.problem", "number", Number, nullptr, "needed", "", "0 takes the problem away"},
    {"event.problem", "quiet", Flag, nullptr, "false", "", "the interfaces stay as they are"},
    {"event.problem", "sticky", Flag, nullptr, "false", "", "a later start does not clear it"},
    {"event.hold", "port", Text, nullptr, "needed", "", "a DOS name"},
    {"event.hold", "program", Text, nullptr, "'C:\\Tools\\term.exe'", "", "who holds it"},
    {"event.dos_name", "name", Text, nullptr, "needed", "", "of the link"},
    {"event.dos_name", "target", Text, nullptr, "needed", "", "\"\" deletes it"},
    {"event.dos_name", "opens", Text, nullptr, "\"gone\"", "", "as with [[dos_name]]"},
    {"event.resume", "kind", Text, "automatic|critical|suspend|standby", "\"automatic\"", "", "as the text alone"},
    {"event.resume", "devices", Text, "stay|replug", "\"stay\"", "", "\"replug\": USB devices leave and come back"},
    {"event.logon", "id", Number, nullptr, "needed", "", "session number"},
    {"event.logon", "user", Text, nullptr, "needed", "", "'DOMAIN\\name'"},
    {"event.logon", "console", Flag, nullptr, "the console has this number", "", "at the machine itself"},
    {"event.logon", "administrator", Flag, nullptr, "false", "", "its user is an administrator"},
    {"event.logon", "uac", Flag, nullptr, "false", "", "its administrator works with a filtered token"},
    {"event.logon", "shell", Flag, nullptr, "true", "", "as with [[session]]"},
    {"event.logon", "groups", Texts, nullptr, "[]", "", "as with [[session]]"},
    {"event.logon", "foreground", Text, "free|held", "\"free\"", "", "as with [[session]]"},
    {"event.logon", "cursor", Numbers, nullptr, "the middle", "", "as with [[session]]"},
    {"event.logon", "environment", AnyKeys, nullptr, "{}", "", "as with [[session]]"},
    {"event.logon.environment", "", Text, nullptr, "", "", "a value"},
    {"event.session", "id", Number, nullptr, "needed", "", "session number"},
    {"event.session", "state", Text, "active|connected|connectquery|shadow|disconnected|idle|listen|reset|down|init", "as it is; active when it comes to the console", "", "what it becomes"},
    {"event.session", "console", Flag, nullptr, "as it is", "", "it comes to the console or leaves it"},
    {"event.edit_ini", "file", HostFile, nullptr, "needed", "", "holds its new text"},
    {"event.set_value", "key", Text, nullptr, "needed", "", "as in [registry_values]"},
    {"event.set_value", "name", Text, nullptr, "needed", "", "of the value"},
    {"event.set_value", "value", Text | Number | Texts | Numbers, nullptr, "needed", "", "as in [registry_values]"},
    {"event.notify", "event", Number | Text, nullptr, "needed", "", "a number or a DBT name"},
    {"event.notify", "type", Number, nullptr, "5; no record with DBT_DEVNODES_CHANGED", "", "5 an interface, 3 a port"},
    {"event.notify", "class", Text, nullptr, "comport", "", "type 5: a GUID in braces"},
    {"event.notify", "path", Text, nullptr, "\"\"", "", "type 5: verbatim"},
    {"event.notify", "name", Text, nullptr, "\"\"", "", "type 3: the port's name"},
    {"event.notify", "wide", Flag, nullptr, "false", "", "texts in UTF-16"},
    {"event.move_taskbar", "edge", Text, "top|bottom|left|right", "as it was", "", "of the screen"},
    {"event.move_taskbar", "size", Number, nullptr, "as it was", "", "height or width"},
    {"event.move_taskbar", "hidden", Flag, nullptr, "as it was", "", "it hides itself"},
    {"event.move_taskbar", "rtl", Flag, nullptr, "as it was", "", "from right to left"},
    {"event.move_taskbar", "rect", Numbers, nullptr, "by edge and size", "", "another place: left, top, right, bottom"},
    {"event.move_taskbar", "gone", Flag, nullptr, "false", "", "there is none from now on"},
    {"event.tooltip", "name", Text, nullptr, "needed", "", "names it, and is its title"},
    {"event.tooltip", "x", Number, nullptr, "0, or as it was", "", "left edge"},
    {"event.tooltip", "y", Number, nullptr, "0, or as it was", "", "upper edge"},
    {"event.tooltip", "width", Number, nullptr, "200, or as it was", "", "pixels"},
    {"event.tooltip", "height", Number, nullptr, "60, or as it was", "", "pixels"},
    {"event.tooltip", "session", Number, nullptr, "the first one", "", "whose desktop"},
    {"event.tooltip", "gone", Flag, nullptr, "false", "", "it is taken away"},
    {"event.window", "name", Text, nullptr, "needed", "", "names it, and is its title"},
    {"event.window", "class", Text, nullptr, "\"ProgramWindow\"", "", "of the window"},
    {"event.window", "style", Number, nullptr, "0x14CF0000", "", "of the window"},
    {"event.window", "topmost", Flag, nullptr, "false", "", "in front of all others"},
    {"event.window", "x", Number, nullptr, "0, or as it was", "", "left edge"},
    {"event.window", "y", Number, nullptr, "0, or as it was", "", "upper edge"},
    {"event.window", "width", Number, nullptr, "of the screen, or as it was", "", "pixels"},
    {"event.window", "height", Number, nullptr, "of the screen, or as it was", "", "pixels"},
    {"event.window", "session", Number, nullptr, "the first one", "", "whose desktop"},
    {"event.window", "gone", Flag, nullptr, "false", "", "it is taken away"},
    {"event.click", "on", Text, "balloon", "the screen", "", "x and y count from the front balloon's corner"},
    {"event.click", "button", Text, "left|right|middle", "\"left\"", "", "which button"},
    {"event.click", "x", Number, nullptr, "the middle of the balloon", "", "place"},
    {"event.click", "y", Number, nullptr, "the middle of the balloon", "", "place"},
    {"event.click", "session", Number, nullptr, "the first one; with `on` any", "", "whose desktop"},
    {"event.mouse", "on", Text, "balloon", "the screen", "", "x and y count from the front balloon's corner"},
    {"event.mouse", "x", Number, nullptr, "the middle of the balloon", "", "place"},
    {"event.mouse", "y", Number, nullptr, "the middle of the balloon", "", "place"},
    {"event.mouse", "session", Number, nullptr, "the first one; with `on` any", "", "whose desktop"},
    {"event.pipe", "user", Text, nullptr, "the first session's", "", "who writes"},
    {"event.pipe", "title", Text, nullptr, "\"\"", "", "of the record"},
    {"event.pipe", "text1", Text, nullptr, "\"\"", "", "of the record"},
    {"event.pipe", "text2", Text, nullptr, "\"\"", "", "of the record"},
    {"event.pipe", "time", Number, nullptr, "5000", "", "of the record, in milliseconds"},
    {"event.pipe", "icon", Number, nullptr, "102", "", "of the record"},
    {"event.pipe", "charset", Number, nullptr, "1", "", "of the record"},
    {"event.pipe", "size", Number, nullptr, "1160", "", "the record is cut or filled with zeros to this"},
    {"event.pipe", "raw", Plain, nullptr, "a record", "", "the message, a byte for each of \\u0000 to \\u00FF"},
    {"event.pipe", "silent", Duration, nullptr, "it writes", "", "writes nothing and closes after this"},
    {"event.pipe", "clients", Number, nullptr, "1", "", "this many at once"},

    {"expect", "at", Duration | Text | Texts, "end", "\"end\"", "*", "when it must hold; of a restart, a process or a balloon: when it was, of the latter two also a first and a last time"},
    {"expect", "device", Text, nullptr, "", "", "an id"},
    {"expect", "port", Text, nullptr, "", "device", "the COM name that leads to the running device; \"\" if none"},
    {"expect", "registry_name", Text, nullptr, "", "device", "PortName, else DosDeviceName, else \"\""},
    {"expect", "friendly_name", Text, nullptr, "", "device", "FriendlyName"},
    {"expect", "present", Flag, nullptr, "", "device", "it is there"},
    {"expect", "problem", Number, nullptr, "", "device", "problem number"},
    {"expect", "restarts", Number, nullptr, "", "device", "how often the product had its driver stopped and started"},
    {"expect", "installed", Flag, nullptr, "", "device", "its key below Enum is there"},
    {"expect", "dos_name", Text, nullptr, "", "", "a DOS name"},
    {"expect", "target", Text, nullptr, "", "dos_name", "what it leads to"},
    {"expect", "gone", Flag, nullptr, "false", "dos_name|value|key|file|shown|tooltip", "there is none"},
    {"expect", "com_database", Numbers, nullptr, "", "", "the numbers whose bits are set"},
    {"expect", "value", Table, nullptr, "", "", "a registry value"},
    {"expect", "key", Text, nullptr, "", "", "a registry key"},
    {"expect", "acl", Text, "unchanged", "", "key", "its access list is as at the start"},
    {"expect", "file", Text, nullptr, "", "", "a file on the machine"},
    {"expect", "text", Text, nullptr, "", "file", "what it holds, whole"},
    {"expect", "contains", Text, nullptr, "", "file|message", "a part of it"},
    {"expect", "same_as", HostFile, nullptr, "", "file", "it holds what this file next to the description holds"},
    {"expect", "log", Text, nullptr, "", "", "records of the product's log whose line contains this"},
    {"expect", "note", Plain, nullptr, "", "", "a line of the report about the machine itself that holds this"},
    {"expect", "count", Number, nullptr, "one at least", "log|log_match|restart|message|note|balloon|input|process", "exactly this many"},
    {"expect", "before", Text, nullptr, "", "log", "the first match comes before the first match of this"},
    {"expect", "log_order", Texts, nullptr, "", "", "records of the log with these texts, one after the other"},
    {"expect", "log_match", Text, nullptr, "", "", "a record whose whole line fits this wildcard"},
    {"expect", "log_complete", Flag, nullptr, "", "", "every record that the debugger got is in the log, whole and once"},
    {"expect", "restart", Text, nullptr, "", "", "the id that the product restarted"},
    {"expect", "means", Text, "property-change|disable-enable|cycle|remove-and-setup|reenumerate", "", "restart", "how"},
    {"expect", "ok", Flag, nullptr, "", "restart", "whether it succeeded"},
    {"expect", "service", Text, "STOPPED|START_PENDING|STOP_PENDING|RUNNING|CONTINUE_PENDING|PAUSE_PENDING|PAUSED", "", "", "the state of the service then"},
    {"expect", "checkpoints", Number, nullptr, "", "", "how many checkpoints the service has reported"},
    {"expect", "wait_hint", Number, nullptr, "", "service|checkpoints|exit_code", "the wait hint that it reported last, in milliseconds"},
    {"expect", "exit_code", Number, nullptr, "", "", "of the process that the description starts"},
    {"expect", "message", Text, nullptr, "", "", "the whole text of a message box; left out with `contains` for a part"},
    {"expect", "flags", Number, nullptr, "", "message", "of the box; MB_SYSTEMMODAL (0x1000) counts only if it is among them"},
    {"expect", "process", Text, nullptr, "", "", "programs started with this image, its whole path, over the whole run"},
    {"expect", "ends_at", Duration | Texts, nullptr, "", "process", "when it ended, or a first and a last time"},
    {"expect", "exit", Number, nullptr, "", "process", "its exit code"},
    {"expect", "arguments", Text, nullptr, "", "process", "what follows the program's name, exact"},
    {"expect", "command_line", Text, nullptr, "", "process", "the whole command line, exact"},
    {"expect", "directory", Text, nullptr, "", "process", "where it started"},
    {"expect", "rights", Text, "system|user|restricted|elevated", "", "process", "from its token"},
    {"expect", "integrity", Text, "low|medium|high|system|", "", "process", "of its token; \"\" below 6.0"},
    {"expect", "has", Text | Texts, nullptr, "", "process", "enabled groups and present privileges, by name or SID"},
    {"expect", "lacks", Text | Texts, nullptr, "", "process", "the opposite"},
    {"expect", "parent", Text, nullptr, "", "process", "the image of the program that started it; \"\" the machine"},
    {"expect", "show", Number, nullptr, "", "process", "the show state that it was given"},
    {"expect", "editor", Text, nullptr, "", "", "the program that the configuration was opened with"},
    {"expect", "balloon", Text, nullptr, "", "", "balloons whose first text, when they were first visible, is this; over the whole run"},
    {"expect", "shown", Text, nullptr, "", "", "a balloon with this first text is visible then"},
    {"expect", "tooltip", Text, nullptr, "", "", "a tool tip or window of another program, by its name, is shown then"},
    {"expect", "input", Text, nullptr, "", "", "\"key 0x1B\", \"click left\" and the like"},
    {"expect", "window", Text, nullptr, "", "input", "the title of the window that got it"},
    {"expect", "until", Duration | Texts, nullptr, "", "balloon", "when it was hidden or gone; a time or a pair"},
    {"expect", "closed_by", Text, "time|click|newer|end|", "", "balloon", "what ended it; \"\" it is still open"},
    {"expect", "fade", Flag, nullptr, "", "balloon", "it faded before it went"},
    {"expect", "title", Text, nullptr, "", "balloon|shown", "first line"},
    {"expect", "text2", Text, nullptr, "", "balloon|shown", "second block"},
    {"expect", "icon", Number, nullptr, "", "balloon|shown", "the resource that is drawn"},
    {"expect", "time", Number, nullptr, "", "balloon|shown", "show time of its first record, in milliseconds"},
    {"expect", "session", Number, nullptr, "", "balloon|shown|process", "session number"},
    {"expect", "user", Text, nullptr, "", "balloon|shown|process", "whose process it is, 'DOMAIN\\name'"},
    {"expect", "look", Text, "win10|themed|classic", "", "balloon|shown", "from what is drawn"},
    {"expect", "diameter", Number, nullptr, "", "balloon|shown", "of the corners"},
    {"expect", "back", Number, nullptr, "", "balloon|shown", "0xRRGGBB"},
    {"expect", "frame", Number, nullptr, "", "balloon|shown", "0xRRGGBB"},
    {"expect", "caption_colour", Number, nullptr, "", "balloon|shown", "0xRRGGBB, of the title"},
    {"expect", "text_colour", Number, nullptr, "", "balloon|shown", "0xRRGGBB"},
    {"expect", "icon_size", Number, nullptr, "", "balloon|shown", "pixels"},
    {"expect", "width", Number, nullptr, "", "balloon|shown", "pixels"},
    {"expect", "height", Number, nullptr, "", "balloon|shown", "pixels"},
    {"expect", "right", Number, nullptr, "", "balloon|shown", "x plus width"},
    {"expect", "bottom", Number, nullptr, "", "balloon|shown", "y plus height"},
    {"expect", "drawn", Tables, nullptr, "", "balloon|shown", "each entry is met by something that is drawn"},
    {"expect", "x", Number, nullptr, "", "balloon|shown|tooltip", "left edge"},
    {"expect", "y", Number, nullptr, "", "balloon|shown|tooltip", "upper edge"},
    {"expect.value", "key", Text, nullptr, "needed", "", "as in [registry_values]"},
    {"expect.value", "name", Text, nullptr, "\"\"", "", "of the value"},
    {"expect.value", "is", Text | Number | Texts | Numbers, nullptr, "", "", "what it holds"},
    {"expect.value", "gone", Flag, nullptr, "false", "", "there is none"},
    {"drawn", "text", Text, nullptr, "", "", "a text, whole"},
    {"drawn", "icon", Number, nullptr, "", "", "an icon's resource"},
    {"drawn", "theme", Number, nullptr, "", "", "a part of the theme"},
    {"drawn", "state", Number, nullptr, "", "", "of the theme's part"},
    {"drawn", "control", Text, "close", "", "", "a window's close mark"},
    {"drawn", "x", Number, nullptr, "", "", "left edge in the window"},
    {"drawn", "y", Number, nullptr, "", "", "upper edge in the window"},
    {"drawn", "width", Number, nullptr, "", "", "pixels"},
    {"drawn", "from_right", Number, nullptr, "", "", "width of the window minus x"},
    {"drawn", "ends", Text, "right", "", "", "drawn flush right"},
    {"drawn", "colour", Number, nullptr, "", "", "0xRRGGBB"},
};
namespace {
// clang-format on

struct TypeName {
    unsigned type;
    const char* name;
};
} // namespace
constexpr TypeName TypeNames[] = {
    {Text, "a text"},
    {Plain, "a text"},
    {HostFile, "a file"},
    {Number, "a number"},
    {Flag, "true or false"},
    {Duration, "a duration"},
    {Texts, "a list of texts"},
    {Numbers, "a list of numbers"},
    {HostFiles, "a list of files"},
    {Table, "a table"},
    {Tables, "tables"},
    {AnyKeys, "a table"},
};

std::span<const Key> AllKeys() {
    return Keys;
}

const Key* FindKey(std::string_view section, std::string_view name) {
    for (const Key& key : Keys) {
        if (section == key.section && (name == key.name || key.name[0] == '\0')) {
            return &key;
        }
    }
    return nullptr;
}

bool HasSubjects(std::string_view section) {
    return section == "event" || section == "expect";
}

bool IsSubject(const Key& key) {
    return HasSubjects(key.section) && key.with[0] == '\0';
}

bool GoesWith(const Key& key, std::string_view subject) {
    if (std::string_view(key.with) == "*") {
        return true;
    }
    for (const std::string& with : machine::Split(key.with, '|')) {
        if (with == subject) {
            return true;
        }
    }
    return false;
}

std::string TypeText(unsigned types) {
    std::string text;
    for (const TypeName& row : TypeNames) {
        if (types & row.type) {
            text += (text.empty() ? "" : " or ") + std::string(row.name);
        }
    }
    return text;
}

std::string KeyTables() {
    std::string text, section = "-";
    for (const Key& key : Keys) {
        if (section != key.section) {
            section = key.section;
            const std::string title = section.empty()                 ? "Top of the file"
                                      : section == "registry_values." ? "A value"
                                                                      : "`" + section + "`";
            text += fmt::format("\n### {}\n\n| Key | Type | Unless given | Meaning |\n|---|---|---|---|\n", title);
        }
        std::string meaning = key.meaning;
        if (key.choices) {
            std::string choices;
            for (const std::string& choice : machine::Split(key.choices, '|')) {
                choices += (choices.empty() ? "" : ", ") + choice;
            }
            meaning += " (" + choices + ")";
        }
        if (key.with[0] && std::string_view(key.with) != "*") {
            std::string with;
            for (const std::string& subject : machine::Split(key.with, '|')) {
                with += (with.empty() ? "" : ", ") + subject;
            }
            meaning = "with " + with + ": " + meaning;
        }
        const std::string name = key.name[0] ? fmt::format("`{}`", key.name) : "any name";
        text += fmt::format("| {} | {} | {} | {} |\n", name, TypeText(key.types), key.initial, meaning);
    }
    return text;
}

} // namespace rehearse
