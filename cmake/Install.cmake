# Installation: the library, its headers, the tool, and what find_package and pkg-config look for.

include(CMakePackageConfigHelpers)

install(TARGETS vellcore EXPORT VellCoreTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/vellcore DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT VellCoreTargets NAMESPACE VellCore:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/VellCore)
if(TARGET vell)
  # An installed program finds its library wherever both were put.
  file(RELATIVE_PATH library_from_program ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set_target_properties(vell PROPERTIES INSTALL_RPATH "$ORIGIN/${library_from_program}")
  install(TARGETS vell RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(DIRECTORY ${VELL_LOCALE_FOLDER}/ DESTINATION ${CMAKE_INSTALL_DATADIR}/vellcore/locale)
endif()

configure_package_config_file(${PROJECT_SOURCE_DIR}/packaging/VellCoreConfig.cmake.in
  ${PROJECT_BINARY_DIR}/VellCoreConfig.cmake INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/VellCore)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VellCoreConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/VellCoreConfig.cmake ${PROJECT_BINARY_DIR}/VellCoreConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/VellCore)

file(RELATIVE_PATH VELLCORE_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(${PROJECT_SOURCE_DIR}/packaging/vellcore.pc.in ${PROJECT_BINARY_DIR}/vellcore.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vellcore.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
