#pragma once

#include "platform/URLSession.h"
#include "platform/linux/AnswerMemory.h"
#include "platform/linux/CurlTrust.h"

#include <exception>
#include <functional>
#include <memory>
#include <string>

struct curl_slist;

namespace vorlane {

/// One request under way: its handle, what it sends and what has come back.
/// Made on the caller's thread, then touched by the driver's thread alone.
class CurlTransfer {
 public:
  using Finish = std::move_only_function<void(std::exception_ptr, URLResponse)>;

  /// Throws TransportFailure when the request cannot be sent as it is: an invalid
  /// address, or characters that a method or header may not have.
  CurlTransfer(URLRequest request, const CurlTrust& trust, const std::string& noProxy);
  CurlTransfer(const CurlTransfer&) = delete;
  CurlTransfer& operator=(const CurlTransfer&) = delete;

  /// libcurl's.
  void* handle() const { return easy_.get(); }

  void onFinish(Finish finish) { finish_ = std::move(finish); }
  /// Where the body's memory is counted, and who makes room in it for a body of so many bytes;
  /// before the transfer starts.
  using MakeRoom = std::function<bool(CurlTransfer& transfer, std::size_t bytes)>;
  void holdIn(AnswerMemory& memory, MakeRoom makeRoom);
  /// What the body takes so far, in bytes.
  std::size_t held() const { return memory_ ? memory_->bytes() : 0; }
  bool growTo(std::size_t bytes) { return memory_->growTo(bytes); }
  /// Gives up the answer, since all that are under way are too long together. The transfer has
  /// then to be finished.
  void giveUp();
  bool isGivenUp() const { return givenUp_; }
  /// Reports the end, once; later calls do nothing. `result` is a CURLcode.
  void finish(int result);
  void fail(std::exception_ptr failure);

 private:
  struct FreeHandle {
    void operator()(void* easy) const;
  };
  struct FreeList {
    void operator()(curl_slist* list) const;
  };

  void configure(const CurlTrust& trust, const std::string& noProxy);
  void configureBody();
  void addHeaders();
  void addHeader(const std::string& line);
  TransportFailure failureOf(int code) const;
  bool takeHeader(std::string_view line);
  bool takeBody(std::string_view bytes);
  bool reserve(std::size_t bytes);

  static std::size_t headerArrived(char* bytes, std::size_t size, std::size_t count, void* self);
  static std::size_t bodyWanted(char* bytes, std::size_t size, std::size_t count, void* self);
  static std::size_t bodyArrived(char* bytes, std::size_t size, std::size_t count, void* self);

  URLRequest request_;
  std::string host_;
  std::size_t bodySent_ = 0;  // where it is handed over piece by piece
  URLResponse response_;
  std::size_t headerBytes_ = 0;
  std::string ownFailure_;  // why we cut the transfer, when it was us
  std::unique_ptr<AnswerMemory::Share> memory_;
  MakeRoom makeRoom_;
  bool givenUp_ = false;
  std::unique_ptr<curl_slist, FreeList> headers_;
  std::unique_ptr<void, FreeHandle> easy_;
  Finish finish_;
};

}  // namespace vorlane
