// The mode that opens the configuration in an editor.
#include "tests/unit/host/HostSetup.h"

#include "simwin/registry/Registry.h"
#include "simwin/shell/Shell.h"

#include "host/IniEditor.h"

namespace {

using namespace hosttest;

constexpr const char* Notepad = "C:\\Windows\\notepad.exe";

void StartOfEditor() {
    StartOfProgram();
    machine::TheFiles().Write(Notepad, "");
    machine::TheFiles().Write(machine::SystemDirectory() + "\\notepad.exe", "");
    machine::SetAssociation(".ini", Notepad);
}

void SetLanguage(unsigned language) {
    const_cast<machine::Setup&>(machine::TheSetup()).language = language;
}

std::string IniText() {
    return machine::TheFiles().Read(szIniFile).value_or("(no file)");
}

TEST(IniEditor, AFileThatIsThereIsOpenedAsItIs) {
    StartOfEditor();
    machine::TheFiles().Write(szIniFile, "mine");
    EditIni();
    EXPECT_EQ(IniText(), "mine");
    ASSERT_EQ(machine::ShellCalls().size(), 1u);
    const machine::ShellCall& call = machine::ShellCalls()[0];
    EXPECT_EQ(call.verb, "open");
    EXPECT_EQ(call.file, Notepad);
    EXPECT_EQ(call.parameters, "\"" + std::string(szIniFile) + "\"");
    EXPECT_EQ(call.directory, szExeDir);
}

TEST(IniEditor, AUserWithoutRightsGetsTheEditorElevated) {
    StartOfEditor();
    machine::TheFiles().Write(szIniFile, "mine");
    machine::CurrentProcess()->administrator = false;
    machine::SetConsent(false);
    EditIni();
    EXPECT_EQ(machine::ShellCalls().back().verb, "runas");
    EXPECT_EQ(LastBox().rfind("Error 5 opening the Quillmarch.INI\nINI file=", 0), 0u) << LastBox();
}

TEST(IniEditor, WithoutAFileTheSampleOfTheUsersLanguageIsWritten) {
    StartOfEditor();
    struct Row {
        unsigned language;
        const char* begins;
        const char* contains;
        std::size_t size;
    };
    for (const Row& row : {
             Row{0x0409, "\r\n; This is a sample for an Quillmarch.INI\r\n", "\r\n \r\n; More informations", 1354},
             Row{0x0407, "\r\n\r\n; Ausf\xFChrliche Infos",
                 "Anschlie\xDF"
                 "en eines COM-Port",
                 1646},
             Row{0x0807, "\r\n\r\n; Ausf\xFChrliche Infos", "Nummbern, allgemeinere", 1646},
         }) {
        machine::TheFiles().Delete(szIniFile);
        SetLanguage(row.language);
        EditIni();
        const std::string text = IniText();
        EXPECT_EQ(text.rfind(row.begins, 0), 0u) << row.language;
        EXPECT_NE(text.find(row.contains), std::string::npos) << row.language;
        EXPECT_EQ(text.size(), row.size) << row.language;
        for (std::size_t at = text.find('\n'); at != std::string::npos; at = text.find('\n', at + 1))
            ASSERT_EQ(text[at - 1], '\r') << "at " << at;
    }
    EXPECT_EQ(machine::ShellCalls().size(), 3u);
}

TEST(IniEditor, AServiceOfAnotherFolderIsToldAndNothingIsTouched) {
    StartOfEditor();
    DefineTheService("\"D:\\Old\\Quillmarch.exe\"");
    EditIni();
    EXPECT_EQ(LastBox(),
              "Error: Quillmarch Service is loading from different folder:\nD:\\Old\nCall _service_deregister "
              "and then _service_register to fix it.");
    EXPECT_EQ(IniText(), "(no file)");
    EXPECT_TRUE(machine::ShellCalls().empty());
}

TEST(IniEditor, TheCaseOfTheServicesFolderDoesNotCount) {
    StartOfEditor();
    DefineTheService("\"" + machine::Upper(ProgramPath()) + "\"");
    EditIni();
    EXPECT_EQ(machine::ShellCalls().size(), 1u) << LastBox();
}

TEST(IniEditor, AFolderThatRefusesLeadsToOneStartWithMoreRights) {
    StartOfEditor();
    machine::AddFault({.call = "CreateFileA", .on = "*Quillmarch.INI", .error = ERROR_ACCESS_DENIED});
    EditIni();
    ASSERT_EQ(machine::ShellCalls().size(), 1u);
    EXPECT_EQ(machine::ShellCalls()[0].verb, "runas");
    EXPECT_EQ(machine::ShellCalls()[0].file, szExePath);
    EXPECT_EQ(machine::ShellCalls()[0].parameters, "-ini");
}

TEST(IniEditor, WithoutAFileAtTheEndThereIsNothingToEdit) {
    StartOfEditor();
    machine::AddFault({.call = "CreateFileA", .on = "*Quillmarch.INI", .error = ERROR_PATH_NOT_FOUND});
    EditIni();
    EXPECT_TRUE(machine::ShellCalls().empty());
    EXPECT_TRUE(machine::MessageBoxes().empty());
}

TEST(IniEditor, WithoutAnAssociationNotepadIsTaken) {
    StartOfProgram();
    machine::TheFiles().Write(machine::SystemDirectory() + "\\notepad.exe", "");
    machine::TheFiles().Write(szIniFile, "mine");
    EditIni();
    ASSERT_FALSE(machine::ShellCalls().empty());
    EXPECT_EQ(machine::ShellCalls().back().file, std::string(szSystemDir) + "\\notepad.exe");
}

} // namespace
