# A layer is one object library that sees its own headers and those of the layers under it, so an
# include that points upwards does not compile. Sources include by path from src/
# ("support/common/sync.h"); each layer has an include root that holds nothing but itself.
function(zn_add_layer name)
  cmake_parse_arguments(LAYER "" "EXCLUDE" "USES" ${ARGN})
  set(root ${CMAKE_BINARY_DIR}/include_roots/${name})
  file(MAKE_DIRECTORY ${root})
  file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR}/${name} ${root}/${name} SYMBOLIC)
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${name}/*.cpp)
  if(LAYER_EXCLUDE)  # folders of the layer that are compiled in a way of their own
    list(FILTER sources EXCLUDE REGEX "${LAYER_EXCLUDE}")
  endif()
  if(NOT sources)  # a layer that has only headers yet
    file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/empty_${name}.cpp CONTENT "")
    list(APPEND sources ${CMAKE_BINARY_DIR}/empty_${name}.cpp)
  endif()
  add_library(zn_${name} OBJECT ${sources})
  target_include_directories(zn_${name} PUBLIC ${root} ${PROJECT_SOURCE_DIR}/include)
  # An export whose header is not included would be compiled as another function.
  set_target_properties(zn_${name} PROPERTIES ZN_LAYER ON)
  target_link_libraries(zn_${name} PRIVATE zn_warnings PUBLIC Threads::Threads)
  foreach(lower IN LISTS LAYER_USES)
    target_include_directories(zn_${name} PUBLIC
      $<TARGET_PROPERTY:zn_${lower},INTERFACE_INCLUDE_DIRECTORIES>)
  endforeach()
endfunction()
