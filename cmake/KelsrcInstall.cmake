# What an installation holds besides the rooms' own headers and libraries: the CMake package (find_package(kelSrc),
# target kelsrc::kelSrc and those of the rooms around it) and kelsrc.pc for pkg-config. Both find their way from
# where they lie, so the installed tree can be moved.

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

if(KELSRC_BUNDLED_PLATFORM)
    set(pc_definitions "-DKELSRC_BUNDLED_MESH=1 -DBOOST_LOG_DYN_LINK")
    set(pc_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
    file(RELATIVE_PATH pc_prefix /prefix/${pc_dir} /prefix)
    configure_file(${PROJECT_SOURCE_DIR}/cmake/kelsrc.pc.in ${CMAKE_BINARY_DIR}/kelsrc.pc @ONLY)
    install(FILES ${CMAKE_BINARY_DIR}/kelsrc.pc DESTINATION ${pc_dir} COMPONENT development)
endif()

foreach(library kelSrc kelsrc_prepare kelsrc_importer kelsrc_convert)
    if(TARGET ${library})
        get_target_property(type ${library} TYPE)
        if(type STREQUAL "SHARED_LIBRARY")
            set(map ${PROJECT_SOURCE_DIR}/cmake/exports.map)
            target_link_options(${library} PRIVATE -Wl,--version-script=${map})
            set_property(TARGET ${library} APPEND PROPERTY LINK_DEPENDS ${map})
        endif()
    endif()
endforeach()
