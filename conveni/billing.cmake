# Billing export: the job in the core, frmConveniMake in the GUI library.
target_sources(pel008_core PRIVATE ${CMAKE_CURRENT_LIST_DIR}/billingjob.cpp ${CMAKE_CURRENT_LIST_DIR}/billingjob.h)
if(EXISTS ${CMAKE_CURRENT_LIST_DIR}/frmconvenimake.cpp)
  target_sources(pel008_gui PRIVATE ${CMAKE_CURRENT_LIST_DIR}/frmconvenimake.cpp
    ${CMAKE_CURRENT_LIST_DIR}/frmconvenimake.h)
endif()
