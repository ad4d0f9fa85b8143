# An installed copy is found by find_package(Lorvale) and by pkg-config lorvale.
set(LORVALE_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/lorvale)
install(TARGETS lorvale EXPORT lorvale
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT lorvale FILE lorvale-config.cmake NAMESPACE lorvale:: DESTINATION ${LORVALE_CMAKE_DIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/lorvale-config-version.cmake
    COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/lorvale-config-version.cmake DESTINATION ${LORVALE_CMAKE_DIR})

# From where lorvale.pc lies up to the prefix, so that an installed copy may be moved.
file(RELATIVE_PATH LORVALE_PC_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" LORVALE_PC_TO_PREFIX "${LORVALE_PC_TO_PREFIX}")
configure_file(cmake/lorvale.pc.in lorvale.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/lorvale.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
install(DIRECTORY resources/ DESTINATION ${CMAKE_INSTALL_DATADIR}/lorvale)
