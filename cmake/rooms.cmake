# The libraries, one or two for each room of the house (docs/design.md has the picture). What a
# library may link stands in one place, the call that makes it; linking anything else, from whichever
# file, fails at configuration.

# mpbp_add_room(NAME SOURCES file... USES target...): a static library that links what it USES and
# may link nothing else.
function(mpbp_add_room name)
  cmake_parse_arguments(ARG "" "" "SOURCES;USES" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_link_libraries(${name} PUBLIC ${ARG_USES})
  set_target_properties(${name} PROPERTIES MPBP_USES "${ARG_USES}")
  set_property(GLOBAL APPEND PROPERTY MPBP_ROOMS ${name})
endfunction()

function(mpbp_check_rooms)
  get_property(rooms GLOBAL PROPERTY MPBP_ROOMS)
  foreach(room IN LISTS rooms)
    get_target_property(uses ${room} MPBP_USES)
    get_target_property(linked ${room} LINK_LIBRARIES)
    get_target_property(passed_on ${room} INTERFACE_LINK_LIBRARIES)
    set(wrong ${linked} ${passed_on})
    list(REMOVE_ITEM wrong ${uses})
    list(FILTER wrong EXCLUDE REGEX "^::@")  # where it was linked from
    if(wrong)
      message(FATAL_ERROR "${room} links ${wrong}, and may link ${uses} only (mpbp_add_room)")
    endif()
  endforeach()
endfunction()

# At the end of the configuration, when every file has had its say.
cmake_language(DEFER DIRECTORY ${CMAKE_SOURCE_DIR} CALL mpbp_check_rooms)
