// The one place where Asio's TLS code is compiled; see BOOST_ASIO_SEPARATE_COMPILATION.
#include <boost/asio/ssl/impl/src.hpp>
