# cmake -DSOURCE_DIR=<root> -P check_includes.cmake
#
# Who may include whom. A rule names a folder and the folders whose headers its files may include; a
# folder's own headers are always allowed. Includes of the platform's published header names (<oleauto.h>,
# <wbemidl.h>, ...) count as includes of the platform folder that supplies them. External libraries that
# belong to one folder are listed behind the rules.
cmake_minimum_required(VERSION 3.25)

set(rules
    "platform/system:"
    "platform/com:platform/system,platform/automation"
    "platform/automation:platform/system,platform/com"
    "platform/wbem:platform/system,platform/com,platform/automation"
    "utility/common:platform"
    "utility/management:utility/common,platform"
    "service/model:platform/system/winerror.h,platform/wbem/wbemstatus.h"
    "service/language:service/model,platform/system/winerror.h,platform/wbem/wbemstatus.h"
    "service/store:service/model,platform/system/winerror.h,platform/wbem/wbemstatus.h"
    "service/notify:service/model,service/language,service/store,platform/system/winerror.h,platform/wbem/wbemstatus.h"
    "service/com:service/model,service/language,service/store,service/notify,platform"
    "tools/mgmtctl:utility,platform"
    "examples:utility,platform")

set(library_owners
    "lmdb\\.h:service/store"
    "libxml/.*:service/language"
    "spdlog/.*:utility/common"
    "utf8proc\\.h:service/model"
    "CLI/.*:tools/mgmtctl"
    "nlohmann/.*:tools/mgmtctl")

file(GLOB_RECURSE platform_headers RELATIVE ${SOURCE_DIR} ${SOURCE_DIR}/platform/*.h)
set(failures "")

function(fail message)
    set(failures "${failures}  ${message}\n" PARENT_SCOPE)
endfunction()

foreach(rule IN LISTS rules)
    string(REGEX MATCH "^([^:]*):(.*)$" _ "${rule}")
    set(folder "${CMAKE_MATCH_1}")
    string(REPLACE "," ";" allowed "${CMAKE_MATCH_2}")
    list(APPEND allowed "${folder}")
    file(GLOB_RECURSE sources RELATIVE ${SOURCE_DIR} ${SOURCE_DIR}/${folder}/*.h ${SOURCE_DIR}/${folder}/*.cpp)
    foreach(source IN LISTS sources)
        file(STRINGS ${SOURCE_DIR}/${source} lines REGEX "^[ \t]*#[ \t]*include[ \t]*[<\"]")
        foreach(line IN LISTS lines)
            string(REGEX REPLACE "^[ \t]*#[ \t]*include[ \t]*[<\"]([^>\"]*)[>\"].*$" "\\1" header "${line}")
            foreach(owner IN LISTS library_owners)
                string(REGEX MATCH "^([^:]*):(.*)$" _ "${owner}")
                set(pattern "${CMAKE_MATCH_1}")
                set(room "${CMAKE_MATCH_2}")
                if(header MATCHES "^${pattern}$" AND NOT folder STREQUAL room)
                    fail("${source} includes <${header}>, which belongs to ${room}")
                endif()
            endforeach()
            if(header MATCHES "\\.\\.")
                fail("${source} includes ${header}: headers are named from the root")
            endif()
            set(target "")
            if(EXISTS ${SOURCE_DIR}/${header} AND NOT IS_DIRECTORY ${SOURCE_DIR}/${header})
                set(target "${header}")
            else()
                foreach(candidate IN LISTS platform_headers)
                    get_filename_component(name ${candidate} NAME)
                    if(name STREQUAL header)
                        set(target "${candidate}")
                    endif()
                endforeach()
            endif()
            if(target STREQUAL "")
                continue()
            endif()
            set(known FALSE)
            foreach(room IN LISTS allowed)
                if(target STREQUAL room OR target MATCHES "^${room}/")
                    set(known TRUE)
                endif()
            endforeach()
            if(NOT known)
                fail("${source} includes ${target}: ${folder} may know only ${allowed}")
            endif()
        endforeach()
    endforeach()
endforeach()

if(failures)
    message(FATAL_ERROR "Includes against the layout (docs/architecture.md):\n${failures}")
endif()
