#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "KivPlatform/Foundation/values/URL.h"
#include "KivPlatform/KivRESTService/KivRESTServiceErrors.h"

/// One failed attempt.
struct KivRESTServiceFailedTry {
  kiv::URL server;  ///< The URL that was requested.
  /// The transfer error; nothing if the server answered with a status other than 200, or 206 to a
  /// range request.
  std::optional<KivRESTServiceErrorCode> error;
  std::int64_t statusCode = 0;  ///< The status; 0 without a response.
};

/// Metrics of one task, set when it has ended.
struct KivRESTServiceMetrics {
  /// The URL whose response the task ended with; nothing if no server answered.
  std::optional<kiv::URL> server;
  /// Attempts at all servers; redirects do not count. 0 if another task found out that the servers
  /// are unreachable.
  int tries = 0;
  std::int64_t bytes = 0;         ///< Of the body; 0 without one.
  std::int64_t resumedBytes = 0;  ///< Of these, those that the last attempt found on the disk.
  /// From the start of the last attempt, or of its last redirect, to the first byte of the
  /// response; 0 if none came.
  std::chrono::microseconds timeToFirstByte{0};
  /// From the start of the first attempt to the end, including the waits between attempts.
  std::chrono::microseconds totalTime{0};
  /// True if the body ended with the connection, which is accepted over HTTP/1.0, and over HTTP/1.1
  /// with `takesBodiesWithoutLength`, never over https: it may have been cut short unnoticed.
  bool endedWithConnection = false;
  std::vector<KivRESTServiceFailedTry> failedTries;  ///< In the order in which they were made.
  /// How often a slow attempt yielded its slot to another download, which is not a failed attempt.
  int timesYielded = 0;
};

/// Progress of one task.
struct KivRESTServiceTaskProgress {
  std::int64_t bytesReceived = 0;  ///< Of the body, including those found on the disk.
  /// The length of the body; nothing until it is known.
  std::optional<std::int64_t> bytesExpected;
  double bytesPerSecond = 0;       ///< Now, smoothed over about a second.
  std::optional<kiv::URL> server;  ///< The URL of the current or last request.
  int tries = 0;                   ///< Attempts begun so far.
};

/// Progress of a client, counted since it last had no tasks.
struct KivRESTServiceProgress {
  std::size_t tasksWaiting = 0;  ///< For a free slot, or for their next attempt.
  std::size_t tasksRunning = 0;
  std::size_t tasksEnded = 0;
  std::int64_t bytesReceived = 0;  ///< Of bodies, including those of ended tasks.
  /// The final value of bytesReceived; nothing while the length of a body is unknown.
  std::optional<std::int64_t> bytesExpected;
  double bytesPerSecond = 0;
  std::vector<KivRESTServiceTaskProgress> running;  ///< Of the running tasks, in unspecified order.
};
