# How every target of this project is compiled, and how a test becomes one.

# The library's own language level, visibility and warnings; nothing of it reaches users.
function(orvi_configure_target target)
    set_target_properties(
        ${target}
        PROPERTIES
            CXX_STANDARD 23
            CXX_STANDARD_REQUIRED ON
            CXX_EXTENSIONS OFF
            CXX_VISIBILITY_PRESET hidden
            VISIBILITY_INLINES_HIDDEN ON
            POSITION_INDEPENDENT_CODE ON
    )
    target_compile_options(
        ${target}
        PRIVATE -Wall
                -Wextra
                -Wpedantic
                -Wconversion
                -Wnon-virtual-dtor
                -Woverloaded-virtual
                $<IF:$<CXX_COMPILER_ID:GNU>,-Wshadow=local,-Wshadow>
                # Where several sources are compiled as one, each looks like a header.
                $<$<AND:$<BOOL:${CMAKE_UNITY_BUILD}>,$<CXX_COMPILER_ID:GNU>>:-Wno-subobject-linkage>
                # Clang 14 takes `if consteval` for true at run time too, so that the standard
                # library compares types by address, which differ between libraries.
                $<$<CXX_COMPILER_ID:Clang>:-U__cpp_if_consteval>
    )
endfunction()

# Lets a shared library export what its version script lists and nothing else.
function(orvi_limit_exports target script)
    target_link_options(${target} PRIVATE LINKER:--version-script=${script})
    set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${script})
endfunction()

# The library under test is optimised. Optimising the tests themselves doubles the time to compile
# them, and looking for undefined behaviour in them as well doubles it again.
function(orvi_compile_as_test target)
    target_compile_options(${target} PRIVATE -O0 -g1)
    if(CMAKE_UNITY_BUILD)
        # A name of one file's own shadows nothing in another.
        target_compile_options(${target} PRIVATE -Wno-shadow)
    endif()
    if(CMAKE_CXX_FLAGS MATCHES "-fsanitize=.*undefined")
        target_compile_options(${target} PRIVATE -fno-sanitize=undefined)
    endif()
endfunction()

# A test program over GoogleTest; every case is one test of ctest.
#
# orvi_add_test(<name> [SEPARATE] SOURCES <file>... LIBS <target>...)
#
# SEPARATE: the files have names of their own in common, or stand in for files of the library, and are
# never compiled as one.
function(orvi_add_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "SEPARATE" "TIMEOUT" "SOURCES;LIBS")
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 300)
    endif()
    add_executable(${name} ${arg_SOURCES})
    orvi_configure_target(${name})
    target_link_libraries(${name} PRIVATE ${arg_LIBS} GTest::gmock_main)
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
    orvi_compile_as_test(${name})
    if(arg_SEPARATE)
        set_target_properties(${name} PROPERTIES UNITY_BUILD OFF)
    endif()
    gtest_discover_tests(
        ${name} DISCOVERY_MODE PRE_TEST PROPERTIES TIMEOUT ${arg_TIMEOUT} LABELS unit
    )
endfunction()
