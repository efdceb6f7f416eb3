#pragma once

/// The names under which changes of the account are announced. All are posted
/// without a payload.
namespace vorlane::auth {

/// Between processes: the owner of the stored tokens changed (signed in, signed
/// out, or somebody else). Posted by AuthTokenStore.
inline constexpr char ownerChanged[] = "com.vorlane.auth.owner-changed";
/// Within this process: the account epoch has moved. Posted by AuthAccountEpoch.
inline constexpr char ownerEpoch[] = "com.vorlane.auth.owner-epoch";
/// Within this process: the tokens changed; views and pollers should read again.
inline constexpr char changed[] = "com.vorlane.auth.changed";

}  // namespace vorlane::auth
