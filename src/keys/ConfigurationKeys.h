// The sections of the configuration and their keys: what a value is, how long it may be, its default. The
// product reads no key without a row here (its getters take a KeyName, and only a row makes one), and tools that check
// a configuration without running the product read the same rows. Pure; nothing of Windows.
#pragma once

#include <cstddef>
#include <string_view>

// The kinds of sections, in the order of CfgSectionType. A name may be followed by a number.
inline constexpr const char* SectionNames[] = {
    "Settings", "ComPorts", "OnArrival", "OnRemoval", "OnRemovalRequest", "OnRemovalFailed", "BalloonTips",
};
constexpr size_t SectionNameCount = sizeof(SectionNames) / sizeof(SectionNames[0]);
constexpr int HighestSectionNumber = 99;
constexpr int ValuesOfASection = 300;
constexpr int SectionLineLimit = 32;             // characters with both brackets; a line as long is no section
constexpr unsigned IniFileLimitBytes = 0x100000; // a file of this size or more is no configuration

enum class KeyKind {
    Flag,         // a number, 0 is off
    Number,       // decimal
    Duration,     // a number with a letter for its unit
    LogSwitch,    // on if it begins with 1
    LogLevel,     // its first character
    DebugSwitch,  // off if it begins with 0
    Colour,       // a number, 0xRRGGBB
    Text,         //
    Path,         //
    CommandLine,  // with placeholders
    ShowWord,     // how a window is shown
    Pattern,      // a criterion: a wildcard for the whole text
    PortNames,    // numbers after COM
    NumberRanges, // numbers with dashes and commas
};

enum class KeyForms {
    One,
    Ten, // also with a digit from 1 to 9; in the name an underscore marks its position
};

// Who reads the key: the reader's snapshot, or the system's profile functions straight from the file, or both.
enum class KeySource { Snapshot, Profile, Both };

struct KnownKey {
    const char* name;
    KeyKind kind;
    unsigned longest;    // characters; of the snapshot a longer value counts as absent, of the profile it is cut
    int defaultNumber;   // of numbers, if it depends on nothing else
    int lowest, highest; // values outside become the limit; both 0: no limit
    const char* defaultText;
    KeyForms forms;
    KeySource source;
    bool isWithoutEffect; // read and logged only
};

constexpr unsigned LongestNumber = 31;
constexpr unsigned LongestPath = 259;
constexpr unsigned LongestLogWord = 7;
constexpr int LongestDurationMs = 86400000; // one day

constexpr KnownKey FlagKey(const char* name, int defaultNumber = 0, bool isWithoutEffect = false) {
    return {name, KeyKind::Flag, LongestNumber,       defaultNumber,  0, 0,
            "",   KeyForms::One, KeySource::Snapshot, isWithoutEffect};
}
constexpr KnownKey NumberKey(const char* name, int defaultNumber, int lowest = 0, int highest = 0) {
    return {name, KeyKind::Number, LongestNumber,       defaultNumber, lowest, highest,
            "",   KeyForms::One,   KeySource::Snapshot, false};
}
constexpr KnownKey TextKey(const char* name, KeyKind kind, unsigned longest, const char* defaultText = "") {
    return {name, kind, longest, 0, 0, 0, defaultText, KeyForms::One, KeySource::Snapshot, false};
}
constexpr KnownKey ProfileKey(const char* name, KeyKind kind, unsigned longest, int defaultNumber = 0) {
    return {name, kind, longest, defaultNumber, 0, 0, "", KeyForms::One, KeySource::Profile, false};
}
constexpr KnownKey Criterion(const char* name) {
    return {name, KeyKind::Pattern, LongestPath, 0, 0, 0, "", KeyForms::Ten, KeySource::Snapshot, false};
}
// Of an entry of an action section. Flags and durations are numbers, and so have their length.
constexpr KnownKey EntryKey(const char* name, KeyKind kind, unsigned longest = LongestNumber,
                            bool isWithoutEffect = false) {
    return {name,
            kind,
            longest,
            0,
            0,
            kind == KeyKind::Duration ? LongestDurationMs : 0,
            "",
            KeyForms::Ten,
            KeySource::Snapshot,
            isWithoutEffect};
}

