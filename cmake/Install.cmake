include(CMakePackageConfigHelpers)

install(TARGETS VoAlgorithms EXPORT VoAlgorithmsTargets)
install(DIRECTORY include/VoAlgorithms DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/VoAlgorithms)
install(EXPORT VoAlgorithmsTargets NAMESPACE VoAlgorithms:: DESTINATION ${package_dir})
configure_package_config_file(cmake/VoAlgorithmsConfig.cmake.in VoAlgorithmsConfig.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(VoAlgorithmsConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES
    ${CMAKE_CURRENT_BINARY_DIR}/VoAlgorithmsConfig.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/VoAlgorithmsConfigVersion.cmake
    DESTINATION ${package_dir})

# The pkg-config file finds its prefix from where it lies, so that an installed tree may be moved.
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX
    BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig OUTPUT_VARIABLE pc_to_prefix)
configure_file(cmake/voalgorithms.pc.in voalgorithms.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/voalgorithms.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(TARGET voalgo)
    set_target_properties(voalgo PROPERTIES INSTALL_RPATH $ORIGIN/../${CMAKE_INSTALL_LIBDIR})
    install(TARGETS voalgo)
endif()
