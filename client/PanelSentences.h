// How things stand, in sentences for the person at the panel's window: the most important first. Pure; what
// came from elsewhere is printable in it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "client/StatusReport.h"

namespace vexil {

// All that the sentences are made of.
struct PanelSituation {
    // Of the driver.
    enum class Driver { Unknown, Absent, Silent, Unusable, Running };
    Driver driver = Driver::Unknown;
    std::string driverProblem;           // while it cannot be used: why, without an end
    std::optional<StatusReport> report;  // its last status; null: none came, or it makes no sense
    std::uint64_t reportTime = 0;        // when it came: seconds since 1970

    // Of the panel.
    std::string notStored;    // why the last settings could not be stored; empty: they were
    std::string notTakenUp;   // why the driver did not take up what is stored, without an end; empty: it did
    bool hasChanges = false;  // that are not applied
    enum class FileUse { None, Loaded, Saved };
    FileUse fileUse = FileUse::None;
    std::string file;  // path of the settings file that was used last
};

// What a button beside a sentence asks the driver for: a network command of docs/control-channel.md.
struct Remedy {
    std::string button;  // its title
    std::vector<std::string> words;
    bool asksSecret = false;  // the person enters a secret, which is the last word
};

struct Sentence {
    enum class Weight {
        Trouble,  // something is not heard, or not kept
        Notice,   // something to know
        Fine,
    };
    Weight weight = Weight::Fine;
    std::string text;    // without an end
    std::string advice;  // what to do about it, whole sentences; empty: nothing
    std::optional<Remedy> remedy;
    bool operator==(const Sentence& other) const { return text == other.text && weight == other.weight; }
};

// All there is to say. Empty while nothing is known of the driver and there is nothing else.
std::vector<Sentence> SentencesOf(const PanelSituation& situation);

// What a single line says: the first sentence, and where nothing is wrong the name of the settings file.
Sentence LineOf(const PanelSituation& situation);

}  // namespace vexil
