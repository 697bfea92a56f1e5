#pragma once

#include <QList>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "Examples/desktop/CacheSession.h"
#include "Examples/desktop/QtMainQueue.h"
#include "KivResource/KivResource.h"
#include "Tests/Examples/desktop/Content.h"
#include "Tests/Examples/desktop/Waiting.h"
#include "Tests/Support/TemporaryDirectory.h"
#include "Tools/contentserver/ContentServer.h"

namespace kiv::test {

/// A session with its own storage root and a server of the sample content. Records the signals of
/// the session.
class SessionFixture : public testing::Test {
 protected:
  SessionFixture() {
    KivStorageService::setRootPath(directory_.path("root"));
    EXPECT_TRUE(server_.start());
    useServer(server_.url());
  }

  static void useServer(const std::string& url) {
    KivAppConfiguration::sharedInstance()->setMainACSDomain(url);
  }

  void open() {
    using Session = CacheSession;
    session_ = std::make_unique<Session>(DispatchQueue::serial("resources"));
    const auto* session = session_.get();
    QObject::connect(session, &Session::contentsChanged, [this](const QList<CacheItem>& items) {
      ++announcements_;
      items_ = items;
    });
    QObject::connect(session, &Session::itemLoaded, [this] { ++loaded_; });
    QObject::connect(session, &Session::failed,
                     [this](const PassFailure& failure) { failures_.append(failure); });
    QObject::connect(session, &Session::progressed,
                     [this](const PassProgress& progress) { progress_ = progress; });
    QObject::connect(session, &Session::ended, [this](const PassSummary& summary) {
      ++ends_;
      summary_ = summary;
    });
    QObject::connect(session, &Session::checked, [this](const PassSummary& summary) {
      ++checks_;
      summary_ = summary;
    });
    QObject::connect(session, &Session::revalidated, [this](const PassSummary& summary) {
      ++revalidations_;
      summary_ = summary;
    });
  }

  bool waitForContents() {
    return waitUntil([this] { return announcements_ > 0; });
  }

  bool waitForEnd() {
    return waitUntil([this] { return ends_ > 0; });
  }

  /// Runs a pass to completion.
  bool run(CacheSession::Pass pass, const QString& configuration) {
    ends_ = loaded_ = 0;
    failures_.clear();
    session_->start(pass, configuration);
    return waitForEnd() && !session_->isRunning();
  }

  [[nodiscard]] const CacheItem* item(const QString& id) const {
    for (const CacheItem& item : items_) {
      if (item.id == id) return &item;
    }
    return nullptr;
  }

  TemporaryDirectory directory_;
  ContentServer server_{served("").toStdString()};
  QtMainQueue mainQueue_;
  std::unique_ptr<CacheSession> session_;

  int announcements_ = 0;
  QList<CacheItem> items_;
  int loaded_ = 0;
  QList<PassFailure> failures_;
  PassProgress progress_;
  int ends_ = 0;
  int checks_ = 0;
  int revalidations_ = 0;
  PassSummary summary_;  ///< The last one of a pass, a check or a revalidation.
};

}  // namespace kiv::test
