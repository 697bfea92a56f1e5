#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

class KivResource;

namespace kiv {

/// True for the framework's own classes. A class of a host's own may answer differently every time
/// it is asked.
bool isOfFrameworkClass(const KivResource& resource);

/// Finds the places of a list at which a resource with a given identifier, a given type or a given
/// file, or a given object stands, without walking the list: an index is for one of these aspects.
///
/// Files are found by the names under which they are stored, since one file has several paths where
/// a link leads to its directory.
///
/// Invariant: of every resource that is in it, the place is among the candidates for what the
/// resource has of the aspect, as it is now. There may be more candidates than right ones, never
/// fewer: hashes may collide, so whoever asks compares what it finds.
///
/// Resources are open objects, whose properties can change under an index. A change of what indexes
/// rely on, through a resource's own operations or in a list that the resource handed out, makes
/// isCurrent() false, and the owner then builds its indexes anew. A resource of a host's own class
/// could change without telling, and is a candidate for everything.
///
/// Adding, removing and finding a candidate cost the same however many there are. The hashes are
/// keyed, so that a server cannot choose identifiers and paths that collide. Copies are of their
/// own.
class ResourceIndex {
 public:
  enum class Aspect : std::uint8_t { object, identifier, type, path };

  /// Goes through candidates, in ascending order of their places; some may come twice. A change of
  /// the index ends its use.
  class Candidates {
   public:
    /// The next place, or nothing after the last.
    std::optional<std::uint32_t> next();

   private:
    friend class ResourceIndex;
    Candidates(const ResourceIndex& index, std::uint32_t hash);

    const ResourceIndex* index_;
    std::uint32_t hash_;
    std::uint32_t node_;
    std::uint32_t unknownNode_;
  };

  /// An index for the aspect, with room for that many resources.
  explicit ResourceIndex(Aspect aspect, std::size_t size = 0);

  /// False once a resource of any list has changed what an index relies on.
  [[nodiscard]] bool isCurrent() const noexcept;

  /// Adds the resource at the first place after all others; nullptr leaves a gap there.
  void add(const KivResource* resource);
  /// Takes the resource at the place out; the places of the others stay.
  void remove(std::uint32_t place);
  /// True if a resource that is a candidate for anything stands at the place.
  [[nodiscard]] bool contains(std::uint32_t place) const;

  /// The candidates for the identifier, the type, or the path of a file.
  [[nodiscard]] Candidates candidates(std::string_view value) const;
  /// The candidates for the object.
  [[nodiscard]] Candidates candidates(const KivResource& resource) const;

 private:
  static constexpr std::uint32_t none = ~std::uint32_t{0};

  /// One reason to be a candidate. The nodes of a bucket are chained in the order of their places;
  /// the first one's predecessor is the last.
  struct Node {
    std::uint32_t hash;
    std::uint32_t place;  // none once it is removed
    std::uint32_t previous;
    std::uint32_t next;
  };

  void addNodes(const KivResource& resource, std::uint32_t place);
  [[nodiscard]] std::uint32_t hashOf(std::string_view value) const;
  void addNode(std::uint32_t hash, std::uint32_t place);
  void link(std::uint32_t node);
  void unlink(std::uint32_t node);
  void growBuckets();
  [[nodiscard]] std::uint32_t& bucket(std::uint32_t hash) {
    return buckets_[hash & (buckets_.size() - 1)];
  }
  /// The first node with the hash at or after `node` of its chain.
  [[nodiscard]] std::uint32_t find(std::uint32_t node, std::uint32_t hash) const;
  [[nodiscard]] std::uint32_t findFirst(std::uint32_t hash) const;

  Aspect aspect_;
  std::vector<Node> nodes_;                // those of one place stand together
  std::vector<std::uint32_t> firstNodes_;  // of each place, and then the number of nodes
  std::vector<std::uint32_t> buckets_;     // the first node of each; as many as a power of two
  std::uint64_t changesSeen_;
};

}  // namespace kiv
