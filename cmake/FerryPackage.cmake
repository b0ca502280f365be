# CMake package files of an installation, so that other programs can find_package(ferryjni).
include(CMakePackageConfigHelpers)

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/ferryjni")
configure_package_config_file("${CMAKE_SOURCE_DIR}/cmake/ferryjni-config.cmake.in"
    "${CMAKE_BINARY_DIR}/ferryjni-config.cmake"
    INSTALL_DESTINATION "${package_dir}" PATH_VARS FERRY_JAR_INSTALL_DIR)
# Before 1.0 any minor version may break.
write_basic_package_version_file("${CMAKE_BINARY_DIR}/ferryjni-config-version.cmake"
    COMPATIBILITY SameMinorVersion)
install(FILES "${CMAKE_BINARY_DIR}/ferryjni-config.cmake"
    "${CMAKE_BINARY_DIR}/ferryjni-config-version.cmake"
    "${CMAKE_SOURCE_DIR}/cmake/FerryJdk.cmake" DESTINATION "${package_dir}")
install(EXPORT ferryjni-targets NAMESPACE ferryjni:: DESTINATION "${package_dir}")
