#pragma once

#include <optional>
#include <string>
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

/// The error message if the list of loaded resources could not be saved; otherwise nullopt.
std::optional<std::string> complaintOfSaving(const KivResourceManager& manager);

/// Call it last, with the exit status of the command. Returns this status; if writing to standard
/// output has failed, prints a line to standard error and returns exitStatus::failure.
int endOutput(int status);

/// Prints the program's name and the text as one line to standard error, without control
/// characters.
void complain(std::string_view text);

}  // namespace tool
