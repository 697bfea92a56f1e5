#pragma once

#include <string_view>

#include "KivResource/KivResource.h"
#include "Tools/kivresource/Options.h"

namespace tool {

/// Passes the options to the framework: storage root, servers and packaged resources. Call it
/// before the manager is created; it does not access the disk. Returns false and prints a line to
/// standard error if there is no storage root.
bool configureFramework(const Options& options);

/// For commands that print their own messages: if standard error is a terminal, the framework's log
/// goes only to the system log.
void keepLogFromTerminal();

/// Prints the value as one line to standard output and flushes it.
void printJSONLine(const kiv::Dictionary& line);

/// Call it last, with the exit status of the command. Returns this status; if writing to standard
/// output has failed, prints a line to standard error and returns exitStatus::failure.
int endOutput(int status);

/// Prints the program's name and the text as one line to standard error, without control
/// characters.
void complain(std::string_view text);

}  // namespace tool
