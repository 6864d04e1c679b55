#include "selection/prefix_tree.h"

#include <algorithm>

namespace {

using Prefix = TqPrefixTree::Prefix;

unsigned char ByteAt(const Prefix& prefix, std::size_t at) {
  return static_cast<unsigned char>(prefix.text[at]);
}

/// Number of leading bytes that all of an ordered range share: those of its first and its last.
std::size_t SharedBytes(const Prefix* first, const Prefix* last) {
  const std::string_view a = first->text;
  const std::string_view b = (last - 1)->text;
  return static_cast<std::size_t>(std::ranges::mismatch(a, b).in1 - a.begin());
}

}  // namespace

void TqPrefixTree::Build(std::vector<Prefix> prefixes) {
  std::ranges::sort(prefixes, {}, &Prefix::text);
  nodes_.assign(1, {});
  mostMatches_ = 0;
  AddChildren(0, prefixes.data(), prefixes.data() + prefixes.size(), 0, 0);
}

/// The range is ordered; all of its prefixes share `depth` bytes, which the nodes above stand for, and are longer.
void TqPrefixTree::AddChildren(std::uint32_t parent, const Prefix* first, const Prefix* last, std::size_t depth,
                               std::size_t matchesAbove) {
  struct Run {
    const Prefix* first;
    const Prefix* last;
  };
  std::vector<Run> runs;  // of the same next byte
  for (const Prefix* at = first; at != last; at = runs.back().last) {
    const auto otherByte = [&](const Prefix& other) { return ByteAt(other, depth) != ByteAt(*at, depth); };
    runs.push_back({at, std::find_if(at, last, otherByte)});
  }
  const auto firstChild = static_cast<std::uint32_t>(nodes_.size());
  nodes_[parent].firstChild = firstChild;
  nodes_[parent].childCount = static_cast<std::uint32_t>(runs.size());
  nodes_.resize(nodes_.size() + runs.size());
  for (std::uint32_t i = 0; i < runs.size(); ++i) {
    const std::size_t shared = SharedBytes(runs[i].first, runs[i].last);
    Node& node = nodes_[firstChild + i];
    node.label = runs[i].first->text.substr(depth, shared - depth);
    const bool endsHere = runs[i].first->text.size() == shared;  // the shortest of a run is its first
    if (endsHere) node.number = runs[i].first->number;
    const std::size_t matches = matchesAbove + (endsHere ? 1 : 0);
    mostMatches_ = std::max(mostMatches_, matches);
    AddChildren(firstChild + i, runs[i].first + (endsHere ? 1 : 0), runs[i].last, shared, matches);
  }
}

const TqPrefixTree::Node* TqPrefixTree::ChildFor(const Node& node, char firstByte) const {
  const auto byte = [](const Node& child) { return static_cast<unsigned char>(child.label.front()); };
  const Node* first = nodes_.data() + node.firstChild;
  const Node* last = first + node.childCount;
  const Node* child = std::ranges::lower_bound(first, last, static_cast<unsigned char>(firstByte), {}, byte);
  return child != last && child->label.front() == firstByte ? child : nullptr;
}

std::size_t TqPrefixTree::Collect(std::string_view path, Place& place, std::uint32_t* numbers) const {
  std::size_t count = 0;
  while (!place.isEnd && place.at < path.size()) {
    const std::string_view rest = path.substr(place.at);
    const Node* child = ChildFor(nodes_[place.node], rest.front());
    place.isEnd = child == nullptr || !rest.starts_with(child->label.substr(0, rest.size()));
    if (place.isEnd || rest.size() < child->label.size()) break;
    if (child->number != kNoPrefix) numbers[count++] = child->number;
    place.node = static_cast<std::uint32_t>(child - nodes_.data());
    place.at += child->label.size();
  }
  return count;
}
