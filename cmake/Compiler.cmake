# One set of flags for every target: the precompiled header is shared, and a
# translation unit may only use it when it is compiled exactly like it.
set(CMAKE_CXX_STANDARD 23)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)

if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang" OR CMAKE_CXX_COMPILER_VERSION VERSION_LESS 19)
  message(FATAL_ERROR "Vorlane builds with clang 19 or later; found ${CMAKE_CXX_COMPILER_ID} ${CMAKE_CXX_COMPILER_VERSION}.")
endif()

find_package(Threads REQUIRED)

# Asio is compiled once, into vorlane_base, not into every file that uses it.
add_compile_definitions(BOOST_ASIO_SEPARATE_COMPILATION BOOST_ASIO_NO_DEPRECATED)
# Programs and shared objects alike: code that differs in this could not share
# the precompiled header.
add_compile_options(-fPIC)
add_compile_options(
  -Wall -Wextra -Werror -Wthread-safety -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
  -Wold-style-cast -Wcast-qual -Wextra-semi -Wimplicit-fallthrough -Wunused
  -Wno-missing-field-initializers
  # ccache may then reuse a result although the header was compiled anew.
  "SHELL:-Xclang -fno-pch-timestamp")
add_link_options(-fuse-ld=lld -Wl,--as-needed)

if(VORLANE_SANITIZE)
  add_compile_options(-fsanitize=${VORLANE_SANITIZE} -fno-omit-frame-pointer -g1 -O1)
  add_link_options(-fsanitize=${VORLANE_SANITIZE})
  if(VORLANE_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize-recover=undefined)
  endif()
endif()
if(VORLANE_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
