# One interface target carries what every target of this project is compiled with.
add_library(numora_build_flags INTERFACE)
target_compile_options(numora_build_flags INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Werror
    # GCC 12 warns of overlapping copies in the concatenation of std::string, where there are none.
    $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>
    $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>)
if(NUMORA_SANITIZER)
    target_compile_options(numora_build_flags INTERFACE
        -fsanitize=${NUMORA_SANITIZER} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    target_link_options(numora_build_flags INTERFACE -fsanitize=${NUMORA_SANITIZER})
    # GCC 12 sees uninitialised and overflowing accesses in instrumented library code that are not there.
    target_compile_options(numora_build_flags INTERFACE
        $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized;-Wno-tsan>)
endif()

# numora_add_component(target TYPE alias source...): a library of this project with its usual properties.
# Public headers are those in the folder's include/.
function(numora_add_component target type alias)
    add_library(${target} ${type} ${ARGN})
    add_library(ConnectorInterpreter::${alias} ALIAS ${target})
    target_link_libraries(${target} PRIVATE $<BUILD_INTERFACE:numora_build_flags>)
    set_target_properties(${target} PROPERTIES
        EXPORT_NAME ${alias}
        # As the version file of the package: what is of another minor version is something else.
        VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
    target_compile_features(${target} PUBLIC cxx_std_20)
    if(NOT NUMORA_INCLUDE_DIR)
        set(NUMORA_INCLUDE_DIR ${CMAKE_CURRENT_SOURCE_DIR}/include)
    endif()
    target_include_directories(${target} PUBLIC
        $<BUILD_INTERFACE:${NUMORA_INCLUDE_DIR}> $<INSTALL_INTERFACE:${NUMORA_INSTALL_INCLUDEDIR}>)
endfunction()
