#pragma once

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/awaitable.hpp>

namespace vorlane {

/// An asynchronous operation. It runs on the executor of the code that spawns or
/// awaits it; its parameters are by value; what it throws reaches the awaiter.
template <class T = void>
using Task = boost::asio::awaitable<T>;

/// Where work runs.
using Executor = boost::asio::any_io_executor;

}  // namespace vorlane
