#include "platform/linux/secret-service/SessionBus.h"

#include <string_view>

namespace vorlane {
namespace {

constexpr char serviceName[] = "org.freedesktop.secrets";
constexpr char busName[] = "org.freedesktop.DBus";
/// Longer than any caller waits, who interrupts the call then.
constexpr int callMilliseconds = 10'000;

}  // namespace

struct SessionBus::Followed {
  std::atomic<std::uint64_t> count{1};
  std::atomic<bool> following{false};

  /// Runs on GDBus's own thread for each message that comes in, so no loop of
  /// ours has to turn for the signals.
  static GDBusMessage* filter(GDBusConnection*, GDBusMessage* message, gboolean incoming, gpointer data) {
    auto& self = **static_cast<std::shared_ptr<Followed>*>(data);
    if (incoming == FALSE || g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_SIGNAL)
      return message;
    const char* const path = g_dbus_message_get_path(message);
    const char* const member = g_dbus_message_get_member(message);
    const bool ofService = path != nullptr && std::string_view(path).starts_with("/org/freedesktop/secrets");
    const bool ofOwner = member != nullptr && std::string_view(member) == "NameOwnerChanged";
    if (ofService || ofOwner) self.count.fetch_add(1);
    return message;
  }
};

SessionBus::SessionBus() : followed_(std::make_shared<Followed>()) {}

SessionBus::~SessionBus() {
  disconnect();
}

void SessionBus::disconnect() {
  if (connection_) g_dbus_connection_remove_filter(connection_.get(), filter_);
  connection_.reset();
  followed_->following = false;
  followed_->count.fetch_add(1);
}

bool SessionBus::connected() const {
  return connection_ && g_dbus_connection_is_closed(connection_.get()) == FALSE;
}

bool SessionBus::connect(GCancellable* cancellable) {
  if (connected()) return true;
  if (connection_) disconnect();
  connection_.reset(g_bus_get_sync(G_BUS_TYPE_SESSION, cancellable, nullptr));
  if (!connection_) return false;
  // Otherwise the end of the desktop's session would end this process.
  g_dbus_connection_set_exit_on_close(connection_.get(), FALSE);
  filter_ = g_dbus_connection_add_filter(
      connection_.get(), &Followed::filter, new std::shared_ptr<Followed>(followed_),
      [](gpointer data) { delete static_cast<std::shared_ptr<Followed>*>(data); });

  bool following = true;
  for (const char* rule : {"type='signal',sender='org.freedesktop.secrets'",
                           "type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged',"
                           "arg0='org.freedesktop.secrets'"}) {
    following = callBus("AddMatch", g_variant_new("(s)", rule), cancellable).value && following;
  }
  followed_->following = following;
  return true;
}

SessionBus::Reply SessionBus::call(const char* name, const std::string& path, const char* interface,
                                   const char* method, GVariant* parameters,
                                   GCancellable* cancellable) const {
  Reply reply;
  GError* error = nullptr;
  reply.value.reset(g_dbus_connection_call_sync(connection_.get(), name, path.c_str(), interface, method,
                                                parameters, nullptr, G_DBUS_CALL_FLAGS_NONE, callMilliseconds,
                                                cancellable, &error));
  if (error == nullptr) return reply;
  if (char* const remote = g_dbus_error_get_remote_error(error)) {
    reply.error = remote;
    g_free(remote);
  }
  g_error_free(error);
  return reply;
}

SessionBus::Reply SessionBus::callBus(const char* method, GVariant* parameters,
                                      GCancellable* cancellable) const {
  return call(busName, "/org/freedesktop/DBus", busName, method, parameters, cancellable);
}

SessionBus::Reply SessionBus::callService(const std::string& path, const char* interface, const char* method,
                                          GVariant* parameters, GCancellable* cancellable) const {
  return call(serviceName, path, interface, method, parameters, cancellable);
}

std::uint64_t SessionBus::changes() const {
  return followed_->following ? followed_->count.load() : 0;
}

void SessionBus::countChange() {
  followed_->count.fetch_add(1);
}

}  // namespace vorlane
