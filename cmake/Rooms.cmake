# A room is one folder, one library and the list of the rooms it may include. Every declaration is
# also written down for CheckRooms.cmake, so that there is one place where arrows are drawn.
#
#   tidyro_room(DiskTree
#     FOLDER StorageEngine/DiskTree      # below this list file's Sources; its own .cpp files only
#     INCLUDES Base Platform             # rooms that stand below it: nothing else links
#     LIBRARIES utf8proc::utf8proc)      # from outside
#
# Its target is Tidyro::DiskTree to all who link it.
#
# A room's sources are the .cpp files in its folder, and in those of its folders that SUBFOLDERS
# names: any other folder below is another room, or another system's body.
set(TIDYRO_ROOMS ${CMAKE_BINARY_DIR}/rooms.txt)
file(WRITE ${TIDYRO_ROOMS} "")

# The .cpp files of a folder and of those below it that are named.
function(tidyro_sources result folder)
  file(GLOB sources CONFIGURE_DEPENDS ${folder}/*.cpp)
  foreach(subfolder IN LISTS ARGN)
    file(GLOB more CONFIGURE_DEPENDS ${folder}/${subfolder}/*.cpp)
    list(APPEND sources ${more})
  endforeach()
  set(${result} ${sources} PARENT_SCOPE)
endfunction()

function(tidyro_room name)
  cmake_parse_arguments(ROOM "" "FOLDER" "SUBFOLDERS;INCLUDES;LIBRARIES" ${ARGN})
  set(folder ${TIDYRO_SOURCES}/${ROOM_FOLDER})
  tidyro_sources(sources ${folder} ${ROOM_SUBFOLDERS})
  list(FILTER sources EXCLUDE REGEX "/main\\.cpp$")  # an executable of its own
  add_library(${name} STATIC ${sources})
  add_library(Tidyro::${name} ALIAS ${name})
  target_include_directories(${name} PUBLIC ${TIDYRO_SOURCES})
  list(TRANSFORM ROOM_INCLUDES PREPEND Tidyro:: OUTPUT_VARIABLE rooms)
  target_link_libraries(${name} PUBLIC Tidyro::Flags ${rooms} ${ROOM_LIBRARIES})
  list(JOIN ROOM_INCLUDES "|" includes)
  file(APPEND ${TIDYRO_ROOMS} "${name}|${TIDYRO_SOURCES}|${ROOM_FOLDER}|${includes}\n")
endfunction()

# The tests of a room: the .cpp files of the folder that mirrors it below Tests, one executable.
#
#   tidyro_tests(DiskTreeTests FOLDER StorageEngine/DiskTree USES DiskTree THREADS)
#
# THREADS: they are worth running under the thread sanitizer; its preset builds only ThreadTests,
# which are these.
#
# Compiling the tests takes far longer than running them, so they are optimised less than the rooms.
# Whoever builds all of them once, as the gate does, has the tests of a room compiled as one file:
# then the headers that they share are read once, and not for each of them.
option(TIDYRO_UNITED_TESTS "Compile the tests of a room as one file" OFF)
if(TIDYRO_TESTS)
  add_custom_target(ThreadTests)
endif()
function(tidyro_tests name)
  cmake_parse_arguments(TESTS "THREADS" "FOLDER" "SUBFOLDERS;USES" ${ARGN})
  if(NOT TIDYRO_TESTS)
    return()
  endif()
  tidyro_sources(sources ${TIDYRO_TEST_SOURCES}/${TESTS_FOLDER} ${TESTS_SUBFOLDERS})
  add_executable(${name} ${sources})
  target_include_directories(${name} PRIVATE ${TIDYRO_TEST_SOURCES})
  list(TRANSFORM TESTS_USES PREPEND Tidyro::)
  target_link_libraries(${name} PRIVATE Tidyro::Flags ${TESTS_USES} Tidyro::TestSupport GTest::gmock
    GTest::gtest_main)
  if(TIDYRO_SANITIZE)
    target_compile_options(${name} PRIVATE -O0)
  else()
    target_compile_options(${name} PRIVATE -O1)
  endif()
  if(TIDYRO_UNITED_TESTS)
    set_target_properties(${name} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 0)
  endif()
  include(GoogleTest)
  if(TESTS_THREADS)
    add_dependencies(ThreadTests ${name})
    set(labels LABELS threads)
  endif()
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 120 PROPERTIES TIMEOUT 600 ${labels})
endfunction()

# Lays beside an executable what it needs to run other programs.
function(tidyro_runs_programs name)
  if(NOT TARGET TidyroKeeper)
    return()
  endif()
  get_target_property(folder ${name} RUNTIME_OUTPUT_DIRECTORY)
  if(NOT folder)
    set(folder ${CMAKE_CURRENT_BINARY_DIR})
  endif()
  # Once for all executables of a folder: two that lay it at the same time would fail.
  string(MAKE_C_IDENTIFIER "KeeperIn ${folder}" laid)
  if(NOT TARGET ${laid})
    add_custom_target(${laid} COMMAND ${CMAKE_COMMAND} -E make_directory ${folder}
      COMMAND ${CMAKE_COMMAND} -E create_symlink $<TARGET_FILE:TidyroKeeper>
        ${folder}/$<TARGET_FILE_NAME:TidyroKeeper>)
    add_dependencies(${laid} TidyroKeeper)
  endif()
  add_dependencies(${name} ${laid})
endfunction()

# The check of the arrows, and a check of the check: a room that breaks both rules must fail.
function(tidyro_check_rooms)
  if(NOT TIDYRO_TESTS)
    return()
  endif()
  set(check ${CMAKE_SOURCE_DIR}/cmake/CheckRooms.cmake)
  add_test(NAME Rooms COMMAND ${CMAKE_COMMAND} -DROOMS=${TIDYRO_ROOMS} -P ${check})
  set(bad ${CMAKE_BINARY_DIR}/bad-rooms)
  file(WRITE ${bad}/Below/Below.h "#include \"Above/Above.h\"\n#include <unistd.h>\n")
  file(WRITE ${bad}/Above/Above.h "#include \"Below/Below.h\"\n")
  file(WRITE ${bad}/rooms.txt "Below|${bad}|Below|\nAbove|${bad}|Above|Below\n")
  add_test(NAME Rooms.rejectsBadArrows
    COMMAND ${CMAKE_COMMAND} -DROOMS=${bad}/rooms.txt -P ${check})
  set_tests_properties(Rooms.rejectsBadArrows PROPERTIES
    PASS_REGULAR_EXPRESSION "2 includes against the order")
endfunction()
