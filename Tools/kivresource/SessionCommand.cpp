// The command session: a session whose lines are those of standard input and standard output.

#include <optional>
#include <unistd.h>
#include <utility>

#include "KivResource/KivResource.h"
#include "KivSession/Session.h"
#include "Tools/kivresource/Commands.h"
#include "Tools/kivresource/ExitStatus.h"
#include "Tools/kivresource/Host.h"
#include "Tools/kivresource/InterruptWatch.h"
#include "Tools/kivresource/LineReader.h"

namespace tool {

int runSession(const Options& options) {
  if (!configureFramework(options)) return exitStatus::usage;
  const auto manager = KivResourceManager::sharedInstance();
  const auto session = std::make_shared<kiv::session::Session>(manager, printJSONLine);
  manager->addObserver(session);
  std::optional<int> signalled;
  const InterruptWatch watch([&](int signal) {
    signalled = signal;
    session->stop();
  });
  const auto queue = kiv::DispatchQueue::main();
  const LineReader reader(
      STDIN_FILENO,
      [=](std::string line) {
        queue->async([session, line = std::move(line)] { session->takeLine(line); });
      },
      [=] { queue->async([session] { session->takeEnd(); }); });
  session->run();
  if (signalled) return exitStatus::signalled + *signalled;
  return session->listIsUnsaved() ? exitStatus::failure : exitStatus::success;
}

}  // namespace tool
