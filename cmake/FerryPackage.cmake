# CMake package files of an installation, so that other programs can find_package(ferryjni).
include(CMakePackageConfigHelpers)

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/ferryjni")
configure_package_config_file(
    "${CMAKE_SOURCE_DIR}/cmake/ferryjni-config.cmake.in" "${CMAKE_BINARY_DIR}/ferryjni-config.cmake"
    INSTALL_DESTINATION "${package_dir}"
    PATH_VARS FERRY_JAR_INSTALL_DIR)
# Before 1.0 any minor version may break.
write_basic_package_version_file("${CMAKE_BINARY_DIR}/ferryjni-config-version.cmake"
                                 COMPATIBILITY SameMinorVersion)
install(FILES "${CMAKE_BINARY_DIR}/ferryjni-config.cmake"
              "${CMAKE_BINARY_DIR}/ferryjni-config-version.cmake"
              "${CMAKE_SOURCE_DIR}/cmake/FerryJdk.cmake" DESTINATION "${package_dir}")
install(
    EXPORT ferryjni-targets
    NAMESPACE ferryjni::
    DESTINATION "${package_dir}")

# pkg-config: for an installation, which may be moved as a whole, and for this build tree.
function(ferry_pkgconfig PC_PREFIX PC_LIBDIR PC_CFLAGS file)
    configure_file("${CMAKE_SOURCE_DIR}/cmake/ferryjni-plugin.pc.in" "${file}" @ONLY)
endfunction()

string(REGEX REPLACE "[^/]+" ".." up "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
ferry_pkgconfig("\${pcfiledir}/${up}" "\${prefix}/${CMAKE_INSTALL_LIBDIR}"
                "-I\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}" "${CMAKE_BINARY_DIR}/ferryjni-plugin.pc")
install(FILES "${CMAKE_BINARY_DIR}/ferryjni-plugin.pc"
        DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
set(headers include platform/core/include platform/cdr/include platform/types/include)
list(TRANSFORM headers PREPEND "-I${CMAKE_SOURCE_DIR}/")
list(JOIN headers " " headers)
ferry_pkgconfig("${CMAKE_BINARY_DIR}" "${CMAKE_LIBRARY_OUTPUT_DIRECTORY}" "${headers}"
                "${CMAKE_LIBRARY_OUTPUT_DIRECTORY}/pkgconfig/ferryjni-plugin.pc")
