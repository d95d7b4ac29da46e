# What `cmake --install` puts where, in the components runtime, dev, tools and doc.
include(CMakePackageConfigHelpers)
set(ZAL_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/zal-client)

install(
  TARGETS zal_client
  EXPORT zal-client
  LIBRARY COMPONENT runtime NAMELINK_COMPONENT dev)
install(
  TARGETS zal_client_static
  EXPORT zal-client-static
  ARCHIVE COMPONENT dev)
install(
  DIRECTORY ${PROJECT_SOURCE_DIR}/include/zal
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  COMPONENT dev)

foreach(export zal-client zal-client-static)
  install(
    EXPORT ${export}
    FILE ${export}-targets.cmake
    NAMESPACE zal::
    DESTINATION ${ZAL_CMAKE_DIR}
    COMPONENT dev)
endforeach()
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/zal-client-config.cmake.in zal-client-config.cmake
                              INSTALL_DESTINATION ${ZAL_CMAKE_DIR} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(zal-client-config-version.cmake COMPATIBILITY SameMajorVersion)
install(
  FILES ${CMAKE_CURRENT_BINARY_DIR}/zal-client-config.cmake ${CMAKE_CURRENT_BINARY_DIR}/zal-client-config-version.cmake
        ${PROJECT_SOURCE_DIR}/cmake/ZalDependencies.cmake
  DESTINATION ${ZAL_CMAKE_DIR}
  COMPONENT dev)

# Written while installing, when the prefix is known for certain. The directories follow it: pkg-config rewrites the prefix
# (--define-prefix), or puts a sysroot in front of it.
cmake_path(APPEND ZAL_PC_LIBDIR "\${prefix}" ${CMAKE_INSTALL_LIBDIR})
cmake_path(APPEND ZAL_PC_INCLUDEDIR "\${prefix}" ${CMAKE_INSTALL_INCLUDEDIR})
install(
  CODE "set(PROJECT_VERSION ${PROJECT_VERSION})
        set(ZAL_PC_LIBDIR [[${ZAL_PC_LIBDIR}]])
        set(ZAL_PC_INCLUDEDIR [[${ZAL_PC_INCLUDEDIR}]])
        configure_file([[${PROJECT_SOURCE_DIR}/cmake/libzal-client.pc.in]]
                       [[${CMAKE_CURRENT_BINARY_DIR}/libzal-client.pc]] @ONLY)"
  COMPONENT dev)
install(
  FILES ${CMAKE_CURRENT_BINARY_DIR}/libzal-client.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT dev)

if(ZAL_BUILD_TOOLS)
  # Outside the loader's own directories zalctl finds the library beside itself.
  file(RELATIVE_PATH library_from_program ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set_target_properties(zalctl PROPERTIES INSTALL_RPATH "$ORIGIN/${library_from_program}")
  install(TARGETS zalctl RUNTIME COMPONENT tools)
  install(
    FILES ${PROJECT_SOURCE_DIR}/tools/zalctl/completion.bash
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
    RENAME zalctl
    COMPONENT tools)
endif()

# install_manuals(<component> <section>...): the pages of docs/man of these sections.
function(install_manuals component)
  foreach(section IN LISTS ARGN)
    file(GLOB pages CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/man/*.${section})
    install(
      FILES ${pages}
      DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section}
      COMPONENT ${component})
  endforeach()
endfunction()
install_manuals(tools 1)
install_manuals(doc 3 7)

install(
  FILES ${PROJECT_SOURCE_DIR}/README.md
  DESTINATION ${CMAKE_INSTALL_DOCDIR}
  COMPONENT doc)
install(
  DIRECTORY ${PROJECT_SOURCE_DIR}/docs
  DESTINATION ${CMAKE_INSTALL_DOCDIR}
  COMPONENT doc
  FILES_MATCHING
  PATTERN *.md
  PATTERN man EXCLUDE)
install(
  DIRECTORY ${PROJECT_SOURCE_DIR}/examples
  DESTINATION ${CMAKE_INSTALL_DOCDIR}
  COMPONENT doc
  PATTERN CMakeLists.txt EXCLUDE)
