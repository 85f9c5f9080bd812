# JUCE's core module from Debian's sources, compiled here with the settings below.
find_path(HARVANE_JUCE_MODULES juce_core/juce_core.h
          PATHS /usr/share/juce/modules NO_DEFAULT_PATH REQUIRED NO_CMAKE_FIND_ROOT_PATH)

add_library(juce_core STATIC ${HARVANE_JUCE_MODULES}/juce_core/juce_core.cpp)
target_include_directories(juce_core SYSTEM PUBLIC ${HARVANE_JUCE_MODULES})
target_compile_definitions(juce_core PUBLIC
  JUCE_GLOBAL_MODULE_SETTINGS_INCLUDED=1
  JUCE_MODULE_AVAILABLE_juce_core=1
  JUCE_STANDALONE_APPLICATION=0
  JUCE_USE_CURL=0
  $<IF:$<CONFIG:Debug>,DEBUG=1,NDEBUG=1>)
target_compile_options(juce_core PRIVATE -w)
if(WIN32)
  # Its thread entry is called by the system, with a stack of any alignment.
  target_compile_options(juce_core PRIVATE -mstackrealign)
  target_link_libraries(juce_core PUBLIC z ole32 oleaut32 uuid winmm wininet ws2_32 shlwapi version)
else()
  if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    # Files beyond 2 GiB as well.
    target_compile_definitions(juce_core PUBLIC _FILE_OFFSET_BITS=64)
  endif()
  find_package(Threads REQUIRED)
  target_link_libraries(juce_core PUBLIC z Threads::Threads ${CMAKE_DL_LIBS} rt)
endif()
