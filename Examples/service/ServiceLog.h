#pragma once

#include <string_view>

/// The priorities of syslog and journald.
enum class LogLevel { error = 3, warning = 4, notice = 5, info = 6 };

/// Writes one line through the framework's log, with the prefix "<6>" that journald takes for the
/// priority. May be called on any thread.
void writeLog(LogLevel level, std::string_view text);

/// Sends the lines of the service and of the framework to standard error alone. By default the
/// framework writes to the system log too, and journald would have each line twice.
void sendLogToStandardError();
