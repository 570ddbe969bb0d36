# What `cmake --install` puts where: headers, libraries, the CMake package and the pkg-config file.
# The tree may be moved as a whole afterwards.

include(CMakePackageConfigHelpers)

set(include_dir ${CMAKE_INSTALL_INCLUDEDIR}/orvi-streambuf)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/OrviStreambuf)

install(DIRECTORY include/streambuf platform/include/orvi platform/include/foundation
        DESTINATION ${include_dir}
)
install(DIRECTORY src/payload DESTINATION ${include_dir} FILES_MATCHING PATTERN *.hpp
        PATTERN SeekCodes.hpp EXCLUDE
)
if(ORVI_EMBEDDED_REGISTRY)
    install(DIRECTORY platform/registry/include/cppmicroservices DESTINATION ${include_dir})
    set(ORVI_REGISTRY_DEPENDENCY "")
else()
    target_link_libraries(orvi-platform PUBLIC $<INSTALL_INTERFACE:CppMicroServices>)
    # An installed CppMicroServices need not be where the loader looks.
    set_target_properties(
        orvi-streambuf orvi-platform PROPERTIES INSTALL_RPATH_USE_LINK_PATH ON
    )
    set(ORVI_REGISTRY_DEPENDENCY "find_dependency(CppMicroServices ${CppMicroServices_VERSION_MAJOR} CONFIG)")
endif()

# The libraries find each other wherever the tree is.
set_target_properties(orvi-streambuf orvi-platform PROPERTIES INSTALL_RPATH "$ORIGIN")

install(TARGETS orvi-streambuf orvi-platform EXPORT OrviStreambufTargets)
install(EXPORT OrviStreambufTargets NAMESPACE orvi:: DESTINATION ${package_dir})

configure_package_config_file(
    cmake/OrviStreambufConfig.cmake.in ${PROJECT_BINARY_DIR}/OrviStreambufConfig.cmake
    INSTALL_DESTINATION ${package_dir} NO_SET_AND_CHECK_MACRO
)
write_basic_package_version_file(
    ${PROJECT_BINARY_DIR}/OrviStreambufConfigVersion.cmake COMPATIBILITY SameMinorVersion
)
install(FILES ${PROJECT_BINARY_DIR}/OrviStreambufConfig.cmake
              ${PROJECT_BINARY_DIR}/OrviStreambufConfigVersion.cmake DESTINATION ${package_dir}
)

set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
cmake_path(ABSOLUTE_PATH pkgconfig_dir BASE_DIRECTORY / OUTPUT_VARIABLE from)
file(RELATIVE_PATH ORVI_PREFIX_FROM_PKGCONFIG ${from} /)
string(REGEX REPLACE "/$" "" ORVI_PREFIX_FROM_PKGCONFIG "${ORVI_PREFIX_FROM_PKGCONFIG}")
configure_file(cmake/orvi-streambuf.pc.in ${PROJECT_BINARY_DIR}/orvi-streambuf.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/orvi-streambuf.pc DESTINATION ${pkgconfig_dir})

install(FILES README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/orvi-streambuf)
