# Fails unless LIBRARY exports only names of namespace kel, with their type information, that a header
# in HEADERS declares. Fails also unless LIBRARY has the type information of every interface, and
# CONSUMER, a library that uses them, has none. NM is the program that lists names.

execute_process(COMMAND ${NM} -D --defined-only -C ${LIBRARY}
  OUTPUT_VARIABLE listing COMMAND_ERROR_IS_FATAL ANY)

set(surface "")
file(GLOB headers ${HEADERS}/*.h)
foreach(header IN LISTS headers)
  file(READ ${header} text)
  string(APPEND surface "${text}")
endforeach()

string(REPLACE ";" " " listing "${listing}")
string(STRIP "${listing}" lines)
string(REPLACE "\n" ";" lines "${lines}")
list(LENGTH lines count)
if(count LESS 100)
  message(FATAL_ERROR "only ${count} names are exported:\n${listing}")
endif()

set(strangers "")
foreach(line IN LISTS lines)
  string(REGEX REPLACE "^[0-9a-f]+ [A-Za-z] " "" name "${line}")
  string(REGEX REPLACE
    "^(vtable for|typeinfo for|typeinfo name for|VTT for|construction vtable for|virtual thunk to|non-virtual thunk to|guard variable for) "
    "" name "${name}")
  if(name MATCHES "^kel::(detail::)?([A-Za-z_0-9]+)" AND NOT name MATCHES "anonymous")
    set(word "${CMAKE_MATCH_2}")
    if(surface MATCHES "[^A-Za-z_0-9]${word}[^A-Za-z_0-9]")
      continue()
    endif()
  endif()
  string(APPEND strangers "${line}\n")
endforeach()
if(strangers)
  message(FATAL_ERROR "exported in addition to the public surface:\n${strangers}")
endif()

file(GLOB interfaces RELATIVE ${HEADERS} ${HEADERS}/I*.h)
list(TRANSFORM interfaces REPLACE "\\.h$" "")
list(APPEND interfaces ILoggerWriter IMilestone IElementFactory IParametersCollectionPrototype
  IParametersCollectionInstance)
execute_process(COMMAND ${NM} --defined-only -C ${CONSUMER}
  OUTPUT_VARIABLE consumer COMMAND_ERROR_IS_FATAL ANY)
foreach(interface IN LISTS interfaces)
  if(NOT listing MATCHES " typeinfo for kel::${interface}\n")
    message(FATAL_ERROR "${LIBRARY} has no type information of kel::${interface}")
  endif()
  if(consumer MATCHES " typeinfo for kel::${interface}\n")
    message(FATAL_ERROR "${CONSUMER} has its own type information of kel::${interface}")
  endif()
endforeach()
