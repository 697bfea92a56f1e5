#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <optional>

struct KivResourcePassReport;
struct KivResourceRevalidationReport;

/// Progress of a pass.
struct PassProgress {
  qint64 filesDone = 0;
  qint64 files = 0;
  qint64 bytes = 0;
  std::optional<qint64> bytesExpected;  ///< Nothing while a length is unknown.
  double bytesPerSecond = 0;
};

/// A failure of one resource, of one file, or of the configuration.
struct PassFailure {
  QString what;
  QString reason;          ///< In words.
  QStringList tries = {};  ///< The servers that were asked, each with its answer.
};

/// What came of a pass, or of a check of the stored files: plain values for the window.
struct PassSummary {
  QString changes;  ///< In words; empty if there is nothing to tell.
  QList<PassFailure> failures;

  static PassSummary of(const KivResourcePassReport& report);
  static PassSummary of(const KivResourceRevalidationReport& report);
  /// Of a pass that could not begin.
  static PassSummary failed(const PassFailure& failure);
};
