#include "tools/ledgerly/LedgerlyText.h"

#include "base/Identifiers.h"
#include "base/JSONArguments.h"
#include "base/Text.h"

#include <boost/url/parse.hpp>
#include <boost/url/url_view.hpp>

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <utility>

namespace vorlane {
namespace {

struct Entity {
  std::string_view text;
  std::string_view character;
};

constexpr std::array entities{
    Entity{"&lt;", "<"},  Entity{"&gt;", ">"},   Entity{"&quot;", "\""},       Entity{"&apos;", "'"},
    Entity{"&#39;", "'"}, Entity{"&#x27;", "'"}, Entity{"&nbsp;", "\xc2\xa0"},  // U+00A0
    Entity{"&amp;", "&"},
};

constexpr std::size_t linkLimit = 5;

/// `address` with what no URL may hold percent-encoded: people and assistants write
/// letters of every language, and blanks behind the host, which any browser takes.
std::string encodedAddress(std::string_view address) {
  static constexpr std::string_view allowed = "-._~:/?#@!$&'()*+,;=%";
  const auto authority = address.find("://");
  const auto behindHost =
      authority == std::string_view::npos ? authority : address.find_first_of("/?#", authority + 3);
  std::string encoded;
  for (std::size_t i = 0; i < address.size(); ++i) {
    const bool inHost = i < behindHost;
    const bool foreign = static_cast<unsigned char>(address[i]) >= 0x80;
    if (inHost ? !foreign : allowed.find(address[i]) != std::string_view::npos) {
      encoded += address[i];
    } else {
      encoded += percentEncoded(address.substr(i, 1));
    }
  }
  return encoded;
}

std::optional<JSONMap> linkEntry(const JSONValue& element, std::string_view addedAt,
                                 const boost::json::storage_ptr& storage) {
  std::string address, title;
  if (element.is_string()) {
    address = element.get_string();
  } else if (element.is_object()) {
    address = json::stringOr(element.get_object(), "url");
    title = entityDecoded(json::stringOr(element.get_object(), "title"));
  }
  address = trimmed(address);
  std::string encoded;  // looked at by `url`
  auto url = boost::urls::parse_uri(address);
  if (!url) {
    encoded = encodedAddress(address);
    url = boost::urls::parse_uri(encoded);
  }
  if (!url) return std::nullopt;
  const auto scheme = asciiLowercased(url->scheme());
  if (scheme != "http" && scheme != "https") return std::nullopt;
  if (title.empty()) title = validUTF8(std::string(url->host_address()));
  if (title.empty()) title = "Link";
  JSONMap entry(4, storage);
  entry.emplace("addedAt", addedAt);
  entry.emplace("id", newUppercaseUUID());
  entry.emplace("title", title);
  entry.emplace("url", address);
  return entry;
}

}  // namespace

// One pass does what replacing them one after the other does, "&amp;" last: no
// replacement but that of "&amp;" makes an "&", and none is looked at twice.
std::string entityDecoded(std::string_view text) {
  std::string decoded;
  decoded.reserve(text.size());
  while (!text.empty()) {
    const auto plain = std::min(text.find('&'), text.size());
    decoded += text.substr(0, plain);
    text.remove_prefix(plain);
    if (text.empty()) break;
    const auto entity =
        std::ranges::find_if(entities, [&](const Entity& known) { return text.starts_with(known.text); });
    decoded += entity == entities.end() ? text.substr(0, 1) : entity->character;
    text.remove_prefix(entity == entities.end() ? 1 : entity->text.size());
  }
  return decoded;
}

JSONArray normalisedLinks(const JSONValue* links, Date addedAt, boost::json::storage_ptr storage) {
  JSONArray entries(storage);
  if (links == nullptr || !links->is_array()) return entries;
  const auto stamp = iso8601Text(addedAt);
  const auto& elements = links->get_array();
  for (std::size_t i = 0; i < std::min(elements.size(), linkLimit); ++i) {
    if (auto entry = linkEntry(elements[i], stamp, storage)) entries.push_back(std::move(*entry));
  }
  return entries;
}

}  // namespace vorlane
