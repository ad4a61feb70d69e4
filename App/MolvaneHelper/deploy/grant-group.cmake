# Makes the installed client setgid to the group that may connect. Runs inside `cmake --install`, with client set. A
# staged or unprivileged installation, or one without the group, leaves that to whoever finishes it.

execute_process(COMMAND id -u OUTPUT_VARIABLE uid OUTPUT_STRIP_TRAILING_WHITESPACE)
if("$ENV{DESTDIR}" STREQUAL "" AND uid STREQUAL "0")
  execute_process(COMMAND chgrp _molvane "${client}" RESULT_VARIABLE refused OUTPUT_QUIET ERROR_QUIET)
  if(refused EQUAL 0)
    execute_process(COMMAND chmod 2755 "${client}" COMMAND_ERROR_IS_FATAL ANY)
    return()
  endif()
endif()
message(STATUS "To finish: systemd-sysusers; chgrp _molvane ${client}; chmod 2755 ${client}")
