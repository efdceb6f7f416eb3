// The one place where Asio's own code is compiled; see BOOST_ASIO_SEPARATE_COMPILATION.
#include <boost/asio/impl/src.hpp>
