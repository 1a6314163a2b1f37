// The mode that opens the configuration in an editor; the service manager as the tool uses it.
#include "host/IniEditor.h"
#include "simwin/registry/Registry.h"
#include "tests/unit/host/HostSetup.h"

#include "config/CCfgReader.h"
#include "host/PermissionCheck.h"

using namespace hosttest;

constexpr const char* Notepad = "C:\\Windows\\notepad.exe";

static void StartOfEditor(const char* ini = nullptr) {
    StartOfProgram();
    machine::TheFiles().Write(Notepad, "");
    machine::TheFiles().Write(machine::SystemDirectory() + "\\notepad.exe", "");
    machine::SetAssociation(".ini", Notepad);
    if (ini) {
        machine::TheFiles().Write(szIniFile, ini);
    }
}

static std::string IniText() {
    return machine::TheFiles().Read(szIniFile).value_or("(no file)");
}

TEST(IniEditor, AFileThatIsThereIsOpenedAsItIs) {
    StartOfEditor("mine");
    DefineTheService("\"" + machine::Upper(ProgramPath()) + "\""); // the case of its folder does not count
    EditIni();
    EXPECT_EQ(IniText(), "mine");
    EXPECT_EQ(LastShellCall(), std::string("open ") + Notepad);
    EXPECT_EQ(machine::ShellCalls()[0].parameters, "\"" + std::string(szIniFile) + "\"");
    EXPECT_EQ(machine::ShellCalls()[0].directory, szExeDir);
    machine::CurrentProcess()->administrator = false;
    machine::SetConsent(false);
    EditIni();
    EXPECT_EQ(LastShellCall(), std::string("runas ") + Notepad);
    EXPECT_EQ(LastBox().rfind("Error 5 opening the Quillmarch.INI\nINI file=", 0), 0u) << LastBox();
}

TEST(IniEditor, WithoutAFileOrAnAssociationTheSampleIsOpenedWithNotepad) {
    StartOfEditor();
    machine::SetAssociation(".ini", "");
    EditIni();
    EXPECT_EQ(IniText().rfind("\r\n; This is a sample for an Quillmarch.INI\r\n", 0), 0u) << IniText();
    EXPECT_EQ(LastShellCall(), "open " + std::string(szSystemDir) + "\\notepad.exe");
}

TEST(IniEditor, AServiceOfAnotherFolderIsReportedAndNothingIsTouched) {
    StartOfEditor();
    DefineTheService("\"D:\\Old\\Quillmarch.exe\"");
    EditIni();
    EXPECT_EQ(LastBox(),
              "Error: Quillmarch Service is loading from different folder:\nD:\\Old\nCall _service_deregister "
              "and then _service_register to fix it.");
    EXPECT_EQ(IniText(), "(no file)");
    EXPECT_EQ(LastShellCall(), "");
}

TEST(IniEditor, AFolderThatRefusesLeadsToOneStartWithMoreRights) {
    StartOfEditor();
    machine::AddFault({.call = "CreateFileA", .on = "*Quillmarch.INI", .error = ERROR_PATH_NOT_FOUND});
    EditIni();
    EXPECT_EQ(LastShellCall(), "") << "without a file there is nothing to edit";
    EXPECT_EQ(LastBox(), "");
    machine::AddFault({.call = "CreateFileA", .on = "*Quillmarch.INI", .error = ERROR_ACCESS_DENIED, .times = 2});
    EditIni();
    EXPECT_EQ(LastShellCall(), "") << "an administrator has no more rights to get";
    EXPECT_EQ(LastBox(), "Error 5 creating the Quillmarch.INI\nINI file=" + std::string(szIniFile));
    machine::CurrentProcess()->administrator = false;
    EditIni();
    EXPECT_EQ(LastShellCall(), std::string("runas ") + szExePath);
    EXPECT_EQ(machine::ShellCalls()[0].parameters, "-ini");
}

constexpr const char* ServiceKey = "HKLM\\SYSTEM\\CurrentControlSet\\Services\\Quillmarch";
constexpr const char* EventSource = "HKLM\\SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\Quillmarch";

TEST(Registration, EntersADescriptionAndAnEventSource) {
    StartOfProgram();
    machine::AddFault({.call = "StartServiceA", .on = "*", .error = ERROR_SERVICE_DISABLED});
    EXPECT_EQ(g_pService->Register(/*Verbose=*/1), 0u);
    EXPECT_EQ(LastBox(), "Service registered but failed to start");
    EXPECT_EQ(machine::MessageBoxes().back().flags & 0xF0u, MB_ICONWARNING);
    machine::Registry& registry = machine::TheRegistry();
    EXPECT_EQ(registry.GetString(ServiceKey, "Description"),
              "Quill-March-Ward; Gives control over COM-port assignments");
    EXPECT_EQ(registry.GetString(EventSource, "EventMessageFile"), ProgramPath());
    DWORD types = 0;
    EXPECT_TRUE(registry.GetDword(EventSource, "TypesSupported", types));
    EXPECT_EQ(types, 7u);
    EXPECT_EQ(registry.GetValue(EventSource, "CategoryCount"), nullptr);
    registry.SetString(ServiceKey, "Description", "ours");
    g_pService->SetDescription();
    EXPECT_EQ(registry.GetString(ServiceKey, "Description"), "ours") << "one that is there is kept";
}