inline constexpr KnownKey SettingsKeys[] = {
    FlagKey("TelitHack"),
    FlagKey("RegisterAllDevClasses"),
    FlagKey("QuickAndDirtyMode"),
    FlagKey("RemoveDosDeviceNameOnStartup"),
    FlagKey("RemoveDosDeviceNameOnRemoval"),
    FlagKey("RemovePortDeviceOnRemoval"),
    FlagKey("RemoveUsbDeviceOnRemoval"),
    FlagKey("CheckPortsOnStartup", 1),
    FlagKey("CheckPortsOnResume"),
    FlagKey("AutoRunOnLogon", 0, /*isWithoutEffect=*/true),
    TextKey("ComNameArbiterClean", KeyKind::NumberRanges, 511),
    NumberKey("MaxPortNumber", 255),
    NumberKey("WaitNoPendingInstallEventsOnInit", 5000),
    FlagKey("EventLog", 0, /*isWithoutEffect=*/true),
    NumberKey("RemoteSessions", 1),
    ProfileKey("WriteLogfile", KeyKind::LogSwitch, LongestLogWord),
    ProfileKey("Logfile", KeyKind::Path, LongestPath),
    ProfileKey("LogLevel", KeyKind::LogLevel, LongestLogWord, 3),
    ProfileKey("WriteDebugOutput", KeyKind::DebugSwitch, LongestLogWord),
};

inline constexpr KnownKey BalloonKeys[] = {
    FlagKey("Enabled"),
    FlagKey("EnabledOnRemoval"), // default: that of Enabled
    NumberKey("Timeout", 5500, 1000, 60000),
    NumberKey("TimeoutOnRemoval", 2750, 1000, 60000), // default: half of Timeout
    TextKey("TextRemoved", KeyKind::Text, 63, "Removed"),
    {"SuppressWindowsBalloons", KeyKind::Flag, LongestNumber, 1, 0, 0, "", KeyForms::One, KeySource::Both, false},
    ProfileKey("Win11Style", KeyKind::Flag, LongestNumber),
    ProfileKey("Win10Style", KeyKind::Flag, LongestNumber),
    ProfileKey("CaptionColor", KeyKind::Colour, LongestNumber, -1),
    ProfileKey("TextColor", KeyKind::Colour, LongestNumber, -1),
    ProfileKey("BackColor", KeyKind::Colour, LongestNumber, -1),
};

// In the order of the test. In [ComPorts] and in all action sections.
inline constexpr KnownKey CriterionKeys[] = {
    Criterion("BusType_"),
    Criterion("KernelName_"),
    Criterion("DeviceID_"),
    Criterion("ParentDeviceID_"),
    Criterion("GrandParentDeviceID_"),
    Criterion("Class_"),
    Criterion("ClassGuid_"),
    Criterion("FriendlyName_"),
    Criterion("IRQ_"),
    Criterion("IoPort_"),
    Criterion("UsbPort_"),
    Criterion("Location_"),
    Criterion("ParentLocation_"),
    Criterion("LocationPath_"),
    Criterion("ParentLocationPath_"),
    Criterion("Address_"),
    Criterion("ParentAddress_"),
};
constexpr size_t CriterionCount = sizeof(CriterionKeys) / sizeof(CriterionKeys[0]);

// In [ComPorts], in addition to the criteria. Numbers are read in the order PortNames, PortName, PortName1 to
// PortName9.
constexpr unsigned LongestPortNames = 2047;
constexpr int HighestPortNumber = 65536;
constexpr int MostPortNumbers = 256;
inline constexpr KnownKey PortKeys[] = {
    TextKey("PortNames", KeyKind::PortNames, LongestPortNames),
    {"PortName_", KeyKind::PortNames, LongestPortNames, 0, 0, 0, "", KeyForms::Ten, KeySource::Snapshot, false},
    FlagKey("QuickAndDirtyMode"), // default: that of [Settings]
};

