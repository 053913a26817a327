# cmake -DHEADER=cpic.h -DPAGES=directory -DOUTPUT=directory -P call_pages.cmake
#
# Writes the alias page CMINIT.3 for every call cminit of the header, and fails when a call has no page of its own in
# PAGES, or a page of section 3 no call. OUTPUT/aliases is touched when all is well.
cmake_minimum_required(VERSION 3.25)
file(STRINGS ${HEADER} prototypes REGEX "^CM_ENTRY [a-z]+\\(")
file(GLOB sources RELATIVE ${PAGES} ${PAGES}/*.3.scd)
list(LENGTH prototypes count)
if(count EQUAL 0)
    message(FATAL_ERROR "${HEADER} declares no call: the prototypes are no longer written as this check reads them")
endif()

set(missing)
foreach(prototype ${prototypes})
    string(REGEX REPLACE "^CM_ENTRY ([a-z]+)\\(.*" "\\1" call ${prototype})
    string(TOUPPER ${call} upper)
    if(call STREQUAL upper)
        continue()
    endif()
    if(NOT ${call}.3.scd IN_LIST sources)
        list(APPEND missing ${call})
    endif()
    list(REMOVE_ITEM sources ${call}.3.scd)
    file(WRITE ${OUTPUT}/man3/${upper}.3 ".so man3/${call}.3\n")
endforeach()

if(missing)
    message(FATAL_ERROR "These calls have no manual page: ${missing}. Write docs/man/<call>.3.scd for each.")
endif()
if(sources)
    message(FATAL_ERROR "These pages belong to no call of cpic.h: ${sources}")
endif()
file(TOUCH ${OUTPUT}/aliases)
