# What `cmake --install` puts where, and the Debian packages of it: components tovi, tovi-modem, tovictl.
include(GNUInstallDirs)

# ${name}.gz of a text.
function(add_compressed name text)
  cmake_path(ABSOLUTE_PATH text BASE_DIRECTORY ${CMAKE_SOURCE_DIR})
  get_filename_component(folder ${CMAKE_BINARY_DIR}/${name} DIRECTORY)
  file(MAKE_DIRECTORY ${folder})
  add_custom_command(OUTPUT ${name}.gz
    COMMAND gzip -9nc ${text} > ${CMAKE_BINARY_DIR}/${name}.gz
    DEPENDS ${text} VERBATIM)
  set_property(GLOBAL APPEND PROPERTY compressed ${CMAKE_BINARY_DIR}/${name}.gz)
endfunction()

# A program with its manual, its papers and those of its pages that a user needs.
function(install_program program manual)
  set(doc ${CMAKE_INSTALL_DATADIR}/doc/${program})
  install(TARGETS ${program} RUNTIME COMPONENT ${program})
  add_compressed(man/${program}.1 ${manual})
  install(FILES ${CMAKE_BINARY_DIR}/man/${program}.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
    COMPONENT ${program})
  install(FILES ${CMAKE_BINARY_DIR}/changelog.gz packaging/copyright ${ARGN} DESTINATION ${doc}
    COMPONENT ${program})
  configure_file(packaging/lintian-overrides.in ${CMAKE_BINARY_DIR}/overrides/${program} @ONLY)
  install(FILES ${CMAKE_BINARY_DIR}/overrides/${program}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides COMPONENT ${program})
endfunction()

# A phone gets one file, by hand.
if(TOVI_DEVICE)
  return()
endif()

# ./run builds the programs alone: the rest of what is installed is built now.
install(CODE "execute_process(
  COMMAND \"${CMAKE_COMMAND}\" --build \"${CMAKE_BINARY_DIR}\"
    --target tovi tovi-modem tovictl compressed completion
  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)" ALL_COMPONENTS)

add_compressed(changelog packaging/changelog)
install_program(tovi docs/man/tovi.1 README.md)
install_program(tovi-modem docs/man/tovi-modem.1 docs/simulator.md)

# The manual and the completion of tovictl have their lists from the program's own tables.
add_executable(ctl_data completion/ctl_data.cpp)
target_link_libraries(ctl_data PRIVATE ${all_layers} ctl)
target_compile_options(ctl_data PRIVATE -O0)  # runs once
set(ctl_manual ${CMAKE_BINARY_DIR}/man/tovictl.1)
set(ctl_completion ${CMAKE_BINARY_DIR}/completion/tovictl)
add_custom_command(OUTPUT ${ctl_manual}
  COMMAND ctl_data manual < ${CMAKE_SOURCE_DIR}/docs/man/tovictl.1 > ${ctl_manual}
  DEPENDS ctl_data docs/man/tovictl.1 VERBATIM)
add_custom_command(OUTPUT ${ctl_completion}
  COMMAND ctl_data completion > ${ctl_completion}
  COMMAND ${CMAKE_COMMAND} -E cat ${CMAKE_SOURCE_DIR}/completion/tovictl.bash >> ${ctl_completion}
  DEPENDS ctl_data completion/tovictl.bash VERBATIM)
install_program(tovictl ${ctl_manual} docs/tovictl.md)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/tovi COMPONENT tovi
  FILES_MATCHING PATTERN *.md PATTERN man EXCLUDE)
get_property(compressed GLOBAL PROPERTY compressed)
add_custom_target(compressed ALL DEPENDS ${compressed})

# The completion has its words from the program's own tables.
set(completion ${CMAKE_BINARY_DIR}/completion/tovi)
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/completion)
add_executable(completion_data completion/completion_data.cpp)
target_link_libraries(completion_data PRIVATE ${all_layers})
add_custom_command(OUTPUT ${completion}
  COMMAND completion_data > ${completion}
  COMMAND ${CMAKE_COMMAND} -E cat ${CMAKE_SOURCE_DIR}/completion/tovi.bash >> ${completion}
  DEPENDS completion_data completion/tovi.bash VERBATIM)
add_custom_target(completion ALL DEPENDS ${completion} ${ctl_completion})
set(completions ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(FILES ${completion} DESTINATION ${completions} COMPONENT tovi)
install(FILES ${ctl_completion} DESTINATION ${completions} COMPONENT tovictl)

# `cpack --config build/release/CPackConfig.cmake` makes the packages.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VENDOR "the tovi developers")
set(CPACK_PACKAGE_CONTACT "The tovi developers <tovi@users.noreply.example>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL tovi tovi-modem tovictl)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_TOVI_PACKAGE_NAME tovi)
set(CPACK_DEBIAN_TOVI_PACKAGE_SECTION comm)
set(CPACK_DEBIAN_TOVI_PACKAGE_SUGGESTS "tovi-modem, bash-completion")
set(CPACK_COMPONENT_TOVI_DESCRIPTION "modem test tool for phones whose modem speaks QMI
Reads and writes NV items and EFS files, queries and switches SIM and eSIM,
reads radio statistics, sends diag, AT and raw vendor commands, starts network
scans, refreshes the modem's configuration and restarts the modem: a real one
over the kernel's QRTR, or the simulated one that is built in.")
set(CPACK_DEBIAN_TOVI-MODEM_PACKAGE_NAME tovi-modem)
set(CPACK_DEBIAN_TOVI-MODEM_PACKAGE_SECTION comm)
set(CPACK_DEBIAN_TOVI-MODEM_PACKAGE_SUGGESTS tovi)
set(CPACK_COMPONENT_TOVI-MODEM_DESCRIPTION "simulated modem that speaks QMI
Serves the extension, UIM, NAS, SAR, PDC and statistics services of a phone's
modem to many clients, at a unix socket, on the kernel's QRTR or as a device.
It keeps its state in a folder of plain files, can be told to misbehave, and
writes down what it was asked.")
set(CPACK_DEBIAN_TOVICTL_PACKAGE_NAME tovictl)
set(CPACK_DEBIAN_TOVICTL_PACKAGE_SECTION comm)
set(CPACK_DEBIAN_TOVICTL_PACKAGE_SUGGESTS "tovi, bash-completion")
set(CPACK_COMPONENT_TOVICTL_DESCRIPTION "modem tool for scripts, with verdicts, files and data
Runs the commands of tovi and ends with a status that tells whether they
worked, moves whole NV items and EFS files, saves, compares and restores
them, watches radio statistics and finds out what is wrong between here and
the modem.")
include(CPack)
