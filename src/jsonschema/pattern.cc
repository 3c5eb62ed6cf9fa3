#include "jsonschema/pattern.h"

#include <re2/re2.h>

namespace KorvoSetvault {

namespace {

re2::RE2::Options PatternOptions() {
  re2::RE2::Options options;
  options.set_log_errors(false);  // the caller reports the error
  options.set_encoding(re2::RE2::Options::EncodingUTF8);
  return options;
}

}  // namespace

Pattern::Pattern(const std::string& source)
    : source_(source), compiled_(std::make_unique<re2::RE2>(source, PatternOptions())) {}

Pattern::~Pattern() = default;

bool Pattern::Ok() const { return compiled_->ok(); }

std::string Pattern::Error() const { return compiled_->ok() ? std::string() : compiled_->error(); }

bool Pattern::Search(const char* text, size_t length) const {
  return compiled_->ok() && re2::RE2::PartialMatch(re2::StringPiece(text, length), *compiled_);
}

std::string PatternError(const std::string& source) { return Pattern(source).Error(); }

}  // namespace KorvoSetvault
