#include "platform/linux/secret-service/SecretServiceVault.h"

#include <string_view>
#include <utility>

namespace vorlane {
namespace {

constexpr char servicePath[] = "/org/freedesktop/secrets";
constexpr char defaultCollection[] = "/org/freedesktop/secrets/aliases/default";
constexpr char serviceInterface[] = "org.freedesktop.Secret.Service";
constexpr char collectionInterface[] = "org.freedesktop.Secret.Collection";
constexpr char itemInterface[] = "org.freedesktop.Secret.Item";
constexpr char promptInterface[] = "org.freedesktop.Secret.Prompt";
constexpr char serviceName[] = "org.freedesktop.secrets";
/// The attribute by which keyring programs group what belongs to one program.
constexpr char schema[] = "com.vorlane.secret";

/// The names by which an item is sought, and on demand a mark that changes with each call.
GVariant* attributesOf(const SecretItem& item, bool marked = false) {
  GVariantBuilder builder;
  g_variant_builder_init(&builder, G_VARIANT_TYPE("a{ss}"));
  g_variant_builder_add(&builder, "{ss}", "service", item.service.c_str());
  g_variant_builder_add(&builder, "{ss}", "account", item.account.c_str());
  g_variant_builder_add(&builder, "{ss}", "xdg:schema", schema);
  if (marked) {
    char* const mark = g_uuid_string_random();
    g_variant_builder_add(&builder, "{ss}", "changed", mark);
    g_free(mark);
  }
  return g_variant_builder_end(&builder);
}

/// What the bus carries has to be UTF-8 without NUL.
bool isName(const std::string& text) {
  return !text.empty() && g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr) != FALSE;
}

bool hasType(const SessionBus::Reply& reply, const char* type) {
  return reply.value && g_variant_is_of_type(reply.value.get(), G_VARIANT_TYPE(type)) != FALSE;
}

/// The first of the object paths at `index` of a reply, empty when there is none.
std::string firstPath(GVariant* reply, gsize index) {
  const Variant list(g_variant_get_child_value(reply, index));
  if (g_variant_n_children(list.get()) == 0) return {};
  const Variant first(g_variant_get_child_value(list.get(), 0));
  return g_variant_get_string(first.get(), nullptr);
}

std::string pathAt(GVariant* reply, gsize index) {
  const Variant path(g_variant_get_child_value(reply, index));
  return g_variant_get_string(path.get(), nullptr);
}

}  // namespace

SecretServiceVault::SecretServiceVault()
    : context_(g_main_context_new()), cancellable_(g_cancellable_new()) {}

SecretServiceVault::~SecretServiceVault() {
  closeSession();
  while (g_main_context_iteration(context_, FALSE) != FALSE) {
  }
  g_main_context_unref(context_);
}

void SecretServiceVault::interrupt() {
  const std::scoped_lock hold(lock_);
  g_cancellable_cancel(cancellable_.get());
}

void SecretServiceVault::reset() {
  {
    const std::scoped_lock hold(lock_);
    cancellable_.reset(g_cancellable_new());
  }
  while (g_main_context_iteration(context_, FALSE) != FALSE) {
  }
}

SessionBus::Reply SecretServiceVault::call(const std::string& path, const char* interface, const char* method,
                                           GVariant* parameters) {
  return bus_.callService(path, interface, method, parameters, cancellable_.get());
}

vault::Status SecretServiceVault::statusOf(const std::string& error) {
  if (error == "org.freedesktop.Secret.Error.IsLocked") return vault::interactionNotAllowed;
  if (error == "org.freedesktop.Secret.Error.NoSuchObject" ||
      error == "org.freedesktop.DBus.Error.UnknownObject") {
    return vault::itemNotFound;
  }
  // A service that is new, gone or out of step is met afresh.
  closeSession();
  return vault::notAvailable;
}

void SecretServiceVault::closeSession() {
  g_main_context_push_thread_default(context_);
  service_.reset();
  g_main_context_pop_thread_default(context_);
  owner_.clear();
}

/// A session with the service that owns the name now; starts one when none does.
vault::Status SecretServiceVault::openSession() {
  if (!bus_.connect(cancellable_.get())) return vault::notAvailable;
  const auto owner = bus_.callBus("GetNameOwner", g_variant_new("(s)", serviceName), cancellable_.get());
  const auto present = hasType(owner, "(s)") ? pathAt(owner.value.get(), 0) : std::string();
  if (service_ && !present.empty() && present == owner_) return vault::success;
  closeSession();
  g_main_context_push_thread_default(context_);
  GError* error = nullptr;
  service_.reset(secret_service_open_sync(SECRET_TYPE_SERVICE, nullptr, SECRET_SERVICE_OPEN_SESSION,
                                          cancellable_.get(), &error));
  g_main_context_pop_thread_default(context_);
  if (error != nullptr) {
    g_error_free(error);
    closeSession();
    return vault::notAvailable;
  }
  char* const name = g_dbus_proxy_get_name_owner(G_DBUS_PROXY(service_.get()));
  owner_ = name != nullptr ? name : "";
  g_free(name);
  return vault::success;
}

bool SecretServiceVault::usable() {
  if (!bus_.connect(cancellable_.get())) return false;
  const auto owned = bus_.callBus("NameHasOwner", g_variant_new("(s)", serviceName), cancellable_.get());
  if (!owned.value) return false;
  gboolean there = FALSE;
  if (hasType(owned, "(b)")) g_variant_get(owned.value.get(), "(b)", &there);
  if (there == FALSE &&
      !bus_.callBus("StartServiceByName", g_variant_new("(su)", serviceName, 0U), cancellable_.get()).value) {
    return false;
  }
  // Without a collection to write to there would first have to be a dialog.
  const auto alias = call(servicePath, serviceInterface, "ReadAlias", g_variant_new("(s)", "default"));
  return !hasType(alias, "(o)") || pathAt(alias.value.get(), 0) != "/";
}

