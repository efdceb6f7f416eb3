#pragma once

#include "base/JSON.h"

#include <optional>
#include <string>
#include <string_view>

/// How the tools that ask the Ledgerly web service read what an assistant gave them. A
/// value of another type reads as absent, and what is absent is not put into a body.
namespace vorlane::ledgerly {

/// The text under `key` without white space at its ends; nothing when that leaves none.
std::optional<std::string> plainText(const JSONMap& arguments, std::string_view key);
/// The same, with one level of HTML escaping taken off first.
std::optional<std::string> decodedText(const JSONMap& arguments, std::string_view key);
/// The array under `key` when all its elements are texts, else null.
const JSONArray* textList(const JSONMap& arguments, std::string_view key);

// Each puts what stands under `key` of the arguments under `key` of the body.

void putDecodedText(JSONMap& body, const JSONMap& arguments, std::string_view key);
void putTextList(JSONMap& body, const JSONMap& arguments, std::string_view key);
void putWholeNumber(JSONMap& body, const JSONMap& arguments, std::string_view key);
/// Whatever its type.
void putAsGiven(JSONMap& body, const JSONMap& arguments, std::string_view key);

}  // namespace vorlane::ledgerly
