# How each kind of target is compiled. Every target of the project is one of these three.
#
#   cpic_library_target(T)  code that is loaded into a transaction program: 32 bits, no exceptions, no RTTI, no C++
#                           runtime, hardened, warnings are errors
#   cpic_program_32(T)      a 32-bit program of ours: transaction program, sample, test
#   cpic_program_native(T)  broker, tools, native tests

set(CPIC_WARNINGS -Wall -Wextra -Wconversion -Wshadow -Werror)
set(CPIC_HARDENING -fstack-protector-strong)
if(NOT CMAKE_BUILD_TYPE STREQUAL Debug)
    list(APPEND CPIC_HARDENING -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
endif()
set(CPIC_LINK_HARDENING -Wl,-z,relro,-z,now,-z,noexecstack)

function(cpic_instrument target)
    if(CPIC_SANITIZE)
        target_compile_options(${target} PRIVATE -fsanitize=address,undefined -fno-sanitize-recover=undefined
                               -fno-omit-frame-pointer)
        target_link_options(${target} PRIVATE -fsanitize=address,undefined)
    endif()
    if(CPIC_COVERAGE)
        target_compile_options(${target} PRIVATE --coverage)
        target_link_options(${target} PRIVATE --coverage)
    endif()
endfunction()

# Compile options of code loaded into a transaction program; also for the object libraries it is made of. It is
# optimised as a whole when it is linked: the frame, the verbs and the engine are in files of their own for the reader,
# not for the machine.
function(cpic_library_options target)
    target_compile_options(${target} PRIVATE -m32 -fPIC ${CPIC_WARNINGS} ${CPIC_HARDENING} -fvisibility=hidden
                           $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics>)
    target_include_directories(${target} PRIVATE ${CMAKE_SOURCE_DIR}/include)
    if(NOT CMAKE_BUILD_TYPE STREQUAL Debug)
        target_compile_options(${target} PRIVATE -flto=auto -ffat-lto-objects)
    endif()
    cpic_instrument(${target})
endfunction()

function(cpic_library_target target)
    cpic_library_options(${target})
    # The C linker driver: nothing of a C++ runtime can creep in unseen.
    set_target_properties(${target} PROPERTIES LINKER_LANGUAGE C)
    target_link_options(${target} PRIVATE -m32 -static-libgcc ${CPIC_LINK_HARDENING} -Wl,--no-undefined)
    if(NOT CMAKE_BUILD_TYPE STREQUAL Debug)
        target_link_options(${target} PRIVATE -flto=auto -O2)
    endif()
endfunction()

function(cpic_program_32 target)
    target_compile_options(${target} PRIVATE -m32 ${CPIC_WARNINGS} ${CPIC_HARDENING})
    target_link_options(${target} PRIVATE -m32 ${CPIC_LINK_HARDENING})
    target_include_directories(${target} PRIVATE ${CMAKE_SOURCE_DIR}/include)
    cpic_instrument(${target})
endfunction()

function(cpic_program_native target)
    target_compile_options(${target} PRIVATE ${CPIC_WARNINGS} ${CPIC_HARDENING})
    target_link_options(${target} PRIVATE ${CPIC_LINK_HARDENING})
    cpic_instrument(${target})
endfunction()
