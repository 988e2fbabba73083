# Writes a C++ header holding the bytes of a file as an array:
#   cmake -DINPUT=page.html -DOUTPUT=page.h -DNAME=kPage -P embed_file.cmake
file(READ "${INPUT}" hex HEX)
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
# Line breaks every 16 bytes keep the header readable by compilers and editors.
string(REGEX REPLACE "((0x[0-9a-f][0-9a-f],){16})" "\\1\n" bytes "${bytes}")
get_filename_component(source_name "${INPUT}" NAME)
file(WRITE "${OUTPUT}.tmp"
  "// Generated at build time from ${source_name}; do not edit.\n"
  "#pragma once\n"
  "namespace pbtool {\n"
  "inline constexpr unsigned char ${NAME}[] = {\n${bytes}\n};\n"
  "}  // namespace pbtool\n")
file(COPY_FILE "${OUTPUT}.tmp" "${OUTPUT}" ONLY_IF_DIFFERENT)
file(REMOVE "${OUTPUT}.tmp")
