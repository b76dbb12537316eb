# Which platform libraries the library links: the workstation stand-in
# (host) or the controller's own libraries from the sysroot (system). Both
# are reached through the target bmcplatform.
set(BMCCERT_PLATFORM host CACHE STRING
  "Platform libraries: host (the workstation stand-in) or system (the controller's)")
set_property(CACHE BMCCERT_PLATFORM PROPERTY STRINGS host system)
set(BMCCERT_PLATFORM_LIBS
  bmcpub cfgm userlocal userauthority filehandle hw_desc operatelog taskservice
  CACHE STRING "The controller's platform libraries, by name, for BMCCERT_PLATFORM=system")

if(BMCCERT_PLATFORM STREQUAL "host")
  add_subdirectory(platform)
elseif(BMCCERT_PLATFORM STREQUAL "system")
  add_library(bmcplatform INTERFACE)
  foreach(name IN LISTS BMCCERT_PLATFORM_LIBS)
    string(MAKE_C_IDENTIFIER "BMCCERT_LIB_${name}" var)
    find_library(${var} NAMES ${name})
    if(NOT ${var})
      message(FATAL_ERROR "BMCCERT_PLATFORM=system: platform library lib${name} not found "
        "(searched the sysroot and CMAKE_PREFIX_PATH; the list is BMCCERT_PLATFORM_LIBS)")
    endif()
    target_link_libraries(bmcplatform INTERFACE ${${var}})
  endforeach()
  # The sandbox and the tests run against the stand-in's state files; of
  # the tools a controller build has bmccert alone (BMCCERT_TOOLS).
  foreach(part BMCCERT_TESTS BMCCERT_BENCH)
    if(${part})
      message(STATUS "${part} is off with BMCCERT_PLATFORM=system: it needs the host stand-in")
      set(${part} OFF CACHE BOOL "" FORCE)
    endif()
  endforeach()
else()
  message(FATAL_ERROR "BMCCERT_PLATFORM must be host or system, not '${BMCCERT_PLATFORM}'")
endif()
