// A debug run of the real Quillmarch.exe on fake ports: planted through the setup API with ids as Windows gives them,
// with their tree in the test's own cfgmgr32.dll. Afterwards the registry, the COM name database and the DOS names are
// what the rules want. And no start of it takes a library that somebody has planted.
#include "platform/win32.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

constexpr GUID PortsClass = {0x4D36E978, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};
constexpr GUID UsbClass = {0x36FC9E60, 0xC465, 0x11CF, {0x80, 0x56, 0x44, 0x45, 0x53, 0x54, 0x00, 0x00}};
constexpr GUID ComPortInterface = {0x86E0D1E0, 0x8089, 0x11D0, {0x9C, 0xE4, 0x08, 0x00, 0x3E, 0x30, 0x1F, 0x73}};
constexpr char EnumKey[] = "SYSTEM\\CurrentControlSet\\Enum\\";
constexpr char ArbiterKey[] = "SYSTEM\\CurrentControlSet\\Control\\COM Name Arbiter";
constexpr char OverrideKey[] = "Software\\Wine\\AppDefaults\\Bed.exe\\DllOverrides";
constexpr char ControlOverrideKey[] = "Software\\Wine\\AppDefaults\\loads-by-name.exe\\DllOverrides";
constexpr char Adapter[] = "ROOT\\BED\\0000"; // above the ports; a tree of hubs would be the bed's own invention
constexpr char TreeRoot[] = "HTREE\\ROOT\\0";
constexpr char Port[] = "FTDIBUS\\VID_0403+PID_6001+A702TB52A\\0000";
constexpr char Neighbour[] = "FTDIBUS\\VID_0403+PID_6001+AR0JFBPEA\\0000";
constexpr char Quick[] = "FTDIBUS\\VID_0403+PID_6001+A507YBKBA\\0000";
// What the program loads when it needs it. Those that it imports are loaded by Windows before its first instruction.
const std::string Libraries[] = {"wtsapi32.dll", "netapi32.dll", "uxtheme.dll"};
// Wine counts device nodes from 0, which no Windows gives out: the first one that is listed is nobody's.
constexpr char FirstNode[] = "ACPI\\BED\\0";
constexpr DWORD PatienceMs = 60000;

static void SetText(HKEY root, const std::string& path, const char* name, const std::string& text) {
    HKEY key = nullptr;
    ASSERT_EQ(RegCreateKeyExA(root, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr), 0) << path;
    EXPECT_EQ(RegSetValueExA(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                             static_cast<DWORD>(text.size() + 1)),
              0);
    RegCloseKey(key);
}

// What `reg query` shows of a value: an independent reader.
static std::string RegQuery(const std::string& path, const std::string& name) {
    const std::string command = "reg query \"HKLM\\" + path + "\" /v \"" + name + "\"";
    FILE* pipe = _popen(command.c_str(), "r");
    std::string all;
    char part[512];
    while (pipe && fgets(part, sizeof(part), pipe)) {
        all += part;
    }
    if (pipe) {
        _pclose(pipe);
    }
    for (const char* type : {"REG_SZ    ", "REG_BINARY    ", "REG_DWORD    "}) {
        const size_t at = all.find(type);
        if (at != std::string::npos) {
            const std::string value = all.substr(at + strlen(type));
            return value.substr(0, value.find_first_of("\r\n"));
        }
    }
    return "(none)";
}

static std::string DosTarget(const char* name) {
    char target[512] = "";
    return QueryDosDeviceA(name, target, sizeof(target)) ? target : "(none)";
}

