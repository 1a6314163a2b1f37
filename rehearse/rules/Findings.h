// What can be wrong with a configuration: the catalogue, and one finding with its place. Pure.
#pragma once

#include "rehearse/description/Description.h"

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace rehearse {

// The number is the code that people see: QM101. It stays even if the text changes.
enum class Fault : unsigned {
    FileTooLarge = 101,
    Utf8Mark = 102,
    Utf8Text = 103,
    LostCharacters = 104,
    ZeroByte = 105,
    TooManyValues = 106,
    IndentedLine = 107,
    StrayLine = 108,
    BeforeSections = 109,
    NoSectionLine = 110,
    CommentBehindValue = 111,
    TabBeforeValue = 112,
    QuotedValue = 113,
    UnknownSection = 201,
    SectionTwice = 202,
    SectionNumberAbove = 203,
    SectionNeverRead = 204,
    SectionReadAs = 205,
    UnknownKey = 211,
    KeyTwice = 212,
    KeyWithoutEffect = 213,
    EntryWithoutOpen = 214,
    NotTheNumber = 301,
    OutsideLimits = 302,
    TooLong = 303,
    NotTheTime = 304,
    NumbersPassedOver = 305,
    TooManyNumbers = 306,
    NumberTwice = 307,
    NotTheRange = 308,
    UnknownShowWord = 309,
    NotTheSwitch = 310,
    EmptyCriterion = 401,
    LongCriterion = 402,
    NoCriterion = 403,
    NoNumber = 404,
    NeverWins = 405,
    WantedTwice = 406,
    FitsNothing = 407,
    NoEntry = 501,
    EntrySkipped = 502,
    DelayOnRemoval = 503,
    RemovalOff = 504,
    UnknownPlaceholder = 505,
    EmptyPlaceholder = 506,
};

struct FaultKind {
    Fault fault;
    const char* meaning;
    const char* remedy;
};

// In the order of the codes.
const std::vector<FaultKind>& FaultKinds();
std::string FaultCode(Fault fault); // "QM101"

// The catalogue as the documents have it: a Markdown table.
std::string FaultTable();

struct Finding {
    Fault fault = Fault::FileTooLarge;
    Position at;
    std::string what;       // UTF-8
    std::string suggestion; // UTF-8; "" if the catalogue's text is enough
};
using Findings = std::vector<Finding>;

// "FILE:LINE:COLUMN: QM211 what; suggestion"
std::string FindingLine(const Finding& finding);
nlohmann::ordered_json FindingsJson(const Findings& findings);

} // namespace rehearse
