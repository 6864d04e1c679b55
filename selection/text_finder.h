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

  /// Calls `found` with the number of each text that occurs in `path`, once for each place where it does.
  template <typename Found>
  void ForEachIn(std::string_view path, Found found) const {
    if (texts_.empty()) return;
    for (std::size_t at = 0; at + kShortest <= path.size(); at += step_) {
      const std::uint32_t bytes = BytesAt(path, at);
      if (!MayBeSite(Hash(bytes))) continue;
      const std::uint32_t slot = Hash(bytes) >> slotShift_;
      for (std::uint32_t i = slots_[slot]; i < slots_[slot + 1]; ++i) {
        if (StandsAt(sites_[i], bytes, path, at)) found(sites_[i].text);
      }
    }
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
  bool StandsAt(const Site& site, std::uint32_t bytes, std::string_view path, std::size_t at) const {
    if (site.bytes != bytes || site.offset > at) return false;
    return path.substr(at - site.offset).starts_with(texts_[site.text]);
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
