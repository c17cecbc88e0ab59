# What `cmake --install` gives: the library with its headers, pkg-config file and CMake package,
# the programs, the providers in a folder of their own, the message catalogs in another, and sample
# settings that name them.
# Everything finds the library relative to itself, so the prefix may be moved.
include(CMakePackageConfigHelpers)

set(ZN_INSTALL_DATADIR ${CMAKE_INSTALL_LIBDIR}/znmira)  # the sample's InstallDir
set(ZN_INSTALL_PROVIDERSDIR ${ZN_INSTALL_DATADIR}/providers)
set(ZN_INSTALL_SCHEMASDIR ${CMAKE_INSTALL_DATADIR}/znmira/schemas)
set(ZN_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/znmira)

install(TARGETS znmira EXPORT znmiraTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
# Formalization documents: the type of them all, the service's own, those of the providers.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/schemas/ DESTINATION ${ZN_INSTALL_SCHEMASDIR})
install(FILES ${PROJECT_SOURCE_DIR}/providers/hostinv/hostinv_types.xml
  DESTINATION ${ZN_INSTALL_SCHEMASDIR})
install(FILES ${PROJECT_BINARY_DIR}/include/zn/formalization_dtd.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zn)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/zn DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  FILES_MATCHING PATTERN "*.h")

foreach(program znctl znsvc)
  if(TARGET ${program})
    set_target_properties(${program} PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
    install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  endif()
endforeach()
foreach(provider hostinv example kettle)
  if(TARGET ${provider})
    set_target_properties(${provider} PROPERTIES INSTALL_RPATH "$ORIGIN/../..")
    install(TARGETS ${provider} LIBRARY DESTINATION ${ZN_INSTALL_PROVIDERSDIR})
  endif()
endforeach()

file(GLOB catalogs CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/catalogs/*.txt
  ${PROJECT_SOURCE_DIR}/providers/*/catalogs/*.txt)
install(FILES ${catalogs} DESTINATION ${ZN_INSTALL_DATADIR}/catalogs)

# pkg-config; a module of its own for those who read documents, since it needs the XML library too
file(RELATIVE_PATH ZN_PC_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" ZN_PC_PREFIX "${ZN_PC_PREFIX}")
foreach(module znmira znmira-formalization)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/${module}.pc.in ${PROJECT_BINARY_DIR}/${module}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${module}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()

# find_package(znmira)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/znmiraConfig.cmake.in
  ${PROJECT_BINARY_DIR}/znmiraConfig.cmake INSTALL_DESTINATION ${ZN_INSTALL_CMAKEDIR}
  PATH_VARS ZN_INSTALL_PROVIDERSDIR ZN_INSTALL_SCHEMASDIR)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/znmiraConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/znmiraConfig.cmake
  ${PROJECT_BINARY_DIR}/znmiraConfigVersion.cmake DESTINATION ${ZN_INSTALL_CMAKEDIR})
install(EXPORT znmiraTargets NAMESPACE znmira:: DESTINATION ${ZN_INSTALL_CMAKEDIR})

# The sample settings are made at install time, when the prefix is known for certain.
install(CODE "
  set(installDir \"\${CMAKE_INSTALL_PREFIX}/${ZN_INSTALL_DATADIR}\")
  set(schemasDir \"\${CMAKE_INSTALL_PREFIX}/${ZN_INSTALL_SCHEMASDIR}\")
  configure_file(\"${CMAKE_CURRENT_LIST_DIR}/settings.toml.in\"
    \"${PROJECT_BINARY_DIR}/settings.toml\" @ONLY)
  file(INSTALL \"${PROJECT_BINARY_DIR}/settings.toml\"
    DESTINATION \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_DATADIR}/znmira\")")

# What a host needs to run the service: unit, logon rules, folders, and an example of access lists.
# Below the prefix all of it is found by the host's own tools when the prefix is /usr.
set(ZN_DIST ${PROJECT_SOURCE_DIR}/programs/znsvc/dist)
install(FILES ${ZN_DIST}/znsvc.pam DESTINATION lib/pam.d RENAME znsvc)
install(FILES ${ZN_DIST}/access.example.toml DESTINATION ${CMAKE_INSTALL_DATADIR}/znmira)
install(FILES ${PROJECT_SOURCE_DIR}/docs/znsvc.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(CODE "
  set(binDir \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}\")
  set(docDir \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_DOCDIR}\")
  set(installDir \"\${CMAKE_INSTALL_PREFIX}/${ZN_INSTALL_DATADIR}\")
  foreach(file systemd/system/znsvc.service tmpfiles.d/znsvc.conf)
    get_filename_component(name \"\${file}\" NAME)
    get_filename_component(folder \"\${file}\" DIRECTORY)
    string(REPLACE \".conf\" \".tmpfiles\" source \"\${name}\")
    configure_file(\"${ZN_DIST}/\${source}.in\" \"${PROJECT_BINARY_DIR}/\${name}\" @ONLY)
    file(INSTALL \"${PROJECT_BINARY_DIR}/\${name}\" DESTINATION \"\${CMAKE_INSTALL_PREFIX}/lib/\${folder}\")
  endforeach()")
