#include "selection/text_finder.h"

#include <algorithm>
#include <bit>

namespace {

constexpr std::size_t kLongestStep = 8;

/// How often each four bytes occur among the texts, by 16 bits of their hash: close enough to prefer rare ones.
class Uses {
 public:
  Uses() : counts_(1U << 16) {}
  std::uint32_t& operator[](std::uint32_t hash) { return counts_[hash >> 16]; }

 private:
  std::vector<std::uint32_t> counts_;
};

}  // namespace

void TqTextFinder::Build(std::vector<std::string_view> texts) {
  texts_ = std::move(texts);
  sites_.clear();
  if (texts_.empty()) return;
  const auto shorter = [](std::string_view a, std::string_view b) { return a.size() < b.size(); };
  const std::size_t shortest = std::ranges::min_element(texts_, shorter)->size();
  step_ = std::min(shortest - kShortest + 1, kLongestStep);
  CollectSites();
  FileSites();
}

/// Of each text the neighbouring sites that are rarest among all texts: what many of them share ("/library/") stands in
/// many paths, too, and would be looked at more closely again and again.
void TqTextFinder::CollectSites() {
  Uses uses;
  for (const std::string_view text : texts_) {
    for (std::size_t at = 0; at + kShortest <= text.size(); ++at) ++uses[Hash(BytesAt(text, at))];
  }
  for (std::uint32_t number = 0; number < texts_.size(); ++number) {
    const std::string_view text = texts_[number];
    std::size_t best = 0;
    std::uint64_t fewestUses = UINT64_MAX;
    for (std::size_t from = 0; from + step_ - 1 + kShortest <= text.size(); ++from) {
      std::uint64_t sum = 0;
      for (std::size_t at = from; at < from + step_; ++at) sum += uses[Hash(BytesAt(text, at))];
      if (sum >= fewestUses) continue;
      fewestUses = sum;
      best = from;
    }
    for (std::size_t at = best; at < best + step_; ++at) {
      sites_.push_back({BytesAt(text, at), number, static_cast<std::uint32_t>(at)});
    }
  }
}

void TqTextFinder::FileSites() {
  constexpr int kHashBits = 32;
  const int slotBits = std::max(static_cast<int>(std::bit_width(sites_.size())), 1);
  const int bitBits = slotBits + 4;  // a path's place is let through by chance at most once in 16
  slotShift_ = kHashBits - slotBits;
  bitShift_ = kHashBits - bitBits;
  std::ranges::sort(sites_, {}, [](const Site& site) { return Hash(site.bytes); });
  slots_.assign((std::size_t{1} << slotBits) + 1, 0);
  bits_.assign(std::max<std::size_t>((std::size_t{1} << bitBits) / 64, 1), 0);
  for (const Site& site : sites_) {
    const std::uint32_t hash = Hash(site.bytes);
    ++slots_[(hash >> slotShift_) + 1];
    bits_[(hash >> bitShift_) / 64] |= std::uint64_t{1} << (hash >> bitShift_) % 64;
  }
  for (std::size_t slot = 1; slot < slots_.size(); ++slot) slots_[slot] += slots_[slot - 1];
}
