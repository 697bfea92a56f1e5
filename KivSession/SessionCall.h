#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "KivResource/KivResource.h"
#include "KivSession/FollowedConfiguration.h"

namespace kiv::session {

/// A parsed line of a session's input.
struct SessionCall {
  /// An operation that gives the members of its result line, or an error. What is asked to do
  /// something, not for something, has no members; its result is put out only for a call with a
  /// tag.
  struct Operation {
    std::function<Result<Dictionary>(KivResourceManager&)> run;
    bool hasResult = true;
    bool endsRequests = false;  ///< It may end the wait of requests for their answers.
  };
  struct State {};
  struct StartPass {
    KivResourcePass pass;
  };
  struct Revalidate {
    KivResourceRevalidation what;
  };
  struct Follow {
    FollowedConfiguration what;
  };
  struct CheckNow {};
  struct StopFollowing {};
  struct SetSettings {
    Dictionary settings;
  };
  struct ReportProgress {
    bool enabled;
  };
  struct ReportPasses {
    bool enabled;
  };
  struct AnswerRequests {
    bool enabled;
  };
  struct AnswerRequest {
    std::uint64_t number;
    std::optional<KivRESTServiceRequest::Headers> headers;  ///< Nothing: the request is refused.
  };
  struct AllowTransfers {
    bool enabled;
  };
  struct TakeLease {
    std::optional<std::string> resourceID;
  };
  struct EndLease {
    std::uint64_t number;
  };
  struct WaitForFinish {
    std::chrono::milliseconds timeout;
  };
  struct Sleep {
    std::chrono::milliseconds time;
  };
  /// An invalid call and the reason.
  struct Invalid {
    std::string problem;
  };

  std::string name;
  Value tag;  ///< A string or a number; null if the call has none.
  std::variant<Invalid, Operation, State, StartPass, Revalidate, Follow, CheckNow, StopFollowing,
               SetSettings, ReportProgress, ReportPasses, AnswerRequests, AnswerRequest,
               AllowTransfers, TakeLease, EndLease, WaitForFinish, Sleep>
      what;
};

/// Parses one line. Throws std::bad_alloc if there is no memory for it.
SessionCall readSessionCall(std::string_view line);

}  // namespace kiv::session
