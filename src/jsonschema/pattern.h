// Pattern: a regular expression of a JSON schema ("pattern", the names of
// "patternProperties", "format": "regex"), compiled with RE2.
//
// RE2 matches in time linear in the text and without recursion, so no
// pattern and no value can stall or crash a writer. Its syntax is that of
// ECMA-262 patterns without backreferences and lookaround; "\d", "\w" and
// "\s" are ASCII classes. A pattern matches anywhere in the text unless it
// is anchored with "^" and "$".
#ifndef SETVAULT_SRC_JSONSCHEMA_PATTERN_H_
#define SETVAULT_SRC_JSONSCHEMA_PATTERN_H_

#include <memory>
#include <string>

namespace re2 {
class RE2;
}

namespace KorvoSetvault {

class Pattern {
 public:
  // Compiles `source`. Check Ok() before matching.
  explicit Pattern(const std::string& source);
  ~Pattern();
  Pattern(const Pattern&) = delete;
  Pattern& operator=(const Pattern&) = delete;

  // True when the pattern compiled.
  bool Ok() const;
  // Why the pattern did not compile (empty when it did).
  std::string Error() const;
  const std::string& Source() const { return source_; }

  // True when the pattern matches somewhere in `text` (false when the
  // pattern did not compile). Thread-safe.
  bool Search(const char* text, size_t length) const;
  bool Search(const std::string& text) const { return Search(text.data(), text.size()); }

 private:
  std::string source_;
  std::unique_ptr<re2::RE2> compiled_;
};

// Empty when `source` compiles as a pattern; otherwise why not.
std::string PatternError(const std::string& source);

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_JSONSCHEMA_PATTERN_H_
