# Installation of the tool and its documentation, and the Debian package.
#
# The tool finds its library through a RUNPATH relative to its own location,
# so an installed tree works from any prefix (/usr, /opt/x, a `dpkg -x`
# directory). Its manual page and bash completion are generated at build time
# from its --help output, so they follow whatever commands it has.

if(TARGET setvault_tool)
  file(RELATIVE_PATH setvault_bin_to_lib
    /prefix/${CMAKE_INSTALL_BINDIR} /prefix/${CMAKE_INSTALL_LIBDIR})
  set_target_properties(setvault_tool PROPERTIES INSTALL_RPATH "$ORIGIN/${setvault_bin_to_lib}")

  find_program(HELP2MAN help2man REQUIRED)
  set(setvault_packaging_dir ${PROJECT_SOURCE_DIR}/packaging)
  set(setvault_tool_dir $<TARGET_FILE_DIR:setvault_tool>)
  set(setvault_man ${CMAKE_CURRENT_BINARY_DIR}/setvault.1.gz)
  set(setvault_completion ${CMAKE_CURRENT_BINARY_DIR}/setvault.bash-completion)
  add_custom_command(OUTPUT ${setvault_man}
    COMMAND ${CMAKE_COMMAND} -E env "PATH=${setvault_tool_dir}:$ENV{PATH}"
      bash ${setvault_packaging_dir}/make_man.sh setvault ${PROJECT_VERSION}
      "read and write the host's configuration store" ${setvault_man}
    DEPENDS setvault_tool ${setvault_packaging_dir}/make_man.sh
            ${setvault_packaging_dir}/help_tree.sh
    COMMENT "Generating the setvault manual page"
    VERBATIM)
  add_custom_command(OUTPUT ${setvault_completion}
    COMMAND ${CMAKE_COMMAND} -E env "PATH=${setvault_tool_dir}:$ENV{PATH}"
      bash ${setvault_packaging_dir}/make_completion.sh setvault ${setvault_completion}
    DEPENDS setvault_tool ${setvault_packaging_dir}/make_completion.sh
            ${setvault_packaging_dir}/help_tree.sh
    COMMENT "Generating the setvault bash completion"
    VERBATIM)
  add_custom_target(setvault_tool_docs ALL DEPENDS ${setvault_man} ${setvault_completion})

  install(FILES ${setvault_man} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES ${setvault_completion}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME setvault)
endif()

# The type definition guide and the example definitions it refers to.
set(setvault_doc_dir ${CMAKE_INSTALL_DATAROOTDIR}/doc/setvault)
install(FILES ${PROJECT_SOURCE_DIR}/docs/type-definitions.md DESTINATION ${setvault_doc_dir})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples/schemas DESTINATION ${setvault_doc_dir}/examples)

# `cpack` in the build directory writes setvault_<version>_<arch>.deb: the
# library, headers, CMake and pkg-config files, the tool with its manual page
# and completion, the guide and the example definitions, under /usr.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME setvault)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "host-local configuration store: library and setvault tool")
set(CPACK_PACKAGE_DESCRIPTION
  "Schema-checked JSON configuration objects kept in SQLite, with per-origin values,
shipped defaults, next-boot staging and change notification. Contains the shared
library, its headers, CMake and pkg-config files, and the setvault tool.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_CONTACT "libsetvault developers <setvault@localhost>"
  CACHE STRING "Maintainer named in the Debian package")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
# Shared library dependencies are found by dpkg-shlibdeps; the headers also
# need RapidJSON's.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "rapidjson-dev")
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_STRIP_FILES ON)
include(CPack)
