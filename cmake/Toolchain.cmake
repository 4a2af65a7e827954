# The language, the warnings and the sanitizers: the same for every target of the house.
#
# Warnings are errors where CMAKE_COMPILE_WARNING_AS_ERROR is on: in the presets of the sanitizers and
# in what .ci/run builds. A compiler that warns of more than ours must still build what people run.

set(CMAKE_CXX_STANDARD 23)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release)
endif()

find_program(TIDYRO_CCACHE ccache)
if(TIDYRO_CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${TIDYRO_CCACHE})
endif()

find_package(Threads REQUIRED)

# Every target links this one; it carries no code.
add_library(TidyroFlags INTERFACE)
add_library(Tidyro::Flags ALIAS TidyroFlags)
target_link_libraries(TidyroFlags INTERFACE Threads::Threads)
target_compile_options(TidyroFlags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wnon-virtual-dtor
  -Wold-style-cast -Wcast-qual -Wundef -fno-strict-overflow -fstack-protector-strong)
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  # A record's field that is forgotten, or named out of order, does not compile.
  target_compile_options(TidyroFlags INTERFACE
    -Werror=missing-field-initializers -Werror=reorder-init-list)
  # Options aggregates leave out what has a default; newer compilers warn of that by a name of its own.
  include(CheckCXXCompilerFlag)
  check_cxx_compiler_flag(-Wmissing-designated-field-initializers TIDYRO_WARNS_DESIGNATED)
  if(TIDYRO_WARNS_DESIGNATED)
    target_compile_options(TidyroFlags INTERFACE -Wno-missing-designated-field-initializers)
  endif()
else()
  target_compile_options(TidyroFlags INTERFACE
    -Werror=missing-field-initializers
    # g++ 12 warns of code inside its own library once it is inlined here.
    -Wno-restrict -Wno-maybe-uninitialized)
endif()
if(APPLE)
  # stop_token and jthread stand behind this flag in libc++. They need nothing from the library of
  # that name, which not every toolchain has, so it is not linked.
  target_compile_options(TidyroFlags INTERFACE -D_LIBCPP_ENABLE_EXPERIMENTAL)
endif()

if(TIDYRO_SANITIZE)
  target_compile_options(TidyroFlags INTERFACE
    -fsanitize=${TIDYRO_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(TidyroFlags INTERFACE -fsanitize=${TIDYRO_SANITIZE})
endif()
if(TIDYRO_FUZZ)
  target_compile_options(TidyroFlags INTERFACE -fsanitize=fuzzer-no-link)
endif()
