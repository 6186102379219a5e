# connector_microservices stands for CppMicroServices where it is installed, else for microservices/, which offers the
# part that is used under the same names. Bundles built for one cannot be loaded by the other.
find_package(CppMicroServices 3.8 QUIET)
if(CppMicroServices_FOUND)
    add_library(connector_microservices INTERFACE)
    add_library(ConnectorInterpreter::microservices ALIAS connector_microservices)
    set_target_properties(connector_microservices PROPERTIES EXPORT_NAME microservices)
    target_link_libraries(connector_microservices INTERFACE CppMicroServices)
else()
    add_subdirectory(microservices)
endif()

# Where a host finds bundles, from the folder of the shared libraries: in the build tree as in an installation.
set(NUMORA_BUNDLES_FROM_LIBRARY numora/bundles)

# numora_add_bundle(target NAME name MANIFEST manifest.json SOURCES source... [INSTALL]): a bundle, in the library
# lib<name>.so. `name` is a C identifier and the manifest's bundle.symbolic_name; the manifest is a file of that
# very name in the current folder. INSTALL: it is installed where a host finds it.
function(numora_add_bundle target)
    cmake_parse_arguments(ARG "INSTALL" "NAME;MANIFEST" "SOURCES" ${ARGN})
    set(manifest ${CMAKE_CURRENT_SOURCE_DIR}/${ARG_MANIFEST})
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${manifest})
    file(READ ${manifest} text)
    string(JSON name ERROR_VARIABLE error GET ${text} bundle.symbolic_name)
    if(NOT name STREQUAL ARG_NAME OR NOT ARG_MANIFEST STREQUAL "manifest.json")
        message(FATAL_ERROR "${manifest} is no manifest.json of the bundle ${ARG_NAME}.")
    endif()

    if(CppMicroServices_FOUND)
        usFunctionGetResourceSource(TARGET ${target} OUT ARG_SOURCES LINK)
        usFunctionGenerateBundleInit(TARGET ${target} OUT ARG_SOURCES)
    else()
        set(initialization ${CMAKE_CURRENT_BINARY_DIR}/${target}_init.cpp)
        file(CONFIGURE OUTPUT ${initialization} CONTENT
            "#include <cppmicroservices/BundleInitialization.h>\n\nCPPMICROSERVICES_INITIALIZE_BUNDLE\n")
        list(APPEND ARG_SOURCES ${initialization})
    endif()
    add_library(${target} SHARED ${ARG_SOURCES})
    target_link_libraries(${target} PRIVATE numora_build_flags ConnectorInterpreter::microservices)
    target_compile_definitions(${target} PRIVATE US_BUNDLE_NAME=${ARG_NAME})
    set_target_properties(${target} PROPERTIES
        US_BUNDLE_NAME ${ARG_NAME}
        OUTPUT_NAME ${ARG_NAME}
        LIBRARY_OUTPUT_DIRECTORY ${CMAKE_LIBRARY_OUTPUT_DIRECTORY}/${NUMORA_BUNDLES_FROM_LIBRARY}
        INSTALL_RPATH $ORIGIN/../..)
    if(CppMicroServices_FOUND)
        usFunctionEmbedResources(TARGET ${target} LINK FILES ${ARG_MANIFEST})
    else()
        set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${manifest})
        add_custom_command(TARGET ${target} POST_BUILD COMMAND ${CMAKE_COMMAND} -E copy
            ${manifest} $<TARGET_FILE:${target}>.manifest.json)
    endif()
    if(ARG_INSTALL)
        set(folder ${CMAKE_INSTALL_LIBDIR}/${NUMORA_BUNDLES_FROM_LIBRARY})
        install(TARGETS ${target} LIBRARY DESTINATION ${folder} COMPONENT program)
        if(NOT CppMicroServices_FOUND)
            install(FILES $<TARGET_FILE:${target}>.manifest.json DESTINATION ${folder} COMPONENT program)
        endif()
    endif()
endfunction()
