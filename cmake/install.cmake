# cmake --install, find_package(quarvelutil) and pkg-config quarvelutil.
include(CMakePackageConfigHelpers)

install(TARGETS quarvelutil quarvelplatform EXPORT quarvelutil
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev)
foreach(folder ${PROJECT_SOURCE_DIR}/util ${QUARVEL_PLATFORM_ROOT}/platform)
  install(DIRECTORY ${folder} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/quarvelutil
          COMPONENT dev FILES_MATCHING PATTERN "*.h" PATTERN "*_private.h" EXCLUDE)
endforeach()

set(config_dir ${CMAKE_INSTALL_LIBDIR}/cmake/quarvelutil)
install(EXPORT quarvelutil NAMESPACE quarvelutil:: FILE quarvelutilTargets.cmake DESTINATION ${config_dir}
        COMPONENT dev)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/quarvelutilConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/quarvelutilConfig.cmake INSTALL_DESTINATION ${config_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/quarvelutilConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/quarvelutilConfig.cmake
              ${PROJECT_BINARY_DIR}/quarvelutilConfigVersion.cmake DESTINATION ${config_dir} COMPONENT dev)

# ${pcfiledir} keeps the installed tree movable: it is where the .pc file lies.
file(RELATIVE_PATH pc_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(${PROJECT_SOURCE_DIR}/cmake/quarvelutil.pc.in ${PROJECT_BINARY_DIR}/quarvelutil.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/quarvelutil.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT dev)

# gdb finds these by the path of the library that they are for.
install(FILES ${PROJECT_SOURCE_DIR}/gdb/quarvelutil.py
        DESTINATION ${CMAKE_INSTALL_DATADIR}/gdb/auto-load/${CMAKE_INSTALL_FULL_LIBDIR}
        RENAME libquarvelutil.so.${PROJECT_VERSION}-gdb.py COMPONENT dev)
