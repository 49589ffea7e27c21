# Fails unless kelCore.h in HEADERS includes every other header there, and nothing else.

file(READ ${HEADERS}/kelCore.h umbrella)
string(REGEX MATCHALL "\n#include [^\n]*" included "${umbrella}")
list(TRANSFORM included STRIP)

file(GLOB headers RELATIVE ${HEADERS} ${HEADERS}/*)
list(REMOVE_ITEM headers kelCore.h)
list(TRANSFORM headers REPLACE "(.+)" "#include \"\\1\"")

list(LENGTH headers count)
if(count EQUAL 0)
  message(FATAL_ERROR "there are no headers in ${HEADERS}")
endif()

set(missing ${headers})
list(REMOVE_ITEM missing ${included})
set(unknown ${included})
list(REMOVE_ITEM unknown ${headers})
if(missing OR unknown)
  message(FATAL_ERROR "kelCore.h lacks: ${missing}; and has: ${unknown}")
endif()
