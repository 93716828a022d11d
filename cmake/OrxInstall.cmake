include(CMakePackageConfigHelpers)

install(TARGETS orx_core orx_sim orx_linear_algebra orx_solve orx_host orx_fortran EXPORT orx_targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY platform/core platform/sim blac mtx module solve DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/orx
        FILES_MATCHING PATTERN "*.h" PATTERN impl EXCLUDE PATTERN sparse EXCLUDE PATTERN layouts EXCLUDE)
install(FILES host/orx_linear_algebra.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/orx)
install(FILES ${PROJECT_BINARY_DIR}/fortran/orx_linear_algebra.f90
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/orx/fortran)
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})

# The notices of all whose code our binaries hold go where the binaries go, as their licences ask.
set(ORX_LICENCE_FOLDER /usr/share/doc CACHE PATH "Folder that has PACKAGE/copyright of the Debian packages we link")
function(orx_install_licence name package)
  set(notice ${ORX_LICENCE_FOLDER}/${package}/copyright)
  if(NOT EXISTS ${notice})
    message(FATAL_ERROR "${notice} not found: the licence of ${name}, which is installed with the libraries that hold "
                        "its code. Install the Debian package ${package}, or set ORX_LICENCE_FOLDER.")
  endif()
  configure_file(${notice} ${PROJECT_BINARY_DIR}/licences/${name}.txt COPYONLY)
  install(FILES ${PROJECT_BINARY_DIR}/licences/${name}.txt DESTINATION ${CMAKE_INSTALL_DOCDIR}/licences)
endfunction()
orx_install_licence(OpenBLAS libopenblas-serial-dev)
orx_install_licence(LAPACK liblapack3)
orx_install_licence(BLIS libblis-serial-dev)
orx_install_licence(MUMPS libmumps-seq-dev)
orx_install_licence(SCOTCH libscotch-dev)
orx_install_licence(CLI11 libcli11-dev)

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/orx_linear_algebra)
install(EXPORT orx_targets NAMESPACE ORX:: DESTINATION ${package_folder} FILE orx_linear_algebra-targets.cmake)
file(WRITE ${PROJECT_BINARY_DIR}/orx_linear_algebra-config.cmake
     "include(\"\${CMAKE_CURRENT_LIST_DIR}/orx_linear_algebra-targets.cmake\")\n")
write_basic_package_version_file(${PROJECT_BINARY_DIR}/orx_linear_algebra-config-version.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/orx_linear_algebra-config.cmake
              ${PROJECT_BINARY_DIR}/orx_linear_algebra-config-version.cmake DESTINATION ${package_folder})

# orx_linear_algebra is for hosts in C++, orx_solve for those that factorize too, orx_host for hosts in C and Fortran.
foreach(package orx_linear_algebra orx_solve orx_host)
  configure_file(cmake/${package}.pc.in ${PROJECT_BINARY_DIR}/${package}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${package}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
