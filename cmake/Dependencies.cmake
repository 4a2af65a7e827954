# Every library comes from the system's package manager; scripts/setup installs what is missing.

find_package(fmt REQUIRED)
find_package(nlohmann_json 3.9 REQUIRED)

find_path(UTF8PROC_INCLUDE utf8proc.h REQUIRED)
find_library(UTF8PROC_LIBRARY utf8proc REQUIRED)
add_library(utf8proc INTERFACE)
target_include_directories(utf8proc SYSTEM INTERFACE ${UTF8PROC_INCLUDE})
target_link_libraries(utf8proc INTERFACE ${UTF8PROC_LIBRARY})

# libuuid; part of the system library on macOS.
add_library(systemUUID INTERFACE)
if(NOT APPLE)
  find_path(UUID_INCLUDE uuid/uuid.h REQUIRED)
  find_library(UUID_LIBRARY uuid REQUIRED)
  target_include_directories(systemUUID SYSTEM INTERFACE ${UUID_INCLUDE})
  target_link_libraries(systemUUID INTERFACE ${UUID_LIBRARY})
endif()

# SHA-256; from the system itself on macOS.
add_library(systemCrypto INTERFACE)
if(NOT APPLE)
  find_package(OpenSSL 3 REQUIRED COMPONENTS Crypto)
  target_link_libraries(systemCrypto INTERFACE OpenSSL::Crypto)
endif()

# The fastest hash that is maintained for others than us: it only ever tells files apart, nothing is
# proven by it. Used as headers alone.
find_path(XXHASH_INCLUDE xxhash.h REQUIRED)
add_library(xxhash INTERFACE)
target_include_directories(xxhash SYSTEM INTERFACE ${XXHASH_INCLUDE})

# Regular expressions that people type, in time that grows with the text only.
find_path(RE2_INCLUDE re2/re2.h REQUIRED)
find_library(RE2_LIBRARY re2 REQUIRED)
add_library(re2 INTERFACE)
target_include_directories(re2 SYSTEM INTERFACE ${RE2_INCLUDE})
target_link_libraries(re2 INTERFACE ${RE2_LIBRARY})

if(TIDYRO_TESTS)
  find_package(GTest REQUIRED)
endif()
