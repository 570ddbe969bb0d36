# Chooses the service registry. orvi::registry is what the libraries compile and link against.

set(ORVI_SERVICE_REGISTRY
    auto
    CACHE STRING "Service registry: auto (installed CppMicroServices if found, else embedded), \
system (installed CppMicroServices 3) or embedded"
)
set_property(CACHE ORVI_SERVICE_REGISTRY PROPERTY STRINGS auto system embedded)

add_library(orvi_registry INTERFACE)
add_library(orvi::registry ALIAS orvi_registry)

if(ORVI_SERVICE_REGISTRY STREQUAL "auto")
    find_package(CppMicroServices 3 CONFIG QUIET)
elseif(ORVI_SERVICE_REGISTRY STREQUAL "system")
    find_package(CppMicroServices 3 CONFIG REQUIRED)
elseif(NOT ORVI_SERVICE_REGISTRY STREQUAL "embedded")
    message(FATAL_ERROR "ORVI_SERVICE_REGISTRY is auto, system or embedded, "
                        "not \"${ORVI_SERVICE_REGISTRY}\".")
endif()

if(ORVI_SERVICE_REGISTRY STREQUAL "embedded" OR NOT CppMicroServices_FOUND)
    set(ORVI_EMBEDDED_REGISTRY ON)
    target_include_directories(
        orvi_registry INTERFACE ${PROJECT_SOURCE_DIR}/platform/registry/include
    )
    message(STATUS "Service registry: embedded")
else()
    set(ORVI_EMBEDDED_REGISTRY OFF)
    target_include_directories(
        orvi_registry SYSTEM INTERFACE ${CppMicroServices_INCLUDE_DIRS}
    )
    target_link_libraries(orvi_registry INTERFACE CppMicroServices)
    message(STATUS "Service registry: CppMicroServices ${CppMicroServices_VERSION}")
endif()
