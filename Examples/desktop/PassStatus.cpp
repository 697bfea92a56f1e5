#include "PassStatus.h"

#include <QLabel>
#include <QLocale>
#include <QProgressBar>

#include "ElidedLabel.h"

namespace {

QString size(double bytes) {
  return QLocale().formattedDataSize(static_cast<qint64>(bytes), 1, QLocale::DataSizeSIFormat);
}

QString resourcesText(qsizetype count) {
  return count == 1 ? PassStatus::tr("1 resource") : PassStatus::tr("%1 resources").arg(count);
}

QString progressText(const PassProgress& progress) {
  const QLocale locale;
  const QString files =
      PassStatus::tr("%1 of %2 files")
          .arg(locale.toString(progress.filesDone), locale.toString(progress.files));
  const QString bytes = progress.bytesExpected
                            ? PassStatus::tr("%1 of %2")
                                  .arg(size(static_cast<double>(progress.bytes)),
                                       size(static_cast<double>(*progress.bytesExpected)))
                            : size(static_cast<double>(progress.bytes));
  // Files that were received still have to be stored, and archives unpacked.
  if (progress.filesDone == progress.files) {
    return PassStatus::tr("%1 · %2 · storing").arg(files, bytes);
  }
  return PassStatus::tr("%1 · %2 · %3/s").arg(files, bytes, size(progress.bytesPerSecond));
}

}  // namespace

PassStatus::PassStatus(QWidget* parent)
    : QStatusBar(parent),
      text_(new ElidedLabel),
      bar_(new QProgressBar),
      paused_(new QLabel(tr("Paused"))) {
  setContentsMargins(8, 2, 8, 2);
  bar_->setFixedWidth(180);
  bar_->setTextVisible(false);
  bar_->hide();
  paused_->hide();
  addWidget(text_, 1);
  addPermanentWidget(paused_);
  addPermanentWidget(bar_);
}

void PassStatus::showStored(qsizetype resources) {
  text_->setText(tr("%1 in the cache").arg(resourcesText(resources)));
}

void PassStatus::showStart() {
  text_->setText(tr("Starting"));
  bar_->setRange(0, 0);
  bar_->show();
}

void PassStatus::showProgress(const PassProgress& progress) {
  text_->setText(progressText(progress));
  bar_->setRange(0, static_cast<int>(progress.files));
  bar_->setValue(static_cast<int>(progress.filesDone));
}

void PassStatus::showStopping() {
  text_->setText(tr("Stopping"));
}

void PassStatus::setPaused(bool isPaused) {
  paused_->setVisible(isPaused);
}

void PassStatus::showEnd(qsizetype resources, const PassSummary& summary) {
  bar_->hide();
  QString text = tr("%1 in the cache").arg(resourcesText(resources));
  if (!summary.changes.isEmpty()) text += " · " + summary.changes;
  if (summary.failures.isEmpty()) return text_->setText(tr("Done: %1").arg(text));
  text_->setText(tr("%1 · %2 failed: %3")
                     .arg(text)
                     .arg(summary.failures.size())
                     .arg(summary.failures.last().reason));
}

void PassStatus::showText(const QString& text) {
  text_->setText(text);
}
