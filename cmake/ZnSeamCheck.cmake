# Compiles the common folders of every layer for a 32-bit Windows, without linking: a platform header
# that slipped in, a missing seam or a 64-bit assumption fails here. Files that include Xerces-C or
# OpenSSL are left out, since Debian has neither for that target.
set(seam_sources)
foreach(layer support framework ucl service clientsvc)
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/${layer}/common/*.cpp)
  foreach(source IN LISTS sources)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${source})
    file(STRINGS ${source} foreign REGEX "^#include <(xercesc|openssl)/" LIMIT_COUNT 1)
    if(NOT foreign)
      list(APPEND seam_sources ${source})
    endif()
  endforeach()
endforeach()

# toml++ is headers only; it is reached by a link of its own, not through /usr/include, where the
# headers of this host's C library lie.
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/foreign)
file(CREATE_LINK /usr/include/toml++ ${CMAKE_BINARY_DIR}/foreign/toml++ SYMBOLIC)

if(seam_sources)
  add_library(zn_seam OBJECT ${seam_sources})
  target_include_directories(zn_seam PRIVATE ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/include)
  target_include_directories(zn_seam SYSTEM PRIVATE ${CMAKE_BINARY_DIR}/foreign)
  target_link_libraries(zn_seam PRIVATE zn_warnings)
endif()
