#pragma once

// The rules once more, as simply as they can be said: plain vectors, plain text search, no index characters, nothing
// shared. The engine has to agree with it about every file and about which rule got the hit.

#include <string>
#include <vector>

struct NaiveRule {
  std::string prefix, contains1, contains2, doesNotContain, endsWith, extension;  ///< lower-case; "*": not used
  long hits = 0;
  std::string Shown() const;
};

class NaiveRules {
 public:
  /// Adds the rules of one text, one element a line, attribute values without entities.
  void Load(const std::string& text);
  /// Whether a file is wanted; the rule that excludes it gets the hit.
  bool Wants(const std::string& path);
  /// All rules in the order in which they are tried.
  std::vector<std::string> InOrder() const;

 private:
  using Group = std::vector<std::vector<NaiveRule>>;  ///< one prefix: a list for each extension
  void Insert(const NaiveRule& rule);
  std::vector<Group> groups_;
};
