# `cpack --preset packages`: Debian packages of what cmake/Install.cmake installs.
set(folder ${PROJECT_SOURCE_DIR}/packaging)
set(made ${PROJECT_BINARY_DIR}/packaging)

install(FILES ${folder}/numora.service DESTINATION /lib/systemd/system COMPONENT program)
install(FILES ${folder}/numora.toml DESTINATION /etc/numora COMPONENT program)
install(FILES ${folder}/README.Debian DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/numora COMPONENT program)

# What every package has.
configure_file(${folder}/changelog.in ${made}/changelog)
execute_process(COMMAND gzip -9nf ${made}/changelog COMMAND_ERROR_IS_FATAL ANY)
foreach(names "program numora" "development libnumora-connector-dev" "python_client python3-numora-client")
    string(REPLACE " " ";" names ${names})
    list(GET names 0 component)
    list(GET names 1 package)
    install(FILES ${folder}/copyright ${made}/changelog.gz
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component})
    string(TOUPPER ${component} component)
    set(CPACK_DEBIAN_${component}_PACKAGE_NAME ${package})
    file(READ ${folder}/${package}.txt text)
    string(STRIP ${text} CPACK_COMPONENT_${component}_DESCRIPTION)
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL program development python_client)
set(CPACK_SET_DESTDIR ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PACKAGE_CONTACT "Numora Connector developers <developers@numora.invalid>")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(version ${PROJECT_VERSION})

set(CPACK_DEBIAN_PROGRAM_PACKAGE_SECTION science)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_DEPENDS "python3.11, python3-numpy, python3-numora-client (= ${version})")
set(CPACK_DEBIAN_PROGRAM_PACKAGE_RECOMMENDS "python3-prompt-toolkit, python3-pygments")
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SUGGESTS "jupyter-console, jupyter-notebook, python3-matplotlib")
set(CPACK_DEBIAN_PROGRAM_PACKAGE_CONTROL_EXTRA
    ${folder}/numora/conffiles ${folder}/numora/triggers
    ${folder}/numora/postinst ${folder}/numora/prerm ${folder}/numora/postrm)

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "numora (= ${version}), libpoco-dev, libboost-dev, libsqlite3-dev, libssl-dev, libpython3.11-dev, python3.11")

set(CPACK_DEBIAN_PYTHON_CLIENT_PACKAGE_SECTION python)
set(CPACK_DEBIAN_PYTHON_CLIENT_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PYTHON_CLIENT_PACKAGE_DEPENDS "python3 (>= 3.10), python3-websockets (>= 10)")
set(CPACK_DEBIAN_PYTHON_CLIENT_PACKAGE_CONTROL_EXTRA
    ${folder}/python3-numora-client/postinst ${folder}/python3-numora-client/prerm)

include(CPack)
