# Fails when LIBRARY holds a fused multiply-add: it rounds once where the arithmetic of the library rounds twice. The
# compilers make one wherever the target has it, so this looks at the code itself. OBJDUMP is the disassembler.
execute_process(
  COMMAND ${OBJDUMP} --disassemble --no-show-raw-insn ${LIBRARY}
  COMMAND awk "/vfn?m(add|sub)/ { if (++found <= 10) print } END { print NR, found + 0 }"
  OUTPUT_VARIABLE output RESULTS_VARIABLE results ERROR_VARIABLE error OUTPUT_STRIP_TRAILING_WHITESPACE)
string(REGEX MATCH "([0-9]+) ([0-9]+)$" summary "${output}")
set(lines ${CMAKE_MATCH_1})
set(found ${CMAKE_MATCH_2})
if(found)
  message(FATAL_ERROR "fused multiply-adds in ${LIBRARY}: ${output}")
endif()
if(NOT results STREQUAL "0;0" OR NOT lines OR lines LESS 100)
  message(FATAL_ERROR "cannot disassemble ${LIBRARY}: ${results} ${error}")
endif()
message(STATUS "${lines} lines, no fused multiply-add")
