include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS trn_core EXPORT trn_coreTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/inc/tarn DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT trn_coreTargets NAMESPACE trn_core:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/trn_core)

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/trn_coreConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/trn_coreConfig.cmake
                              INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/trn_core)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/trn_coreConfigVersion.cmake
                                 VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/trn_coreConfig.cmake ${PROJECT_BINARY_DIR}/trn_coreConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/trn_core)
