#pragma once

#include <string_view>

#include "Tools/kivresource/Options.h"

namespace tool {

/// Tells the framework what the options say: storage root, servers, packaged resources; and
/// confines removals to the root. To be called before the manager is made; touches nothing on the
/// disk. False, with a line on standard error, where there is no storage root.
bool configureFramework(const Options& options);

/// For a command that says itself what happens: where a person looks at standard error, the
/// framework's log goes to the system log alone.
void keepLogFromTerminal();

/// Prints one line on standard error: the program's name and the text, without control characters.
void complain(std::string_view text);

}  // namespace tool
