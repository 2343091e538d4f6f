# What `cmake --install` puts where (GNUInstallDirs), the CMake package configuration and
# pkg-config files of the libraries, and the Debian package that CPack builds. Everything
# installed is relocatable: no absolute build path, no RPATH (nothing links a library of
# this project dynamically but the library's own users).
include(CMakePackageConfigHelpers)

# Exported names: qzodbc::qzclient and qzodbc::qzmath are the shared libraries,
# qzodbc::qzclient_static and qzodbc::qzmath_static the static ones.
set_target_properties(qzclient PROPERTIES EXPORT_NAME qzclient_static)
set_target_properties(qzclient_shared PROPERTIES EXPORT_NAME qzclient)
set_target_properties(qzmath PROPERTIES EXPORT_NAME qzmath_static)
set_target_properties(qzmath_shared PROPERTIES EXPORT_NAME qzmath)

install(TARGETS qzodbc qzcall RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS qzclient qzclient_shared qzmath qzmath_shared
        EXPORT qzodbcTargets
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
# A stripped install (--strip, and the package) strips the archives' debug information
# too: it names the build's source paths.
install(CODE "
  if(CMAKE_INSTALL_DO_STRIP)
    foreach(a libqzclient.a libqzmath.a)
      execute_process(COMMAND \"${CMAKE_STRIP}\" -g \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/\${a}\")
    endforeach()
  endif()")
install(FILES ${PROJECT_SOURCE_DIR}/client/qzclient.hpp ${PROJECT_SOURCE_DIR}/dll/include/qzwire.hpp
              ${PROJECT_SOURCE_DIR}/math/include/qzmath.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES ${PROJECT_SOURCE_DIR}/doc/qzodbc.1 ${PROJECT_SOURCE_DIR}/doc/qzcall.1
        DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)

set(QZ_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/qzodbc)
install(EXPORT qzodbcTargets NAMESPACE qzodbc:: DESTINATION ${QZ_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/templates/qzodbcConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/qzodbcConfig.cmake
                              INSTALL_DESTINATION ${QZ_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/qzodbcConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/qzodbcConfig.cmake ${PROJECT_BINARY_DIR}/qzodbcConfigVersion.cmake
        DESTINATION ${QZ_CMAKE_DIR})

# pkg-config: the prefix is found from the .pc file's own place, so the tree may move.
file(RELATIVE_PATH QZ_PC_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" QZ_PC_TO_PREFIX "${QZ_PC_TO_PREFIX}")
foreach(pc qzclient qzmath)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/templates/${pc}.pc.in ${PROJECT_BINARY_DIR}/${pc}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${pc}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()

# The Debian package: dependencies from dpkg-shlibdeps (libc6, libodbc2, libstdc++6...),
# binaries stripped (their debug information names the build's source paths).
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME qzodbc)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "qzodbc developers <qzodbc@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "external-function server that gives an interpreter's programs ODBC")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "qzodbc is started by an interpreter as a separate process and serves its programs'
ODBC calls through a System V shared-memory call block. The package also holds
qzcall, a command-line client for call scripts and SQL, and the libraries
libqzclient and libqzmath with their headers, CMake and pkg-config files.")
set(CPACK_DEBIAN_PACKAGE_SECTION database)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_INSTALL_DIRECTORY qzodbc)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
include(CPack)
