#include "KivSession/PassReportJSON.h"

#include <chrono>
#include <optional>

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

/// The members that the files of a pass and of a revalidation share.
template <class File>
void addTransfer(Dictionary& line, const File& file) {
  Array failedTries;
  for (const auto& failed : file.metrics.failedTries)
    failedTries.append(failedTryJSON(failed));
  line.set("outcome", nameOf(file.outcome));
  line.set("error", errorJSON(file.error));
  line.set("statusCode", file.statusCode);
  line.set("server", file.metrics.server ? serverJSON(*file.metrics.server) : Value());
  line.set("bytes", file.metrics.bytes);
  line.set("resumedBytes", file.metrics.resumedBytes);
  line.set("duration_ms", milliseconds(file.metrics.totalTime));
  line.set("tries", file.metrics.tries);
  line.set("failedTries", failedTries);
}

Dictionary fileJSON(const KivResourcePassFile& file) {
  Dictionary line{{"link", file.link}};
  addTransfer(line, file);
  return line;
}

Dictionary fileJSON(const KivResourceRevalidationFile& file) {
  Array resourceIDs;
  for (const auto& resourceID : file.resourceIDs)
    resourceIDs.append(resourceID);
  Dictionary line{{"path", file.path}, {"link", file.link}, {"resourceIDs", resourceIDs}};
  addTransfer(line, file);
  return line;
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

void addReport(Dictionary& line, const KivResourcePassReport& report) {
  Array entries;
  for (const auto& entry : report.entries)
    entries.append(entryJSON(entry));
  Array dropped;
  for (const auto& drop : report.dropped)
    dropped.append(dropJSON(drop));
  line.set("outcome", nameOf(report.outcome));
  line.set("entries", entries);
  line.set("dropped", dropped);
  line.set("bytes", report.bytes);
  line.set("duration_ms", milliseconds(report.duration));
  line.set("saveError", errorJSON(report.saveError));
  line.set("isIncomplete", report.isIncomplete);
}

Value reportJSON(const std::optional<KivResourcePassReport>& report) {
  if (!report) return nullptr;
  Dictionary json;
  addReport(json, *report);
  return json;
}

}  // namespace

Dictionary passReportLine(const KivResourcePassReport& report, const Value& tag) {
  Dictionary line{{"event", "passReport"}, {"passTag", tag}};
  addReport(line, report);
  return line;
}

Dictionary checkLine(const KivConfigurationCheck& check, const Value& tag) {
  return {{"event", "check"},
          {"followTag", tag},
          {"outcome", nameOf(check.outcome)},
          {"error", errorJSON(check.error)},
          {"statusCode", check.statusCode},
          {"server", check.server ? serverJSON(*check.server) : Value()},
          {"report", reportJSON(check.report)},
          {"saveError", errorJSON(check.saveError)},
          {"nextCheck_ms", check.nextCheck ? Value(check.nextCheck->count()) : Value()}};
}

Dictionary revalidationReportLine(const KivResourceRevalidationReport& report, const Value& tag) {
  Array files;
  for (const auto& file : report.files)
    files.append(fileJSON(file));
  return {{"event", "revalidationReport"},
          {"revalidationTag", tag},
          {"outcome", nameOf(report.outcome)},
          {"files", files},
          {"bytes", report.bytes},
          {"duration_ms", milliseconds(report.duration)},
          {"isIncomplete", report.isIncomplete}};
}

}  // namespace kiv::session
