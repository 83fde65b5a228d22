# I-CAT tracking number import: the job in the core, the screen in the GUI library.
target_sources(pel008_core PRIVATE ${CMAKE_CURRENT_LIST_DIR}/trackingjob.cpp ${CMAKE_CURRENT_LIST_DIR}/trackingjob.h)
target_sources(pel008_gui PRIVATE ${CMAKE_CURRENT_LIST_DIR}/frmicatread.cpp ${CMAKE_CURRENT_LIST_DIR}/frmicatread.h)
