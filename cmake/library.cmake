# libapsupport.so: C++20 without a C++ runtime. Platform functions stay undefined; they are bound when a program loads it.

set(sources)
foreach(room IN LISTS AP_ROOMS)
    file(GLOB room_sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/${room}/*.cpp)
    list(APPEND sources ${room_sources})
endforeach()

add_library(apsupport SHARED ${sources})
target_compile_options(apsupport PRIVATE -fno-exceptions -fno-rtti -fno-threadsafe-statics -fvisibility=hidden
                                         -fvisibility-inlines-hidden -ffunction-sections -fdata-sections)
target_include_directories(apsupport INTERFACE ${CMAKE_SOURCE_DIR}/include)
set(map ${CMAKE_SOURCE_DIR}/cmake/libapsupport.map)
target_link_options(apsupport PRIVATE -static-libgcc -Wl,--version-script=${map} -Wl,--wrap=SetValue -Wl,-z,undefs
                                      -Wl,--gc-sections -Wl,--as-needed)
target_link_libraries(apsupport PRIVATE ap_flags ${CJSON_LIBRARY})
set_target_properties(apsupport PROPERTIES LINKER_LANGUAGE C LINK_DEPENDS ${map} OUTPUT_NAME apsupport)
