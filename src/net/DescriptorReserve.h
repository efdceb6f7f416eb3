#pragma once

#include <array>
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

  /// Whether a descriptor that was just opened lies among those that are kept back.
  static bool isKeptBack(int descriptor);
  /// Has the first in turn leave; nothing when there is nobody.
  void makeRoom();

 private:
  using Guests = std::list<std::weak_ptr<Guest>>;
  struct State {
    std::mutex lock;
    std::array<Guests, 2> guests;
  };
  const std::shared_ptr<State> state_ = std::make_shared<State>();
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
