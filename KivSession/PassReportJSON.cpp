#include "KivSession/PassReportJSON.h"

#include <chrono>

#include "KivSession/ResourceJSON.h"

namespace kiv::session {

namespace {

std::int64_t milliseconds(std::chrono::microseconds time) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(time).count();
}

/// Without the credentials that a server's URL may contain.
Value serverJSON(const URL& url) {
  return displayedURL(url.absoluteString());
}

Dictionary failedTryJSON(const KivRESTServiceFailedTry& failed) {
  return {{"server", serverJSON(failed.server)},
          {"statusCode", failed.statusCode},
          {"errorCode", failed.error ? Value(static_cast<std::int64_t>(*failed.error)) : Value()}};
}

Dictionary fileJSON(const KivResourcePassFile& file) {
  Array failedTries;
  for (const auto& failed : file.metrics.failedTries)
    failedTries.append(failedTryJSON(failed));
  return {{"link", file.link},
          {"outcome", nameOf(file.outcome)},
          {"error", errorJSON(file.error)},
          {"statusCode", file.statusCode},
          {"server", file.metrics.server ? serverJSON(*file.metrics.server) : Value()},
          {"bytes", file.metrics.bytes},
          {"resumedBytes", file.metrics.resumedBytes},
          {"duration_ms", milliseconds(file.metrics.totalTime)},
          {"tries", file.metrics.tries},
          {"failedTries", failedTries}};
}

Dictionary entryJSON(const KivResourcePassEntry& entry) {
  Array files;
  for (const auto& file : entry.files)
    files.append(fileJSON(file));
  return {{"item", entry.item},
          {"resourceID", entry.resourceID},
          {"name", entry.name},
          {"type", entry.type},
          {"engine", entry.engine},
          {"updated", entry.updated},
          {"outcome", nameOf(entry.outcome)},
          {"otherVersion", entry.otherVersion},
          {"reason", entry.reason},
          {"error", errorJSON(entry.error)},
          {"files", files}};
}

Dictionary dropJSON(const KivResourcePassDrop& drop) {
  return {{"resourceID", drop.resourceID},
          {"name", drop.name},
          {"type", drop.type},
          {"updated", drop.updated}};
}

}  // namespace

Dictionary passReportLine(const KivResourcePassReport& report, const Value& tag) {
  Array entries;
  for (const auto& entry : report.entries)
    entries.append(entryJSON(entry));
  Array dropped;
  for (const auto& drop : report.dropped)
    dropped.append(dropJSON(drop));
  return {{"event", "passReport"},
          {"passTag", tag},
          {"outcome", nameOf(report.outcome)},
          {"entries", entries},
          {"dropped", dropped},
          {"bytes", report.bytes},
          {"duration_ms", milliseconds(report.duration)},
          {"saveError", errorJSON(report.saveError)},
          {"isIncomplete", report.isIncomplete}};
}

}  // namespace kiv::session
