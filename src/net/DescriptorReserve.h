#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <list>
#include <memory>
#include <mutex>

namespace vorlane {

/// Keeps some of the process's descriptors for its own use (the database, requests to the
/// cloud, the control socket): when clients' connections come near the limit, one that has
/// asked for nothing yet has to leave for each that comes. Callable from any thread.
class DescriptorReserve {
 public:
  /// A connection that may have to leave.
  class Guest {
   public:
    virtual ~Guest() = default;
    /// Ends the connection, soon. From any thread.
    virtual void cut() = 0;
  };

  /// Who leaves first: an HTTP connection whose request is not complete, then a connection
  /// of the assistants' socket that has never sent a whole line. No others ever do.
  enum class Rank { incompleteRequest, silentAssistant };

  class Place;
  /// Counts the guest among those who may have to leave, the last to come being the last to
  /// leave, for as long as the result lives.
  [[nodiscard]] std::unique_ptr<Place> enter(std::weak_ptr<Guest> guest, Rank rank);

  /// To be told of every connection of a client.
  void opened() { ++connections_; }
  void closed() { --connections_; }
  /// Whether a connection that was just opened takes one of the descriptors that are kept back.
  bool isKeptBack(int descriptor) const;
  /// Has the first `count` in turn leave, or as many as there are.
  void makeRoom(std::size_t count = 1);
  /// How many leave when there was no descriptor left at all.
  static constexpr std::size_t several = 16;

 private:
  using Guests = std::list<std::weak_ptr<Guest>>;
  struct State {
    std::mutex lock;
    std::array<Guests, 2> guests;
  };
  std::shared_ptr<Guest> nextToLeave();

  const std::shared_ptr<State> state_ = std::make_shared<State>();
  std::atomic<std::size_t> connections_ = 0;
};

class DescriptorReserve::Place {
 public:
  Place(std::shared_ptr<State> state, std::weak_ptr<Guest> guest, Rank rank);
  ~Place();
  Place(const Place&) = delete;
  Place& operator=(const Place&) = delete;

 private:
  const std::shared_ptr<State> state_;
  Guests& guests_;
  Guests::iterator entry_;
};

}  // namespace vorlane
