#pragma once

#include "base/Date.h"
#include "base/JSON.h"

#include <boost/json/storage_ptr.hpp>

#include <string>
#include <string_view>

namespace vorlane {

/// Takes one level of HTML escaping off an assistant's text: "&lt;" and the few
/// others that assistants write. "&amp;lt;" becomes "&lt;", and what is no such
/// entity stays, so that real HTML keeps its tags.
std::string entityDecoded(std::string_view text);

/// The "webLinks" entries for a `links` argument, stamped `addedAt`: of its first five
/// elements those with an http or https address. Empty when none passes or it is no
/// array; the key is then not to be written.
JSONArray normalisedLinks(const JSONValue* links, Date addedAt, boost::json::storage_ptr storage = {});

}  // namespace vorlane
