#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "KivResource/KivResource.h"
#include "Tools/kivresource/Options.h"

namespace tool {

/// Tells the framework what the options say: storage root, servers, packaged resources; and
/// confines removals to the root. To be called before the manager is made; touches nothing on the
/// disk. False, with a line on standard error, where there is no storage root.
bool configureFramework(const Options& options);

/// For a command that says itself what happens: where a person looks at standard error, the
/// framework's log goes to the system log alone.
void keepLogFromTerminal();

/// The error in words, where what is loaded could not be saved as the list of the next start.
std::optional<std::string> complaintOfSaving(const KivResourceManager& manager);

/// To be called last, with the exit status of the command. Answers it, or that of a failure, with a
/// line on standard error, where something that was printed did not reach standard output.
int endOutput(int status);

/// Prints one line on standard error: the program's name and the text, without control characters.
void complain(std::string_view text);

}  // namespace tool
