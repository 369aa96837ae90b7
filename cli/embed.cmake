# Turns a text file into a C++ source defining one string: the reference
# page compiled into picturehost for its help. Run with -DIN=, -DOUT=, -DNAME=.
file(READ "${IN}" content)
set(delimiter "PHDOC")
string(FIND "${content}" ")${delimiter}\"" clash)
if(NOT clash EQUAL -1)
  message(FATAL_ERROR "${IN} contains the raw string delimiter )${delimiter}\"")
endif()
file(WRITE "${OUT}.new" "// Generated from ${IN}; do not edit.\nnamespace ph {\nextern const char ${NAME}[];\nconst char ${NAME}[] = R\"${delimiter}(${content})${delimiter}\";\n}  // namespace ph\n")
file(COPY_FILE "${OUT}.new" "${OUT}" ONLY_IF_DIFFERENT)
file(REMOVE "${OUT}.new")
