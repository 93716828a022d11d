# What every target of the project is built with, and the three functions that make targets.

add_library(orx_build_flags INTERFACE)
target_compile_features(orx_build_flags INTERFACE cxx_std_20)
target_compile_options(orx_build_flags INTERFACE
  "$<$<COMPILE_LANGUAGE:C,CXX>:-Wall;-Wextra;-Wpedantic;-Wshadow;-Wconversion;-Wno-sign-conversion;-Wcast-qual;-Werror>"
  "$<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast;-Wnon-virtual-dtor;-Woverloaded-virtual;-Wzero-as-null-pointer-constant;-Wredundant-decls>"
  "$<$<COMPILE_LANGUAGE:Fortran>:-Wall;-Wextra;-Werror>"
  # Results are the same bits on every instruction set: no fused multiply-add unless a source asks for it.
  -ffp-contract=off
  # Short loops over arrays lose up to a third of their speed when they happen to straddle a cache line.
  "$<$<COMPILE_LANGUAGE:C,CXX>:-falign-loops=64>"
  # __FILE__ and debug information name files from the root of the project, whatever machine built them.
  -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)
target_include_directories(orx_build_flags INTERFACE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/platform)

if(ORX_SANITIZE)
  target_compile_options(orx_build_flags INTERFACE -fsanitize=address,undefined -fno-sanitize-recover=all
                                                   -fno-omit-frame-pointer)
  target_link_options(orx_build_flags INTERFACE -fsanitize=address,undefined)
endif()

# Lint while compiling, so that only what changed is looked at again.
if(ORX_LINT)
  find_program(ORX_CLANG_TIDY clang-tidy REQUIRED)
  # clang does not know all of g++'s options.
  set(orx_lint_command ${ORX_CLANG_TIDY} --quiet --extra-arg=-Wno-unknown-warning-option)
endif()

# orx_object_library(NAME SOURCES...): sources compiled once, for the shared library and for the unit tests,
# which so reach symbols that the shared library hides.
function(orx_object_library name)
  add_library(${name} OBJECT ${ARGN})
  target_link_libraries(${name} PRIVATE orx_build_flags)
  set_target_properties(${name} PROPERTIES
    POSITION_INDEPENDENT_CODE ON
    CXX_CLANG_TIDY "${orx_lint_command}"
    C_VISIBILITY_PRESET hidden CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
endfunction()

# orx_shared_library(NAME EXPORTED_NAME OBJECT_LIBRARIES...): liborx_<...>.so, known to users as ORX::<EXPORTED_NAME>.
function(orx_shared_library name exported_name)
  add_library(${name} SHARED)
  foreach(objects IN LISTS ARGN)
    target_sources(${name} PRIVATE $<TARGET_OBJECTS:${objects}>)
  endforeach()
  add_library(ORX::${exported_name} ALIAS ${name})
  set_target_properties(${name} PROPERTIES
    EXPORT_NAME ${exported_name} VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
    LINKER_LANGUAGE CXX LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/exports.map
    BUILD_RPATH_USE_ORIGIN ON INSTALL_RPATH "$ORIGIN")
  target_link_options(${name} PRIVATE -Wl,--version-script=${PROJECT_SOURCE_DIR}/cmake/exports.map
                                      -Wl,--no-undefined -Wl,--gc-sections)
  if(ORX_SANITIZE)
    target_link_options(${name} PRIVATE -fsanitize=address,undefined -Wl,-z,undefs)
  endif()
  target_compile_features(${name} INTERFACE cxx_std_20)
  target_include_directories(${name} INTERFACE
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}> $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/platform>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/orx>)
endfunction()

# orx_program(NAME SOURCES...): an executable on the shared libraries, as a user's own program would be.
function(orx_program name)
  add_executable(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE orx_build_flags)
  set_target_properties(${name} PROPERTIES
    CXX_CLANG_TIDY "${orx_lint_command}"
    BUILD_RPATH_USE_ORIGIN ON INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
endfunction()
