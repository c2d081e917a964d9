# Run by `cmake --install`: writes the host manifests below the prefix. Not by way of a file in the
# build folder, which two installations at a time would share.
set(etc ${CMAKE_INSTALL_PREFIX}/etc)
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(etc /etc)
endif()
set(folder_chromium ${etc}/chromium/native-messaging-hosts)
set(folder_firefox ${CMAKE_INSTALL_PREFIX}/lib/mozilla/native-messaging-hosts)

foreach(browser IN ITEMS chromium firefox)
  set(program ${CMAKE_INSTALL_PREFIX}/${MPBP_PRIVATE_DIR}/mpbp-connector)
  execute_process(COMMAND ${MPBP_CONNECTOR} --manifest ${browser} ${program}
                  OUTPUT_VARIABLE manifest COMMAND_ERROR_IS_FATAL ANY)
  set(file ${folder_${browser}}/example.murmel.parl.json)
  message(STATUS "Installing: $ENV{DESTDIR}${file}")
  file(WRITE $ENV{DESTDIR}${file} "${manifest}")
  file(CHMOD $ENV{DESTDIR}${file}
       PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
  list(APPEND CMAKE_INSTALL_MANIFEST_FILES ${file})
endforeach()
