#pragma once

#include <cstdint>
#include <string_view>

#include "base/string.h"

/// What was found for the extension asked about last. Most files of a directory are of one kind, so that comparing a
/// path's end answers for nearly all of them.
template <typename Found>
class TqRememberedExtension {
 public:
  /// `forNone` is the answer for paths without extension.
  explicit TqRememberedExtension(Found forNone) : forNone_(forNone) { Forget(); }

  void Forget() {
    constexpr std::int64_t kLongestName = 255;
    ending_ = kNoExtension;
    ending_.Reserve(kLongestName);  // so that remembering another one allocates nothing
    found_ = forNone_;
  }
  /// The answer for the path's extension in exactly these letters; `find`, given the extension without its period, is
  /// asked only when it is not the one remembered.
  template <typename Find>
  Found Of(std::string_view path, const Find& find) {
    if (path.ends_with(ending_.View())) return found_;
    const std::string_view extension = ExtensionOf(path);
    if (extension.empty()) return forNone_;
    found_ = find(extension);
    ending_ = path.substr(path.size() - extension.size() - 1);
    return found_;
  }

 private:
  static constexpr std::string_view kNoExtension = "/";  ///< an ending of paths without one

  TqString ending_;  ///< with the period: a mere end of another extension must not pass for it
  Found forNone_;
  Found found_;
};
