#pragma once

// Finds which texts of a fixed set occur in a path, in one pass that looks at a few bytes in a hundred.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

/// The search looks at four bytes every `step` bytes. Of each text it knows as many neighbouring four bytes ("sites")
/// as it steps over, so that one of them is met wherever the text stands; a bit field of the sites' hashes sorts out
/// nearly all places of a path, and what is left is compared with the whole text.
class TqTextFinder {
 public:
  static constexpr std::size_t kShortest = 4;  ///< shorter texts cannot be searched for

  /// Takes a set of texts, none below kShortest bytes; their bytes must stay where they are.
  void Build(std::vector<std::string_view> texts);

  /// A text that begins at `at`. It may run beyond the end of the path in which it was seen.
  struct Sighting {
    std::uint32_t text;  ///< its number
    std::uint32_t at;
  };

  /// Calls `found` with a sighting of each text that stands in `path` or begins there and goes on beyond its end, apart
  /// from those seen already in the first `seen` bytes when they were a path of their own.
  template <typename Found>
  void ForEachIn(std::string_view path, std::size_t seen, Found found) const {
    if (texts_.empty()) return;
    const std::size_t from = seen < kShortest ? 0 : seen - kShortest + 1;
    for (std::size_t at = (from + step_ - 1) / step_ * step_; GoToPossibleSite(path, at); at += step_) {
      const std::uint32_t bytes = BytesAt(path, at);
      const std::uint32_t slot = Hash(bytes) >> slotShift_;
      for (std::uint32_t i = slots_[slot]; i < slots_[slot + 1]; ++i) {
        if (sites_[i].bytes != bytes || !MayStandAt(sites_[i], path, at)) continue;
        found(Sighting{sites_[i].text, static_cast<std::uint32_t>(at) - sites_[i].offset});
      }
    }
  }

  /// Whether the text stands whole in `path`.
  bool IsWhole(const Sighting& sighting, std::string_view path) const {
    return path.substr(sighting.at).starts_with(texts_[sighting.text]);
  }

 private:
  struct Site {
    std::uint32_t bytes;
    std::uint32_t text;    ///< its number
    std::uint32_t offset;  ///< from the text's beginning
  };

  static std::uint32_t BytesAt(std::string_view text, std::size_t at) {
    std::uint32_t bytes = 0;
    std::memcpy(&bytes, text.data() + at, sizeof bytes);
    return bytes;
  }
  static std::uint32_t Hash(std::uint32_t bytes) { return bytes * 0x9E37'79B1U; }
  bool MayBeSite(std::uint32_t hash) const {
    const std::uint32_t bit = hash >> bitShift_;
    return (bits_[bit / 64] >> (bit % 64) & 1) != 0;
  }
  /// Steps on from `at` to a place where there may be a site; false at the end of the path.
  bool GoToPossibleSite(std::string_view path, std::size_t& at) const {
    while (at + kShortest <= path.size() && !MayBeSite(Hash(BytesAt(path, at)))) at += step_;
    return at + kShortest <= path.size();
  }
  bool MayStandAt(const Site& site, std::string_view path, std::size_t at) const {
    if (site.offset > at) return false;
    const std::string_view rest = path.substr(at - site.offset);
    return rest.starts_with(std::string_view(texts_[site.text]).substr(0, rest.size()));
  }

  void CollectSites();
  void FileSites();

  std::vector<std::string_view> texts_;
  std::size_t step_ = 1;
  std::vector<Site> sites_;           ///< by hash
  std::vector<std::uint32_t> slots_;  ///< by the hash's upper bits: the first of its sites; one more at the end
  std::vector<std::uint64_t> bits_;   ///< by more of the hash's upper bits: whether there is a site
  int slotShift_ = 0;
  int bitShift_ = 0;
};
