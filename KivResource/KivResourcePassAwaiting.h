#pragma once

#include <coroutine>
#include <exception>
#include <memory>
#include <optional>
#include <utility>

#include "KivPlatform/Foundation/values/Value.h"
#include "KivResource/KivResourceManager.h"
#include "KivResource/passes/KivResourcePass.h"
#include "KivResource/passes/KivResourcePassReport.h"

// Passes for coroutines. In a coroutine of the host's, on the manager's queue:
//
//     const KivResourcePassReport report = co_await kiv::update(manager, config);
//
// KivResource.h does not include this header, since not every host has coroutines.

namespace kiv {

/// Starts a pass when a coroutine awaits it, and resumes the coroutine with the report, on the
/// manager's queue, when KivResourceManager::startPass() would call its handler. To be awaited
/// once, on the manager's queue.
///
/// What startPass() throws is thrown in the coroutine, and what the coroutine throws after it was
/// resumed goes where its promise sends it. A coroutine may be destroyed on the manager's queue
/// while it waits: the pass continues, and nothing is resumed. The manager is kept until then.
class PassAwaiter {
 public:
  PassAwaiter(std::shared_ptr<KivResourceManager> manager, KivResourcePass pass) noexcept
      : manager_(std::move(manager)), pass_(std::move(pass)) {}
  PassAwaiter(const PassAwaiter&) = delete;
  PassAwaiter& operator=(const PassAwaiter&) = delete;
  ~PassAwaiter() {
    if (wait_) wait_->coroutine = nullptr;
  }

  [[nodiscard]] bool await_ready() const noexcept { return false; }

  void await_suspend(std::coroutine_handle<> coroutine) {
    const auto wait = std::make_shared<Wait>();
    wait_ = wait;
    wait->coroutine = coroutine;
    manager_->startPass(pass_, [wait](const KivResourcePassReport& report) {
      if (!wait->coroutine) return;
      wait->take(report);
      std::exchange(wait->coroutine, nullptr).resume();
    });
  }

  [[nodiscard]] KivResourcePassReport await_resume() {
    if (wait_->error) std::rethrow_exception(wait_->error);
    return *std::move(wait_->report);
  }

 private:
  /// Shared with the handler, which may outlive the coroutine.
  struct Wait {
    std::coroutine_handle<> coroutine;
    std::optional<KivResourcePassReport> report;
    std::exception_ptr error;  ///< Memory ran out for the report.

    void take(const KivResourcePassReport& given) noexcept {
      try {
        report = given;
      } catch (...) {
        error = std::current_exception();
      }
    }
  };

  std::shared_ptr<KivResourceManager> manager_;
  KivResourcePass pass_;
  std::shared_ptr<Wait> wait_;
};

/// For `co_await`: runs the pass.
[[nodiscard]] inline PassAwaiter runPass(std::shared_ptr<KivResourceManager> manager,
                                         KivResourcePass pass) noexcept {
  return {std::move(manager), std::move(pass)};
}

/// For `co_await`: KivResourceManager::loadResourcesForConfig().
[[nodiscard]] inline PassAwaiter load(std::shared_ptr<KivResourceManager> manager, Value config) {
  return {std::move(manager), KivResourcePass::load(std::move(config))};
}

/// For `co_await`: KivResourceManager::updateResourcesForConfig().
[[nodiscard]] inline PassAwaiter update(std::shared_ptr<KivResourceManager> manager, Value config) {
  return {std::move(manager), KivResourcePass::update(std::move(config))};
}

}  // namespace kiv
