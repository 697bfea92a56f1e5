#pragma once

#include <chrono>
#include <optional>
#include <string>

/// What the operating system is asked about this process and this computer. Each system answers in
/// a file of its own.
namespace kiv::system {

/// True on the thread that runs the program's main function.
bool isMainThread() noexcept;

/// Gives this thread a name that debuggers and system monitors show. The system keeps no more than
/// 15 characters.
void nameThisThread(const char* name) noexcept;

/// Keeps a write to a connection that the other side has closed from ending the process: on this
/// thread, and on those that it starts, such a write is only an error. The TLS library writes
/// without asking for that itself.
void blockBrokenPipeSignalOnThisThread() noexcept;

/// The processor time that this thread has used.
std::chrono::nanoseconds processorTimeOfThisThread() noexcept;

/// The time since some fixed moment. Unlike std::chrono::steady_clock, it includes the time that
/// the computer sleeps, if the system has such a clock.
std::chrono::nanoseconds timeWithSleep() noexcept;

/// Boot ID: tells whether the computer has been restarted since a file was written without a sync.
/// Empty if the system has none; two empty ones do not mean the same boot.
std::string bootID();

/// The directory of the file that this code was loaded from: the shared library, or the program
/// that it is linked into. What the program was called with plays no part. Nothing if the system
/// does not tell.
std::optional<std::string> directoryOfThisLibrary();

/// The name of the running program, as the system tells it; it may hold any character.
std::string programName();

/// The directory where programs keep the data of the user who runs this one, or an empty string.
std::string userDataDirectory();

/// The same for data that can be made again, which the user or the system may remove.
std::string userCacheDirectory();

/// Writes one line to the system's log.
void writeLog(const std::string& line);

}  // namespace kiv::system
