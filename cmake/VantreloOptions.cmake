# One interface target carries the language level, warnings and Qt's safety defines for every
# target of the project.
add_library(vantrelo_options INTERFACE)
target_compile_features(vantrelo_options INTERFACE cxx_std_20)
target_compile_options(vantrelo_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wold-style-cast -Woverloaded-virtual
  -Wformat=2 -Wimplicit-fallthrough)
# Executables load only the shared libraries they use: command-line tools start without the GUI
# libraries that a subsystem library links for its other classes.
target_link_options(vantrelo_options INTERFACE -Wl,--as-needed)
if(VANTRELO_WERROR)
  target_compile_options(vantrelo_options INTERFACE -Werror)
endif()
target_compile_definitions(vantrelo_options INTERFACE
  QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII QT_NO_CONTEXTLESS_CONNECT
  QT_NO_NARROWING_CONVERSIONS_IN_CONNECT QT_NO_URL_CAST_FROM_STRING QT_NO_KEYWORDS
  QT_USE_QSTRINGBUILDER VANTRELO_VERSION="${PROJECT_VERSION}")
target_include_directories(vantrelo_options INTERFACE ${PROJECT_SOURCE_DIR})

# vantrelo_add_library(name SOURCES ... LINK ...): one library per subsystem folder.
function(vantrelo_add_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINK" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_link_libraries(${name} PUBLIC vantrelo_options ${ARG_LINK})
endfunction()
