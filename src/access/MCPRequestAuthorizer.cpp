#include "access/MCPRequestAuthorizer.h"

#include "access/SuiteAdminSnapshot.h"

#include <boost/asio/cancellation_state.hpp>
#include <boost/asio/this_coro.hpp>

#include <exception>
#include <utility>

namespace vorlane {
namespace {

constexpr auto path = "/api/ecosystem/admin-access/me";

}  // namespace

MCPRequestAuthorizer::MCPRequestAuthorizer(Sources sources) : sources_(std::move(sources)) {}

Task<bool> MCPRequestAuthorizer::authorize(std::optional<AdminAccessRequirement> requirement,
                                           std::string userID) const {
  try {
    AccountMark mark(sources_.api.account);
    if (mark.owner() != userID || !sources_.gate->isEnabled(mark.owner())) co_return false;
    if (!requirement) co_return true;
    co_return co_await isAllowedByBackEnd(*std::move(requirement), std::move(mark));
  } catch (const std::exception&) {
    // No token, no network, no readable answer, a cancelled task: the unknown means no.
    co_return false;
  }
}

Task<bool> MCPRequestAuthorizer::isAllowedByBackEnd(AdminAccessRequirement requirement,
                                                    AccountMark mark) const {
  const auto token = co_await sources_.api.bearer();
  if (!token || token->empty() || !mark.holds()) co_return false;

  auto request = sources_.api.request("GET", path);
  cloud::setBearer(request, token);
  request.timeout = std::chrono::seconds(15);
  const auto endpoint = request.url;
  const auto response = co_await sources_.api.send(std::move(request));

  const auto cancelled = (co_await boost::asio::this_coro::cancellation_state).cancelled();
  if (cancelled != boost::asio::cancellation_type::none) co_return false;
  if (!mark.holds() || !sources_.gate->isEnabled(mark.owner())) co_return false;
  // What came from anywhere else is not read.
  if (response.status != 200 || response.url != endpoint) co_return false;
  co_return SuiteAdminSnapshot::decode(response.body).allows(requirement, sources_.now());
}

}  // namespace vorlane
