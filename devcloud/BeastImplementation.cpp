// The one place where Beast's own code is compiled; see BOOST_BEAST_SEPARATE_COMPILATION.
#include <boost/beast/src.hpp>
