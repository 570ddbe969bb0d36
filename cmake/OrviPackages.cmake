# What `cpack` makes of the components that OrviInstall.cmake names: Debian packages of the two
# libraries, of everything to build with them, and of the program.

if(NOT TARGET orvi-stream)
    message(FATAL_ERROR "ORVI_PACKAGES needs ORVI_BUILD_REMOTING and ORVI_BUILD_TOOLS.")
endif()
find_program(ORVI_GZIP gzip REQUIRED)
set(ORVI_PACKAGE_MAINTAINER
    "The Orvi stream buffer authors <maintainers@orvi-streambuf.invalid>"
    CACHE STRING "Who answers for the packages: name and mail address"
)

set(revision 0orvi1) # less than any that a distribution would give
set(ORVI_PACKAGE_VERSION ${PROJECT_VERSION}-${revision})
string(TIMESTAMP ORVI_PACKAGE_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)

set(packages_dir ${PROJECT_BINARY_DIR}/packages)
configure_file(packaging/changelog.in ${packages_dir}/changelog.Debian @ONLY)
configure_file(CHANGELOG.md ${packages_dir}/changelog COPYONLY)
configure_file(tools/orvi-stream/papers/orvi-stream.1 ${packages_dir}/orvi-stream.1 COPYONLY)
foreach(paper changelog.Debian changelog orvi-stream.1)
    # Without name and time, so that the same sources make the same packages.
    execute_process(COMMAND ${ORVI_GZIP} --best --no-name --force ${packages_dir}/${paper}
                            COMMAND_ERROR_IS_FATAL ANY
    )
endforeach()
install(FILES ${packages_dir}/orvi-stream.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
        COMPONENT tool EXCLUDE_FROM_ALL
)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME orvi-streambuf)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own
set(CPACK_PACKAGE_DESCRIPTION "")
set(CPACK_PACKAGE_DIRECTORY ${packages_dir})
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE
)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_COMPONENTS_ALL libraries remoting development tool)
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/FinishPackages.cmake)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_SOURCE orvi-streambuf)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${revision})
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${ORVI_PACKAGE_MAINTAINER})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
foreach(library orvi-streambuf orvi-platform orvi-remoting)
    get_target_property(built_in ${library} BINARY_DIR)
    list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${built_in})
endforeach()
# Until version 1.0, a library works with what was built for the same version of it only.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY "=")

# Describes the package of a component; SUMMARY and TEXT are what its users read about it.
#
# orvi_describe_package(<component> <package> SECTION <section> SUMMARY <text> TEXT <text>
#                       [DEPENDS <package>...])
macro(orvi_describe_package component package)
    cmake_parse_arguments(arg "" "SECTION;SUMMARY;TEXT" "DEPENDS" ${ARGN})
    string(TOUPPER ${component} name)
    string(JOIN ", " depends ${arg_DEPENDS})
    set(CPACK_DEBIAN_${name}_PACKAGE_NAME ${package})
    set(CPACK_DEBIAN_${name}_PACKAGE_SECTION ${arg_SECTION})
    set(CPACK_DEBIAN_${name}_PACKAGE_DEPENDS ${depends})
    set(CPACK_DEBIAN_${name}_DESCRIPTION "${arg_SUMMARY}\n${arg_TEXT}")
    install(FILES packaging/copyright ${packages_dir}/changelog.Debian.gz ${packages_dir}/changelog.gz
            DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package}
            COMPONENT ${component} EXCLUDE_FROM_ALL
    )
endmacro()

# Libraries' packages are named as their SONAMEs are.
set(core liborvi-streambuf${ORVI_ABI_VERSION})
set(remoting liborvi-remoting${ORVI_ABI_VERSION})
set(exactly "(= ${ORVI_PACKAGE_VERSION})")
orvi_describe_package(
    libraries ${core} SECTION libs
    SUMMARY "byte streams as services, used as standard stream buffers"
    TEXT "A component publishes a byte stream under a UUID. Others that know the UUID use
it as an ordinary std::streambuf, without knowing what is behind it.
.
This package has the libraries for one process. With ${remoting}, the
same works between processes and machines."
)
set(CPACK_DEBIAN_LIBRARIES_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/triggers)
orvi_describe_package(
    remoting ${remoting} SECTION libs
    SUMMARY "published stream buffers across processes and machines"
    TEXT "A component publishes a byte stream under a UUID. Others that know the UUID use
it as an ordinary std::streambuf, without knowing what is behind it.
.
This package has the library that connects processes, on one machine without
configuration, between machines over gRPC with mutual TLS."
    DEPENDS "${core} ${exactly}"
)
set(CPACK_DEBIAN_REMOTING_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/triggers)
orvi_describe_package(
    development liborvi-streambuf-dev SECTION libdevel
    SUMMARY "byte streams as services - development files"
    TEXT "A component publishes a byte stream under a UUID. Others that know the UUID use
it as an ordinary std::streambuf, without knowing what is behind it.
.
This package has the headers, the CMake package OrviStreambuf, the pkg-config
files orvi-streambuf and orvi-remoting, and the documentation."
    DEPENDS "${core} ${exactly}" "${remoting} ${exactly}" "libboost-dev (>= 1.74)"
)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
orvi_describe_package(
    tool orvi-stream SECTION utils
    SUMMARY "publish byte streams to other processes, and use those of others"
    TEXT "Publishes files or pipes under UUIDs, lists what processes of this machine and
of others publish, and reads and writes it, from the command line. What is
published with it can be used by any program over the library, and the reverse."
    DEPENDS "${core} ${exactly}" "${remoting} ${exactly}"
)

include(CPack)
