# Compiles for macOS on Linux; scripts/cross-macos makes the tools and the folder of dependencies
# that this file names, and passes TIDYRO_MACOS_ARCH (arm64 or x86_64).

list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES TIDYRO_MACOS_ARCH)
get_filename_component(tools ${CMAKE_CURRENT_LIST_DIR}/../build/tools ABSOLUTE)

set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR ${TIDYRO_MACOS_ARCH})

set(CMAKE_CXX_COMPILER ${tools}/macos-${TIDYRO_MACOS_ARCH}/c++)
set(CMAKE_AR ${tools}/macos-${TIDYRO_MACOS_ARCH}/ar)
set(CMAKE_RANLIB ${tools}/macos-${TIDYRO_MACOS_ARCH}/ranlib)
# Asked for by CMake, called only by an installation, which no cross build makes.
set(CMAKE_INSTALL_NAME_TOOL ${tools}/macos-${TIDYRO_MACOS_ARCH}/install_name_tool)

# Nothing of this system's own headers and libraries is ever looked at. The second folder holds what
# is different for each processor.
set(CMAKE_FIND_ROOT_PATH ${tools}/macos-sysroot ${tools}/macos-${TIDYRO_MACOS_ARCH}/sysroot)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
