# Installs into a temporary folder and checks that a program there finds the keeper: PROGRAM, the
# tests that run other programs, takes the place of the installed one.
#
#   cmake -DBUILD=build/release -DPROGRAM=<file> -DBIN=bin -DFILTER=<tests> -P CheckInstall.cmake
cmake_minimum_required(VERSION 3.25)

# An installation is noted in the folder that it comes from.
execute_process(COMMAND test -w ${BUILD} RESULT_VARIABLE is_closed)
if(is_closed)
  message("Left out: ${BUILD} is closed to this user.")
  return()
endif()
set(temporary /tmp)
if(DEFINED ENV{TMPDIR})
  set(temporary $ENV{TMPDIR})
endif()
string(RANDOM LENGTH 12 ending)
set(prefix ${temporary}/tidyro-install-${ending})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${prefix}
  RESULT_VARIABLE failed OUTPUT_VARIABLE told ERROR_VARIABLE told)
if(NOT failed)
  file(COPY ${PROGRAM} DESTINATION ${prefix}/${BIN})
  get_filename_component(name ${PROGRAM} NAME)
  execute_process(COMMAND ${prefix}/${BIN}/${name} --gtest_filter=${FILTER}
    RESULT_VARIABLE failed OUTPUT_VARIABLE told ERROR_VARIABLE told)
endif()
file(REMOVE_RECURSE ${prefix})
if(failed)
  message(FATAL_ERROR "What is installed does not run other programs: ${failed}\n${told}")
endif()
