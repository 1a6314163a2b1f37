// Programs and the shell as other rooms and the rehearsal see them: what a program does that is not the product, which
// program opens a kind of file, and how a user answers the wish for more rights.
#pragma once

#include "simwin/kernel/Process.h"
#include "simwin/shell/api.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace machine {

// What a described program does from its start to its end.
struct Program {
    std::uint64_t runsMs = 1000;
    simwin::DWORD exitCode = 0;
    std::string holds;  // the port that it holds open while it runs; "" none
    std::string window; // title of a window that it shows; "" none
};

// path: full. A program that is not described runs for a second and ends with 0.
void DescribeProgram(std::string_view path, const Program& program);

// Starts a program: the product as a process of its own, any other as a scripted one. The file must exist.
// Returns: null with *error 2 or 3.
Process* StartProgram(const ProcessStart& start, simwin::DWORD* error);

// extension: with its dot, "" for none. Entered in the registry below HKCR as a setup would.
void SetAssociation(std::string_view extension, std::string_view program);
// "" without one.
std::string AssociatedProgram(std::string_view path);

// How "runas" is answered; yes unless set.
void SetConsent(bool isGiven);

// What the shell was asked to do, with its result.
struct ShellCall {
    std::uint64_t atMs;
    std::string verb, file, parameters, directory;
    int show, result;
};
const std::vector<ShellCall>& ShellCalls();

} // namespace machine
