#pragma once

#include <gio/gio.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

namespace vorlane {

struct FreeVariant {
  void operator()(GVariant* variant) const { g_variant_unref(variant); }
};
using Variant = std::unique_ptr<GVariant, FreeVariant>;

template <class T>
struct FreeObject {
  void operator()(T* object) const { g_object_unref(object); }
};
template <class T>
using Object = std::unique_ptr<T, FreeObject<T>>;

/// The connection to the desktop's bus, and a count of what the Secret Service
/// says about changes. Calls come from one thread; `changes` from any.
class SessionBus {
 public:
  SessionBus();
  ~SessionBus();
  SessionBus(const SessionBus&) = delete;
  SessionBus& operator=(const SessionBus&) = delete;

  /// Connects when there is no connection or it has closed. False when there is no bus.
  bool connect(GCancellable* cancellable);
  bool connected() const;
  GDBusConnection* connection() const { return connection_.get(); }

  struct Reply {
    Variant value;      ///< null when the call failed
    std::string error;  ///< the D-Bus name of the failure, empty for others
  };
  /// Calls the bus itself, or the Secret Service. `parameters` may be floating.
  Reply callBus(const char* method, GVariant* parameters, GCancellable* cancellable) const;
  Reply callService(const std::string& path, const char* interface, const char* method, GVariant* parameters,
                    GCancellable* cancellable) const;

  /// Grows with each change to the service's collections and items, and when the
  /// service comes or goes. 0: changes cannot be followed.
  std::uint64_t changes() const;
  /// Counts a change of our own at once, before the service reports it.
  void countChange();

 private:
  struct Followed;
  Reply call(const char* name, const std::string& path, const char* interface, const char* method,
             GVariant* parameters, GCancellable* cancellable) const;
  void disconnect();

  Object<GDBusConnection> connection_;
  // Shared with the filter, which may still run while it is being removed.
  const std::shared_ptr<Followed> followed_;
  unsigned filter_ = 0;
};

}  // namespace vorlane
