// What stands around the product on a described machine: files and programs, sessions and users, how message boxes and
// "runas" are answered. Called by the machine builder, the events and the expectations.
#pragma once

#include "rehearse/EventRows.h"
#include "rehearse/Expectations.h"

#include <string>

namespace rehearse {

// Who runs programs on a machine without described sessions.
inline constexpr const char* NamelessUser = "DESK\\user";

struct SessionFacts {
    unsigned id = 1;
    bool hasFilteredTokens = false; // its administrator works with a filtered token
};

// The described session of a user; without any [[session]] the user has session 1. Throws InputError at `at` if there
// are sessions but none of this user.
SessionFacts SessionOfUser(const Record& description, const std::string& user, const Position& at);

// A path of the machine, or nobody could find what is put there. Throws InputError unless it begins with a drive.
std::string PathIn(const Record& record, std::string_view key);

void SetUpSurroundings(const Record& description);

std::span<const EventRow> SurroundingsEventRows();

void JudgeSurroundings(const Record& expect, Wrongs& wrongs); // message boxes and the editor

} // namespace rehearse
