include(CMakePackageConfigHelpers)

# Components: runtime (what a program needs to run), dev (to be compiled), tools, python.
install(TARGETS VoAlgorithms EXPORT VoAlgorithmsTargets
    RUNTIME COMPONENT runtime
    LIBRARY COMPONENT runtime NAMELINK_COMPONENT dev
    ARCHIVE COMPONENT dev)
install(DIRECTORY include/VoAlgorithms DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev
    FILES_MATCHING PATTERN "*.h")

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/VoAlgorithms)
install(EXPORT VoAlgorithmsTargets NAMESPACE VoAlgorithms:: DESTINATION ${package_dir} COMPONENT dev)
configure_package_config_file(cmake/VoAlgorithmsConfig.cmake.in VoAlgorithmsConfig.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(VoAlgorithmsConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES
    ${CMAKE_CURRENT_BINARY_DIR}/VoAlgorithmsConfig.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/VoAlgorithmsConfigVersion.cmake
    DESTINATION ${package_dir} COMPONENT dev)

# The pkg-config file finds its prefix from where it lies, so that an installed tree may be moved.
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX
    BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig OUTPUT_VARIABLE pc_to_prefix)
configure_file(cmake/voalgorithms.pc.in voalgorithms.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/voalgorithms.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
    COMPONENT dev)

if(TARGET voalgo)
    set_target_properties(voalgo PROPERTIES INSTALL_RPATH $ORIGIN/../${CMAKE_INSTALL_LIBDIR})
    install(TARGETS voalgo COMPONENT tools)
endif()

# Every package carries the licence where Debian looks for it.
set(runtime_package libvoalgorithms${abi_version})
set(dev_package libvoalgorithms-dev)
set(tools_package voalgo-tools)
set(python_package python3-voalgorithms)
foreach(component IN ITEMS runtime dev tools python)
    if((component STREQUAL "tools" AND NOT TARGET voalgo) OR (component STREQUAL "python" AND NOT VOALGO_PYTHON))
        continue()
    endif()
    install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${${component}_package} RENAME copyright
        COMPONENT ${component})
endforeach()
