# What is installed, in the components that the packages are made of: recorder, library, development, camera.
include(CMakePackageConfigHelpers)
set(LENSWIRE_PLUGIN_DIR ${CMAKE_INSTALL_LIBDIR}/lenswire)

# -- The plug-in, in a folder of its own: it is loaded by its path, not found by the linker.
install(TARGETS lenswire EXPORT lenswire LIBRARY DESTINATION ${LENSWIRE_PLUGIN_DIR} COMPONENT library)
install(TARGETS lenswire_check LIBRARY DESTINATION ${LENSWIRE_PLUGIN_DIR} COMPONENT development)

# -- What a host is built with. All paths in it are relative to where it stands, so a staged tree works as well.
install(TARGETS lenswire_headers EXPORT lenswire)
install(DIRECTORY include/lenswire DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
install(DIRECTORY examples/ DESTINATION ${CMAKE_INSTALL_DATADIR}/lenswire/examples COMPONENT development
    PATTERN .clang-format EXCLUDE)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/lenswire)
install(EXPORT lenswire NAMESPACE lenswire:: FILE lenswireTargets.cmake DESTINATION ${package_dir}
    COMPONENT development)
configure_package_config_file(cmake/lenswireConfig.cmake.in ${PROJECT_BINARY_DIR}/package/lenswireConfig.cmake
    INSTALL_DESTINATION ${package_dir} PATH_VARS LENSWIRE_PLUGIN_DIR)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/package/lenswireConfigVersion.cmake
    COMPATIBILITY SameMinorVersion)

file(RELATIVE_PATH prefix_of_pc /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" prefix_of_pc ${prefix_of_pc})
configure_file(cmake/lenswire.pc.in ${PROJECT_BINARY_DIR}/package/lenswire.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/package/lenswire.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
    COMPONENT development)
install(FILES ${PROJECT_BINARY_DIR}/package/lenswireConfig.cmake
    ${PROJECT_BINARY_DIR}/package/lenswireConfigVersion.cmake DESTINATION ${package_dir} COMPONENT development)

# -- The programs, with their completion; their man pages bring themselves. Benchmarks are for those who build.
function(install_completion NAME COMPONENT)
    install(FILES cmake/bash-completion DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
        RENAME ${NAME} COMPONENT ${COMPONENT})
endfunction()
if(TARGET lenswire_program)
    install(TARGETS lenswire_program DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT recorder)
    install_completion(lenswire recorder)
endif()
if(TARGET lenswire-camera)
    install(TARGETS lenswire-camera DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT camera)
    install(DIRECTORY camera/clips DESTINATION ${CMAKE_INSTALL_DATADIR}/lenswire COMPONENT camera)
    install_completion(lenswire-camera camera)
endif()
