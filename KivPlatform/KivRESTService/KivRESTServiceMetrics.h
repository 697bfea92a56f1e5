#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "KivPlatform/Foundation/values/URL.h"
#include "KivPlatform/KivRESTService/KivRESTServiceErrors.h"

/// One try that did not bring the file.
struct KivRESTServiceFailedTry {
  kiv::URL server;  ///< The URL that was asked.
  /// The reason: the transfer error, or nothing if the server answered with another status than
  /// 200 (or 206 to a request for the rest).
  std::optional<KivRESTServiceErrorCode> error;
  std::int64_t statusCode = 0;  ///< The status, 0 where none came.
};

/// What it took to get one file, known when its task has ended.
struct KivRESTServiceMetrics {
  /// The URL that gave what the task ended with; nothing if no server answered.
  std::optional<kiv::URL> server;
  /// Requests sent or attempted, of all servers; redirects followed do not count. 0 where another
  /// task found out that the servers cannot be reached.
  int tries = 0;
  std::int64_t bytes = 0;         ///< Of the body handed on; 0 without one.
  std::int64_t resumedBytes = 0;  ///< Of these, those that the last try found on the disk.
  /// From the start of the last try to the first byte of its response; 0 where none came.
  std::chrono::microseconds timeToFirstByte{0};
  /// From the start of the first try to the end, with what was waited between tries.
  std::chrono::microseconds totalTime{0};
  /// True if only the end of the connection marked the end of the body, as it may over HTTP/1.0,
  /// and over HTTP/1.1 with `takesBodiesWithoutLength`, never over https: nobody can tell whether
  /// it is whole.
  bool endedWithConnection = false;
  std::vector<KivRESTServiceFailedTry> failedTries;  ///< In the order in which they were made.
  /// How often a try ended, since it was slow, to give its place to another download. Not among the
  /// failed ones.
  int timesGivenWay = 0;
};

/// How far one task has come.
struct KivRESTServiceTaskProgress {
  std::int64_t bytesReceived = 0;  ///< Of the body, with those found on the disk.
  /// The length of the body; nothing until a server has told it.
  std::optional<std::int64_t> bytesExpected;
  double bytesPerSecond = 0;       ///< Now, smoothed over about a second.
  std::optional<kiv::URL> server;  ///< The URL being asked, or asked last.
  int tries = 0;                   ///< Begun so far.
};

/// How far a client has come with the tasks that came since it had none.
struct KivRESTServiceProgress {
  std::size_t tasksWaiting = 0;  ///< For a free place, or for their next try.
  std::size_t tasksRunning = 0;
  std::size_t tasksEnded = 0;
  std::int64_t bytesReceived = 0;  ///< Of bodies, those of ended tasks included.
  /// What bytesReceived will come to; nothing while the length of one of the bodies is unknown.
  std::optional<std::int64_t> bytesExpected;
  double bytesPerSecond = 0;
  std::vector<KivRESTServiceTaskProgress> running;  ///< Of the tasks that run, in no given order.
};
