#pragma once

// The rules once more, as simply as they can be said: plain vectors, plain text search, no index characters, no sharing
// of work. Slow; the engine has to agree with it about every file and about which rule got the hit.

#include <string>
#include <vector>

struct NaiveRule {
  std::string prefix, contains1, contains2, doesNotContain, endsWith, extension;  ///< lower-case; "*": not used
  long hits = 0;
  /// Criteria and hits in one text.
  std::string Shown() const;
};

class NaiveRules {
 public:
  /// Adds the rules of one text, one element a line, attribute values without entities.
  void Load(const std::string& text);
  /// Whether a file is wanted; a rule that excludes it gets the hit.
  bool Wants(const std::string& path);
  /// All rules in the order in which they are tried.
  std::vector<std::string> InOrder() const;

 private:
  using SubGroup = std::vector<NaiveRule>;  ///< one extension
  using Group = std::vector<SubGroup>;      ///< one prefix
  void Insert(const NaiveRule& rule);

  std::vector<Group> groups_;
};
