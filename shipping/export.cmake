# I-CAT shipping data export: the job in the core, the screen in the GUI library.
target_sources(pel008_core PRIVATE ${CMAKE_CURRENT_LIST_DIR}/icatexportjob.cpp ${CMAKE_CURRENT_LIST_DIR}/icatexportjob.h)
target_sources(pel008_gui PRIVATE ${CMAKE_CURRENT_LIST_DIR}/frmicatmake.cpp ${CMAKE_CURRENT_LIST_DIR}/frmicatmake.h)
