# A room is one folder, one library and the list of the rooms it may include.
#
#   tidyro_room(DiskTree
#     FOLDER StorageEngine/DiskTree      # below this list file's Sources; its own .cpp files only
#     INCLUDES Base Platform             # rooms that stand below it: nothing else links
#     LIBRARIES utf8proc)                # from outside
#
# A room's sources are the .cpp files in its folder, not below it: a folder below is another room
# or another system's body, which EXTRA names.
function(tidyro_room name)
  cmake_parse_arguments(ROOM "" "FOLDER" "INCLUDES;LIBRARIES;EXTRA" ${ARGN})
  set(folder ${TIDYRO_SOURCES}/${ROOM_FOLDER})
  file(GLOB sources CONFIGURE_DEPENDS ${folder}/*.cpp)
  foreach(extra IN LISTS ROOM_EXTRA)
    file(GLOB more CONFIGURE_DEPENDS ${folder}/${extra}/*.cpp)
    list(APPEND sources ${more})
  endforeach()
  list(FILTER sources EXCLUDE REGEX "/main\\.cpp$")  # an executable of its own
  add_library(${name} STATIC ${sources})
  target_include_directories(${name} PUBLIC ${TIDYRO_SOURCES})
  target_link_libraries(${name} PUBLIC TidyroFlags ${ROOM_INCLUDES} ${ROOM_LIBRARIES})
endfunction()

# The tests of a room: the .cpp files of the folder that mirrors it below Tests, one executable.
#
#   tidyro_tests(DiskTreeTests FOLDER StorageEngine/DiskTree USES DiskTree)
function(tidyro_tests name)
  cmake_parse_arguments(TESTS "" "FOLDER" "USES" ${ARGN})
  if(NOT TIDYRO_TESTS)
    return()
  endif()
  file(GLOB sources CONFIGURE_DEPENDS ${TIDYRO_TEST_SOURCES}/${TESTS_FOLDER}/*.cpp)
  add_executable(${name} ${sources})
  target_include_directories(${name} PRIVATE ${TIDYRO_TEST_SOURCES})
  target_link_libraries(${name} PRIVATE TidyroFlags ${TESTS_USES} GTest::gtest GTest::gmock GTest::gtest_main)
  include(GoogleTest)
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 120 PROPERTIES TIMEOUT 600)
endfunction()
