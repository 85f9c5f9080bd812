# What the tool links and the module does not: PkgConfig::SndFile, PkgConfig::EbuR128,
# LibXml2::LibXml2, fmt::fmt, CLI11::CLI11, nlohmann_json::nlohmann_json. HARVANE_HAS_TOOL: all of it
# is there.
set(HARVANE_HAS_TOOL TRUE)
if(WIN32)
  execute_process(COMMAND ${PROJECT_SOURCE_DIR}/tools/mingw-libraries path
                  OUTPUT_VARIABLE HARVANE_MINGW_PREFIX OUTPUT_STRIP_TRAILING_WHITESPACE
                  ERROR_QUIET RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    set(HARVANE_HAS_TOOL FALSE)
    message(STATUS "harvane.exe is left out: its libraries are not there; tools/mingw-libraries make")
    return()
  endif()
  list(APPEND CMAKE_FIND_ROOT_PATH ${HARVANE_MINGW_PREFIX})
  set(ENV{PKG_CONFIG_LIBDIR} ${HARVANE_MINGW_PREFIX}/lib/pkgconfig)
  set(PKG_CONFIG_ARGN --static)
  # Headers only, and the same for every target (see Platform).
  foreach(name fmt CLI11 nlohmann_json)
    add_library(harvane_${name} INTERFACE)
    add_library(${name}::${name} ALIAS harvane_${name})
  endforeach()
  target_compile_definitions(harvane_fmt INTERFACE FMT_HEADER_ONLY)
else()
  find_package(fmt REQUIRED)
  find_package(CLI11 REQUIRED)
  find_package(nlohmann_json REQUIRED)
endif()
find_package(PkgConfig REQUIRED)
pkg_check_modules(SndFile REQUIRED IMPORTED_TARGET sndfile)
pkg_check_modules(EbuR128 REQUIRED IMPORTED_TARGET libebur128)
find_package(LibXml2 REQUIRED)
if(WIN32)
  set_property(TARGET LibXml2::LibXml2 APPEND PROPERTY INTERFACE_COMPILE_DEFINITIONS LIBXML_STATIC)
endif()
