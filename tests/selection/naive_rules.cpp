#include "tests/selection/naive_rules.h"

#include <algorithm>
#include <sstream>
#include <utility>

namespace {

std::string Lower(std::string text) {
  for (char& c : text) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
  return text;
}

std::string Value(const std::string& line, const std::string& name) {
  const std::size_t at = line.find(" " + name + "=\"");
  if (at == std::string::npos) return "";
  const std::size_t start = at + name.size() + 3;
  return Lower(line.substr(start, line.find('"', start) - start));
}

bool Holds(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

bool HoldsOneOf(const std::string& text, const std::string& list) {
  std::istringstream in(list);
  for (std::string piece; std::getline(in, piece, '|');) {
    if (!piece.empty() && Holds(text, piece)) return true;
  }
  return false;
}

std::string Extension(const std::string& path) {
  const std::string name = path.substr(path.find_last_of("/\\") + 1);
  const std::size_t dot = name.rfind('.');
  return dot == std::string::npos ? "" : name.substr(dot + 1);
}

bool Matches(const NaiveRule& rule, const std::string& path) {
  return (rule.prefix == "*" || (!path.empty() && path.substr(1).starts_with(rule.prefix))) &&
         (rule.extension == "*" || Extension(path) == rule.extension) &&
         (rule.endsWith == "*" || path.ends_with(rule.endsWith)) &&
         (rule.contains1 == "*" || Holds(path, rule.contains1)) &&
         (rule.contains2 == "*" || Holds(path, rule.contains2)) &&
         (rule.doesNotContain == "*" || !HoldsOneOf(path, rule.doesNotContain));
}

/// An external volume's name does not belong to the prefix.
std::string OnAnyVolume(const std::string& prefix) {
  const std::size_t nameEnd = prefix.find('/', 9);
  return Holds(prefix, "volumes/") && nameEnd != std::string::npos ? prefix.substr(nameEnd + 1) : prefix;
}

}  // namespace

std::string NaiveRule::Shown() const {
  const char* list = doesNotContain == "*" ? " * " : " list ";
  return prefix + " " + contains1 + " " + contains2 + list + endsWith + " " + extension + " " + std::to_string(hits);
}

void NaiveRules::Load(const std::string& text) {
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    const std::string osVers = Value(line, "osVers");
    if (!line.starts_with("<excludefname_rule ") || (osVers != "*" && osVers != "10.15")) continue;
    const NaiveRule rule{OnAnyVolume(Value(line, "skipFirstCharThenStartsWith")),
                         Value(line, "contains_1"),
                         Value(line, "contains_2"),
                         Value(line, "doesNotContain"),
                         Value(line, "endsWith"),
                         Value(line, "hasFileExtension")};
    if (rule.prefix == "*" || rule.prefix.size() >= 2) Insert(rule);
  }
  // The catch-all group changes places with the last one.
  const auto catchAll = std::ranges::find_if(groups_, [](const Group& group) { return group[0][0].prefix == "*"; });
  if (catchAll != groups_.end()) std::swap(*catchAll, groups_.back());
}

void NaiveRules::Insert(const NaiveRule& rule) {
  const auto group =
      std::ranges::find_if(groups_, [&](const Group& other) { return other[0][0].prefix == rule.prefix; });
  if (group == groups_.end()) {
    groups_.push_back({{rule}});
    return;
  }
  const auto isDuplicate = [&](const NaiveRule& other) {
    return other.contains1 == rule.contains1 && other.contains2 == rule.contains2 && other.endsWith == rule.endsWith &&
           (other.doesNotContain == "*") == (rule.doesNotContain == "*");
  };
  for (auto& sub : *group) {
    if (sub[0].extension != rule.extension) continue;
    if (std::ranges::none_of(sub, isDuplicate)) sub.insert(sub.begin() + 1, rule);
    return;
  }
  const bool goesFirst = group->size() == 1 && (*group)[0][0].extension == "*";
  const auto place = rule.extension == "*" ? group->end() : group->begin() + (goesFirst ? 0 : 1);
  group->insert(place, {rule});
}

bool NaiveRules::Wants(const std::string& fullPath) {
  std::string path = Lower(fullPath);
  bool onlyCatchAll = false;
  if (path.starts_with("/volumes/")) {
    const std::size_t nameEnd = path.find('/', 9);
    onlyCatchAll = nameEnd == std::string::npos;
    if (!onlyCatchAll) path = path.substr(nameEnd);
  }
  for (Group& group : groups_) {
    for (auto& sub : group) {
      for (NaiveRule& rule : sub) {
        if ((onlyCatchAll && rule.prefix != "*") || !Matches(rule, path)) continue;
        ++rule.hits;
        return false;
      }
    }
  }
  return true;
}

std::vector<std::string> NaiveRules::InOrder() const {
  std::vector<std::string> shown;
  for (const Group& group : groups_) {
    for (const auto& sub : group) {
      for (const NaiveRule& rule : sub) shown.push_back(rule.Shown());
    }
  }
  return shown;
}
