# Every library comes from the system's package manager; scripts/setup installs what is missing.
# Each has a name with "::": when one is missing, configuring fails and says which, where a plain
# name would be handed to the linker.

find_package(fmt REQUIRED)
find_package(nlohmann_json 3.9 REQUIRED)

# A library without a package file that CMake could read. Without LIBRARY it is used as headers
# alone.
#
#   tidyro_library(utf8proc::utf8proc HEADER utf8proc.h LIBRARY utf8proc)
function(tidyro_library target)
  cmake_parse_arguments(FOUND "" "HEADER;LIBRARY" "" ${ARGN})
  string(MAKE_C_IDENTIFIER ${target} name)
  find_path(${name}_INCLUDE ${FOUND_HEADER} REQUIRED)
  add_library(${target} INTERFACE IMPORTED GLOBAL)
  target_include_directories(${target} SYSTEM INTERFACE ${${name}_INCLUDE})
  if(FOUND_LIBRARY)
    find_library(${name}_LIBRARY ${FOUND_LIBRARY} REQUIRED)
    target_link_libraries(${target} INTERFACE ${${name}_LIBRARY})
  endif()
endfunction()

tidyro_library(utf8proc::utf8proc HEADER utf8proc.h LIBRARY utf8proc)
# Regular expressions that people type, in time that grows with the text only.
tidyro_library(re2::re2 HEADER re2/re2.h LIBRARY re2)
# The fastest hash that is maintained for others than us: it only ever tells files apart, nothing is
# proven by it.
tidyro_library(xxHash::xxHash HEADER xxhash.h)

# UUIDs come from the system itself on macOS, and so does SHA-256. What the system there keeps to
# itself, AES-GCM, comes from OpenSSL on both.
if(APPLE) # where Homebrew puts it, beside what the system has of its own
  list(APPEND CMAKE_PREFIX_PATH /opt/homebrew/opt/openssl@3 /usr/local/opt/openssl@3)
endif()
find_package(OpenSSL 3 REQUIRED COMPONENTS Crypto)
add_library(System::Crypto INTERFACE IMPORTED GLOBAL)
target_link_libraries(System::Crypto INTERFACE OpenSSL::Crypto)
if(APPLE)
  add_library(System::UUID INTERFACE IMPORTED GLOBAL)
else()
  tidyro_library(System::UUID HEADER uuid/uuid.h LIBRARY uuid)
endif()

if(TIDYRO_TESTS)
  find_package(GTest REQUIRED)
endif()
