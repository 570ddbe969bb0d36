# What `cmake --install` puts where: headers, libraries, the program, the CMake package and the
# pkg-config files. The tree may be moved as a whole afterwards. The components are the packages that
# OrviPackages.cmake makes.

include(CMakePackageConfigHelpers)

set(include_dir ${CMAKE_INSTALL_INCLUDEDIR}/orvi-streambuf)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/OrviStreambuf)
set(ORVI_ZSH_COMPLETION_DIR
    ${CMAKE_INSTALL_DATADIR}/zsh/site-functions
    CACHE STRING "Where the completion for zsh is installed"
)

# The way from one folder below the prefix to another.
function(orvi_relative_path from to result)
    cmake_path(ABSOLUTE_PATH from BASE_DIRECTORY /prefix)
    cmake_path(ABSOLUTE_PATH to BASE_DIRECTORY /prefix)
    file(RELATIVE_PATH way ${from} ${to})
    string(REGEX REPLACE "/$" "" way "${way}")
    set(${result} ${way} PARENT_SCOPE)
endfunction()

set(libraries orvi-streambuf orvi-platform)
install(DIRECTORY include/streambuf platform/include/orvi platform/include/foundation
        DESTINATION ${include_dir} COMPONENT development
)
install(DIRECTORY src/payload DESTINATION ${include_dir} COMPONENT development
        FILES_MATCHING PATTERN *.hpp PATTERN SeekCodes.hpp EXCLUDE
)
if(TARGET orvi-remoting)
    list(APPEND libraries orvi-remoting)
    install(DIRECTORY remoting/include/orvi DESTINATION ${include_dir} COMPONENT development)
endif()
if(ORVI_EMBEDDED_REGISTRY)
    install(DIRECTORY platform/registry/include/cppmicroservices DESTINATION ${include_dir}
            COMPONENT development
    )
    set(ORVI_REGISTRY_DEPENDENCY "")
else()
    target_link_libraries(orvi-platform PUBLIC $<INSTALL_INTERFACE:CppMicroServices>)
    # An installed CppMicroServices need not be where the loader looks.
    set_target_properties(${libraries} PROPERTIES INSTALL_RPATH_USE_LINK_PATH ON)
    set(ORVI_REGISTRY_DEPENDENCY "find_dependency(CppMicroServices ${CppMicroServices_VERSION_MAJOR} CONFIG)")
endif()

# The libraries find each other wherever the tree is.
set_target_properties(${libraries} PROPERTIES INSTALL_RPATH "$ORIGIN")

install(TARGETS orvi-streambuf orvi-platform EXPORT OrviStreambufTargets
        LIBRARY COMPONENT libraries NAMELINK_COMPONENT development
)
if(TARGET orvi-remoting)
    install(TARGETS orvi-remoting EXPORT OrviStreambufTargets
            LIBRARY COMPONENT remoting NAMELINK_COMPONENT development
    )
endif()
install(EXPORT OrviStreambufTargets NAMESPACE orvi:: DESTINATION ${package_dir}
        COMPONENT development
)

configure_package_config_file(
    cmake/OrviStreambufConfig.cmake.in ${PROJECT_BINARY_DIR}/OrviStreambufConfig.cmake
    INSTALL_DESTINATION ${package_dir} NO_SET_AND_CHECK_MACRO
)
write_basic_package_version_file(
    ${PROJECT_BINARY_DIR}/OrviStreambufConfigVersion.cmake COMPATIBILITY SameMinorVersion
)
install(FILES ${PROJECT_BINARY_DIR}/OrviStreambufConfig.cmake
              ${PROJECT_BINARY_DIR}/OrviStreambufConfigVersion.cmake DESTINATION ${package_dir}
        COMPONENT development
)

set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
orvi_relative_path(${pkgconfig_dir} /prefix ORVI_PREFIX_FROM_PKGCONFIG)
set(pkgconfig_names orvi-streambuf)
if(TARGET orvi-remoting)
    list(APPEND pkgconfig_names orvi-remoting)
endif()
foreach(name IN LISTS pkgconfig_names)
    configure_file(cmake/${name}.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${pkgconfig_dir}
            COMPONENT development
    )
endforeach()

if(TARGET orvi-stream)
    orvi_relative_path(${CMAKE_INSTALL_BINDIR} ${CMAKE_INSTALL_LIBDIR} libraries_from_program)
    set_target_properties(
        orvi-stream PROPERTIES INSTALL_RPATH "$ORIGIN/${libraries_from_program}"
    )
    if(NOT ORVI_EMBEDDED_REGISTRY)
        set_target_properties(orvi-stream PROPERTIES INSTALL_RPATH_USE_LINK_PATH ON)
    endif()
    set(papers_dir tools/orvi-stream/papers)
    install(TARGETS orvi-stream RUNTIME COMPONENT tool)
    install(FILES ${papers_dir}/orvi-stream.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
            COMPONENT manual
    )
    install(FILES ${papers_dir}/orvi-stream.bash
            DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME orvi-stream
            COMPONENT tool
    )
    install(FILES ${papers_dir}/_orvi-stream DESTINATION ${ORVI_ZSH_COMPLETION_DIR} COMPONENT tool)
endif()

install(FILES README.md SECURITY.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)
install(FILES CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT changelog)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)