TEST(Registration, WarnsOfAConfigurationKeyThatUsersMayChange) {
    StartOfProgram();
    g_pCfgReader = new CCfgReader(szIniFile, nullptr, nullptr);
    machine::TheRegistry().SetSecurity("HKLM\\SOFTWARE\\Tarn Holve\\Quillmarch", "O:BAD:P(A;;KA;;;BA)(A;;KR;;;BU)");
    LogWhatUsersMayChange();
    EXPECT_FALSE(Logged("may change the key"));
    machine::TheRegistry().SetSecurity("HKLM\\SOFTWARE\\Tarn Holve\\Quillmarch", "O:BAD:P(A;;KA;;;BA)(A;;KW;;;BU)");
    LogWhatUsersMayChange();
    EXPECT_TRUE(Logged("WARNING: Users may change the key Software\\Tarn Holve\\Quillmarch, and so"));
}

TEST(Registration, TheStateThatAServiceIsInDecidesWhatAChangeComesTo) {
    StartOfProgram();
    EXPECT_EQ(g_pService->ChangeState(SERVICE_RUNNING, 0), ChangeNotRegistered);
    DefineTheService();
    EXPECT_EQ(g_pService->ChangeState(SERVICE_STOPPED, 0), ChangeAlready);
    machine::CurrentProcess()->administrator = false;
    EXPECT_EQ(g_pService->ChangeState(SERVICE_RUNNING, 0), ChangeNoAccess);
    EXPECT_EQ(g_pService->IsRegistered(0), 1u) << "everybody may ask";
    machine::CurrentProcess()->administrator = true;
    EXPECT_EQ(g_pService->ChangeState(SERVICE_RUNNING, 0), ChangeDone);
    EXPECT_EQ(g_pService->ChangeState(SERVICE_RUNNING, 0), ChangeAlready);
    machine::AddFault({.call = "ControlService", .on = "*", .error = ERROR_SERVICE_REQUEST_TIMEOUT});
    EXPECT_EQ(g_pService->ChangeState(SERVICE_STOPPED, 1), ChangeRefused);
    EXPECT_EQ(LastBox(), "Service failed to stop");
    EXPECT_EQ(g_pService->ChangeState(SERVICE_STOPPED, 0), ChangeDone);
    // The service stays in its initialisation for half a minute, and reports RUNNING only after 19 s.
    machine::AddFault({.call = "CMP_WaitNoPendingInstallEvents", .on = "*", .delayMs = 30000});
    const std::uint64_t startMs = machine::Now();
    EXPECT_EQ(g_pService->ChangeState(SERVICE_RUNNING, 1), ChangeTimedOut);
    EXPECT_EQ(machine::Now() - startMs, 15100u);
    EXPECT_EQ(LastBox(), "Service failed to start");
}

TEST(ImagePath, ABlankWithoutAQuoteGetsQuotesAndTheTypeStays) {
    StartOfProgram();
    FixServiceImagePath();
    EXPECT_EQ(machine::TheRegistry().FindKey(ServiceKey), nullptr) << "without a service nothing is made";
    using Row = std::tuple<DWORD, const char*, const char*>;
    for (const auto& [type, before, after] :
         {Row{REG_EXPAND_SZ, "C:\\Program Files\\q.exe", "\"C:\\Program Files\\q.exe\""},
          Row{REG_SZ, "C:\\My Tools\\q.exe", "\"C:\\My Tools\\q.exe\""},
          Row{REG_EXPAND_SZ, "%ProgramFiles%\\My Q\\q.exe", "\"%ProgramFiles%\\My Q\\q.exe\""},
          Row{REG_EXPAND_SZ, "\"C:\\Program Files\\q.exe\"", "\"C:\\Program Files\\q.exe\""},
          Row{REG_EXPAND_SZ, "C:\\Q\\q.exe", "C:\\Q\\q.exe"},
          Row{REG_BINARY, "C:\\Program Files\\q.exe", "C:\\Program Files\\q.exe"}}) {
        machine::TheRegistry().SetValue(ServiceKey, "ImagePath", type, machine::TextBytes(before));
        FixServiceImagePath();
        const machine::RegistryValue* value = machine::TheRegistry().GetValue(ServiceKey, "ImagePath");
        ASSERT_NE(value, nullptr);
        EXPECT_EQ(machine::TextOf(*value), after);
        EXPECT_EQ(value->type, type) << before;
    }
}
