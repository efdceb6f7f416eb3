#pragma once

#include "base/JSON.h"

#include <cstddef>
#include <string_view>

namespace vorlane::cloud {

/// What a request asks for, which says how much of an answer is read.
enum class Answer {
  receipt,   ///< rights, tokens, receipts: a few hundred bytes
  list,      ///< what a person has
  document,  ///< a sheet, an attachment
};

/// The longest body of such an answer, in bytes when it is unpacked.
std::size_t longestBody(Answer kind);

/// Parses the body of an answer as parseJSONMap does. Refuses one of so many values that its
/// tree would take far more memory than its text. Throws JSONParseFailure.
JSONMap parseAnswer(std::string_view body, Answer kind);

/// The check of parseAnswer, for a body that somebody else parses.
void requireFewValues(std::string_view body, Answer kind);

}  // namespace vorlane::cloud
