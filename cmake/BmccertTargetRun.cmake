# The command that runs an executable target of this build. A cross build
# runs it through CMAKE_CROSSCOMPILING_EMULATOR; since the sandbox and the
# test scripts take the program as an argument, the emulator is wrapped in
# a launcher script of the target's name under run/.
function(bmccert_target_run out target)
  if(NOT CMAKE_CROSSCOMPILING_EMULATOR)
    set(${out} $<TARGET_FILE:${target}> PARENT_SCOPE)
    return()
  endif()
  set(launcher ${PROJECT_BINARY_DIR}/run/${target})
  set(${out} ${launcher} PARENT_SCOPE)
  get_property(made GLOBAL PROPERTY BMCCERT_LAUNCHERS)
  if(target IN_LIST made)
    return()
  endif()
  set_property(GLOBAL APPEND PROPERTY BMCCERT_LAUNCHERS ${target})
  list(JOIN CMAKE_CROSSCOMPILING_EMULATOR "\" \"" emulator)
  file(GENERATE OUTPUT ${launcher}
    CONTENT "#!/bin/sh\nexec \"${emulator}\" \"$<TARGET_FILE:${target}>\" \"$@\"\n"
    FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
                     WORLD_READ WORLD_EXECUTE)
endfunction()
