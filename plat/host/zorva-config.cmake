# SPDX-License-Identifier: GPL-2.0
#
# find_package(zorva) gives
#
#	zorva::headers    the public headers
#	zorva::host       zorva on this machine, for tests
#	zorva::host_asan  the same, watched by the address sanitizer; the test
#	                  is then compiled and linked with it as well
#
# zorva::host is as wide as the code that is compiled, and is the watched one
# when CMAKE_CXX_FLAGS or CMAKE_C_FLAGS have -fsanitize=address.

if(TARGET zorva::host)
    return()
endif()

get_filename_component(_zorva_lib ${CMAKE_CURRENT_LIST_DIR}/../.. REALPATH)
set(_zorva_include ${_zorva_lib})
while(NOT EXISTS ${_zorva_include}/include/zorva/host.h)
    get_filename_component(_zorva_up ${_zorva_include} DIRECTORY)
    if(_zorva_up STREQUAL _zorva_include)
        set(zorva_FOUND FALSE)
        set(zorva_NOT_FOUND_MESSAGE "zorva: no include/zorva/host.h")
        return()
    endif()
    set(_zorva_include ${_zorva_up})
endwhile()

add_library(zorva::headers INTERFACE IMPORTED)
set_target_properties(zorva::headers PROPERTIES
    INTERFACE_INCLUDE_DIRECTORIES ${_zorva_include}/include)

if(CMAKE_SIZEOF_VOID_P EQUAL 4 OR
   "${CMAKE_C_FLAGS} ${CMAKE_CXX_FLAGS}" MATCHES "-m32")
    set(_zorva_width 32)
else()
    set(_zorva_width 64)
endif()
if("${CMAKE_C_FLAGS} ${CMAKE_CXX_FLAGS}" MATCHES "-fsanitize=[a-z,]*address")
    set(_zorva_kind host_asan)
else()
    set(_zorva_kind host)
endif()

# _zorva_add TARGET LIBRARY
function(_zorva_add target library)
    set(file ${_zorva_lib}/zorva/host/${_zorva_width}/lib${library}.a)
    if(NOT EXISTS ${file})
        set(zorva_NOT_FOUND_MESSAGE "zorva: no ${file}" PARENT_SCOPE)
        set(zorva_FOUND FALSE PARENT_SCOPE)
        return()
    endif()
    add_library(${target} STATIC IMPORTED)
    # The library is C++, but a project that links it may know C alone.
    set_target_properties(${target} PROPERTIES
        IMPORTED_LOCATION ${file}
        INTERFACE_LINK_LIBRARIES "zorva::headers;stdc++;${CMAKE_DL_LIBS}")
endfunction()

set(zorva_FOUND TRUE)
_zorva_add(zorva::host zorva_${_zorva_kind})
_zorva_add(zorva::host_asan zorva_host_asan)
if(TARGET zorva::host_asan)
    set_target_properties(zorva::host_asan PROPERTIES
        INTERFACE_COMPILE_OPTIONS -fsanitize=address
        INTERFACE_LINK_OPTIONS -fsanitize=address)
endif()
