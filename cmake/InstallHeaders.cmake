# Installs the public headers, those that mark something ZELTO_API. Inside the tree they include each
# other from its root, "support/Api.h"; installed, as <zelto/support/Api.h>.
#
# Takes source_directory, staging_directory and include_directory (which may be relative to the
# prefix).
set(rooms conf exec fsutil site support)
list(JOIN rooms "|" any_room)
cmake_path(ABSOLUTE_PATH include_directory BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}")

foreach(room IN LISTS rooms)
  file(GLOB headers "${source_directory}/${room}/*.h")
  foreach(header IN LISTS headers)
    file(READ "${header}" text)
    if(NOT text MATCHES "ZELTO_API")
      continue()
    endif()
    string(REGEX REPLACE
      "#include \"((${any_room})/[^\"]*)\"" "#include <zelto/\\1>" text "${text}")
    cmake_path(GET header FILENAME name)
    file(WRITE "${staging_directory}/${room}/${name}" "${text}")
    file(INSTALL "${staging_directory}/${room}/${name}"
      DESTINATION "${include_directory}/zelto/${room}")
  endforeach()
endforeach()
