# vantreloctl's helper commands, included from ctl/CMakeLists.txt.
vantrelo_add_library(vantrelo_ctl_helper
  SOURCES
    HelperCommands.cpp
  LINK
    vantrelo_wire vantrelo_util Qt6::Core)
if(TARGET vantreloctl)
  target_link_libraries(vantreloctl PRIVATE vantrelo_ctl_helper)
endif()
