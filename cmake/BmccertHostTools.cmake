# Tools that drive the tests on the build machine itself (the sandbox).
# A cross build cannot run what it compiles, so it takes them from a build
# for the build machine, named by BMCCERT_HOST_TOOLS_DIR, as imported
# targets of the same names: $<TARGET_FILE:bmc-sandbox> works either way.
# A native build may take them from there too, rather than build them again.
set(BMCCERT_HOST_TOOLS_DIR "" CACHE PATH
  "Directory with the tools built for this machine (bmc-sandbox, bmc-sim, cert-login); needed by cross builds")

function(bmccert_host_tool name)
  if(NOT CMAKE_CROSSCOMPILING AND NOT BMCCERT_HOST_TOOLS_DIR)
    add_subdirectory(${name})
    return()
  endif()
  set(location ${BMCCERT_HOST_TOOLS_DIR}/${name})
  if(NOT EXISTS ${location})
    message(FATAL_ERROR "cross build: ${location} missing; build ${name} for this machine "
      "first and set BMCCERT_HOST_TOOLS_DIR to its directory")
  endif()
  add_executable(${name} IMPORTED GLOBAL)
  set_target_properties(${name} PROPERTIES IMPORTED_LOCATION ${location})
endfunction()
