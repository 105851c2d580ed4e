# Writes the source that holds resources: LIST has a path and a file on two lines for each, ID tells the symbols of one
# source from those of others.
file(STRINGS ${LIST} lines ENCODING UTF-8)
set(bytes "")
set(declarations "")
set(rows "")
set(number 0)

function(quote text result)
  string(REPLACE "\\" "\\\\" text "${text}")
  string(REPLACE "\"" "\\\"" text "${text}")
  set(${result} "${text}" PARENT_SCOPE)
endfunction()

while(lines)
  list(POP_FRONT lines path file)
  set(symbol qv_resource_${ID}_${number})
  math(EXPR number "${number} + 1")
  file(SIZE "${file}" size)
  if(DEFINED ENV{SOURCE_DATE_EPOCH})
    set(time $ENV{SOURCE_DATE_EPOCH})
  else()
    file(TIMESTAMP "${file}" time "%s" UTC)
  endif()
  # Quoted for the assembler, and that for the compiler.
  quote("${file}" included)
  quote(".incbin \"${included}\"\n" included)
  string(REPLACE "\n" "\\n" included "${included}")
  quote("${path}" path)
  string(APPEND bytes "    \".balign 16\\n.globl ${symbol}\\n.hidden ${symbol}\\n${symbol}:\\n${included}.byte 0\\n\"\n")
  string(APPEND declarations "extern \"C\" __attribute__((visibility(\"hidden\"))) const unsigned char ${symbol}[];\n")
  string(APPEND rows "    {\"${path}\", ${symbol}, ${size}u, ${time}},\n")
endwhile()

file(WRITE ${OUTPUT} "// Made by qv_add_resources.
#include \"qv/resource_file_system.h\"

asm(\".pushsection .rodata\\n\"
${bytes}    \".popsection\\n\");

${declarations}
namespace {
const qv::SResource resources[] = {
${rows}};
const qv::CResourceTable table(resources, ${number});
}  // namespace
")
