# Makes corvane-net(1) with help2man from the command's own --help and
# --version, adding a COMMANDS section made of each command's --help, so that
# the page says what the options declared in the code say.
# Usage: cmake -DTOOL=... -DHELP2MAN=... -DOUTPUT=... -P ManPage.cmake
execute_process(COMMAND ${TOOL} --help OUTPUT_VARIABLE help RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "${TOOL} --help failed: ${status}")
endif()
# The commands are the indented names under "Commands:".
string(REGEX REPLACE ".*\nCommands:\n" "" listing "${help}")
string(REGEX MATCHALL "(^|\n)  [a-z][a-z-]*" names "${listing}")
set(include "[COMMANDS]\n")
foreach(name ${names})
  string(STRIP "${name}" name)
  execute_process(COMMAND ${TOOL} ${name} --help OUTPUT_VARIABLE text RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${TOOL} ${name} --help failed: ${status}")
  endif()
  # Shown as it is: backslashes escaped, no line read as a request.
  string(REPLACE "\\" "\\e" text "${text}")
  string(REGEX REPLACE "(^|\n)([.'])" "\\1\\\\&\\2" text "${text}")
  string(APPEND include ".SS ${name}\n.nf\n${text}.fi\n")
endforeach()
get_filename_component(dir "${OUTPUT}" DIRECTORY)
file(WRITE "${dir}/corvane-net.h2m" "${include}")
execute_process(COMMAND ${HELP2MAN} --no-info --no-discard-stderr
                        --name "the command-line front end of the corvane-net network library"
                        --include "${dir}/corvane-net.h2m" --output "${OUTPUT}" ${TOOL}
                RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "help2man failed: ${status}")
endif()
