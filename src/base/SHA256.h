#pragma once

#include <memory>
#include <string>
#include <string_view>

struct evp_md_ctx_st;

namespace vorlane {

/// The lower-case hexadecimal SHA-256 of `bytes`.
std::string sha256Hex(std::string_view bytes);

/// The SHA-256 of bytes that arrive in parts. For bytes in one piece see sha256Hex.
class SHA256 {
 public:
  SHA256();
  void add(std::string_view bytes);
  /// The lower-case hexadecimal digest of all parts. Nothing may be added after it.
  std::string finish();

 private:
  struct Free {
    void operator()(evp_md_ctx_st* context) const noexcept;
  };
  std::unique_ptr<evp_md_ctx_st, Free> context_;
};

}  // namespace vorlane