namespace {
class DebugRun : public testing::Test {
protected:
    void SetUp() override {
        char self[MAX_PATH], temp[MAX_PATH];
        GetModuleFileNameA(nullptr, self, sizeof(self));
        m_built = std::string(self).substr(0, std::string(self).rfind('\\') + 1);
        GetTempPathA(sizeof(temp), temp);
        m_folder = std::string(temp) + "Bed\\";
        CreateDirectoryA(m_folder.c_str(), nullptr);
        ASSERT_TRUE(CopyFileA((m_built + "Quillmarch.exe").c_str(), (m_folder + "Bed.exe").c_str(), FALSE));
        // In the system's folder, since the product looks for libraries nowhere else.
        char system[MAX_PATH];
        GetSystemDirectoryA(system, sizeof(system));
        m_system = std::string(system) + "\\";
        m_library = m_system + "cfgmgr32.dll";
        ASSERT_TRUE(CopyFileA(m_library.c_str(), (m_folder + "former.dll").c_str(), FALSE));
        ASSERT_TRUE(CopyFileA((m_built + "bed-cfgmgr32.dll").c_str(), m_library.c_str(), FALSE)) << GetLastError();
        SetText(HKEY_CURRENT_USER, OverrideKey, "cfgmgr32", "native");
        // As on Windows, a library of this name next to the program is loaded unless the program asks for another.
        for (const std::string& library : Libraries) {
            for (const char* key : {OverrideKey, ControlOverrideKey}) {
                SetText(HKEY_CURRENT_USER, key, library.substr(0, library.size() - 4).c_str(), "native,builtin");
            }
        }
        m_devices = SetupDiCreateDeviceInfoList(nullptr, nullptr);
        // Wine gives the host's first serial device this name, where there is one.
        m_hostPort = DosTarget("COM1");
        DefineDosDeviceA(DDD_REMOVE_DEFINITION, "COM1", nullptr);
    }
    void TearDown() override {
        for (SP_DEVINFO_DATA& device : m_planted) {
            SetupDiRemoveDevice(m_devices, &device);
        }
        CopyFileA((m_folder + "former.dll").c_str(), m_library.c_str(), FALSE);
        RegDeleteKeyA(HKEY_CURRENT_USER, OverrideKey);
        RegDeleteKeyA(HKEY_CURRENT_USER, ControlOverrideKey);
        for (const char* name : {"COM3", "COM4", "COM5", "COM6", "COM7"}) {
            DefineDosDeviceA(DDD_REMOVE_DEFINITION, name, nullptr);
        }
        SetupDiDestroyDeviceInfoList(m_devices);
        if (m_hostPort[0] == '\\') {
            DefineDosDeviceA(DDD_RAW_TARGET_PATH, "COM1", m_hostPort.c_str());
        }
    }

    SP_DEVINFO_DATA Plant(const char* id, const GUID& setupClass) {
        SP_DEVINFO_DATA device = {};
        device.cbSize = sizeof(device);
        EXPECT_TRUE(SetupDiCreateDeviceInfoA(m_devices, id, &setupClass, nullptr, nullptr, 0, &device)) << id;
        EXPECT_TRUE(SetupDiRegisterDeviceInfo(m_devices, &device, 0, nullptr, nullptr, nullptr)) << id;
        m_planted.push_back(device);
        return device;
    }

    // A port as its driver leaves it: registry name, friendly name, interface that is up, DOS name.
    void PlantPort(const char* id, const char* portName, const char* kernelName) {
        SP_DEVINFO_DATA device = Plant(id, PortsClass);
        const std::string friendly = std::string("USB Serial Port (") + portName + ")";
        SetupDiSetDeviceRegistryPropertyA(m_devices, &device, SPDRP_FRIENDLYNAME,
                                          reinterpret_cast<const BYTE*>(friendly.c_str()),
                                          static_cast<DWORD>(friendly.size() + 1));
        const std::string key = std::string(EnumKey) + id;
        SetText(HKEY_LOCAL_MACHINE, key + "\\Device Parameters", "PortName", portName);
        SetText(HKEY_LOCAL_MACHINE, key, "BedParent", Adapter);
        SetText(HKEY_LOCAL_MACHINE, key, "BedKernelName", kernelName);
        const bool isFirst = std::string(id) == FirstNode;
        SetText(HKEY_LOCAL_MACHINE, key, "Service", isFirst ? "Serial" : "FTSER2K");
        SetText(HKEY_LOCAL_MACHINE, key, "DeviceDesc", isFirst ? "Communications Port" : "USB Serial Port");
        SP_DEVICE_INTERFACE_DATA interfaceData = {};
        interfaceData.cbSize = sizeof(interfaceData);
        ASSERT_TRUE(SetupDiCreateDeviceInterfaceA(m_devices, &device, &ComPortInterface, nullptr, 0, &interfaceData));
        std::string path = std::string("##?#") + id + "#{86e0d1e0-8089-11d0-9ce4-08003e301f73}";
        for (char& c : path) {
            c = c == '\\' ? '#' : c;
        }
        HKEY control = nullptr;
        const std::string controlKey =
            "SYSTEM\\CurrentControlSet\\Control\\DeviceClasses\\{86e0d1e0-8089-11d0-9ce4-08003e301f73}\\" + path +
            "\\#\\Control";
        ASSERT_EQ(RegCreateKeyExA(HKEY_LOCAL_MACHINE, controlKey.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                                  &control, nullptr),
                  0);
        const DWORD linked = 1;
        RegSetValueExA(control, "Linked", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&linked), sizeof(linked));
        RegCloseKey(control);
        if (*portName) {
            EXPECT_TRUE(DefineDosDeviceA(DDD_RAW_TARGET_PATH, portName, kernelName));
        }
    }

