// The service manager as the tool uses it.
#include "tests/unit/host/HostSetup.h"

#include "simwin/registry/Registry.h"

namespace {

using namespace hosttest;

constexpr const char* ServiceKey = "HKLM\\SYSTEM\\CurrentControlSet\\Services\\Quillmarch";
constexpr const char* EventSource = "HKLM\\SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\Quillmarch";

std::string ValueOf(const char* key, const char* name) {
    return machine::TheRegistry().GetString(key, name);
}

TEST(Registration, EntersAQuotedPathADescriptionAndAnEventSource) {
    StartOfProgram();
    EXPECT_EQ(g_pService->Register(/*Verbose=*/1), 1u) << LastBox();
    EXPECT_EQ(ValueOf(ServiceKey, "ImagePath"), "\"" + ProgramPath() + "\"");
    EXPECT_EQ(ValueOf(ServiceKey, "Description"), "Quill-March-Ward; Gives control over COM-port assignments");
    EXPECT_EQ(ValueOf(EventSource, "EventMessageFile"), ProgramPath());
    DWORD types = 0;
    EXPECT_TRUE(machine::TheRegistry().GetDword(EventSource, "TypesSupported", types));
    EXPECT_EQ(types, 7u);
    EXPECT_EQ(machine::TheRegistry().GetValue(EventSource, "CategoryCount"), nullptr);

    Sleep(1000);
    EXPECT_EQ(g_pService->QueryState(), static_cast<DWORD>(SERVICE_RUNNING));
    EXPECT_EQ(g_pService->Deregister(/*WaitMs=*/10000, /*Verbose=*/0), 1u);
    EXPECT_EQ(machine::TheRegistry().FindKey(ServiceKey), nullptr);
    EXPECT_EQ(machine::TheRegistry().FindKey(EventSource), nullptr);
    EXPECT_EQ(machine::MessageBoxes().size(), 1u) << "the silent command told something: " << LastBox();
}

TEST(Registration, AServiceThatCannotStartStaysRegistered) {
    StartOfProgram();
    machine::AddFault({.call = "StartServiceA", .on = "*", .error = ERROR_SERVICE_DISABLED});
    EXPECT_EQ(g_pService->Register(1), 0u);
    EXPECT_EQ(LastBox(), "Service registered but failed to start");
    EXPECT_EQ(machine::MessageBoxes().back().flags & 0xF0u, MB_ICONWARNING);
    EXPECT_NE(g_pService->IsRegistered(0), 0u);
}

TEST(Registration, ADescriptionThatIsThereIsKept) {
    StartOfProgram();
    DefineTheService();
    machine::TheRegistry().SetString(ServiceKey, "Description", "ours");
    g_pService->SetDescription();
    EXPECT_EQ(ValueOf(ServiceKey, "Description"), "ours");
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
}

TEST(Registration, AFailedStartTellsTheSystemsError) {
    StartOfProgram();
    DefineTheService("C:\\Nowhere\\Quillmarch.exe");
    EXPECT_EQ(g_pService->ChangeState(SERVICE_RUNNING, 1), ChangeExeNotFound);
    EXPECT_EQ(LastBox().rfind("Service failed to start\nPATH_NOT_FOUND", 0), 0u) << LastBox();
}

TEST(Registration, AStartThatNeverEndsIsGivenUpAfterFifteenSeconds) {
    StartOfProgram();
    DefineTheService();
    // The service sits in its initialisation for half a minute, and reports RUNNING only after 19 s.
    machine::AddFault({.call = "CMP_WaitNoPendingInstallEvents", .on = "*", .delayMs = 30000});
    const std::uint64_t startMs = machine::Now();
    EXPECT_EQ(g_pService->ChangeState(SERVICE_RUNNING, 1), ChangeTimedOut);
    EXPECT_EQ(machine::Now() - startMs, 15100u);
    EXPECT_EQ(LastBox(), "Service failed to start");
}

TEST(ImagePath, ABlankWithoutAQuoteGetsQuotesAndTheTypeStays) {
    StartOfProgram();
    struct Row {
        DWORD type;
        const char* before;
        const char* after;
    };
    for (const Row& row : {
             Row{REG_EXPAND_SZ, "C:\\Program Files\\Q\\Quillmarch.exe", "\"C:\\Program Files\\Q\\Quillmarch.exe\""},
             Row{REG_SZ, "C:\\My Tools\\Quillmarch.exe", "\"C:\\My Tools\\Quillmarch.exe\""},
             Row{REG_EXPAND_SZ, "%ProgramFiles%\\My Q\\q.exe", "\"%ProgramFiles%\\My Q\\q.exe\""},
             Row{REG_EXPAND_SZ, "\"C:\\Program Files\\Q\\Quillmarch.exe\"", "\"C:\\Program Files\\Q\\Quillmarch.exe\""},
             Row{REG_EXPAND_SZ, "C:\\Q\\Quillmarch.exe", "C:\\Q\\Quillmarch.exe"},
             Row{REG_BINARY, "C:\\Program Files\\q.exe", "C:\\Program Files\\q.exe"},
         }) {
        machine::TheRegistry().SetValue(ServiceKey, "ImagePath", row.type, machine::TextBytes(row.before));
        FixServiceImagePath();
        const machine::RegistryValue* value = machine::TheRegistry().GetValue(ServiceKey, "ImagePath");
        ASSERT_NE(value, nullptr);
        EXPECT_EQ(machine::TextOf(*value), row.after);
        EXPECT_EQ(value->type, row.type) << row.before;
    }
}

TEST(ImagePath, WithoutAServiceNothingIsMade) {
    StartOfProgram();
    FixServiceImagePath();
    EXPECT_EQ(machine::TheRegistry().FindKey(ServiceKey), nullptr);
}

} // namespace
