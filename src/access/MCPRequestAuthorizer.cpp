#include "access/MCPRequestAuthorizer.h"

#include "access/SuiteAdminSnapshot.h"

#include <boost/asio/cancellation_state.hpp>
#include <boost/asio/this_coro.hpp>

#include <exception>
#include <utility>

namespace vorlane {

MCPRequestAuthorizer::MCPRequestAuthorizer(Sources sources) : sources_(std::move(sources)) {}

Task<bool> MCPRequestAuthorizer::authorize(std::optional<AdminAccessRequirement> requirement,
                                           std::string userID) const {
  try {
    const auto generation = sources_.accountGeneration();
    const auto user = sources_.currentUserID();
    if (!user || *user != userID || !sources_.gate->isEnabled(user)) co_return false;
    if (!requirement) co_return true;
    co_return co_await isAllowedByBackEnd(*std::move(requirement), std::move(userID), generation);
  } catch (const std::exception&) {
    // No token, no network, no readable answer, a cancelled task: the unknown means no.
    co_return false;
  }
}

bool MCPRequestAuthorizer::isSameAccount(std::uint64_t generation, const std::string& userID) const {
  return sources_.accountGeneration() == generation && sources_.currentUserID() == userID;
}

Task<bool> MCPRequestAuthorizer::isAllowedByBackEnd(AdminAccessRequirement requirement, std::string userID,
                                                    std::uint64_t generation) const {
  const auto token = co_await sources_.bearer();
  if (!token || token->empty() || !isSameAccount(generation, userID)) co_return false;

  URLRequest request;
  request.url = sources_.endpoint;
  request.headers = {{"Authorization", "Bearer " + *token}};
  request.timeout = std::chrono::seconds(15);
  request.followRedirects = false;  // rights come from the endpoint or not at all
  const auto response = co_await sources_.runner(std::move(request));

  const auto cancelled = (co_await boost::asio::this_coro::cancellation_state).cancelled();
  if (cancelled != boost::asio::cancellation_type::none) co_return false;
  if (!isSameAccount(generation, userID) || !sources_.gate->isEnabled(userID)) co_return false;
  // What came from anywhere else is not read.
  if (response.status != 200 || response.url != sources_.endpoint) co_return false;
  co_return SuiteAdminSnapshot::decode(response.body).allows(requirement, sources_.now());
}

}  // namespace vorlane
