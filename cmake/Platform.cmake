if(WIN32)
  # Self-contained: no library beside Windows' own.
  add_link_options(-static)
  # These are headers only, and the same for every target.
  set(HARVANE_HEADER_ONLY ${PROJECT_BINARY_DIR}/header-only)
  file(MAKE_DIRECTORY ${HARVANE_HEADER_ONLY})
  foreach(headers boost utf8 utf8.h fmt CLI nlohmann)
    file(CREATE_LINK /usr/include/${headers} ${HARVANE_HEADER_ONLY}/${headers} SYMBOLIC)
  endforeach()
  include_directories(SYSTEM ${HARVANE_HEADER_ONLY})
  add_compile_definitions(UNICODE _UNICODE NOMINMAX WIN32_LEAN_AND_MEAN _WIN32_WINNT=0x0601)
else()
  # Without it a module with inline variables is never taken out of memory again.
  add_compile_options($<$<AND:$<COMPILE_LANGUAGE:CXX>,$<CXX_COMPILER_ID:GNU>>:-fno-gnu-unique>)
endif()