// In the action sections, in addition to the criteria.
inline constexpr KnownKey EntryKeys[] = {
    EntryKey("open_", KeyKind::CommandLine, 519),
    EntryKey("workdir_", KeyKind::Path, LongestPath),
    EntryKey("WindowStyle_", KeyKind::ShowWord),
    EntryKey("OpenStyle_", KeyKind::ShowWord),
    EntryKey("delay_", KeyKind::Duration),
    EntryKey("afterdelay_", KeyKind::Duration),
    EntryKey("wait_", KeyKind::Duration),
    EntryKey("force_", KeyKind::Flag), // default: 1 from Windows 6.0 on
    EntryKey("system_", KeyKind::Flag),
    EntryKey("elevated_", KeyKind::Flag),
    EntryKey("restricted_", KeyKind::Flag),
    EntryKey("md5_", KeyKind::Text, 63, /*isWithoutEffect=*/true),
    EntryKey("oneinstance_", KeyKind::Flag, LongestNumber, /*isWithoutEffect=*/true),
};

// Between percent signs in a command line, in the order of their replacement.
inline constexpr const char* PlaceholderNames[] = {
    "PortName",           "ComPort",    "ComPortNumber", "PortNumber",   "KernelName",
    "DeviceID",           "DevicePath", "DriverKeyName", "Class",        "ClassGuid",
    "FriendlyName",       "BusType",    "Location",      "LocationPath", "ParentLocation",
    "ParentLocationPath", "Address",    "ParentAddress", "UsbPort",
};
constexpr size_t PlaceholderCount = sizeof(PlaceholderNames) / sizeof(PlaceholderNames[0]);

constexpr size_t LongestKeyTemplate = std::string_view("GrandParentDeviceID_").size(); // characters

// Has no definition: a name that is in no table makes the compilation fail here.
[[noreturn]] void NoTableHasThisName();

// Returns: the row of exactly this name (a template with its underscore), null without one.
template<size_t N>
constexpr const KnownKey* FindKey(const KnownKey (&table)[N], std::string_view name) {
    for (const KnownKey& key : table) {
        if (name == key.name) {
            return &key;
        }
    }
    return nullptr;
}

constexpr const KnownKey* FindKey(std::string_view name) {
    for (const KnownKey* key : {FindKey(SettingsKeys, name), FindKey(BalloonKeys, name), FindKey(CriterionKeys, name),
                                FindKey(PortKeys, name), FindKey(EntryKeys, name)}) {
        if (key != nullptr) {
            return key;
        }
    }
    return nullptr;
}

// The row of a key that the product reads.
consteval const KnownKey& KeyRow(const char* name) {
    const KnownKey* key = FindKey(name);
    if (key == nullptr) {
        NoTableHasThisName();
    }
    return *key;
}

consteval const char* Placeholder(const char* name) {
    for (const std::string_view known : PlaceholderNames) {
        if (known == name) {
            return name;
        }
    }
    NoTableHasThisName();
}

// The name of a key that has one form, as a getter takes it.
class KeyName {
public:
    consteval KeyName(const char* name) : m_text(name) {
        if (KeyRow(name).forms != KeyForms::One) {
            NoTableHasThisName();
        }
    }
    constexpr KeyName(const KnownKey& key) : m_text(key.name) {}
    // For tests, which create their own keys. The text must outlive the key.
    static constexpr KeyName Unchecked(const char* text) { return {text, 0}; }
    constexpr const char* Text() const { return m_text; }

private:
    friend class IndexedKey;
    constexpr KeyName(const char* text, int) : m_text(text) {}
    const char* m_text;
};

// The name of a key that has ten forms: its underscore marks the place of the digit.
class KeyTemplate {
public:
    consteval KeyTemplate(const char* name) : m_text(name), m_size(std::string_view(name).size() + 1) {
        if (KeyRow(name).forms != KeyForms::Ten) {
            NoTableHasThisName();
        }
    }
    constexpr explicit KeyTemplate(const KnownKey& key)
        : m_text(key.name), m_size(std::string_view(key.name).size() + 1) {}
    constexpr const char* Text() const { return m_text; }
    constexpr size_t SizeWithTerminator() const { return m_size; }

private:
    const char* m_text;
    size_t m_size;
};
