# What every target of the house is built with, and how a program is linked against the library and the host platform.

set(AP_ALL_ROOMS foundation msgserver wireless rfo netcfg upgrade portal product identify)
set(AP_ROOMS "${AP_ALL_ROOMS}" CACHE STRING "The rooms of the library that are built; fewer build faster")

find_package(Threads REQUIRED)
find_library(CJSON_LIBRARY cjson REQUIRED)

add_library(ap_flags INTERFACE)
target_compile_options(ap_flags INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
target_compile_definitions(ap_flags INTERFACE _GNU_SOURCE)
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    target_compile_definitions(ap_flags INTERFACE _FILE_OFFSET_BITS=64)
endif()
target_include_directories(ap_flags INTERFACE ${CMAKE_SOURCE_DIR} ${CMAKE_SOURCE_DIR}/include
                                              ${CMAKE_SOURCE_DIR}/platform/include)
if(AP_SANITIZE)
    target_compile_options(ap_flags INTERFACE -fsanitize=${AP_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(ap_flags INTERFACE -fsanitize=${AP_SANITIZE})
endif()

# A program over the library: what it defines itself wins over the host platform, which is loaded before the C library.
function(ap_program target)
    target_link_libraries(${target} PRIVATE ap_flags apsupport -Wl,--no-as-needed applatform -Wl,--as-needed
                                            ${CJSON_LIBRARY} Threads::Threads)
endfunction()

# The files of the rooms that are built: <folder>/<room>_*.cpp for each room, and those of no room.
function(ap_files_of_built_rooms out folder suffix)
    file(GLOB files CONFIGURE_DEPENDS ${folder}/*_${suffix}.cpp)
    foreach(room IN LISTS AP_ALL_ROOMS)
        if(NOT room IN_LIST AP_ROOMS)
            list(FILTER files EXCLUDE REGEX "/${room}_[^/]*$")
        endif()
    endforeach()
    set(${out} ${files} PARENT_SCOPE)
endfunction()
