#include <chrono>
#include <iostream>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "KivResource/KivResource.h"
#include "Tools/contentserver/ContentServer.h"
#include "Tools/kivresource/Commands.h"
#include "Tools/kivresource/ExitStatus.h"
#include "Tools/kivresource/Fault.h"
#include "Tools/kivresource/Host.h"
#include "Tools/kivresource/InterruptWatch.h"

namespace tool {

namespace {

std::optional<std::vector<Fault>> readFaults(const Options& options) {
  std::vector<Fault> faults;
  for (const auto& rule : options.faults) {
    auto fault = Fault::of(rule);
    if (!fault) {
      complain("--fault: \"" + rule + "\" is neither PATH=STATUS nor PATH=break");
      return std::nullopt;
    }
    faults.push_back(std::move(*fault));
  }
  return faults;
}

void apply(const std::vector<Fault>& faults, kiv::ContentServer& server) {
  for (const auto& [path, status] : faults) {
    if (status) {
      server.failWithStatus(path, *status);
    } else {
      server.breakOff(path);
    }
  }
}

/// The output can be read by a program: the first line is the URL, every further line is a request.
/// Flushed, so that each line arrives at once.
void printLine(std::string_view line) {
  std::cout << kiv::escapingControlCharacters(line).append(1, '\n') << std::flush;
}

std::string validateStart(const Options& options, const std::error_code& error) {
  if (error == std::errc::not_a_directory)
    return options.directory + ": there is no such directory";
  const std::string port = options.port == 0 ? "a port" : "port " + std::to_string(options.port);
  if (error == std::errc::address_in_use) return port + " is taken";
  return port + " is not to be had: " + error.message();
}

}  // namespace

int runServe(const Options& options) {
  const auto faults = readFaults(options);
  if (!faults) return exitStatus::usage;
  kiv::ContentServer server(options.directory);
  apply(*faults, server);
  const auto queue = kiv::DispatchQueue::main();
  int stoppedBy = 0;
  const InterruptWatch watch([&](int signal) {
    stoppedBy = signal;
    queue->stop();
  });
  if (!options.quiet)
    server.setRequestHandler([](const std::string& method, const std::string& path, int status) {
      printLine(method + " " + path + " " + std::to_string(status));
    });
  std::error_code error;
  if (!server.start(options.port, &error)) {
    complain(validateStart(options, error));
    return exitStatus::usage;
  }
  printLine(server.url());
  if (!std::cout) return exitStatus::failure;  // nobody can read the URL
  queue->run();
  server.stop();
  return exitStatus::signalled + stoppedBy;
}

}  // namespace tool
