#pragma once

// The rules once more, as simply as they can be said: plain vectors, plain text search, no index characters, nothing
// shared. The engine has to agree with it about every file and about which rule got the hit.

#include <algorithm>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

inline std::string Lower(std::string text) {
  for (char& c : text) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
  return text;
}

struct NaiveRule {
  std::string prefix, contains1, contains2, doesNotContain, endsWith, extension;  ///< lower-case; "*": not used
  long hits = 0;

  std::string Shown() const {
    const char* list = doesNotContain == "*" ? " * " : " list ";
    return prefix + " " + contains1 + " " + contains2 + list + endsWith + " " + extension + " " + std::to_string(hits);
  }
  bool Matches(const std::string& path) const {
    const std::string name = path.substr(path.find_last_of("/\\") + 1);
    const std::string ownExtension = name.find('.') == name.npos ? "" : name.substr(name.rfind('.') + 1);
    bool holdsOther = false;
    std::istringstream in(doesNotContain == "*" ? "" : doesNotContain);
    for (std::string piece; std::getline(in, piece, '|');)
      holdsOther |= !piece.empty() && path.find(piece) != path.npos;
    return (prefix == "*" || (!path.empty() && path.substr(1).starts_with(prefix))) && !holdsOther &&
           (extension == "*" || ownExtension == extension) && (endsWith == "*" || path.ends_with(endsWith)) &&
           (contains1 == "*" || path.find(contains1) != path.npos) &&
           (contains2 == "*" || path.find(contains2) != path.npos);
  }
};

class NaiveRules {
 public:
  /// Adds the rules of one text, one element a line, attribute values without entities.
  void Load(const std::string& text) {
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
      const auto value = [&](const std::string& name) {
        const std::size_t start = line.find(" " + name + "=\"") + name.size() + 3;
        return Lower(line.substr(start, line.find('"', start) - start));
      };
      if (value("osVers") != "*" && value("osVers") != "10.15") continue;
      std::string prefix = value("skipFirstCharThenStartsWith");
      const std::size_t nameEnd = prefix.find('/', 9);  // an external volume's name does not belong to the prefix
      if (prefix.find("volumes/") != prefix.npos && nameEnd != prefix.npos) prefix = prefix.substr(nameEnd + 1);
      if (prefix != "*" && prefix.size() < 2) continue;
      Insert({prefix, value("contains_1"), value("contains_2"), value("doesNotContain"), value("endsWith"),
              value("hasFileExtension")});
    }
    // The catch-all group changes places with the last one.
    const auto catchAll = std::ranges::find_if(groups_, [](const Group& group) { return group[0][0].prefix == "*"; });
    if (catchAll != groups_.end()) std::swap(*catchAll, groups_.back());
  }

  /// Whether a file is wanted; the rule that excludes it gets the hit.
  bool Wants(const std::string& fullPath) {
    std::string path = Lower(fullPath);
    const bool isExternal = path.starts_with("/volumes/");
    const bool onlyCatchAll = isExternal && path.find('/', 9) == path.npos;
    if (isExternal && !onlyCatchAll) path = path.substr(path.find('/', 9));
    for (NaiveRule* rule : All()) {
      if ((!onlyCatchAll || rule->prefix == "*") && rule->Matches(path)) return ++rule->hits, false;
    }
    return true;
  }

  /// All rules in the order in which they are tried.
  std::vector<NaiveRule*> All() {
    std::vector<NaiveRule*> all;
    for (Group& group : groups_) {
      for (auto& sub : group) {
        for (NaiveRule& rule : sub) all.push_back(&rule);
      }
    }
    return all;
  }

 private:
  using Group = std::vector<std::vector<NaiveRule>>;  ///< one prefix: a list for each extension

  void Insert(const NaiveRule& rule) {
    const auto group =
        std::ranges::find_if(groups_, [&](const Group& other) { return other[0][0].prefix == rule.prefix; });
    if (group == groups_.end()) return groups_.push_back({{rule}});
    const auto isDuplicate = [&](const NaiveRule& other) {
      return other.contains1 == rule.contains1 && other.contains2 == rule.contains2 &&
             other.endsWith == rule.endsWith && (other.doesNotContain == "*") == (rule.doesNotContain == "*");
    };
    for (auto& sub : *group) {
      if (sub[0].extension != rule.extension) continue;
      if (std::ranges::none_of(sub, isDuplicate)) sub.insert(sub.begin() + 1, rule);
      return;
    }
    const bool goesFirst = group->size() == 1 && (*group)[0][0].extension == "*";
    group->insert(rule.extension == "*" ? group->end() : group->begin() + (goesFirst ? 0 : 1), {rule});
  }

  std::vector<Group> groups_;
};
