// The mode that opens the configuration in an editor.
#include "tests/unit/host/HostSetup.h"

#include "host/IniEditor.h"

namespace {

using namespace hosttest;

constexpr const char* Notepad = "C:\\Windows\\notepad.exe";

void StartOfEditor(const char* ini = nullptr) {
    StartOfProgram();
    machine::TheFiles().Write(Notepad, "");
    machine::TheFiles().Write(machine::SystemDirectory() + "\\notepad.exe", "");
    machine::SetAssociation(".ini", Notepad);
    if (ini)
        machine::TheFiles().Write(szIniFile, ini);
}

std::string IniText() {
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

TEST(IniEditor, AServiceOfAnotherFolderIsToldAndNothingIsTouched) {
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

} // namespace