/// The item's path once it can be read or written.
SecretServiceVault::Found SecretServiceVault::find(const SecretItem& item) {
  if (!isName(item.service) || !isName(item.account)) return {vault::notAvailable, {}};
  if (const auto status = openSession(); status != vault::success) return {status, {}};
  const auto reply =
      call(servicePath, serviceInterface, "SearchItems", g_variant_new("(@a{ss})", attributesOf(item)));
  if (!hasType(reply, "(aoao)")) return {reply.value ? vault::notAvailable : statusOf(reply.error), {}};
  if (auto open = firstPath(reply.value.get(), 0); !open.empty()) return {vault::success, std::move(open)};
  auto locked = firstPath(reply.value.get(), 1);
  if (locked.empty()) return {vault::itemNotFound, {}};
  if (!unlocksAlone(locked)) return {vault::interactionNotAllowed, {}};
  return {vault::success, std::move(locked)};
}

/// Asks for the object to be unlocked, and declines the dialog that may need: a
/// keyring without a password opens without one.
bool SecretServiceVault::unlocksAlone(const std::string& path) {
  const char* const paths[] = {path.c_str()};
  const auto reply =
      call(servicePath, serviceInterface, "Unlock", g_variant_new("(@ao)", g_variant_new_objv(paths, 1)));
  return hasType(reply, "(aoo)") && afterPrompt(reply.value.get()) == vault::success;
}

/// `reply` ends with the path of a prompt, "/" for none. Declines the prompt.
vault::Status SecretServiceVault::afterPrompt(GVariant* reply) {
  const auto prompt = pathAt(reply, g_variant_n_children(reply) - 1);
  if (prompt == "/") return vault::success;
  call(prompt, promptInterface, "Dismiss", nullptr);
  return vault::interactionNotAllowed;
}

GVariant* SecretServiceVault::encoded(const std::string& bytes) {
  SecretValue* const value =
      secret_value_new(bytes.data(), static_cast<gssize>(bytes.size()), "application/octet-stream");
  GVariant* const secret = secret_service_encode_dbus_secret(service_.get(), value);
  secret_value_unref(value);
  return secret;
}

SecretVault::Read SecretServiceVault::read(const SecretItem& item) {
  const auto found = find(item);
  if (found.status != vault::success) return {found.status, {}};
  const auto reply = call(found.path, itemInterface, "GetSecret",
                          g_variant_new("(o)", secret_service_get_session_dbus_path(service_.get())));
  if (!reply.value) return {statusOf(reply.error), {}};
  if (!hasType(reply, "((oayays))")) return {vault::notAvailable, {}};
  const Variant secret(g_variant_get_child_value(reply.value.get(), 0));
  SecretValue* const value = secret_service_decode_dbus_secret(service_.get(), secret.get());
  if (value == nullptr) return {vault::notAvailable, {}};
  gsize length = 0;
  const char* const bytes = secret_value_get(value, &length);
  Read result{vault::success, std::string(bytes, length)};
  secret_value_unref(value);
  return result;
}

vault::Status SecretServiceVault::update(const SecretItem& item, const std::string& bytes) {
  const auto found = find(item);
  if (found.status != vault::success) return found.status;
  const auto reply =
      call(found.path, itemInterface, "SetSecret", g_variant_new("(@(oayays))", encoded(bytes)));
  bus_.countChange();
  if (!reply.value) return statusOf(reply.error);
  // A common keyring daemon does not announce a new secret, but new attributes,
  // and by that the other processes know that the item has changed.
  call(found.path, "org.freedesktop.DBus.Properties", "Set",
       g_variant_new("(ssv)", itemInterface, "Attributes", attributesOf(item, true)));
  return vault::success;
}

vault::Status SecretServiceVault::add(const SecretItem& item, const std::string& bytes) {
  const auto found = find(item);
  if (found.status == vault::success) return vault::duplicateItem;
  if (found.status != vault::itemNotFound) return found.status;
  GVariantBuilder properties;
  g_variant_builder_init(&properties, G_VARIANT_TYPE("a{sv}"));
  g_variant_builder_add(&properties, "{sv}", "org.freedesktop.Secret.Item.Label",
                        g_variant_new_string(item.service.c_str()));
  g_variant_builder_add(&properties, "{sv}", "org.freedesktop.Secret.Item.Attributes", attributesOf(item));
  const auto reply =
      call(defaultCollection, collectionInterface, "CreateItem",
           g_variant_new("(@a{sv}@(oayays)b)", g_variant_builder_end(&properties), encoded(bytes), TRUE));
  bus_.countChange();
  if (!reply.value) {
    const auto status = statusOf(reply.error);
    return status == vault::itemNotFound ? vault::notAvailable : status;  // there is no default collection
  }
  return hasType(reply, "(oo)") ? afterPrompt(reply.value.get()) : vault::notAvailable;
}

vault::Status SecretServiceVault::remove(const SecretItem& item) {
  const auto found = find(item);
  if (found.status != vault::success) return found.status;
  const auto reply = call(found.path, itemInterface, "Delete", nullptr);
  bus_.countChange();
  if (!reply.value) return statusOf(reply.error);
  return hasType(reply, "(o)") ? afterPrompt(reply.value.get()) : vault::notAvailable;
}

std::optional<std::string> SecretServiceVault::stamp(const SecretItem&) {
  const auto changes = bus_.changes();
  if (changes == 0) return std::nullopt;
  return std::to_string(changes);
}

}  // namespace vorlane