    HANDLE Start(const std::string& program, const std::string& arguments, const std::string& folder) const {
        STARTUPINFOA startup = {};
        startup.cb = sizeof(startup);
        PROCESS_INFORMATION process = {};
        std::string line = "\"" + m_folder + program + "\" " + arguments;
        EXPECT_TRUE(CreateProcessA(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, folder.c_str(), &startup,
                                   &process));
        CloseHandle(process.hThread);
        return process.hProcess;
    }
    static HWND WaitForWindow(const char* className) {
        HWND window = nullptr;
        const DWORD start = GetTickCount();
        while (!(window = FindWindowA(className, nullptr)) && GetTickCount() - start < PatienceMs) {
            Sleep(50);
        }
        return window;
    }
    static void ExpectEnd(HANDLE process) {
        DWORD code = 0xDEAD;
        EXPECT_EQ(WaitForSingleObject(process, PatienceMs), static_cast<DWORD>(WAIT_OBJECT_0));
        GetExitCodeProcess(process, &code);
        EXPECT_EQ(code, 0u);
        CloseHandle(process);
    }

    void Run(const std::string& settings, const std::string& folder = "") {
        std::ofstream(m_folder + "Bed.INI", std::ios::binary) << settings;
        const HANDLE process = Start("Bed.exe", "-debug", folder.empty() ? m_folder : folder);
        const HWND window = WaitForWindow("Quillmarch_MainWndClass");
        EXPECT_NE(window, nullptr) << "no main window";
        // The message is not read before the first scan is over.
        PostMessageA(window, WM_CLOSE, 0, 0);
        ExpectEnd(process);
    }
    void PlantDatabase(const std::vector<BYTE>& first) {
        std::vector<BYTE> bits(first);
        bits.resize(32);
        HKEY key = nullptr;
        ASSERT_EQ(
            RegCreateKeyExA(HKEY_LOCAL_MACHINE, ArbiterKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr), 0);
        RegSetValueExA(key, "ComDB", 0, REG_BINARY, bits.data(), static_cast<DWORD>(bits.size()));
        RegCloseKey(key);
    }
    // registryName: what counts from the next start on; dosName: what leads to the device now, and what Windows shows.
    void ExpectPort(const char* id, const std::string& registryName, const char* dosName,
                    const std::string& kernelName) {
        const std::string key = std::string(EnumKey) + id;
        EXPECT_EQ(RegQuery(key + "\\Device Parameters", "PortName"), registryName) << id;
        EXPECT_EQ(RegQuery(key, "FriendlyName"), std::string("USB Serial Port (") + dosName + ")") << id;
        EXPECT_EQ(DosTarget(dosName), kernelName) << id;
    }
    std::string Log() const {
        std::ifstream file(m_folder + "Bed.log", std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

    std::string m_built, m_folder, m_system, m_library, m_hostPort;
    HDEVINFO m_devices = INVALID_HANDLE_VALUE;
    std::vector<SP_DEVINFO_DATA> m_planted;
};
} // namespace

// One port whose driver has to be asked to restart, which Wine cannot do: its new number is in the registry and counts
// from its next start on, before the second run. One in quick mode: its DOS name moves at once.
TEST_F(DebugRun, PortsGetTheNumbersOfTheirRules) {
    Plant(TreeRoot, UsbClass);
    Plant(Adapter, UsbClass);
    SetText(HKEY_LOCAL_MACHINE, std::string(EnumKey) + Adapter, "BedParent", TreeRoot);
    PlantPort(FirstNode, "", "");
    PlantPort(Port, "COM3", "\\Device\\VCP0");
    PlantPort(Quick, "COM7", "\\Device\\VCP1");
    PlantPort(Neighbour, "COM4", "\\Device\\VCP2");
    PlantDatabase({0x4C}); // COM3, COM4 and COM7
    const std::string settings =
        "[Settings]\r\nWriteLogfile=1\r\nLogfile=Bed.log\r\nLogLevel=3\r\n"
        "[ComPorts10]\r\nDeviceID=FTDIBUS\\*A702TB52A\\*\r\nPortName=COM5\r\n"
        "[ComPorts11]\r\nDeviceID=FTDIBUS\\*A507YBKBA\\*\r\nPortName=COM6\r\nQuickAndDirtyMode=1\r\n";
    Run(settings);
    ExpectPort(Port, "COM5", "COM3", "\\Device\\VCP0");
    ExpectPort(Quick, "COM6", "COM6", "\\Device\\VCP1");
    ExpectPort(Neighbour, "COM4", "COM4", "\\Device\\VCP2");
    EXPECT_EQ(DosTarget("COM5"), "(none)");
    EXPECT_EQ(DosTarget("COM7"), "(none)");
    EXPECT_EQ(RegQuery(ArbiterKey, "ComDB").substr(0, 4), "3800") << "COM4 to COM6";
    // For the comparison with the simulated machine.
    CopyFileA((m_folder + "Bed.log").c_str(), (m_built + "bed.log").c_str(), FALSE);
    CopyFileA((m_folder + "Bed.INI").c_str(), (m_built + "bed.ini").c_str(), FALSE);

    DefineDosDeviceA(DDD_REMOVE_DEFINITION, "COM3", nullptr); // the adapter is plugged again
    ASSERT_TRUE(DefineDosDeviceA(DDD_RAW_TARGET_PATH, "COM5", "\\Device\\VCP0"));
    Run(settings);
    ExpectPort(Port, "COM5", "COM5", "\\Device\\VCP0");
    ExpectPort(Quick, "COM6", "COM6", "\\Device\\VCP1");
    ExpectPort(Neighbour, "COM4", "COM4", "\\Device\\VCP2");
    EXPECT_NE(Log().find("current portnumber 5 is configured -> nothing more to do"), std::string::npos);
    if (HasFailure()) {
        std::printf("%s\n", Log().c_str());
    }
}

// Next to the program, in the current folder, and on the path. Windows looks into its own folder before the latter two:
// there a library can only be planted that Windows lacks, as its older versions lack some.
TEST_F(DebugRun, NoLibraryIsTakenFromElsewhereThanTheSystemsFolder) {
    const std::string current = m_folder + "Current\\", onPath = m_folder + "Path\\";
    CreateDirectoryA(current.c_str(), nullptr);
    CreateDirectoryA(onPath.c_str(), nullptr);
    char path[4096] = "";
    GetEnvironmentVariableA("PATH", path, sizeof(path));
    SetEnvironmentVariableA("PATH", (std::string(path) + ";" + onPath).c_str());
    ASSERT_TRUE(CopyFileA((m_built + "loads-by-name.exe").c_str(), (m_folder + "loads-by-name.exe").c_str(), FALSE));
    std::string names;
    for (const std::string& library : Libraries) {
        names += " " + library;
        MoveFileA((m_system + library).c_str(), (m_system + library + ".away").c_str());
    }
    for (const std::string& place : {m_folder, current, onPath}) {
        for (const std::string& library : Libraries) {
            DeleteFileA((place + library + ".loaded").c_str()); // of a run before
            ASSERT_TRUE(CopyFileA((m_built + "planted.dll").c_str(), (place + library).c_str(), FALSE));
        }
        const auto isLoaded = [&](const std::string& library) {
            return GetFileAttributesA((place + library + ".loaded").c_str()) != INVALID_FILE_ATTRIBUTES;
        };
        Run("", current);
        const HANDLE balloon = Start("Bed.exe", "-balloon -text=COM7", current);
        EXPECT_NE(WaitForWindow("TarnHolveBalloonTipClass"), nullptr);
        TerminateProcess(balloon, 0); // Wine's timers never end it
        ExpectEnd(balloon);
        for (const std::string& library : Libraries) {
            EXPECT_FALSE(isLoaded(library)) << library << " was taken from " << place;
        }
        ExpectEnd(Start("loads-by-name.exe", names, current));
        for (const std::string& library : Libraries) {
            EXPECT_TRUE(isLoaded(library))
                << "the control does not take " << library << " from " << place << " either: this test shows nothing";
            DeleteFileA((place + library).c_str());
        }
    }
    for (const std::string& library : Libraries) {
        MoveFileA((m_system + library + ".away").c_str(), (m_system + library).c_str());
    }
    SetEnvironmentVariableA("PATH", path);
}
