# `cmake --install`: headers, libraries, the CMake package ConnectorInterpreter and the program, as the packages that
# cmake/Packages.cmake makes of them have them.
include(CMakePackageConfigHelpers)

set(NUMORA_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/ConnectorInterpreter)

# numora_install_component(name target...): the component of the CMake package, and the targets that it consists of.
function(numora_install_component name)
    foreach(target IN LISTS ARGN)
        get_target_property(target ConnectorInterpreter::${target} ALIASED_TARGET)
        install(TARGETS ${target} EXPORT ConnectorInterpreter-${name}
            LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT program NAMELINK_COMPONENT development
            ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
    endforeach()
    install(EXPORT ConnectorInterpreter-${name}
        NAMESPACE ConnectorInterpreter:: DESTINATION ${NUMORA_PACKAGE_DIR} COMPONENT development)
endfunction()

numora_install_component(foundation foundation)
numora_install_component(microservices microservices)
numora_install_component(host host)
numora_install_component(messages messages)
numora_install_component(interpreter interpreter)
numora_install_component(standalone standalone)
numora_install_component(gateway gateway dispatch supervisor link jupyter jupyter_wire)

# Without what this project's own folders alone use of each other.
install(DIRECTORY foundation/include/ host/include/ include/ messages/include/ standalone/include/ gateway/include/
    DESTINATION ${NUMORA_INSTALL_INCLUDEDIR} COMPONENT development FILES_MATCHING PATTERN "*.h"
    PATTERN messages/ChannelTable.h EXCLUDE
    PATTERN messages/HandlerGate.h EXCLUDE
    PATTERN messages/Token.h EXCLUDE
    PATTERN messages/channelNames.h EXCLUDE
    PATTERN gateway/workers.h EXCLUDE)
if(NOT CppMicroServices_FOUND)
    install(DIRECTORY microservices/include/
        DESTINATION ${NUMORA_INSTALL_INCLUDEDIR} COMPONENT development FILES_MATCHING PATTERN "*.h")
endif()
install(TARGETS numora RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT program)
set(NUMORA_PYTHON_CLIENT_DIR ${CMAKE_INSTALL_DATADIR}/numora/python CACHE STRING
    "Where the Python client is installed: the default, where the program looks first, or a folder of Python's own path")
install(DIRECTORY clients/python/numora_client DESTINATION ${NUMORA_PYTHON_CLIENT_DIR} COMPONENT python_client
    FILES_MATCHING PATTERN "*.py" PATTERN py.typed PATTERN __pycache__ EXCLUDE)

configure_package_config_file(
    cmake/ConnectorInterpreterConfig.cmake.in ${PROJECT_BINARY_DIR}/ConnectorInterpreterConfig.cmake
    INSTALL_DESTINATION ${NUMORA_PACKAGE_DIR} NO_SET_AND_CHECK_MACRO NO_CHECK_REQUIRED_COMPONENTS_MACRO)
write_basic_package_version_file(
    ${PROJECT_BINARY_DIR}/ConnectorInterpreterConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/ConnectorInterpreterConfig.cmake
    ${PROJECT_BINARY_DIR}/ConnectorInterpreterConfigVersion.cmake
    DESTINATION ${NUMORA_PACKAGE_DIR} COMPONENT development)
