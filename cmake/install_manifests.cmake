# Run by `cmake --install`: writes the host manifests and puts them below the prefix.
set(prefix ${CMAKE_INSTALL_PREFIX})
set(etc ${prefix}/etc)
if(prefix STREQUAL "/usr")
  set(etc /etc)
endif()
set(folder_chromium ${etc}/chromium/native-messaging-hosts)
set(folder_firefox ${prefix}/lib/mozilla/native-messaging-hosts)

foreach(browser IN ITEMS chromium firefox)
  execute_process(
    COMMAND ${MPBP_CONNECTOR} --manifest ${browser} ${prefix}/${MPBP_PRIVATE_DIR}/mpbp-connector
    OUTPUT_VARIABLE manifest COMMAND_ERROR_IS_FATAL ANY)
  set(file ${MPBP_MANIFESTS}/${browser}/example.murmel.parl.json)
  file(WRITE ${file} "${manifest}")
  file(INSTALL DESTINATION ${folder_${browser}} TYPE FILE FILES ${file})
endforeach()
