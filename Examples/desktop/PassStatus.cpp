#include "PassStatus.h"

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
    : QStatusBar(parent), text_(new ElidedLabel), bar_(new QProgressBar) {
  setContentsMargins(8, 2, 8, 2);
  bar_->setFixedWidth(180);
  bar_->setTextVisible(false);
  bar_->hide();
  addWidget(text_, 1);
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

void PassStatus::showEnd(qsizetype resources, const QList<PassFailure>& failures) {
  bar_->hide();
  if (failures.isEmpty()) {
    text_->setText(tr("Done: %1 in the cache").arg(resourcesText(resources)));
    return;
  }
  text_->setText(tr("%1 in the cache · %2 failed: %3")
                     .arg(resourcesText(resources))
                     .arg(failures.size())
                     .arg(failures.last().reason));
}
