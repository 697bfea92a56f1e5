#pragma once

#include <KivResource/KivResource.h>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// The part of an application that is under test: it shows in each slot of a window, which is a
/// type of resources, the banner or page of the highest priority. It draws through a function, so
/// that it knows no toolkit.
///
/// Created, used and destroyed on the manager's queue.
class AdSlots final : public KivResourceManagerObserver,
                      public std::enable_shared_from_this<AdSlots> {
 public:
  /// Draws the file; empty: clears the slot. The file stays as it is until the slot is drawn again,
  /// unless the disk is full or read-only, where it may go shortly before.
  using Painter = std::function<void(const std::string& slot, const std::string& path)>;

  /// Shows at once what earlier runs have loaded.
  static std::shared_ptr<AdSlots> open(std::shared_ptr<KivResourceManager> manager,
                                       std::vector<std::string> slots, Painter paint);

  /// Starts a pass that makes the resources those of the configuration.
  void load(const kiv::Value& config);
  /// Stops it. What has been loaded stays.
  void stop();
  /// Asks the servers whether files have changed under their names, and draws those that have.
  void refresh();
  /// No download runs during a call.
  void setInCall(bool isInCall);
  /// Removes what was not shown for the longest time until the cache takes no more than `bytes`.
  /// False if it still does.
  bool bound(std::uint64_t bytes);
  /// To be called when the user sees the slot: what is seen stays longest in a bounded cache.
  void noteSeen(const std::string& slot) const;

  /// The identifier of the resource that the slot shows; empty if it shows nothing.
  [[nodiscard]] std::string shownIn(const std::string& slot) const;
  /// For the status line of the window: how the last operation went, one line for each problem.
  [[nodiscard]] const std::string& status() const { return status_; }

  void resourceManager_didLoadResource(const std::shared_ptr<KivResourceManager>& manager,
                                       const std::shared_ptr<KivResource>& resource) override;

 private:
  AdSlots(std::shared_ptr<KivResourceManager> manager, std::vector<std::string> slots,
          Painter paint);
  struct Shown {
    std::shared_ptr<KivResource> resource;
    std::optional<kiv::Lease> lease;
  };

  void showAll();
  void show(const std::string& slot);
  void draw(const std::string& slot, const std::shared_ptr<KivResource>& resource);
  void clear(const std::string& slot);
  void take(const KivResourcePassReport& report);
  void take(const KivResourceRevalidationReport& report);
  void note(const std::string& line);

  const std::shared_ptr<KivResourceManager> manager_;
  const std::vector<std::string> slots_;
  const Painter paint_;
  std::map<std::string, Shown> shown_;
  std::string status_;
};
