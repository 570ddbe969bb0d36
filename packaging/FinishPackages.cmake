# Puts right in each package what cpack has no words for.

foreach(package IN LISTS CPACK_PACKAGE_FILES)
    set(unpacked ${CPACK_TEMPORARY_DIRECTORY}-unpacked)
    file(REMOVE_RECURSE ${unpacked})
    execute_process(COMMAND dpkg-deb --raw-extract ${package} ${unpacked} COMMAND_ERROR_IS_FATAL ANY)
    # Scripts that call ldconfig: the trigger has that done already, once for many packages.
    file(REMOVE ${unpacked}/DEBIAN/postinst ${unpacked}/DEBIAN/postrm)
    # Packages with files of one architecture only may stand beside those of another one. The program
    # serves processes of any.
    cmake_path(GET package FILENAME name)
    set(architectures foreign)
    if(name MATCHES "^lib")
        set(architectures same)
    endif()
    file(READ ${unpacked}/DEBIAN/control control)
    file(WRITE ${unpacked}/DEBIAN/control "Multi-Arch: ${architectures}\n${control}")
    execute_process(
        COMMAND dpkg-deb --root-owner-group --build -Zxz ${unpacked} ${package}
        OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY
    )
    file(REMOVE_RECURSE ${unpacked})
endforeach()
