// Programs and the shell as other rooms and the rehearsal see them: what programs other than the product do, which
// program opens a kind of file, and how a user answers a request for more rights.
#pragma once

#include "simwin/kernel/Process.h"
#include "simwin/kernel/Room.h"
#include "simwin/shell/api.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace machine {

// A described program from its start to its end.
struct Program {
    static constexpr std::uint64_t Forever = ~std::uint64_t{0}; // until its session ends
    std::uint64_t runsMs = 1000;
    simwin::DWORD exitCode = 0;
    std::string holds = {};      // the port that it holds open while it runs; "" none
    std::string window = {};     // title of a window that it shows; "" none
    simwin::DWORD failsWith = 0; // the error with which it cannot be started
    std::uint64_t blocksMs = 0;  // how late the call that starts it returns
};

// path: full. A program that is not described runs for a second and ends with 0.
void DescribeProgram(std::string_view path, const Program& program);
const Program* FindProgram(std::string_view path); // null if it is not described

// Starts a program: the product as a process of its own, a script by the command processor, any other as a scripted
// one. Its file must exist. Returns: null with *error 2, 3, 5 for a folder, 193 for a file that is not a program, or
// the described error.
Process* StartProgram(const ProcessStart& start, simwin::DWORD* error);
// .bat and .cmd: the command processor runs them.
bool IsBatchFile(std::string_view path);

// The parts of a line as the command processor splits it: at &, &&, | and || outside double quotes and not after
// a caret; anything after a line's end is ignored.
std::vector<std::string> CommandParts(std::string_view line);

// A name without a folder is looked for in `directory`, the system's and Windows' folders and PATH; one without an
// extension also with those of programs and scripts. "" if there is no such file.
std::string FindFileOfShell(std::string_view name, const std::string& directory);

// extension: with its dot, "" for none. Entered in the registry below HKCR as a setup program would.
void SetAssociation(std::string_view extension, std::string_view program);
// The running process's user takes precedence over the machine. "" without one.
std::string AssociatedProgram(std::string_view path);

// How "runas" is answered; yes unless set.
void SetConsent(bool isGiven);

// Requests to the shell, with their results.
struct ShellCall {
    std::uint64_t atMs;
    std::string verb, file, parameters, directory;
    int show, result;
};
const std::vector<ShellCall>& ShellCalls();

RoomPtr MakePrograms();
RoomPtr MakeShell();

} // namespace machine
