# Installation: library, headers, CMake package, pkg-config file, manual pages, and the .deb of CPack.

include(CMakePackageConfigHelpers)

install(TARGETS qnkernel EXPORT qnkernelTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Runtime NAMELINK_COMPONENT Development)
install(EXPORT qnkernelTargets NAMESPACE qnkernel::
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/qnkernel COMPONENT Development)

get_property(headers GLOBAL PROPERTY QN_PUBLIC_HEADERS)
foreach(header IN LISTS headers)
  cmake_path(GET header PARENT_PATH folder)
  install(FILES ${CMAKE_SOURCE_DIR}/${header}
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${folder} COMPONENT Development)
endforeach()

configure_package_config_file(cmake/qnkernelConfig.cmake.in ${CMAKE_BINARY_DIR}/qnkernelConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/qnkernel)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/qnkernelConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/qnkernelConfig.cmake ${CMAKE_BINARY_DIR}/qnkernelConfigVersion.cmake
  cmake/QnResources.cmake cmake/compile_resources.py
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/qnkernel COMPONENT Development)

# The package stays right when the installed tree is moved.
file(RELATIVE_PATH QN_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/qnkernel.pc.in ${CMAKE_BINARY_DIR}/qnkernel.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/qnkernel.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT Development)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME qnkernel)
set(CPACK_PACKAGE_VENDOR "the qnkernel founders")
set(CPACK_PACKAGE_CONTACT "the qnkernel founders <qnkernel@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Kernel library of audio and video editors, with its tools")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
include(CPack)
