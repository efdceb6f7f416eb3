#pragma once

#include "base/Date.h"
#include "base/JSON.h"
#include "devcloud/Attachment.h"
#include "devcloud/Journal.h"
#include "devcloud/Message.h"
#include "devcloud/Service.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vorlane::devcloud {

class Identity;
class People;
class Services;
class Sheets;

/// The attachments that people can reach, and the routes through which
/// assistants find, read, search and copy them.
/// To control them:
///
///   GET  attachments/{sub}       {"attachments": [...]}, the samples first
///   POST attachments/{sub}       {"name", "ref"?, "type"?, "kind"?, "shareLink"?, "list"?,
///                                "category"?, "item"?, "mimeType"?, and of "text", "pages",
///                                "base64" and "url" what it has}
class Attachments : public Service {
 public:
  explicit Attachments(const Services& services);

  void addRoutes(Router& router) override;

  /// What the person can reach, the samples first.
  std::vector<Attachment> ownedBy(std::string_view owner) const;
  /// Adds the attachment, or replaces the person's one of that ref. Throws
  /// FieldFailure when it is larger than Attachment::largestFile.
  const Attachment& put(Attachment attachment);
  void removeAll(std::string_view owner);

  /// A state is the change that makes it out of nothing.
  std::string_view stateName() const override { return "attachments"; }
  JSONValue state() const override;
  void restore(const JSONValue& change) override;

 private:
  Response find(const Request& request) const;
  Response read(const Request& request) const;
  Response search(const Request& request) const;
  Response attach(const Request& request);

  /// The person's attachment of that ref; null when there is none. Valid until the next change.
  const Attachment* lookup(std::string_view owner, std::string_view ref) const;

  People& people_;
  const Identity& identity_;
  Sheets& sheets_;
  const Clock clock_;
  const ChangeRecorder changed_;
  /// In the order in which they came.
  std::vector<Attachment> attachments_;
  std::int64_t nextNumber_ = 1;
};

}  // namespace vorlane::devcloud
