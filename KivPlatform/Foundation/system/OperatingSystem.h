#pragma once

#include <chrono>
#include <optional>
#include <string>

/// Queries to the operating system about this process and this computer. Each system has an
/// implementation file of its own.
namespace kiv::system {

/// True on the thread that runs the program's main function.
bool isMainThread() noexcept;

/// Gives this thread a name that debuggers and system monitors show, of at most 15 characters:
/// Linux refuses longer ones.
void nameThisThread(const char* name) noexcept;

/// Makes a write to a connection that the other side has closed fail, instead of ending the process
/// with SIGPIPE: on this thread, and on those that it starts. Needed because the TLS library writes
/// without MSG_NOSIGNAL.
void blockBrokenPipeSignalOnThisThread() noexcept;

/// The processor time that this thread has used.
std::chrono::nanoseconds processorTimeOfThisThread() noexcept;

/// The time since some fixed moment. Unlike std::chrono::steady_clock, it includes the time that
/// the computer sleeps, if the system has such a clock.
std::chrono::nanoseconds timeWithSleep() noexcept;

/// An ID of this boot, which shows whether the computer has been restarted since a file was written
/// without a sync. Empty if the system has none; then it tells nothing.
std::string bootID();

/// The directory of the file that this code was loaded from: the shared library, or the program
/// that it is linked into. Does not depend on the name that the program was called with. Nothing if
/// the system does not tell.
std::optional<std::string> directoryOfThisLibrary();

/// The name of the running program, as reported by the system. May contain any character.
std::string programName();

/// The directory where programs keep the data of the current user; empty if there is none.
std::string userDataDirectory();

/// The same for caches, which the user or the system may remove.
std::string userCacheDirectory();

/// Writes one line to the system's log.
void writeLog(const std::string& line);

}  // namespace kiv::system
