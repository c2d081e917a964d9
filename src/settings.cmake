# Options, port file, engine processes, log texts and the page allow-list.
add_library(mpbp_settings STATIC
  ${CMAKE_CURRENT_LIST_DIR}/engineprocesses.cc
  ${CMAKE_CURRENT_LIST_DIR}/logutility.cc
  ${CMAKE_CURRENT_LIST_DIR}/optionspersistence.cc
  ${CMAKE_CURRENT_LIST_DIR}/plugin/allowlist.cc
  ${CMAKE_CURRENT_LIST_DIR}/plugin/pluginutils.cc
  ${CMAKE_CURRENT_LIST_DIR}/portfileutils.cc
)
target_link_libraries(mpbp_settings PUBLIC mpbp_base)
