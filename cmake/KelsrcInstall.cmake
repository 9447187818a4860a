# The CMake package: find_package(kelSrc), target kelsrc::kelSrc.

include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/kelSrc)

install(TARGETS kelSrc EXPORT kelSrcTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
install(EXPORT kelSrcTargets NAMESPACE kelsrc:: DESTINATION ${package_dir} COMPONENT development)

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/kelSrcConfig.cmake.in ${CMAKE_BINARY_DIR}/kelSrcConfig.cmake
    INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/kelSrcConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/kelSrcConfig.cmake ${CMAKE_BINARY_DIR}/kelSrcConfigVersion.cmake
    DESTINATION ${package_dir} COMPONENT development)
