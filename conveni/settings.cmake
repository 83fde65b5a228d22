# Collection settings: the job in the core, frmSetCvs2 in the GUI library.
target_sources(pel008_core PRIVATE ${CMAKE_CURRENT_LIST_DIR}/settingsjob.cpp ${CMAKE_CURRENT_LIST_DIR}/settingsjob.h)
target_sources(pel008_gui PRIVATE ${CMAKE_CURRENT_LIST_DIR}/frmsetcvs2.cpp ${CMAKE_CURRENT_LIST_DIR}/frmsetcvs2.h)
