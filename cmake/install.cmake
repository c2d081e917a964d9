# What `cmake --install` puts where; docs/installing.md has the table. Two components, a package
# each: "plugin" is what users need, "tools" what people need who try it or look for faults.
include(GNUInstallDirs)

# Programs and module lie in one folder, with links in bin: they find each other as they do in the
# build folder. In lib whatever the system calls its library folder, because people write the path
# into command lines.
set(private_dir lib/murmel-parl-plugin)
set(share_dir ${CMAKE_INSTALL_DATADIR}/murmel-parl-plugin)
set(doc_dir ${CMAKE_INSTALL_DATADIR}/doc/murmel-parl-plugin)
file(RELATIVE_PATH private_from_bin /prefix/${CMAKE_INSTALL_BINDIR} /prefix/${private_dir})
file(RELATIVE_PATH share_from_private /prefix/${private_dir} /prefix/${share_dir})

# mpbp_install_link(COMPONENT TO FOLDER NAME): a symbolic link FOLDER/NAME.
function(mpbp_install_link component to folder name)
  set(link ${CMAKE_BINARY_DIR}/install-links/${folder}/${name})
  cmake_path(GET link PARENT_PATH parent)
  file(MAKE_DIRECTORY ${parent})
  file(CREATE_LINK ${to} ${link} SYMBOLIC)
  install(FILES ${link} DESTINATION ${folder} COMPONENT ${component})
endfunction()

# mpbp_install_program(COMPONENT TARGET): the program, if it is built, and its manual page.
function(mpbp_install_program component program)
  if(TARGET ${program})
    install(TARGETS ${program} DESTINATION ${private_dir} COMPONENT ${component})
    mpbp_install_link(${component}
                      ${private_from_bin}/${program} ${CMAKE_INSTALL_BINDIR} ${program})
    file(REAL_PATH man/${program}.1 page)  # one page for both browsers
    install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 RENAME ${program}.1
            COMPONENT ${component})
  endif()
endfunction()

install(TARGETS mpbppapiplugin DESTINATION ${private_dir} COMPONENT plugin)
mpbp_install_program(plugin mpbp-connector)
foreach(program IN ITEMS mpbp-host mpbp-demo mpbp-browser mpbp-browser-qt6 mpbp-doctor
                         mpbp-engine-check)
  mpbp_install_program(tools ${program})
endforeach()

if(TARGET mpbp_standin_engine)
  install(TARGETS mpbp_standin_engine DESTINATION ${private_dir}/engine COMPONENT tools)
  install(FILES man/MurmelParlPlugin.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
endif()

# For pages: the wrapper, and a page that uses it, which mpbp-browser opens.
foreach(file murmelparl.js murmelparl.mjs murmelparl.d.ts package.json)
  install(FILES examples/console/${file} DESTINATION ${share_dir} COMPONENT plugin)
endforeach()
install(DIRECTORY examples/console DESTINATION ${share_dir}/examples COMPONENT tools)
mpbp_install_link(tools ${share_from_private}/examples ${private_dir} examples)

install(DIRECTORY ${CMAKE_BINARY_DIR}/extension DESTINATION ${share_dir} COMPONENT plugin)
if(TARGET extension)
  install(FILES ${CMAKE_BINARY_DIR}/mpbp-extension.xpi DESTINATION ${share_dir} COMPONENT plugin)
endif()

# The host manifests name the connector where the prefix of this very installation has it. Below
# /usr, Chromium's goes to /etc, as everything of SYSCONFDIR does.
install(CODE "
  set(MPBP_CONNECTOR \"$<TARGET_FILE:mpbp-connector>\")
  set(MPBP_PRIVATE_DIR \"${private_dir}\")
  include(\"${CMAKE_CURRENT_LIST_DIR}/install_manifests.cmake\")"
  COMPONENT plugin)

install(DIRECTORY ${CMAKE_BINARY_DIR}/policies DESTINATION ${doc_dir}/examples COMPONENT plugin)

install(FILES README.md DESTINATION ${doc_dir} COMPONENT plugin)
install(DIRECTORY docs DESTINATION ${doc_dir} COMPONENT plugin)
install(FILES examples/engine.py DESTINATION ${doc_dir}/examples COMPONENT tools)
install(FILES engine/README.md DESTINATION ${doc_dir}/engine COMPONENT plugin)
install(FILES extension/README.md DESTINATION ${doc_dir}/extension COMPONENT plugin)
install(FILES man/murmel-parl-plugin.7 DESTINATION ${CMAKE_INSTALL_MANDIR}/man7 COMPONENT plugin)
