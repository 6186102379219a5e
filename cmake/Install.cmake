# `cmake --install`: headers, libraries, the CMake package ConnectorInterpreter and the program.
include(CMakePackageConfigHelpers)

set(NUMORA_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/ConnectorInterpreter)

foreach(component foundation microservices host messages dispatch link supervisor interpreter standalone gateway)
    get_target_property(target ConnectorInterpreter::${component} ALIASED_TARGET)
    install(TARGETS ${target} EXPORT ConnectorInterpreterTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
endforeach()
install(EXPORT ConnectorInterpreterTargets
    NAMESPACE ConnectorInterpreter:: DESTINATION ${NUMORA_PACKAGE_DIR})

install(DIRECTORY foundation/include/ host/include/ include/ messages/include/ standalone/include/ gateway/include/
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
if(NOT CppMicroServices_FOUND)
    install(DIRECTORY microservices/include/
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
endif()
install(TARGETS numora RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

configure_package_config_file(
    cmake/ConnectorInterpreterConfig.cmake.in ${PROJECT_BINARY_DIR}/ConnectorInterpreterConfig.cmake
    INSTALL_DESTINATION ${NUMORA_PACKAGE_DIR} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(
    ${PROJECT_BINARY_DIR}/ConnectorInterpreterConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/ConnectorInterpreterConfig.cmake
    ${PROJECT_BINARY_DIR}/ConnectorInterpreterConfigVersion.cmake
    DESTINATION ${NUMORA_PACKAGE_DIR})
