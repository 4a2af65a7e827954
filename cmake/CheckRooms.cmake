# Fails when a source file includes a room that its own may not include, or a header of the
# operating system outside the bodies of Platform.
#
#   cmake -DROOMS=build/release/rooms.txt -P cmake/CheckRooms.cmake
#
# ROOMS has a line a room: "name|include root|folder|room it may include|...", as the rooms were
# declared.
cmake_minimum_required(VERSION 3.25)

set(system_header "(unistd|fcntl|dirent|spawn|poll|pwd|grp|dlfcn|pthread|sched|termios|signal|libproc|langinfo|semaphore|ftw|glob|netdb|syslog|utime|aio|err|ifaddrs|mntent|sys/[^>]*|linux/[^>]*|asm/[^>]*|mach[^>]*|pthread/[^>]*|uuid/[^>]*|net/[^>]*|netinet/[^>]*|arpa/[^>]*|os/[^>]*|[A-Z][A-Za-z]*/[^>]*)\\.h")

set(faults 0)
macro(complain file line)
  message("${file}: ${line}: ${ARGN}")
  math(EXPR faults "${faults} + 1")
endmacro()

file(STRINGS ${ROOMS} rooms)
set(names)
foreach(room IN LISTS rooms)
  string(REPLACE "|" ";" parts "${room}")
  list(POP_FRONT parts name root folder)
  list(APPEND names ${name})
  set(root_${name} ${root})
  set(folder_${name} ${folder})
  set(allowed_${name} ${parts})
endforeach()

# The room whose folder is the longest that the path begins with.
function(room_of path result)
  set(found "")
  set(longest 0)
  foreach(name IN LISTS names)
    string(LENGTH "${folder_${name}}/" length)
    string(FIND "${path}" "${folder_${name}}/" at)
    if(at EQUAL 0 AND length GREATER longest)
      set(found ${name})
      set(longest ${length})
    endif()
  endforeach()
  set(${result} "${found}" PARENT_SCOPE)
endfunction()

foreach(name IN LISTS names)
  file(GLOB_RECURSE files ${root_${name}}/${folder_${name}}/*.h ${root_${name}}/${folder_${name}}/*.cpp)
  foreach(file IN LISTS files)
    file(RELATIVE_PATH relative ${root_${name}} ${file})
    room_of(${relative} owner)
    if(NOT owner STREQUAL name)
      continue() # a room below this one
    endif()
    file(STRINGS ${file} includes REGEX "^ *#include")
    foreach(line IN LISTS includes)
      if(line MATCHES "<${system_header}>" AND NOT relative MATCHES "^Platform/(Linux|MacOS|Posix)/")
        complain(${relative} "${line}" "a header of the operating system outside Platform's bodies")
      elseif(line MATCHES "\"([^\"]+)\"")
        room_of(${CMAKE_MATCH_1} target)
        if(target STREQUAL "")
          complain(${relative} "${line}" "no room has this header")
        elseif(NOT target STREQUAL name AND NOT target IN_LIST allowed_${name})
          complain(${relative} "${line}" "${name} may not include ${target}")
        endif()
      endif()
    endforeach()
  endforeach()
endforeach()

if(faults GREATER 0)
  message(FATAL_ERROR "${faults} includes against the order of the rooms")
endif()
