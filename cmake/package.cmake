# Debian packages: cpack in a build configured with -DCMAKE_INSTALL_PREFIX=/usr; ./dev package does it all.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME quarvelutil)
set(CPACK_PACKAGE_VENDOR "quarvelutil")
set(CPACK_PACKAGE_CONTACT "quarvelutil developers <quarvelutil@example.org>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
if(CMAKE_CROSSCOMPILING)
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
  # dpkg-shlibdeps looks for the libraries' packages in the host's database,
  # which knows no second architecture.
  set(shlib_depends "libc6 (>= 2.36), libgcc-s1 (>= 3.5), libqt5core5a (>= 5.15.1), libqt5gui5 (>= 5.15.1) | libqt5gui5-gles (>= 5.15.1), libqt5widgets5 (>= 5.15.1), libstdc++6 (>= 12)")
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "${shlib_depends}")
  set(CPACK_DEBIAN_EXAMPLES_PACKAGE_DEPENDS
      "libquarvelutil1 (= ${PROJECT_VERSION}-1), libqt5charts5 (>= 5.15.1), libqt5positioning5 (>= 5.15.1), ${shlib_depends}")
else()
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_EXAMPLES_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/util ${PROJECT_BINARY_DIR}/platform)
  set(CPACK_DEBIAN_EXAMPLES_PACKAGE_DEPENDS "libquarvelutil1 (= ${PROJECT_VERSION}-1)")
endif()

set(CPACK_COMPONENTS_ALL runtime dev examples)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libquarvelutil1)
set(CPACK_DEBIAN_RUNTIME_DEBUGINFO_PACKAGE ON)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "Bounded text, checksums and digests, firmware versions, WGS-84
geodesy and local frames, AB-line guidance and PID, log records,
a signal dispatcher, TCP client and servers, a flat file store
and Qt diagnostics.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/deb/triggers
    ${PROJECT_SOURCE_DIR}/cmake/deb/shlibs)

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libquarvelutil-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libquarvelutil1 (= ${PROJECT_VERSION}-1), qtbase5-dev (>= 5.15)")
set(CPACK_DEBIAN_DEV_DESCRIPTION "The headers, what CMake and pkg-config need to find the library,
and printers that show its values in gdb.")

set(CPACK_DEBIAN_EXAMPLES_PACKAGE_NAME quarvelutil-examples)
set(CPACK_DEBIAN_EXAMPLES_PACKAGE_SECTION misc)
set(CPACK_DEBIAN_EXAMPLES_DESCRIPTION "Short programs on the library, one a family, built and as sources.")

# What Debian's policy wants beside the files of each package.
file(READ ${PROJECT_SOURCE_DIR}/cmake/deb/copyright copyright)
foreach(part "runtime;libquarvelutil1" "dev;libquarvelutil-dev" "examples;quarvelutil-examples")
  list(GET part 0 component)
  list(GET part 1 package)
  set(folder ${PROJECT_BINARY_DIR}/deb/${package})
  file(WRITE ${folder}/changelog.in "${package} (${PROJECT_VERSION}-1) stable; urgency=medium

  * See CHANGELOG.md of the sources.

 -- quarvelutil developers <quarvelutil@example.org>  Sat, 21 Nov 2026 00:00:00 +0000
")
  configure_file(${folder}/changelog.in ${folder}/changelog.Debian COPYONLY)
  add_custom_command(OUTPUT ${folder}/changelog.Debian.gz
                     COMMAND gzip -9nkf ${folder}/changelog.Debian DEPENDS ${folder}/changelog.Debian)
  add_custom_target(changelog_${component} ALL DEPENDS ${folder}/changelog.Debian.gz)
  install(FILES ${folder}/changelog.Debian.gz ${PROJECT_SOURCE_DIR}/cmake/deb/copyright
          DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component})
  if(EXISTS ${PROJECT_SOURCE_DIR}/cmake/deb/${package}.overrides)
    install(FILES ${PROJECT_SOURCE_DIR}/cmake/deb/${package}.overrides
            DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides RENAME ${package} COMPONENT ${component})
  endif()
endforeach()
include(CPack)
