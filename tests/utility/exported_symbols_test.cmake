# cmake -DNM=nm -DLIBRARY=<libmgmt.so> -DEXPECTED=<list> -P exported_symbols_test.cmake
#
# Fails unless the library exports exactly the listed names: its classes, their virtual tables and type
# information, and its free functions.
cmake_minimum_required(VERSION 3.25)

execute_process(COMMAND ${NM} -D --defined-only -C ${LIBRARY}
    OUTPUT_VARIABLE output RESULT_VARIABLE result)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "${NM} ${LIBRARY}: ${result}")
endif()

string(REGEX MATCHALL "[^\n]+" lines "${output}")
set(exported "")
foreach(line IN LISTS lines)
    string(REGEX REPLACE "^[0-9a-f]+ [A-Za-z] " "" name "${line}")
    list(APPEND exported "${name}")
endforeach()
list(REMOVE_DUPLICATES exported)
file(STRINGS ${EXPECTED} expected)

set(unexpected ${exported})
list(REMOVE_ITEM unexpected ${expected})
set(missing ${expected})
list(REMOVE_ITEM missing ${exported})

if(unexpected OR missing)
    list(JOIN unexpected "\n  " unexpected)
    list(JOIN missing "\n  " missing)
    message(FATAL_ERROR "Exported, but not listed:\n  ${unexpected}\nListed, but not exported:\n  ${missing}")
endif()
