# jsoncpp as one target for both platforms, vgcr_jsoncpp: code links it and
# includes <json/json.h>. Natively it is Debian's libjsoncpp-dev; for Windows
# it is the static library that scripts/lib/jsoncpp_mingw.sh cross-builds from
# Debian's sources, so that nothing we ship needs a jsoncpp DLL.

add_library(vgcr_jsoncpp INTERFACE)
if(WIN32)
  set(VGCR_JSONCPP_MINGW_PREFIX ${PROJECT_SOURCE_DIR}/build/third_party/jsoncpp-mingw
      CACHE PATH "jsoncpp cross-built for mingw-w64 (scripts/lib/jsoncpp_mingw.sh)")
  if(NOT EXISTS ${VGCR_JSONCPP_MINGW_PREFIX}/lib/libjsoncpp.a OR
     NOT EXISTS ${VGCR_JSONCPP_MINGW_PREFIX}/include/json/json.h)
    message(FATAL_ERROR "jsoncpp for mingw-w64 is not in ${VGCR_JSONCPP_MINGW_PREFIX}: "
                        "run 'bash scripts/lib/jsoncpp_mingw.sh' first")
  endif()
  add_library(vgcr_jsoncpp_mingw STATIC IMPORTED)
  set_target_properties(vgcr_jsoncpp_mingw PROPERTIES
    IMPORTED_LOCATION ${VGCR_JSONCPP_MINGW_PREFIX}/lib/libjsoncpp.a
    INTERFACE_INCLUDE_DIRECTORIES ${VGCR_JSONCPP_MINGW_PREFIX}/include)
  target_link_libraries(vgcr_jsoncpp INTERFACE vgcr_jsoncpp_mingw)
else()
  find_package(jsoncpp CONFIG REQUIRED)
  target_link_libraries(vgcr_jsoncpp INTERFACE JsonCpp::JsonCpp)
endif()
